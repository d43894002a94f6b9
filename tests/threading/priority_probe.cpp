// Runs a thread through the lowest priority and back to normal, as the maintenance thread does
// around each wait, and reports what the operating system made of it. With the argument
// "unprivileged" it first gives up what lets a process undo priority changes (as root: a nice
// limit of 0, then the user nobody). Prints "priorities ok" when the thread is back at normal
// scheduling and the remembered priorities are those set.
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include <vorx/threading.h>

using namespace VORX::Threading;

int main(int argc, char ** argv) {
  bool const unprivileged = argc > 1 && std::strcmp(argv[1], "unprivileged") == 0;
  bool const root = geteuid() == 0; // started as root: the changes are applied
  rlimit const none{0, 0};
  if (unprivileged && (setrlimit(RLIMIT_NICE, &none) != 0 || (root && setuid(65534) != 0))) {
    std::perror("cannot give up the privilege");
    return 1;
  }
  auto const policy = [] {
    int current = -1;
    sched_param param{};
    pthread_getschedparam(pthread_self(), &current, &param);
    return current;
  };
  bool ok = true;
  for (int round = 0; round < 2; ++round) {
    CurrentThread::OS::SetThreadPriority(eThreadPriorityLowest);
    ok = ok && CurrentThread::OS::GetThreadPriority() == eThreadPriorityLowest;
    // Unprivileged: no change that cannot be undone; as root: idle scheduling.
    ok = ok && (unprivileged ? policy() == SCHED_OTHER : !root || policy() == SCHED_IDLE);
    CurrentThread::OS::SetThreadPriority(eThreadPriorityNormal);
    ok = ok && CurrentThread::OS::GetThreadPriority() == eThreadPriorityNormal &&
         policy() == SCHED_OTHER;
  }
  std::printf(ok ? "priorities ok (%s)\n" : "failed (%s)\n",
              unprivileged ? "unprivileged" : "as started");
  return ok ? 0 : 1;
}
