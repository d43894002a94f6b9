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

namespace {

int Policy() {
  int policy = -1;
  sched_param param{};
  pthread_getschedparam(pthread_self(), &policy, &param);
  return policy;
}

} // namespace

int main(int argc, char ** argv) {
  bool const unprivileged = argc > 1 && std::strcmp(argv[1], "unprivileged") == 0;
  bool const root = geteuid() == 0; // started as root: the changes are applied
  if (unprivileged) {
    rlimit const none{0, 0};
    if (setrlimit(RLIMIT_NICE, &none) != 0 || (getuid() == 0 && setuid(65534) != 0)) {
      std::perror("cannot give up the privilege");
      return 1;
    }
  }
  int failures = 0;
  auto const expect = [&failures](bool ok, char const * what) {
    if (!ok) {
      std::printf("failed: %s\n", what);
      ++failures;
    }
  };
  for (int round = 0; round < 2; ++round) {
    CurrentThread::OS::SetThreadPriority(eThreadPriorityLowest);
    expect(CurrentThread::OS::GetThreadPriority() == eThreadPriorityLowest, "remembers lowest");
    int const idlePolicy = Policy();
    if (unprivileged) {
      expect(idlePolicy == SCHED_OTHER, "no change that cannot be undone");
    } else if (root) {
      expect(idlePolicy == SCHED_IDLE, "lowest is idle scheduling");
    }
    CurrentThread::OS::SetThreadPriority(eThreadPriorityNormal);
    expect(CurrentThread::OS::GetThreadPriority() == eThreadPriorityNormal, "remembers normal");
    expect(Policy() == SCHED_OTHER, "back at normal scheduling");
  }
  if (failures == 0) {
    std::printf("priorities ok (%s)\n", unprivileged ? "unprivileged" : "as started");
  }
  return failures == 0 ? 0 : 1;
}
