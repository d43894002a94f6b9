// Private to the string area: the window scanners and converters behind the whole-buffer
// converters, the counters and the string classes. A window is the text up to its terminator or
// its `max` units, whichever comes first; the scanners never use what lies outside it (the wide
// length reads whole aligned blocks, see `_wcsnlen`). On text of 64 units or more they hand
// whole blocks to the AVX-512 kernels of utf_vector.h where the processor has them, with the
// same results.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include <vorx/base.h>

#include "string/utf_vector.h"

#if defined(__SSE2__)
#include <emmintrin.h> // sixteen bytes at a time on the ASCII paths; the word code elsewhere
#endif

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

inline constexpr std::uint64_t kLanes16 = 0x0001000100010001ull;
inline constexpr std::uint64_t kTop16 = 0x8000800080008000ull;

// Whether one of the four 16-bit lanes of `v` is zero.
inline bool _hasZeroLane(std::uint64_t v) {
  return ((v - kLanes16) & ~v & kTop16) != 0;
}

// The number of non-zero 16-bit lanes of `v`.
inline unsigned _nonZeroLanes(std::uint64_t v) {
  std::uint64_t const low = v & ~kTop16;
  return static_cast<unsigned>(((((low + ~kTop16) | v) & kTop16) >> 15) * kLanes16 >> 48);
}

// Length of wide text, at most `max` units. Once aligned it reads whole aligned blocks, which
// never cross a page, so reading one that holds the terminator is safe even where the text's
// allocation ends inside the block; the address and thread sanitizers are told so.
template <typename U>
__attribute__((no_sanitize_address, no_sanitize_thread)) inline std::size_t
_wcsnlen(U const * p, std::uint64_t max) {
  static_assert(sizeof(U) == 2);
  std::size_t n = 0;
  while (n < max && (reinterpret_cast<std::uintptr_t>(p + n) & 15) != 0) {
    if (p[n] == 0) {
      return n;
    }
    ++n;
  }
#if defined(__SSE2__)
  __m128i const zero = _mm_setzero_si128();
  while (max - n >= 8 &&
         _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_load_si128(reinterpret_cast<__m128i const *>(p + n)),
                                           zero)) == 0) {
    n += 8;
  }
#else
  while (max - n >= 4 &&
         !_hasZeroLane(*static_cast<std::uint64_t const *>(__builtin_assume_aligned(p + n, 8)))) {
    n += 4;
  }
#endif
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

// Whether one of the eight bytes of `v` is `byte`.
inline bool _hasByte(std::uint64_t v, unsigned char byte) {
  std::uint64_t const x = v ^ (0x0101010101010101ull * byte);
  return ((x - 0x0101010101010101ull) & ~x & kHigh8) != 0;
}

// The number of bytes of `mask` with bit 7 set (no other bits set).
inline unsigned _countBytes(std::uint64_t mask) {
  return static_cast<unsigned>(((mask >> 7) * 0x0101010101010101ull) >> 56);
}

// Checks eight bytes of UTF-8 at once. `expected` marks (bit 7 of each byte) the bytes that must
// be continuation bytes of a character begun earlier; on success it becomes the mask for the
// next eight bytes, and `leads`/`fours` are the characters begun and the four-byte ones among
// them. False when a byte cannot lead or the continuation bytes do not match their leads.
inline bool _checkWordUTF8(std::uint64_t v, std::uint64_t & expected, unsigned & leads,
                           unsigned & fours) {
  std::uint64_t const b7 = v & kHigh8;
  std::uint64_t const b6 = (v << 1) & kHigh8;
  std::uint64_t const b5 = (v << 2) & kHigh8;
  std::uint64_t const b4 = (v << 3) & kHigh8;
  std::uint64_t const b3 = (v << 4) & kHigh8;
  std::uint64_t const b2 = (v << 5) & kHigh8;
  std::uint64_t const b1 = (v << 6) & kHigh8;
  std::uint64_t const b0 = (v << 7) & kHigh8;
  std::uint64_t const cont = b7 & ~b6;
  std::uint64_t const lead = b7 & b6;
  std::uint64_t const lead2 = lead & ~b5;
  std::uint64_t const lead3 = lead & b5 & ~b4;
  std::uint64_t const lead4 = lead & b5 & b4 & ~b3;
  std::uint64_t const bad = (lead & b5 & b4 & b3) | (lead4 & b2 & (b1 | b0)); // F5 to FF
  std::uint64_t const one = lead2 | lead3 | lead4; // leads wanting a byte after them
  std::uint64_t const two = lead3 | lead4;         // ... two bytes after them
  std::uint64_t const wanted = (one << 8) | (two << 16) | (lead4 << 24) | expected;
  if (wanted != cont || bad != 0) {
    return false;
  }
  expected = (one >> 56) | (two >> 48) | (lead4 >> 40); // wanted in the next word
  leads = 8 - _countBytes(cont);
  fours = _countBytes(lead4);
  return true;
}

