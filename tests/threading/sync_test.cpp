#include <atomic>
#include <chrono>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/threading.h>

using namespace VORX::Threading;

namespace {

// Checks that `enter` on another thread returns only after the lock was released here.
template <class Enter, class Release> void WaitsForRelease(Enter enter, Release release) {
  std::atomic<bool> released{false};
  std::latch started(1);
  std::thread waiter([&] {
    started.count_down();
    enter();
    EXPECT_TRUE(released.load()) << "entered before the holder left";
  });
  started.wait();
  released = true;
  release();
  waiter.join();
}

} // namespace

// Mutex copies share the lock. A critical section's owner re-enters, and a leave from any thread
// counts down. A read-write interlock's exclusive owner re-enters for reading and writing.
TEST(Locks, OwnersReenterAndOthersWaitForTheLastLeave) {
  CPMutex mutex;
  CPMutex copy(mutex);
  ASSERT_TRUE(mutex.Enter());
  std::thread([&] { EXPECT_FALSE(copy.TryEnter(0) || copy.TryEnter(20)); }).join();
  WaitsForRelease([&] { EXPECT_TRUE(copy.TryEnter(qefInfinite) && copy.Leave()); },
                  [&] { mutex.Leave(); });
  CPCriticalSection cs;
  ASSERT_TRUE(cs.Enter() && cs.TryEnter(0) && cs.Enter());
  std::thread([&] { EXPECT_TRUE(cs.Leave()); }).join(); // 3 -> 2, not checked against the owner
  EXPECT_TRUE(cs.Leave() && cs.Leave() && !cs.Leave());
  ASSERT_TRUE(cs.Enter()) << "afresh, by the thread that left it";
  WaitsForRelease([&] { EXPECT_TRUE(cs.Enter() && cs.Leave()); }, [&] { cs.Leave(); });
  CPRWInterlock rw;
  ASSERT_TRUE(rw.Enter() && rw.EnterRead() && rw.Enter() && rw.LeaveRead() && rw.Leave());
  std::thread([&] { EXPECT_FALSE(rw.TryEnterRead(0)) << "one write still held"; }).join();
  WaitsForRelease([&] { EXPECT_TRUE(rw.EnterRead() && rw.LeaveRead()); }, [&] { rw.Leave(); });
  ASSERT_TRUE(rw.EnterRead());
  std::thread([&] { EXPECT_TRUE(rw.TryEnterRead(0) && rw.LeaveRead()) << "readers share"; }).join();
  EXPECT_FALSE(rw.TryEnter(0)) << "a reader asking to write is no owner";
  WaitsForRelease([&] { EXPECT_TRUE(rw.Enter() && rw.Leave()); }, [&] { rw.LeaveRead(); });
}

// Threads that pass the lock back and forth, nested, lose no update of what it guards; a count
// left unordered by the lock would also be a data race under the thread sanitizer.
TEST(CriticalSection, ContendedNestedEntriesKeepTheGuardedCountExact) {
  CPCriticalSection cs;
  constexpr int kThreads = 3;
  constexpr int kRounds = 20000;
  long guarded = 0;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < kRounds; ++i) {
          ASSERT_TRUE(cs.Enter() && (i % 2 == 0 ? cs.Enter() : cs.TryEnter(0)));
          ++guarded;
          ASSERT_TRUE(cs.Leave() && cs.Leave());
        }
      });
    }
  }
  EXPECT_EQ(guarded, long{kThreads} * kRounds);
  EXPECT_FALSE(cs.Leave()) << "every entry was left";
}

// A waiter that gives up must not take with it the wake-up another waiter needs.
TEST(CriticalSection, AWaiterThatTimesOutLeavesTheOtherWaiterToBeWoken) {
  CPCriticalSection cs;
  ASSERT_TRUE(cs.Enter());
  WaitsForRelease([&] { EXPECT_TRUE(cs.Enter() && cs.Leave()); },
                  [&] {
                    std::thread([&] {
                      auto const start = std::chrono::steady_clock::now();
                      EXPECT_FALSE(cs.TryEnter(40));
                      EXPECT_GE(std::chrono::steady_clock::now() - start,
                                std::chrono::milliseconds(35));
                    }).join();
                    EXPECT_TRUE(cs.Leave());
                  });
}

// A manual reset event stays signalled for all waiters, an automatic one is consumed by one. A
// multiple event reports the first signalled event in attach order.
TEST(Event, ManualAndAutomaticResetAndTheFirstOfAMultipleEvent) {
  for (bool manual : {true, false}) {
    CPEvent event(manual);
    CPEvent copy(event);
    EXPECT_TRUE(copy.Set() && copy.Set()) << "a second Set merges with the first";
    EXPECT_EQ(event.Wait(0), qefWaitObject0);
    EXPECT_EQ(event.Wait(0), manual ? qefWaitObject0 : qefWaitTimeout);
    EXPECT_TRUE(copy.Set() && copy.Reset() && event.Wait(0) == qefWaitTimeout);
    std::atomic<int> signalled{0};
    {
      std::vector<std::jthread> waiters;
      for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] { signalled += event.Wait(300) == qefWaitObject0; });
      }
      event.Set();
    }
    EXPECT_EQ(signalled.load(), manual ? 3 : 1);
  }
  CPEvent e0(true), e1(false), e2(true);
  CPMultipleEvent events(true);
  EXPECT_EQ(events.Wait(0), qefWaitFailed) << "nothing attached";
  ASSERT_TRUE(events.Attach(e0) && events.Attach(e1) && events.Attach(e2) && events.Attach(e1));
  e2.Set();
  e1.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1);
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2) << "the automatic event was consumed";
  EXPECT_TRUE(events.Detach(e1) && !events.Detach(e1));
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1) << "e2 moved up one place";
  CPMultipleEvent resetting(false);
  resetting.Attach(e2);
  EXPECT_EQ(resetting.Wait(0), qefWaitObject0);
  EXPECT_EQ(e2.Wait(0), qefWaitTimeout) << "automatic mode resets the manual event it reports";
}
