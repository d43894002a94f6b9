#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "threading/maintenance_requests.h"

using namespace VORX::Threading;
using vorx::test::Journal;
using vorx::test::MakeRequest;
using vorx::test::Request;
using Clock = std::chrono::steady_clock;

namespace {

class MaintenanceSlow : public ::testing::Test {
protected:
  void TearDown() override {
    _StopMaintenance();
    _ReleaseMaintenanceList();
  }
  Journal journal;
};

} // namespace

TEST_F(MaintenanceSlow, UnregisteringARunLongerThanTenSecondsFailsAndLeavesItWithdrawn) {
  vorx::test::LogCapture log;
  auto busy =
      MakeRequest("CBusyMaintenance", 0, Request::kAlwaysDue, &journal, Request::kWaitForGate);
  ASSERT_TRUE(_RegisterMaintenance(busy));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(busy->WaitRunning());
  std::uint64_t const start = VORX::Core::OS::GetTimeNow();
  EXPECT_FALSE(_UnregisterMaintenance(busy));
  EXPECT_GE(VORX::Core::OS::GetTimeNow() - start, 10000u);
  EXPECT_FALSE(busy->ended.load());

  bool logged = false;
  for (auto const & line : log.Lines()) {
    if (line.level == qefDL_Error && line.category == u"VORX" && line.file == "maintenance") {
      EXPECT_EQ(line.message,
                u"Service for CBusyMaintenance can not unregister due to pending condition...");
      logged = true;
    }
  }
  EXPECT_TRUE(logged);

  // The withdrawn record goes when the run ends, and the request is not chosen again.
  busy->Open();
  _StopMaintenance();
  EXPECT_EQ(busy->started.load(), 1);
  EXPECT_FALSE(_UnregisterMaintenance(busy)) << "no longer registered";
  EXPECT_EQ(busy.lockcnt(), 1u);
}

TEST_F(MaintenanceSlow, StopInterruptsARunThatIgnoresTheStopEventAfterTwentySeconds) {
  auto sleeper = MakeRequest("sleeper", 0, Request::kAlwaysDue, &journal, Request::kSleepLong);
  ASSERT_TRUE(_RegisterMaintenance(sleeper));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(sleeper->WaitRunning());
  Clock::time_point const start = Clock::now();
  _StopMaintenance();
  auto const waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(19900));
  EXPECT_LT(waited, std::chrono::milliseconds(25000)) << "ended within the second wait";
  EXPECT_TRUE(sleeper->interrupted.load());
  EXPECT_FALSE(_IsMaintenanceRunning());
}

TEST_F(MaintenanceSlow, StopDetachesARunThatIgnoresStopAndInterruption) {
  long const before = vorx::test::LiveBlocks();
  {
    auto stubborn =
        MakeRequest("stubborn", 0, Request::kAlwaysDue, &journal, Request::kWaitForGate);
    ASSERT_TRUE(_RegisterMaintenance(stubborn));
    ASSERT_TRUE(_StartMaintenance());
    ASSERT_TRUE(stubborn->WaitRunning());
    Clock::time_point const start = Clock::now();
    {
      vorx::test::BoxCapture boxes;
      _StopMaintenance();
      EXPECT_TRUE(boxes.Boxes().empty()) << "the handle is empty after the detach";
    }
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(24900));
    EXPECT_FALSE(_IsMaintenanceRunning());
    EXPECT_FALSE(stubborn->ended.load());

    // Let the detached thread finish its run and end on the stop event.
    stubborn->Open();
    ASSERT_TRUE(journal.WaitFor(1));
    ASSERT_TRUE(_UnregisterMaintenance(stubborn)) << "waits for the end of the run";
    _ReleaseMaintenanceList();
  }
  Clock::time_point const deadline = Clock::now() + std::chrono::seconds(10);
  while (vorx::test::LiveBlocks() != before && Clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(vorx::test::LiveBlocks(), before) << "the detached thread let its blocks go";
}
