// Shared by the fuzz targets: a property that fails stops the run with a crash libFuzzer reports.
#pragma once

#include <cstdlib>

inline void Check(bool condition) {
  if (!condition) {
    std::abort();
  }
}
