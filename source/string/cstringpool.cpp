// The process-wide string pool: measuring and hashing of texts, the two tables over the records
// (case-sensitive, owning; case-insensitive, grouping), interning, lookup, ageing by the
// maintenance thread, and the static records every pooled string starts from.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/lookup.h>
#include <vorx/string.h>
#include <vorx/threading.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>

#include "buffers/block_arena.h"
#include "buffers/crc64.h"
#include "buffers/crc_fold.h"
#include "core/cpu.h"
#include "string/pool_batch.h"
#include "string/pool_record.h"
#include "threading/critical_section.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

// Under the sanitizers every read stays inside the text; otherwise the scans read whole aligned
// 16-byte blocks, which never cross a page, as the C library's string scans do, and a short UTF-8
// text is read in 8-byte pieces that may pass its end but not the page of its last byte.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VORX_POOL_EXACT_READS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
#define VORX_POOL_EXACT_READS 1
#endif
#endif

static_assert(std::endian::native == std::endian::little,
              "the hashes feed each character's low byte first, as it lies in memory");

namespace VORX::String {

using Buffers::CPObjectMemory;
using Buffers::CPOMVector;
using Buffers::tagCPOMEMHEADER;

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};
constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);
constexpr std::uint64_t kCompareUnits = 10;

// ---- measuring and hashing ----

constexpr std::size_t kChunk = 64;

// A limit of this many units or more cannot be reached before the terminator.
constexpr std::uint64_t kUnbounded = std::uint64_t{1} << 59;

// UTF-8 texts of ASCII alone up to this many bytes are widened on the stack and hashed there.
constexpr std::size_t kShortUTF8 = 128;

// The lower case of the ASCII characters.
constexpr auto kAsciiLower = [] {
  std::array<qefWChar, 128> table{};
  for (unsigned c = 0; c < 128; ++c) {
    table[c] = static_cast<qefWChar>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  }
  return table;
}();
static_assert(kAsciiLower.size() == 128 && kAsciiLower['Q'] == u'q');

// Both hashes, fed a chunk at a time through the CRC calculator. While no character has changed
// under lowering, the two are equal and the lowered chunk need not be fed a second time.
class _cHashes {
public:
  // Feeds `count` units of `exact` and of its lowered form `lower`; `changed` says whether they
  // differ anywhere.
  void Feed(void const * exact, qefWChar const * lower, std::size_t count, bool changed) {
    bool const same = m.sHash == m.sHashi;
    m.sHash = m_crc.Eval(exact, count * sizeof(qefWChar), m.sHash);
    m.sHashi = same && !changed ? m.sHash : m_crc.Eval(lower, count * sizeof(qefWChar), m.sHashi);
  }

  _tagMeasure m;

private:
  Buffers::CMachineCRC const & m_crc = Buffers::_crc64();
};

// Characters given one at a time (from UTF-8), gathered into chunks.
class _cHasher {
public:
  // An ASCII character.
  void AddAscii(unsigned char c) {
    m_hashes.m.length += 1;
    m_hashes.m.utf8Size += 1;
    qefWChar const lower = kAsciiLower[c];
    m_exact[m_count] = c;
    m_lower[m_count] = lower;
    m_changed |= lower != c;
    if (++m_count == kChunk) {
      Flush();
    }
  }
  void Add(std::uint32_t c) {
    m_hashes.m.length += c < 0x10000 ? 1 : 2;
    m_hashes.m.utf8Size += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    qefWChar const unit = static_cast<qefWChar>(c);
    qefWChar const lower = c < 0x10000 ? _lowerUnit(unit) : unit;
    m_exact[m_count] = unit;
    m_lower[m_count] = lower;
    m_changed |= lower != unit;
    if (++m_count == kChunk) {
      Flush();
    }
  }
  void Flush() {
    m_hashes.Feed(m_exact, m_lower, m_count, m_changed);
    m_count = 0;
    m_changed = false;
  }
  _tagMeasure const & Result() const { return m_hashes.m; }

private:
  _cHashes m_hashes;
  qefWChar m_exact[kChunk];
  qefWChar m_lower[kChunk];
  std::size_t m_count = 0;
  bool m_changed = false;
};

// The case-insensitive hash of `length` ASCII units.
template <class U> std::uint64_t _hashLowered(U const * p, std::uint64_t length) {
  Buffers::CMachineCRC const & crc = Buffers::_crc64();
  qefWChar lower[kChunk];
  std::uint64_t h = 0;
  for (std::uint64_t at = 0; at < length; at += kChunk) {
    std::size_t const k = static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, length - at));
    for (std::size_t j = 0; j < k; ++j) {
      lower[j] = kAsciiLower[p[at + j]];
    }
    h = crc.Eval(lower, k * sizeof(qefWChar), h);
  }
  return h;
}

// Both hashes of `length` ASCII units; `upper` says whether any is an upper-case letter (else
// the lowered text is the text, and so is its hash).
template <class U> void _hashAscii(U const * p, std::uint64_t length, bool upper, _tagMeasure & m) {
  m.length = length;
  m.utf8Size = length;
  m.sHash = Buffers::_crc64().Eval(p, length * sizeof(U), 0);
  m.sHashi = upper ? _hashLowered(p, length) : m.sHash;
}

// Whether the 16-bit text (at most `n` units, up to its terminator) is ASCII alone; if so,
// `units` receives its length and `upper` whether it has an upper-case letter.
template <class U>
bool _scanAscii(U const * p, std::uint64_t n, std::uint64_t & units, bool & upper) {
#if defined(__x86_64__) && !defined(VORX_POOL_EXACT_READS)
  std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(p);
  if ((address & 1) == 0) {
    // Eight units per aligned block; the bytes of the first block before the text and of the
    // last after its end are masked off.
    unsigned char const * block =
        reinterpret_cast<unsigned char const *>(address & ~std::uintptr_t{15});
    std::int64_t at = -static_cast<std::int64_t>(address & 15); // of the block, from the text
    std::int64_t const end =
        static_cast<std::int64_t>(std::min<std::uint64_t>(n, std::uint64_t{1} << 60) * 2);
    unsigned mask = (0xFFFFu << (address & 15)) & 0xFFFFu;
    __m128i const zero = _mm_setzero_si128();
    __m128i const high = _mm_set1_epi16(static_cast<short>(0xFF80));
    __m128i const belowA = _mm_set1_epi16('A' - 1);
    __m128i const aboveZ = _mm_set1_epi16('Z' + 1);
    unsigned upperBits = 0;
    for (;; block += 16, at += 16, mask = 0xFFFFu) {
      __m128i const v = _mm_load_si128(reinterpret_cast<__m128i const *>(block));
      unsigned const terminators =
          static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, zero))) & mask;
      unsigned const wide =
          ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, high), zero))) &
          mask;
      unsigned const letters = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(
                                   _mm_cmpgt_epi16(v, belowA), _mm_cmpgt_epi16(aboveZ, v)))) &
                               mask;
      std::int64_t stop = terminators ? std::countr_zero(terminators) : 16;
      bool const last = terminators != 0 || end - at <= 16;
      stop = std::min(stop, end - at);
      unsigned const inside = stop >= 16 ? mask : mask & ((1u << stop) - 1);
      if (wide & inside) {
        return false;
      }
      upperBits |= letters & inside;
      if (last) {
        units = static_cast<std::uint64_t>(at + stop) / 2;
        upper = upperBits != 0;
        return true;
      }
    }
  }
#endif
  std::uint64_t i = 0;
  unsigned seen = 0;
  bool letters = false;
  for (; i < n; ++i) {
    unsigned const c = p[i];
    if (c == 0) {
      break;
    }
    seen |= c;
    letters |= c - u'A' < 26u;
  }
  units = i;
  upper = letters;
  return seen < 0x80;
}

