// A host that loads the library late: it waits 0.7 s after its own start, then loads libvorx.so
// with dlopen. The library's clock counts from the process's start, so it reads at least 0.7 s.
// Prints "late load ok" when it does.
#include <dlfcn.h>
#include <time.h>

#include <cstdio>

namespace {

double Seconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

int main(int argc, char ** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
    return 2;
  }
  double const entered = Seconds();
  while (Seconds() - entered < 0.7) {
    timespec const pause{0, 50000000};
    nanosleep(&pause, nullptr);
  }
  void * library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  using Ticks = double (*)();
  auto const getTicks = reinterpret_cast<Ticks>(dlsym(library, "_ZN4VORX7Develop9_getTicksEv"));
  if (!getTicks) {
    std::fprintf(stderr, "no _getTicks in %s\n", argv[1]);
    return 1;
  }
  double const ticks = getTicks();
  std::printf("_getTicks() after a late load: %.3f\n", ticks);
  if (ticks < 0.69) {
    return 1;
  }
  std::printf("late load ok\n");
  return 0;
}
