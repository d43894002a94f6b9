// Table-driven CRC, most significant bit first. Width 64 also folds eight bytes per step with
// seven more tables (slicing by 8), and, where the processor multiplies without carries, folds
// everything from 16 bytes (crc_fold.cpp); its results equal the byte-wise update for every input.
#include <vorx/buffers.h>

#include "buffers/crc64.h"
#include "buffers/crc_fold.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace VORX::Buffers {
namespace {

// Eight bytes in data order as one number, the first byte most significant.
inline std::uint64_t _loadbig64(unsigned char const * p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  if constexpr (std::endian::native == std::endian::little) {
    v = __builtin_bswap64(v);
  }
  return v;
}

// One to seven bytes in data order as one number, the first byte most significant, the unused
// low bytes 0; reads only the `length` bytes.
inline std::uint64_t _loadbigTail(unsigned char const * p, std::size_t length) {
  std::uint64_t v = 0;
  unsigned top = 64; // bits above the bytes placed so far
  if (length & 4) {
    std::uint32_t w;
    std::memcpy(&w, p, 4);
    if constexpr (std::endian::native == std::endian::little) {
      w = __builtin_bswap32(w);
    }
    v = std::uint64_t{w} << 32;
    top = 32;
    p += 4;
  }
  if (length & 2) {
    std::uint16_t h;
    std::memcpy(&h, p, 2);
    if constexpr (std::endian::native == std::endian::little) {
      h = __builtin_bswap16(h);
    }
    v |= std::uint64_t{h} << (top - 16);
    top -= 16;
    p += 2;
  }
  if (length & 1) {
    v |= std::uint64_t{*p} << (top - 8);
  }
  return v;
}

// Whole eight-byte steps of `length` (a multiple of 8) bytes, continuing from `crc`.
std::uint64_t _slice8(std::uint64_t const (&table)[256], std::uint64_t const (&slice)[7][256],
                      std::uint64_t crc, unsigned char const * p, std::size_t length) {
  for (; length >= 8; length -= 8, p += 8) {
    crc = _crcStep8(table, slice, crc ^ _loadbig64(p));
  }
  return crc;
}

} // namespace

CMachineCRC::CMachineCRC(unsigned int width, std::uint64_t polynomial)
    : shift(0), mask(0), table{}, slice{}, fold{} {
  if (width < 8 || width > 64) {
    return;
  }
  shift = width - 8;
  mask = width == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
  std::uint64_t const top = std::uint64_t{1} << (width - 1);
  for (unsigned b = 1; b < 256; ++b) {
    std::uint64_t r = std::uint64_t{b} << shift;
    for (int bit = 0; bit < 8; ++bit) {
      r = (r & top) ? (r << 1) ^ polynomial : r << 1;
    }
    table[b] = r & mask;
  }
  if (width == 64) {
    // One more zero byte after the CRC in the previous table.
    std::uint64_t const * previous = table;
    for (auto & next : slice) {
      for (unsigned b = 0; b < 256; ++b) {
        next[b] = (previous[b] << 8) ^ table[previous[b] >> 56];
      }
      previous = next;
    }
    _crcFoldConstants(polynomial, fold);
  }
}

std::uint64_t CMachineCRC::Eval(void const * data, std::size_t length,
                                std::uint64_t initial) const {
  if (shift == 0) {
    return initial;
  }
  unsigned char const * p = static_cast<unsigned char const *>(data);
  std::uint64_t crc = initial;
  if (shift == 56) {
    std::uint64_t rest[2];
    if (_crcFold(p, length, crc, fold, rest) != 0) {
      return _crcStep8(table, slice, rest[0]) ^ rest[1];
    }
    crc = _slice8(table, slice, crc, p, length & ~std::size_t{7});
    p += length & ~std::size_t{7};
    length &= 7;
    if (length == 0) {
      return crc;
    }
    // The last one to seven bytes in one step: byte i of the k is followed by k - 1 - i more.
    std::uint64_t const tail = _loadbigTail(p, length);
    std::uint64_t const x = crc ^ tail;
    std::uint64_t next = crc << (8 * length);
    for (std::size_t i = 0; i < length; ++i) {
      std::size_t const after = length - 1 - i;
      std::uint64_t const * t = after == 0 ? table : slice[after - 1];
      next ^= t[(x >> (56 - 8 * i)) & 0xFF];
    }
    return next;
  }
  for (; length > 0; --length, ++p) {
    crc = (crc << 8) ^ table[((crc >> shift) ^ *p) & 0xFF];
  }
  return crc & mask;
}

} // namespace VORX::Buffers