// Text shorter than this is not worth the vector kernels' dispatch.
inline constexpr std::size_t kVectorMinimum = 64;
// After a block that the vector kernels would not take, the portable code takes about this
// many units before it hands back to them.
inline constexpr std::size_t kVectorBlock = 64;

// Scans UTF-8 text, counting wide units or code points per `what`.
inline _Scan _scanUTF8(unsigned char const * p, std::uint64_t max, _U8Count what) {
  if (!p || max == 0) {
    return {0, 0, _Stop::End};
  }
  std::size_t const n = ::strnlen(reinterpret_cast<char const *>(p), max);
  bool const terminated = n < max;
  bool const vectors = n >= kVectorMinimum && _textVectors();
  std::size_t i = 0;
  std::uint64_t count = 0;
  while (i < n) {
    if (vectors) {
      i += _countUTF8Vec(p + i, n - i, what == _U8Count::Units16, count);
      if (i == n) {
        break;
      }
    }
    // Whole words while they are well formed (up to the next block the kernel may take);
    // characters may straddle words.
    std::size_t const limit = vectors && n - i > kVectorBlock ? i + kVectorBlock : n;
    std::uint64_t expected = 0;
    while (i + 8 <= limit) {
      std::uint64_t v;
      std::memcpy(&v, p + i, 8);
      if ((v & kHigh8) == 0 && expected == 0) {
        count += 8;
        i += 8;
        continue;
      }
      std::uint64_t next = expected;
      unsigned leads = 0;
      unsigned fours = 0;
      if (!_checkWordUTF8(v, next, leads, fours)) {
        break;
      }
      if (fours != 0 && what == _U8Count::Units16 && _hasByte(v, 0xF0)) {
        break; // a four-byte form led by F0 may be overlong and count one unit
      }
      expected = next;
      count += leads + (what == _U8Count::Units16 ? fours : 0);
      i += 8;
    }
    if (expected != 0) {
      // Back to the lead of the character that straddles position i, and uncount it.
      std::size_t j = i - 1;
      while ((p[j] & 0xC0) == 0x80) {
        --j;
      }
      count -= (what == _U8Count::Units16 && p[j] >= 0xF0) ? 2 : 1;
      i = j;
    }
    // The word that stopped the words (or the tail) one character at a time.
    std::size_t const until = n - i < 8 ? n : i + 8;
    while (i < until) {
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
  }
  return {count, i, terminated ? _Stop::End : _Stop::Bound};
}

inline constexpr std::uint64_t kSurrogateMask = 0xF800F800F800F800ull;
inline constexpr std::uint64_t kSurrogates = 0xD800D800D800D800ull;

// Whether one of four units is a surrogate.
inline bool _hasSurrogate(std::uint64_t v) {
  return _hasZeroLane((v & kSurrogateMask) ^ kSurrogates);
}

// Scans wide text with the library's pair rule, counting UTF-8 bytes or characters per `what`.
template <typename U> inline _Scan _scanWide(U const * p, std::uint64_t max, _WCount what) {
  if (!p || max == 0) {
    return {0, 0, _Stop::End};
  }
  std::size_t const n = _wcsnlen(p, max);
  bool const terminated = n < max;
  bool const vectors = n >= kVectorMinimum && _textVectors();
  std::size_t i = 0;
  std::uint64_t count = 0;
  while (i < n) {
    if (vectors) {
      i += _countWideVec(p + i, n - i, what == _WCount::Utf8Bytes, count);
      if (i == n) {
        break;
      }
    }
    std::size_t const limit = vectors && n - i > kVectorBlock ? i + kVectorBlock : n;
    while (i + 4 <= limit) {
      std::uint64_t v;
      std::memcpy(&v, p + i, 8);
      if (_hasSurrogate(v)) {
        break;
      }
      count += 4;
      if (what == _WCount::Utf8Bytes) {
        count += _nonZeroLanes(v & 0xFF80FF80FF80FF80ull) + _nonZeroLanes(v & kSurrogateMask);
      }
      i += 4;
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

// Once a word of text turns out not to be ASCII, the converters take this many units one
// character at a time before they look for a run of ASCII again.
inline constexpr std::size_t kScalarStretch = 16;

inline bool _isContinuation(unsigned b) {
  return (b & 0xC0) == 0x80;
}

// Decodes UTF-8 into wide units in one pass, checking as it goes: the text is the window of `n`
// bytes (`terminated` when a zero byte follows it). `d` must hold `n` units. Stops at the end,
// at a malformed character or one cut by the bound (`stop`), or at a code point above U+10FFFF
// (`tooLarge`). Returns the units written.
template <typename D>
inline std::size_t _decodeUTF8(unsigned char const * p, std::size_t n, bool terminated, D * d,
                               _Stop & stop, bool & tooLarge) {
  static_assert(sizeof(D) == 2);
  std::size_t i = 0;
  std::size_t o = 0;
  tooLarge = false;
  bool const vectors = n >= kVectorMinimum && _textVectors();
  while (i < n) {
    if (vectors) {
      _VecStep const step = _decodeUTF8Vec(p + i, n - i, d + o);
      i += step.read;
      o += step.written;
      if (i == n) {
        break;
      }
    }
#if defined(__SSE2__)
    if (i + 16 <= n) {
      __m128i const v = _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + i));
      if (_mm_movemask_epi8(v) == 0) {
        __m128i const zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + o), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + o + 8), _mm_unpackhi_epi8(v, zero));
        i += 16;
        o += 16;
        continue;
      }
    }
#endif
    if (i + 8 <= n && _isAscii8(p + i)) {
      for (unsigned k = 0; k < 8; ++k) {
        d[o + k] = p[i + k];
      }
      i += 8;
      o += 8;
      continue;
    }
    std::size_t const run = vectors ? kVectorBlock : kScalarStretch;
    std::size_t const stretch = n - i < run ? n : i + run;
    do {
      unsigned const b0 = p[i];
      if (b0 < 0x80) {
        d[o++] = static_cast<D>(b0);
        ++i;
        continue;
      }
      if (b0 >= 0xC0 && b0 < 0xE0 && i + 1 < n && _isContinuation(p[i + 1])) {
        d[o++] = static_cast<D>(((b0 & 0x1Fu) << 6) | (p[i + 1] & 0x3Fu));
        i += 2;
        continue;
      }
      if (b0 >= 0xE0 && b0 < 0xF0 && i + 2 < n && _isContinuation(p[i + 1]) &&
          _isContinuation(p[i + 2])) {
        d[o++] =
            static_cast<D>(((b0 & 0x0Fu) << 12) | ((p[i + 1] & 0x3Fu) << 6) | (p[i + 2] & 0x3Fu));
        i += 3;
        continue;
      }
      std::uint32_t cp = 0;
      bool cut = false;
      unsigned const length = _decodeUTF8At(p, i, n, terminated, cp, cut);
      if (length == 0) {
        stop = cut ? _Stop::Bound : _Stop::Error;
        return o;
      }
      if (cp < 0x10000) {
        d[o++] = static_cast<D>(cp);
      } else if (cp <= 0x10FFFF) {
        d[o++] = static_cast<D>(0xD800 | (cp >> 10));
        d[o++] = static_cast<D>(0xDC00 | (cp & 0x3FF));
      } else {
        tooLarge = true;
        stop = _Stop::Error;
        return o;
      }
      i += length;
    } while (i < stretch);
  }
  stop = terminated ? _Stop::End : _Stop::Bound;
  return o;
}

