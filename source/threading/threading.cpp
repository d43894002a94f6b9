// Locks, events and threads over Boost.Thread. Each handle class has its own class table (no
// clone slot); the payload is built in place right after allocation and destroyed by the table.
#include <vorx/develop.h>
#include <vorx/threading.h>

#include <atomic>
#include <chrono>

#include <boost/chrono.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/shared_mutex.hpp>
#include <boost/thread/thread.hpp>

#include "threading/block_access.h"
#include "threading/critical_section.h"

namespace VORX::Threading {
namespace {

using Buffers::CPObjectMemory;
using Buffers::tagCPOVTABL;

// Class functions of a handle class whose payload is one `P`.
template <class P> struct _tClass {
  static void Create(void *, std::size_t) {}
  static void Finalize(void * payload, std::size_t) { static_cast<P *>(payload)->~P(); }
  static constexpr tagCPOVTABL table = {&Create, nullptr, &Finalize, &CPObjectMemory::_nointerface};
};

template <class P> P * _payload(CPObjectMemory const & handle) {
  return static_cast<P *>(_cBlockAccess::Payload(handle));
}

// A deadline `ms` milliseconds from now on the monotonic clock (the clock of Boost's
// `steady_clock`, read through the library's own clock so no Boost.Chrono library is needed).
boost::chrono::steady_clock::time_point _deadline(std::uint32_t ms) {
  return boost::chrono::steady_clock::time_point(boost::chrono::nanoseconds(
      static_cast<boost::int_least64_t>(Develop::_now_nano() + std::uint64_t{ms} * 1000000u)));
}

// ---- payloads ----

struct _tagMutex {
  boost::timed_mutex mutex;
};

struct _tagRWInterlock {
  boost::shared_mutex mutex;
  std::atomic<std::uint32_t> owner{0};
  std::atomic<std::uint16_t> readEntries{0};  // extra read entries of the owner
  std::atomic<std::uint16_t> writeEntries{0}; // extra exclusive entries of the owner
};

struct _tagWaiter;

// One multiple wait registered with one event.
struct _tagWaitLink {
  _tagWaiter * waiter = nullptr;
  _tagWaitLink * prev = nullptr;
  _tagWaitLink * next = nullptr;
  bool linked = false;
};

// A multiple wait in progress: events that are set while it waits fire it.
struct _tagWaiter {
  boost::mutex mutex;
  boost::condition_variable wake;
  bool fired = false;
};

struct _tagEvent {
  explicit _tagEvent(bool manual) : mode(manual ? 1u : 3u) {}
  bool Manual() const { return mode == 1u; }

  boost::mutex mutex;
  boost::condition_variable wake;
  std::uint32_t const mode; // 1: manual reset, 3: automatic reset
  bool signalled = false;
  _tagWaitLink * waiters = nullptr; // multiple waits to fire on `Set`
};

constexpr std::uint32_t kMaxEvents = 64;

struct _tagMultipleEvent {
  explicit _tagMultipleEvent(bool manualReset) : manual(manualReset) {}

  boost::mutex mutex;
  bool const manual;
  std::uint32_t count = 0;
  CPObjectMemory events[kMaxEvents]; // the attached events, in attach order
};

struct _tagThread {
  ~_tagThread() {
    if (thread.joinable()) {
      thread.detach();
    }
  }
  boost::thread thread;
};

// Builds the payload of a freshly allocated block; when that throws the block goes unbuilt and
// the handle is empty.
template <class P, class... A> void _build(CPObjectMemory & handle, A... args) {
  try {
    ::new (_cBlockAccess::Payload(handle)) P(args...);
  } catch (...) {
    _cBlockAccess::Abandon(handle);
  }
}

} // namespace

// ---- CPMutex ----

CPMutex::CPMutex() {
  if (Alloc(sizeof(_tagMutex), &_tClass<_tagMutex>::table)) {
    _build<_tagMutex>(*this);
  }
}

std::size_t CPMutex::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagMutex>::table);
}

bool CPMutex::Enter() {
  _tagMutex * m = _payload<_tagMutex>(*this);
  if (!m) {
    return false;
  }
  m->mutex.lock();
  return true;
}

