#include <chrono>
#include <latch>
#include <thread>

#include <gtest/gtest.h>
#include <vorx/threading.h>

using namespace VORX::Threading;
using Clock = std::chrono::steady_clock;

namespace {
// Work that waits for its gate outside any interruption point.
struct StubbornWork {
  void Run() { gate.wait(); }
  std::latch gate{1};
};
} // namespace

TEST(ThreadSlow, TerminateDetachesAThreadThatIgnoresInterruptionAfterFiveSeconds) {
  CThreadWrapper<StubbornWork> work;
  CPThread thread;
  ASSERT_TRUE(work.Create() && thread.Execute(work, 0));
  Clock::time_point const start = Clock::now();
  EXPECT_FALSE(thread.Terminate() || thread) << "the handle is empty after a detach";
  EXPECT_TRUE(Clock::now() - start >= std::chrono::milliseconds(4900) &&
              Clock::now() - start < std::chrono::milliseconds(15000));
  EXPECT_EQ(work.lockcnt(), 2u) << "the detached thread still holds its work";
  work->gate.count_down();
  for (auto end = Clock::now() + std::chrono::seconds(10);
       work.lockcnt() != 1 && Clock::now() < end;) {
    std::this_thread::yield();
  }
  EXPECT_EQ(work.lockcnt(), 1u) << "and lets it go when it ends";
}
