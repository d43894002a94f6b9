// Maintenance requests for the tests: each records its runs in a shared journal and can be made
// to throw on its first run or to wait for its gate.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/threading.h>

#include "support/diagnostics_capture.h"

namespace vorx::test {

class Request final : public VORX::Threading::IMaintenanceRequest {
public:
  enum Behaviour { kRecord, kThrowFirst, kGate };

  Request(std::u16string name, std::int32_t priority, std::uint64_t due, Behaviour behaviour)
      : m_name(std::move(name)), m_priority(priority), m_due(due), m_behaviour(behaviour) {}

  qefWChar const * GetName() override { return m_name.c_str(); }
  std::uint64_t GetNextDueTime() override {
    std::lock_guard<std::mutex> lock(s_mutex);
    ++dueAsked;
    s_changed.notify_all();
    return m_due;
  }
  std::int32_t GetPriority() override { return m_priority; }
  void Run() override {
    std::unique_lock<std::mutex> lock(s_mutex);
    ++started;
    priorityInRun = VORX::Threading::CurrentThread::OS::GetThreadPriority();
    s_changed.notify_all();
    if (m_behaviour == kThrowFirst && started == 1) {
      throw std::runtime_error("first run fails");
    }
    if (m_behaviour == kGate) { // an interruption point
      lock.unlock();
      gate.Wait(VORX::Threading::qefInfinite);
      lock.lock();
    }
    ++finished;
    journal.push_back(m_name);
    s_changed.notify_all();
  }

  // Waits at most 10 s until `done()` holds; false on time-out.
  template <class F> static bool WaitUntil(F done) {
    std::unique_lock<std::mutex> lock(s_mutex);
    return s_changed.wait_for(lock, std::chrono::seconds(10), done);
  }
  static std::unique_lock<std::mutex> Locked() { return std::unique_lock<std::mutex>(s_mutex); }

  // The names of the runs that finished, in order; guarded by the lock of `WaitUntil`, `Locked`.
  static inline std::vector<std::u16string> journal;
  int started = 0, finished = 0, dueAsked = 0, priorityInRun = -99; // guarded by the lock
  VORX::Threading::CPEvent gate{true};

private:
  static inline std::mutex s_mutex;
  static inline std::condition_variable s_changed;
  std::u16string m_name;
  std::int32_t m_priority;
  std::uint64_t m_due;
  Behaviour m_behaviour;
};

inline VORX::Threading::CPInterfaceObject<Request>
MakeRequest(char16_t const * name, std::int32_t priority, std::uint64_t due,
            Request::Behaviour behaviour = Request::kRecord) {
  VORX::Threading::CPInterfaceObject<Request> handle;
  handle.Create(name, priority, due, behaviour);
  return handle;
}

// Whether the service logged `message` at `level`.
inline bool Logged(LogCapture const & log, _qefDebugLevel level, std::u16string const & message) {
  auto const lines = log.Lines();
  return std::any_of(lines.begin(), lines.end(), [&](LoggedLine const & line) {
    return line.level == level && line.category == u"VORX" && line.file == "maintenance" &&
           line.message == message;
  });
}

// Stops the service, releases its list and clears the journal after each test.
class MaintenanceFixture : public ::testing::Test {
protected:
  void TearDown() override {
    VORX::Threading::_StopMaintenance();
    VORX::Threading::_ReleaseMaintenanceList();
    auto lock = Request::Locked();
    Request::journal.clear();
  }
};

} // namespace vorx::test
