#include <atomic>

#include <gtest/gtest.h>
#include <vorx/threading.h>

using namespace VORX::Threading;

namespace {

constexpr std::uint64_t kEnded = 0, kTimedOut = ~0ull, kEmpty = ~0ull - 1;

// Work that counts its runs after waiting for its gate, or waits for ever in an interruption
// point (sleep, event, multiple event).
struct Work {
  enum Mode { kEvent, kSleep, kEvents };
  explicit Work(Mode m) : mode(m) {}
  void Run() {
    started.Set();
    CPMultipleEvent events(true);
    events.Attach(gate);
    if (mode == kSleep) {
      CurrentThread::sleep(600000);
    }
    mode == kEvents ? events.Wait(qefInfinite) : gate.Wait(qefInfinite);
    ++runs;
  }
  Mode mode;
  CPEvent gate{true};
  CPEvent started{true};
  std::atomic<int> runs{0};
};

} // namespace

TEST(Thread, RunsTheWorkOnceOnItsOwnThreadEmptiesWhenWaitedForAndStartsAgain) {
  CThreadWrapper<Work> work;
  ASSERT_TRUE(work.Create(Work::kEvent));
  CPThread thread;
  EXPECT_EQ(thread.Wait(0), kEmpty);
  ASSERT_TRUE(thread.Execute(work, 0));
  EXPECT_FALSE(thread.Execute(work, 0)) << "a handle holding a thread starts nothing";
  EXPECT_EQ(work.lockcnt(), 2u) << "the thread holds the work";
  EXPECT_TRUE(thread.Wait(0) == kTimedOut && thread) << "a time-out keeps the thread";
  CPThread copy(thread);
  work->gate.Set();
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_TRUE(!thread && copy.Wait(0) == kEmpty && !copy) << "joined through the other handle";
  EXPECT_TRUE(work->runs.load() == 1 && work.lockcnt() == 1u) << "the ended thread let it go";
  ASSERT_TRUE(thread.Execute(work, 256 * 1024)) << "an emptied handle starts again";
  EXPECT_TRUE(thread.Wait(10000) == kEnded && work->runs.load() == 2 && thread.Terminate())
      << "ended; terminating an empty handle is true";
}

TEST(Thread, TerminateInterruptsSleepsAndWaits) {
  for (Work::Mode mode : {Work::kSleep, Work::kEvent, Work::kEvents}) {
    CThreadWrapper<Work> work;
    CPThread thread;
    ASSERT_TRUE(work.Create(mode) && thread.Execute(work, 0));
    ASSERT_EQ(work->started.Wait(10000), qefWaitObject0);
    // Interrupted, or detached after five seconds with a false result.
    EXPECT_TRUE(thread.Terminate() && !thread && work.lockcnt() == 1u) << "mode " << mode;
    EXPECT_EQ(work->runs.load(), 0);
  }
}