// As `_scanAscii` for bytes: whether the text (at most `n` bytes, up to its terminator) is
// ASCII alone, with its length and whether it has an upper-case letter.
inline bool _scanAsciiBytes(unsigned char const * p, std::uint64_t n, std::uint64_t & units,
                            bool & upper) {
#if defined(__x86_64__) && !defined(VORX_POOL_EXACT_READS)
  std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(p);
  unsigned char const * block =
      reinterpret_cast<unsigned char const *>(address & ~std::uintptr_t{15});
  std::int64_t at = -static_cast<std::int64_t>(address & 15);
  std::int64_t const end =
      static_cast<std::int64_t>(std::min<std::uint64_t>(n, std::uint64_t{1} << 60));
  unsigned mask = (0xFFFFu << (address & 15)) & 0xFFFFu;
  __m128i const zero = _mm_setzero_si128();
  __m128i const belowA = _mm_set1_epi8('A' - 1);
  __m128i const aboveZ = _mm_set1_epi8('Z' + 1);
  unsigned upperBits = 0;
  for (;; block += 16, at += 16, mask = 0xFFFFu) {
    __m128i const v = _mm_load_si128(reinterpret_cast<__m128i const *>(block));
    unsigned const terminators =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero))) & mask;
    unsigned const wide = static_cast<unsigned>(_mm_movemask_epi8(v)) & mask;
    unsigned const letters = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(
                                 _mm_cmpgt_epi8(v, belowA), _mm_cmpgt_epi8(aboveZ, v)))) &
                             mask;
    std::int64_t stop = terminators ? std::countr_zero(terminators) : 16;
    bool const last = terminators != 0 || end - at <= 16;
    stop = std::min(stop, end - at);
    unsigned const inside = stop >= 16 ? mask : mask & ((1u << stop) - 1);
    if (wide & inside) {
      return false;
    }
    upperBits |= letters & inside;
    if (last) {
      units = static_cast<std::uint64_t>(at + stop);
      upper = upperBits != 0;
      return true;
    }
  }
#else
  std::uint64_t i = 0;
  unsigned seen = 0;
  bool letters = false;
  for (; i < n; ++i) {
    unsigned const c = p[i];
    if (c == 0) {
      break;
    }
    seen |= c;
    letters |= c - 'A' < 26u;
  }
  units = i;
  upper = letters;
  return seen < 0x80;
#endif
}

#if defined(__x86_64__) && !defined(VORX_POOL_EXACT_READS)

// The measure of a text of ASCII alone, stored in two 16-byte pieces: the caller copies the
// measure at once, in such pieces, and a piece read from two separate stores would wait for them
// to reach the cache.
inline void _storeMeasure(_tagMeasure & m, std::uint64_t length, std::uint64_t hash,
                          std::uint64_t hashi) {
  static_assert(offsetof(_tagMeasure, utf8Size) == 8 && offsetof(_tagMeasure, sHashi) == 24);
  _mm_storeu_si128(reinterpret_cast<__m128i *>(&m.length),
                   _mm_set_epi64x(static_cast<long long>(length), static_cast<long long>(length)));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(&m.sHash),
                   _mm_set_epi64x(static_cast<long long>(hashi), static_cast<long long>(hash)));
}

// The library's CRC-64 of folded data, as `_crcReduce` and the table's eight-byte step give it,
// with the step done by Barrett reduction instead: two multiplications rather than eight table
// reads, which a look-up among many texts finds outside the first-level cache.
VORX_CLMUL std::uint64_t _crcFinish(__m128i folded, __m128i k128) {
  // x^64 modulo the polynomial is the polynomial's low 64 bits; mu is x^128 divided by it,
  // without its x^64 term.
  static __m128i const constants = [] {
    std::uint64_t const p = Buffers::_cCRCTables::Fold(Buffers::_crc64())[1];
    std::uint64_t r = p;
    std::uint64_t mu = 0;
    for (int i = 63; i >= 0; --i) {
      bool const top = (r >> 63) != 0;
      r <<= 1;
      if (top) {
        mu |= std::uint64_t{1} << i;
        r ^= p;
      }
    }
    return _mm_set_epi64x(static_cast<long long>(p), static_cast<long long>(mu));
  }();
  std::uint64_t rest[2];
  Buffers::_crcReduce(folded, k128, rest);
  // rest[0] times x^64 modulo the polynomial: the quotient is rest[0] plus the high half of
  // rest[0] times mu, the remainder the low half of the quotient times the polynomial.
  __m128i const w = _mm_cvtsi64_si128(static_cast<long long>(rest[0]));
  __m128i const high = _mm_srli_si128(_mm_clmulepi64_si128(w, constants, 0x00), 8);
  __m128i const quotient = _mm_xor_si128(high, w);
  __m128i const remainder = _mm_clmulepi64_si128(quotient, constants, 0x10);
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(remainder)) ^ rest[1];
}

// A 16-bit text of ASCII alone of at least eight units that starts on a 16-byte boundary, scanned
// and hashed in one pass: each aligned block (which never crosses a page) is tested for the
// terminator, for units from 0x80 and for capitals, and folded into the CRC-64 as it is read.
// False, with nothing measured, for any other text.
template <class U>
VORX_CLMUL bool _scanHashAligned(U const * p, _tagMeasure & m, std::uint64_t & units) {
  Buffers::CMachineCRC const & crc = Buffers::_crc64();
  __m128i const k128 = Buffers::_crcConstants(Buffers::_cCRCTables::Fold(crc), 128);
  __m128i const reversed = Buffers::_crcReversed();
  __m128i const zero = _mm_setzero_si128();
  __m128i const high = _mm_set1_epi16(static_cast<short>(0xFF80));
  __m128i const belowA = _mm_set1_epi16('A' - 1);
  __m128i const aboveZ = _mm_set1_epi16('Z' + 1);
  unsigned char const * const start = reinterpret_cast<unsigned char const *>(p);
  __m128i folded = zero;
  unsigned upperBits = 0;
  for (unsigned char const * block = start;; block += 16) {
    __m128i const v = _mm_load_si128(reinterpret_cast<__m128i const *>(block));
    unsigned const terminators = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, zero)));
    unsigned const wide =
        ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, high), zero))) &
        0xFFFFu;
    unsigned const letters = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpgt_epi16(v, belowA), _mm_cmpgt_epi16(aboveZ, v))));
    if (terminators == 0) {
      if (wide != 0) {
        return false;
      }
      upperBits |= letters;
      folded = _mm_xor_si128(Buffers::_crcTimes(folded, k128), _mm_shuffle_epi8(v, reversed));
      continue;
    }
    unsigned const stop = static_cast<unsigned>(std::countr_zero(terminators));
    unsigned const inside = (1u << stop) - 1;
    std::size_t const bytes = static_cast<std::size_t>(block - start) + stop;
    if ((wide & inside) != 0 || bytes < 16) {
      return false;
    }
    folded = Buffers::_crcAppendLast(folded, start + bytes, stop, k128);
    std::uint64_t const hash = _crcFinish(folded, k128);
    units = bytes / 2;
    upperBits |= letters & inside;
    std::uint64_t const hashi = upperBits != 0 ? _hashLowered(p, units) : hash;
    _storeMeasure(m, units, hash, hashi);
    return true;
  }
}

// Loaded from `8 - k`, eight bytes whose first k are all ones, the others zero.
constexpr std::array<unsigned char, 16> kLeadingBytes = {0xFF, 0xFF, 0xFF, 0xFF,
                                                         0xFF, 0xFF, 0xFF, 0xFF};

