// One fuzz body for both escaping schemes: arbitrary 16-bit text (the input's bytes in pairs,
// little-endian) never crashes the decoder, and what it accepts has the size its header and
// length announce; the input's bytes encoded (a pooled string, the same text as the core writes)
// decode back to themselves unless their size is a multiple of the group size, which the decoder
// rejects.
#pragma once

#include <vorx/string.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_check.h"

namespace threef_fuzz {

using VORX::Buffers::CPPlainMemory;
using VORX::String::CPPoolString;

// The functions of one scheme and its group: `groupBytes` bytes become four units.
struct Scheme {
  std::size_t groupBytes;
  std::uint64_t (*decodedSize)(qefWChar const *, std::uint64_t);
  CPPlainMemory (*decodeText)(qefWChar const *);
  CPPlainMemory (*decodePooled)(CPPoolString const &);
  std::uint64_t (*textLen)(std::uint64_t);
  std::uint64_t (*encode)(qefWChar *, void const *, std::uint64_t);
  CPPoolString (*encodePooled)(void const *, std::uint64_t);
};

inline std::size_t Size(CPPlainMemory const & block) {
  return block.GetMemorySize();
}

inline bool Equal(CPPlainMemory const & block, std::uint8_t const * data, std::size_t size) {
  return Size(block) == size &&
         (size == 0 || std::memcmp(static_cast<void const *>(block), data, size) == 0);
}

inline int Run(Scheme const & scheme, std::uint8_t const * data, std::size_t size) {
  std::vector<qefWChar> text(size / 2 + 1, 0);
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    text[i / 2] = static_cast<qefWChar>(data[i] | (data[i + 1] << 8));
  }
  std::uint64_t const length = std::char_traits<qefWChar>::length(text.data());
  std::uint64_t const announced = scheme.decodedSize(text.data(), length);
  CPPlainMemory const decoded = scheme.decodeText(text.data());
  Check(Size(decoded) == 0 || Size(decoded) == announced);
  Check(announced == ~std::uint64_t{0} || announced <= length / 4 * scheme.groupBytes);

  std::vector<qefWChar> encoded(scheme.textLen(size) + 1);
  std::uint64_t const written = scheme.encode(encoded.data(), data, size);
  Check(written + 1 == encoded.size() && encoded[written] == 0);
  CPPoolString const pooled = scheme.encodePooled(data, size);
  Check(pooled.len() == written &&
        std::memcmp(*pooled, encoded.data(), written * sizeof(qefWChar)) == 0);
  CPPlainMemory const back = scheme.decodePooled(pooled);
  Check(size % scheme.groupBytes == 0 ? Size(back) == 0 : Equal(back, data, size));
  AgeThePoolNowAndThen();
  return 0;
}

} // namespace threef_fuzz
