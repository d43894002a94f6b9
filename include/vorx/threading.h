// VORX::Threading: locks (`CPMutex`, `CPCriticalSection`, `CPRWInterlock`), events (`CPEvent`,
// `CPMultipleEvent`) and threads (`CPThread`, `CThreadWrapper<T>`) as reference-counted handles,
// the calling thread's sleep and priority (`CurrentThread`), and the interface and internal
// entry points of the library's maintenance service (`IMaintenanceRequest`).
//
// Every handle is one pointer to an object-memory block: the constructor allocates the block,
// copies share it (and so share the lock, event or thread), the last handle frees it. A handle
// whose block could not be allocated does nothing and answers false (the wait failure result
// for waits). Exceptions of the underlying Boost.Thread primitives propagate.
#pragma once

#include <new>
#include <utility>

#include <vorx/base.h>
#include <vorx/buffers.h>
#include <vorx/qef.h>

namespace VORX::Threading {

// A time-out that waits without limit.
inline constexpr std::uint32_t qefInfinite = 0xFFFFFFFFu;
// Wait results: the first (or only) event fired; add the index for a later event of a set.
inline constexpr std::uint32_t qefWaitObject0 = 0;
// Wait results: the time-out passed without a signal.
inline constexpr std::uint32_t qefWaitTimeout = 0x102u;
// Wait results: nothing to wait on (empty handle, or a set without events).
inline constexpr std::uint32_t qefWaitFailed = 0xFFFFFFFFu;

// Plain lock over a timed mutex. Not recursive: a second `Enter` by the owner blocks for ever.
// Any thread may use it; only the owner may `Leave`. Copies lock the same lock.
class VORX_API CPMutex : public Buffers::CPObjectMemory {
public:
  // Allocates the lock; an empty handle when memory runs out.
  CPMutex();
  CPMutex(CPMutex const &) noexcept = default;
  CPMutex & operator=(CPMutex const &) noexcept = default;

  // Blocks until locked; false only for an empty handle.
  bool Enter();
  // Locks within `ms` milliseconds; `qefInfinite` blocks as `Enter`. False on time-out; 0 answers
  // at once.
  bool TryEnter(std::uint32_t ms);
  // Unlocks; false only for an empty handle.
  bool Leave();

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// Recursive lock: the owning thread may enter again and leaves as often as it entered. Any thread
// may use it. Copies lock the same lock. Uncontended, an entry and a leave are one atomic
// operation each; a thread that finds it held sleeps until a leave wakes it.
// Note: `Leave` does not check its caller; a leave by another thread still counts down.
class VORX_API CPCriticalSection : public Buffers::CPObjectMemory {
public:
  // Allocates the lock; an empty handle when memory runs out.
  CPCriticalSection();
  CPCriticalSection(CPCriticalSection const &) noexcept = default;
  CPCriticalSection & operator=(CPCriticalSection const &) noexcept = default;

  // Blocks until owned; false only for an empty handle.
  bool Enter();
  // As `Enter`, waiting at most `ms` milliseconds for the first entry; re-entry by the owner
  // always succeeds. False on time-out.
  bool TryEnter(std::uint32_t ms);
  // Counts one entry down, unlocking at 0. False for an empty handle or a lock not entered.
  bool Leave();

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// Reader/writer lock whose exclusive owner may re-enter for writing and for reading without
// blocking (each counted apart, up to 65535 extra entries each) and must leave as often. A thread
// holding it shared that asks for it exclusively blocks like any writer (it deadlocks alone).
// Copies lock the same lock.
class VORX_API CPRWInterlock : public Buffers::CPObjectMemory {
public:
  // Allocates the lock; an empty handle when memory runs out.
  CPRWInterlock();
  CPRWInterlock(CPRWInterlock const &) noexcept = default;
  CPRWInterlock & operator=(CPRWInterlock const &) noexcept = default;

