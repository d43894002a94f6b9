// The XML writers (see xmlout.h) and the two `CPXMLObject::Write` entry points.
#include "xml/xmlout.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include <vorx/core.h>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "xml/xmlnode.h"

namespace VORX::XML {

namespace {

constexpr char16_t kDeclarationUTF8[] = u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr char16_t kDeclarationUTF16[] = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>";
// Exists beside the other two; no encoding selects it.
[[maybe_unused]] constexpr char16_t kDeclarationUTF32[] =
    u"<?xml version=\"1.0\" encoding=\"UTF-32\"?>";

template <std::size_t N> bool _write(_IXMLOut & out, char16_t const (&text)[N]) {
  return out.Write(text, N - 1);
}
// The number of 16-bit units of a pooled text: a record holds exactly `len` units before its
// terminator (a pair the pool counts as one character keeps only its first unit there).
std::uint64_t _units(CPPoolString const & text) {
  return text.len();
}
bool _write(_IXMLOut & out, CPPoolString const & text) {
  return out.Write(static_cast<qefWChar const *>(text), _units(text));
}

constexpr bool _isBlank(qefWChar c) {
  return c == 0x9 || c == 0xA || c == 0xD || c == 0x20;
}
constexpr bool _isSpecial(qefWChar c) {
  return c == '&' || c == '<' || c == '>' || c == '"' || c == '\'';
}

// Whether `length` units of data begin or end with white space.
bool _blankAtAnEnd(qefWChar const * data, std::uint64_t length) {
  return length != 0 && (_isBlank(data[0]) || _isBlank(data[length - 1]));
}

// One class per ASCII character: 1 for the special characters, 2 for white space.
constexpr auto kClass = [] {
  std::array<std::uint8_t, 128> table{};
  for (unsigned c = 0; c < 128; ++c) {
    table[c] = _isSpecial(qefWChar(c)) ? 1 : _isBlank(qefWChar(c)) ? 2 : 0;
  }
  return table;
}();

#if defined(__x86_64__)
// The units of `v` that are special characters (all ones), the others zero.
inline __m128i _specials(__m128i v) {
  auto const is = [v](char16_t c) { return _mm_cmpeq_epi16(v, _mm_set1_epi16(short(c))); };
  return _mm_or_si128(_mm_or_si128(_mm_or_si128(is('&'), is('<')), is('>')),
                      _mm_or_si128(is('"'), is('\'')));
}

// Whether every unit of `v` is ASCII.
inline bool _ascii8(__m128i v) {
  return _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(short(0xFF80))),
                                           _mm_setzero_si128())) == 0xFFFF;
}

// Stores the four units in the low half of `v` as bytes at `to`.
inline void _store4(std::uint8_t * to, __m128i v) {
  auto const bytes = std::uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
  std::memcpy(to, &bytes, sizeof bytes);
}

// Whether eight units need protection inside the data: a special character, or two white-space
// characters in a row (`previous`: whether the unit before them is white space, then whether
// their last one is).
inline bool _troubleIn8(__m128i v, unsigned & previous) {
  auto const is = [v](char16_t c) { return _mm_cmpeq_epi16(v, _mm_set1_epi16(short(c))); };
  __m128i const special = _specials(v);
  // Two mask bits per unit.
  auto const blank = unsigned(_mm_movemask_epi8(
      _mm_or_si128(_mm_or_si128(is(0x9), is(0xA)), _mm_or_si128(is(0xD), is(0x20)))));
  bool const trouble =
      _mm_movemask_epi8(special) != 0 || (blank & (blank >> 2)) != 0 || (previous & blank & 1) != 0;
  previous = blank >> 15;
  return trouble;
}
#endif

// Data that would not read back as it stands is written as CDATA: a special character, white
// space at either end, or two white-space characters in a row.
bool _needsProtection(qefWChar const * data, std::uint64_t length) {
  if (_blankAtAnEnd(data, length)) {
    return true;
  }
  std::uint64_t i = 0;
  unsigned previous = 0;
#if defined(__x86_64__)
  // Eight units at a time; `previous` carries whether the last unit of a block is white space.
  for (; i + 8 <= length; i += 8) {
    if (_troubleIn8(_mm_loadu_si128(reinterpret_cast<__m128i const *>(data + i)), previous)) {
      return true;
    }
  }
  previous *= 2;
#endif
  for (; i < length; ++i) {
    unsigned const c = data[i] < 128 ? kClass[data[i]] : 0;
    if ((c & 1) != 0 || (c & previous & 2) != 0) {
      return true;
    }
    previous = c;
  }
  return false;
}

