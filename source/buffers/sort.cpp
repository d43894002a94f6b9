// Placeholder until the sorting routines land.
#include <vorx/buffers.h>

#include <cstdlib>

namespace VORX::Buffers::Sort {
void vfqsort(void * base, std::size_t count, std::size_t width,
             int (*compare)(void const *, void const *)) {
  if (count > 1 && width) {
    std::qsort(base, count, width, compare);
  }
}
} // namespace VORX::Buffers::Sort
