// The owning string buffers: each constructor and assignment builds a new buffer from its source
// with the rule of that source, then replaces the old one.
#include <vorx/core.h>
#include <vorx/string.h>

#include <cstring>
#include <limits>

#include "string/utf_codec.h"

namespace VORX::String {
namespace {

using namespace Codec;

// A buffer under construction and the length its rule records.
template <typename T> struct Built {
  T * buffer;
  std::uint64_t length;
};

// `count` units of T from the library heap; null on failure or when the size does not fit.
template <typename T> T * Allocate(std::uint64_t count) {
  if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
    return nullptr;
  }
  return static_cast<T *>(Core::OS::_falloc(static_cast<std::size_t>(count * sizeof(T))));
}

template <typename T> void Replace(T *& buffer, std::uint64_t & length, Built<T> built) {
  T * const old = buffer;
  buffer = built.buffer;
  length = built.length;
  Core::OS::_ffree(old);
}

// Copies a text of `n` units and its terminator into a new buffer of `reserve` units.
template <typename T> T * CopyText(T const * text, std::size_t n, std::uint64_t reserve) {
  T * const buffer = Allocate<T>(reserve);
  if (buffer) {
    std::memcpy(buffer, text, n * sizeof(T));
    buffer[n] = 0;
  }
  return buffer;
}

Built<qefWChar> WideFromWide(qefWChar const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  std::size_t const n = _wcsnlen(text, qefAllOnes);
  return {CopyText(text, n, n + 1), n + 1};
}

// Gives back the unused end of a buffer sized for the worst case when it is mostly unused.
template <typename T> T * Trim(T * buffer, std::size_t capacity, std::size_t used) {
  if (used * 2 >= capacity) {
    return buffer;
  }
  void * const trimmed = Core::OS::_frealloc(buffer, used * sizeof(T));
  return trimmed ? static_cast<T *>(trimmed) : buffer;
}

template <typename D> Built<D> UnitsFromUTF8(unsigned char const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  // One pass into room for the worst case (a unit per byte).
  std::size_t const n = std::strlen(reinterpret_cast<char const *>(text));
  D * const buffer = Allocate<D>(n + 1);
  if (!buffer) {
    return {nullptr, 0};
  }
  _Stop stop;
  bool tooLarge;
  std::size_t const written = _decodeUTF8(text, n, true, buffer, stop, tooLarge);
  buffer[written] = 0;
  return {Trim(buffer, n + 1, written + 1), written};
}

template <typename D, typename S> Built<D> CopyUnits(S const * text) {
  static_assert(sizeof(D) == sizeof(S));
  if (!text) {
    return {nullptr, 0};
  }
  std::size_t const n = _wcsnlen(text, qefAllOnes);
  D * const buffer = Allocate<D>(n + 1);
  if (buffer) {
    for (std::size_t i = 0; i <= n; ++i) {
      buffer[i] = static_cast<D>(text[i]);
    }
  }
  return {buffer, n};
}

Built<qefWChar> WideFromANSI(char const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  std::uint64_t const n = OS::ANSI_To_qefWChar(text, qefAllOnes, nullptr, 0);
  qefWChar * const buffer = Allocate<qefWChar>(n + 1);
  if (buffer) {
    buffer[0] = 0;
    OS::ANSI_To_qefWChar(text, qefAllOnes, buffer, n + 1);
    buffer[n] = 0;
  }
  return {buffer, n};
}

Built<qefWChar> WideFromUTF32(std::uint32_t const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  std::uint64_t const count = UTF32u16strlen(text, qefAllOnes);
  qefWChar * const buffer = Allocate<qefWChar>(count + 1);
  if (!buffer) {
    return {nullptr, 0};
  }
  qefWChar * out = buffer;
  for (std::uint32_t const * in = text; static_cast<std::uint64_t>(out - buffer) < count; ++in) {
    if (!qefW32_qefW(out, *in)) {
      break;
    }
  }
  *out = 0;
  return {buffer, static_cast<std::uint64_t>(out - buffer)};
}

template <typename S> Built<unsigned char> UTF8FromWide(S const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  // One pass into room for the worst case (three bytes per unit).
  std::size_t const n = _wcsnlen(text, qefAllOnes);
  unsigned char * const buffer = Allocate<unsigned char>(3 * static_cast<std::uint64_t>(n) + 1);
  if (!buffer) {
    return {nullptr, 0};
  }
  _Stop stop;
  std::size_t const written = _encodeWide(text, n, true, buffer, stop);
  buffer[written] = 0;
  return {Trim(buffer, 3 * n + 1, written + 1), written};
}

Built<unsigned char> UTF8FromUTF8(unsigned char const * text) {
  if (!text) {
    return {nullptr, qefAllOnes}; // the byte count of nothing, less one
  }
  std::size_t const n = std::strlen(reinterpret_cast<char const *>(text));
  return {CopyText(text, n, n + 1), n};
}

template <typename R> R ViaWide(char const * ansi, R (*convert)(qefWChar const *)) {
  Built<qefWChar> const wide = WideFromANSI(ansi);
  R const result = convert(wide.buffer);
  Core::OS::_ffree(wide.buffer);
  return result;
}

Built<unsigned char> UTF8FromANSI(char const * text) {
  return ViaWide(text, &UTF8FromWide<qefWChar>);
}

Built<std::uint16_t> UnitsFromWide(qefWChar const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  _Scan const scan = _scanWide(text, qefAllOnes, _WCount::Characters);
  std::uint16_t * const buffer = Allocate<std::uint16_t>(scan.count + 1);
  if (!buffer) {
    return {nullptr, 0};
  }
  std::size_t const written = _convertWideToUnits(text, scan.used, buffer);
  buffer[written] = 0;
  return {buffer, written};
}

Built<std::uint16_t> UnitsFromANSI(char const * text) {
  return ViaWide(text, &UnitsFromWide);
}

Built<char> ANSIFromWide(qefWChar const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  std::uint64_t const m = OS::qefWChar_To_ANSI(text, qefAllOnes, nullptr, 0);
  if (m == 0 || m > qefAllOnes / 8) {
    return {nullptr, 0};
  }
  char * const buffer = Allocate<char>(8 * m);
  if (buffer) {
    buffer[0] = 0;
    OS::qefWChar_To_ANSI(text, qefAllOnes, buffer, m);
    buffer[m - 1] = 0;
  }
  return {buffer, m - 1};
}

Built<char> ANSIFromANSI(char const * text) {
  if (!text) {
    return {nullptr, 0};
  }
  std::size_t const n = std::strlen(text);
  return {CopyText(text, n, 8 * static_cast<std::uint64_t>(n) + 8), n};
}

} // namespace

