// Which vector extensions the processor offers, and the test hook that hides them all.
#include <vorx/base.h>

#include <atomic>

#include "core/cpu.h"

namespace VORX {
namespace {

std::atomic<bool> g_vectorCode{true};

struct _Features {
  bool clmul;
  bool vpclmul512;
  bool avx512Text;
};

_Features _detect() {
#if defined(__x86_64__)
  __builtin_cpu_init();
  bool const avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl");
  bool const clmul = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1") &&
                     __builtin_cpu_supports("ssse3");
  return {
      clmul,
      clmul && avx512 && __builtin_cpu_supports("vpclmulqdq"),
      avx512 && __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2") &&
          __builtin_cpu_supports("popcnt"),
  };
#else
  return {false, false, false};
#endif
}

} // namespace

std::atomic<unsigned> g_cpuCodes{0};

unsigned _cpuDetect() {
  static _Features const features = _detect();
  unsigned codes = kCpuKnown;
  if (g_vectorCode.load(std::memory_order_relaxed)) {
    codes |= (features.clmul ? 1u << static_cast<unsigned>(_CpuCode::Clmul) : 0u) |
             (features.vpclmul512 ? 1u << static_cast<unsigned>(_CpuCode::Vpclmul512) : 0u) |
             (features.avx512Text ? 1u << static_cast<unsigned>(_CpuCode::Avx512Text) : 0u);
  }
  g_cpuCodes.store(codes, std::memory_order_relaxed);
  return codes;
}

void _useVectorCode(bool enabled) {
  g_vectorCode.store(enabled, std::memory_order_relaxed);
  _cpuDetect();
}

} // namespace VORX