  // Exclusive entry; false for an empty handle or a re-entry beyond 65535.
  bool Enter();
  // As `Enter` within `ms` milliseconds; false on time-out.
  bool TryEnter(std::uint32_t ms);
  // Shared entry (counted only, when the caller owns it exclusively); false for an empty handle
  // or a re-entry beyond 65535.
  bool EnterRead();
  // As `EnterRead` within `ms` milliseconds; false on time-out.
  bool TryEnterRead(std::uint32_t ms);
  // Undoes an exclusive re-entry, else releases the exclusive hold. False for an empty handle.
  bool Leave();
  // Undoes a read re-entry of the owner, else releases one shared hold. False for an empty handle.
  bool LeaveRead();

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// Event with two modes chosen at construction. Manual reset (`true`): `Set` releases every
// waiter and the event stays signalled until `Reset`. Automatic reset (`false`): one successful
// wait consumes the signal, so each `Set` releases one waiter; Sets that arrive while the event
// is still signalled merge into one. Any thread may set, reset and wait. Copies are the same event.
class VORX_API CPEvent : public Buffers::CPObjectMemory {
public:
  // A non-signalled event; an empty handle when memory runs out.
  explicit CPEvent(bool bManualReset);
  CPEvent(CPEvent const &) noexcept = default;
  CPEvent & operator=(CPEvent const &) noexcept = default;

  // Signals; false only for an empty handle.
  bool Set();
  // Clears the signal; false only for an empty handle.
  bool Reset();
  // Waits at most `ms` milliseconds (`qefInfinite`: without limit) for the signal: `qefWaitObject0`
  // when signalled, `qefWaitTimeout` when the time passed, `qefWaitFailed` for an empty handle.
  // An interruption point of Boost.Thread.
  std::uint32_t Wait(std::uint32_t ms);
  // The event's identity (there is no operating-system handle); null for an empty handle.
  void * GetHandle() const;
  // True for two handles on the same event.
  bool operator==(CPEvent const & other) const { return CPObjectMemory::operator==(other); }

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// Waits for any of up to 64 attached events, which it keeps alive. Its mode (chosen at
// construction) says what a wait does to a manual-reset event it reports: left signalled (`true`)
// or reset (`false`); an automatic-reset event is always consumed by the wait that reports it.
// Attach, detach and wait may run on different threads; a wait sees the set as it was when it
// began. Copies are the same set.
class VORX_API CPMultipleEvent : public Buffers::CPObjectMemory {
public:
  // An empty set; an empty handle when memory runs out.
  explicit CPMultipleEvent(bool bManualReset);
  CPMultipleEvent(CPMultipleEvent const &) noexcept = default;
  CPMultipleEvent & operator=(CPMultipleEvent const &) noexcept = default;

  // Adds `event` after the others (true, and nothing changes, when it is attached already).
  // False for an empty handle or event, or when 64 are attached.
  bool Attach(CPEvent const & event);
  // Removes `event`; the later ones move up one place. False when it is not attached.
  bool Detach(CPEvent const & event);
  // Resets the attached events whose bit is set in `mask` (bit 0: the first attached).
  // False only for an empty handle.
  bool Reset(std::uint64_t mask);
  // Waits at most `ms` milliseconds (`qefInfinite`: without limit) for any attached event:
  // `qefWaitObject0` plus its index in attach order (the first in that order when several are
  // signalled), `qefWaitTimeout` when the time passed, `qefWaitFailed` for an empty handle or an
  // empty set. An interruption point of Boost.Thread.
  std::uint32_t Wait(std::uint32_t ms);

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// 24508B8F-A78E-4243-9E68-71AA029C838A: the interface a work object offers to run on a
// `CPThread`.
inline constexpr _qefUID IID_IThreadWork{
    0x24508B8Fu, 0xA78Eu, 0x4243u, {0x9Eu, 0x68u, 0x71u, 0xAAu, 0x02u, 0x9Cu, 0x83u, 0x8Au}};

// The work interface: its own first operation is the thread body.
struct IThreadWork : IQEFUnknown {
  // Runs once on the new thread; `work` is the block that offered this interface.
  virtual void ThreadMain(Buffers::CPObjectMemory const & work) = 0;

protected:
  ~IThreadWork() = default;
};

// Handle to a block holding one object of class `P`, built in place by `Create`. The block
// answers interface queries with `P::_queryinterface(id)` (a pointer inside the object, or null).
// Copies share the object; the last handle destroys it. Cannot be cloned.
template <class P> class CPInterfaceObject : public Buffers::CPObjectMemory {
public:
  CPInterfaceObject() noexcept = default;

  // Builds a new `P` from `args`, releasing what the handle held. False (handle empty) when
  // memory runs out or the constructor throws.
  template <class... A> bool Create(A &&... args) {
    if (!Alloc(sizeof(P), &_vtbl)) {
      return false;
    }
    try {
      ::new (get_ptr()) P(std::forward<A>(args)...);
    } catch (...) {
      m_pMH->pVTbl = &Buffers::CPPlainMemory::_vtbl; // nothing to destroy
      free();
      return false;
    }
    return true;
  }
  // The object, or null for an empty handle.
  P * get() const { return static_cast<P *>(get_ptr()); }
  P * operator->() const { return get(); }

  static std::size_t GetTypeID() { return reinterpret_cast<std::size_t>(&_vtbl); }
  using Buffers::CPObjectMemory::GetTypeID;

private:
  static void _create(void *, std::size_t) {}
  static void _finalize(void * payload, std::size_t) { static_cast<P *>(payload)->~P(); }
  static void * _query(void * payload, _qefUID const & id) {
    return static_cast<P *>(payload)->_queryinterface(id);
  }

public:
  // The class table: no clone slot.
  static constexpr Buffers::tagCPOVTABL _vtbl = {&_create, nullptr, &_finalize, &_query};
};

// The object a `CThreadWrapper<T>` block holds: `T` and the work interface that runs `T::Run()`.
// It lives in a block and is counted by the block, so `AddRef` and `Release` answer 0.
template <class T> class _CThreadWork final : public IThreadWork {
public:
  template <class... A> explicit _CThreadWork(A &&... args) : object(std::forward<A>(args)...) {}

  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (!out) {
      return QEF::QEF_E_POINTER;
    }
    *out = _queryinterface(id);
    return *out ? QEF::QEF_S_OK : QEF::QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return 0; }
  std::uint32_t Release() override { return 0; }
  void ThreadMain(Buffers::CPObjectMemory const &) override { object.Run(); }