// CQEFWChar

CQEFWChar::CQEFWChar(CQEFWChar const & other) {
  *this = other.m_buffer;
}
CQEFWChar::~CQEFWChar() {
  Core::OS::_ffree(m_buffer);
}
CQEFWChar::CQEFWChar(qefWChar const * text) {
  *this = text;
}
CQEFWChar::CQEFWChar(unsigned char const * utf8) {
  *this = utf8;
}
CQEFWChar::CQEFWChar(std::uint16_t const * utf16) {
  *this = utf16;
}
CQEFWChar::CQEFWChar(char const * ansi) {
  *this = ansi;
}
CQEFWChar::CQEFWChar(std::uint32_t const * utf32) {
  *this = utf32;
}
CQEFWChar::CQEFWChar(CUTF8Char const & utf8) {
  *this = *utf8;
}
CQEFWChar::CQEFWChar(CUTF16Char const & utf16) {
  *this = *utf16;
}
CQEFWChar::CQEFWChar(CANSIChar const & ansi) {
  *this = *ansi;
}

CQEFWChar & CQEFWChar::operator=(CQEFWChar const & other) {
  if (this != &other) {
    *this = other.m_buffer;
  }
  return *this;
}
CQEFWChar & CQEFWChar::operator=(qefWChar const * text) {
  Replace(m_buffer, m_length, WideFromWide(text));
  return *this;
}
CQEFWChar & CQEFWChar::operator=(unsigned char const * utf8) {
  Replace(m_buffer, m_length, UnitsFromUTF8<qefWChar>(utf8));
  return *this;
}
CQEFWChar & CQEFWChar::operator=(std::uint16_t const * utf16) {
  Replace(m_buffer, m_length, CopyUnits<qefWChar>(utf16));
  return *this;
}
CQEFWChar & CQEFWChar::operator=(char const * ansi) {
  Replace(m_buffer, m_length, WideFromANSI(ansi));
  return *this;
}
CQEFWChar & CQEFWChar::operator=(std::uint32_t const * utf32) {
  Replace(m_buffer, m_length, WideFromUTF32(utf32));
  return *this;
}
CQEFWChar & CQEFWChar::operator=(CUTF8Char const & utf8) {
  return *this = *utf8;
}
CQEFWChar & CQEFWChar::operator=(CUTF16Char const & utf16) {
  return *this = *utf16;
}
CQEFWChar & CQEFWChar::operator=(CANSIChar const & ansi) {
  return *this = *ansi;
}