// Narrows ASCII data that needs no protection to bytes at `to` in the same pass as the checks;
// false when a unit is not ASCII or the data needs protection (the bytes are then left
// uncommitted).
bool _copyPlainData(std::uint8_t * to, qefWChar const * data, std::size_t length) {
  if (_blankAtAnEnd(data, length)) {
    return false;
  }
  unsigned previous = 0;
#if defined(__x86_64__)
  // Eight units at a time, checked as `_needsProtection` does and for units from 0x80; the last
  // eight overlap the step before. Four to seven units as two overlapping fours: each pair of
  // neighbours lies in one of them.
  if (length >= 8) {
    for (std::size_t i = 0;; i += 8) {
      if (i + 8 > length) {
        // The pair across the start of this last step lies in the step before, checked there.
        i = length - 8;
        previous = 0;
      }
      __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const *>(data + i));
      if (_troubleIn8(v, previous) || !_ascii8(v)) {
        return false;
      }
      _mm_storel_epi64(reinterpret_cast<__m128i *>(to + i), _mm_packus_epi16(v, v));
      if (i + 8 == length) {
        return true;
      }
    }
  }
  if (length >= 4) {
    __m128i const head = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(data));
    __m128i const tail = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(data + length - 4));
    unsigned first = 0;
    unsigned second = 0;
    if (_troubleIn8(head, first) || _troubleIn8(tail, second) ||
        !_ascii8(_mm_or_si128(head, tail))) {
      return false;
    }
    _store4(to, head);
    _store4(to + length - 4, tail);
    return true;
  }
#endif
  unsigned bits = 0;
  unsigned bad = 0;
  for (std::size_t i = 0; i < length; ++i) {
    qefWChar const unit = data[i];
    unsigned const c = kClass[unit & 0x7F];
    bits |= unit;
    bad |= (c & 1) | (c & previous & 2);
    previous = c;
    to[i] = std::uint8_t(unit);
  }
  return bits < 0x80 && bad == 0;
}

bool _writeData(_IXMLOut & out, CPPoolString const & data) {
  qefWChar const * const text = data;
  std::uint64_t const length = _units(data);
  if (!_needsProtection(text, length)) {
    return out.Write(text, length);
  }
  std::uint64_t start = 0;
  for (std::uint64_t i = 0; i + 2 < length; ++i) {
    if (text[i] == ']' && text[i + 1] == ']' && text[i + 2] == '>') {
      if (!_write(out, u"<![CDATA[") || !out.Write(text + start, i + 2 - start) ||
          !_write(out, u"]]>")) {
        return false;
      }
      start = i + 2;
    }
  }
  return _write(out, u"<![CDATA[") && out.Write(text + start, length - start) &&
         _write(out, u"]]>");
}

// The entity that stands for a special character in an attribute value; empty for any other.
constexpr std::u16string_view _entity(qefWChar c) {
  switch (c) {
  case '&':
    return u"&amp;";
  case '<':
    return u"&lt;";
  case '>':
    return u"&gt;";
  case '"':
    return u"&quot;";
  case '\'':
    return u"&apos;";
  default:
    return {};
  }
}

bool _writeAttributeValue(_IXMLOut & out, CPPoolString const & value) {
  qefWChar const * const text = value;
  std::uint64_t const length = _units(value);
  std::uint64_t start = 0;
  for (std::uint64_t i = 0; i < length; ++i) {
    std::u16string_view const entity = _entity(text[i]);
    if (entity.empty()) {
      continue;
    }
    if (!out.Write(text + start, i - start) || !out.Write(entity.data(), entity.size())) {
      return false;
    }
    start = i + 1;
  }
  return out.Write(text + start, length - start);
}

// Narrows `count` units to bytes at `to`; false when one of them is not ASCII (the bytes are
// then left uncommitted and the caller takes the encoder's path).
bool _copyAscii(std::uint8_t * to, qefWChar const * from, std::size_t count) {
#if defined(__x86_64__)
  // Eight units at a time, the last eight overlapping the step before.
  if (count >= 8) {
    __m128i all = _mm_setzero_si128();
    for (std::size_t i = 0;; i += 8) {
      i = i + 8 <= count ? i : count - 8;
      __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const *>(from + i));
      all = _mm_or_si128(all, v);
      _mm_storel_epi64(reinterpret_cast<__m128i *>(to + i), _mm_packus_epi16(v, v));
      if (i + 8 == count) {
        return _ascii8(all);
      }
    }
  }