// A UTF-8 text of ASCII alone of 8 to `kShortUTF8` bytes (at most `n`, up to its terminator),
// widened to 16-bit units in registers and hashed as those units in the same pass, as
// `_scanHashAligned` hashes them. The units go to `wide` (16-byte aligned, room for `kShortUTF8`
// plus 8 units). The text is read eight bytes at a time, past its end only inside the page of its
// last byte. False, with nothing measured, for any other text.
VORX_CLMUL bool _scanHashBytes(unsigned char const * p, std::uint64_t n, qefWChar * wide,
                               _tagMeasure & m) {
  Buffers::CMachineCRC const & crc = Buffers::_crc64();
  __m128i const k128 = Buffers::_crcConstants(Buffers::_cCRCTables::Fold(crc), 128);
  __m128i const reversed = Buffers::_crcReversed();
  __m128i const zero = _mm_setzero_si128();
  __m128i const belowA = _mm_set1_epi8('A' - 1);
  __m128i const aboveZ = _mm_set1_epi8('Z' + 1);
  __m128i folded = zero;
  __m128i previous = zero; // the units of the last whole block
  unsigned upperBits = 0;
  for (std::uint64_t at = 0;; at += 8) {
    if (at >= kShortUTF8 && at != n) {
      return false;
    }
    // Below `n`, p[at] is a byte of the text or its terminator, so readable; at `n` nothing is.
    unsigned char const * piece = p + at;
    __m128i v = zero;
    if (at < n) {
      if ((reinterpret_cast<std::uintptr_t>(piece) & 4095) <= 4096 - 8) {
        v = _mm_loadl_epi64(reinterpret_cast<__m128i const *>(piece));
      } else {
        alignas(16) unsigned char rest[16] = {};
        for (std::size_t i = 0; i < 8 && at + i < n && piece[i] != 0; ++i) {
          rest[i] = piece[i];
        }
        v = _mm_load_si128(reinterpret_cast<__m128i const *>(rest));
      }
    }
    unsigned ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero))) & 0xFFu;
    if (n - at < 8) {
      ends |= 0xFFu << (n - at); // no byte from `n` on belongs to the text
    }
    unsigned const stop = ends != 0 ? static_cast<unsigned>(std::countr_zero(ends)) : 8;
    unsigned const inside = (1u << stop) - 1;
    if ((static_cast<unsigned>(_mm_movemask_epi8(v)) & inside) != 0) {
      return false;
    }
    upperBits |= static_cast<unsigned>(_mm_movemask_epi8(
                     _mm_and_si128(_mm_cmpgt_epi8(v, belowA), _mm_cmpgt_epi8(aboveZ, v)))) &
                 inside;
    __m128i const keep =
        _mm_loadl_epi64(reinterpret_cast<__m128i const *>(&kLeadingBytes[8 - stop]));
    __m128i const units = _mm_unpacklo_epi8(_mm_and_si128(v, keep), zero);
    _mm_store_si128(reinterpret_cast<__m128i *>(wide + at), units);
    if (stop == 8) {
      folded = _mm_xor_si128(Buffers::_crcTimes(folded, k128), _mm_shuffle_epi8(units, reversed));
      previous = units;
      continue;
    }
    std::uint64_t const length = at + stop;
    if (length < 8) {
      return false;
    }
    if (stop != 0) {
      // The 16 bytes that end the text: the last of the previous block, then the new ones.
      std::size_t const r = 2 * stop;
      __m128i const fromPrevious = _mm_shuffle_epi8(
          previous,
          _mm_loadu_si128(reinterpret_cast<__m128i const *>(Buffers::kCrcShift + 16 + r)));
      __m128i const fromNew = _mm_shuffle_epi8(
          units, _mm_loadu_si128(reinterpret_cast<__m128i const *>(Buffers::kCrcShift + r)));
      __m128i const last = _mm_or_si128(fromPrevious, fromNew);
      folded = Buffers::_crcAppendLastBlock(folded, _mm_shuffle_epi8(last, reversed), r, k128);
    } else {
      _mm_store_si128(reinterpret_cast<__m128i *>(wide + at), zero);
    }
    std::uint64_t const hash = _crcFinish(folded, k128);
    std::uint64_t const hashi = upperBits != 0 ? _hashLowered(wide, length) : hash;
    _storeMeasure(m, length, hash, hashi);
    return true;
  }
}

#endif

// `_scanHashAligned` where it can run (the text aligned as it asks); false where it cannot.
template <class U> bool _measureAligned(U const * p, _tagMeasure & m, std::uint64_t & units) {
#if defined(__x86_64__) && !defined(VORX_POOL_EXACT_READS)
  return (reinterpret_cast<std::uintptr_t>(p) & 15) == 0 && _cpuHas(_CpuCode::Clmul) &&
         _scanHashAligned(p, m, units);
#else
  (void)p, (void)m, (void)units;
  return false;
#endif
}

// 16-bit text: a text of ASCII alone is hashed where it lies in one piece; otherwise runs
// without surrogates are hashed where they lie, pairs one at a time.
template <class U>
bool _measure16(U const * p, std::uint64_t n, _tagMeasure & m, std::uint64_t & units) {
  if (n >= kUnbounded && _measureAligned(p, m, units)) {
    return true;
  }
  {
    std::uint64_t length = 0;
    bool upper = false;
    if (_scanAscii(p, n, length, upper)) {
      _hashAscii(p, length, upper, m);
      units = length;
      return true;
    }
  }
  _cHashes h;
  qefWChar lower[kChunk];
  std::uint64_t i = 0;
  for (;;) {
    std::uint64_t const start = i;
    std::size_t k = 0;
    bool changed = false;
    std::uint64_t utf8 = 0;
    for (; k < kChunk && i < n; ++k, ++i) {
      unsigned const c = p[i];
      // One test for the terminator and the surrogates (0 wraps round).
      if (c - 1u >= 0xD7FFu && c <= 0xDFFFu) {
        break;
      }
      qefWChar const l = c < 0x80 ? kAsciiLower[c] : wctolower(static_cast<qefWChar>(c));
      lower[k] = l;
      changed |= l != c;
      utf8 += 1u + (c >= 0x80) + (c >= 0x800);
    }
    if (k > 0) {
      h.Feed(p + start, lower, k, changed);
      h.m.length += k;
      h.m.utf8Size += utf8;
    }
    if (k == kChunk) {
      continue;
    }
    if (i >= n || p[i] == 0) {
      break;
    }
    // A surrogate: a pair counts one character of value 0 or 1 (see `qefW_qefW32`).
    if (p[i] >= 0xDC00) {
      return false;
    }
    if (n - i < 2) {
      break;
    }
    qefWChar const pair[2] = {static_cast<qefWChar>(p[i]), static_cast<qefWChar>(p[i + 1])};
    qefWChar const * q = pair;
    std::uint32_t c = 0;
    if (!qefW_qefW32(&c, q)) {
      return false;
    }
    qefWChar const unit = static_cast<qefWChar>(c);
    h.Feed(&unit, &unit, 1, false);
    h.m.length += 1;
    h.m.utf8Size += 1;
    i += static_cast<std::uint64_t>(q - pair);
  }
  m = h.m;
  units = i;
  return true;
}

} // namespace

bool _measureWide(qefWChar const * text, std::uint64_t n, _tagMeasure & m, std::uint64_t & units) {
  return _measure16(text, n, m, units);
}

bool _measureUnits(std::uint16_t const * text, std::uint64_t n, _tagMeasure & m,
                   std::uint64_t & units) {
  return _measure16(text, n, m, units);
}

bool _measureUTF8(unsigned char const * p, std::uint64_t n, _tagMeasure & m,
                  std::uint64_t & bytes) {
  _cHasher h;
  std::uint64_t i = 0;
  while (i < n && p[i] != 0) {
    unsigned char const lead = p[i];
    if (lead < 0x80) {
      h.AddAscii(lead);
      ++i;
      continue;
    }
    std::uint64_t const need = UTF8Len(lead);
    if (need == 0) {
      return false;
    }
    if (n - i < need) {
      break;
    }
    unsigned char const * q = p + i;
    std::uint32_t c = 0;
    if (!utf8_qefW32(&c, q) || c > 0x10FFFF) {
      return false;
    }
    h.Add(c);
    i += static_cast<std::uint64_t>(q - (p + i));
  }
  h.Flush();
  m = h.Result();
  bytes = i;
  return true;
}

// ---- record blocks ----

namespace {

void _recordCreate(void *, std::size_t) {}

// Frees the UTF-8 copy with the record.
void _recordFinalize(void * payload, std::size_t) {
  tagPOOLSTRING * record = static_cast<tagPOOLSTRING *>(payload);
  Core::OS::_ffree(_utf8Slot(record).exchange(nullptr));
}

unsigned char g_emptyUTF8[1] = {0};
unsigned char g_trueUTF8[5] = {'t', 'r', 'u', 'e', 0};
unsigned char g_falseUTF8[6] = {'f', 'a', 'l', 's', 'e', 0};

constexpr std::size_t kStaticSize = sizeof(tagPOOLSTRING) + 8 * sizeof(qefWChar);

} // namespace

Buffers::tagCPOVTABL const CPPoolString::_vtbl = {&_recordCreate, nullptr, &_recordFinalize,
                                                  &CPObjectMemory::_nointerface};

