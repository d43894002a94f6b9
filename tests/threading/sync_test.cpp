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

namespace {

long long MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Runs `f` on another thread and waits for it.
template <class F> void OnOtherThread(F f) {
  std::thread(f).join();
}

} // namespace

TEST(Mutex, TryEnterZeroOnAHeldLockAnswersAtOnceAndCopiesShareTheLock) {
  CPMutex mutex;
  ASSERT_TRUE(mutex);
  CPMutex copy(mutex);
  ASSERT_TRUE(mutex.Enter());
  OnOtherThread([copy]() mutable {
    Clock::time_point const start = Clock::now();
    EXPECT_FALSE(copy.TryEnter(0));
    EXPECT_LT(MillisecondsSince(start), 1000);
    EXPECT_FALSE(copy.TryEnter(60));
    EXPECT_GE(MillisecondsSince(start), 55) << "a timed attempt waits out its time";
  });
  ASSERT_TRUE(mutex.Leave());
  OnOtherThread([copy]() mutable {
    EXPECT_TRUE(copy.TryEnter(0));
    EXPECT_TRUE(copy.Leave());
  });
}

TEST(Mutex, InfiniteTryEnterWaitsForTheOwnerToLeave) {
  CPMutex mutex;
  std::atomic<bool> released{false};
  std::latch held(1);
  ASSERT_TRUE(mutex.Enter());
  std::thread waiter([&] {
    held.count_down();
    EXPECT_TRUE(mutex.TryEnter(qefInfinite));
    EXPECT_TRUE(released.load()) << "locked before the owner left";
    mutex.Leave();
  });
  held.wait();
  released = true;
  mutex.Leave();
  waiter.join();
}

TEST(CriticalSection, OwnerReentersAndOthersWaitForTheLastLeave) {
  CPCriticalSection cs;
  ASSERT_TRUE(cs.Enter());
  ASSERT_TRUE(cs.Enter());
  ASSERT_TRUE(cs.TryEnter(0)) << "re-entry by the owner always succeeds";
  for (int leaves = 0; leaves < 3; ++leaves) {
    OnOtherThread([&] { EXPECT_FALSE(cs.TryEnter(0)) << "after " << leaves << " leaves"; });
    EXPECT_TRUE(cs.Leave());
  }
  OnOtherThread([&] {
    EXPECT_TRUE(cs.TryEnter(0));
    EXPECT_TRUE(cs.Leave());
  });
  EXPECT_FALSE(cs.Leave()) << "a lock not entered";
}

TEST(CriticalSection, LeaveByAnotherThreadStillCountsDown) {
  CPCriticalSection cs;
  ASSERT_TRUE(cs.Enter());
  ASSERT_TRUE(cs.Enter());
  OnOtherThread([&] { EXPECT_TRUE(cs.Leave()); }); // count 2 -> 1, the owner keeps it
  OnOtherThread([&] { EXPECT_FALSE(cs.TryEnter(0)); });
  EXPECT_TRUE(cs.Leave()); // count 1 -> 0: unlocked
  OnOtherThread([&] {
    EXPECT_TRUE(cs.TryEnter(0));
    EXPECT_TRUE(cs.Leave());
  });
}

TEST(CriticalSection, KeepsItsCountUnderContention) {
  CPCriticalSection cs;
  long long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        cs.Enter();
        cs.Enter();
        ++counter;
        cs.Leave();
        cs.Leave();
      }
    });
  }
  for (std::thread & t : threads) {
    t.join();
  }
  EXPECT_EQ(counter, 8000);
}

TEST(RWInterlock, ExclusiveOwnerReentersForReadAndWrite) {
  CPRWInterlock rw;
  ASSERT_TRUE(rw.Enter());
  ASSERT_TRUE(rw.EnterRead());
  ASSERT_TRUE(rw.Enter());
  ASSERT_TRUE(rw.TryEnterRead(0));
  // Leaves in any order; another reader stays out until the last exclusive leave.
  bool (CPRWInterlock::*const leaves[])() = {&CPRWInterlock::LeaveRead, &CPRWInterlock::Leave,
                                             &CPRWInterlock::LeaveRead};
  for (auto leave : leaves) {
    OnOtherThread([&] { EXPECT_FALSE(rw.TryEnterRead(0)); });
    EXPECT_TRUE((rw.*leave)());
  }
  OnOtherThread([&] { EXPECT_FALSE(rw.TryEnterRead(0)); });
  EXPECT_TRUE(rw.Leave());
  OnOtherThread([&] {
    EXPECT_TRUE(rw.TryEnterRead(0));
    EXPECT_TRUE(rw.LeaveRead());
  });
}

