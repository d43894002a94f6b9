// AVX-512 kernels for UTF-8 and wide text (with VBMI2's compress), chosen at run time; see
// utf_vector.h. UTF-8 goes 64 bytes per step, wide text 32 units.
#include "string/utf_vector.h"

#include "core/cpu.h"
#include "core/vector_code.h"

namespace VORX::String::Codec {

bool _textVectors() {
  return _cpuHas(_CpuCode::Avx512Text);
}

#if defined(__x86_64__)

namespace {

#define VORX_AVX512_TEXT                                                                           \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,bmi,bmi2,popcnt")))

// The classes of 64 bytes of UTF-8, one bit per byte.
struct _Classes {
  std::uint64_t cont;  // 10xxxxxx
  std::uint64_t lead2; // 110xxxxx
  std::uint64_t lead3; // 1110xxxx
  std::uint64_t lead4; // F0 to F4
  std::uint64_t bad;   // F5 to FF
};

VORX_AVX512_TEXT inline _Classes _classify(__m512i v) {
  __mmask64 const c0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xC0)));
  __mmask64 const e0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
  __mmask64 const f0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
  __mmask64 const f5 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF5)));
  __mmask64 const high = _mm512_movepi8_mask(v);
  return {high & ~c0, c0 & ~e0, e0 & ~f0, f0 & ~f5, f5};
}

// Whether every continuation byte follows its lead and every lead has its continuation bytes
// (those beyond the block aside), with no byte that cannot occur.
inline bool _wellFormed(_Classes const & k) {
  std::uint64_t const wanted =
      ((k.lead2 | k.lead3 | k.lead4) << 1) | ((k.lead3 | k.lead4) << 2) | (k.lead4 << 3);
  return wanted == k.cont && k.bad == 0;
}

// Bytes at the end of a well-formed block that belong to a character completed after it.
inline unsigned _cut(_Classes const & k) {
  std::uint64_t const top = std::uint64_t{1} << 63;
  if (((k.lead2 | k.lead3 | k.lead4) & top) != 0) {
    return 1;
  }
  if (((k.lead3 | k.lead4) & (top >> 1)) != 0) {
    return 2;
  }
  return (k.lead4 & (top >> 2)) != 0 ? 3 : 0;
}

inline std::uint64_t _below(unsigned bits) {
  return bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
}

} // namespace

VORX_AVX512_TEXT std::size_t _countUTF8Vec(unsigned char const * p, std::size_t n, bool units16,
                                           std::uint64_t & count) {
  std::size_t i = 0;
  std::uint64_t total = count;
  while (n - i >= 64) {
    __m512i const v = _mm512_loadu_si512(p + i);
    if (_mm512_movepi8_mask(v) == 0) {
      total += 64;
      i += 64;
      continue;
    }
    _Classes const k = _classify(v);
    if (!_wellFormed(k)) {
      break;
    }
    unsigned const cut = _cut(k);
    std::uint64_t const starts = ~k.cont & _below(64 - cut);
    total += static_cast<std::uint64_t>(_mm_popcnt_u64(starts));
    if (units16 && k.lead4 != 0) {
      // A four-byte form is two units, except F0 with 80 to 8F after it (overlong: one).
      __mmask64 const f0 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
      __mmask64 const low = _mm512_cmplt_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0x90)));
      std::uint64_t const overlong = f0 & ((low & k.cont) >> 1);
      total += static_cast<std::uint64_t>(_mm_popcnt_u64(k.lead4 & starts)) -
               static_cast<std::uint64_t>(_mm_popcnt_u64(overlong & starts));
    }
    i += 64 - cut;
  }
  count = total;
  return i;
}

