// Private: which vector extensions the processor offers, chosen once per process, unless the
// test hook `_useVectorCode(false)` has switched them all off.
#pragma once

namespace VORX {

enum class _CpuCode {
  Clmul,      // carry-less multiplication on 128 bits (with SSE4.1)
  Vpclmul512, // carry-less multiplication on 512 bits (AVX-512F/BW/VL, VPCLMULQDQ)
  Avx512Text, // AVX-512F/BW/VL with VBMI2 (compress on bytes and words), BMI2, POPCNT
};

// Whether the code for `what` may run here.
bool _cpuHas(_CpuCode what);

} // namespace VORX
