// The library's own checksum, CRC-64/ECMA-182, as one shared calculator: the string pool hashes
// every text with it.
#pragma once

#include <vorx/buffers.h>

namespace VORX::Buffers {

// `CMachineCRC(64, 0x42F0E1EBA9EA3693)`, built on first use (at library load at the latest) and
// never changed afterwards, so any thread may use it.
CMachineCRC const & _crc64();

} // namespace VORX::Buffers
