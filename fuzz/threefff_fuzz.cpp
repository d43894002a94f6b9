// 3FFF text: the shared escaping-scheme fuzz body (threef_check.h) with 3FFF's groups of 7 bytes.
#include "threef_check.h"

using namespace VORX::String;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  static threef_fuzz::Scheme const scheme{
      7,
      _3FFFDecodedSize,
      [](qefWChar const * text) -> threef_fuzz::CPPlainMemory { return C3FFFDecoder(text); },
      [](CPPoolString const & text) -> threef_fuzz::CPPlainMemory { return C3FFFDecoder(text); },
      _3FFFTextLen,
      _3FFFEncode,
      [](void const * bytes, std::uint64_t count) -> CPPoolString {
        return C3FFFEncoder(bytes, count);
      },
  };
  return threef_fuzz::Run(scheme, data, size);
}
