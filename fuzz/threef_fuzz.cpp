// 3F text: the shared escaping-scheme fuzz body (threef_check.h) with 3F's groups of 3 bytes.
#include "threef_check.h"

using namespace VORX::String;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  static threef_fuzz::Scheme const scheme{
      3,
      _3FDecodedSize,
      [](qefWChar const * text) -> threef_fuzz::CPPlainMemory { return C3FDecoder(text); },
      [](CPPoolString const & text) -> threef_fuzz::CPPlainMemory { return C3FDecoder(text); },
      _3FTextLen,
      _3FEncode,
      [](void const * bytes, std::uint64_t count) -> CPPoolString {
        return C3FEncoder(bytes, count);
      },
  };
  return threef_fuzz::Run(scheme, data, size);
}