#endif
  unsigned bits = 0;
  for (std::size_t i = 0; i < count; ++i) {
    bits |= from[i];
    to[i] = std::uint8_t(from[i]);
  }
  return bits < 0x80;
}

template <std::size_t N> std::uint8_t * _putLiteral(std::uint8_t * to, char16_t const (&text)[N]) {
  for (std::size_t i = 0; i + 1 < N; ++i) {
    to[i] = std::uint8_t(text[i]);
  }
  return to + (N - 1);
}

// Texts of at most this many units take the short paths, so that a value with every character
// escaped still fits in an empty buffer.
constexpr std::uint64_t kShortText = _CXMLOut::kBufferSize / 16;

// A short text whose UTF-8 form has a byte per character: ASCII, or a text with surrogate pairs,
// which `_copyAscii` turns away.
bool _short(CPPoolString const & text) {
  std::uint64_t const length = text.len();
  return length <= kShortText && text.UTF8Size() == length;
}

// `prefix`, `text`, `suffix` and, with `line`, a line end.
template <std::size_t P, std::size_t S>
bool _writeMarked(_CXMLOut & out, char16_t const (&prefix)[P], CPPoolString const & text,
                  char16_t const (&suffix)[S], bool line) {
  if (_short(text)) {
    auto const length = std::size_t(text.len());
    if (std::uint8_t * const at = out.Room(P + S + length)) {
      std::uint8_t * end = _putLiteral(at, prefix);
      if (_copyAscii(end, text, length)) {
        end = _putLiteral(end + length, suffix);
        out.Commit(line ? out.LineEnd(end) : end);
        return true;
      }
    }
  }
  return _write(out, prefix) && _write(out, text) && _write(out, suffix) &&
         (!line || out.NewLine());
}

// `text` and a line end.
template <std::size_t N> bool _writeLine(_CXMLOut & out, char16_t const (&text)[N]) {
  if (std::uint8_t * const at = out.Room(N + 1)) {
    out.Commit(out.LineEnd(_putLiteral(at, text)));
    return true;
  }
  return _write(out, text) && out.NewLine();
}

// Encodes one unit of the Basic Multilingual Plane as UTF-8 at `to`; the end, or null for a
// surrogate (pairs are the encoder's: it writes them its own way).
std::uint8_t * _putUnit(std::uint8_t * to, std::uint32_t u) {
  if (u < 0x80) {
    *to = std::uint8_t(u);
    return to + 1;
  }
  if (u < 0x800) {
    to[0] = std::uint8_t(0xC0 | (u >> 6));
    to[1] = std::uint8_t(0x80 | (u & 0x3F));
    return to + 2;
  }
  if (u >= 0xD800 && u <= 0xDFFF) {
    return nullptr;
  }
  to[0] = std::uint8_t(0xE0 | (u >> 12));
  to[1] = std::uint8_t(0x80 | ((u >> 6) & 0x3F));
  to[2] = std::uint8_t(0x80 | (u & 0x3F));
  return to + 3;
}

// Encodes data that needs no protection as UTF-8 at `to` (at most three bytes a unit), in the same
// pass as the checks of `_needsProtection`; the end, or null when the data needs protection or
// holds a surrogate (the bytes are then left uncommitted).
std::uint8_t * _putPlainUtf8(std::uint8_t * to, qefWChar const * data, std::size_t length) {
  if (_blankAtAnEnd(data, length)) {
    return nullptr;
  }
  std::size_t i = 0;
  unsigned previous = 0;
#if defined(__x86_64__)
  for (; i + 8 <= length; i += 8) {
    __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const *>(data + i));
    if (_troubleIn8(v, previous)) {
      return nullptr;
    }
    if (_ascii8(v)) {
      _mm_storel_epi64(reinterpret_cast<__m128i *>(to), _mm_packus_epi16(v, v));
      to += 8;
      continue;
    }
    for (std::size_t k = i; k < i + 8; ++k) {
      if ((to = _putUnit(to, data[k])) == nullptr) {
        return nullptr;
      }
    }
  }
  previous *= 2;
#endif
  for (; i < length; ++i) {
    qefWChar const unit = data[i];
    unsigned const c = unit < 128 ? kClass[unit] : 0;
    if ((c & 1) != 0 || (c & previous & 2) != 0 || (to = _putUnit(to, unit)) == nullptr) {
      return nullptr;
    }
    previous = c;
  }
  return to;
}

