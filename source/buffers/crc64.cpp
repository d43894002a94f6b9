// The shared CRC-64/ECMA-182 calculator.
#include "buffers/crc64.h"

namespace VORX::Buffers {

namespace {
// Builds the tables at load, before any thread of the host can ask for them.
CMachineCRC const & g_builtAtLoad = _crc64();
} // namespace

} // namespace VORX::Buffers
