#include <chrono>

#include <gtest/gtest.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"
#include "threading/maintenance_requests.h"

using namespace VORX::Threading;
using namespace vorx::test;
using MaintenanceSlow = vorx::test::MaintenanceFixture;
using Clock = std::chrono::steady_clock;

TEST_F(MaintenanceSlow, ARunThatNeverEndsBlocksUnregisteringTenSecondsAndStoppingTwenty) {
  vorx::test::LogCapture log;
  auto sleeper = MakeRequest(u"CBusyMaintenance", 0, 0, Request::kGate);
  ASSERT_TRUE(_RegisterMaintenance(sleeper));
  ASSERT_TRUE(_StartMaintenance());
  ASSERT_TRUE(Request::WaitUntil([&] { return sleeper->started == 1; }));
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(_UnregisterMaintenance(sleeper));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(9990));
  EXPECT_TRUE(
      Logged(log, qefDL_Error,
             u"Service for CBusyMaintenance can not unregister due to pending condition..."));

  start = Clock::now();
  _StopMaintenance(); // ignores the stop event, so it is interrupted after twenty seconds
  EXPECT_TRUE(Clock::now() - start >= std::chrono::milliseconds(19900) &&
              Clock::now() - start < std::chrono::milliseconds(25000) && !_IsMaintenanceRunning())
      << "ended in the second wait";
  EXPECT_EQ(sleeper->started, 1) << "withdrawn: not chosen again";
  EXPECT_FALSE(_UnregisterMaintenance(sleeper)) << "the record went when the run ended";
  EXPECT_EQ(sleeper.lockcnt(), 1u) << "the run was interrupted, not left running";
}
