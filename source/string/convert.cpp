// Whole-buffer converters, per-character codecs, counters and character classes.
#include <vorx/string.h>

#include "string/utf_codec.h"

namespace VORX::String {

using namespace Codec;

std::uint64_t UTF8_To_qefWChar(unsigned char const * src, std::uint64_t srcMax, qefWChar * dst,
                               std::uint64_t dstCount) {
  if (!src) {
    return 0;
  }
  _Stop stop;
  bool tooLarge;
  if (dst) {
    std::size_t const n = ::strnlen(reinterpret_cast<char const *>(src), srcMax);
    if (dstCount > n) {
      // Room for any text of n bytes: convert in one pass.
      std::size_t const written = _decodeUTF8(src, n, n < srcMax, dst, stop, tooLarge);
      if (stop == _Stop::Error) {
        return 0;
      }
      dst[written] = 0;
      return written + 1;
    }
  }
  _Scan const scan = _scanUTF8(src, srcMax, _U8Count::Units16);
  std::uint64_t const needed = scan.count + 1;
  if (!dst) {
    return needed;
  }
  if (needed > dstCount || scan.stop == _Stop::Error) {
    return 0;
  }
  std::size_t const written = _decodeUTF8(src, scan.used, false, dst, stop, tooLarge);
  if (tooLarge) {
    return 0;
  }
  dst[written] = 0;
  return needed;
}

std::uint64_t qefWChar_To_UTF8(qefWChar const * src, std::uint64_t srcMax, unsigned char * dst,
                               std::uint64_t dstCount) {
  if (!src) {
    return 0;
  }
  _Stop stop;
  if (dst) {
    std::size_t const n = _wcsnlen(src, srcMax);
    if (n < qefAllOnes / 3 && dstCount > 3 * static_cast<std::uint64_t>(n)) {
      // Room for any text of n units: convert in one pass.
      std::size_t const written = _encodeWide(src, n, n < srcMax, dst, stop);
      if (stop == _Stop::Error) {
        return 0;
      }
      dst[written] = 0;
      return written + 1;
    }
  }
  _Scan const scan = _scanWide(src, srcMax, _WCount::Utf8Bytes);
  std::uint64_t const needed = scan.count + 1;
  if (!dst) {
    return needed;
  }
  if (needed > dstCount || scan.stop == _Stop::Error) {
    return 0;
  }
  std::size_t const written = _encodeWide(src, scan.used, false, dst, stop);
  dst[written] = 0;
  return needed;
}

bool utf8_qefW32(std::uint32_t * cp, unsigned char const *& p) {
  unsigned const lead = *p;
  unsigned const length = kLeadClass[lead];
  if (length == 0) {
    *cp = 0;
    return false;
  }
  static constexpr std::uint32_t kLeadMask[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  std::uint32_t value = lead & kLeadMask[length];
  ++p;
  for (unsigned k = 1; k < length; ++k) {
    unsigned const next = *p;
    if ((next & 0xC0) != 0x80) {
      *cp = value << (6 * (length - k)); // the partial value, as far as it was read
      return false;
    }
    value = (value << 6) | (next & 0x3F);
    ++p;
  }
  *cp = value;
  return true;
}

bool qefW_qefW32(std::uint32_t * cp, qefWChar const *& p) {
  unsigned const u = p[0];
  if (((u + 0x2800) & 0xFFFF) > 0x7FF) {
    *cp = u;
    ++p;
    return true;
  }
  if (u > 0xDBFF) {
    return false;
  }
  unsigned const low = p[1];
  if (low < 0xDBFF) {
    return false;
  }
  *cp = _collapsePair(u, low);
  p += 2;
  return true;
}

bool qefW32_utf8(unsigned char *& p, std::uint32_t cp) {
  if (cp < 0x80) {
    *p++ = static_cast<unsigned char>(cp);
  } else if (cp < 0x800) {
    *p++ = static_cast<unsigned char>(0xC0 | (cp >> 6));
    *p++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  } else if (cp <= 0xFFFF) {
    *p++ = static_cast<unsigned char>(0xE0 | (cp >> 12));
    *p++ = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    *p++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  } else if (cp <= 0x10FFFF) {
    *p++ = static_cast<unsigned char>(0xF0 | (cp >> 18));
    *p++ = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
    *p++ = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    *p++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  } else {
    return false;
  }
  return true;
}

bool qefW32_qefW(qefWChar *& p, std::uint32_t cp) {
  if (cp < 0x10000) {
    *p++ = static_cast<qefWChar>(cp);
  } else if (cp <= 0x10FFFF) {
    *p++ = static_cast<qefWChar>(0xD800 | (cp >> 10));
    *p++ = static_cast<qefWChar>(0xDC00 | (cp & 0x3FF));
  } else {
    return false;
  }
  return true;
}

bool utf8_qefW(qefWChar *& d, unsigned char const *& s) {
  std::uint32_t cp = 0;
  return utf8_qefW32(&cp, s) && qefW32_qefW(d, cp);
}

bool utf16_qefW(qefWChar *& d, std::uint16_t const *& s) {
  *d++ = static_cast<qefWChar>(*s++);
  return true;
}

bool qefW_utf8(unsigned char *& d, qefWChar const *& s) {
  std::uint32_t cp = 0;
  return qefW_qefW32(&cp, s) && qefW32_utf8(d, cp);
}

bool qefW_utf16(std::uint16_t *& d, qefWChar const *& s) {
  std::uint32_t cp = 0;
  if (!qefW_qefW32(&cp, s)) {
    return false;
  }
  *d++ = static_cast<std::uint16_t>(cp);
  return true;
}

std::uint64_t UTF8Size(std::uint32_t cp) {
  return cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : cp < 0x110000 ? 4 : 0;
}

std::uint64_t UTF16Size(std::uint32_t cp) {
  return cp < 0x10000 ? 1 : cp <= 0x110000 ? 2 : 0;
}

std::uint64_t qefWSize(std::uint32_t cp) {
  return cp < 0x10000 ? 1 : 2;
}

std::uint64_t UTF8Len(unsigned char lead) {
  return kLeadClass[lead];
}

std::uint64_t UTF16Len(std::uint16_t unit) {
  return unit < 0xD800 || unit > 0xDFFF ? 1 : unit <= 0xDBFF ? 2 : 0;
}

std::uint64_t qefWLen(qefWChar) {
  return 1;
}

void UTF8Sync(unsigned char const *& p) {
  while ((*p & 0xE0) == 0xC0) {
    ++p;
  }
}

void UTF16Sync(std::uint16_t const *& p) {
  while (*p >= 0xDC00 && *p <= 0xDFFF) {
    ++p;
  }
}

std::uint64_t UTF8u16strlen(unsigned char const * p, std::uint64_t max) {
  return _scanUTF8(p, max, _U8Count::Units16).count;
}

std::uint64_t UTF8wstrlen(unsigned char const * p, std::uint64_t max) {
  return UTF8u16strlen(p, max);
}

std::uint64_t UTF8w32strlen(unsigned char const * p, std::uint64_t max) {
  return _scanUTF8(p, max, _U8Count::CodePoints).count;
}

std::uint64_t UTF16wstrlen(std::uint16_t const * p, std::uint64_t max) {
  if (!p) {
    return 0;
  }
  std::uint64_t n = 0;
  while (n < max && p[n] != 0) {
    ++n;
  }
  return n;
}

std::uint64_t UTF16w32strlen(qefWChar const * p, std::uint64_t max) {
  return _scanWide(p, max, _WCount::Characters).count;
}

std::uint64_t qefWw32strlen(qefWChar const * p, std::uint64_t max) {
  return UTF16w32strlen(p, max);
}

std::uint64_t UTF16u8strlen(qefWChar const * p, std::uint64_t max) {
  return _scanWide(p, max, _WCount::Utf8Bytes).count;
}

std::uint64_t qefWu8strlen(qefWChar const * p, std::uint64_t max) {
  return UTF16u8strlen(p, max);
}

std::uint64_t UTF32u16strlen(std::uint32_t const * p, std::uint64_t max) {
  std::uint64_t count = 0;
  for (std::uint64_t i = 0; p && i < max && p[i] != 0 && p[i] <= 0x110000; ++i) {
    count += p[i] < 0x10000 ? 1 : 2;
  }
  return count;
}

std::uint64_t UTF32wstrlen(std::uint32_t const * p, std::uint64_t max) {
  return UTF32u16strlen(p, max);
}

std::uint64_t UTF32u8strlen(std::uint32_t const * p, std::uint64_t max) {
  std::uint64_t count = 0;
  for (std::uint64_t i = 0; p && i < max && p[i] != 0 && p[i] < 0x110000; ++i) {
    count += UTF8Size(p[i]);
  }
  return count;
}

bool _isSlash(qefWChar c) {
  return c == u'/' || c == u'\\';
}

bool _isblank(qefWChar c) {
  return c == u' ';
}

bool _iswhitespace(qefWChar c) {
  return c == 9 || c == 10 || c == 13 || c == 32;
}

bool _isCRLF(qefWChar c) {
  return c == 10 || c == 13;
}

bool _isUNCW(qefWChar const * path) {
  return path && path[0] == u'\\' && path[1] == u'\\' && path[2] == u'?' && path[3] == u'\\';
}

} // namespace VORX::String