// Encodes one unit of an attribute value at `to`, a special character as its entity; the end, or
// null for a surrogate.
std::uint8_t * _putValueUnit(std::uint8_t * to, qefWChar unit) {
  if (unit < 128 && kClass[unit] != 1) {
    *to = std::uint8_t(unit);
    return to + 1;
  }
  std::u16string_view const entity = _entity(unit);
  if (entity.empty()) {
    return _putUnit(to, unit);
  }
  for (char16_t const e : entity) {
    *to++ = std::uint8_t(e);
  }
  return to;
}

// Encodes `length` units of an attribute value at `to` (at most six bytes each), the special
// characters as entities; the end, or null at a surrogate.
std::uint8_t * _putValue(std::uint8_t * to, qefWChar const * text, std::size_t length) {
  std::size_t i = 0;
#if defined(__x86_64__)
  // Four to seven plain units as two overlapping fours.
  if (length >= 4 && length < 8) {
    __m128i const head = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(text));
    __m128i const tail = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(text + length - 4));
    __m128i const both = _mm_or_si128(head, tail);
    if (_mm_movemask_epi8(_mm_or_si128(_specials(head), _specials(tail))) == 0 && _ascii8(both)) {
      _store4(to, head);
      _store4(to + length - 4, tail);
      return to + length;
    }
  }
  // Eight units at a time while they are ASCII without a special character.
  for (; i + 8 <= length; i += 8) {
    __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const *>(text + i));
    if (_mm_movemask_epi8(_specials(v)) == 0 && _ascii8(v)) {
      _mm_storel_epi64(reinterpret_cast<__m128i *>(to), _mm_packus_epi16(v, v));
      to += 8;
      continue;
    }
    for (std::size_t k = i; k < i + 8; ++k) {
      if ((to = _putValueUnit(to, text[k])) == nullptr) {
        return nullptr;
      }
    }
  }
#endif
  for (; i < length; ++i) {
    if ((to = _putValueUnit(to, text[i])) == nullptr) {
      return nullptr;
    }
  }
  return to;
}

// ` name="value"`, the special characters of the value written as entities.
bool _writeAttribute(_CXMLOut & out, CPPoolString const & name, CPPoolString const & value) {
  if (_short(name) && value.len() <= kShortText) {
    auto const nameLength = std::size_t(name.len());
    auto const valueLength = std::size_t(value.len());
    if (std::uint8_t * const at = out.Room(4 + nameLength + 6 * valueLength)) {
      at[0] = ' ';
      bool ok = _copyAscii(at + 1, name, nameLength);
      std::uint8_t * end = at + 1 + nameLength;
      end[0] = '=';
      end[1] = '"';
      end += 2;
      end = ok ? _putValue(end, value, valueLength) : nullptr;
      if (end != nullptr) {
        *end++ = '"';
        out.Commit(end);
        return true;
      }
    }
  }
  return _write(out, u" ") && _write(out, name) && _write(out, u"=\"") &&
         _writeAttributeValue(out, value) && _write(out, u"\"");
}

// Writes ASCII `data` at `to` as CDATA, a "]]>" in it split after its "]]"; the end, or null when
// a unit is not ASCII (the bytes are then left uncommitted).
std::uint8_t * _putCData(std::uint8_t * to, qefWChar const * data, std::size_t length) {
  to = _putLiteral(to, u"<![CDATA[");
  unsigned bits = 0;
  for (std::size_t i = 0; i < length; ++i) {
    qefWChar const unit = data[i];
    bits |= unit;
    if (unit == '>' && i >= 2 && data[i - 1] == ']' && data[i - 2] == ']') {
      to = _putLiteral(to, u"]]><![CDATA[");
    }
    *to++ = std::uint8_t(unit);
  }
  return bits < 0x80 ? _putLiteral(to, u"]]>") : nullptr;
}

// The end of an element with data: `>`, the data, the end tag and a line end.
bool _writeDataEnd(_CXMLOut & out, CPPoolString const & name, CPPoolString const & data) {
  if (_short(name) && data.len() <= kShortText) {
    auto const nameLength = std::size_t(name.len());
    auto const dataLength = std::size_t(data.len());
    // Room for the CDATA form with a split after every third unit (or three bytes a unit).
    if (std::uint8_t * const at = out.Room(18 + nameLength + 5 * dataLength)) {
      at[0] = '>';
      std::uint8_t * end = at + 1 + dataLength;
      if (data.UTF8Size() != dataLength) {
        // Not ASCII: plain data only; CDATA is the encoder's.
        end = _putPlainUtf8(at + 1, data, dataLength);
      } else if (!_copyPlainData(at + 1, data, dataLength)) {
        end = _putCData(at + 1, data, dataLength);
      }
      if (end != nullptr && _copyAscii(end + 2, name, nameLength)) {
        end[0] = '<';
        end[1] = '/';
        end += 2 + nameLength;
        *end++ = '>';
        out.Commit(out.LineEnd(end));
        return true;
      }
    }
  }
  return _write(out, u">") && _writeData(out, data) && _write(out, u"</") && _write(out, name) &&
         _write(out, u">") && out.NewLine();
}

