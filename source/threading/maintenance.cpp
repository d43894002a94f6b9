// The maintenance service: a registry of requests under one library-wide lock, and the one
// background thread that runs the due request of highest priority plus age, one at a time.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/threading.h>

#include <cstdint>
#include <limits>
#include <new>

#include "core/forever.h"
#include "threading/block_access.h"

namespace VORX::Maintenance {

// The maintenance thread's object: the stop and wake events, attached in that order to the
// multiple event it waits on.
class CMaintenanceThread {
public:
  CMaintenanceThread(Threading::CPEvent const & stop, Threading::CPEvent const & wake)
      : m_stop(stop), m_wake(wake), m_events(true),
        m_ready(m_events.Attach(m_stop) && m_events.Attach(m_wake)) {}
  // False when the events could not be built or attached.
  bool IsReady() const { return m_ready; }
  void Run();

private:
  Threading::CPEvent m_stop;
  Threading::CPEvent m_wake;
  Threading::CPMultipleEvent m_events;
  bool m_ready;
};

} // namespace VORX::Maintenance

namespace VORX::Threading {
namespace {

using Buffers::CPObjectMemory;

constexpr std::uint32_t kWithdrawn = 1; // flag: waiting for removal, never chosen again
constexpr std::uint64_t kUnregisterLimit = 10000;
constexpr std::uint32_t kUnregisterPoll = 5;
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// One registration.
struct _tagRecord {
  CPObjectMemory client; // shared: registration keeps the client alive
  std::size_t offset;    // of `IMaintenanceRequest` in the client's payload
  std::uint32_t flags;
  std::uint32_t age; // passes in which the request was due but not chosen
};

// Guarded by g_lock: the registry, the current request.
_tForever<CPCriticalSection> g_lock;
_tagRecord * g_records = nullptr;
std::size_t g_count = 0;
std::size_t g_capacity = 0;
_tForever<CPObjectMemory> g_current; // the request being run, or empty
// The thread's events: stop (manual reset) and wake (automatic reset).
_tForever<CPEvent> g_stop(true);
_tForever<CPEvent> g_wake(false);
// The maintenance thread, for start and stop only.
_tForever<CPThread> g_cpMRThread;

class _cLock {
public:
  _cLock() { g_lock->Enter(); }
  ~_cLock() { g_lock->Leave(); }
  _cLock(_cLock const &) = delete;
  _cLock & operator=(_cLock const &) = delete;
};

IMaintenanceRequest * _request(_tagRecord const & record) {
  return _InterfaceAt<IMaintenanceRequest>(record.client, record.offset);
}

std::size_t _find(CPObjectMemory const & client) {
  for (std::size_t i = 0; i < g_count; ++i) {
    if (g_records[i].client == client) {
      return i;
    }
  }
  return kNone;
}

bool _append(CPObjectMemory const & client, std::size_t offset) {
  if (g_count == g_capacity) {
    std::size_t const capacity = g_capacity + 16;
    void * grown = Core::OS::_frealloc(g_records, capacity * sizeof(_tagRecord));
    if (!grown) {
      return false;
    }
    // Records move as bytes: a handle is one pointer.
    g_records = static_cast<_tagRecord *>(grown);
    g_capacity = capacity;
  }
  ::new (g_records + g_count) _tagRecord{client, offset, 0, 0};
  ++g_count;
  return true;
}

void _remove(std::size_t at) {
  g_records[at].~_tagRecord();
  for (std::size_t i = at + 1; i < g_count; ++i) {
    ::new (g_records + i - 1) _tagRecord(std::move(g_records[i]));
    g_records[i].~_tagRecord();
  }
  --g_count;
}

// Picks the due request of highest priority plus age and makes it current; ages the others that
// are due. False when the stop event is set or nothing is due.
bool _choose(CPEvent & stop, CPObjectMemory & client, std::size_t & offset) {
  _cLock lock;
  if (stop.Wait(0) == qefWaitObject0) {
    return false;
  }
  std::uint64_t const now = Core::OS::GetTimeNow();
  std::int64_t best = std::numeric_limits<std::int32_t>::min();
  std::size_t chosen = kNone;
  for (std::size_t i = 0; i < g_count; ++i) {
    _tagRecord & record = g_records[i];
    if (record.flags & kWithdrawn) {
      continue;
    }
    IMaintenanceRequest * request = _request(record);
    std::uint64_t const due = request->GetNextDueTime();
    std::int64_t const score = std::int64_t{request->GetPriority()} + record.age;
    if (due <= now) {
      ++record.age;
      if (score > best) {
        best = score;
        chosen = i;
      }
    }
  }
  if (chosen == kNone) {
    return false;
  }
  g_records[chosen].age = 0;
  *g_current = g_records[chosen].client;
  client = g_records[chosen].client;
  offset = g_records[chosen].offset;
  return true;
}

// Ends the current run; a request withdrawn meanwhile leaves the registry now.
void _finishRun(CPObjectMemory const & client, std::size_t offset, bool failed) {
  if (failed) {
    Develop::_logWrite(qefDL_Warning, u"VORX", "maintenance", __LINE__,
                       u"Service for %ls ended with an exception",
                       _InterfaceAt<IMaintenanceRequest>(client, offset)->GetName());
  }
  _cLock lock;
  g_current->free();
  std::size_t const at = _find(client);
  if (at != kNone && (g_records[at].flags & kWithdrawn)) {
    _remove(at);
  }
}

// Milliseconds until the earliest due time: 0 when it has passed, `qefInfinite` when nothing is
// registered. Note: the distance is cut to its low 32 bits.
std::uint32_t _waitTime() {
  _cLock lock;
  bool any = false;
  std::uint64_t earliest = 0;
  for (std::size_t i = 0; i < g_count; ++i) {
    if (g_records[i].flags & kWithdrawn) {
      continue;
    }
    std::uint64_t const due = _request(g_records[i])->GetNextDueTime();
    if (!any || due < earliest) {
      earliest = due;
      any = true;
    }
  }
  if (!any) {
    return qefInfinite;
  }
  std::uint64_t const now = Core::OS::GetTimeNow();
  return earliest <= now ? 0 : static_cast<std::uint32_t>(earliest - now);
}

} // namespace

bool _RegisterMaintenance(CPObjectMemory const & client) {
  std::size_t const offset = _cBlockAccess::Interface(client, IID_IMaintenanceRequest);
  if (offset == kNone) {
    return false;
  }
  bool registered = false;
  {
    _cLock lock;
    registered = _find(client) != kNone || _append(client, offset);
  }
  g_wake->Set();
  return registered;
}

bool _UnregisterMaintenance(CPObjectMemory const & client) {
  {
    _cLock lock;
    std::size_t const at = _find(client);
    if (at == kNone) {
      return false;
    }
    if (*g_current != client) {
      _remove(at);
      return true;
    }
    g_records[at].flags |= kWithdrawn;
  }
  std::uint64_t const start = Core::OS::GetTimeNow();
  for (;;) {
    {
      _cLock lock;
      if (*g_current != client) {
        break;
      }
    }
    if (Core::OS::GetTimeNow() - start > kUnregisterLimit) {
      Develop::_logWrite(qefDL_Error, u"VORX", "maintenance", __LINE__,
                         u"Service for %ls can not unregister due to pending condition...",
                         _InterfaceAt<IMaintenanceRequest>(
                             client, _cBlockAccess::Interface(client, IID_IMaintenanceRequest))
                             ->GetName());
      return false;
    }
    CurrentThread::sleep(kUnregisterPoll);
  }
  _cLock lock;
  std::size_t const at = _find(client);
  if (at != kNone) {
    _remove(at);
  }
  return true;
}

bool _StartMaintenance() {
  if (*g_cpMRThread) {
    return true;
  }
  g_stop->Reset();
  g_wake->Reset();
  Develop::_logWrite(qefDL_Info, u"VORX", "maintenance", __LINE__, u"Starting maintenance thread");
  CThreadWrapper<Maintenance::CMaintenanceThread> work;
  if (!work.Create(*g_stop, *g_wake) || !work->IsReady()) {
    return false;
  }
  try {
    return g_cpMRThread->Execute(work, 0);
  } catch (...) {
    return false;
  }
}

void _StopMaintenance() {
  if (!*g_cpMRThread) {
    return;
  }
  g_stop->Set();
  if (g_cpMRThread->Wait(20000) == static_cast<std::uint64_t>(-1)) {
    // Interrupts, waits 5000 ms more, detaches a thread that still runs; empties the handle.
    g_cpMRThread->Terminate();
  }
  g_cpMRThread->free();
  Develop::_istrue_(static_cast<bool>(*g_cpMRThread), "maintenance,429:g_cpMRThread");
}

void _ReleaseMaintenanceList() {
  _cLock lock;
  for (std::size_t i = 0; i < g_count; ++i) {
    g_records[i].~_tagRecord();
  }
  Core::OS::_ffree(g_records);
  g_records = nullptr;
  g_count = 0;
  g_capacity = 0;
}

bool _IsMaintenanceRunning() {
  return static_cast<bool>(*g_cpMRThread);
}

} // namespace VORX::Threading

namespace VORX::Maintenance {

void CMaintenanceThread::Run() {
  using namespace Threading;
  for (;;) {
    CurrentThread::OS::SetThreadPriority(eThreadPriorityNormal);
    CPObjectMemory client;
    std::size_t offset = 0;
    while (_choose(m_stop, client, offset)) {
      bool failed = false;
      try {
        _InterfaceAt<IMaintenanceRequest>(client, offset)->Run();
      } catch (...) {
        failed = true;
      }
      _finishRun(client, offset, failed);
      client.free();
    }
    std::uint32_t const wait = _waitTime();
    CurrentThread::OS::SetThreadPriority(eThreadPriorityLowest);
    std::uint32_t const fired = m_events.Wait(wait);
    if (fired == qefWaitObject0 || fired == qefWaitFailed) {
      break;
    }
  }
  CurrentThread::OS::SetThreadPriority(eThreadPriorityNormal);
}

} // namespace VORX::Maintenance
