// Maintenance requests for the tests: each records its runs in a shared journal and can be made
// to throw on its first run or to wait for its gate.
#pragma once

#include <algorithm>
#include <atomic>
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
    Count(dueAsked);
    return m_due;
  }
  std::int32_t GetPriority() override { return m_priority; }
  void Run() override {
    priorityInRun = VORX::Threading::CurrentThread::OS::GetThreadPriority();
    if (Count(started) == 1 && m_behaviour == kThrowFirst) {
      throw std::runtime_error("first run fails");
    }
    if (m_behaviour == kGate) { // an interruption point
      gate.Wait(VORX::Threading::qefInfinite);
    }
    Count(finished, m_name);
  }

  // Waits at most 10 s until `done()` holds; false on time-out.
  template <class F> static bool WaitUntil(F done) {
    std::unique_lock<std::mutex> lock(s_mutex);
    return s_changed.wait_for(lock, std::chrono::seconds(10), done);
  }

  // The names of the runs that finished, in order: read in `WaitUntil` or once the service
  // thread has ended.
  static inline std::vector<std::u16string> journal;
  std::atomic<int> started = 0, finished = 0, dueAsked = 0, priorityInRun = -99;
  VORX::Threading::CPEvent gate{true};

private:
  // Counts one more in `counter` (and journals `name`) and wakes `WaitUntil`.
  static int Count(std::atomic<int> & counter, std::u16string const & name = u"") {
    std::lock_guard<std::mutex> lock(s_mutex);
    if (!name.empty()) {
      journal.push_back(name);
    }
    s_changed.notify_all(); // the waiters wake when the lock goes, after the count
    return ++counter;
  }
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
    Request::journal.clear();
  }
};

} // namespace vorx::test