bool CPMutex::TryEnter(std::uint32_t ms) {
  _tagMutex * m = _payload<_tagMutex>(*this);
  if (!m) {
    return false;
  }
  if (ms == qefInfinite) {
    m->mutex.lock();
    return true;
  }
  return m->mutex.try_lock_until(_deadline(ms));
}

bool CPMutex::Leave() {
  _tagMutex * m = _payload<_tagMutex>(*this);
  if (!m) {
    return false;
  }
  m->mutex.unlock();
  return true;
}

// ---- CPCriticalSection ----

CPCriticalSection::CPCriticalSection() {
  if (Alloc(sizeof(_tagCriticalSection), &_tClass<_tagCriticalSection>::table)) {
    _build<_tagCriticalSection>(*this);
  }
}

std::size_t CPCriticalSection::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagCriticalSection>::table);
}

// No spinning before sleeping: measured with the string pool's lookups on two threads it cost
// time, as the spinner's reads pull the word away from the holder, whose leave must fetch it back.
bool _enterContended(_tagCriticalSection & cs, std::uint32_t ms) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point const deadline = Clock::now() + std::chrono::milliseconds(ms);
  bool slept = false;
  for (;;) {
    std::uint32_t word = cs.word.load(std::memory_order_relaxed);
    if ((word & _tagCriticalSection::kCount) == 0) {
      // Taken by one that slept, the flag stays set: others may still sleep.
      std::uint32_t const taken = slept ? _tagCriticalSection::kSleepers | 1 : word + 1;
      if (cs.word.compare_exchange_weak(word, taken, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
        return true;
      }
      continue;
    }
    if (ms == 0 || (ms != qefInfinite && Clock::now() >= deadline)) {
      return false;
    }
    if ((word & _tagCriticalSection::kSleepers) == 0 &&
        !cs.word.compare_exchange_weak(word, word | _tagCriticalSection::kSleepers,
                                       std::memory_order_relaxed, std::memory_order_relaxed)) {
      continue;
    }
    std::uint32_t const seen = word | _tagCriticalSection::kSleepers;
    std::unique_lock<std::mutex> sleep(cs.eventLock);
    while (cs.word.load(std::memory_order_relaxed) == seen) {
      if (ms == qefInfinite) {
        cs.event.wait(sleep);
      } else if (cs.event.wait_until(sleep, deadline) == std::cv_status::timeout) {
        break;
      }
    }
    slept = true;
  }
}

void _wakeOne(_tagCriticalSection & cs) {
  { std::lock_guard<std::mutex> const hold(cs.eventLock); }
  cs.event.notify_one();
}

bool CPCriticalSection::Enter() {
  _tagCriticalSection * cs = _criticalSection(*this);
  return cs && _enter(*cs, qefInfinite);
}

bool CPCriticalSection::TryEnter(std::uint32_t ms) {
  _tagCriticalSection * cs = _criticalSection(*this);
  return cs && _enter(*cs, ms);
}

bool CPCriticalSection::Leave() {
  _tagCriticalSection * cs = _criticalSection(*this);
  return cs && _leave(*cs);
}

// ---- CPRWInterlock ----

CPRWInterlock::CPRWInterlock() {
  if (Alloc(sizeof(_tagRWInterlock), &_tClass<_tagRWInterlock>::table)) {
    _build<_tagRWInterlock>(*this);
  }
}

std::size_t CPRWInterlock::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagRWInterlock>::table);
}

namespace {

// Counts one more re-entry of the owner; false when the 16-bit count is exhausted.
bool _countUp(std::atomic<std::uint16_t> & entries) {
  std::uint16_t const now = entries.load(std::memory_order_relaxed);
  if (now == 0xFFFFu) {
    return false;
  }
  entries.store(static_cast<std::uint16_t>(now + 1), std::memory_order_relaxed);
  return true;
}

} // namespace

bool CPRWInterlock::Enter() {
  return TryEnter(qefInfinite);
}

