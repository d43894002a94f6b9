#include <atomic>
#include <thread>

#include <boost/thread/exceptions.hpp>
#include <gtest/gtest.h>
#include <vorx/threading.h>

using namespace VORX::Threading;

namespace {

constexpr std::uint64_t kEnded = 0, kTimedOut = ~0ull, kEmpty = ~0ull - 1;

// Work that counts its runs after waiting for its gate (then for its own thread when `self` is
// set), or for ever in an interruption point (sleep, event, multiple event).
struct Work {
  enum Mode { kEvent, kSleep, kEvents };
  explicit Work(Mode m) : mode(m) {}
  void Run() {
    threadId = CurrentThread::OS::GetCurrentThreadId();
    started.Set();
    CPMultipleEvent events(true);
    events.Attach(gate);
    try {
      if (mode == kSleep) {
        CurrentThread::sleep(600000);
      }
      mode == kEvents ? events.Wait(qefInfinite) : gate.Wait(qefInfinite);
      if (self) {
        CPThread(*self).Wait(qefInfinite);
      }
    } catch (boost::thread_interrupted const &) {
      outcome = "interrupted";
      throw;
    } catch (boost::thread_resource_error const &) {
      outcome = "resource error";
    }
    ++runs;
  }
  Mode mode;
  CPEvent gate{true};
  CPEvent started{true};
  std::atomic<int> runs{0};
  std::atomic<std::uint32_t> threadId{0};
  char const * outcome = "";
  CPThread * self = nullptr;
};

CThreadWrapper<Work> MakeWork(Work::Mode mode = Work::kEvent) {
  CThreadWrapper<Work> work;
  work.Create(mode);
  return work;
}

} // namespace

TEST(ThreadWork, IdentifierIsTheDocumentedOne) { // 24508B8F-A78E-4243-9E68-71AA029C838A
  EXPECT_TRUE(VORX::QEF::_sameUID(
      IID_IThreadWork,
      {0x24508B8F, 0xA78E, 0x4243, {0x9E, 0x68, 0x71, 0xAA, 0x02, 0x9C, 0x83, 0x8A}}));
}

TEST(Thread, RunsTheWorkOnceOnItsOwnThreadAndEmptiesWhenWaitedFor) {
  CThreadWrapper<Work> work = MakeWork();
  CPThread thread;
  EXPECT_EQ(thread.Wait(0), kEmpty);
  ASSERT_TRUE(thread.Execute(work, 0));
  EXPECT_FALSE(thread.Execute(work, 0)) << "a handle holding a thread starts nothing";
  EXPECT_EQ(work.lockcnt(), 2u) << "the thread holds the work";
  EXPECT_EQ(thread.Wait(0), kTimedOut);
  EXPECT_TRUE(thread) << "a time-out keeps the thread";
  CPThread copy(thread);
  work->gate.Set();
  EXPECT_EQ(thread.Wait(qefInfinite), kEnded);
  EXPECT_FALSE(thread);
  EXPECT_EQ(copy.Wait(0), kEmpty) << "joined through the other handle";
  EXPECT_FALSE(copy);
  EXPECT_EQ(work->runs.load(), 1);
  EXPECT_NE(work->threadId.load(), CurrentThread::OS::GetCurrentThreadId());
  EXPECT_EQ(work.lockcnt(), 1u) << "the ended thread let the work go";

  CPThread shared;
  work->self = &shared;
  work->gate.Reset();
  ASSERT_TRUE(thread.Execute(work, 256 * 1024)) << "an emptied handle starts again";
  shared = thread;
  work->gate.Set();
  EXPECT_EQ(thread.Wait(10000), kEnded);
  shared.free();
  EXPECT_STREQ(work->outcome, "resource error") << "a thread waiting for itself";
  EXPECT_EQ(work->runs.load(), 2);

  VORX::Buffers::CPPlainMemory plain;
  plain.Alloc(16);
  EXPECT_FALSE(thread.Execute(plain, 0)) << "no work interface";
  EXPECT_FALSE(thread);
  EXPECT_TRUE(thread.Terminate()) << "an empty handle";
}

TEST(Thread, TerminateInterruptsSleepsAndWaits) {
  for (Work::Mode mode : {Work::kSleep, Work::kEvent, Work::kEvents}) {
    CThreadWrapper<Work> work = MakeWork(mode);
    CPThread thread;
    ASSERT_TRUE(thread.Execute(work, 0));
    ASSERT_EQ(work->started.Wait(10000), qefWaitObject0);
    EXPECT_TRUE(thread.Terminate()) << "mode " << mode;
    EXPECT_FALSE(thread);
    EXPECT_STREQ(work->outcome, "interrupted");
    EXPECT_EQ(work.lockcnt(), 1u);
  }
}

TEST(CurrentThread, PrioritiesAreRememberedPerThreadInFiveSteps) {
  static constexpr std::pair<int, eThreadPriority> rows[] = {
      {-2, eThreadPriorityLowest},     {-1, eThreadPriorityBelowNormal}, {0, eThreadPriorityNormal},
      {1, eThreadPriorityAboveNormal}, {2, eThreadPriorityHighest},      {7, eThreadPriorityNormal},
      {-3, eThreadPriorityNormal}, // not priorities: normal
  };
  std::thread([] {
    for (auto [set, got] : rows) {
      CurrentThread::OS::SetThreadPriority(static_cast<eThreadPriority>(set));
      EXPECT_EQ(CurrentThread::OS::GetThreadPriority(), got) << "set " << set;
    }
    CurrentThread::OS::SetThreadPriority(eThreadPriorityHighest);
    std::thread([] {
      EXPECT_EQ(CurrentThread::OS::GetThreadPriority(), eThreadPriorityNormal) << "new thread";
      EXPECT_NE(CurrentThread::OS::GetCurrentThreadId(), 0u);
    }).join();
  }).join();
}

TEST(CurrentThread, SleepLastsAtLeastItsTime) {
  auto const start = std::chrono::steady_clock::now();
  CurrentThread::sleep(30);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
