// The library's stop when a maintenance request will not end: interrupted after 20000 ms, and
// detached after 5000 ms more when it ignores the interruption too.
#include <vorx/core.h>
#include <vorx/threading.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"

namespace {

// A run that blocks until released: on a standard condition variable (deaf to interruption), or
// in the library's sleep (an interruption point).
class Stubborn final : public VORX::Threading::IMaintenanceRequest {
public:
  explicit Stubborn(bool honoursInterruption) : m_honours(honoursInterruption) {}
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
    if (m_honours) {
      lock.unlock();
      try {
        VORX::Threading::CurrentThread::sleep(120000);
      } catch (...) {
        lock.lock();
        m_state = kInterrupted;
        m_changed.notify_all();
        throw;
      }
      lock.lock();
    } else {
      m_changed.wait(lock, [this] { return m_released; });
    }
    m_state = kEnded;
    m_changed.notify_all();
  }
  enum State { kIdle, kRunning, kInterrupted, kEnded };
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
  bool const m_honours;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = kIdle;
  bool m_released = false;
};

// One that honours the interruption ends within the second wait; one deaf to it is left running.
TEST(LifecycleSlow, AStubbornRequestIsInterruptedThenDetached) {
  for (bool const honours : {true, false}) {
    SCOPED_TRACE(honours ? "honours the interruption" : "deaf to the interruption");
    VORX::Threading::CPInterfaceObject<Stubborn> request;
    ASSERT_TRUE(request.Create(honours));
    ASSERT_TRUE(VORX::AppInit());
    ASSERT_TRUE(VORX::Threading::_RegisterMaintenance(request));
    ASSERT_TRUE(request->WaitFor(Stubborn::kRunning, 10));
    VORX::AppExit();
    EXPECT_FALSE(VORX::Threading::_IsMaintenanceRunning());
    EXPECT_EQ(request->Now(), honours ? Stubborn::kInterrupted : Stubborn::kRunning);
    if (!honours) {
      request->Release();
      EXPECT_TRUE(request->WaitFor(Stubborn::kEnded, 10));
      // The detached thread frees its blocks when it ends, which nothing here can wait for.
      vorx::test::AllowPersistentBlocks();
    }
  }
}

} // namespace