  void * _queryinterface(_qefUID const & id) {
    if (QEF::_sameUID(id, IID_IThreadWork) || QEF::_sameUID(id, QEF::IID_IQEFUnknown)) {
      return static_cast<IThreadWork *>(this);
    }
    return nullptr;
  }

  T object;
};

// Handle to a block holding a `T` to run on a `CPThread`: the thread calls `T::Run()` once.
// `T` guards its own state against the owner's threads. Copies share the `T`.
template <class T> class CThreadWrapper : public CPInterfaceObject<_CThreadWork<T>> {
public:
  // The `T`, or null for an empty handle.
  T * operator->() const {
    _CThreadWork<T> * work = this->get();
    return work ? &work->object : nullptr;
  }
};

// Handle to one thread running a work object. Empty, or holding a running (or ended, not yet
// waited for) thread. `Execute`, `Wait` and `Terminate` are for the owning thread. Releasing the
// last handle of a running thread detaches it. Copies share the thread.
class VORX_API CPThread : public Buffers::CPObjectMemory {
public:
  CPThread() noexcept = default;
  CPThread(CPThread const &) noexcept = default;
  CPThread & operator=(CPThread const &) noexcept = default;

  // Starts a thread that calls the `IThreadWork` of `work` once (holding a reference to `work`
  // until then), with a stack of `stackSize` bytes (0: the default). False, starting nothing,
  // when the handle holds a thread already, `work` does not offer `IThreadWork`, or memory runs
  // out. A thread the system cannot create raises `boost::thread_resource_error`.
  bool Execute(Buffers::CPObjectMemory & work, std::uint64_t stackSize = 0);
  // Joins for at most `ms` milliseconds (`qefInfinite`: without limit). 0 when the thread has
  // ended (the handle is then empty); all ones on time-out (the handle keeps the thread); all ones
  // minus 1 (-2) for an empty handle, or for a thread no longer joinable (the handle is emptied).
  // A thread waiting for itself raises `boost::thread_resource_error`.
  std::uint64_t Wait(std::uint32_t ms);
  // Requests interruption and joins for at most 5000 ms; detaches a thread that has not ended by
  // then. The handle is empty afterwards. False only when the thread had to be detached.
  bool Terminate();

