// The XML item reader (see xmlreader.h for what it accepts and its limits). One class template
// serves both text forms; the unit type decides only how a character is decoded and encoded.
#include "xml/xmlreader.h"

#include <cstring>
#include <iterator>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <vorx/core.h>

#include "xml/xmlchars.h"

namespace VORX::XML {
namespace {

// A growing array of plain values on the library's heap. Growth failure is a false result.
template <typename T> class _CGrow {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  _CGrow() = default;
  _CGrow(_CGrow const &) = delete;
  _CGrow & operator=(_CGrow const &) = delete;
  ~_CGrow() { Core::OS::_ffree(m_data); }

  bool Reserve(std::size_t count) {
    if (count <= m_capacity) {
      return true;
    }
    std::size_t capacity = m_capacity != 0 ? m_capacity : 64;
    while (capacity < count) {
      if (capacity > (SIZE_MAX / 4) / sizeof(T)) {
        return false;
      }
      capacity *= 2;
    }
    void * block = Core::OS::_frealloc(m_data, capacity * sizeof(T));
    if (block == nullptr) {
      return false;
    }
    m_data = static_cast<T *>(block);
    m_capacity = capacity;
    return true;
  }
  bool Push(T value) {
    if (m_size == m_capacity && !Reserve(m_size + 1)) {
      return false;
    }
    m_data[m_size++] = value;
    return true;
  }
  bool Append(T const * values, std::size_t count) {
    if (!Reserve(m_size + count)) {
      return false;
    }
    std::memcpy(m_data + m_size, values, count * sizeof(T));
    m_size += count;
    return true;
  }
  T * Data() { return m_data; }
  T const * Data() const { return m_data; }
  std::size_t Size() const { return m_size; }
  void Clear() { m_size = 0; }
  // Sets the size within the reserved capacity.
  void Shrink(std::size_t size) { m_size = size; }
  T & operator[](std::size_t index) { return m_data[index]; }
  T & Back() { return m_data[m_size - 1]; }
  void Pop() { --m_size; }

private:
  T * m_data = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
};

constexpr std::int32_t kEnd = -1; // the top source is exhausted
constexpr std::int32_t kBad = -2; // the error is set

constexpr bool _isS(std::int32_t c) {
  return c == 0x20 || c == 0x9 || c == 0xA || c == 0xD;
}

// Name classes of the ASCII range, taken once from the library's one name check.
struct tagASCIINAMES {
  bool start[128];
  bool inner[128];
  tagASCIINAMES() {
    for (std::uint32_t c = 0; c < 128; ++c) {
      start[c] = _isXMLNameStart(c);
      inner[c] = _isXMLNameChar(c);
    }
  }
};

tagASCIINAMES const & _asciiNames() {
  static tagASCIINAMES const names;
  return names;
}

// ASCII units that stand for themselves in character data (not markup, references, "]" or a
// carriage return, which is normalised), and in an attribute value (not white space either).
struct tagPLAINASCII {
  bool text[128];
  bool value[128];
  constexpr tagPLAINASCII() : text(), value() {
    for (int c = 0x20; c < 128; ++c) {
      text[c] = c != '<' && c != '&' && c != ']';
      value[c] = text[c] && c != ' ' && c != '"' && c != '\'';
    }
    text[0x9] = true;
    text[0xA] = true;
  }
};
constexpr tagPLAINASCII kPlain;

// The runs of plain ASCII the reader copies in one piece: each answers where the run starting at
// `p` ends (at `end` at the latest). Byte text is classified sixteen bytes a step where SSE2 is
// there, with the same classes as the tables (checked once against them, see `_runStepsAgree`).
template <typename Unit>
Unit const * _textRun(Unit const * p, Unit const * end, bool & significant) {
  for (; p < end && *p < 0x80 && kPlain.text[*p]; ++p) {
    significant = significant || !_isS(std::int32_t(*p));
  }
  return p;
}
template <typename Unit> Unit const * _valueRun(Unit const * p, Unit const * end) {
  while (p < end && *p < 0x80 && kPlain.value[*p]) {
    ++p;
  }
  return p;
}
template <typename Unit> Unit const * _nameRun(Unit const * p, Unit const * end) {
  while (p < end && *p < 0x80 && _asciiNames().inner[*p]) {
    ++p;
  }
  return p;
}

#if defined(__SSE2__)
// Bytes from `lo` to `hi` (both below 0x80).
__m128i _inRange(__m128i v, char lo, char hi) {
  return _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(char(lo - 1))),
                       _mm_cmplt_epi8(v, _mm_set1_epi8(char(hi + 1))));
}
__m128i _is(__m128i v, char c) {
  return _mm_cmpeq_epi8(v, _mm_set1_epi8(c));
}
// One bit per byte of `v` that ends a run: of character data (with `spaces`, the white space
// among them), of an attribute value, of a name. Bytes from 0x80 are negative: they end every run.
unsigned _textEnds(__m128i v, unsigned & spaces) {
  __m128i const lineOrTab = _mm_or_si128(_is(v, '\n'), _is(v, '\t'));
  spaces = unsigned(_mm_movemask_epi8(_mm_or_si128(lineOrTab, _is(v, ' '))));
  __m128i const control = _mm_andnot_si128(lineOrTab, _mm_cmplt_epi8(v, _mm_set1_epi8(0x20)));
  __m128i const special = _mm_or_si128(_mm_or_si128(_is(v, '<'), _is(v, '&')), _is(v, ']'));
  return unsigned(_mm_movemask_epi8(_mm_or_si128(control, special)));
}
unsigned _valueEnds(__m128i v) {
  __m128i const low = _mm_cmplt_epi8(v, _mm_set1_epi8(0x21));
  __m128i const special = _mm_or_si128(_mm_or_si128(_is(v, '<'), _is(v, '&')), _is(v, ']'));
  __m128i const quote = _mm_or_si128(_is(v, '"'), _is(v, '\''));
  return unsigned(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(low, special), quote)));
}
unsigned _nameEnds(__m128i v) {
  __m128i const letters = _mm_or_si128(_inRange(v, 'a', 'z'), _inRange(v, 'A', 'Z'));
  __m128i const digits = _inRange(v, '0', ':'); // the colon follows the digits
  __m128i const marks = _mm_or_si128(_mm_or_si128(_is(v, '.'), _is(v, '-')), _is(v, '_'));
  return unsigned(~_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(letters, digits), marks))) & 0xFFFFu;
}

// True when the sixteen-byte steps classify every ASCII byte as the tables do.
bool _runStepsAgree() {
  for (unsigned c = 0; c < 128; ++c) {
    __m128i const v = _mm_set1_epi8(char(c));
    unsigned spaces = 0;
    bool const text = _textEnds(v, spaces) == 0;
    if (text != kPlain.text[c] || (text && (spaces != 0) != _isS(std::int32_t(c))) ||
        (_valueEnds(v) == 0) != kPlain.value[c] || (_nameEnds(v) == 0) != _asciiNames().inner[c]) {
      return false;
    }
  }
  return true;
}
bool const g_runSteps = _runStepsAgree();

