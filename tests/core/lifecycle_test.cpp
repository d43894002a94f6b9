// The library's start and stop: nesting, the unclamped count, and the pool's maintenance at work.
#include <vorx/core.h>
#include <vorx/string.h>
#include <vorx/threading.h>

#include <gtest/gtest.h>

using VORX::String::CPPoolString;
using VORX::String::CStringPool;
using VORX::Threading::_IsMaintenanceRunning;

namespace {

TEST(Lifecycle, NestedCallsStartAndStopOnceAndTheCountIsNotClamped) {
  EXPECT_TRUE(VORX::AppInit() && VORX::AppInit());
  EXPECT_FALSE(CStringPool::AppInit()) << "the pool's request is registered already";
  VORX::AppExit();
  EXPECT_TRUE(_IsMaintenanceRunning());
  VORX::AppExit();
  EXPECT_FALSE(_IsMaintenanceRunning());
  // The pool's request is gone with the stop, so it can register again.
  EXPECT_TRUE(CStringPool::AppInit());
  CStringPool::AppExit();
  VORX::Threading::_ReleaseMaintenanceList();
  VORX::AppExit();              // the count goes to -1
  EXPECT_TRUE(VORX::AppInit()); // back to 0: not a start
  EXPECT_FALSE(_IsMaintenanceRunning());
  EXPECT_TRUE(VORX::AppInit()); // 1: the library starts again after a complete stop
  EXPECT_TRUE(_IsMaintenanceRunning());
  VORX::AppExit();
}

constexpr char16_t kAged[] = u"aged-by-the-maintenance-thread";

// Runs only when the pool's request has been chosen about a hundred times since (its priority is
// far below), and signals once the watched text has left the pool.
struct Watcher final : VORX::Threading::IMaintenanceRequest {
  qefWChar const * GetName() override { return u"Watcher"; }
  std::uint64_t GetNextDueTime() override { return 0; }
  std::int32_t GetPriority() override { return -100; }
  void Run() override {
    if (CStringPool::QueryStringRef(kAged).isnull()) {
      gone.Set();
    }
  }
  VORX::Threading::CPEvent gone{true};
};

TEST(Lifecycle, ThePoolsMaintenanceAgesOutUnheldStrings) {
  CStringPool::_SetMaintenanceIntervals(0, 0);
  ASSERT_TRUE(VORX::AppInit());
  CPPoolString(kAged).free();
  VORX::Threading::CPInterfaceObject<Watcher> watcher;
  ASSERT_TRUE(watcher.Create() && VORX::Threading::_RegisterMaintenance(watcher));
  EXPECT_EQ(watcher->gone.Wait(20000), VORX::Threading::qefWaitObject0);
  VORX::AppExit();
  CStringPool::_SetMaintenanceIntervals(20000, 10000);
}

} // namespace