constinit tagPOOLSTRINGSTATIC CPPoolString::_sNull = {
    {0, 0, kStaticSize, kStaticSize, &CPPoolString::_vtbl},
    {0, 0, 0, kAllOnes, kAllOnes, CPPoolString::_sNull.text, g_emptyUTF8},
    {}};
constinit tagPOOLSTRINGSTATIC CPPoolString::_sEmpty = {
    {0, 0, kStaticSize, kStaticSize, &CPPoolString::_vtbl},
    {0, 0, 0, 0, 0, CPPoolString::_sEmpty.text, g_emptyUTF8},
    {}};

namespace {

constinit tagPOOLSTRINGSTATIC g_true = {{0, 0, kStaticSize, kStaticSize, &CPPoolString::_vtbl},
                                        {0, 0, 0, 0, 0, g_true.text, g_trueUTF8},
                                        {u't', u'r', u'u', u'e'}};
constinit tagPOOLSTRINGSTATIC g_false = {{0, 0, kStaticSize, kStaticSize, &CPPoolString::_vtbl},
                                         {0, 0, 0, 0, 0, g_false.text, g_falseUTF8},
                                         {u'f', u'a', u'l', u's', u'e'}};

// Measures the "true" and "false" records at load.
bool _measureStatic(tagPOOLSTRINGSTATIC & s) {
  _tagMeasure m;
  std::uint64_t units = 0;
  if (!_measureWide(s.text, kAllOnes, m, units)) {
    return false;
  }
  s.record.length = m.length;
  s.record.utf8Size = m.utf8Size;
  s.record.sHash = m.sHash;
  s.record.sHashi = m.sHashi;
  return true;
}

bool const g_staticsMeasured = _measureStatic(g_true) && _measureStatic(g_false);

} // namespace

CPPoolString const CPPoolString::pnull;
CPPoolString const CPPoolString::pempty =
    _cRecordAccess::Adopt(_cRecordAccess::Wrap(&_sEmpty.header));
CPPoolString const CPPoolString::ptrue =
    _cRecordAccess::Adopt(_cRecordAccess::Wrap(&g_true.header));
CPPoolString const CPPoolString::pfalse =
    _cRecordAccess::Adopt(_cRecordAccess::Wrap(&g_false.header));

CPPoolString::CPPoolString(bool value) noexcept {
  m_pMH = value ? &g_true.header : &g_false.header;
}

CPPoolString & CPPoolString::operator=(bool value) noexcept {
  free();
  m_pMH = value ? &g_true.header : &g_false.header;
  return *this;
}

CPObjectMemory _cRecordAccess::NewRecord(std::uint64_t units, Buffers::_CBlockArena * arena) {
  _cRecordAccess block;
  if (units >= kMaxRecordUnits) {
    return CPObjectMemory();
  }
  std::size_t const bytes = sizeof(tagPOOLSTRING) + (units + 1) * sizeof(qefWChar);
  if (arena != nullptr ? !arena->Alloc(block, bytes, &CPPoolString::_vtbl)
                       : !block.Alloc(bytes, &CPPoolString::_vtbl)) {
    return CPObjectMemory();
  }
  tagPOOLSTRING * record = Record(block);
  *record = tagPOOLSTRING{0, 0, 0, 0, 0, _recordText(record), nullptr};
  return CPObjectMemory(std::move(block));
}

void _cRecordAccess::SetRecordSize(CPObjectMemory const & h, std::uint64_t units) {
  Header(h)->sSize = sizeof(tagPOOLSTRING) + (units + 1) * sizeof(qefWChar);
}

// ---- the tables ----

namespace {

tagPOOLSTRING const * _rec(CPObjectMemory const & h) {
  return _cRecordAccess::Record(h);
}

// The first record of a group vector; null for an empty one.
tagPOOLSTRING const * _first(CPObjectMemory const & group) {
  tagCPOMEMHEADER const * header = _cRecordAccess::Header(group);
  if (!header || header->sSize < sizeof(CPObjectMemory)) {
    return nullptr;
  }
  CPObjectMemory const * items = reinterpret_cast<CPObjectMemory const *>(header + 1);
  return _cRecordAccess::Header(items[0]) ? _rec(items[0]) : nullptr;
}

// Order of two records of equal case-insensitive hash ignoring case: by length, then the first
// ten characters lowered where they differ.
int _compareIgnoringCase(tagPOOLSTRING const * a, tagPOOLSTRING const * b) {
  if (a->length != b->length) {
    return a->length < b->length ? -1 : 1;
  }
  if (a->text == b->text) {
    return 0;
  }
  if (!a->text) {
    return 1;
  }
  if (!b->text) {
    return -1;
  }
  std::uint64_t const n = std::min(a->length, kCompareUnits);
  for (std::uint64_t i = 0; i < n; ++i) {
    qefWChar const x = a->text[i];
    qefWChar const y = b->text[i];
    if (x == y) {
      continue;
    }
    qefWChar const lx = wctolower(x);
    qefWChar const ly = wctolower(y);
    if (lx != ly) {
      return lx < ly ? -1 : 1;
    }
  }
  return 0;
}

// Whether the first `n` units of two texts agree, four at a time.
inline bool _sameUnits(qefWChar const * a, qefWChar const * b, std::uint64_t n) {
  std::uint64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    std::uint64_t x;
    std::uint64_t y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    if (x != y) {
      return false;
    }
  }
  for (; i < n; ++i) {
    if (a[i] != b[i]) {
      return false;
    }
  }
  return true;
}

// A table of the pool: the hash table with searches of many hashes made together.
class _CPoolTable : public Lookup::CBaseHashTable {
public:
  using CBaseHashTable::CBaseHashTable;

  // The most hashes `LocateTogether` takes.
  static constexpr std::size_t kTogether = 64;

  // Where a hash lies in its slot: the slot's entries (null for an empty slot), their count, and
  // the first entry whose hash is not below it.
  struct tagPLACE {
    Lookup::tagHASHENTRY const * entries;
    std::size_t size;
    std::size_t at;
  };

  // Where each of `hashes` lies in its slot (the lock is held). The searches take the same steps
  // as the table's own and advance together, each step asking for the entry the next one reads,
  // so that their reads overlap instead of waiting one after another; a search the table makes
  // afterwards for one of these hashes finds what it reads at hand. At most `kTogether` hashes.
  [[gnu::noinline]] void LocateTogether(std::uint64_t const * hashes, std::size_t count,
                                        tagPLACE * places) {
    tagCPOMEMHEADER const * slots[kTogether];
    std::size_t high[kTogether];
    for (std::size_t i = 0; i < count; ++i) {
      slots[i] = _slot(hashes[i]);
      if (slots[i]) {
        __builtin_prefetch(slots[i]);
      }
    }
    // Against the first and the last entry, as the table's search begins.
    for (std::size_t i = 0; i < count; ++i) {
      tagPLACE & p = places[i];
      p = {nullptr, 0, 0};
      if (slots[i] && slots[i]->sSize >= sizeof(Lookup::tagHASHENTRY)) {
        p.entries = reinterpret_cast<Lookup::tagHASHENTRY const *>(slots[i] + 1);
        p.size = slots[i]->sSize / sizeof(Lookup::tagHASHENTRY);
        __builtin_prefetch(p.entries);
        __builtin_prefetch(p.entries + p.size - 1);
        __builtin_prefetch(p.entries + (p.size - 1) / 2);
      }
    }
    for (std::size_t i = 0; i < count; ++i) {
      tagPLACE & p = places[i];
      high[i] = 0;
      if (p.size != 0 && hashes[i] > p.entries[0].hash) {
        if (hashes[i] > p.entries[p.size - 1].hash) {
          p.at = high[i] = p.size; // beyond the last entry: nothing to halve
        } else {
          high[i] = p.size - 1;
        }
      }
    }
    // Then by halving: entries[at] below the hash, entries[high] at or above it.
    for (bool active = true; active;) {
      active = false;
      for (std::size_t i = 0; i < count; ++i) {
        tagPLACE & p = places[i];
        if (high[i] - p.at > 1) {
          std::size_t const mid = (p.at + high[i]) / 2;
          if (hashes[i] > p.entries[mid].hash) {
            p.at = mid;
          } else {
            high[i] = mid;
          }
          if (high[i] - p.at > 1) {
            __builtin_prefetch(p.entries + (p.at + high[i]) / 2);
            active = true;
          }
        }
      }
    }
    for (std::size_t i = 0; i < count; ++i) {
      places[i].at = high[i];
    }
  }

protected:
  // The vector of the slot `hash` falls in; null when the slot or the table has none.
  tagCPOMEMHEADER const * _slot(std::uint64_t hash) const {
    tagCPOMEMHEADER const * const slots = _cRecordAccess::Header(m_slots);
    if (!slots) {
      return nullptr;
    }
    return _cRecordAccess::Header(
        reinterpret_cast<CPObjectMemory const *>(slots + 1)[hash & m_mask]);
  }
};