inline unsigned char const * _textRun(unsigned char const * p, unsigned char const * end,
                                      bool & significant) {
  while (g_runSteps && end - p >= 16) {
    unsigned spaces = 0;
    unsigned const ends = _textEnds(_mm_loadu_si128(reinterpret_cast<__m128i const *>(p)), spaces);
    unsigned const run = ends != 0 ? unsigned(__builtin_ctz(ends)) : 16u;
    unsigned const inRun = run == 16 ? 0xFFFFu : (1u << run) - 1;
    significant = significant || (~spaces & inRun) != 0;
    p += run;
    if (ends != 0) {
      return p;
    }
  }
  return _textRun<unsigned char>(p, end, significant);
}
// Steps sixteen bytes at a time while `ends` finds no end of the run; the position of the first
// end, or where fewer than sixteen bytes remain.
template <unsigned (*ends)(__m128i)>
unsigned char const * _runSteps(unsigned char const * p, unsigned char const * end) {
  while (g_runSteps && end - p >= 16) {
    unsigned const found = ends(_mm_loadu_si128(reinterpret_cast<__m128i const *>(p)));
    if (found != 0) {
      return p + __builtin_ctz(found);
    }
    p += 16;
  }
  return p;
}
inline unsigned char const * _valueRun(unsigned char const * p, unsigned char const * end) {
  return _valueRun<unsigned char>(_runSteps<&_valueEnds>(p, end), end);
}
inline unsigned char const * _nameRun(unsigned char const * p, unsigned char const * end) {
  return _nameRun<unsigned char>(_runSteps<&_nameEnds>(p, end), end);
}
#endif

bool _nameStart(std::int32_t c) {
  return c >= 0 && (c < 128 ? _asciiNames().start[c] : _isXMLNameStart(std::uint32_t(c)));
}
bool _nameChar(std::int32_t c) {
  return c >= 0 && (c < 128 ? _asciiNames().inner[c] : _isXMLNameChar(std::uint32_t(c)));
}

bool _putW(_CGrow<qefWChar> & out, std::uint32_t c) {
  if (c < 0x10000) {
    return out.Push(qefWChar(c));
  }
  c -= 0x10000;
  return out.Push(qefWChar(0xD800 + (c >> 10))) && out.Push(qefWChar(0xDC00 + (c & 0x3FF)));
}

template <typename Unit>
bool _putAscii(_CGrow<qefWChar> & out, Unit const * from, std::size_t count) {
  std::size_t const size = out.Size();
  if (!out.Reserve(size + count)) {
    return false;
  }
  qefWChar * to = out.Data() + size;
  for (std::size_t i = 0; i < count; ++i) {
    to[i] = qefWChar(from[i]);
  }
  out.Shrink(size + count);
  return true;
}

bool _putU(_CGrow<std::uint16_t> & out, std::uint32_t c) {
  if (c < 0x10000) {
    return out.Push(std::uint16_t(c));
  }
  c -= 0x10000;
  return out.Push(std::uint16_t(0xD800 + (c >> 10))) &&
         out.Push(std::uint16_t(0xDC00 + (c & 0x3FF)));
}

bool _putU(_CGrow<std::uint8_t> & out, std::uint32_t c) {
  std::uint8_t bytes[4];
  std::size_t n;
  if (c < 0x80) {
    return out.Push(std::uint8_t(c));
  }
  if (c < 0x800) {
    bytes[0] = std::uint8_t(0xC0 | (c >> 6));
    bytes[1] = std::uint8_t(0x80 | (c & 0x3F));
    n = 2;
  } else if (c < 0x10000) {
    bytes[0] = std::uint8_t(0xE0 | (c >> 12));
    bytes[1] = std::uint8_t(0x80 | ((c >> 6) & 0x3F));
    bytes[2] = std::uint8_t(0x80 | (c & 0x3F));
    n = 3;
  } else {
    bytes[0] = std::uint8_t(0xF0 | (c >> 18));
    bytes[1] = std::uint8_t(0x80 | ((c >> 12) & 0x3F));
    bytes[2] = std::uint8_t(0x80 | ((c >> 6) & 0x3F));
    bytes[3] = std::uint8_t(0x80 | (c & 0x3F));
    n = 4;
  }
  return out.Append(bytes, n);
}

// Decodes the character at `p` (below `end`), whose first unit is 0x80 or more. -1 when the
// units do not form a character; `code` then names the fault.
std::int32_t _decode(std::uint8_t const * p, std::uint8_t const * end, unsigned & n,
                     std::uint32_t & code) {
  code = kXMLErrBadEncoding;
  std::uint32_t const b0 = p[0];
  std::size_t const left = std::size_t(end - p);
  auto cont = [&](std::size_t i) { return i < left && (p[i] & 0xC0) == 0x80; };
  if (b0 < 0xC2) {
    return -1;
  }
  if (b0 < 0xE0) {
    if (!cont(1)) {
      return -1;
    }
    n = 2;
    return std::int32_t(((b0 & 0x1F) << 6) | (p[1] & 0x3F));
  }
  if (b0 < 0xF0) {
    if (!cont(1) || !cont(2) || (b0 == 0xE0 && p[1] < 0xA0) || (b0 == 0xED && p[1] >= 0xA0)) {
      return -1;
    }
    n = 3;
    return std::int32_t(((b0 & 0x0F) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3F));
  }
  if (b0 < 0xF5) {
    if (!cont(1) || !cont(2) || !cont(3) || (b0 == 0xF0 && p[1] < 0x90) ||
        (b0 == 0xF4 && p[1] >= 0x90)) {
      return -1;
    }
    n = 4;
    return std::int32_t(((b0 & 0x07) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) |
                        (p[3] & 0x3F));
  }
  return -1;
}

std::int32_t _decode(std::uint16_t const * p, std::uint16_t const * end, unsigned & n,
                     std::uint32_t & code) {
  code = kXMLErrIllegalCharacter;
  std::uint32_t const u = p[0];
  if (u < 0xD800 || u > 0xDFFF) {
    n = 1;
    return std::int32_t(u);
  }
  if (u > 0xDBFF || end - p < 2 || p[1] < 0xDC00 || p[1] > 0xDFFF) {
    return -1;
  }
  n = 2;
  return std::int32_t(0x10000 + ((u - 0xD800) << 10) + (p[1] - 0xDC00u));
}

struct tagATT {
  std::size_t nameOffset;
  std::size_t nameLength;
  std::size_t valueOffset;
  std::size_t valueLength;
};

