// 3FFF text: arbitrary 16-bit text (the input's bytes in pairs, little-endian) never crashes the
// decoder, and what it accepts has the size its header and length announce; the input's bytes
// encoded as 3FFF (a pooled string, the same text as the core writes) decode back to themselves
// unless their size is a multiple of 7, which the decoder rejects.
#include <vorx/string.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace VORX::String;
using VORX::Buffers::CPPlainMemory;

namespace {

void Check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

std::size_t Size(CPPlainMemory const & block) {
  return block.GetMemorySize();
}

bool Equal(CPPlainMemory const & block, std::uint8_t const * data, std::size_t size) {
  return Size(block) == size &&
         (size == 0 || std::memcmp(static_cast<void const *>(block), data, size) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::vector<qefWChar> text(size / 2 + 1, 0);
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    text[i / 2] = static_cast<qefWChar>(data[i] | (data[i + 1] << 8));
  }
  std::uint64_t const length = std::char_traits<qefWChar>::length(text.data());
  std::uint64_t const announced = _3FFFDecodedSize(text.data(), length);
  CPPlainMemory const decoded = C3FFFDecoder(text.data());
  Check(Size(decoded) == 0 || Size(decoded) == announced);
  Check(announced == ~std::uint64_t{0} || announced <= length / 4 * 7);

  std::vector<qefWChar> encoded(_3FFFTextLen(size) + 1);
  std::uint64_t const written = _3FFFEncode(encoded.data(), data, size);
  Check(written + 1 == encoded.size() && encoded[written] == 0);
  CPPoolString const pooled = C3FFFEncoder(data, size);
  Check(pooled.len() == written &&
        std::memcmp(*pooled, encoded.data(), written * sizeof(qefWChar)) == 0);
  CPPlainMemory const back = C3FFFDecoder(pooled);
  Check(size % 7 == 0 ? Size(back) == 0 : Equal(back, data, size));
  // Nothing holds the pooled texts any more; two ageing passes remove them, as maintenance would.
  static unsigned runs = 0;
  if (++runs % 4096 == 0) {
    CStringPool::Collect(0xFFFFFFFFu);
    CStringPool::Collect(0xFFFFFFFFu);
  }
  return 0;
}
