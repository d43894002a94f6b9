// The library's own checksum, CRC-64/ECMA-182, as one shared calculator: the string pool hashes
// every text with it.
#pragma once

#include <vorx/buffers.h>

namespace VORX::Buffers {

// `CMachineCRC(64, 0x42F0E1EBA9EA3693)`, built on first use (at library load at the latest) and
// never changed afterwards, so any thread may use it.
// Inline, as the string pool hashes with it on every lookup.
inline CMachineCRC const & _crc64() {
  static CMachineCRC const crc(64, 0x42F0E1EBA9EA3693u);
  return crc;
}

// The tables of a width-64 calculator, for code that hashes as it scans.
struct _cCRCTables {
  static auto Table(CMachineCRC const & crc) -> std::uint64_t const (&)[256] { return crc.table; }
  static auto Slice(CMachineCRC const & crc) -> std::uint64_t const (&)[7][256] {
    return crc.slice;
  }
  static auto Fold(CMachineCRC const & crc) -> std::uint64_t const (&)[16] { return crc.fold; }
};

// One eight-byte step of a width-64 calculator: the CRC from 0 of the eight bytes of `x`, most
// significant first, which is also the next CRC for a CRC so far xor-ed with the next eight bytes.
inline std::uint64_t _crcStep8(std::uint64_t const (&table)[256],
                               std::uint64_t const (&slice)[7][256], std::uint64_t x) {
  return slice[6][x >> 56] ^ slice[5][(x >> 48) & 0xFF] ^ slice[4][(x >> 40) & 0xFF] ^
         slice[3][(x >> 32) & 0xFF] ^ slice[2][(x >> 24) & 0xFF] ^ slice[1][(x >> 16) & 0xFF] ^
         slice[0][(x >> 8) & 0xFF] ^ table[x & 0xFF];
}

} // namespace VORX::Buffers