bool CPRWInterlock::TryEnter(std::uint32_t ms) {
  _tagRWInterlock * rw = _payload<_tagRWInterlock>(*this);
  if (!rw) {
    return false;
  }
  std::uint32_t const me = _currentThreadId();
  if (rw->owner.load(std::memory_order_relaxed) == me) {
    return _countUp(rw->writeEntries);
  }
  if (ms == qefInfinite) {
    rw->mutex.lock();
  } else if (!rw->mutex.try_lock_until(_deadline(ms))) {
    return false;
  }
  rw->owner.store(me, std::memory_order_relaxed);
  return true;
}

bool CPRWInterlock::EnterRead() {
  return TryEnterRead(qefInfinite);
}

bool CPRWInterlock::TryEnterRead(std::uint32_t ms) {
  _tagRWInterlock * rw = _payload<_tagRWInterlock>(*this);
  if (!rw) {
    return false;
  }
  if (rw->owner.load(std::memory_order_relaxed) == _currentThreadId()) {
    return _countUp(rw->readEntries);
  }
  if (ms == qefInfinite) {
    rw->mutex.lock_shared();
    return true;
  }
  return rw->mutex.try_lock_shared_until(_deadline(ms));
}

bool CPRWInterlock::Leave() {
  _tagRWInterlock * rw = _payload<_tagRWInterlock>(*this);
  if (!rw) {
    return false;
  }
  std::uint16_t const extra = rw->writeEntries.load(std::memory_order_relaxed);
  if (extra != 0) {
    rw->writeEntries.store(static_cast<std::uint16_t>(extra - 1), std::memory_order_relaxed);
    return true;
  }
  rw->owner.store(0, std::memory_order_relaxed);
  rw->mutex.unlock();
  return true;
}

bool CPRWInterlock::LeaveRead() {
  _tagRWInterlock * rw = _payload<_tagRWInterlock>(*this);
  if (!rw) {
    return false;
  }
  std::uint16_t const extra = rw->readEntries.load(std::memory_order_relaxed);
  if (extra != 0) {
    rw->readEntries.store(static_cast<std::uint16_t>(extra - 1), std::memory_order_relaxed);
    return true;
  }
  rw->mutex.unlock_shared();
  return true;
}

// ---- CPEvent ----

CPEvent::CPEvent(bool bManualReset) {
  if (Alloc(sizeof(_tagEvent), &_tClass<_tagEvent>::table)) {
    _build<_tagEvent>(*this, bManualReset);
  }
}

std::size_t CPEvent::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagEvent>::table);
}

bool CPEvent::Set() {
  _tagEvent * e = _payload<_tagEvent>(*this);
  if (!e) {
    return false;
  }
  boost::lock_guard<boost::mutex> lock(e->mutex);
  e->signalled = true;
  for (_tagWaitLink * link = e->waiters; link; link = link->next) {
    boost::lock_guard<boost::mutex> fire(link->waiter->mutex);
    link->waiter->fired = true;
    link->waiter->wake.notify_one();
  }
  if (e->Manual()) {
    e->wake.notify_all();
  } else {
    e->wake.notify_one();
  }
  return true;
}

bool CPEvent::Reset() {
  _tagEvent * e = _payload<_tagEvent>(*this);
  if (!e) {
    return false;
  }
  boost::lock_guard<boost::mutex> lock(e->mutex);
  e->signalled = false;
  return true;
}

std::uint32_t CPEvent::Wait(std::uint32_t ms) {
  _tagEvent * e = _payload<_tagEvent>(*this);
  if (!e) {
    return qefWaitFailed;
  }
  boost::unique_lock<boost::mutex> lock(e->mutex);
  if (ms == qefInfinite) {
    while (!e->signalled) {
      e->wake.wait(lock);
    }
  } else {
    auto const deadline = _deadline(ms);
    while (!e->signalled) {
      if (e->wake.wait_until(lock, deadline) == boost::cv_status::timeout && !e->signalled) {
        return qefWaitTimeout;
      }
    }
  }
  if (!e->Manual()) {
    e->signalled = false;
  }
  return qefWaitObject0;
}

void * CPEvent::GetHandle() const {
  return _cBlockAccess::Payload(*this);
}

// ---- CPMultipleEvent ----

CPMultipleEvent::CPMultipleEvent(bool bManualReset) {
  if (Alloc(sizeof(_tagMultipleEvent), &_tClass<_tagMultipleEvent>::table)) {
    _build<_tagMultipleEvent>(*this, bManualReset);
  }
}