VORX_AVX512_TEXT _VecStep _decodeUTF8Vec(unsigned char const * p, std::size_t n, void * d) {
  auto * const out = static_cast<std::uint16_t *>(d);
  std::size_t i = 0;
  std::size_t o = 0;
  // Each step also reads the two bytes after its block (a character may end there).
  while (n - i >= 66) {
    __m512i const v0 = _mm512_loadu_si512(p + i);
    if (_mm512_movepi8_mask(v0) == 0) {
      _mm512_storeu_si512(out + o, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v0)));
      _mm512_storeu_si512(out + o + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v0, 1)));
      i += 64;
      o += 64;
      continue;
    }
    _Classes const k = _classify(v0);
    if (k.lead4 != 0 || !_wellFormed(k)) {
      break;
    }
    unsigned const cut = _cut(k);
    std::uint64_t const starts = ~k.cont & _below(64 - cut);
    __m512i const v1 = _mm512_loadu_si512(p + i + 1);
    __m512i const v2 = _mm512_loadu_si512(p + i + 2);
    __m512i const low6 = _mm512_set1_epi16(0x3F);
    for (unsigned half = 0; half < 2; ++half) {
      __m512i b0, b1, b2;
      if (half == 0) {
        b0 = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v0));
        b1 = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v1));
        b2 = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v2));
      } else {
        b0 = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v0, 1));
        b1 = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v1, 1));
        b2 = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v2, 1));
      }
      __m512i const mid = _mm512_slli_epi16(_mm512_and_si512(b1, low6), 6);
      __m512i const two =
          _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(b0, _mm512_set1_epi16(0x1F)), 6),
                          _mm512_and_si512(b1, low6));
      __m512i const three = _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(b0, 12), mid),
                                            _mm512_and_si512(b2, low6));
      unsigned const shift = 32 * half;
      auto const m2 = static_cast<__mmask32>(k.lead2 >> shift);
      auto const m3 = static_cast<__mmask32>(k.lead3 >> shift);
      __m512i const value = _mm512_mask_mov_epi16(_mm512_mask_mov_epi16(b0, m2, two), m3, three);
      auto const keep = static_cast<__mmask32>(starts >> shift);
      unsigned const units = static_cast<unsigned>(_mm_popcnt_u32(keep));
      _mm512_mask_storeu_epi16(out + o, static_cast<__mmask32>(_below(units)),
                               _mm512_maskz_compress_epi16(keep, value));
      o += units;
    }
    i += 64 - cut;
  }
  return {i, o};
}

VORX_AVX512_TEXT std::size_t _countWideVec(void const * p, std::size_t n, bool utf8Bytes,
                                           std::uint64_t & count) {
  auto const * const in = static_cast<std::uint16_t const *>(p);
  std::size_t i = 0;
  std::uint64_t total = count;
  __m512i const surrogateMask = _mm512_set1_epi16(static_cast<short>(0xF800));
  __m512i const surrogate = _mm512_set1_epi16(static_cast<short>(0xD800));
  while (n - i >= 32) {
    __m512i const v = _mm512_loadu_si512(in + i);
    if (_mm512_cmpeq_epi16_mask(_mm512_and_si512(v, surrogateMask), surrogate) != 0) {
      break;
    }
    total += 32;
    if (utf8Bytes) {
      total += static_cast<std::uint64_t>(
          _mm_popcnt_u32(_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x80))) +
          _mm_popcnt_u32(_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x800))));
    }
    i += 32;
  }
  count = total;
  return i;
}