// Encodes wide text as UTF-8 in one pass with the library's pair rule, checking as it goes: the
// text is the window of `n` units (`terminated` when a zero unit follows it). `d` must hold
// three bytes per unit. Stops at the end, at a lone surrogate or at a pair cut by the bound
// (`stop`). Returns the bytes written.
template <typename U>
inline std::size_t _encodeWide(U const * p, std::size_t n, bool terminated, unsigned char * d,
                               _Stop & stop) {
  std::size_t i = 0;
  std::size_t o = 0;
  bool const vectors = n >= kVectorMinimum && _textVectors();
  while (i < n) {
    if (vectors) {
      _VecStep const step = _encodeWideVec(p + i, n - i, d + o);
      i += step.read;
      o += step.written;
      if (i == n) {
        break;
      }
    }
#if defined(__SSE2__)
    if (i + 16 <= n) {
      __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + i));
      __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + i + 8));
      __m128i const high = _mm_and_si128(_mm_or_si128(a, b), _mm_set1_epi16(-0x80));
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) == 0xFFFF) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + o), _mm_packus_epi16(a, b));
        i += 16;
        o += 16;
        continue;
      }
    }
#endif
    if (i + 4 <= n) {
      std::uint64_t v;
      std::memcpy(&v, p + i, 8);
      if ((v & kNonAscii16) == 0) {
        for (unsigned k = 0; k < 4; ++k) {
          d[o + k] = static_cast<unsigned char>(p[i + k]);
        }
        i += 4;
        o += 4;
        continue;
      }
    }
    std::size_t const run = vectors ? kVectorBlock : kScalarStretch;
    std::size_t const stretch = n - i < run ? n : i + run;
    do {
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
      } else if (u > 0xDBFF) {
        stop = _Stop::Error;
        return o;
      } else if (i + 1 >= n) {
        stop = terminated ? _Stop::Error : _Stop::Bound;
        return o;
      } else if (p[i + 1] < 0xDBFF) {
        stop = _Stop::Error;
        return o;
      } else {
        d[o++] = static_cast<unsigned char>(_collapsePair(u, p[i + 1]));
        i += 2;
      }
    } while (i < stretch);
  }
  stop = terminated ? _Stop::End : _Stop::Bound;
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