std::size_t CPMultipleEvent::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagMultipleEvent>::table);
}

bool CPMultipleEvent::Attach(CPEvent const & event) {
  _tagMultipleEvent * set = _payload<_tagMultipleEvent>(*this);
  if (!set || !event.IsType(reinterpret_cast<void const *>(CPEvent::GetTypeID()))) {
    return false;
  }
  boost::lock_guard<boost::mutex> lock(set->mutex);
  for (std::uint32_t i = 0; i < set->count; ++i) {
    if (set->events[i] == event) {
      return true;
    }
  }
  if (set->count == kMaxEvents) {
    return false;
  }
  set->events[set->count++] = event;
  return true;
}

bool CPMultipleEvent::Detach(CPEvent const & event) {
  _tagMultipleEvent * set = _payload<_tagMultipleEvent>(*this);
  if (!set) {
    return false;
  }
  boost::lock_guard<boost::mutex> lock(set->mutex);
  for (std::uint32_t i = 0; i < set->count; ++i) {
    if (set->events[i] == event) {
      for (std::uint32_t j = i + 1; j < set->count; ++j) {
        set->events[j - 1] = std::move(set->events[j]);
      }
      set->events[--set->count].free();
      return true;
    }
  }
  return false;
}

bool CPMultipleEvent::Reset(std::uint64_t mask) {
  _tagMultipleEvent * set = _payload<_tagMultipleEvent>(*this);
  if (!set) {
    return false;
  }
  boost::lock_guard<boost::mutex> lock(set->mutex);
  for (std::uint32_t i = 0; i < set->count; ++i) {
    if (mask & (std::uint64_t{1} << i)) {
      _tagEvent * e = _payload<_tagEvent>(set->events[i]);
      boost::lock_guard<boost::mutex> eventLock(e->mutex);
      e->signalled = false;
    }
  }
  return true;
}

namespace {

// The links of one multiple wait; unlinks whatever is still linked when the wait ends, also by
// an exception (interruption), so no event keeps a pointer into a finished wait.
struct _cWaitLinks {
  explicit _cWaitLinks(std::uint32_t n) : count(n) {}
  ~_cWaitLinks() {
    for (std::uint32_t i = 0; i < count; ++i) {
      Unlink(i);
    }
  }
  void Link(std::uint32_t i, _tagEvent * e, _tagWaiter * w) {
    _tagWaitLink & link = links[i];
    if (link.linked) {
      return;
    }
    events[i] = e;
    link.waiter = w;
    link.prev = nullptr;
    link.next = e->waiters;
    if (e->waiters) {
      e->waiters->prev = &link;
    }
    e->waiters = &link;
    link.linked = true;
  }
  void Unlink(std::uint32_t i) {
    _tagWaitLink & link = links[i];
    if (!link.linked) {
      return;
    }
    _tagEvent * e = events[i];
    boost::lock_guard<boost::mutex> lock(e->mutex);
    if (link.prev) {
      link.prev->next = link.next;
    } else {
      e->waiters = link.next;
    }
    if (link.next) {
      link.next->prev = link.prev;
    }
    link.linked = false;
  }

  std::uint32_t count;
  _tagEvent * events[kMaxEvents] = {};
  _tagWaitLink links[kMaxEvents];
};

} // namespace

