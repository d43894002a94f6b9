#include "support/memory_hooks.h"

#include <atomic>
#include <cstdlib>

#include <malloc.h>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/string.h>

namespace vorx::test {
namespace {

std::atomic<long> g_live{0};
std::atomic<long> g_liveBytes{0};  // as the heap counts them: what each block can hold
std::atomic<long> g_successes{-1}; // < 0: no failure injected
std::atomic<long> g_refused{0};
bool g_allowPersistent = false;

bool Refuse() {
  long left = g_successes.load();
  while (left >= 0) {
    if (left == 0) {
      g_refused.fetch_add(1);
      return true;
    }
    if (g_successes.compare_exchange_weak(left, left - 1)) {
      return false;
    }
  }
  return false;
}

void * CountingAlloc(std::size_t bytes) {
  if (Refuse()) {
    return nullptr;
  }
  void * block = std::malloc(bytes);
  if (block) {
    g_live.fetch_add(1);
    g_liveBytes.fetch_add(static_cast<long>(malloc_usable_size(block)));
  }
  return block;
}

void * CountingRealloc(void * block, std::size_t bytes) {
  if (Refuse()) {
    return nullptr;
  }
  long const had = block ? static_cast<long>(malloc_usable_size(block)) : 0;
  void * moved = std::realloc(block, bytes);
  if (moved && !block) {
    g_live.fetch_add(1);
  }
  if (moved) {
    g_liveBytes.fetch_add(static_cast<long>(malloc_usable_size(moved)) - had);
  }
  return moved;
}

void CountingFree(void * block) {
  if (block) {
    g_live.fetch_sub(1);
    g_liveBytes.fetch_sub(static_cast<long>(malloc_usable_size(block)));
  }
  std::free(block);
}

// Fails a test that ends holding more library blocks than it started with.
class LeakCheck : public ::testing::EmptyTestEventListener {
  void OnTestStart(::testing::TestInfo const &) override {
    g_allowPersistent = false;
    m_start = g_live.load();
  }
  void OnTestEnd(::testing::TestInfo const &) override {
    // Pooled strings nobody holds any more leave the pool after two ageing passes.
    VORX::String::CStringPool::Collect(0xFFFFFFFFu);
    VORX::String::CStringPool::Collect(0xFFFFFFFFu);
    long const leaked = g_live.load() - m_start;
    if (leaked > 0 && !g_allowPersistent) {
      ADD_FAILURE() << leaked << " library block(s) leaked by this test";
    }
  }
  long m_start = 0;
};

struct Installer {
  Installer() {
    static VORX::Core::OS::tagMEMORYFUNCTIONS const functions = {&CountingAlloc, &CountingRealloc,
                                                                 &CountingFree};
    VORX::Core::OS::SetMemoryFunctions(&functions);
  }
};

} // namespace

long LiveBlocks() {
  return g_live.load();
}

long LiveBytes() {
  return g_liveBytes.load();
}

AllocationFailure::AllocationFailure(long successes) {
  g_refused.store(0);
  g_successes.store(successes);
}

AllocationFailure::~AllocationFailure() {
  g_successes.store(-1);
}

long AllocationFailure::Refused() const {
  return g_refused.load();
}

void AllowPersistentBlocks() {
  g_allowPersistent = true;
}

} // namespace vorx::test

int main(int argc, char ** argv) {
  static vorx::test::Installer const installer;
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new vorx::test::LeakCheck);
  return RUN_ALL_TESTS();
}
