// The library's clocks.
#include <vorx/develop.h>

#include "core/os.h"

namespace VORX::Develop {

double _getTicks() {
  return static_cast<double>(OS::_processClock()) / 1000.0;
}

std::uint64_t _now_nano() {
  return OS::_monotonicNanos();
}

std::uint64_t _now_micro() {
  return _nanoToMicro(_now_nano());
}

std::uint64_t _now_milli() {
  return _nanoToMilli(_now_nano());
}

} // namespace VORX::Develop
