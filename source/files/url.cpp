// Percent-encoding and decoding of byte strings.
#include <vorx/internetional.h>

#include <array>
#include <cstring>

namespace VORX::Internetional {
namespace {

constexpr std::array<bool, 256> MakeUnreserved() {
  std::array<bool, 256> table{};
  for (unsigned b = 0; b < 256; ++b) {
    table[b] = (b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') ||
               b == '-' || b == '.' || b == '_' || b == '~';
  }
  return table;
}
constexpr std::array<bool, 256> kUnreserved = MakeUnreserved();
static_assert(kUnreserved.size() == 256);

constexpr char kHexDigits[] = "0123456789ABCDEF";
static_assert(sizeof kHexDigits == 17);

// The value of a hexadecimal digit of either case, or -1.
int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return -1;
}

bool Kept(unsigned char c, unsigned char const * allowed) {
  return kUnreserved[c] ||
         (allowed && *allowed && std::strchr(reinterpret_cast<char const *>(allowed), c));
}

} // namespace

std::size_t URL_encoderequired(unsigned char const * text, unsigned char const * allowed) {
  std::size_t size = 0;
  for (; text && *text; ++text) {
    size += Kept(*text, allowed) ? 1 : 3;
  }
  return size;
}

bool URL_encodebuffer(unsigned char * out, unsigned char const * text,
                      unsigned char const * allowed) {
  if (!out || !text || out == text) {
    return false;
  }
  for (; *text; ++text) {
    unsigned char const c = *text;
    if (Kept(c, allowed)) {
      *out++ = c;
    } else {
      *out++ = '%';
      *out++ = static_cast<unsigned char>(kHexDigits[c >> 4]);
      *out++ = static_cast<unsigned char>(kHexDigits[c & 0x0F]);
    }
  }
  *out = 0;
  return true;
}

bool URL_decodebuffer(unsigned char * out, unsigned char const * text) {
  if (!out || !text) {
    return false;
  }
  while (*text) {
    if (text[0] == '%') {
      int const high = HexValue(text[1]); // text[1] may be the terminator: never a digit
      int const low = high < 0 ? -1 : HexValue(text[2]);
      if (low >= 0) {
        *out++ = static_cast<unsigned char>(high * 16 + low);
        text += 3;
        continue;
      }
    }
    *out++ = *text++;
  }
  *out = 0;
  return true;
}

bool URL_checkescape(unsigned char const * text, unsigned char const * allowed) {
  for (; text && *text; ++text) {
    if (Kept(*text, allowed)) {
      continue;
    }
    if (text[0] != '%' || HexValue(text[1]) < 0 || HexValue(text[2]) < 0) {
      return false;
    }
    text += 2;
  }
  return true;
}

} // namespace VORX::Internetional
