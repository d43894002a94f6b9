#include <thread>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "threading/maintenance_requests.h"

using namespace VORX::Threading;
using namespace vorx::test;
using Maintenance = vorx::test::MaintenanceFixture;

TEST_F(Maintenance, DueRequestsRunByPriorityPlusAgeSoTheLowOneRunsByTheFourthPass) {
  vorx::test::LogCapture log;
  auto high = MakeRequest(u"high", 0, 0);
  auto low = MakeRequest(u"low", -2, 0);
  auto later = MakeRequest(u"later", 100, VORX::Core::OS::GetTimeNow() + 3600 * 1000);
  ASSERT_TRUE(_RegisterMaintenance(high) && _RegisterMaintenance(low));
  ASSERT_TRUE(_RegisterMaintenance(later) && _RegisterMaintenance(later)) << "twice is once";
  ASSERT_TRUE(_StartMaintenance());
  EXPECT_TRUE(_StartMaintenance() && _IsMaintenanceRunning()) << "running already";
  ASSERT_TRUE(Request::WaitUntil([] { return Request::journal.size() >= 8; }));
  _StopMaintenance();
  // Scores per pass (priority + age): high 0 each time; low -2, -1, 0 (a tie keeps the first
  // record), then 1.
  Request::journal.resize(8); // the thread has ended
  EXPECT_EQ(Request::journal, (std::vector<std::u16string>{u"high", u"high", u"high", u"low",
                                                           u"high", u"high", u"high", u"low"}));

  EXPECT_EQ(later.lockcnt(), 2u) << "one record holds the client";
  EXPECT_TRUE(_UnregisterMaintenance(later) && !_UnregisterMaintenance(later)) << "one record";
  VORX::Buffers::CPPlainMemory plain;
  EXPECT_TRUE(plain.Alloc(8) && !_RegisterMaintenance(plain)) << "no request interface";
  EXPECT_EQ(log.Lines().size(), 1u) << "one start";
  EXPECT_TRUE(Logged(log, qefDL_Info, u"Starting maintenance thread"));
}

TEST_F(Maintenance, StartsAgainAfterAStopAndAFailedRunDoesNotStopIt) {
  vorx::test::LogCapture log;
  for (long successes : {0, 1, 2}) { // the work, its multiple event, the thread block
    vorx::test::AllocationFailure failure(successes);
    EXPECT_FALSE(_StartMaintenance()) << successes;
    EXPECT_FALSE(_IsMaintenanceRunning());
  }
  auto later = MakeRequest(u"later", 0, VORX::Core::OS::GetTimeNow() + 3600 * 1000);
  auto failing = MakeRequest(u"failing", 0, 0, Request::kThrowFirst);
  ASSERT_TRUE(_RegisterMaintenance(later));
  for (int round = 1; round <= 2; ++round) {
    int const before = failing->finished;
    ASSERT_TRUE(_StartMaintenance());
    if (round == 1) { // registered once the thread has timed its wait: the registration wakes it
      ASSERT_TRUE(Request::WaitUntil([&] { return later->dueAsked >= 2; }));
      ASSERT_TRUE(_RegisterMaintenance(failing));
    }
    EXPECT_TRUE(Request::WaitUntil([&] { return failing->finished > before; }))
        << round << ": runs, and again after its first run threw";
    EXPECT_EQ(failing->priorityInRun, eThreadPriorityNormal)
        << round << ": a thread that waited at the lowest priority runs at normal";
    _StopMaintenance();
  }
  EXPECT_TRUE(Logged(log, qefDL_Warning, u"Service for failing ended with an exception"));
  _ReleaseMaintenanceList();
  EXPECT_TRUE(failing.lockcnt() == 1 && later.lockcnt() == 1) << "the list held them";
}

TEST_F(Maintenance, UnregisteringARunningRequestWaitsForItsRunToEnd) {
  auto busy = MakeRequest(u"busy", 0, 0, Request::kGate);
  ASSERT_TRUE(_RegisterMaintenance(busy));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(Request::WaitUntil([&] { return busy->started == 1; }));
  // Wherever the unregistration lands (in the first run, or between later ones once the gate is
  // open), it returns with no run in progress, and none follows.
  bool unregistered = false;
  int startedAtReturn = -1, finishedAtReturn = -2;
  std::thread client([&] {
    unregistered = _UnregisterMaintenance(busy);
    startedAtReturn = busy->started;
    finishedAtReturn = busy->finished;
  });
  busy->gate.Set();
  client.join();
  EXPECT_TRUE(unregistered && startedAtReturn == finishedAtReturn);
  _StopMaintenance();
  EXPECT_EQ(busy->started, startedAtReturn) << "a withdrawn request is not chosen again";
}