// The case-insensitive index: key sHashi, item a vector of the records equal ignoring case, in
// order of creation; each element holds one reference.
class CCaseInsensitiveHash final : public _CPoolTable {
public:
  CCaseInsensitiveHash() : _CPoolTable(12) {}
  using CBaseHashTable::AddItem;
  using CBaseHashTable::DeleteItem;
  using CBaseHashTable::EnumTableBy;
  using CBaseHashTable::FindItem;
  using CBaseHashTable::PurgeTable;

protected:
  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    tagPOOLSTRING const * ra = _first(a);
    tagPOOLSTRING const * rb = _first(b);
    if (!ra || !rb) {
      return ra ? 1 : rb ? -1 : 0;
    }
    return _compareIgnoringCase(ra, rb);
  }
};

// A one-element group vector on the stack around `record`, to look a group up without
// allocating. Not counted: handles to it never free it.
struct _tagGroupProbe {
  explicit _tagGroupProbe(CPObjectMemory const & record)
      : header{0, 0, sizeof(CPObjectMemory), sizeof(CPObjectMemory),
               &Buffers::CPObjectVector<CPObjectMemory>::_vtbl},
        element(_cRecordAccess::Wrap(_cRecordAccess::Header(record))) {}
  CPObjectMemory Handle() { return _cRecordAccess::Wrap(&header); }

  tagCPOMEMHEADER header;
  CPObjectMemory element; // a second handle on the same block, uncounted
  _tagGroupProbe(_tagGroupProbe const &) = delete;
  _tagGroupProbe & operator=(_tagGroupProbe const &) = delete;
  ~_tagGroupProbe() { _cRecordAccess::Header(element) = nullptr; }
};
static_assert(offsetof(_tagGroupProbe, element) == sizeof(tagCPOMEMHEADER));

// The case-sensitive index: key sHash, item the record; it owns the records and ages them.
class CCaseSensitiveHash final : public _CPoolTable {
public:
  explicit CCaseSensitiveHash(CCaseInsensitiveHash * groups) : _CPoolTable(12), m_groups(groups) {}
  ~CCaseSensitiveHash() override;
  using CBaseHashTable::AddItem;
  using CBaseHashTable::DisposeTable;
  using CBaseHashTable::EnumTableBy;
  using CBaseHashTable::FindItem;
  using CBaseHashTable::PurgeTable;

  // Starts an ageing pass: no slot has been copied by a removal yet.
  void BeginPass() { m_copiedSlot = kNoSlot; }

  // `FindRecord` for `count` probes at once (the lock is held): `found[i]` becomes what
  // `FindRecord(hashes[i], probes[i])` gives. The searches are made together (see
  // `LocateTogether`), and the records compared last are asked for the same way. At most
  // `kTogether` probes.
  void FindRecords(std::uint64_t const * hashes, CPObjectMemory const * probes, std::size_t count,
                   CPObjectMemory * found) {
    tagPLACE places[kTogether];
    LocateTogether(hashes, count, places);
    for (std::size_t i = 0; i < count; ++i) {
      tagPLACE const & p = places[i];
      if (p.at < p.size && p.entries[p.at].hash == hashes[i]) {
        if (tagCPOMEMHEADER const * const record = _cRecordAccess::Header(p.entries[p.at].item)) {
          // The hashes and length the comparison reads first, and the text behind them.
          __builtin_prefetch(reinterpret_cast<unsigned char const *>(record + 1) + 16);
          __builtin_prefetch(reinterpret_cast<unsigned char const *>(record + 1) + 64);
        }
      }
    }
    // Entries of one hash are in the table's order: the one equal to the probe, if any, is among
    // them, and an empty item ends the search as in `FindRecord`.
    for (std::size_t i = 0; i < count; ++i) {
      tagPLACE const & p = places[i];
      found[i] = CPObjectMemory();
      for (std::size_t at = p.at; at < p.size && p.entries[at].hash == hashes[i]; ++at) {
        CPObjectMemory const & item = p.entries[at].item;
        if (!item) {
          break;
        }
        if (item == probes[i] || CCaseSensitiveHash::compare(probes[i], item) == 0) {
          found[i] = item;
          break;
        }
      }
    }
  }

  // `FindItem` for the look-up of a text: a short slot (the usual case) is searched here with
  // this table's ordering called directly, a longer one by `FindItem`. The same entry results.
  CPObjectMemory FindRecord(std::uint64_t hash, CPObjectMemory const & probe) {
    tagCPOMEMHEADER const * const slot = _slot(hash);
    if (!slot) {
      return CPObjectMemory();
    }
    std::size_t const count = slot->sSize / sizeof(Lookup::tagHASHENTRY);
    if (count > kShortSlot) {
      return FindItem(hash, probe);
    }
    auto const * entries = reinterpret_cast<Lookup::tagHASHENTRY const *>(slot + 1);
    for (std::size_t i = 0; i < count; ++i) {
      if (entries[i].hash != hash) {
        if (entries[i].hash > hash) {
          break;
        }
        continue;
      }
      int const order = !entries[i].item || entries[i].item == probe
                            ? 0
                            : CCaseSensitiveHash::compare(probe, entries[i].item);
      if (order <= 0) {
        return order == 0 ? entries[i].item : CPObjectMemory();
      }
    }
    return CPObjectMemory();
  }

protected:
  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    tagPOOLSTRING const * ra = _rec(a);
    tagPOOLSTRING const * rb = _rec(b);
    if (ra->sHash != rb->sHash) {
      return ra->sHash < rb->sHash ? -1 : 1;
    }
    if (ra->sHashi != rb->sHashi) {
      return ra->sHashi < rb->sHashi ? -1 : 1;
    }
    if (ra->length != rb->length) {
      return ra->length < rb->length ? -1 : 1;
    }
    // Only the first ten characters: equal length and both hashes are trusted for the rest.
    // `b` is always a stored record, whose text follows it: read there without the pointer.
    std::uint64_t const n = std::min(ra->length, kCompareUnits);
    qefWChar const * const textB = reinterpret_cast<qefWChar const *>(rb + 1);
    if (_sameUnits(ra->text, textB, n)) {
      return 0;
    }
    for (std::uint64_t i = 0; i < n; ++i) {
      qefWChar const x = ra->text[i];
      qefWChar const y = textB[i];
      if (x != y) {
        return x < y ? -1 : 1;
      }
      if (x == 0) {
        break;
      }
    }
    return 0;
  }

  bool isDisposable(CPObjectMemory const & item) override {
    CPObjectMemory const check(item);
    tagPOOLSTRING * record = _cRecordAccess::Record(item);
    // The table, the group vector and this check: nobody else holds it. Once a record has left
    // a slot in this pass, the walk's own copy of the slot holds the others once more.
    std::uint32_t const poolHeld = (record->sHash & m_mask) == m_copiedSlot ? 4 : 3;
    if (check.lockcnt() == poolHeld) {
      if (++record->idlePasses > 1) {
        return true;
      }
      Core::OS::_ffree(_utf8Slot(record).exchange(nullptr));
      return false;
    }
    record->idlePasses = 0;
    return false;
  }

  // Takes the record out of its case-insensitive group (and the group out of its table when it
  // was the last).
  void tblfinalize(CPObjectMemory const & item) override {
    tagPOOLSTRING const * record = _rec(item);
    m_copiedSlot = record->sHash & m_mask;
    _tagGroupProbe probe(item);
    CPObjectMemory found = m_groups->FindItem(record->sHashi, probe.Handle());
    if (!found) {
      Develop::OS::RTABox("Illegal code point reached", "Case-insensitive hash entry MUST exists");
      return;
    }
    CPOMVector group(found);
    std::size_t const at = group.Find(item, kNotFound);
    if (at == kNotFound) {
      Develop::OS::RTABox("Illegal code point reached",
                          "Case-insensitive match of case-sensitive cache MUST exist");
      return;
    }
    if (group.GetNItems() == 1) {
      m_groups->DeleteItem(record->sHashi, group);
    } else {
      group.Delete(at, false);
    }
  }

