// The vector kernels against the portable code: the converters and counters on the input as
// UTF-8 and as wide text, and CRC-64 on it, each run with `_useVectorCode` off and on, must give
// the same results; exact-size copies and destinations let the sanitizer see any overrun.
#include <vorx/buffers.h>
#include <vorx/string.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz_check.h"

using namespace VORX::String;

namespace {

struct Outcome {
  std::uint64_t needed, exact, roomy, count1, count2;
  std::vector<std::uint8_t> out;
};

// One direction on both destination kinds; `convert` is a whole-buffer converter.
template <class S, class D, class Convert, class Count1, class Count2>
Outcome Run(S const * src, std::uint64_t srcMax, std::uint64_t worst, Convert convert,
            Count1 count1, Count2 count2) {
  Outcome r{};
  r.needed = convert(src, srcMax, nullptr, 0);
  std::unique_ptr<D[]> exact(new D[r.needed]);
  r.exact = convert(src, srcMax, exact.get(), r.needed);
  std::unique_ptr<D[]> roomy(new D[worst]);
  r.roomy = convert(src, srcMax, roomy.get(), worst);
  r.count1 = count1(src, srcMax);
  r.count2 = count2(src, srcMax);
  if (r.exact != 0) {
    auto const * bytes = reinterpret_cast<std::uint8_t const *>(exact.get());
    r.out.assign(bytes, bytes + r.exact * sizeof(D));
  }
  return r;
}

bool Same(Outcome const & a, Outcome const & b) {
  return a.needed == b.needed && a.exact == b.exact && a.roomy == b.roomy && a.count1 == b.count1 &&
         a.count2 == b.count2 && a.out == b.out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::unique_ptr<unsigned char[]> bytes(new unsigned char[size + 1]);
  std::memcpy(bytes.get(), data, size);
  std::size_t const units = size / 2;
  std::unique_ptr<qefWChar[]> wide(new qefWChar[units + 1]);
  std::memcpy(wide.get(), data, units * 2);
  VORX::Buffers::CMachineCRC const crc(64, 0x42F0E1EBA9EA3693);

  Outcome results[2][4];
  std::uint64_t sums[2];
  for (int path = 0; path < 2; ++path) {
    VORX::_useVectorCode(path == 1);
    // Counted, unterminated: the copies end where the input ends.
    results[path][0] = Run<unsigned char, qefWChar>(bytes.get(), size, size + 1, &UTF8_To_qefWChar,
                                                    &UTF8u16strlen, &UTF8w32strlen);
    results[path][1] = Run<qefWChar, unsigned char>(
        wide.get(), units, 3 * units + 1, &qefWChar_To_UTF8, &UTF16u8strlen, &UTF16w32strlen);
    // Terminated.
    bytes[size] = 0;
    wide[units] = 0;
    results[path][2] = Run<unsigned char, qefWChar>(
        bytes.get(), qefAllOnes, size + 1, &UTF8_To_qefWChar, &UTF8u16strlen, &UTF8w32strlen);
    results[path][3] = Run<qefWChar, unsigned char>(
        wide.get(), qefAllOnes, 3 * units + 1, &qefWChar_To_UTF8, &UTF16u8strlen, &UTF16w32strlen);
    // Continued from a split that the input's first byte chooses.
    std::size_t const split = size ? data[0] % (size + 1) : 0;
    sums[path] = crc.Eval(data + split, size - split, crc.Eval(data, split, 0));
  }
  VORX::_useVectorCode(true);
  for (int k = 0; k < 4; ++k) {
    Check(Same(results[0][k], results[1][k]));
  }
  Check(sums[0] == sums[1]);
  return 0;
}
