#include "core/text.h"

#include <cstdint>

namespace VORX::Develop {

std::size_t _utf8ToWide(char const * text, qefWChar * buffer, std::size_t count) {
  if (!buffer || count == 0) {
    return 0;
  }
  std::size_t out = 0;
  auto const * p = reinterpret_cast<unsigned char const *>(text ? text : "");
  auto const put = [&](char32_t unit) {
    if (out + 1 < count) {
      buffer[out++] = static_cast<qefWChar>(unit);
      return true;
    }
    return false;
  };
  while (*p) {
    unsigned const lead = *p;
    int extra = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (lead >= 0xF5) {
      extra = 0;
    }
    char32_t code = extra == 3 ? lead & 0x07 : extra == 2 ? lead & 0x0F : lead & 0x1F;
    int i = 1;
    for (; i <= extra && (p[i] & 0xC0) == 0x80; ++i) {
      code = (code << 6) | (p[i] & 0x3F);
    }
    bool const valid = extra > 0 && i == extra + 1 &&
                       !(extra == 2 && (code < 0x800 || (code >= 0xD800 && code < 0xE000))) &&
                       !(extra == 3 && (code < 0x10000 || code > 0x10FFFF));
    if (!valid) {
      if (!put(lead)) {
        break;
      }
      ++p;
      continue;
    }
    if (code >= 0x10000) {
      if (out + 2 >= count) {
        break;
      }
      put(0xD800 + ((code - 0x10000) >> 10));
      put(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else if (!put(code)) {
      break;
    }
    p += extra + 1;
  }
  buffer[out] = 0;
  return out;
}

std::size_t _wideToUtf8(qefWChar const * text, char * buffer, std::size_t count) {
  if (!buffer || count == 0) {
    return 0;
  }
  std::size_t out = 0;
  for (qefWChar const * p = text ? text : u""; *p; ++p) {
    char32_t code = *p;
    if (code >= 0xD800 && code < 0xDC00 && p[1] >= 0xDC00 && p[1] < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (p[1] - 0xDC00);
      ++p;
    } else if (code >= 0xD800 && code < 0xE000) {
      code = 0xFFFD;
    }
    char bytes[4];
    std::size_t n;
    if (code < 0x80) {
      bytes[0] = static_cast<char>(code);
      n = 1;
    } else if (code < 0x800) {
      bytes[0] = static_cast<char>(0xC0 | (code >> 6));
      bytes[1] = static_cast<char>(0x80 | (code & 0x3F));
      n = 2;
    } else if (code < 0x10000) {
      bytes[0] = static_cast<char>(0xE0 | (code >> 12));
      bytes[1] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      bytes[2] = static_cast<char>(0x80 | (code & 0x3F));
      n = 3;
    } else {
      bytes[0] = static_cast<char>(0xF0 | (code >> 18));
      bytes[1] = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      bytes[2] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      bytes[3] = static_cast<char>(0x80 | (code & 0x3F));
      n = 4;
    }
    if (out + n >= count) {
      break;
    }
    for (std::size_t i = 0; i < n; ++i) {
      buffer[out++] = bytes[i];
    }
  }
  buffer[out] = 0;
  return out;
}

} // namespace VORX::Develop
