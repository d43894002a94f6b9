// Test support for the converters: UTF-8 text as a string of bytes (embedded zeros
// included) and the length a lead byte announces.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace vorx::test {

using Bytes = std::basic_string<unsigned char>;

// The first `n` bytes of `text`.
inline Bytes B(char const * text, std::size_t n) {
  return Bytes(reinterpret_cast<unsigned char const *>(text), n);
}
inline Bytes B(char const * text) {
  return B(text, std::strlen(text));
}

// Bytes a UTF-8 character takes from its lead byte, 0 for a byte that cannot lead.
inline unsigned LeadLength(unsigned b) {
  return b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
}

} // namespace vorx::test