// Asks for the blocks behind the handles of `node` (each handle is one pointer to its block):
// its data record and its attribute array, so they are in the cache when it is written.
void _prefetchBlocks(tagXMLNODE const * node) {
  char const * data;
  char const * attributes;
  char const * elements;
  std::memcpy(static_cast<void *>(&data), static_cast<void const *>(&node->data), sizeof data);
  std::memcpy(static_cast<void *>(&attributes), static_cast<void const *>(&node->attributes),
              sizeof attributes);
  std::memcpy(static_cast<void *>(&elements), static_cast<void const *>(&node->elements),
              sizeof elements);
  __builtin_prefetch(data);
  __builtin_prefetch(data + 64);
  __builtin_prefetch(attributes);
  __builtin_prefetch(elements);
}

// Asks for the records of the first attribute values of `node`, whose attribute array was asked
// for earlier.
void _prefetchValues(tagXMLNODE const * node) {
  std::size_t const count = node->attributes.GetNItems();
  CPPoolString const * const items = node->attributes.items();
  for (std::size_t i = 1; i < count && i < 8; i += 2) {
    char const * record;
    std::memcpy(static_cast<void *>(&record), static_cast<void const *>(items + i), sizeof record);
    __builtin_prefetch(record);
    __builtin_prefetch(record + 64);
  }
}

// How far ahead of the child being written its siblings' node records, and the blocks behind
// them, are asked for.
constexpr std::size_t kNodeAhead = 12;
constexpr std::size_t kBlocksAhead = 6;
constexpr std::size_t kValuesAhead = 3;

// One open element of the serialiser's walk.
struct tagWRITEFRAME {
  tagXMLNODE const * node;
  std::size_t next; // next child to write
  bool container;   // a "<" name: only the children are written
};

} // namespace

char16_t const _CXMLOut::kSpaces[64] = {
    u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ',
    u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ',
    u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ',
    u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' ', u' '};

_CXMLOut::_CXMLOut() : m_buffer(static_cast<std::uint8_t *>(Core::OS::_falloc(kBufferSize))) {}

_CXMLOut::~_CXMLOut() {
  Core::OS::_ffree(m_buffer);
}

bool _CXMLOut::Begin(eXMLEncoding encoding, bool indent) {
  if (m_buffer == nullptr || encoding < 1 || encoding > 3) {
    m_failed = true;
    return false;
  }
  m_indent = indent;
  m_pendingIndent = indent;
  m_depth = 0;
  m_encoding = encoding;
  m_free = kBufferSize;
  bool const ok = encoding == eXMLEncodingUTF8 ? _write(*this, kDeclarationUTF8)
                                               : _write(*this, kDeclarationUTF16);
  if (ok && NewLine()) {
    m_failed = false;
    return true;
  }
  m_failed = true;
  return false;
}

bool _CXMLOut::Write(qefWChar const * text, std::uint64_t count) {
  if (m_pendingIndent) {
    m_pendingIndent = false;
    if (m_indent) {
      for (std::uint64_t spaces = m_depth * 2; spaces > 0;) {
        std::uint64_t const piece = spaces < 64 ? spaces : 64;
        if (m_encoding == eXMLEncodingUTF8 && m_free >= piece) {
          std::memset(m_buffer + (kBufferSize - m_free), ' ', std::size_t(piece));
          m_free -= std::size_t(piece);
        } else if (!Encode(kSpaces, piece)) {
          return false;
        }
        spaces -= piece;
      }
    }
  }
  // Short ASCII pieces (markup, names) into UTF-8 with room to spare, without the encoder's
  // set-up; anything else, from its first unit, through the encoder.
  if (m_encoding == eXMLEncodingUTF8 && count <= kShortPiece && m_free >= kShortPiece) {
    std::uint8_t * const out = m_buffer + (kBufferSize - m_free);
    std::uint64_t i = 0;
    while (i < count && text[i] < 0x80) {
      out[i] = std::uint8_t(text[i]);
      ++i;
    }
    if (i == count) {
      m_free -= std::size_t(count);
      return true;
    }
  }
  return Encode(text, count);
}