TEST(RWInterlock, ReadersShareAndWritersWaitForThem) {
  CPRWInterlock rw;
  ASSERT_TRUE(rw.EnterRead());
  OnOtherThread([&] {
    EXPECT_TRUE(rw.TryEnterRead(0)) << "readers share";
    EXPECT_TRUE(rw.LeaveRead());
    EXPECT_FALSE(rw.TryEnter(30)) << "a writer waits for the reader";
  });
  // A reader asking for the lock exclusively is no owner: it waits like any writer.
  EXPECT_FALSE(rw.TryEnter(0));
  EXPECT_TRUE(rw.LeaveRead());

  std::atomic<bool> released{false};
  std::latch held(1);
  ASSERT_TRUE(rw.Enter());
  std::thread reader([&] {
    held.count_down();
    EXPECT_TRUE(rw.EnterRead());
    EXPECT_TRUE(released.load()) << "read while the writer held it";
    rw.LeaveRead();
  });
  held.wait();
  released = true;
  rw.Leave();
  reader.join();
}

TEST(Locks, HandlesWithoutABlockAnswerFalse) {
  vorx::test::AllocationFailure failure;
  CPMutex mutex;
  CPCriticalSection cs;
  CPRWInterlock rw;
  CPEvent event(true);
  CPMultipleEvent events(true);
  EXPECT_FALSE(mutex || cs || rw || event || events);
  EXPECT_FALSE(mutex.Enter() || mutex.TryEnter(0) || mutex.Leave());
  EXPECT_FALSE(cs.Enter() || cs.TryEnter(0) || cs.Leave());
  EXPECT_FALSE(rw.Enter() || rw.TryEnter(0) || rw.EnterRead() || rw.TryEnterRead(0) || rw.Leave() ||
               rw.LeaveRead());
  EXPECT_FALSE(event.Set() || event.Reset());
  EXPECT_EQ(event.Wait(0), qefWaitFailed);
  EXPECT_EQ(event.GetHandle(), nullptr);
  EXPECT_FALSE(events.Attach(event) || events.Reset(~0ull));
  EXPECT_EQ(events.Wait(0), qefWaitFailed);
}

TEST(Locks, EachClassHasItsOwnTypeIdentifier) {
  std::size_t const ids[] = {CPMutex::GetTypeID(),         CPCriticalSection::GetTypeID(),
                             CPRWInterlock::GetTypeID(),   CPEvent::GetTypeID(),
                             CPMultipleEvent::GetTypeID(), CPThread::GetTypeID()};
  for (std::size_t i = 0; i < std::size(ids); ++i) {
    EXPECT_NE(ids[i], 0u);
    for (std::size_t j = i + 1; j < std::size(ids); ++j) {
      EXPECT_NE(ids[i], ids[j]) << i << " and " << j;
    }
  }
  CPMutex mutex;
  CPEvent event(false);
  EXPECT_EQ(mutex.GetTypeID(), CPMutex::GetTypeID());
  EXPECT_TRUE(event.IsType(reinterpret_cast<void const *>(CPEvent::GetTypeID())));
}

TEST(Event, ManualResetStaysSignalledAutomaticResetIsConsumed) {
  struct Row {
    bool manual;
    std::uint32_t afterSet[3]; // three Wait(0) after one Set
  };
  static constexpr Row rows[] = {
      {true, {qefWaitObject0, qefWaitObject0, qefWaitObject0}},
      {false, {qefWaitObject0, qefWaitTimeout, qefWaitTimeout}},
  };
  for (Row const & row : rows) {
    CPEvent event(row.manual);
    EXPECT_EQ(event.Wait(0), qefWaitTimeout) << "created clear";
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Set()) << "a second Set merges with the first";
    for (std::uint32_t expected : row.afterSet) {
      EXPECT_EQ(event.Wait(0), expected) << (row.manual ? "manual" : "automatic");
    }
    EXPECT_TRUE(event.Reset());
    EXPECT_EQ(event.Wait(0), qefWaitTimeout);
  }
}

