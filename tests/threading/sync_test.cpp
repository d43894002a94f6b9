#include <atomic>
#include <chrono>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/threading.h>

#include "support/memory_hooks.h"

using namespace VORX::Threading;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

auto Since(Clock::time_point start) {
  return Clock::now() - start;
}
template <class F> void OnOtherThread(F f) {
  std::thread(f).join();
}

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

TEST(Mutex, TryEnterZeroOnAHeldLockAnswersAtOnceAndCopiesShareTheLock) {
  CPMutex mutex;
  CPMutex copy(mutex);
  ASSERT_TRUE(mutex.Enter());
  OnOtherThread([&] {
    Clock::time_point const start = Clock::now();
    EXPECT_FALSE(copy.TryEnter(0));
    EXPECT_LT(Since(start), std::chrono::seconds(1));
    EXPECT_FALSE(copy.TryEnter(60));
    EXPECT_GE(Since(start), milliseconds(55)) << "a timed attempt waits its time";
  });
  WaitsForRelease([&] { EXPECT_TRUE(copy.TryEnter(qefInfinite)), copy.Leave(); },
                  [&] { mutex.Leave(); });
}

TEST(CriticalSection, OwnerReentersAndALeaveFromAnyThreadCountsDown) {
  CPCriticalSection cs;
  ASSERT_TRUE(cs.Enter() && cs.TryEnter(0) && cs.Enter()) << "the owner always re-enters";
  OnOtherThread([&] { EXPECT_TRUE(cs.Leave()); }); // 3 -> 2, not checked against the owner
  EXPECT_TRUE(cs.Leave() && cs.Leave());
  EXPECT_FALSE(cs.Leave()) << "a lock not entered";
  ASSERT_TRUE(cs.Enter()) << "afresh, by the thread that left it";
  OnOtherThread([&] { EXPECT_FALSE(cs.TryEnter(0)); });
  WaitsForRelease([&] { cs.Enter(), cs.Leave(); }, [&] { cs.Leave(); });
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
  std::atomic<bool> released{false};
  std::latch asleep(1);
  std::jthread patient([&] {
    asleep.count_down();
    EXPECT_TRUE(cs.Enter());
    EXPECT_TRUE(released.load());
    EXPECT_TRUE(cs.Leave());
  });
  asleep.wait();
  OnOtherThread([&] {
    Clock::time_point const start = Clock::now();
    EXPECT_FALSE(cs.TryEnter(40));
    EXPECT_GE(Since(start), milliseconds(35));
  });
  released = true;
  EXPECT_TRUE(cs.Leave());
}

TEST(RWInterlock, ExclusiveOwnerReentersForReadAndWriteAndOthersWaitForTheLastLeave) {
  CPRWInterlock rw;
  ASSERT_TRUE(rw.Enter() && rw.EnterRead() && rw.Enter() && rw.TryEnterRead(0));
  for (auto leave : {&CPRWInterlock::LeaveRead, &CPRWInterlock::Leave, &CPRWInterlock::LeaveRead}) {
    OnOtherThread([&] { EXPECT_FALSE(rw.TryEnterRead(0)); });
    EXPECT_TRUE((rw.*leave)());
  }
  ASSERT_TRUE(rw.TryEnter(0) && rw.Leave()) << "still the owner";
  WaitsForRelease([&] { rw.EnterRead(), rw.LeaveRead(); }, [&] { rw.Leave(); });

  ASSERT_TRUE(rw.EnterRead());
  OnOtherThread([&] {
    EXPECT_TRUE(rw.TryEnterRead(0) && rw.LeaveRead()) << "readers share";
    EXPECT_FALSE(rw.TryEnter(30)) << "a writer waits for the reader";
  });
  EXPECT_FALSE(rw.TryEnter(0)) << "a reader asking to write is no owner";
  WaitsForRelease([&] { rw.Enter(), rw.Leave(); }, [&] { rw.LeaveRead(); });
}

TEST(Locks, HandlesWithoutABlockAnswerFalse) {
  vorx::test::AllocationFailure failure;
  CPMutex mutex;
  CPCriticalSection cs;
  CPRWInterlock rw;
  CPEvent event(true);
  CPMultipleEvent events(true);
  EXPECT_FALSE(mutex || cs || rw || event || events);
  EXPECT_FALSE(mutex.Enter() || mutex.TryEnter(0) || mutex.Leave() || cs.Enter() ||
               cs.TryEnter(0) || cs.Leave() || rw.Enter() || rw.TryEnter(0) || rw.EnterRead() ||
               rw.TryEnterRead(0) || rw.Leave() || rw.LeaveRead() || event.Set() || event.Reset() ||
               events.Attach(event) || events.Reset(~0ull));
  EXPECT_EQ(event.Wait(0), qefWaitFailed);
  EXPECT_EQ(events.Wait(0), qefWaitFailed);
  EXPECT_EQ(event.GetHandle(), nullptr);
}

TEST(Event, ManualResetStaysSignalledForAllWaitersAutomaticResetIsConsumedByOne) {
  for (bool manual : {true, false}) {
    CPEvent event(manual);
    CPEvent copy(event);
    Clock::time_point const start = Clock::now();
    EXPECT_EQ(event.Wait(50), qefWaitTimeout) << "created clear";
    EXPECT_GE(Since(start), milliseconds(45));
    EXPECT_TRUE(copy.Set() && copy.Set()) << "a second Set merges with the first";
    EXPECT_EQ(event.Wait(0), qefWaitObject0);
    EXPECT_EQ(event.Wait(0), manual ? qefWaitObject0 : qefWaitTimeout);
    EXPECT_TRUE(copy.Set() && copy.Reset());
    EXPECT_EQ(event.Wait(0), qefWaitTimeout);
    EXPECT_TRUE(copy == event && !(CPEvent(manual) == event));
    EXPECT_EQ(copy.GetHandle(), event.GetHandle());

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
}

TEST(MultipleEvent, ReportsTheFirstSignalledEventInAttachOrder) {
  CPEvent e0(true), e1(false), e2(true);
  CPMultipleEvent events(true);
  EXPECT_EQ(events.Wait(0), qefWaitFailed) << "nothing attached";
  ASSERT_TRUE(events.Attach(e0) && events.Attach(e1) && events.Attach(e2) && events.Attach(e1));
  EXPECT_EQ(events.Wait(0), qefWaitTimeout);
  e2.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2);
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2) << "manual mode leaves a manual event set";
  e1.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1);
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2) << "the automatic event was consumed";
  EXPECT_TRUE(events.Reset(0b100));
  EXPECT_EQ(events.Wait(0), qefWaitTimeout);
  e2.Set();
  EXPECT_TRUE(events.Detach(e1) && !events.Detach(e1));
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1) << "e2 moved up one place";

  CPMultipleEvent resetting(false);
  resetting.Attach(e2);
  EXPECT_EQ(resetting.Wait(0), qefWaitObject0);
  EXPECT_EQ(e2.Wait(0), qefWaitTimeout) << "automatic mode resets the manual event it reports";
}