struct tagFRAME {
  std::size_t nameOffset;
  std::size_t nameLength;
  std::size_t level; // entity level of the start tag
  bool hadChild;
};

enum : std::uint8_t { kEntityInternal, kEntityExternal, kEntityUnparsed };

template <typename Unit> struct tagENTITY {
  std::size_t nameOffset;
  std::size_t nameLength;
  Unit * text; // own block; null when empty
  std::size_t length;
  std::uint8_t kind;
  bool parameter;
  bool inUse;
};

template <typename Unit> struct tagSOURCE {
  Unit const * p;
  Unit const * end;
  std::size_t entity; // index + 1 of the entity read in this source, 0 for the document
  std::size_t depth;  // open elements when the entity was entered
};

std::uint32_t _hashName(qefWChar const * name, std::size_t length, bool parameter) {
  std::uint32_t h = parameter ? 0x9E3779B9u : 2166136261u;
  for (std::size_t i = 0; i < length; ++i) {
    h = (h ^ name[i]) * 16777619u;
  }
  return h;
}

template <typename Unit> class _CXMLReader {
public:
  _CXMLReader(Unit const * text, std::size_t length, _IXMLItemSink & sink)
      : m_sink(sink), m_text(text), m_p(text), m_end(text + length),
        m_limit(_XMLExpansionLimit(length)) {}
  _CXMLReader(_CXMLReader const &) = delete;
  _CXMLReader & operator=(_CXMLReader const &) = delete;
  ~_CXMLReader() {
    for (std::size_t i = 0; i < m_entities.Size(); ++i) {
      Core::OS::_ffree(m_entities[i].text);
    }
  }

  tagXMLREADRESULT Run() {
    unsigned n = 0;
    std::int32_t const c = Peek(n);
    if (c == 0xFEFF) {
      Advance(n);
    }
    if (m_code == kXMLNoError && Declaration() && Document()) {
      return {kXMLNoError, 0};
    }
    return {m_code, Position()};
  }

private:
  // --- errors and positions ---------------------------------------------------------------

  bool Fail(std::uint32_t code) {
    if (m_code == kXMLNoError) {
      m_code = code;
      m_errorAt = m_stack.Size() == 0 ? m_p : m_stack[0].p;
    }
    return false;
  }
  bool FailAt(std::uint32_t code, Unit const * at) {
    if (m_code == kXMLNoError) {
      m_code = code;
      m_errorAt = m_stack.Size() == 0 ? at : m_stack[0].p;
    }
    return false;
  }
  std::uint64_t Position() const {
    if constexpr (sizeof(Unit) == 2) {
      return std::uint64_t(m_errorAt - m_text);
    } else {
      std::uint64_t units = 0;
      for (Unit const * q = m_text; q < m_errorAt; ++q) {
        units += (*q & 0xC0) != 0x80;
        units += *q >= 0xF0;
      }
      return units;
    }
  }

  // --- reading characters -----------------------------------------------------------------

  std::size_t Level() const { return m_stack.Size(); }
  std::size_t Depth() const { return m_frames.Size(); }

  // The character at the top source: its code point (`n` units long), kEnd, or kBad with the
  // error set. Line ends of the document are normalised here.
  std::int32_t Peek(unsigned & n) {
    if (m_p >= m_end) {
      n = 0;
      return kEnd;
    }
    std::uint32_t const u = *m_p;
    if (u < 0x80) {
      n = 1;
      if (u >= 0x20 || u == 0xA || u == 0x9) {
        return std::int32_t(u);
      }
      if (u == 0xD) {
        if (Level() == 0) {
          if (m_p + 1 < m_end && m_p[1] == 0xA) {
            n = 2;
          }
          return 0xA;
        }
        return 0xD;
      }
      Fail(kXMLErrIllegalCharacter);
      return kBad;
    }
    std::uint32_t code = 0;
    std::int32_t const c = _decode(m_p, m_end, n, code);
    if (c < 0) {
      Fail(code);
      return kBad;
    }
    if (c == 0xFFFE || c == 0xFFFF) {
      Fail(kXMLErrIllegalCharacter);
      return kBad;
    }
    return c;
  }
  std::int32_t Peek() {
    unsigned n;
    return Peek(n);
  }
  void Advance(unsigned n) { m_p += n; }
  // Steps over the character just peeked (for single-unit ASCII characters).
  void Next() { ++m_p; }

  // True when the top source continues with the ASCII text `s` (nothing is consumed).
  bool Starts(char const * s) const {
    Unit const * q = m_p;
    for (; *s != 0; ++s, ++q) {
      if (q >= m_end || *q != Unit(static_cast<unsigned char>(*s))) {
        return false;
      }
    }
    return true;
  }
  void Skip(std::size_t units) { m_p += units; }

  // Skips white space; true when there was some. Check `m_code` when it matters.
  bool SkipS() {
    bool any = false;
    while (m_p < m_end && (*m_p == Unit(' ') || *m_p == Unit('\n') || *m_p == Unit('\t'))) {
      ++m_p;
      any = true;
    }
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (!_isS(c)) {
        return any;
      }
      Advance(n);
      any = true;
    }
  }
  // White space required: code 5 when absent.
  bool NeedS() {
    if (SkipS()) {
      return true;
    }
    return Fail(kXMLErrInvalidTag);
  }
  // Expects `c` (ASCII) next: code 4 at the end of the source, else `code`.
  bool Expect(char c, std::uint32_t code) {
    std::int32_t const got = Peek();
    if (got == c) {
      Next();
      return true;
    }
    return Fail(got == kEnd ? kXMLErrOpenEnclosure : code);
  }

  // Reads a Name into `out`; false (without an error unless the text was bad) when none starts
  // here.
  bool ReadName(_CGrow<qefWChar> & out) {
    unsigned n;
    std::int32_t c = Peek(n);
    if (!_nameStart(c)) {
      return false;
    }
    do {
      Unit const * const q = _nameRun(m_p, m_end);
      if (q != m_p) {
        if (!_putAscii(out, m_p, std::size_t(q - m_p))) {
          return Fail(kXMLErrDOM);
        }
        m_p = q;
      } else {
        if (!_putW(out, std::uint32_t(c))) {
          return Fail(kXMLErrDOM);
        }
        Advance(n);
      }
      c = Peek(n);
    } while (_nameChar(c));
    return m_code == kXMLNoError;
  }
  bool ReadName() {
    m_scratch.Clear();
    return ReadName(m_scratch);
  }
  bool ReadNmtoken() {
    unsigned n;
    std::int32_t c = Peek(n);
    if (!_nameChar(c)) {
      return false;
    }
    do {
      Advance(n);
      c = Peek(n);
    } while (_nameChar(c));
    return m_code == kXMLNoError;
  }
  bool ScratchIs(char const * s) const {
    std::size_t const length = std::strlen(s);
    if (m_scratch.Size() != length) {
      return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
      if (m_scratch.Data()[i] != qefWChar(static_cast<unsigned char>(s[i]))) {
        return false;
      }
    }
    return true;
  }

  // --- entities ---------------------------------------------------------------------------

  std::size_t FindEntity(qefWChar const * name, std::size_t length, bool parameter) {
    if (m_entityHash.Size() == 0) {
      return 0;
    }
    std::size_t const mask = m_entityHash.Size() - 1;
    for (std::size_t slot = _hashName(name, length, parameter) & mask;; slot = (slot + 1) & mask) {
      std::size_t const index = m_entityHash[slot];
      if (index == 0) {
        return 0;
      }
      tagENTITY<Unit> const & e = m_entities[index - 1];
      if (e.parameter == parameter && e.nameLength == length &&
          std::memcmp(m_entityNames.Data() + e.nameOffset, name, length * sizeof(qefWChar)) == 0) {
        return index;
      }
    }
  }
  // Declares an entity unless one of that name exists (the first declaration binds).
  bool Declare(bool parameter, std::uint8_t kind) {
    qefWChar const * name = m_declName.Data();
    std::size_t const length = m_declName.Size();
    if (FindEntity(name, length, parameter) != 0) {
      return true;
    }
    if (!parameter && Predefined(name, length) != 0) {
      return true;
    }
    if ((m_entities.Size() + 1) * 2 > m_entityHash.Size()) {
      std::size_t const size = m_entityHash.Size() == 0 ? 64 : m_entityHash.Size() * 2;
      m_entityHash.Clear();
      if (!m_entityHash.Reserve(size)) {
        return Fail(kXMLErrDOM);
      }
      for (std::size_t i = 0; i < size; ++i) {
        m_entityHash.Push(0);
      }
      for (std::size_t i = 0; i < m_entities.Size(); ++i) {
        Insert(i + 1);
      }
    }
    tagENTITY<Unit> e{m_entityNames.Size(), length, nullptr, 0, kind, parameter, false};
    if (kind == kEntityInternal && m_value.Size() != 0) {
      e.text = static_cast<Unit *>(Core::OS::_falloc(m_value.Size() * sizeof(Unit)));
      if (e.text == nullptr) {
        return Fail(kXMLErrDOM);
      }
      std::memcpy(e.text, m_value.Data(), m_value.Size() * sizeof(Unit));
      e.length = m_value.Size();
    }
    if (!m_entityNames.Append(name, length) || !m_entities.Push(e)) {
      Core::OS::_ffree(e.text);
      return Fail(kXMLErrDOM);
    }
    Insert(m_entities.Size());
    return true;
  }
  void Insert(std::size_t index) {
    tagENTITY<Unit> const & e = m_entities[index - 1];
    std::size_t const mask = m_entityHash.Size() - 1;
    std::size_t slot =
        _hashName(m_entityNames.Data() + e.nameOffset, e.nameLength, e.parameter) & mask;
    while (m_entityHash[slot] != 0) {
      slot = (slot + 1) & mask;
    }
    m_entityHash[slot] = index;
  }
  static std::uint32_t Predefined(qefWChar const * name, std::size_t length) {
    static constexpr struct {
      char const * name;
      std::uint32_t c;
    } table[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"apos", '\''}, {"quot", '"'}};
    static_assert(std::size(table) == 5);
    for (auto const & row : table) {
      std::size_t i = 0;
      while (i < length && row.name[i] != 0 && name[i] == qefWChar(row.name[i])) {
        ++i;
      }
      if (i == length && row.name[i] == 0) {
        return row.c;
      }
    }
    return 0;
  }

  // Enters the replacement text of entity `index` (1-based).
  bool PushEntity(std::size_t index) {
    tagENTITY<Unit> & e = m_entities[index - 1];
    if (e.inUse) {
      return Fail(kXMLErrBadEscape);
    }
    m_expanded += e.length;
    if (m_expanded > m_limit) {
      return Fail(kXMLErrDOM);
    }
    if (!m_stack.Push({m_p, m_end, m_entity, Depth()})) {
      return Fail(kXMLErrDOM);
    }
    e.inUse = true;
    m_entity = index;
    m_p = e.text;
    m_end = e.text + e.length;
    return true;
  }
  // Leaves the entity whose text is exhausted; its elements must all be closed.
  bool PopEntity() {
    tagSOURCE<Unit> const saved = m_stack.Back();
    if (saved.depth != Depth()) {
      return Fail(kXMLErrBadTermination);
    }
    m_entities[m_entity - 1].inUse = false;
    m_stack.Pop();
    m_p = saved.p;
    m_end = saved.end;
    m_entity = saved.entity;
    return true;
  }

  // After "&#": a character reference up to its ";"; code 7 when malformed or not a character.
  bool CharRef(std::uint32_t & value) {
    Next();
    std::uint32_t base = 10;
    if (Peek() == 'x') {
      Next();
      base = 16;
    }
    value = 0;
    std::size_t digits = 0;
    for (;;) {
      std::int32_t const c = Peek();
      std::uint32_t d;
      if (c >= '0' && c <= '9') {
        d = std::uint32_t(c - '0');
      } else if (base == 16 && c >= 'a' && c <= 'f') {
        d = std::uint32_t(c - 'a' + 10);
      } else if (base == 16 && c >= 'A' && c <= 'F') {
        d = std::uint32_t(c - 'A' + 10);
      } else {
        break;
      }
      value = value > 0x10FFFF ? value : value * base + d;
      ++digits;
      Next();
    }
    if (digits == 0 || Peek() != ';') {
      return Fail(kXMLErrBadEscape);
    }
    Next();
    bool const legal = value == 0x9 || value == 0xA || value == 0xD ||
                       (value >= 0x20 && value <= 0xD7FF) || (value >= 0xE000 && value <= 0xFFFD) ||
                       (value >= 0x10000 && value <= 0x10FFFF);
    return legal || Fail(kXMLErrBadEscape);
  }

  // At "&" in content or an attribute value: a character (`value`) or an entity to enter
  // (`entity`, 1-based; `value` 0).
  bool Reference(std::uint32_t & value, std::size_t & entity) {
    Next();
    entity = 0;
    value = 0;
    if (Peek() == '#') {
      return CharRef(value);
    }
    if (!ReadName() || Peek() != ';') {
      return Fail(kXMLErrBadEscape);
    }
    Next();
    value = Predefined(m_scratch.Data(), m_scratch.Size());
    if (value != 0) {
      return true;
    }
    entity = FindEntity(m_scratch.Data(), m_scratch.Size(), false);
    if (entity == 0) {
      return Fail(m_outside ? kXMLErrExternal : kXMLErrBadEscape);
    }
    if (m_entities[entity - 1].kind != kEntityInternal) {
      return Fail(kXMLErrExternal);
    }
    return true;
  }

  // After the opening quote: an attribute value, normalised, into `out`.
  bool AttValue(std::int32_t quote, _CGrow<qefWChar> & out) {
    std::size_t const base = Level();
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        if (Level() > base) {
          if (!PopEntity()) {
            return false;
          }
          continue;
        }
        return Fail(kXMLErrOpenString);
      }
      if (*m_p < 0x80 && kPlain.value[*m_p]) {
        Unit const * const q = _valueRun(m_p, m_end);
        if (!_putAscii(out, m_p, std::size_t(q - m_p))) {
          return Fail(kXMLErrDOM);
        }
        m_p = q;
        continue;
      }
      if (c == quote && Level() == base) {
        Advance(n);
        return true;
      }
      if (c == '<') {
        return Fail(kXMLErrBadAttribute);
      }
      if (c == '&') {
        std::uint32_t value;
        std::size_t entity;
        if (!Reference(value, entity)) {
          return false;
        }
        if (entity != 0) {
          if (!PushEntity(entity)) {
            return false;
          }
        } else if (!_putW(out, value)) {
          return Fail(kXMLErrDOM);
        }
        continue;
      }
      if (!_putW(out, _isS(c) ? 0x20u : std::uint32_t(c))) {
        return Fail(kXMLErrDOM);
      }
      Advance(n);
    }
  }

  // --- prolog -----------------------------------------------------------------------------

  // A quoted value of the declaration into `m_scratch`; code 5 when not quoted.
  bool DeclValue() {
    SkipS();
    if (!Expect('=', kXMLErrInvalidTag)) {
      return false;
    }
    SkipS();
    std::int32_t const quote = Peek();
    if (quote != '"' && quote != '\'') {
      return Fail(kXMLErrInvalidTag);
    }
    Next();
    m_scratch.Clear();
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == quote) {
        Advance(n);
        return true;
      }
      if (c < 0) {
        return Fail(kXMLErrOpenString);
      }
      if (!_putW(m_scratch, std::uint32_t(c))) {
        return Fail(kXMLErrDOM);
      }
      Advance(n);
    }
  }
  bool ScratchIsIgnoringCase(char const * s) const {
    std::size_t const length = std::strlen(s);
    if (m_scratch.Size() != length) {
      return false;
    }
    for (std::size_t i = 0; i < length; ++i) {
      qefWChar c = m_scratch.Data()[i];
      if (c >= 'a' && c <= 'z') {
        c = qefWChar(c - 'a' + 'A');
      }
      if (c != qefWChar(s[i])) {
        return false;
      }
    }
    return true;
  }

  // Reads the value of the declaration's setting `name` into the scratch buffer when the text
  // continues with that name (`present` tells); `space` says whether white space came before.
  bool DeclSetting(char const * name, bool space, bool & present) {
    present = Starts(name);
    if (!present) {
      return true;
    }
    if (!space) {
      return Fail(kXMLErrInvalidTag);
    }
    Skip(std::strlen(name));
    return DeclValue();
  }

  // The XML declaration, when the text starts with one.
  bool Declaration() {
    if (!Starts("<?xml") || m_p + 5 >= m_end ||
        !(_isS(std::int32_t(m_p[5])) || m_p[5] == Unit('?'))) {
      return true;
    }
    Skip(5);
    bool space = SkipS();
    bool present = false;
    if (!DeclSetting("version", space, present)) {
      return false;
    }
    if (!present || !ScratchIs("1.0")) {
      return Fail(kXMLErrVersion);
    }
    space = SkipS();
    if (!DeclSetting("encoding", space, present)) {
      return false;
    }
    if (present) {
      bool syntax = m_scratch.Size() != 0;
      for (std::size_t i = 0; i < m_scratch.Size() && syntax; ++i) {
        qefWChar const c = m_scratch.Data()[i];
        bool const letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        syntax = letter || (i > 0 && ((c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-'));
      }
      if (!syntax) {
        return Fail(kXMLErrInvalidTag);
      }
      bool const known = sizeof(Unit) == 1 ? ScratchIsIgnoringCase("UTF-8")
                                           : ScratchIsIgnoringCase("UTF-16") ||
                                                 ScratchIsIgnoringCase("ISO-10646-UCS-2") ||
                                                 ScratchIsIgnoringCase("UNICODE");
      if (!known) {
        return Fail(kXMLErrEncoding);
      }
      space = SkipS();
    }
    if (!DeclSetting("standalone", space, present)) {
      return false;
    }
    if (present) {
      if (!ScratchIs("yes") && !ScratchIs("no")) {
        return Fail(kXMLErrInvalidTag);
      }
      SkipS();
    }
    if (!Starts("?>")) {
      return Fail(kXMLErrInvalidTag);
    }
    Skip(2);
    return true;
  }

  // At "<!DOCTYPE".
  bool Doctype() {
    Skip(9);
    if (!NeedS()) {
      return false;
    }
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    bool const space = SkipS();
    if (Starts("SYSTEM") || Starts("PUBLIC")) {
      if (!space || !ExternalID(false)) {
        return Fail(kXMLErrInvalidTag);
      }
      m_outside = true;
      SkipS();
    }
    if (Peek() == '[') {
      Next();
      if (!InternalSubset()) {
        return false;
      }
      SkipS();
    }
    return Expect('>', kXMLErrInvalidTag);
  }

  // "SYSTEM" literal, or "PUBLIC" literal literal (the second optional for notations).
  bool ExternalID(bool publicOnly) {
    if (Starts("SYSTEM")) {
      Skip(6);
      return NeedS() && Literal(false);
    }
    if (!Starts("PUBLIC")) {
      return Fail(kXMLErrInvalidTag);
    }
    Skip(6);
    if (!NeedS() || !Literal(true)) {
      return false;
    }
    bool const space = SkipS();
    std::int32_t const c = Peek();
    if (publicOnly && c != '"' && c != '\'') {
      return m_code == kXMLNoError;
    }
    if (!space) {
      return Fail(kXMLErrInvalidTag);
    }
    return Literal(false);
  }
  // A quoted system literal, or a public identifier with its restricted characters.
  bool Literal(bool pubid) {
    std::int32_t const quote = Peek();
    if (quote != '"' && quote != '\'') {
      return Fail(kXMLErrInvalidTag);
    }
    Next();
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        return Fail(kXMLErrOpenString);
      }
      Advance(n);
      if (c == quote) {
        return true;
      }
      if (pubid) {
        bool const ok = c == 0x20 || c == 0xD || c == 0xA || (c >= 'a' && c <= 'z') ||
                        (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        (c < 128 && std::strchr("-'()+,./:=?;!*#@$_%", c) != nullptr);
        if (!ok) {
          return Fail(kXMLErrInvalidTag);
        }
      }
    }
  }

  bool InternalSubset() {
    for (;;) {
      SkipS();
      std::int32_t const c = Peek();
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        if (Level() > 0) {
          if (!PopEntity()) {
            return false;
          }
          continue;
        }
        return Fail(kXMLErrEndOfFile);
      }
      bool ok;
      if (c == ']' && Level() == 0) {
        Next();
        return true;
      } else if (c == '%') {
        ok = ParameterReference();
      } else if (Starts("<!--")) {
        ok = Comment();
      } else if (Starts("<?")) {
        ok = PI();
      } else if (Starts("<!ELEMENT")) {
        ok = ElementDecl();
      } else if (Starts("<!ATTLIST")) {
        ok = AttlistDecl();
      } else if (Starts("<!ENTITY")) {
        ok = EntityDecl();
      } else if (Starts("<!NOTATION")) {
        ok = NotationDecl();
      } else {
        ok = Fail(kXMLErrInvalidTag);
      }
      if (!ok) {
        return false;
      }
    }
  }

  bool ParameterReference() {
    Next();
    if (!ReadName() || Peek() != ';') {
      return Fail(kXMLErrBadEscape);
    }
    Next();
    std::size_t const entity = FindEntity(m_scratch.Data(), m_scratch.Size(), true);
    if (entity == 0) {
      return m_outside || Fail(kXMLErrBadEscape);
    }
    if (m_entities[entity - 1].kind != kEntityInternal) {
      m_outside = true; // its declarations are not read
      return true;
    }
    return PushEntity(entity);
  }

  // Occurrence mark of a content particle.
  void Occurrence() {
    std::int32_t const c = Peek();
    if (c == '?' || c == '*' || c == '+') {
      Next();
    }
  }

  bool ElementDecl() {
    Skip(9);
    if (!NeedS()) {
      return false;
    }
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    if (!NeedS()) {
      return false;
    }
    if (Starts("EMPTY")) {
      Skip(5);
    } else if (Starts("ANY")) {
      Skip(3);
    } else if (Peek() == '(') {
      if (!ContentModel()) {
        return false;
      }
    } else {
      return Fail(kXMLErrInvalidTag);
    }
    SkipS();
    return Expect('>', kXMLErrInvalidTag);
  }

  // At "(": mixed content or a model of children, walked with an explicit stack of groups.
  bool ContentModel() {
    Next();
    SkipS();
    if (Starts("#PCDATA")) {
      Skip(7);
      SkipS();
      if (Peek() == ')') {
        Next();
        if (Peek() == '*') {
          Next();
        }
        return m_code == kXMLNoError;
      }
      while (Peek() == '|') {
        Next();
        SkipS();
        if (!ReadName()) {
          return Fail(kXMLErrInvalidTag);
        }
        SkipS();
      }
      if (!Starts(")*")) {
        return Fail(kXMLErrInvalidTag);
      }
      Skip(2);
      return true;
    }
    m_model.Clear();
    if (!m_model.Push(0)) {
      return Fail(kXMLErrDOM);
    }
    for (;;) {
      SkipS();
      if (Peek() == '(') {
        if (m_model.Size() >= kXMLMaxModelDepth) {
          return Fail(kXMLErrDOM);
        }
        if (!m_model.Push(0)) {
          return Fail(kXMLErrDOM);
        }
        Next();
        continue;
      }
      if (!ReadName()) {
        return Fail(kXMLErrInvalidTag);
      }
      Occurrence();
      for (;;) {
        SkipS();
        std::int32_t const c = Peek();
        if (c == ')') {
          Next();
          Occurrence();
          m_model.Pop();
          if (m_model.Size() == 0) {
            return m_code == kXMLNoError;
          }
          continue;
        }
        if (c == '|' || c == ',') {
          if (m_model.Back() == 0) {
            m_model.Back() = std::uint8_t(c);
          } else if (m_model.Back() != c) {
            return Fail(kXMLErrInvalidTag);
          }
          Next();
          break;
        }
        return Fail(kXMLErrInvalidTag);
      }
    }
  }

  bool AttlistDecl() {
    Skip(9);
    if (!NeedS()) {
      return false;
    }
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    for (;;) {
      bool const space = SkipS();
      std::int32_t const c = Peek();
      if (c == '>') {
        Next();
        return true;
      }
      if (c == kEnd) {
        return Fail(kXMLErrOpenEnclosure);
      }
      if (!space || !ReadName()) {
        return Fail(kXMLErrInvalidTag);
      }
      if (!NeedS() || !AttType() || !NeedS() || !DefaultDecl()) {
        return false;
      }
    }
  }
  bool AttType() {
    if (Peek() == '(') {
      return Enumeration(false);
    }
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    if (ScratchIs("NOTATION")) {
      return NeedS() && (Peek() == '(' || Fail(kXMLErrInvalidTag)) && Enumeration(true);
    }
    static constexpr char const * types[] = {"CDATA",  "ID",       "IDREF",   "IDREFS",
                                             "ENTITY", "ENTITIES", "NMTOKEN", "NMTOKENS"};
    static_assert(std::size(types) == 8);
    for (char const * type : types) {
      if (ScratchIs(type)) {
        return true;
      }
    }
    return Fail(kXMLErrInvalidTag);
  }
  // At "(": names or name tokens separated by "|".
  bool Enumeration(bool names) {
    Next();
    for (;;) {
      SkipS();
      if (!(names ? ReadName() : ReadNmtoken())) {
        return Fail(kXMLErrInvalidTag);
      }
      SkipS();
      std::int32_t const c = Peek();
      if (c == ')') {
        Next();
        return m_code == kXMLNoError;
      }
      if (c != '|') {
        return Fail(kXMLErrInvalidTag);
      }
      Next();
    }
  }
  bool DefaultDecl() {
    if (Starts("#REQUIRED")) {
      Skip(9);
      return true;
    }
    if (Starts("#IMPLIED")) {
      Skip(8);
      return true;
    }
    if (Starts("#FIXED")) {
      Skip(6);
      if (!NeedS()) {
        return false;
      }
    }
    std::int32_t const quote = Peek();
    if (quote != '"' && quote != '\'') {
      return Fail(kXMLErrInvalidTag);
    }
    Next();
    m_scratch2.Clear();
    return AttValue(quote, m_scratch2);
  }

  bool EntityDecl() {
    Skip(8);
    if (!NeedS()) {
      return false;
    }
    bool parameter = false;
    if (Peek() == '%') {
      Next();
      parameter = true;
      if (!NeedS()) {
        return false;
      }
    }
    m_declName.Clear();
    if (!ReadName(m_declName)) {
      return Fail(kXMLErrInvalidTag);
    }
    if (!NeedS()) {
      return false;
    }
    std::int32_t const c = Peek();
    std::uint8_t kind = kEntityInternal;
    if (c == '"' || c == '\'') {
      if (!EntityValue(c)) {
        return false;
      }
    } else {
      if (!ExternalID(false)) {
        return Fail(kXMLErrInvalidTag);
      }
      kind = kEntityExternal;
      bool const space = SkipS();
      if (!parameter && Starts("NDATA")) {
        if (!space) {
          return Fail(kXMLErrInvalidTag);
        }
        Skip(5);
        if (!NeedS()) {
          return false;
        }
        if (!ReadName()) {
          return Fail(kXMLErrInvalidTag);
        }
        kind = kEntityUnparsed;
      }
    }
    SkipS();
    return Expect('>', kXMLErrInvalidTag) && Declare(parameter, kind);
  }
  // After the quote: the literal's replacement text into `m_value`: character references
  // replaced, entity references kept as they stand.
  bool EntityValue(std::int32_t quote) {
    Next();
    m_value.Clear();
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        return Fail(kXMLErrOpenString);
      }
      if (c == quote) {
        Advance(n);
        return true;
      }
      if (c == '%') {
        return Fail(kXMLErrInvalidTag);
      }
      if (c == '&') {
        Next();
        if (Peek() == '#') {
          std::uint32_t value;
          if (!CharRef(value)) {
            return false;
          }
          if (!_putU(m_value, value)) {
            return Fail(kXMLErrDOM);
          }
          continue;
        }
        if (!ReadName() || Peek() != ';') {
          return Fail(kXMLErrBadEscape);
        }
        Next();
        bool ok = _putU(m_value, '&');
        for (std::size_t i = 0; i < m_scratch.Size() && ok; ++i) {
          ok = _putU(m_value, m_scratch.Data()[i]);
        }
        if (!ok || !_putU(m_value, ';')) {
          return Fail(kXMLErrDOM);
        }
        continue;
      }
      if (!_putU(m_value, std::uint32_t(c))) {
        return Fail(kXMLErrDOM);
      }
      Advance(n);
    }
  }

  bool NotationDecl() {
    Skip(10);
    if (!NeedS()) {
      return false;
    }
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    if (!NeedS() || !ExternalID(true)) {
      return Fail(kXMLErrInvalidTag);
    }
    SkipS();
    return Expect('>', kXMLErrInvalidTag);
  }

  // --- markup shared by prolog and content ------------------------------------------------

  // Reads up to and past `close`, handing each character before it to `each` (which may fail);
  // running out of input first fails with `open`.
  template <class Each> bool ScanPast(char const * close, std::uint32_t open, Each each) {
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        return Fail(open);
      }
      if (c == *close && Starts(close)) {
        Skip(std::strlen(close));
        return true;
      }
      if (!each(c)) {
        return false;
      }
      Advance(n);
    }
  }

  // At "<!--": "--" may only appear as part of the closing "-->".
  bool Comment() {
    Skip(4);
    return ScanPast("-->", kXMLErrOpenComment, [this](std::int32_t c) {
      return c != '-' || !Starts("--") || Fail(kXMLErrOpenComment);
    });
  }

  // At "<?": a processing instruction, checked and dropped.
  bool PI() {
    Skip(2);
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    if (ScratchIsIgnoringCase("XML")) {
      return Fail(kXMLErrInvalidTag);
    }
    if (Starts("?>")) {
      Skip(2);
      return true;
    }
    return NeedS() && ScanPast("?>", kXMLErrOpenEnclosure, [](std::int32_t) { return true; });
  }

  // --- content ----------------------------------------------------------------------------

  bool AddText(std::uint32_t c) { return _putW(m_data, c) || Fail(kXMLErrDOM); }

  // At "<![CDATA[".
  bool CData() {
    Skip(9);
    return ScanPast("]]>", kXMLErrOpenCDATA, [this](std::int32_t c) {
      m_significant = true;
      return AddText(std::uint32_t(c));
    });
  }

  bool UniqueAttributes() {
    std::size_t const count = m_atts.Size();
    auto same = [&](std::size_t a, std::size_t b) {
      tagATT const & x = m_atts[a];
      tagATT const & y = m_atts[b];
      return x.nameLength == y.nameLength &&
             std::memcmp(m_attText.Data() + x.nameOffset, m_attText.Data() + y.nameOffset,
                         x.nameLength * sizeof(qefWChar)) == 0;
    };
    if (count <= 8) {
      for (std::size_t i = 1; i < count; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
          if (same(i, j)) {
            return Fail(kXMLErrBadAttribute);
          }
        }
      }
      return true;
    }
    std::size_t size = 16;
    while (size < count * 2) {
      size *= 2;
    }
    m_attHash.Clear();
    if (!m_attHash.Reserve(size)) {
      return Fail(kXMLErrDOM);
    }
    for (std::size_t i = 0; i < size; ++i) {
      m_attHash.Push(0);
    }
    for (std::size_t i = 0; i < count; ++i) {
      tagATT const & a = m_atts[i];
      std::size_t slot =
          _hashName(m_attText.Data() + a.nameOffset, a.nameLength, false) & (size - 1);
      while (m_attHash[slot] != 0) {
        if (same(m_attHash[slot] - 1, i)) {
          return Fail(kXMLErrBadAttribute);
        }
        slot = (slot + 1) & (size - 1);
      }
      m_attHash[slot] = i + 1;
    }
    return true;
  }

  bool StartTag(bool & root) {
    if (Depth() == 0) {
      if (root) {
        return Fail(kXMLErrRootMissing);
      }
      root = true;
    } else if (m_significant) {
      return Fail(kXMLErrMixedContent);
    }
    Next();
    std::size_t const nameOffset = m_names.Size();
    if (!ReadName(m_names)) {
      return Fail(kXMLErrInvalidTag);
    }
    std::size_t const nameLength = m_names.Size() - nameOffset;
    m_atts.Clear();
    m_attText.Clear();
    bool empty = false;
    for (;;) {
      bool const space = SkipS();
      std::int32_t c = Peek();
      if (c == '>') {
        Next();
        break;
      }
      if (c == '/') {
        Next();
        if (!Expect('>', kXMLErrInvalidTag)) {
          return false;
        }
        empty = true;
        break;
      }
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        return Fail(kXMLErrOpenEnclosure);
      }
      tagATT a{m_attText.Size(), 0, 0, 0};
      if (!space || !ReadName(m_attText)) {
        return Fail(kXMLErrBadAttribute);
      }
      a.nameLength = m_attText.Size() - a.nameOffset;
      SkipS();
      if (!Expect('=', kXMLErrBadAttribute)) {
        return false;
      }
      SkipS();
      c = Peek();
      if (c != '"' && c != '\'') {
        return Fail(kXMLErrBadAttribute);
      }
      Next();
      a.valueOffset = m_attText.Size();
      if (!AttValue(c, m_attText)) {
        return false;
      }
      a.valueLength = m_attText.Size() - a.valueOffset;
      if (!m_atts.Push(a)) {
        return Fail(kXMLErrDOM);
      }
    }
    if (!UniqueAttributes()) {
      return false;
    }
    if (Depth() > 0) {
      m_frames.Back().hadChild = true;
    }
    if (Depth() >= kXMLMaxDepth) {
      return Fail(kXMLErrDOM);
    }
    m_data.Clear();
    if (!m_sink.StartElement(m_names.Data() + nameOffset, nameLength)) {
      return Fail(kXMLErrDOM);
    }
    for (std::size_t i = 0; i < m_atts.Size(); ++i) {
      tagATT const & a = m_atts[i];
      if (!m_sink.Attribute(m_attText.Data() + a.nameOffset, a.nameLength,
                            m_attText.Data() + a.valueOffset, a.valueLength)) {
        return Fail(kXMLErrDOM);
      }
    }
    if (empty) {
      m_names.Shrink(nameOffset);
      return m_sink.EndElement() || Fail(kXMLErrDOM);
    }
    return m_frames.Push({nameOffset, nameLength, Level(), false}) || Fail(kXMLErrDOM);
  }

  bool EndTag() {
    Unit const * const at = m_p + 1;
    Skip(2);
    if (!ReadName()) {
      return Fail(kXMLErrInvalidTag);
    }
    SkipS();
    if (!Expect('>', kXMLErrInvalidTag)) {
      return false;
    }
    if (Depth() == 0) {
      return FailAt(kXMLErrBadTermination, at);
    }
    tagFRAME const frame = m_frames.Back();
    if (frame.nameLength != m_scratch.Size() ||
        std::memcmp(m_names.Data() + frame.nameOffset, m_scratch.Data(),
                    frame.nameLength * sizeof(qefWChar)) != 0) {
      return FailAt(kXMLErrInvalidTag, at);
    }
    if (frame.level != Level()) {
      return FailAt(kXMLErrBadTermination, at);
    }
    if (frame.hadChild) {
      if (m_significant) {
        return FailAt(kXMLErrMixedContent, at - 1);
      }
    } else if (m_data.Size() != 0 && !m_sink.Data(m_data.Data(), m_data.Size())) {
      return Fail(kXMLErrDOM);
    }
    m_data.Clear();
    m_significant = false;
    m_names.Shrink(frame.nameOffset);
    m_frames.Pop();
    return m_sink.EndElement() || Fail(kXMLErrDOM);
  }

  bool Markup(bool & root, bool & doctype) {
    Unit const second = m_p + 1 < m_end ? m_p[1] : Unit(0);
    if (second == Unit('/')) {
      return EndTag();
    }
    if (second == Unit('?')) {
      return PI();
    }
    if (second != Unit('!')) {
      return StartTag(root);
    }
    if (Starts("<!--")) {
      return Comment();
    }
    if (Starts("<![CDATA[")) {
      return Depth() > 0 ? CData() : Fail(kXMLErrInvalidTag);
    }
    if (Starts("<!DOCTYPE")) {
      if (Depth() > 0 || root || doctype) {
        return Fail(kXMLErrInvalidTag);
      }
      doctype = true;
      return Doctype();
    }
    return Fail(kXMLErrInvalidTag);
  }

  bool Document() {
    bool root = false;
    bool doctype = false;
    for (;;) {
      unsigned n;
      std::int32_t const c = Peek(n);
      if (c == kBad) {
        return false;
      }
      if (c == kEnd) {
        if (Level() > 0) {
          if (!PopEntity()) {
            return false;
          }
          continue;
        }
        if (Depth() > 0) {
          return Fail(kXMLErrEndOfFile);
        }
        return root || Fail(kXMLErrRootMissing);
      }
      if (c == '<') {
        if (!Markup(root, doctype)) {
          return false;
        }
        continue;
      }
      if (Depth() == 0) {
        if (!_isS(c)) {
          return Fail(kXMLErrInvalidTag);
        }
        Advance(n);
        continue;
      }
      if (c == '&') {
        std::uint32_t value;
        std::size_t entity;
        if (!Reference(value, entity)) {
          return false;
        }
        if (entity != 0) {
          if (!PushEntity(entity)) {
            return false;
          }
        } else {
          m_significant = true;
          if (!AddText(value)) {
            return false;
          }
        }
        continue;
      }
      if (*m_p < 0x80 && kPlain.text[*m_p]) {
        bool significant = false;
        Unit const * const q = _textRun(m_p, m_end, significant);
        if (!_putAscii(m_data, m_p, std::size_t(q - m_p))) {
          return Fail(kXMLErrDOM);
        }
        m_significant = m_significant || significant;
        m_p = q;
        continue;
      }
      if (c == ']' && Starts("]]>")) {
        return Fail(kXMLErrBadDataTerminator);
      }
      if (!_isS(c)) {
        m_significant = true;
      }
      if (!AddText(std::uint32_t(c))) {
        return false;
      }
      Advance(n);
    }
  }

  _IXMLItemSink & m_sink;
  Unit const * const m_text;
  Unit const * m_p;
  Unit const * m_end;
  Unit const * m_errorAt = nullptr;
  std::uint32_t m_code = kXMLNoError;
  std::size_t m_entity = 0; // entity of the top source (1-based), 0 for the document
  std::uint64_t m_expanded = 0;
  std::uint64_t const m_limit;
  bool m_outside = false;     // declarations outside the document may be missing
  bool m_significant = false; // the text being gathered holds data, not only white space
  _CGrow<tagSOURCE<Unit>> m_stack;
  _CGrow<tagENTITY<Unit>> m_entities;
  _CGrow<qefWChar> m_entityNames;
  _CGrow<std::size_t> m_entityHash;
  _CGrow<Unit> m_value;
  _CGrow<qefWChar> m_declName;
  _CGrow<tagFRAME> m_frames;
  _CGrow<qefWChar> m_names;
  _CGrow<qefWChar> m_data;
  _CGrow<tagATT> m_atts;
  _CGrow<qefWChar> m_attText;
  _CGrow<std::size_t> m_attHash;
  _CGrow<qefWChar> m_scratch;
  _CGrow<qefWChar> m_scratch2;
  _CGrow<std::uint8_t> m_model;
};

} // namespace

tagXMLREADRESULT _XMLReadDocument(std::uint8_t const * text, std::size_t length,
                                  _IXMLItemSink & sink) {
  return _CXMLReader<std::uint8_t>(text, length, sink).Run();
}

tagXMLREADRESULT _XMLReadDocument(std::uint16_t const * text, std::size_t length,
                                  _IXMLItemSink & sink) {
  return _CXMLReader<std::uint16_t>(text, length, sink).Run();
}

} // namespace VORX::XML
