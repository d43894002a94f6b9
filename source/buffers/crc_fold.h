// Private to the buffers area: CRC-64 by carry-less multiplication. The bytes are folded 16 at
// a time into a 128-bit remainder that is congruent to them modulo the polynomial; its CRC (16
// bytes through the table) is the CRC of the folded bytes, so the results equal the table's for
// every width-64 polynomial.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VORX::Buffers {

// The fold distances, in bits, whose constants `_crcFoldConstants` computes, in table order.
inline constexpr unsigned kFoldDistances[] = {0, 128, 256, 384, 512, 1024, 1536, 2048};
inline constexpr std::size_t kFoldConstants = 2 * (sizeof(kFoldDistances) / sizeof(unsigned));
static_assert(kFoldConstants == 16);

// For each distance D: x^D and x^(D + 64) modulo x^64 + `polynomial`, at 2i and 2i + 1.
void _crcFoldConstants(std::uint64_t polynomial, std::uint64_t (&fold)[kFoldConstants]);

// Folds all `length` bytes (CRC so far `initial`) and writes the remainder to `rest`, first byte
// most significant. Returns the bytes folded: `length`, or 0 when the processor lacks carry-less
// multiplication or `length` is below 16. Reads only inside the data.
std::size_t _crcFold(unsigned char const * data, std::size_t length, std::uint64_t initial,
                     std::uint64_t const (&fold)[kFoldConstants], unsigned char (&rest)[16]);

} // namespace VORX::Buffers
