#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <latch>
#include <thread>

#include <boost/thread/exceptions.hpp>
#include <gtest/gtest.h>
#include <vorx/threading.h>

#include "support/memory_hooks.h"

using namespace VORX::Threading;
using VORX::Buffers::CPObjectMemory;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint64_t kEnded = 0;
constexpr std::uint64_t kTimedOut = ~0ull;
constexpr std::uint64_t kEmpty = ~0ull - 1;

// Work that records where it ran and, when given a gate, waits for it first.
struct GatedWork {
  GatedWork(std::atomic<int> * runs, CPEvent gate) : m_runs(runs), m_gate(std::move(gate)) {}
  void Run() {
    threadId = CurrentThread::OS::GetCurrentThreadId();
    if (m_gate) {
      m_gate.Wait(qefInfinite);
    }
    ++*m_runs;
  }
  std::atomic<int> * m_runs;
  CPEvent m_gate;
  std::uint32_t threadId = 0;
};

CPEvent NoGate() {
  vorx::test::AllocationFailure failure;
  return CPEvent(true);
}

} // namespace

TEST(ThreadWork, IdentifierIsTheDocumentedOne) {
  _qefUID const & id = IID_IThreadWork;
  char text[40];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", id.Data1,
                id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4],
                id.Data4[5], id.Data4[6], id.Data4[7]);
  EXPECT_STREQ(text, "24508B8F-A78E-4243-9E68-71AA029C838A");
}

TEST(Thread, RunsTheWorkOnceOnAThreadOfItsOwnAndEmptiesOnWait) {
  std::atomic<int> runs{0};
  CPEvent gate(true);
  CThreadWrapper<GatedWork> work;
  ASSERT_TRUE(work.Create(&runs, gate));
  CPThread thread;
  EXPECT_EQ(thread.Wait(0), kEmpty);
  ASSERT_TRUE(thread.Execute(work, 0));
  EXPECT_TRUE(thread);
  EXPECT_EQ(work.lockcnt(), 2u) << "the thread holds the work";
  gate.Set();
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_FALSE(thread);
  EXPECT_EQ(runs.load(), 1);
  EXPECT_NE(work->threadId, 0u);
  EXPECT_NE(work->threadId, CurrentThread::OS::GetCurrentThreadId());
  EXPECT_EQ(work.lockcnt(), 1u) << "the ended thread let the work go";
  // The empty handle may start again.
  ASSERT_TRUE(thread.Execute(work, 256 * 1024));
  EXPECT_EQ(thread.Wait(10000), kEnded);
  EXPECT_EQ(runs.load(), 2);
}

TEST(Thread, ExecuteOnARunningHandleStartsNothingAndWaitZeroTimesOut) {
  std::atomic<int> runs{0};
  CPEvent gate(true);
  CThreadWrapper<GatedWork> work;
  ASSERT_TRUE(work.Create(&runs, gate));
  CPThread thread;
  ASSERT_TRUE(thread.Execute(work, 0));
  EXPECT_FALSE(thread.Execute(work, 0));
  Clock::time_point const start = Clock::now();
  EXPECT_EQ(thread.Wait(0), kTimedOut);
  EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count(),
            1000);
  EXPECT_TRUE(thread) << "a time-out keeps the thread";
  gate.Set();
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_EQ(runs.load(), 1);
}

TEST(Thread, WorkWithoutTheWorkInterfaceIsRefused) {
  VORX::Buffers::CPPlainMemory plain;
  ASSERT_TRUE(plain.Alloc(16));
  CPObjectMemory empty;
  CPThread thread;
  EXPECT_FALSE(thread.Execute(plain, 0));
  EXPECT_FALSE(thread.Execute(empty, 0));
  EXPECT_FALSE(thread);
  EXPECT_TRUE(thread.Terminate()) << "an empty handle";
}

TEST(Thread, CopiesShareTheThreadAndTheSecondWaitFindsItGone) {
  std::atomic<int> runs{0};
  CThreadWrapper<GatedWork> work;
  ASSERT_TRUE(work.Create(&runs, NoGate()));
  CPThread thread;
  ASSERT_TRUE(thread.Execute(work, 0));
  CPThread copy(thread);
  EXPECT_TRUE(copy == thread);
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_TRUE(copy);
  EXPECT_EQ(copy.Wait(0), kEmpty) << "joined through the other handle";
  EXPECT_FALSE(copy);
}

