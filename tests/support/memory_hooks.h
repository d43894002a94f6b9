// Test support: every test program routes the library's heap through counting functions, so a
// test that leaks a block fails, and a test can make allocations fail on demand. Before counting,
// the leak check runs two full ageing passes of the string pool, so pooled strings that nobody
// holds at the end of a test are not counted against it.
#pragma once

#include <cstddef>

namespace vorx::test {

// Blocks the library holds now (allocations minus frees through its heap functions).
long LiveBlocks();
// The bytes those blocks take on the heap.
long LiveBytes();

// Makes the library's allocations fail while it lives: all of them, or only those after the
// first `successes`.
class AllocationFailure {
public:
  explicit AllocationFailure(long successes = 0);
  ~AllocationFailure();
  AllocationFailure(AllocationFailure const &) = delete;
  AllocationFailure & operator=(AllocationFailure const &) = delete;
  // Allocations refused so far.
  long Refused() const;
};

// Exempts the running test from the leak check (for blocks the library keeps on purpose).
void AllowPersistentBlocks();

} // namespace vorx::test