bool _CXMLOut::NewLine() {
  if (!m_indent) {
    return true;
  }
  bool const ok = Write(u"\r\n", 2);
  m_pendingIndent = true;
  return ok;
}

bool _CXMLOut::Put(void const * bytes, std::size_t count) {
  auto const * from = static_cast<std::uint8_t const *>(bytes);
  while (count > 0) {
    if (m_free == 0 && !Flush()) {
      return false;
    }
    std::size_t const piece = count < m_free ? count : m_free;
    std::memcpy(m_buffer + (kBufferSize - m_free), from, piece);
    m_free -= piece;
    from += piece;
    count -= piece;
  }
  return true;
}

namespace {

// The character a surrogate at `text[i]` is written as: pairs are not combined, a high surrogate
// must be followed by a unit of at least 0xDBFF, and the pair is written as the one character 0x00
// or 0x01; on purpose. -1 when the surrogate is refused.
int _pairCharacter(qefWChar const * text, std::uint64_t count, std::uint64_t i) {
  std::uint32_t const u = text[i];
  if (u > 0xDBFF || i + 1 >= count || text[i + 1] < 0xDBFF) {
    return -1;
  }
  return ((u & 0x3FF) == 0 && (text[i + 1] & 0x3FF) == 0) ? 0 : 1;
}

} // namespace

bool _CXMLOut::EncodeOne(qefWChar const * text, std::uint64_t count, std::uint64_t & i) {
  std::uint32_t u = text[i];
  if (u >= 0xD800 && u <= 0xDFFF) {
    int const pair = _pairCharacter(text, count, i);
    if (pair < 0) {
      return false;
    }
    u = std::uint32_t(pair);
    ++i;
  }
  ++i;
  if (m_encoding == eXMLEncodingUTF16) {
    std::uint16_t const unit = std::uint16_t(u);
    return Put(&unit, 2);
  }
  std::uint8_t bytes[3];
  return Put(bytes, std::size_t(_putUnit(bytes, u) - bytes));
}

bool _CXMLOut::Encode(qefWChar const * text, std::uint64_t count) {
  if (m_encoding == eXMLEncodingRaw16) {
    return Put(text, std::size_t(count) * sizeof(qefWChar));
  }
  // Each unit takes at most `widest` bytes. While the buffer has room for the worst case of a
  // stretch, the stretch is encoded straight into it; ASCII goes four units per step. Near the
  // end of the buffer one character at a time goes through `Put`, which flushes when full.
  std::size_t const widest = m_encoding == eXMLEncodingUTF16 ? 2 : 3;
  std::uint64_t i = 0;
  while (i < count) {
    std::uint64_t const room = widest == 2 ? m_free / 2 : m_free / 3;
    if (room == 0) {
      if (!EncodeOne(text, count, i)) {
        return false;
      }
      continue;
    }
    std::uint64_t const end = i + (count - i < room ? count - i : room);
    std::uint8_t * const start = m_buffer + (kBufferSize - m_free);
    std::uint8_t * out = start;
    bool refused = false;
    if (widest == 2) {
      for (; i < end; ++i) {
        std::uint32_t u = text[i];
        if (u >= 0xD800 && u <= 0xDFFF) {
          int const pair = _pairCharacter(text, count, i);
          if (pair < 0) {
            refused = true;
            break;
          }
          u = std::uint32_t(pair);
          ++i;
        }
        std::uint16_t const unit = std::uint16_t(u);
        std::memcpy(out, &unit, 2);
        out += 2;
      }
    } else {
      while (i < end) {
        if (end - i >= 4 && (text[i] | text[i + 1] | text[i + 2] | text[i + 3]) < 0x80) {
          out[0] = std::uint8_t(text[i]);
          out[1] = std::uint8_t(text[i + 1]);
          out[2] = std::uint8_t(text[i + 2]);
          out[3] = std::uint8_t(text[i + 3]);
          out += 4;
          i += 4;
          continue;
        }
        std::uint32_t u = text[i];
        if (u < 0x80) {
          *out++ = std::uint8_t(u);
          ++i;
          continue;
        }
        if (u >= 0xD800 && u <= 0xDFFF) {
          int const pair = _pairCharacter(text, count, i);
          if (pair < 0) {
            refused = true;
            break;
          }
          *out++ = std::uint8_t(pair);
          i += 2;
          continue;
        }
        out = _putUnit(out, u);
        ++i;
      }
    }
    m_free -= std::size_t(out - start);
    if (refused) {
      return false;
    }
  }
  return true;
}