VORX_AVX512_TEXT _VecStep _encodeWideVec(void const * p, std::size_t n, unsigned char * d) {
  auto const * const in = static_cast<std::uint16_t const *>(p);
  std::size_t i = 0;
  std::size_t o = 0;
  __m512i const surrogateMask = _mm512_set1_epi16(static_cast<short>(0xF800));
  __m512i const surrogate = _mm512_set1_epi16(static_cast<short>(0xD800));
  __m512i const low6 = _mm512_set1_epi32(0x3F);
  __m512i const cont = _mm512_set1_epi32(0x80);
  while (n - i >= 32) {
    __m512i const v = _mm512_loadu_si512(in + i);
    if (_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x80)) == 0) {
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(d + o), _mm512_cvtepi16_epi8(v));
      i += 32;
      o += 32;
      continue;
    }
    __mmask32 const ascii = _mm512_cmplt_epu16_mask(v, _mm512_set1_epi16(0x80));
    if (_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x800)) == 0) {
      // One or two bytes per unit: 110xxxxx 10xxxxxx in each 16-bit lane, first byte lowest.
      __m512i const two = _mm512_or_si512(
          _mm512_or_si512(_mm512_srli_epi16(v, 6), _mm512_set1_epi16(0xC0)),
          _mm512_slli_epi16(_mm512_or_si512(_mm512_and_si512(v, _mm512_set1_epi16(0x3F)),
                                            _mm512_set1_epi16(0x80)),
                            8));
      __m512i const value = _mm512_mask_mov_epi16(two, ascii, v);
      std::uint64_t const bytes =
          0x5555555555555555ull | _pdep_u64(~ascii & 0xFFFFFFFFu, 0xAAAAAAAAAAAAAAAAull);
      unsigned const written = static_cast<unsigned>(_mm_popcnt_u64(bytes));
      _mm512_mask_storeu_epi8(d + o, _below(written), _mm512_maskz_compress_epi8(bytes, value));
      i += 32;
      o += written;
      continue;
    }
    if (_mm512_cmpeq_epi16_mask(_mm512_and_si512(v, surrogateMask), surrogate) != 0) {
      break;
    }
    for (unsigned half = 0; half < 2; ++half) {
      __m512i const u = _mm512_cvtepu16_epi32(half == 0 ? _mm512_castsi512_si256(v)
                                                        : _mm512_extracti64x4_epi64(v, 1));
      __m512i const last = _mm512_slli_epi32(_mm512_or_si512(_mm512_and_si512(u, low6), cont), 8);
      // Two bytes: 110xxxxx 10xxxxxx; three: 1110xxxx 10xxxxxx 10xxxxxx (first byte lowest).
      __m512i const two =
          _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi32(u, 6), _mm512_set1_epi32(0xC0)), last);
      __m512i const three = _mm512_or_si512(
          _mm512_or_si512(_mm512_srli_epi32(u, 12), _mm512_set1_epi32(0xE0)),
          _mm512_or_si512(
              _mm512_slli_epi32(
                  _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(u, 6), low6), cont), 8),
              _mm512_slli_epi32(last, 8)));
      __mmask16 const one = _mm512_cmplt_epu32_mask(u, _mm512_set1_epi32(0x80));
      __mmask16 const twoBytes =
          _mm512_cmplt_epu32_mask(u, _mm512_set1_epi32(0x800)) & static_cast<__mmask16>(~one);
      __m512i const value =
          _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(three, twoBytes, two), one, u);
      __m512i const width = _mm512_mask_mov_epi32(
          _mm512_mask_mov_epi32(_mm512_set1_epi32(0xFFFFFF), twoBytes, _mm512_set1_epi32(0xFFFF)),
          one, _mm512_set1_epi32(0xFF));
      __mmask64 const bytes = _mm512_test_epi8_mask(width, width);
      unsigned const written = static_cast<unsigned>(_mm_popcnt_u64(bytes));
      _mm512_mask_storeu_epi8(d + o, _below(written), _mm512_maskz_compress_epi8(bytes, value));
      o += written;
    }
    i += 32;
  }
  return {i, o};
}

#else

std::size_t _countUTF8Vec(unsigned char const *, std::size_t, bool, std::uint64_t &) {
  return 0;
}
_VecStep _decodeUTF8Vec(unsigned char const *, std::size_t, void *) {
  return {0, 0};
}
std::size_t _countWideVec(void const *, std::size_t, bool, std::uint64_t &) {
  return 0;
}
_VecStep _encodeWideVec(void const *, std::size_t, unsigned char *) {
  return {0, 0};
}

#endif

} // namespace VORX::String::Codec
