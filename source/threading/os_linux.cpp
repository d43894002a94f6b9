// The operating-system side of threading: thread identifiers and priorities.
#include <vorx/threading.h>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "threading/critical_section.h"

namespace VORX::Threading::CurrentThread::OS {
namespace {

// The system priority last set on this thread; a new thread starts at 0 (normal).
thread_local int t_priority = 0;

// Whether this process may undo any priority change it makes, checked once, at the first change:
// a thread put to idle scheduling or a higher nice value can come back only with CAP_SYS_NICE or
// a nice limit (RLIMIT_NICE) that reaches the nice value the process had then. Without that
// nothing is applied, so no thread is ever stuck below normal. Also records that nice value as
// the one "normal" stands for.
struct CPriorityRights {
  bool mayUndo = false;
  int normalNice = 0;
};

bool _hasSysNice() {
  std::FILE * const status = std::fopen("/proc/self/status", "re");
  if (!status) {
    return false;
  }
  char line[256];
  unsigned long long effective = 0;
  bool found = false;
  while (!found && std::fgets(line, sizeof line, status)) {
    found = std::sscanf(line, "CapEff: %llx", &effective) == 1;
  }
  std::fclose(status);
  constexpr int kCapSysNice = 23;
  return found && (effective >> kCapSysNice & 1u) != 0;
}

CPriorityRights const & _rights() {
  static CPriorityRights const rights = [] {
    CPriorityRights r;
    errno = 0;
    int const nice = getpriority(PRIO_PROCESS, 0);
    r.normalNice = errno == 0 ? nice : 0;
    rlimit limit{};
    // RLIMIT_NICE n allows nice values down to 20 - n.
    bool const limitReaches = getrlimit(RLIMIT_NICE, &limit) == 0 &&
                              (limit.rlim_cur == RLIM_INFINITY ||
                               static_cast<long long>(limit.rlim_cur) >= 20LL - r.normalNice);
    r.mayUndo = limitReaches || _hasSysNice();
    return r;
  }();
  return rights;
}

// Applies a system priority where the change can be undone: -15 as the idle scheduling class,
// others as the nice value of the thread relative to the process's normal one (higher priority,
// lower nice). A step the system refuses is left out.
void _apply(int priority) {
  CPriorityRights const & rights = _rights();
  if (!rights.mayUndo) {
    return;
  }
  sched_param param{};
  if (priority == -15) {
    pthread_setschedparam(pthread_self(), SCHED_IDLE, &param);
    return;
  }
  int policy = SCHED_OTHER;
  if (pthread_getschedparam(pthread_self(), &policy, &param) == 0 && policy == SCHED_IDLE) {
    param = sched_param{};
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &param);
  }
  int nice = rights.normalNice - priority;
  nice = nice < -20 ? -20 : (nice > 19 ? 19 : nice);
  setpriority(PRIO_PROCESS, static_cast<id_t>(GetCurrentThreadId()), nice);
}

} // namespace

void SetThreadPriority(eThreadPriority priority) {
  int system = 0;
  switch (priority) {
  case eThreadPriorityLowest:
    system = -15;
    break;
  case eThreadPriorityBelowNormal:
    system = -2;
    break;
  case eThreadPriorityAboveNormal:
    system = 2;
    break;
  case eThreadPriorityHighest:
    system = 15;
    break;
  default:
    system = 0;
    break;
  }
  t_priority = system;
  _apply(system);
}

eThreadPriority GetThreadPriority() {
  int const system = t_priority;
  if (system == 0) {
    return eThreadPriorityNormal;
  }
  if (system > 0) {
    return system >= 3 ? eThreadPriorityHighest : eThreadPriorityAboveNormal;
  }
  return system <= -3 ? eThreadPriorityLowest : eThreadPriorityBelowNormal;
}

// Read once per thread; also read inline by the critical section (critical_section.h).
__attribute__((tls_model("initial-exec"))) constinit thread_local std::uint32_t _tThreadId = 0;

std::uint32_t GetCurrentThreadId() {
  if (_tThreadId == 0) {
    _tThreadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
  }
  return _tThreadId;
}

} // namespace VORX::Threading::CurrentThread::OS
