// Maintenance requests for the tests: each records its runs in a shared journal and can be made
// to throw or to wait for a gate inside its run.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <vorx/core.h>
#include <vorx/threading.h>

namespace vorx::test {

// The order in which requests ran; the first `limit` runs are kept.
class Journal {
public:
  void Add(char const * name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_total;
    if (m_names.size() < 64) {
      m_names.emplace_back(name);
    }
    m_changed.notify_all();
  }
  // Waits (at most 10 s) until `count` runs have been recorded; false on time-out.
  bool WaitFor(std::size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_total >= count; });
  }
  std::vector<std::string> Names() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_names;
  }
  std::size_t Total() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_total;
  }

private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_names;
  std::size_t m_total = 0;
};

class Request final : public VORX::Threading::IMaintenanceRequest {
public:
  enum Behaviour { kRecord, kThrowFirst, kWaitForGate, kSleepLong };
  static constexpr std::uint64_t kAlwaysDue = 0;

  Request(char const * name, std::int32_t priority, std::uint64_t due, Journal * journal,
          Behaviour behaviour = kRecord)
      : m_narrow(name), m_priority(priority), m_due(due), m_journal(journal),
        m_behaviour(behaviour), m_running(true) {
    for (char const * c = name; *c; ++c) {
      m_name.push_back(static_cast<char16_t>(*c));
    }
  }

  qefWChar const * GetName() override { return m_name.c_str(); }
  std::uint64_t GetNextDueTime() override { return m_due.load(); }
  std::int32_t GetPriority() override { return m_priority; }
  void Run() override {
    priorityInRun = VORX::Threading::CurrentThread::OS::GetThreadPriority();
    ++started;
    m_running.Set();
    switch (m_behaviour) {
    case kThrowFirst:
      if (m_runs++ == 0) {
        throw std::runtime_error("first run fails");
      }
      break;
    case kWaitForGate: {
      // Not an interruption point: only the gate ends this wait.
      std::unique_lock<std::mutex> lock(m_gateMutex);
      m_gateChanged.wait(lock, [&] { return m_open; });
      ended = true;
      break;
    }
    case kSleepLong:
      try {
        VORX::Threading::CurrentThread::sleep(120000);
      } catch (...) {
        interrupted = true;
        throw;
      }
      break;
    case kRecord:
      break;
    }
    m_journal->Add(m_narrow.c_str());
    ++finished;
  }

  // Opens the gate of a `kWaitForGate` run.
  void Open() {
    std::lock_guard<std::mutex> lock(m_gateMutex);
    m_open = true;
    m_gateChanged.notify_all();
  }
  // Waits (at most 10 s) until a run has begun.
  bool WaitRunning() { return m_running.Wait(10000) == VORX::Threading::qefWaitObject0; }

  std::atomic<int> started{0};
  std::atomic<int> finished{0};
  std::atomic<bool> ended{false};
  std::atomic<bool> interrupted{false};
  std::atomic<int> priorityInRun{-99};

private:
  std::string m_narrow;
  std::u16string m_name;
  std::int32_t m_priority;
  std::atomic<std::uint64_t> m_due;
  Journal * m_journal;
  Behaviour m_behaviour;
  std::mutex m_gateMutex;
  std::condition_variable m_gateChanged;
  bool m_open = false;
  VORX::Threading::CPEvent m_running;
  int m_runs = 0;
};

using RequestHandle = VORX::Threading::CPInterfaceObject<Request>;

inline RequestHandle MakeRequest(char const * name, std::int32_t priority, std::uint64_t due,
                                 Journal * journal,
                                 Request::Behaviour behaviour = Request::kRecord) {
  RequestHandle handle;
  handle.Create(name, priority, due, journal, behaviour);
  return handle;
}

} // namespace vorx::test
