// Private: which vector extensions the processor offers, chosen once per process, unless the
// test hook `_useVectorCode(false)` has switched them all off.
#pragma once

#include <atomic>

namespace VORX {

enum class _CpuCode {
  Clmul,      // carry-less multiplication on 128 bits (with SSE4.1)
  Vpclmul512, // carry-less multiplication on 512 bits (AVX-512F/BW/VL, VPCLMULQDQ)
  Avx512Text, // AVX-512F/BW/VL with VBMI2 (compress on bytes and words), BMI2, POPCNT
};

// One bit per `_CpuCode` that may run, and `kCpuKnown` once the processor has been asked.
extern std::atomic<unsigned> g_cpuCodes;
inline constexpr unsigned kCpuKnown = 1u << 31;

// Asks the processor (once) and answers the bits as `g_cpuCodes` holds them.
unsigned _cpuDetect();

// Whether the code for `what` may run here.
inline bool _cpuHas(_CpuCode what) {
  unsigned codes = g_cpuCodes.load(std::memory_order_relaxed);
  if ((codes & kCpuKnown) == 0) {
    codes = _cpuDetect();
  }
  return (codes >> static_cast<unsigned>(what) & 1u) != 0;
}

} // namespace VORX
