// Private to the string area: the window scanners and converters behind the whole-buffer
// converters, the counters and the string classes. A window is the text up to its terminator or
// its `max` units, whichever comes first; the scanners never read outside it.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include <vorx/base.h>

namespace VORX::String::Codec {

// The class of each possible UTF-8 lead byte: the length of the character it starts, 0 when it
// cannot start one.
constexpr std::array<std::uint8_t, 256> _makeLeadClasses() {
  std::array<std::uint8_t, 256> table{};
  for (unsigned b = 0; b < 256; ++b) {
    table[b] = b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
  }
  return table;
}
inline constexpr std::array<std::uint8_t, 256> kLeadClass = _makeLeadClasses();
static_assert(kLeadClass.size() == 256);

inline constexpr std::uint64_t kHigh8 = 0x8080808080808080ull;      // bit 7 of each byte
inline constexpr std::uint64_t kNonAscii16 = 0xFF80FF80FF80FF80ull; // bits 7-15 of each unit

// Why a scan ended: at the terminator, at the `max` bound, or at a malformed character.
enum class _Stop { End, Bound, Error };

struct _Scan {
  std::uint64_t count; // what the scan counts (units, code points or bytes)
  std::size_t used;    // source units of the characters counted
  _Stop stop;
};

// What a UTF-8 scan counts per character.
enum class _U8Count { Units16, CodePoints };
// What a wide scan counts per character.
enum class _WCount { Utf8Bytes, Characters };

inline bool _isAscii8(unsigned char const * p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return (v & kHigh8) == 0;
}

template <typename U> inline bool _isAscii16(U const * p) {
  static_assert(sizeof(U) == 2);
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return (v & kNonAscii16) == 0;
}

// Length of wide text, at most `max` units.
template <typename U> inline std::size_t _wcsnlen(U const * p, std::uint64_t max) {
  std::size_t n = 0;
  while (n < max && p[n] != 0) {
    ++n;
  }
  return n;
}

// Decodes the character at p[i] of a window of `n` bytes. Returns its length, 0 when it is
// malformed (`cut` false) or reaches beyond a window cut by its bound (`cut` true).
inline unsigned _decodeUTF8At(unsigned char const * p, std::size_t i, std::size_t n,
                              bool terminated, std::uint32_t & cp, bool & cut) {
  unsigned const lead = p[i];
  unsigned const length = kLeadClass[lead];
  cut = false;
  if (length == 0) {
    return 0;
  }
  static constexpr std::uint32_t kLeadMask[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  std::uint32_t value = lead & kLeadMask[length];
  for (unsigned k = 1; k < length; ++k) {
    if (i + k >= n) {
      cut = !terminated;
      return 0;
    }
    unsigned const next = p[i + k];
    if ((next & 0xC0) != 0x80) {
      return 0;
    }
    value = (value << 6) | (next & 0x3F);
  }
  cp = value;
  return length;
}

// Scans UTF-8 text, counting wide units or code points per `what`.
inline _Scan _scanUTF8(unsigned char const * p, std::uint64_t max, _U8Count what) {
  if (!p || max == 0) {
    return {0, 0, _Stop::End};
  }
  std::size_t const n = ::strnlen(reinterpret_cast<char const *>(p), max);
  bool const terminated = n < max;
  std::size_t i = 0;
  std::uint64_t count = 0;
  while (i < n) {
    while (i + 8 <= n && _isAscii8(p + i)) {
      i += 8;
      count += 8;
    }
    if (i >= n) {
      break;
    }
    if (p[i] < 0x80) {
      ++i;
      ++count;
      continue;
    }
    std::uint32_t cp = 0;
    bool cut = false;
    unsigned const length = _decodeUTF8At(p, i, n, terminated, cp, cut);
    if (length == 0) {
      return {count, i, cut ? _Stop::Bound : _Stop::Error};
    }
    count += (what == _U8Count::Units16 && cp >= 0x10000) ? 2 : 1;
    i += length;
  }
  return {count, i, terminated ? _Stop::End : _Stop::Bound};
}

// Scans wide text with the library's pair rule, counting UTF-8 bytes or characters per `what`.
template <typename U> inline _Scan _scanWide(U const * p, std::uint64_t max, _WCount what) {
  if (!p || max == 0) {
    return {0, 0, _Stop::End};
  }
  std::size_t const n = _wcsnlen(p, max);
  bool const terminated = n < max;
  std::size_t i = 0;
  std::uint64_t count = 0;
  while (i < n) {
    while (i + 4 <= n && _isAscii16(p + i)) {
      i += 4;
      count += 4;
    }
    if (i >= n) {
      break;
    }
    unsigned const u = p[i];
    if (u < 0xD800 || u > 0xDFFF) {
      count += what == _WCount::Characters ? 1 : u < 0x80 ? 1 : u < 0x800 ? 2 : 3;
      ++i;
      continue;
    }
    if (u > 0xDBFF) {
      return {count, i, _Stop::Error};
    }
    if (i + 1 >= n) {
      return {count, i, terminated ? _Stop::Error : _Stop::Bound};
    }
    if (p[i + 1] < 0xDBFF) {
      return {count, i, _Stop::Error};
    }
    count += 1; // the pair collapses to U+0000 or U+0001: one byte, one character
    i += 2;
  }
  return {count, i, terminated ? _Stop::End : _Stop::Bound};
}

// The character a pair stands for: 0 when both halves have their ten low bits clear, else 1.
inline qefWChar _collapsePair(unsigned high, unsigned low) {
  return ((high & 0x3FF) == 0 && (low & 0x3FF) == 0) ? 0 : 1;
}

// Converts the first `used` bytes of UTF-8 text that `_scanUTF8` accepted into wide units.
// Returns the units written; `tooLarge` tells whether it stopped at a code point above U+10FFFF.
template <typename D>
inline std::size_t _convertUTF8(unsigned char const * p, std::size_t used, D * d, bool & tooLarge) {
  std::size_t i = 0;
  std::size_t o = 0;
  tooLarge = false;
  while (i < used) {
    while (i + 8 <= used && _isAscii8(p + i)) {
      for (unsigned k = 0; k < 8; ++k) {
        d[o + k] = p[i + k];
      }
      i += 8;
      o += 8;
    }
    if (i >= used) {
      break;
    }
    unsigned const lead = p[i];
    if (lead < 0x80) {
      d[o++] = static_cast<D>(lead);
      ++i;
      continue;
    }
    std::uint32_t cp;
    if (lead < 0xE0) {
      cp = ((lead & 0x1Fu) << 6) | (p[i + 1] & 0x3Fu);
      i += 2;
    } else if (lead < 0xF0) {
      cp = ((lead & 0x0Fu) << 12) | ((p[i + 1] & 0x3Fu) << 6) | (p[i + 2] & 0x3Fu);
      i += 3;
    } else {
      cp = ((lead & 0x07u) << 18) | ((p[i + 1] & 0x3Fu) << 12) | ((p[i + 2] & 0x3Fu) << 6) |
           (p[i + 3] & 0x3Fu);
      i += 4;
    }
    if (cp < 0x10000) {
      d[o++] = static_cast<D>(cp);
    } else if (cp <= 0x10FFFF) {
      d[o++] = static_cast<D>(0xD800 | (cp >> 10));
      d[o++] = static_cast<D>(0xDC00 | (cp & 0x3FF));
    } else {
      tooLarge = true;
      break;
    }
  }
  return o;
}

// Converts the first `used` units of wide text that `_scanWide` accepted into UTF-8. Returns
// the bytes written.
template <typename U>
inline std::size_t _convertWideToUTF8(U const * p, std::size_t used, unsigned char * d) {
  std::size_t i = 0;
  std::size_t o = 0;
  while (i < used) {
    while (i + 4 <= used && _isAscii16(p + i)) {
      for (unsigned k = 0; k < 4; ++k) {
        d[o + k] = static_cast<unsigned char>(p[i + k]);
      }
      i += 4;
      o += 4;
    }
    if (i >= used) {
      break;
    }
    unsigned const u = p[i];
    if (u < 0x80) {
      d[o++] = static_cast<unsigned char>(u);
      ++i;
    } else if (u < 0x800) {
      d[o++] = static_cast<unsigned char>(0xC0 | (u >> 6));
      d[o++] = static_cast<unsigned char>(0x80 | (u & 0x3F));
      ++i;
    } else if (u < 0xD800 || u > 0xDFFF) {
      d[o++] = static_cast<unsigned char>(0xE0 | (u >> 12));
      d[o++] = static_cast<unsigned char>(0x80 | ((u >> 6) & 0x3F));
      d[o++] = static_cast<unsigned char>(0x80 | (u & 0x3F));
      ++i;
    } else {
      d[o++] = static_cast<unsigned char>(_collapsePair(u, p[i + 1]));
      i += 2;
    }
  }
  return o;
}

// Converts the first `used` units of wide text that `_scanWide` accepted into one unit per
// character (a pair becomes 0x0000 or 0x0001). Returns the units written.
template <typename U>
inline std::size_t _convertWideToUnits(U const * p, std::size_t used, std::uint16_t * d) {
  std::size_t i = 0;
  std::size_t o = 0;
  while (i < used) {
    unsigned const u = p[i];
    if (u < 0xD800 || u > 0xDFFF) {
      d[o++] = static_cast<std::uint16_t>(u);
      ++i;
    } else {
      d[o++] = _collapsePair(u, p[i + 1]);
      i += 2;
    }
  }
  return o;
}

} // namespace VORX::String::Codec
