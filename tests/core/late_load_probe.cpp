// A host that loads the library late: it waits 0.7 s after its own start, then loads libvorx.so
// with dlopen. The library's clock counts from the process's start, so it reads at least 0.7 s.
// Prints "late load ok" when it does.
#include <dlfcn.h>
#include <time.h>

#include <cstdio>

int main(int argc, char ** argv) {
  if (argc != 2) {
    return 2; // usage: late_load_probe LIBRARY
  }
  timespec pause{0, 700000000};
  while (nanosleep(&pause, &pause) != 0) {
  }
  void * const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  auto const getTicks = reinterpret_cast<double (*)()>(
      library ? dlsym(library, "_ZN4VORX7Develop9_getTicksEv") : nullptr);
  if (!getTicks) {
    std::fprintf(stderr, "no _getTicks in %s: %s\n", argv[1], dlerror());
    return 1;
  }
  double const ticks = getTicks();
  std::printf("_getTicks() after a late load: %.3f\n%s", ticks,
              ticks >= 0.69 ? "late load ok\n" : "");
  return ticks >= 0.69 ? 0 : 1;
}