private:
  static constexpr std::uint64_t kNoSlot = ~std::uint64_t{0};
  static constexpr std::size_t kShortSlot = 4;
  CCaseInsensitiveHash * m_groups;
  std::uint64_t m_copiedSlot = kNoSlot; // the slot of the last removal in this pass
};

// Counts the records held outside the pool (more than the table, the group and the walk).
class CEnumDisposal final : public Lookup::IBaseHashTableEnum {
public:
  bool OnEntry(std::uint64_t, CPObjectMemory const & item) override {
    if (item.lockcnt() >= 3) {
      ++count;
    }
    return true;
  }
  std::uint32_t count = 0;
};

// Adds up the records' block sizes.
class CEnumForSize final : public Lookup::IBaseHashTableEnum {
public:
  bool OnEntry(std::uint64_t, CPObjectMemory const & item) override {
    total += sizeof(tagCPOMEMHEADER) + _cRecordAccess::Header(item)->sSize;
    return true;
  }
  std::uint64_t total = 0;
};

// Re-measures every record; stops at the first that does not match.
class CEnumVerify final : public Lookup::IBaseHashTableEnum {
public:
  bool OnEntry(std::uint64_t, CPObjectMemory const & item) override {
    tagPOOLSTRING const * record = _rec(item);
    _tagMeasure m;
    std::uint64_t units = 0;
    return _measureWide(record->text, record->length, m, units) && m.length == record->length &&
           m.sHash == record->sHash && m.sHashi == record->sHashi;
  }
};

CCaseSensitiveHash::~CCaseSensitiveHash() {
  Develop::_logWrite(qefDL_Trace, u"VORX", "cstringpool", 2956,
                     u"SPool ClearTable: Diagnosis started");
  CEnumDisposal disposal;
  EnumTableBy(&disposal, 0, false);
  Develop::_logWrite(qefDL_Trace, u"VORX", "cstringpool", 2958,
                     u"SPool ClearTable: diagnosis done, %u items still referenced",
                     disposal.count);
  ClearTable();
}

std::atomic<std::uint32_t> g_completedInterval{20000};
std::atomic<std::uint32_t> g_interruptedInterval{10000};

// The pool's request to the maintenance service: one collection of at most 10 ms per run.
class CStringPoolMaintenance final : public Threading::IMaintenanceRequest {
public:
  explicit CStringPoolMaintenance(std::uint64_t now) : m_lastRun(now), m_lastResult(false) {}
  qefWChar const * GetName() override { return u"CStringPoolMaintenance"; }
  std::uint64_t GetNextDueTime() override {
    return m_lastRun.load() +
           (m_lastResult.load() ? g_completedInterval.load() : g_interruptedInterval.load());
  }
  void Run() override {
    m_lastResult.store(CStringPool::Collect(10));
    m_lastRun.store(Core::OS::GetTimeNow());
  }
  std::int32_t GetPriority() override { return m_lastResult.load() ? -2 : 0; }

private:
  std::atomic<std::uint64_t> m_lastRun;
  std::atomic<bool> m_lastResult;
};

// The pool state, built on first use (at library load at the latest) so that interning works
// from the static initialisation of any part of the library or its host.
// Drops every entry it is shown.
class _cDropAll final : public Lookup::IBaseHashTableEnum {
public:
  bool OnEntry(std::uint64_t, CPObjectMemory const &) override { return false; }
};

// The pool state, built on first use (at library load at the latest) so that interning works
// from the static initialisation of any part of the library or its host.
struct _tagPool {
  _tagPool() : records(&groups) {
    // Both slot indexes are made now, with the tables, rather than by the first interning.
    CPObjectMemory const seed = _cRecordAccess::Wrap(&CPPoolString::_sEmpty.header);
    _cDropAll drop;
    records.AddItem(0, seed, Lookup::eHashKeepEqual);
    records.PurgeTable(&drop);
    groups.AddItem(0, seed, Lookup::eHashKeepEqual);
    groups.PurgeTable(&drop);
  }

  Threading::CPCriticalSection lock;
  CCaseInsensitiveHash groups;
  CCaseSensitiveHash records; // destroyed first: its diagnosis sees the groups intact
  Threading::CPInterfaceObject<CStringPoolMaintenance> request;
};

__attribute__((always_inline)) inline _tagPool & _pool() {
  static _tagPool pool;
  return pool;
}

_tagPool & g_poolAtLoad = _pool();

// Holds the pool lock for a scope; an uncontended entry and leave stay inline.
class _cPoolLock {
public:
  explicit _cPoolLock(_tagPool & pool) : m_lock(Threading::_criticalSection(pool.lock)) {
    if (m_lock) {
      Threading::_enter(*m_lock, Threading::qefInfinite);
    }
  }
  ~_cPoolLock() {
    if (m_lock) {
      Threading::_leave(*m_lock);
    }
  }
  _cPoolLock(_cPoolLock const &) = delete;
  _cPoolLock & operator=(_cPoolLock const &) = delete;

private:
  Threading::_tagCriticalSection * m_lock;
};

} // namespace
} // namespace VORX::String

namespace VORX::String {
namespace {

// A handle on one of the static records (never counted).
CPPoolString _static(tagPOOLSTRINGSTATIC & s) {
  return _cRecordAccess::Adopt(_cRecordAccess::Wrap(&s.header));
}

// A record on the stack around the caller's measure and first characters, to look the text up
// without copying it. Not counted: handles to it never free it.
struct _tagRecordProbe {
  _tagRecordProbe(_tagMeasure const & m, qefWChar const * head)
      : header{0, 0, sizeof(tagPOOLSTRING), sizeof(tagPOOLSTRING), &CPPoolString::_vtbl},
        record{0, m.length, m.utf8Size, m.sHash, m.sHashi, head, nullptr} {}
  CPObjectMemory Handle() { return _cRecordAccess::Wrap(&header); }