void CQEFWChar::patch_percent_s_with(qefWChar const * replacement) {
  if (!m_buffer || m_buffer[0] == 0 || !replacement) {
    return;
  }
  std::uint64_t k = 0;
  std::size_t n = 0;
  while (m_buffer[n] != 0) {
    if (m_buffer[n] == u'%' && m_buffer[n + 1] == u's') {
      ++k;
      n += 2;
    } else {
      ++n;
    }
  }
  if (k == 0) {
    return;
  }
  std::size_t const r = _wcsnlen(replacement, qefAllOnes);
  std::uint64_t const base = m_length > n ? m_length : n;
  qefWChar * const patched = Allocate<qefWChar>(base + k * r + 1);
  if (!patched) {
    return;
  }
  qefWChar * out = patched;
  for (std::size_t i = 0; i < n;) {
    if (m_buffer[i] == u'%' && m_buffer[i + 1] == u's') {
      std::memcpy(out, replacement, r * sizeof(qefWChar));
      out += r;
      i += 2;
    } else {
      *out++ = m_buffer[i++];
    }
  }
  *out = 0;
  Core::OS::_ffree(m_buffer);
  m_buffer = patched;
  m_length += k * r;
}

// CUTF8Char

CUTF8Char::CUTF8Char(CUTF8Char const & other) {
  *this = other;
}
CUTF8Char::~CUTF8Char() {
  Core::OS::_ffree(m_buffer);
}
CUTF8Char::CUTF8Char(qefWChar const * text) {
  *this = text;
}
CUTF8Char::CUTF8Char(unsigned char const * utf8) {
  *this = utf8;
}
CUTF8Char::CUTF8Char(std::uint16_t const * utf16) {
  *this = utf16;
}
CUTF8Char::CUTF8Char(char const * ansi) {
  *this = ansi;
}
CUTF8Char::CUTF8Char(CQEFWChar const & text) {
  *this = *text;
}
CUTF8Char::CUTF8Char(CUTF16Char const & utf16) {
  *this = *utf16;
}
CUTF8Char::CUTF8Char(CANSIChar const & ansi) {
  *this = *ansi;
}

