#include "core/text.h"

#include "string/format_utf8.h"

namespace VORX::Develop {

std::size_t _utf8ToWide(char const * text, qefWChar * buffer, std::size_t count) {
  if (!buffer || count == 0) {
    return 0;
  }
  std::size_t out = 0;
  auto const * p = reinterpret_cast<unsigned char const *>(text ? text : "");
  while (*p) {
    char32_t code;
    int const length = String::_decodeUTF8(p, code);
    std::size_t const units = code >= 0x10000 ? 2 : 1;
    if (out + units >= count) {
      break;
    }
    if (units == 2) {
      buffer[out++] = static_cast<qefWChar>(0xD800 + ((code - 0x10000) >> 10));
      buffer[out++] = static_cast<qefWChar>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      buffer[out++] = static_cast<qefWChar>(code);
    }
    p += length;
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
    std::size_t const length = static_cast<std::size_t>(String::_encodeUTF8(code, bytes));
    if (out + length >= count) {
      break;
    }
    for (std::size_t i = 0; i < length; ++i) {
      buffer[out++] = bytes[i];
    }
  }
  buffer[out] = 0;
  return out;
}

} // namespace VORX::Develop
