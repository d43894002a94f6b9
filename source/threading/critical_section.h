// Private to the library: the state of a `CPCriticalSection` and its uncontended entry and leave
// inline, for `CPCriticalSection` itself and for callers inside the library that take a lock on
// every call (the string pool). A first entry and the last leave are one compare-and-swap each;
// only a contended entry or a leave that has sleepers to wake leaves the inline path.
#pragma once

#include <vorx/threading.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "threading/block_access.h"

namespace VORX::Threading {

namespace CurrentThread::OS {
// This thread's identifier once `GetCurrentThreadId` has read it; 0 before.
extern __attribute__((tls_model("initial-exec"))) constinit thread_local std::uint32_t _tThreadId;
} // namespace CurrentThread::OS

// The lock word holds the entry count (the lock is held while it is not 0) and a flag that
// threads may be asleep on the lock's event. A sleeper sets the flag, then sleeps on the event
// only while the word still holds what it saw (checked under the event's own mutex, which a waking
// leave takes too, so no wake-up is lost); a leave that frees the lock clears the flag and, when
// it was set, wakes one sleeper, which takes the lock with the flag set again for any other.
// The owner field is written only by the thread that holds the lock and read by others only to
// compare with their own identifier. A thread never reads its own identifier back after it
// cleared it (coherence of one atomic), so relaxed loads and stores suffice; the acquire of the
// first entry and the release of the last leave order everything else.
struct _tagCriticalSection {
  static constexpr std::uint32_t kSleepers = 0x80000000u;
  static constexpr std::uint32_t kCount = kSleepers - 1;

  std::atomic<std::uint32_t> word{0};
  std::atomic<std::uint32_t> owner{0};
  // The event sleepers wait on; touched only when the lock is contended.
  std::mutex eventLock;
  std::condition_variable event;
};

// Wakes one thread sleeping on the lock's event.
void _wakeOne(_tagCriticalSection & cs);

// The first entry once the lock was found held: sleeps until it is free or `ms` milliseconds
// have passed (`qefInfinite`: no limit; 0: one more look). False on time-out.
bool _enterContended(_tagCriticalSection & cs, std::uint32_t ms);

inline std::uint32_t _currentThreadId() {
  std::uint32_t const id = CurrentThread::OS::_tThreadId;
  return id != 0 ? id : CurrentThread::OS::GetCurrentThreadId();
}

inline _tagCriticalSection * _criticalSection(CPCriticalSection const & handle) {
  return static_cast<_tagCriticalSection *>(_cBlockAccess::Payload(handle));
}

// As `CPCriticalSection::TryEnter`.
inline bool _enter(_tagCriticalSection & cs, std::uint32_t ms) {
  std::uint32_t const me = _currentThreadId();
  if (cs.owner.load(std::memory_order_relaxed) == me) {
    cs.word.fetch_add(1, std::memory_order_relaxed);
    return true;
  }
  std::uint32_t word = 0;
  if (!cs.word.compare_exchange_strong(word, 1, std::memory_order_acquire,
                                       std::memory_order_relaxed) &&
      !_enterContended(cs, ms)) {
    return false;
  }
  cs.owner.store(me, std::memory_order_relaxed);
  return true;
}

// As `CPCriticalSection::Leave`: counts one entry down whoever calls; false when not entered.
inline bool _leave(_tagCriticalSection & cs) {
  std::uint32_t word = cs.word.load(std::memory_order_relaxed);
  for (;;) {
    std::uint32_t const count = word & _tagCriticalSection::kCount;
    if (count == 0) {
      return false;
    }
    // Cleared before the lock is free, so it never overwrites the next owner.
    if (count == 1) {
      cs.owner.store(0, std::memory_order_relaxed);
    }
    if (cs.word.compare_exchange_weak(word, count == 1 ? 0 : word - 1, std::memory_order_release,
                                      std::memory_order_relaxed)) {
      break;
    }
  }
  if (word == (_tagCriticalSection::kSleepers | 1)) {
    _wakeOne(cs);
  }
  return true;
}

} // namespace VORX::Threading