CUTF8Char & CUTF8Char::operator=(CUTF8Char const & other) {
  if (this != &other) {
    // A copy of an empty object is empty: the all-ones length belongs to null sources only.
    Replace(m_buffer, m_length,
            other.m_buffer ? UTF8FromUTF8(other.m_buffer) : Built<unsigned char>{nullptr, 0});
  }
  return *this;
}
CUTF8Char & CUTF8Char::operator=(qefWChar const * text) {
  Replace(m_buffer, m_length, UTF8FromWide(text));
  return *this;
}
CUTF8Char & CUTF8Char::operator=(unsigned char const * utf8) {
  Replace(m_buffer, m_length, UTF8FromUTF8(utf8));
  return *this;
}
CUTF8Char & CUTF8Char::operator=(std::uint16_t const * utf16) {
  Replace(m_buffer, m_length, UTF8FromWide(utf16));
  return *this;
}
CUTF8Char & CUTF8Char::operator=(char const * ansi) {
  Replace(m_buffer, m_length, UTF8FromANSI(ansi));
  return *this;
}
CUTF8Char & CUTF8Char::operator=(CQEFWChar const & text) {
  return *this = *text;
}
CUTF8Char & CUTF8Char::operator=(CUTF16Char const & utf16) {
  return *this = *utf16;
}
CUTF8Char & CUTF8Char::operator=(CANSIChar const & ansi) {
  return *this = *ansi;
}

// CUTF16Char

CUTF16Char::CUTF16Char(CUTF16Char const & other) {
  *this = other.m_buffer;
}
CUTF16Char::~CUTF16Char() {
  Core::OS::_ffree(m_buffer);
}
CUTF16Char::CUTF16Char(qefWChar const * text) {
  *this = text;
}
CUTF16Char::CUTF16Char(unsigned char const * utf8) {
  *this = utf8;
}
CUTF16Char::CUTF16Char(std::uint16_t const * utf16) {
  *this = utf16;
}
CUTF16Char::CUTF16Char(char const * ansi) {
  *this = ansi;
}
CUTF16Char::CUTF16Char(CQEFWChar const & text) {
  *this = *text;
}
CUTF16Char::CUTF16Char(CUTF8Char const & utf8) {
  *this = *utf8;
}
CUTF16Char::CUTF16Char(CANSIChar const & ansi) {
  *this = *ansi;
}

CUTF16Char & CUTF16Char::operator=(CUTF16Char const & other) {
  if (this != &other) {
    *this = other.m_buffer;
  }
  return *this;
}
CUTF16Char & CUTF16Char::operator=(qefWChar const * text) {
  Replace(m_buffer, m_length, UnitsFromWide(text));
  return *this;
}
CUTF16Char & CUTF16Char::operator=(unsigned char const * utf8) {
  Replace(m_buffer, m_length, UnitsFromUTF8<std::uint16_t>(utf8));
  return *this;
}
CUTF16Char & CUTF16Char::operator=(std::uint16_t const * utf16) {
  Replace(m_buffer, m_length, CopyUnits<std::uint16_t>(utf16));
  return *this;
}
CUTF16Char & CUTF16Char::operator=(char const * ansi) {
  Replace(m_buffer, m_length, UnitsFromANSI(ansi));
  return *this;
}
CUTF16Char & CUTF16Char::operator=(CQEFWChar const & text) {
  return *this = *text;
}
CUTF16Char & CUTF16Char::operator=(CUTF8Char const & utf8) {
  return *this = *utf8;
}
CUTF16Char & CUTF16Char::operator=(CANSIChar const & ansi) {
  return *this = *ansi;
}

// CANSIChar

CANSIChar::CANSIChar(CANSIChar const & other) {
  *this = other.m_buffer;
}
CANSIChar::~CANSIChar() {
  Core::OS::_ffree(m_buffer);
}
CANSIChar::CANSIChar(qefWChar const * text) {
  *this = text;
}
CANSIChar::CANSIChar(char const * ansi) {
  *this = ansi;
}
CANSIChar::CANSIChar(CQEFWChar const & text) {
  *this = *text;
}

CANSIChar & CANSIChar::operator=(CANSIChar const & other) {
  if (this != &other) {
    *this = other.m_buffer;
  }
  return *this;
}
CANSIChar & CANSIChar::operator=(qefWChar const * text) {
  Replace(m_buffer, m_length, ANSIFromWide(text));
  return *this;
}
CANSIChar & CANSIChar::operator=(char const * ansi) {
  Replace(m_buffer, m_length, ANSIFromANSI(ansi));
  return *this;
}
CANSIChar & CANSIChar::operator=(CQEFWChar const & text) {
  return *this = *text;
}

} // namespace VORX::String
