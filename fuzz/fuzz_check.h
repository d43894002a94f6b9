// Shared by the fuzz targets: a property that fails stops the run with a crash libFuzzer reports.
#pragma once

#include <cstdlib>

#include <vorx/string.h>

inline void Check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

// Every 4096 runs, two ageing passes of the string pool remove the texts nothing holds any more,
// as the maintenance service does in a host: a long run keeps the pool bounded.
inline void AgeThePoolNowAndThen() {
  static unsigned runs = 0;
  if (++runs % 4096 == 0) {
    VORX::String::CStringPool::Collect(0xFFFFFFFFu);
    VORX::String::CStringPool::Collect(0xFFFFFFFFu);
  }
}