namespace {

// Work that waits for its stop signal in an interruption point of its choice.
struct InterruptibleWork {
  enum Where { kSleep, kEvent, kEvents };
  InterruptibleWork(Where where, std::latch * started, std::atomic<bool> * interrupted)
      : m_where(where), m_started(started), m_interrupted(interrupted) {}
  void Run() {
    m_started->count_down();
    try {
      CPEvent never(true);
      CPMultipleEvent events(true);
      events.Attach(never);
      switch (m_where) {
      case kSleep:
        CurrentThread::sleep(600000);
        break;
      case kEvent:
        never.Wait(qefInfinite);
        break;
      case kEvents:
        events.Wait(qefInfinite);
        break;
      }
    } catch (boost::thread_interrupted const &) {
      *m_interrupted = true;
      throw;
    }
  }
  Where m_where;
  std::latch * m_started;
  std::atomic<bool> * m_interrupted;
};

} // namespace

TEST(Thread, TerminateInterruptsSleepsAndWaits) {
  for (auto where :
       {InterruptibleWork::kSleep, InterruptibleWork::kEvent, InterruptibleWork::kEvents}) {
    std::latch started(1);
    std::atomic<bool> interrupted{false};
    CThreadWrapper<InterruptibleWork> work;
    ASSERT_TRUE(work.Create(where, &started, &interrupted));
    CPThread thread;
    ASSERT_TRUE(thread.Execute(work, 0));
    started.wait();
    EXPECT_TRUE(thread.Terminate()) << "where " << where;
    EXPECT_FALSE(thread);
    EXPECT_TRUE(interrupted.load()) << "where " << where;
    EXPECT_EQ(work.lockcnt(), 1u);
  }
}

namespace {

// Work that waits for its own thread and reports what that raised.
struct SelfWaitWork {
  SelfWaitWork(std::latch * handed, CPThread * self, std::atomic<bool> * raised)
      : m_handed(handed), m_self(self), m_raised(raised) {}
  void Run() {
    m_handed->wait();
    CPThread self(*m_self);
    try {
      self.Wait(qefInfinite);
    } catch (boost::thread_resource_error const &) {
      *m_raised = true;
    }
  }
  std::latch * m_handed;
  CPThread * m_self;
  std::atomic<bool> * m_raised;
};

} // namespace

TEST(Thread, WaitingForItselfRaisesResourceError) {
  std::latch handed(1);
  std::atomic<bool> raised{false};
  CPThread thread;
  CPThread shared;
  CThreadWrapper<SelfWaitWork> work;
  ASSERT_TRUE(work.Create(&handed, &shared, &raised));
  ASSERT_TRUE(thread.Execute(work, 0));
  shared = thread;
  handed.count_down();
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  shared.free();
  EXPECT_TRUE(raised.load());
}

TEST(Thread, StackSizeIsGivenToTheThread) {
  struct StackWork {
    void Run() {
      pthread_attr_t attributes;
      if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
      }
    }
    std::size_t size = 0;
  };
  CThreadWrapper<StackWork> work;
  ASSERT_TRUE(work.Create());
  CPThread thread;
  ASSERT_TRUE(thread.Execute(work, 3 * 1024 * 1024));
  ASSERT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_GE(work->size, 3u * 1024 * 1024);
}

TEST(CurrentThread, PrioritiesAreRememberedPerThreadInFiveSteps) {
  struct Row {
    int set;
    eThreadPriority got;
  };
  static constexpr Row rows[] = {
      {-2, eThreadPriorityLowest}, {-1, eThreadPriorityBelowNormal},
      {0, eThreadPriorityNormal},  {1, eThreadPriorityAboveNormal},
      {2, eThreadPriorityHighest}, {7, eThreadPriorityNormal}, // not a priority: normal
      {-3, eThreadPriorityNormal},
  };
  static_assert(std::size(rows) == 7);
  std::thread([] {
    for (Row const & row : rows) {
      CurrentThread::OS::SetThreadPriority(static_cast<eThreadPriority>(row.set));
      EXPECT_EQ(CurrentThread::OS::GetThreadPriority(), row.got) << "set " << row.set;
    }
    CurrentThread::OS::SetThreadPriority(eThreadPriorityHighest);
    std::thread([] {
      EXPECT_EQ(CurrentThread::OS::GetThreadPriority(), eThreadPriorityNormal)
          << "a new thread starts normal";
    }).join();
  }).join();
}

TEST(CurrentThread, IdentifiersAreNonZeroStableAndDistinct) {
  std::uint32_t const mine = CurrentThread::OS::GetCurrentThreadId();
  EXPECT_NE(mine, 0u);
  EXPECT_EQ(CurrentThread::OS::GetCurrentThreadId(), mine);
  std::uint32_t other = 0;
  std::thread([&] { other = CurrentThread::OS::GetCurrentThreadId(); }).join();
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, mine);
}

TEST(CurrentThread, SleepLastsAtLeastItsTime) {
  for (std::uint32_t ms : {0u, 1u, 30u}) {
    Clock::time_point const start = Clock::now();
    CurrentThread::sleep(ms);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(ms)) << ms;
  }
}
