// Locks of VORX::Threading against their standard counterparts: enter and leave of the
// recursive critical section (alone and with two threads), and read entries of the interlock.
#include <mutex>
#include <shared_mutex>

#include <benchmark/benchmark.h>
#include <vorx/threading.h>

namespace {

using VORX::Threading::CPCriticalSection;
using VORX::Threading::CPRWInterlock;

// Shared by the threads of one multi-threaded run; built before the first run starts.
CPCriticalSection & SharedCriticalSection() {
  static CPCriticalSection cs;
  return cs;
}
std::recursive_mutex g_recursive;
CPRWInterlock & SharedInterlock() {
  static CPRWInterlock rw;
  return rw;
}
std::shared_mutex g_shared;
long g_counter = 0;

void CriticalSection_EnterLeave(benchmark::State & state) {
  CPCriticalSection & cs = SharedCriticalSection();
  for (auto _ : state) {
    cs.Enter();
    benchmark::DoNotOptimize(++g_counter);
    cs.Leave();
  }
}

void RecursiveMutex_LockUnlock(benchmark::State & state) {
  for (auto _ : state) {
    g_recursive.lock();
    benchmark::DoNotOptimize(++g_counter);
    g_recursive.unlock();
  }
}

void CriticalSection_Reenter(benchmark::State & state) {
  CPCriticalSection & cs = SharedCriticalSection();
  cs.Enter();
  for (auto _ : state) {
    cs.Enter();
    benchmark::DoNotOptimize(++g_counter);
    cs.Leave();
  }
  cs.Leave();
}

void RecursiveMutex_Relock(benchmark::State & state) {
  g_recursive.lock();
  for (auto _ : state) {
    g_recursive.lock();
    benchmark::DoNotOptimize(++g_counter);
    g_recursive.unlock();
  }
  g_recursive.unlock();
}

void RWInterlock_ReadEnterLeave(benchmark::State & state) {
  CPRWInterlock & rw = SharedInterlock();
  for (auto _ : state) {
    rw.EnterRead();
    benchmark::DoNotOptimize(g_counter);
    rw.LeaveRead();
  }
}

void SharedMutex_LockSharedUnlock(benchmark::State & state) {
  for (auto _ : state) {
    g_shared.lock_shared();
    benchmark::DoNotOptimize(g_counter);
    g_shared.unlock_shared();
  }
}

} // namespace

BENCHMARK(CriticalSection_EnterLeave)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(RecursiveMutex_LockUnlock)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(CriticalSection_Reenter);
BENCHMARK(RecursiveMutex_Relock);
BENCHMARK(RWInterlock_ReadEnterLeave)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(SharedMutex_LockSharedUnlock)->Threads(1)->Threads(2)->UseRealTime();