_CFileOut::_CFileOut(qefWChar const * path) : m_path(path) {}

_CFileOut::~_CFileOut() {
  if (m_file) {
    Close(true);
  }
}

bool _CFileOut::Open() {
  using namespace Files::OS;
  return m_file.Open(m_path, eFileAccessWrite,
                     eOpenFileCreate | eOpenFileCreateMark | eOpenFileEmpty);
}

bool _CFileOut::Flush() {
  std::size_t const used = Used();
  if (used == 0) {
    return true;
  }
  std::uint32_t done = 0;
  if (!m_file.Write(Buffer(), std::uint32_t(used), &done) || done != used) {
    return false;
  }
  MarkEmpty();
  return true;
}

void _CFileOut::Close(bool remove) {
  m_file.Close();
  if (remove) {
    Files::OS::_DeleteFile(m_path);
  }
}

_CMemOut::~_CMemOut() {
  Release();
}

void _CMemOut::Release() {
  for (std::size_t i = 0; i < m_count; ++i) {
    Core::OS::_ffree(m_chunks[i].bytes);
  }
  Core::OS::_ffree(m_chunks);
  m_chunks = nullptr;
  m_count = 0;
  m_capacity = 0;
}

bool _CMemOut::Flush() {
  std::size_t const used = Used();
  if (used == 0) {
    return true;
  }
  if (m_count == m_capacity) {
    std::size_t const grown = m_capacity == 0 ? 64 : m_capacity * 2;
    void * const block = Core::OS::_frealloc(m_chunks, grown * sizeof(tagCHUNK));
    if (block == nullptr) {
      return false;
    }
    m_chunks = static_cast<tagCHUNK *>(block);
    m_capacity = grown;
  }
  auto * const fresh = static_cast<std::uint8_t *>(Core::OS::_falloc(kBufferSize));
  if (fresh == nullptr) {
    return false;
  }
  m_chunks[m_count++] = {SwapBuffer(fresh), used};
  return true;
}

bool _CMemOut::Finish(Buffers::CPPlainMemory & out) {
  qefWChar const zero = 0;
  if (Failed() || !Write(&zero, 1)) {
    Release();
    return false;
  }
  std::size_t total = Used();
  for (std::size_t i = 0; i < m_count; ++i) {
    total += m_chunks[i].used;
  }
  Buffers::CPPlainMemory joined;
  if (!joined.Alloc(total)) {
    Release();
    return false;
  }
  auto * to = static_cast<std::uint8_t *>(static_cast<void *>(joined));
  for (std::size_t i = 0; i < m_count; ++i) {
    std::memcpy(to, m_chunks[i].bytes, m_chunks[i].used);
    to += m_chunks[i].used;
  }
  std::memcpy(to, Buffer(), Used());
  Release();
  out = joined;
  return true;
}