TEST(Event, TimedWaitRunsOutAndSetReleasesWaitersOnOtherThreads) {
  CPEvent manual(true);
  Clock::time_point const start = Clock::now();
  EXPECT_EQ(manual.Wait(50), qefWaitTimeout);
  EXPECT_GE(MillisecondsSince(start), 45);

  // Manual reset: one Set releases every waiter.
  std::vector<std::thread> waiters;
  std::atomic<int> released{0};
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      if (manual.Wait(qefInfinite) == qefWaitObject0) {
        ++released;
      }
    });
  }
  manual.Set();
  for (std::thread & t : waiters) {
    t.join();
  }
  EXPECT_EQ(released.load(), 3);

  // Automatic reset: one Set releases exactly one of two waiters; the other runs out.
  CPEvent automatic(false);
  std::atomic<int> signalled{0};
  std::atomic<int> timedOut{0};
  waiters.clear();
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&] { (automatic.Wait(300) == qefWaitObject0 ? signalled : timedOut)++; });
  }
  automatic.Set();
  for (std::thread & t : waiters) {
    t.join();
  }
  EXPECT_EQ(signalled.load(), 1);
  EXPECT_EQ(timedOut.load(), 1);
}

TEST(Event, CopiesAreTheSameEvent) {
  CPEvent event(true);
  CPEvent const copy(event);
  CPEvent other(true);
  EXPECT_TRUE(copy == event);
  EXPECT_FALSE(other == event);
  EXPECT_EQ(copy.GetHandle(), event.GetHandle());
  EXPECT_NE(other.GetHandle(), event.GetHandle());
  EXPECT_NE(event.GetHandle(), nullptr);
  CPEvent setter(copy);
  setter.Set();
  EXPECT_EQ(event.Wait(0), qefWaitObject0);
}

TEST(MultipleEvent, ReportsTheFirstSignalledEventInAttachOrder) {
  CPEvent e0(true), e1(false), e2(true);
  CPMultipleEvent events(true);
  EXPECT_EQ(events.Wait(0), qefWaitFailed) << "nothing attached";
  ASSERT_TRUE(events.Attach(e0));
  ASSERT_TRUE(events.Attach(e1));
  ASSERT_TRUE(events.Attach(e2));
  EXPECT_TRUE(events.Attach(e1)) << "attached already: no change";
  EXPECT_EQ(events.Wait(0), qefWaitTimeout);
  e2.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2);
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2) << "a manual set leaves a manual event set";
  e1.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1);
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 2) << "the automatic event was consumed";
  EXPECT_TRUE(events.Reset(0b100));
  EXPECT_EQ(e2.Wait(0), qefWaitTimeout);
  EXPECT_EQ(events.Wait(0), qefWaitTimeout);

  e2.Set();
  EXPECT_TRUE(events.Detach(e1));
  EXPECT_FALSE(events.Detach(e1));
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 1) << "e2 moved up one place";
}

TEST(MultipleEvent, AutomaticSetResetsTheManualEventItReports) {
  CPEvent manual(true);
  CPMultipleEvent events(false);
  events.Attach(manual);
  manual.Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0);
  EXPECT_EQ(manual.Wait(0), qefWaitTimeout);
}

TEST(MultipleEvent, WaitWakesForAnEventSetOnAnotherThreadOrRunsOut) {
  CPEvent stop(true), wake(false);
  CPMultipleEvent events(true);
  events.Attach(stop);
  events.Attach(wake);
  Clock::time_point const start = Clock::now();
  EXPECT_EQ(events.Wait(40), qefWaitTimeout);
  EXPECT_GE(MillisecondsSince(start), 35);

  std::uint32_t seen[2] = {};
  std::latch first(1);
  std::thread waiter([&] {
    seen[0] = events.Wait(qefInfinite);
    first.count_down();
    seen[1] = events.Wait(qefInfinite);
  });
  wake.Set();
  first.wait();
  stop.Set();
  waiter.join();
  EXPECT_EQ(seen[0], qefWaitObject0 + 1);
  EXPECT_EQ(seen[1], qefWaitObject0);
}

TEST(MultipleEvent, HoldsAtMost64Events) {
  CPMultipleEvent events(true);
  std::vector<CPEvent> all;
  for (int i = 0; i < 65; ++i) {
    all.emplace_back(i % 2 == 0);
  }
  for (int i = 0; i < 64; ++i) {
    ASSERT_TRUE(events.Attach(all[i])) << i;
  }
  EXPECT_FALSE(events.Attach(all[64]));
  all[63].Set();
  EXPECT_EQ(events.Wait(0), qefWaitObject0 + 63);
  CPEvent const empty = [] {
    vorx::test::AllocationFailure failure;
    return CPEvent(true);
  }();
  EXPECT_FALSE(events.Detach(empty));
  EXPECT_TRUE(events.Detach(all[0]));
  EXPECT_FALSE(events.Attach(empty)) << "an event without a block";
}
