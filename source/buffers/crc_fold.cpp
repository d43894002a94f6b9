// CRC-64 by carry-less multiplication: 128-bit blocks with PCLMULQDQ, four 512-bit blocks at a
// time with VPCLMULQDQ, each chosen at run time.
#include "buffers/crc_fold.h"

#include "core/cpu.h"
#include "core/vector_code.h"

namespace VORX::Buffers {

void _crcFoldConstants(std::uint64_t polynomial, std::uint64_t (&fold)[kFoldConstants]) {
  // r = x^k modulo the polynomial, for k from 0 up to the largest distance plus 64.
  std::uint64_t r = 1;
  unsigned k = 0;
  for (std::size_t i = 0; i < kFoldConstants; ++i) {
    unsigned const want = kFoldDistances[i / 2] + (i % 2 == 0 ? 0 : 64);
    for (; k < want; ++k) {
      r = (r >> 63) ? (r << 1) ^ polynomial : r << 1;
    }
    fold[i] = r;
  }
}

#if defined(__x86_64__)

namespace {

#define VORX_VPCLMUL                                                                               \
  __attribute__((target("vpclmulqdq,avx512f,avx512bw,avx512vl,pclmul,sse4.1,ssse3")))

VORX_CLMUL inline __m128i _reversed() {
  return _crcReversed();
}
VORX_CLMUL inline __m128i _block(unsigned char const * p) {
  return _crcBlock(p);
}
VORX_CLMUL inline __m128i _constants(std::uint64_t const (&fold)[kFoldConstants], unsigned bits) {
  return _crcConstants(fold, bits);
}
VORX_CLMUL inline __m128i _fold(__m128i a, __m128i k) {
  return _crcTimes(a, k);
}

// Folds the remaining whole blocks into `a`, then the last 1 to 15 bytes, and reduces it to
// `rest` (see `_crcFold`); returns `length`.
VORX_CLMUL std::size_t _finish(__m128i a, unsigned char const * p, std::size_t length,
                               std::size_t used, std::uint64_t const (&fold)[kFoldConstants],
                               std::uint64_t (&rest)[2]) {
  __m128i const k128 = _constants(fold, 128);
  for (; length - used >= 16; used += 16) {
    a = _mm_xor_si128(_fold(a, k128), _block(p + used));
  }
  if (std::size_t const r = length - used; r != 0) {
    a = _crcAppendLast(a, p + length, r, k128);
  }
  _crcReduce(a, k128, rest);
  return length;
}

// Four 128-bit remainders, 64 bytes apart, while 64 bytes remain.
VORX_CLMUL std::size_t _foldClmul(unsigned char const * p, std::size_t length,
                                  std::uint64_t initial,
                                  std::uint64_t const (&fold)[kFoldConstants],
                                  std::uint64_t (&rest)[2]) {
  __m128i const start = _mm_set_epi64x(static_cast<long long>(initial), 0);
  __m128i x0 = _mm_xor_si128(_block(p), start);
  __m128i x1 = _block(p + 16);
  __m128i x2 = _block(p + 32);
  __m128i x3 = _block(p + 48);
  std::size_t used = 64;
  __m128i const k512 = _constants(fold, 512);
  for (; length - used >= 64; used += 64) {
    x0 = _mm_xor_si128(_fold(x0, k512), _block(p + used));
    x1 = _mm_xor_si128(_fold(x1, k512), _block(p + used + 16));
    x2 = _mm_xor_si128(_fold(x2, k512), _block(p + used + 32));
    x3 = _mm_xor_si128(_fold(x3, k512), _block(p + used + 48));
  }
  __m128i const a = _mm_xor_si128(
      _mm_xor_si128(_fold(x0, _constants(fold, 384)), _fold(x1, _constants(fold, 256))),
      _mm_xor_si128(_fold(x2, _constants(fold, 128)), x3));
  return _finish(a, p, length, used, fold, rest);
}

VORX_VPCLMUL inline __m512i _block512(unsigned char const * p) {
  __m512i const reversed = _mm512_broadcast_i32x4(_reversed());
  return _mm512_shuffle_epi8(_mm512_loadu_si512(p), reversed);
}

VORX_VPCLMUL inline __m512i _constants512(std::uint64_t const (&fold)[kFoldConstants],
                                          unsigned bits) {
  return _mm512_broadcast_i32x4(_constants(fold, bits));
}

VORX_VPCLMUL inline __m512i _fold512(__m512i a, __m512i k) {
  return _mm512_xor_si512(_mm512_clmulepi64_epi128(a, k, 0x11),
                          _mm512_clmulepi64_epi128(a, k, 0x00));
}

// One 128-bit remainder, for 16 to 63 bytes (short texts): one fold per further block.
VORX_CLMUL std::size_t _foldShort(unsigned char const * p, std::size_t length,
                                  std::uint64_t initial,
                                  std::uint64_t const (&fold)[kFoldConstants],
                                  std::uint64_t (&rest)[2]) {
  __m128i const start = _mm_set_epi64x(static_cast<long long>(initial), 0);
  return _finish(_mm_xor_si128(_block(p), start), p, length, 16, fold, rest);
}

// Four 512-bit remainders, 256 bytes apart, while 256 bytes remain.
VORX_VPCLMUL std::size_t _foldVpclmul(unsigned char const * p, std::size_t length,
                                      std::uint64_t initial,
                                      std::uint64_t const (&fold)[kFoldConstants],
                                      std::uint64_t (&rest)[2]) {
  __m512i const start = _mm512_set_epi64(0, 0, 0, 0, 0, 0, static_cast<long long>(initial), 0);
  __m512i z0 = _mm512_xor_si512(_block512(p), start);
  __m512i z1 = _block512(p + 64);
  __m512i z2 = _block512(p + 128);
  __m512i z3 = _block512(p + 192);
  std::size_t used = 256;
  __m512i const k2048 = _constants512(fold, 2048);
  for (; length - used >= 256; used += 256) {
    z0 = _mm512_xor_si512(_fold512(z0, k2048), _block512(p + used));
    z1 = _mm512_xor_si512(_fold512(z1, k2048), _block512(p + used + 64));
    z2 = _mm512_xor_si512(_fold512(z2, k2048), _block512(p + used + 128));
    z3 = _mm512_xor_si512(_fold512(z3, k2048), _block512(p + used + 192));
  }
  __m512i z = _mm512_xor_si512(_mm512_xor_si512(_fold512(z0, _constants512(fold, 1536)),
                                                _fold512(z1, _constants512(fold, 1024))),
                               _mm512_xor_si512(_fold512(z2, _constants512(fold, 512)), z3));
  __m512i const k512 = _constants512(fold, 512);
  for (; length - used >= 64; used += 64) {
    z = _mm512_xor_si512(_fold512(z, k512), _block512(p + used));
  }
  // The four lanes, first to last, are 384, 256, 128 and 0 bits from the end.
  __m512i const lanes = _mm512_inserti32x4(
      _mm512_inserti32x4(_mm512_inserti32x4(_mm512_castsi128_si512(_constants(fold, 384)),
                                            _constants(fold, 256), 1),
                         _constants(fold, 128), 2),
      _constants(fold, 0), 3);
  __m512i const f = _fold512(z, lanes);
  __m128i const a = _mm_xor_si128(
      _mm_xor_si128(_mm512_extracti32x4_epi32(f, 0), _mm512_extracti32x4_epi32(f, 1)),
      _mm_xor_si128(_mm512_extracti32x4_epi32(f, 2), _mm512_extracti32x4_epi32(f, 3)));
  return _finish(a, p, length, used, fold, rest);
}

} // namespace

std::size_t _crcFold(unsigned char const * data, std::size_t length, std::uint64_t initial,
                     std::uint64_t const (&fold)[kFoldConstants], std::uint64_t (&rest)[2]) {
  if (length >= 256 && _cpuHas(_CpuCode::Vpclmul512)) {
    return _foldVpclmul(data, length, initial, fold, rest);
  }
  if (length >= 16 && _cpuHas(_CpuCode::Clmul)) {
    return length >= 64 ? _foldClmul(data, length, initial, fold, rest)
                        : _foldShort(data, length, initial, fold, rest);
  }
  return 0;
}

#else

std::size_t _crcFold(unsigned char const *, std::size_t, std::uint64_t,
                     std::uint64_t const (&)[kFoldConstants], unsigned char (&)[16]) {
  return 0;
}

#endif

} // namespace VORX::Buffers
