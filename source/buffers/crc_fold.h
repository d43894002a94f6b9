// Private to the buffers area: CRC-64 by carry-less multiplication. The bytes are folded 16 at
// a time into a 128-bit remainder that is congruent to them modulo the polynomial, and that one
// more multiplication brings down to eight bytes and a 64-bit term; the CRC of those eight bytes
// (through the table) with the term is the CRC of the data, so the results equal the table's
// for every width-64 polynomial.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/vector_code.h"

namespace VORX::Buffers {

// The fold distances, in bits, whose constants `_crcFoldConstants` computes, in table order.
inline constexpr unsigned kFoldDistances[] = {0, 128, 256, 384, 512, 1024, 1536, 2048};
inline constexpr std::size_t kFoldConstants = 2 * (sizeof(kFoldDistances) / sizeof(unsigned));
static_assert(kFoldConstants == 16);

// For each distance D: x^D and x^(D + 64) modulo x^64 + `polynomial`, at 2i and 2i + 1.
void _crcFoldConstants(std::uint64_t polynomial, std::uint64_t (&fold)[kFoldConstants]);

// Folds all `length` bytes (CRC so far `initial`) into `rest`: the CRC of the data is the CRC
// from 0 of the eight bytes of rest[0] (most significant first), exclusive-or rest[1]. Returns
// the bytes folded: `length`, or 0 when the processor lacks carry-less multiplication or
// `length` is below 16. Reads only inside the data.
std::size_t _crcFold(unsigned char const * data, std::size_t length, std::uint64_t initial,
                     std::uint64_t const (&fold)[kFoldConstants], std::uint64_t (&rest)[2]);

#if defined(__x86_64__)

// The 128-bit steps, shared by the folding here and by callers that fold as they scan (the
// string pool). Each runs only where `_cpuHas(_CpuCode::Clmul)` answers true.
#define VORX_CLMUL __attribute__((target("pclmul,sse4.1,ssse3")))

// Index of the constants of distance `bits` in the table.
constexpr std::size_t _crcConstantsAt(unsigned bits) {
  for (std::size_t i = 0; i < sizeof(kFoldDistances) / sizeof(unsigned); ++i) {
    if (kFoldDistances[i] == bits) {
      return 2 * i;
    }
  }
  return kFoldConstants;
}

VORX_CLMUL inline __m128i _crcReversed() {
  return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

// Sixteen bytes as a polynomial, the first byte's top bit the highest power.
VORX_CLMUL inline __m128i _crcBlock(unsigned char const * p) {
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const *>(p)), _crcReversed());
}

VORX_CLMUL inline __m128i _crcConstants(std::uint64_t const (&fold)[kFoldConstants],
                                        unsigned bits) {
  std::size_t const i = _crcConstantsAt(bits);
  return _mm_set_epi64x(static_cast<long long>(fold[i + 1]), static_cast<long long>(fold[i]));
}

// `a` times x^D (congruent, in 128 bits), for the constants `k` of distance D.
VORX_CLMUL inline __m128i _crcTimes(__m128i a, __m128i k) {
  return _mm_xor_si128(_mm_clmulepi64_si128(a, k, 0x11), _mm_clmulepi64_si128(a, k, 0x00));
}

// Byte shuffles for a shift by r bytes: from `kCrcShift + 16 - r` towards the first byte (zeros
// come in behind), from `kCrcShift + 32 - r` the first r bytes brought to the end.
inline constexpr unsigned char kCrcShift[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
static_assert(sizeof(kCrcShift) == 48 && kCrcShift[16] == 0 && kCrcShift[31] == 15);

// The remainder `a` of the data before `end - r` followed by the r (0 to 15) bytes before `end`:
// its first r bytes times x^128 plus the 16 bytes that end the data (its other bytes and the new
// ones, read again from the data, which must hold 16 bytes before `end`). For r = 0, `a`.
// As `_crcAppendLast`, the 16 bytes that end the data given as a polynomial (as `_crcBlock`
// makes one) rather than read.
VORX_CLMUL inline __m128i _crcAppendLastBlock(__m128i a, __m128i last, std::size_t r,
                                              __m128i k128) {
  __m128i const towardsFirst =
      _mm_loadu_si128(reinterpret_cast<__m128i const *>(kCrcShift + 16 - r));
  __m128i const firstToEnd = _mm_loadu_si128(reinterpret_cast<__m128i const *>(kCrcShift + 32 - r));
  __m128i const others = _mm_blendv_epi8(_mm_shuffle_epi8(a, towardsFirst), last, towardsFirst);
  return _mm_xor_si128(_crcTimes(_mm_shuffle_epi8(a, firstToEnd), k128), others);
}
VORX_CLMUL inline __m128i _crcAppendLast(__m128i a, unsigned char const * end, std::size_t r,
                                         __m128i k128) {
  return _crcAppendLastBlock(a, _crcBlock(end - 16), r, k128);
}

// The remainder `a` reduced as `_crcFold` answers: a times x^64 is its high half times x^128 (one
// multiplication) plus its low half times x^64, an eight-byte value times x^64 plus a 64-bit one.
VORX_CLMUL inline void _crcReduce(__m128i a, __m128i k128, std::uint64_t (&rest)[2]) {
  __m128i const high = _mm_clmulepi64_si128(a, k128, 0x01);
  rest[0] = static_cast<std::uint64_t>(_mm_extract_epi64(high, 1)) ^
            static_cast<std::uint64_t>(_mm_cvtsi128_si64(a));
  rest[1] = static_cast<std::uint64_t>(_mm_cvtsi128_si64(high));
}

#endif

} // namespace VORX::Buffers
