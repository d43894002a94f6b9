#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "threading/maintenance_requests.h"

using namespace VORX::Threading;
using vorx::test::Journal;
using vorx::test::MakeRequest;
using vorx::test::Request;

namespace {

// Every test leaves the service stopped and its list released.
class Maintenance : public ::testing::Test {
protected:
  void TearDown() override {
    _StopMaintenance();
    _ReleaseMaintenanceList();
  }
  Journal journal;
};

std::uint64_t InAnHour() {
  return VORX::Core::OS::GetTimeNow() + 3600 * 1000;
}

} // namespace

TEST_F(Maintenance, DueRequestsRunByPriorityPlusAgeSoTheLowOneRunsByTheFourthPass) {
  auto high = MakeRequest("high", 0, Request::kAlwaysDue, &journal);
  auto low = MakeRequest("low", -2, Request::kAlwaysDue, &journal);
  auto later = MakeRequest("later", 100, InAnHour(), &journal);
  ASSERT_TRUE(_RegisterMaintenance(high));
  ASSERT_TRUE(_RegisterMaintenance(low));
  ASSERT_TRUE(_RegisterMaintenance(later));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(journal.WaitFor(8));
  _StopMaintenance();
  // Scores per pass (priority + age): high 0 each time; low -2, -1, 0 (a tie keeps the first
  // record), then 1.
  std::vector<std::string> const names = journal.Names();
  std::vector<std::string> const expected = {"high", "high", "high", "low",
                                             "high", "high", "high", "low"};
  EXPECT_EQ(std::vector<std::string>(names.begin(), names.begin() + 8), expected);
  EXPECT_EQ(high->priorityInRun.load(), eThreadPriorityNormal) << "requests run at normal priority";
}

TEST_F(Maintenance, RegistrationIsOncePerClientAndNeedsTheInterface) {
  auto request = MakeRequest("once", 0, InAnHour(), &journal);
  EXPECT_TRUE(_RegisterMaintenance(request));
  EXPECT_TRUE(_RegisterMaintenance(request));
  EXPECT_EQ(request.lockcnt(), 2u) << "one record holds the client";
  EXPECT_TRUE(_UnregisterMaintenance(request));
  EXPECT_FALSE(_UnregisterMaintenance(request)) << "no second record";
  EXPECT_EQ(request.lockcnt(), 1u);

  VORX::Buffers::CPPlainMemory plain;
  ASSERT_TRUE(plain.Alloc(8));
  EXPECT_FALSE(_RegisterMaintenance(plain));
  EXPECT_FALSE(_RegisterMaintenance(VORX::Buffers::CPObjectMemory()));
}

TEST_F(Maintenance, RegisteringWakesTheWaitingThread) {
  vorx::test::LogCapture log;
  ASSERT_TRUE(_StartMaintenance());
  EXPECT_TRUE(_StartMaintenance()) << "running already";
  EXPECT_TRUE(_IsMaintenanceRunning());
  auto request = MakeRequest("late", 0, Request::kAlwaysDue, &journal);
  ASSERT_TRUE(_RegisterMaintenance(request));
  EXPECT_TRUE(journal.WaitFor(1));
  _StopMaintenance();
  EXPECT_FALSE(_IsMaintenanceRunning());

  std::vector<vorx::test::LoggedLine> const lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u) << "one start, logged once";
  EXPECT_EQ(lines[0].level, qefDL_Info);
  EXPECT_EQ(lines[0].category, u"VORX");
  EXPECT_EQ(lines[0].file, "maintenance");
  EXPECT_EQ(lines[0].message, u"Starting maintenance thread");
}

TEST_F(Maintenance, AnExceptionInARunDoesNotStopTheService) {
  vorx::test::LogCapture log;
  auto failing = MakeRequest("failing", 0, Request::kAlwaysDue, &journal, Request::kThrowFirst);
  ASSERT_TRUE(_RegisterMaintenance(failing));
  ASSERT_TRUE(_StartMaintenance());
  EXPECT_TRUE(journal.WaitFor(2)) << "runs again after its first run threw";
  _StopMaintenance();
  bool logged = false;
  for (auto const & line : log.Lines()) {
    logged |= line.message == u"Service for failing ended with an exception";
  }
  EXPECT_TRUE(logged);
}

TEST_F(Maintenance, UnregisteringARunningRequestWaitsForItsRunToEnd) {
  auto busy = MakeRequest("busy", 0, Request::kAlwaysDue, &journal, Request::kWaitForGate);
  ASSERT_TRUE(_RegisterMaintenance(busy));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(busy->WaitRunning());
  // Whenever the unregistration lands (during the first run, or between later ones once the
  // gate is open), it returns only with no run of the request in progress, and none follows.
  bool unregistered = false;
  int startedAtReturn = -1;
  int finishedAtReturn = -2;
  std::thread client([&] {
    unregistered = _UnregisterMaintenance(busy);
    startedAtReturn = busy->started.load();
    finishedAtReturn = busy->finished.load();
  });
  busy->Open();
  client.join();
  EXPECT_TRUE(unregistered);
  EXPECT_EQ(startedAtReturn, finishedAtReturn);
  _StopMaintenance();
  EXPECT_EQ(busy->started.load(), startedAtReturn) << "a withdrawn request is not chosen again";
  EXPECT_EQ(busy.lockcnt(), 1u);
}

TEST_F(Maintenance, StopsAndStartsAgainWithRegistrationsKept) {
  auto request = MakeRequest("kept", 0, Request::kAlwaysDue, &journal);
  ASSERT_TRUE(_RegisterMaintenance(request));
  _StopMaintenance(); // not running: nothing
  for (std::size_t round = 1; round <= 2; ++round) {
    ASSERT_TRUE(_StartMaintenance());
    std::size_t const before = journal.Total();
    EXPECT_TRUE(journal.WaitFor(before + 1)) << "round " << round;
    _StopMaintenance();
    EXPECT_FALSE(_IsMaintenanceRunning());
  }
  _ReleaseMaintenanceList();
  EXPECT_EQ(request.lockcnt(), 1u) << "releasing the list ends every registration";
}
