// The library's stop when a maintenance request ignores both the stop and the interruption that
// follows it after 20000 ms: it is detached after 5000 ms more. (A run that honours the
// interruption is covered by the maintenance service's own slow test.)
#include <vorx/core.h>
#include <vorx/threading.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

namespace {

// A run that blocks on a standard condition variable, deaf to interruption, until released.
class Stubborn final : public VORX::Threading::IMaintenanceRequest {
public:
  qefWChar const * GetName() override { return u"Stubborn"; }
  std::uint64_t GetNextDueTime() override { return 0; }
  std::int32_t GetPriority() override { return 100; }
  void Run() override {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != kIdle) {
      return;
    }
    m_state = kRunning;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_released; });
    m_state = kEnded;
    m_changed.notify_all();
  }
  enum State { kIdle, kRunning, kEnded };
  // Waits at most `seconds` for `state`.
  bool WaitFor(State state, int seconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(seconds),
                              [&] { return m_state == state; });
  }
  State Now() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
  }
  void Release() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
  }

private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = kIdle;
  bool m_released = false;
};

TEST(LifecycleSlow, ARequestDeafToStopAndInterruptionIsDetached) {
  VORX::Threading::CPInterfaceObject<Stubborn> request;
  ASSERT_TRUE(request.Create());
  ASSERT_TRUE(VORX::AppInit());
  ASSERT_TRUE(VORX::Threading::_RegisterMaintenance(request));
  ASSERT_TRUE(request->WaitFor(Stubborn::kRunning, 10));
  VORX::AppExit();
  EXPECT_FALSE(VORX::Threading::_IsMaintenanceRunning());
  EXPECT_EQ(request->Now(), Stubborn::kRunning) << "the stop went on without it";
  request->Release();
  EXPECT_TRUE(request->WaitFor(Stubborn::kEnded, 10));
  // The detached thread frees its blocks when it ends, which nothing here can wait for.
  vorx::test::AllowPersistentBlocks();
}

} // namespace
