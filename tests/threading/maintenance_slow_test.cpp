#include <chrono>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "threading/maintenance_requests.h"

using namespace VORX::Threading;
using vorx::test::MakeRequest;
using vorx::test::Request;
using MaintenanceSlow = vorx::test::MaintenanceFixture;
using Clock = std::chrono::steady_clock;

TEST_F(MaintenanceSlow, UnregisteringARunLongerThanTenSecondsFailsAndLeavesItWithdrawn) {
  vorx::test::LogCapture log;
  auto busy = MakeRequest("CBusyMaintenance", 0, 0, Request::kGate);
  ASSERT_TRUE(_RegisterMaintenance(busy));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(Request::WaitUntil([&] { return busy->started == 1; }));
  std::uint64_t const start = VORX::Core::OS::GetTimeNow();
  EXPECT_FALSE(_UnregisterMaintenance(busy));
  EXPECT_GE(VORX::Core::OS::GetTimeNow() - start, 10000u);
  auto const lines = log.Lines();
  ASSERT_FALSE(lines.empty());
  auto const & line = lines.back();
  EXPECT_EQ(line.level, qefDL_Error);
  EXPECT_EQ(line.file, "maintenance");
  EXPECT_EQ(line.message,
            u"Service for CBusyMaintenance can not unregister due to pending condition...");

  busy->Open(); // the withdrawn record goes when the run ends; it is not chosen again
  _StopMaintenance();
  EXPECT_EQ(busy->started, 1);
  EXPECT_FALSE(_UnregisterMaintenance(busy)) << "no longer registered";
  EXPECT_EQ(busy.lockcnt(), 1u);
}

TEST_F(MaintenanceSlow, StopInterruptsARunThatIgnoresTheStopEventAfterTwentySeconds) {
  auto sleeper = MakeRequest("sleeper", 0, 0, Request::kSleepLong);
  ASSERT_TRUE(_RegisterMaintenance(sleeper));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(Request::WaitUntil([&] { return sleeper->started == 1; }));
  Clock::time_point const start = Clock::now();
  _StopMaintenance();
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(19900));
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(25000)) << "ended in the second wait";
  EXPECT_TRUE(sleeper->interrupted.load());
  EXPECT_FALSE(_IsMaintenanceRunning()) << "released, not detached";
}
