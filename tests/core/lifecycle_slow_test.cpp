// The library's stop when a maintenance request ignores both the stop and the interruption that
// follows it after 20000 ms: it is detached after 5000 ms more. (A run that honours the
// interruption is covered by the maintenance service's own slow test.)
#include <vorx/core.h>
#include <vorx/threading.h>

#include <atomic>
#include <chrono>
#include <semaphore>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

namespace {

// Runs once, blocking on a standard semaphore, deaf to interruption, until released.
class Stubborn final : public VORX::Threading::IMaintenanceRequest {
public:
  qefWChar const * GetName() override { return u"Stubborn"; }
  std::uint64_t GetNextDueTime() override { return 0; }
  std::int32_t GetPriority() override { return 100; }
  void Run() override {
    if (!started.exchange(true)) {
      running.release();
      release.acquire();
      ended.release();
    }
  }
  std::atomic<bool> started{false};
  std::binary_semaphore running{0}, release{0}, ended{0};
};

TEST(LifecycleSlow, ARequestDeafToStopAndInterruptionIsDetached) {
  VORX::Threading::CPInterfaceObject<Stubborn> request;
  ASSERT_TRUE(request.Create());
  ASSERT_TRUE(VORX::AppInit());
  ASSERT_TRUE(VORX::Threading::_RegisterMaintenance(request));
  ASSERT_TRUE(request->running.try_acquire_for(std::chrono::seconds(10)));
  VORX::AppExit();
  EXPECT_FALSE(VORX::Threading::_IsMaintenanceRunning());
  EXPECT_FALSE(request->ended.try_acquire()) << "the stop went on without it";
  request->release.release();
  EXPECT_TRUE(request->ended.try_acquire_for(std::chrono::seconds(10)));
  // The detached thread frees its blocks when it ends, which nothing here can wait for.
  vorx::test::AllowPersistentBlocks();
}

} // namespace