  static std::size_t GetTypeID();
  using Buffers::CPObjectMemory::GetTypeID;
};

// Thread priorities, lowest to highest.
enum eThreadPriority : int {
  eThreadPriorityLowest = -2,
  eThreadPriorityBelowNormal = -1,
  eThreadPriorityNormal = 0,
  eThreadPriorityAboveNormal = 1,
  eThreadPriorityHighest = 2,
};

namespace CurrentThread {

// Sleeps `ms` milliseconds on the monotonic clock. An interruption point of Boost.Thread: an
// interrupted thread leaves by `boost::thread_interrupted`.
VORX_API void sleep(std::uint32_t ms);

namespace OS {

// Sets the calling thread's priority: -2, -1, 0, 1, 2 are remembered as the system values -15,
// -2, 0, 2, 15; any other value as 0 (normal). `GetThreadPriority` always answers what was set.
// The operating system sees the change only where it can be undone, checked once per process at
// the first call: with CAP_SYS_NICE, or a nice limit (RLIMIT_NICE) that reaches the process's
// nice value at that call, -15 is the idle scheduling class and the others are nice values
// relative to that one (normal is the process's own, +2 is 2 lower; a value beyond the limit is
// refused and ignored). Without either, nothing is applied and every thread keeps the process's
// scheduling: a thread put to idle could not be raised back, so a thread that waits at the lowest
// priority and works at normal (the maintenance thread) would otherwise work at idle for good.
VORX_API void SetThreadPriority(eThreadPriority priority);
// The calling thread's priority as last set (normal for a thread that never set one).
VORX_API eThreadPriority GetThreadPriority();
// A non-zero 32-bit identifier of the calling thread.
VORX_API std::uint32_t GetCurrentThreadId();

} // namespace OS
} // namespace CurrentThread

// 0D18296D-5019-4340-8E3B-83CB06B76EFF: the interface of a maintenance request.
inline constexpr _qefUID IID_IMaintenanceRequest{
    0x0D18296Du, 0x5019u, 0x4340u, {0x8Eu, 0x3Bu, 0x83u, 0xCBu, 0x06u, 0xB7u, 0x6Eu, 0xFFu}};

// What a client implements to be served by the maintenance thread. The client object lives in
// an object-memory block whose interface query answers `IID_IMaintenanceRequest` (for example a
// `CPInterfaceObject<C>` with `C` final and derived from this interface). Its operations are
// called on the maintenance thread, one request at a time; `Run` may throw without harm.
class IMaintenanceRequest {
public:
  // The client's name, for messages.
  virtual qefWChar const * GetName() = 0;
  // When the request next wants to run, on the clock of `VORX::Core::OS::GetTimeNow`.
  virtual std::uint64_t GetNextDueTime() = 0;
  // One round of the maintenance work.
  virtual void Run() = 0;
  // Larger runs first.
  virtual std::int32_t GetPriority() = 0;
  // This interface for `IID_IMaintenanceRequest`, else null.
  virtual void * _queryinterface(_qefUID const & id) {
    return QEF::_sameUID(id, IID_IMaintenanceRequest) ? this : nullptr;
  }

protected:
  ~IMaintenanceRequest() = default;
};

// The maintenance service's entry points, for the library's own start, stop and clients.
// Register `client` (shared: registration keeps it alive). True when registered now or before;
// false when it does not offer `IMaintenanceRequest` or memory runs out. Wakes the thread.
VORX_API bool _RegisterMaintenance(Buffers::CPObjectMemory const & client);
// Withdraws `client`; when its request is running, waits for the run to end (polling every 5 ms,
// for at most 10000 ms), else logs and answers false with the record withdrawn (it goes when the
// run ends). False as well for a client not registered. Note: never call it from a request's
// own run.
VORX_API bool _UnregisterMaintenance(Buffers::CPObjectMemory const & client);
// Starts the maintenance thread; true at once when it runs already. False when it cannot start.
VORX_API bool _StartMaintenance();
// Stops the maintenance thread: signals its stop event, waits 20000 ms, then interrupts it and
// waits 5000 ms more, and detaches it if it still runs. Nothing when it is not running.
VORX_API void _StopMaintenance();
// Releases the service list: every registration ends. Call after `_StopMaintenance`.
VORX_API void _ReleaseMaintenanceList();
// Whether the maintenance thread runs (its handle is not empty).
VORX_API bool _IsMaintenanceRunning();

} // namespace VORX::Threading