std::uint32_t CPMultipleEvent::Wait(std::uint32_t ms) {
  _tagMultipleEvent * set = _payload<_tagMultipleEvent>(*this);
  if (!set) {
    return qefWaitFailed;
  }
  // The set as it is now; the handles keep its events alive during the wait.
  CPObjectMemory events[kMaxEvents];
  std::uint32_t count = 0;
  {
    boost::lock_guard<boost::mutex> lock(set->mutex);
    count = set->count;
    for (std::uint32_t i = 0; i < count; ++i) {
      events[i] = set->events[i];
    }
  }
  if (count == 0) {
    return qefWaitFailed;
  }
  auto const deadline = _deadline(ms == qefInfinite ? 0 : ms);
  _tagWaiter waiter;
  _cWaitLinks links(count);
  for (;;) {
    for (std::uint32_t i = 0; i < count; ++i) {
      _tagEvent * e = _payload<_tagEvent>(events[i]);
      boost::lock_guard<boost::mutex> lock(e->mutex);
      if (e->signalled) {
        if (!e->Manual() || !set->manual) {
          e->signalled = false;
        }
        return qefWaitObject0 + i;
      }
      links.Link(i, e, &waiter);
    }
    boost::unique_lock<boost::mutex> lock(waiter.mutex);
    while (!waiter.fired) {
      if (ms == qefInfinite) {
        waiter.wake.wait(lock);
      } else if (waiter.wake.wait_until(lock, deadline) == boost::cv_status::timeout &&
                 !waiter.fired) {
        return qefWaitTimeout;
      }
    }
    waiter.fired = false;
  }
}

// ---- CPThread ----

namespace {

// The thread's function: holds the work object while it runs and calls its work interface once.
struct _cThreadFunctor {
  void operator()() {
    IThreadWork * work = _InterfaceAt<IThreadWork>(m_work, m_offset);
    try {
      work->ThreadMain(m_work);
    } catch (boost::thread_interrupted const &) {
      m_work.free();
      throw; // ends the thread the way Boost.Thread expects
    } catch (...) {
      Develop::OS::RTABox("Illegal code point reached", "_cThreadFunctor exception");
    }
    m_work.free();
  }

  CPObjectMemory m_work;
  std::size_t m_offset;
};

} // namespace

std::size_t CPThread::GetTypeID() {
  return reinterpret_cast<std::size_t>(&_tClass<_tagThread>::table);
}

bool CPThread::Execute(CPObjectMemory & work, std::uint64_t stackSize) {
  if (m_pMH) {
    return false;
  }
  std::size_t const offset = queryinterface(work, IID_IThreadWork);
  if (offset == static_cast<std::size_t>(-1)) {
    return false;
  }
  if (!Alloc(sizeof(_tagThread), &_tClass<_tagThread>::table)) {
    return false;
  }
  _build<_tagThread>(*this);
  _tagThread * t = _payload<_tagThread>(*this);
  if (!t) {
    return false;
  }
  try {
    _cThreadFunctor functor{work, offset};
    if (stackSize != 0) {
      boost::thread::attributes attributes;
      attributes.set_stack_size(static_cast<std::size_t>(stackSize));
      t->thread = boost::thread(attributes, std::move(functor));
    } else {
      t->thread = boost::thread(std::move(functor));
    }
  } catch (...) {
    free();
    throw;
  }
  return true;
}

std::uint64_t CPThread::Wait(std::uint32_t ms) {
  _tagThread * t = _payload<_tagThread>(*this);
  if (!t) {
    return static_cast<std::uint64_t>(-2);
  }
  if (!t->thread.joinable()) {
    free();
    return static_cast<std::uint64_t>(-2);
  }
  if (ms == qefInfinite) {
    t->thread.join();
  } else if (!t->thread.try_join_until(_deadline(ms))) {
    return static_cast<std::uint64_t>(-1);
  }
  free();
  return 0;
}

bool CPThread::Terminate() {
  _tagThread * t = _payload<_tagThread>(*this);
  if (!t) {
    return true;
  }
  bool ended = true;
  if (t->thread.joinable()) {
    t->thread.interrupt();
    if (!t->thread.try_join_until(_deadline(5000))) {
      t->thread.detach();
      ended = false;
    }
  }
  free();
  return ended;
}

// ---- CurrentThread ----

void CurrentThread::sleep(std::uint32_t ms) {
  // The time base is the monotonic clock, read again up to three times when it fails; with no
  // reading at all the deadline counts from 0 and has passed already.
  std::uint64_t base = Develop::_now_nano();
  for (int retry = 0; retry < 3 && base == 0; ++retry) {
    base = Develop::_now_nano();
  }
  std::uint64_t const deadline = base + std::uint64_t{ms} * 1000000u;
  boost::this_thread::sleep_until(boost::chrono::steady_clock::time_point(
      boost::chrono::nanoseconds(static_cast<boost::int_least64_t>(deadline))));
}

} // namespace VORX::Threading