  tagCPOMEMHEADER header;
  tagPOOLSTRING record;
};
static_assert(offsetof(_tagRecordProbe, record) == sizeof(tagCPOMEMHEADER));

// A text to intern: its measure, its first characters for the table comparisons (at least
// min(length, 10) units), and how its `length` units are written into a new record.
struct _tagSource {
  _tagMeasure m;
  qefWChar const * head;
  void const * text;
  void (*write)(void const * text, qefWChar * out, std::uint64_t length);
};

void _writeUnits(void const * text, qefWChar * out, std::uint64_t length) {
  std::memcpy(out, text, length * sizeof(qefWChar));
}

// UTF-8 re-encoded as wide units (code points from 0x10000 as pairs, see `qefW32_qefW`).
void _writeUTF8(void const * text, qefWChar * out, std::uint64_t length) {
  unsigned char const * p = static_cast<unsigned char const *>(text);
  qefWChar * q = out;
  while (static_cast<std::uint64_t>(q - out) < length) {
    if (*p < 0x80) {
      *q++ = *p++;
    } else if (!utf8_qefW(q, p)) {
      break;
    }
  }
}

// Adds a new record (count 1, not yet shared) to both tables; the lock is held. The record
// joins its case-insensitive group first, so a failure leaves both tables as they were.
CPPoolString _insert(_tagPool & pool, CPObjectMemory && record) {
  tagPOOLSTRING const * r = _rec(record);
  _tagGroupProbe probe(record);
  CPObjectMemory const found = pool.groups.FindItem(r->sHashi, probe.Handle());
  CPOMVector group(found);
  std::size_t appendedAt = kNotFound;
  if (found) {
    appendedAt = group.GetNItems();
    if (!group.Insert(record, appendedAt)) {
      return CPPoolString();
    }
    // A vector that had to grow is a new block: the table must hold it instead.
    if (group != found &&
        pool.groups.AddItem(r->sHashi, group, Lookup::eHashReplaceEqual) != group) {
      return CPPoolString();
    }
  } else {
    if (!group.Insert(record, 0)) {
      return CPPoolString();
    }
    if (pool.groups.AddItem(r->sHashi, group, Lookup::eHashKeepEqual) != group) {
      return CPPoolString();
    }
  }
  CPObjectMemory stored = pool.records.AddItem(r->sHash, record, Lookup::eHashKeepEqual);
  if (stored != record) {
    if (appendedAt != kNotFound) {
      group.Delete(appendedAt, false);
    } else {
      pool.groups.DeleteItem(r->sHashi, group);
    }
    return stored ? _cRecordAccess::Adopt(std::move(stored)) : CPPoolString();
  }
  return _cRecordAccess::Adopt(std::move(record));
}

CPPoolString _create(_tagSource const & src, bool ignoreCase, Buffers::_CBlockArena * arena);

// Looks `src` up exactly or ignoring case; creates it when asked and absent (its record carved
// from `arena` when one is given).
CPPoolString _lookup(_tagSource const & src, bool create, bool ignoreCase,
                     Buffers::_CBlockArena * arena = nullptr) {
  _tagPool & pool = _pool();
  _tagRecordProbe probe(src.m, src.head);
  CPObjectMemory const probeHandle = probe.Handle();
  {
    _cPoolLock lock(pool);
    if (ignoreCase) {
      _tagGroupProbe groupProbe(probeHandle);
      CPOMVector const group(pool.groups.FindItem(src.m.sHashi, groupProbe.Handle()));
      for (std::size_t i = 0; i < group.GetNItems(); ++i) {
        if (_compareIgnoringCase(_rec(group[i]), &probe.record) == 0) {
          return _cRecordAccess::Adopt(CPObjectMemory(group[i]));
        }
      }
    } else {
      CPObjectMemory found = pool.records.FindRecord(src.m.sHash, probeHandle);
      if (found) {
        return _cRecordAccess::Adopt(std::move(found));
      }
    }
  }
  return create ? _create(src, ignoreCase, arena) : CPPoolString();
}

// The record of `src`, not yet in the pool (carved from `arena` when one is given); empty when
// memory runs out or the text is empty.
CPObjectMemory _newRecord(_tagSource const & src, Buffers::_CBlockArena * arena) {
  if (src.m.length == 0) {
    Develop::OS::RTABox("Illegal code point reached",
                        "_cppoolstring::create: String length cannot be 0");
    return CPObjectMemory();
  }
  CPObjectMemory record = _cRecordAccess::NewRecord(src.m.length, arena);
  if (!record) {
    return CPObjectMemory();
  }
  tagPOOLSTRING * r = _cRecordAccess::Record(record);
  r->length = src.m.length;
  r->utf8Size = src.m.utf8Size;
  r->sHash = src.m.sHash;
  r->sHashi = src.m.sHashi;
  qefWChar * text = _recordText(r);
  src.write(src.text, text, src.m.length);
  text[src.m.length] = 0;
  return record;
}

// Publishes `record`, built for a text found absent a moment ago (the lock is held): looks the
// text up again and inserts the record when it is still absent.
CPPoolString _publish(_tagPool & pool, CPObjectMemory && record, bool ignoreCase) {
  tagPOOLSTRING const * r = _rec(record);
  if (!ignoreCase) {
    CPObjectMemory found = pool.records.FindRecord(r->sHash, record);
    if (found) {
      return _cRecordAccess::Adopt(std::move(found));
    }
  } else {
    _tagGroupProbe groupProbe(record);
    CPOMVector const group(pool.groups.FindItem(r->sHashi, groupProbe.Handle()));
    if (group.GetNItems() > 0) {
      return _cRecordAccess::Adopt(CPObjectMemory(group[0]));
    }
  }
  return _insert(pool, std::move(record));
}

// Interns `src`, found absent a moment ago: builds its record outside the lock, then publishes
// it under the lock.
[[gnu::noinline]] CPPoolString _create(_tagSource const & src, bool ignoreCase,
                                       Buffers::_CBlockArena * arena) {
  CPObjectMemory record = _newRecord(src, arena);
  if (!record) {
    return CPPoolString();
  }
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  return _publish(pool, std::move(record), ignoreCase);
}

CPPoolString _wide(qefWChar const * text, std::uint64_t n, bool create, bool ignoreCase,
                   Buffers::_CBlockArena * arena = nullptr) {
  if (!text) {
    return CPPoolString();
  }
  if (n == 0 || text[0] == 0) {
    return _static(CPPoolString::_sEmpty);
  }
  _tagSource src{{}, text, text, &_writeUnits};
  std::uint64_t units = 0;
  // The common case, a whole aligned text of ASCII, is measured here without further calls.
  bool const measured = n >= kUnbounded && _measureAligned(text, src.m, units);
  if (!measured && !_measureWide(text, n, src.m, units)) {
    return CPPoolString();
  }
  return _lookup(src, create, ignoreCase, arena);
}

// Looks up and interns up to `kInternBatch` texts (see `_InternWideBatch`).
void _internBatch(qefWChar const * const * texts, std::uint64_t const * lengths, std::size_t count,
                  CPPoolString * out, Buffers::_CBlockArena * arena) {
  _tagPool & pool = _pool();
  alignas(_tagSource) unsigned char sourceBytes[kInternBatch][sizeof(_tagSource)];
  alignas(_tagRecordProbe) unsigned char probeBytes[kInternBatch][sizeof(_tagRecordProbe)];
  auto * const sources = reinterpret_cast<_tagSource *>(sourceBytes);
  auto * const probes = reinterpret_cast<_tagRecordProbe *>(probeBytes);
  std::size_t wanted[kInternBatch];
  std::size_t n = 0;
  for (std::size_t i = 0; i < count; ++i) {
    qefWChar const * const text = texts[i];
    out[i] = CPPoolString();
    if (!text) {
      continue;
    }
    if (lengths[i] == 0 || text[0] == 0) {
      out[i] = _static(CPPoolString::_sEmpty);
      continue;
    }
    _tagSource & src = *::new (&sources[n]) _tagSource{{}, text, text, &_writeUnits};
    std::uint64_t units = 0;
    if (_measureWide(text, lengths[i], src.m, units)) {
      ::new (&probes[n]) _tagRecordProbe(src.m, src.head);
      wanted[n++] = i;
    }
  }
  static_assert(kInternBatch <= _CPoolTable::kTogether);
  std::uint64_t hashes[kInternBatch];
  CPObjectMemory handles[kInternBatch]; // uncounted, as the probes are
  CPObjectMemory found[kInternBatch];
  for (std::size_t k = 0; k < n; ++k) {
    hashes[k] = sources[k].m.sHash;
    handles[k] = probes[k].Handle();
  }
  {
    _cPoolLock lock(pool);
    pool.records.FindRecords(hashes, handles, n, found);
  }
  for (std::size_t k = 0; k < n; ++k) {
    if (found[k]) {
      out[wanted[k]] = _cRecordAccess::Adopt(std::move(found[k]));
    }
  }
  // The texts the pool lacked: their records are built outside the lock and published under one
  // taking of it, their searches of the case-insensitive table made together first.
  CPObjectMemory made[kInternBatch];
  std::uint64_t hashesi[kInternBatch];
  std::size_t missing = 0;
  for (std::size_t k = 0; k < n; ++k) {
    if (out[wanted[k]].isnull()) {
      made[k] = _newRecord(sources[k], arena);
      if (made[k]) {
        hashesi[missing++] = sources[k].m.sHashi;
      }
    }
  }
  if (missing == 0) {
    return;
  }
  _cPoolLock lock(pool);
  // Made for what they read: each publication may change the table, so each searches again.
  _CPoolTable::tagPLACE places[kInternBatch];
  pool.groups.LocateTogether(hashesi, missing, places);
  for (std::size_t k = 0; k < n; ++k) {
    if (made[k]) {
      out[wanted[k]] = _publish(pool, std::move(made[k]), false);
    }
  }
}

CPPoolString _utf8(unsigned char const * text, std::uint64_t n, bool create, bool ignoreCase) {
  if (!text) {
    return CPPoolString();
  }
  if (n == 0 || text[0] == 0) {
    return _static(CPPoolString::_sEmpty);
  }
  _tagSource src{{}, nullptr, text, &_writeUTF8};
  // A short text of ASCII alone is widened here once and hashed in one piece.
  alignas(16) qefWChar wide[kShortUTF8 + 8];
#if defined(__x86_64__) && !defined(VORX_POOL_EXACT_READS)
  if (_cpuHas(_CpuCode::Clmul) && _scanHashBytes(text, n, wide, src.m)) {
    src.head = wide;
    return _lookup(src, create, ignoreCase);
  }
#endif
  std::uint64_t const limit = std::min<std::uint64_t>(n, kShortUTF8);
  std::uint64_t i = 0;
  bool upper = false;
  if (_scanAsciiBytes(text, limit, i, upper) && (i < limit || i == n)) {
    // Here, where the one-pass scan cannot run, or for fewer than eight characters.
    for (std::uint64_t k = 0; k < i; ++k) {
      wide[k] = text[k];
    }
    wide[i] = 0;
    _hashAscii(wide, i, upper, src.m);
    src.head = wide;
    return _lookup(src, create, ignoreCase);
  }
  std::uint64_t bytes = 0;
  if (!_measureUTF8(text, n, src.m, bytes)) {
    return CPPoolString();
  }
  // The first characters as wide units, for the comparisons (a pair may spill one unit over).
  qefWChar head[kCompareUnits + 2] = {};
  _writeUTF8(text, head, std::min(src.m.length, kCompareUnits));
  src.head = head;
  return _lookup(src, create, ignoreCase);
}

} // namespace

CPPoolString CStringPool::GetStringRef(qefWChar const * text) {
  return _wide(text, kAllOnes, true, false);
}
CPPoolString CStringPool::GetStringRef(unsigned char const * utf8) {
  return _utf8(utf8, kAllOnes, true, false);
}
CPPoolString CStringPool::GetStringRefn(qefWChar const * text, std::uint64_t n) {
  return _wide(text, n, true, false);
}
CPPoolString CStringPool::GetStringRefn(unsigned char const * utf8, std::uint64_t n) {
  return _utf8(utf8, n, true, false);
}

void _InternWideBatch(qefWChar const * const * texts, std::uint64_t const * lengths,
                      std::size_t count, CPPoolString * out, Buffers::_CBlockArena * arena) {
  for (std::size_t done = 0; done < count; done += kInternBatch) {
    _internBatch(texts + done, lengths + done, std::min(count - done, kInternBatch), out + done,
                 arena);
  }
}

CPPoolString _InternWide(qefWChar const * text, std::uint64_t length,
                         Buffers::_CBlockArena * arena) {
  return _wide(text, length, true, false, arena);
}
CPPoolString CStringPool::GetStringRefi(qefWChar const * text) {
  return _wide(text, kAllOnes, true, true);
}
CPPoolString CStringPool::GetStringRefi(unsigned char const * utf8) {
  return _utf8(utf8, kAllOnes, true, true);
}
CPPoolString CStringPool::GetStringRefni(qefWChar const * text, std::uint64_t n) {
  return _wide(text, n, true, true);
}
CPPoolString CStringPool::GetStringRefni(unsigned char const * utf8, std::uint64_t n) {
  return _utf8(utf8, n, true, true);
}
CPPoolString CStringPool::QueryStringRef(qefWChar const * text) {
  return _wide(text, kAllOnes, false, false);
}
CPPoolString CStringPool::QueryStringRef(unsigned char const * utf8) {
  return _utf8(utf8, kAllOnes, false, false);
}
CPPoolString CStringPool::QueryStringRefn(qefWChar const * text, std::uint64_t n) {
  return _wide(text, n, false, false);
}
CPPoolString CStringPool::QueryStringRefn(unsigned char const * utf8, std::uint64_t n) {
  return _utf8(utf8, n, false, false);
}
CPPoolString CStringPool::QueryStringRefi(qefWChar const * text) {
  return _wide(text, kAllOnes, false, true);
}
CPPoolString CStringPool::QueryStringRefi(unsigned char const * utf8) {
  return _utf8(utf8, kAllOnes, false, true);
}
CPPoolString CStringPool::QueryStringRefni(qefWChar const * text, std::uint64_t n) {
  return _wide(text, n, false, true);
}
CPPoolString CStringPool::QueryStringRefni(unsigned char const * utf8, std::uint64_t n) {
  return _utf8(utf8, n, false, true);
}

CPPoolString CStringPool::GetStringRefn(std::uint16_t const * units, std::uint64_t n) {
  if (!units) {
    return CPPoolString();
  }
  if (n == 0 || units[0] == 0) {
    return _static(CPPoolString::_sEmpty);
  }
  _tagSource src{{}, nullptr, units, &_writeUnits};
  std::uint64_t read = 0;
  if (!_measureUnits(units, n, src.m, read)) {
    return CPPoolString();
  }
  qefWChar head[kCompareUnits + 1] = {};
  std::memcpy(head, units, std::min(src.m.length, kCompareUnits) * sizeof(qefWChar));
  src.head = head;
  return _lookup(src, true, false);
}

CPPoolString CStringPool::GetStringRef(IStringSubmitter * submitter) {
  if (!submitter) {
    return CPPoolString();
  }
  std::uint64_t const submitted = submitter->GetStringLen();
  if (submitted == 0) {
    Develop::OS::RTABox("Illegal code point reached",
                        "_cppoolstring::create [submitter]: String length cannot be 0");
    return CPPoolString();
  }
  CPObjectMemory record = _cRecordAccess::NewRecord(submitted);
  if (!record) {
    return CPPoolString();
  }
  tagPOOLSTRING * r = _cRecordAccess::Record(record);
  qefWChar * text = _recordText(r);
  text[submitted] = 0;
  if (!submitter->GetString(text)) {
    return CPPoolString();
  }
  text[submitted] = 0;
  _tagMeasure m;
  std::uint64_t units = 0;
  if (!_measureWide(text, submitted, m, units)) {
    return CPPoolString();
  }
  if (m.length == 0) {
    return _static(CPPoolString::_sEmpty);
  }
  r->length = m.length;
  r->utf8Size = m.utf8Size;
  r->sHash = m.sHash;
  r->sHashi = m.sHashi;
  // A text with surrogate pairs keeps as many units as it has characters.
  text[m.length] = 0;
  _cRecordAccess::SetRecordSize(record, m.length);
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  CPObjectMemory found = pool.records.FindRecord(m.sHash, record);
  if (found) {
    return _cRecordAccess::Adopt(std::move(found));
  }
  return _insert(pool, std::move(record));
}

bool CStringPool::AppInit() {
  _tagPool & pool = _pool();
  if (pool.request) {
    return false;
  }
  if (!pool.request.Create(Core::OS::GetTimeNow())) {
    return false;
  }
  if (!Threading::_RegisterMaintenance(pool.request)) {
    pool.request.free();
    return false;
  }
  return true;
}

void CStringPool::AppExit() {
  _tagPool & pool = _pool();
  if (pool.request && Threading::_UnregisterMaintenance(pool.request)) {
    pool.request.free();
  }
}

bool CStringPool::Collect(std::uint32_t timeLimit) {
  if (Threading::CurrentThread::OS::GetThreadPriority() != Threading::eThreadPriorityNormal) {
    return false;
  }
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  try {
    pool.records.BeginPass();
    return pool.records.DisposeTable(timeLimit);
  } catch (...) {
    return false;
  }
}

bool CStringPool::Verify() {
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  CEnumVerify verify;
  // A table without slots has nothing to check.
  return pool.records.EnumTableBy(&verify, 0, false) || pool.records.GetNItems() == 0;
}

std::uint64_t CStringPool::GetSize() {
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  CEnumForSize size;
  pool.records.EnumTableBy(&size, 0, false);
  return size.total;
}

std::uint64_t CStringPool::GetNItems() {
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  return pool.records.GetNItems();
}

std::uint64_t CStringPool::GetNGroups() {
  _tagPool & pool = _pool();
  _cPoolLock lock(pool);
  return pool.groups.GetNItems();
}

void CStringPool::_SetMaintenanceIntervals(std::uint32_t completedMs, std::uint32_t interruptedMs) {
  g_completedInterval.store(completedMs);
  g_interruptedInterval.store(interruptedMs);
}

} // namespace VORX::String

namespace VORX::Buffers {
template class CPObjectVector<String::CPPoolString>;
} // namespace VORX::Buffers