bool _XMLWriteElement(_CXMLOut & out, CPXMLObject const & root) {
  struct tagSTACK {
    tagWRITEFRAME * frames = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;
    ~tagSTACK() { Core::OS::_ffree(frames); }
    bool Push(tagWRITEFRAME frame) {
      if (size == capacity) {
        std::size_t const grown = capacity == 0 ? 32 : capacity * 2;
        void * block = Core::OS::_frealloc(frames, grown * sizeof(tagWRITEFRAME));
        if (block == nullptr) {
          return false;
        }
        frames = static_cast<tagWRITEFRAME *>(block);
        capacity = grown;
      }
      frames[size++] = frame;
      return true;
    }
  } stack;

  // Opens `node`: writes what comes before its children and pushes it when it has a child
  // phase.
  auto open = [&](tagXMLNODE const * node) -> bool {
    if (node == nullptr || node->name.len() == 0) {
      return false;
    }
    if (node->state == kXMLStatePI) {
      if (node->data.len() == 0) {
        return false;
      }
      return _write(out, u"<?") && _write(out, node->name) && _write(out, u" ") &&
             _write(out, node->data) && _write(out, u"?>");
    }
    if (static_cast<qefWChar const *>(node->name)[0] == '<') {
      return stack.Push({node, 0, true});
    }
    if (!_writeMarked(out, u"<", node->name, u"", false)) {
      return false;
    }
    std::size_t const pairs = node->attributes.GetNItems();
    CPPoolString const * const attributes = node->attributes.items();
    for (std::size_t i = 0; i + 1 < pairs; i += 2) {
      if (!_writeAttribute(out, attributes[i], attributes[i + 1])) {
        return false;
      }
    }
    switch (node->state) {
    case kXMLStateEmpty:
      return _writeLine(out, u"/>");
    case kXMLStateData:
      return _writeDataEnd(out, node->name, node->data);
    case kXMLStateElements:
      if (!_writeLine(out, u">")) {
        return false;
      }
      out.IndentIn();
      // The first children's records were asked for with their parent's next siblings; their
      // blocks are asked for now.
      for (std::size_t i = 0; i < kBlocksAhead && i < node->elements.GetNItems(); ++i) {
        _prefetchBlocks(_CXMLNodeAccess::Record(node->elements.items()[i]));
      }
      return stack.Push({node, 0, false});
    default:
      return false; // mixed content cannot be written
    }
  };

  if (!open(CPXMLObject(root).IsDefault() && _CXMLNodeAccess::Record(root) == nullptr
                ? nullptr
                : _CXMLNodeAccess::Record(root))) {
    return false;
  }
  while (stack.size > 0) {
    tagWRITEFRAME & frame = stack.frames[stack.size - 1];
    std::size_t const count = frame.node->elements.GetNItems();
    if (frame.next < count) {
      CPXMLObject const * const children = frame.node->elements.items();
      // The walk is bound by memory latency: the records of the next siblings are fetched
      // while this one is written.
      if (frame.next + kNodeAhead < count) {
        __builtin_prefetch(_CXMLNodeAccess::Record(children[frame.next + kNodeAhead]));
      }
      if (frame.next + kBlocksAhead < count) {
        _prefetchBlocks(_CXMLNodeAccess::Record(children[frame.next + kBlocksAhead]));
      }
      if (frame.next + kValuesAhead < count) {
        _prefetchValues(_CXMLNodeAccess::Record(children[frame.next + kValuesAhead]));
      }
      // Two siblings ahead the records of the first children are asked for, one sibling ahead
      // the blocks behind them.
      if (frame.next + 2 < count) {
        tagXMLNODE const * const after = _CXMLNodeAccess::Record(children[frame.next + 2]);
        for (std::size_t i = 0; i < kNodeAhead && i < after->elements.GetNItems(); ++i) {
          __builtin_prefetch(_CXMLNodeAccess::Record(after->elements.items()[i]));
        }
      }
      if (frame.next + 1 < count) {
        tagXMLNODE const * const next = _CXMLNodeAccess::Record(children[frame.next + 1]);
        for (std::size_t i = 0; i < kNodeAhead && i < next->elements.GetNItems(); ++i) {
          _prefetchBlocks(_CXMLNodeAccess::Record(next->elements.items()[i]));
        }
      }
      CPXMLObject const & child = children[frame.next++];
      if (!open(_CXMLNodeAccess::Record(child))) {
        return false;
      }
      continue;
    }
    tagXMLNODE const * const node = frame.node;
    bool const container = frame.container;
    --stack.size;
    if (!container) {
      out.IndentOut();
      if (!_writeMarked(out, u"</", node->name, u">", true)) {
        return false;
      }
    }
  }
  return true;
}

bool CPXMLObject::Write(qefWChar const * path, eXMLEncoding encoding, bool indent) const {
  if (_node() == nullptr || path == nullptr) {
    return false;
  }
  _CFileOut out(path);
  if (!out.Open()) {
    return false;
  }
  if (!out.Begin(encoding == eXMLEncodingAuto ? eXMLEncodingUTF8 : encoding, indent)) {
    out.Close(false); // the opened, empty file stays
    return false;
  }
  bool const written = _XMLWriteElement(out, *this);
  bool const flushed = written && !out.Failed() && out.Flush();
  out.Close(!flushed);
  // Note: true exactly when the serialiser failed, false after a complete write; on purpose.
  return !written;
}

bool CPXMLObject::Write(Buffers::CPPlainMemory & out, eXMLEncoding encoding, bool indent) const {
  out = Buffers::CPPlainMemory();
  if (_node() == nullptr) {
    return false;
  }
  _CMemOut writer;
  if (!writer.Begin(encoding == eXMLEncodingAuto ? eXMLEncodingUTF8 : encoding, indent)) {
    return false;
  }
  if (!_XMLWriteElement(writer, *this)) {
    return false;
  }
  writer.Finish(out);
  return true;
}

} // namespace VORX::XML
