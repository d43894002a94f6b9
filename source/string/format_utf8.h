// UTF-8 helpers shared by the 16-bit formatter and scanner: narrow arguments are decoded as
// UTF-8, and narrow fields the scanner stores are encoded as UTF-8.
#pragma once

#include <vorx/base.h>

namespace VORX::String {

// Decodes the character at `text` (zero-terminated, so a short sequence stops at the zero) into
// `cp`; returns the bytes it takes. A byte that does not start a well-formed sequence (stray
// continuation, overlong form, surrogate, above U+10FFFF, cut short) stands for the code point of
// the same value and takes one byte.
inline int _decodeUTF8(unsigned char const * text, char32_t & cp) {
  unsigned const b0 = text[0];
  if (b0 < 0x80) {
    cp = b0;
    return 1;
  }
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    if ((text[1] & 0xC0) == 0x80) {
      cp = ((b0 & 0x1Fu) << 6) | (text[1] & 0x3Fu);
      return 2;
    }
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    unsigned const b1 = text[1];
    unsigned const low = b0 == 0xE0 ? 0xA0 : 0x80;
    unsigned const high = b0 == 0xED ? 0x9F : 0xBF;
    if (b1 >= low && b1 <= high && (text[2] & 0xC0) == 0x80) {
      cp = ((b0 & 0x0Fu) << 12) | ((b1 & 0x3Fu) << 6) | (text[2] & 0x3Fu);
      return 3;
    }
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    unsigned const b1 = text[1];
    unsigned const low = b0 == 0xF0 ? 0x90 : 0x80;
    unsigned const high = b0 == 0xF4 ? 0x8F : 0xBF;
    if (b1 >= low && b1 <= high && (text[2] & 0xC0) == 0x80 && (text[3] & 0xC0) == 0x80) {
      cp = ((b0 & 0x07u) << 18) | ((b1 & 0x3Fu) << 12) | ((text[2] & 0x3Fu) << 6) |
           (text[3] & 0x3Fu);
      return 4;
    }
  }
  cp = b0;
  return 1;
}

// Encodes `cp` (at most U+10FFFF) into `out`; returns the bytes written (1 to 4).
inline int _encodeUTF8(char32_t cp, char * out) {
  if (cp < 0x80) {
    out[0] = static_cast<char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return 4;
}

} // namespace VORX::String
