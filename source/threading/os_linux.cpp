// The operating-system side of threading: thread identifiers and priorities.
#include <vorx/threading.h>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VORX::Threading::CurrentThread::OS {
namespace {

// The system priority last set on this thread; a new thread starts at 0 (normal).
thread_local int t_priority = 0;
// The identifier of this thread, read once.
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t t_threadId = 0;

// Applies a system priority as well as the process may: -15 as the idle scheduling class,
// others as the nice value of the thread (higher priority, lower nice).
void _apply(int priority) {
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
  setpriority(PRIO_PROCESS, static_cast<id_t>(GetCurrentThreadId()), -priority);
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

std::uint32_t GetCurrentThreadId() {
  if (t_threadId == 0) {
    t_threadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
  }
  return t_threadId;
}

} // namespace VORX::Threading::CurrentThread::OS
