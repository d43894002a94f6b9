// Linux realisation of the process services: clocks, the debugger channel, the terminal box,
// module and executable paths.
#include "core/os.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vorx/core.h>

namespace VORX::Develop::OS {

std::uint64_t _monotonicNanos() {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return 0;
  }
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u +
         static_cast<std::uint64_t>(now.tv_nsec);
}

std::uint64_t _processStartNanos() {
  timespec boot{};
  std::uint64_t const monotonic = _monotonicNanos();
  if (monotonic == 0 || clock_gettime(CLOCK_BOOTTIME, &boot) != 0) {
    return 0;
  }
  std::uint64_t const bootNow = static_cast<std::uint64_t>(boot.tv_sec) * 1000000000u +
                                static_cast<std::uint64_t>(boot.tv_nsec);
  int const fd = ::open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return 0;
  }
  char text[1024];
  ssize_t const got = ::read(fd, text, sizeof text - 1);
  ::close(fd);
  if (got <= 0) {
    return 0;
  }
  text[got] = 0;
  // The command name (field 2) may hold blanks and parentheses: fields are counted after its
  // last ')'. The start time is field 22, in clock ticks since boot.
  char const * p = std::strrchr(text, ')');
  if (!p) {
    return 0;
  }
  for (int field = 2; field < 22 && p; ++field) {
    p = std::strchr(p + 1, ' ');
  }
  long const ticksPerSecond = ::sysconf(_SC_CLK_TCK);
  if (!p || ticksPerSecond <= 0) {
    return 0;
  }
  char * end = nullptr;
  unsigned long long const ticks = std::strtoull(p + 1, &end, 10);
  if (end == p + 1) {
    return 0;
  }
  std::uint64_t const startBoot =
      static_cast<std::uint64_t>(ticks / static_cast<unsigned long long>(ticksPerSecond)) *
          1000000000u +
      static_cast<std::uint64_t>(ticks % static_cast<unsigned long long>(ticksPerSecond)) *
          1000000000u / static_cast<std::uint64_t>(ticksPerSecond);
  // How long the process has run, moved onto the monotonic clock's scale.
  std::uint64_t const elapsed = bootNow > startBoot ? bootNow - startBoot : 0;
  return monotonic > elapsed ? monotonic - elapsed : 1;
}

bool _tracerAttached() {
  int const fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  char status[4096];
  ssize_t const length = ::read(fd, status, sizeof status - 1);
  ::close(fd);
  if (length <= 0) {
    return false;
  }
  status[length] = 0;
  char const * tracer = std::strstr(status, "TracerPid:");
  if (!tracer) {
    return false;
  }
  tracer += std::strlen("TracerPid:");
  while (*tracer == ' ' || *tracer == '\t') {
    ++tracer;
  }
  return *tracer >= '1' && *tracer <= '9';
}

void _writeDebugSink(char const * bytes, std::size_t length) {
  while (length > 0) {
    ssize_t const written = ::write(STDERR_FILENO, bytes, length);
    if (written <= 0) {
      return;
    }
    bytes += written;
    length -= static_cast<std::size_t>(written);
  }
}

bool _terminalBox(char const * caption, char const * text, bool & cancel) {
  int const fd = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  char message[2048];
  int const length = std::snprintf(message, sizeof message, "\n*** %s ***\n%s\n",
                                   caption ? caption : "", text ? text : "");
  if (length > 0) {
    std::size_t const size = static_cast<std::size_t>(length) < sizeof message
                                 ? static_cast<std::size_t>(length)
                                 : sizeof message - 1;
    if (::write(fd, message, size) < 0) {
      ::close(fd);
      return false;
    }
  }
  bool answered = false;
  while (!answered) {
    static char const prompt[] = "[O]K or [C]ancel? ";
    if (::write(fd, prompt, sizeof prompt - 1) < 0) {
      break;
    }
    char reply[64];
    ssize_t const got = ::read(fd, reply, sizeof reply);
    if (got <= 0) {
      break; // the terminal went away: OK
    }
    char const first = reply[0];
    if (first == 'c' || first == 'C') {
      cancel = true;
      answered = true;
    } else if (first == 'o' || first == 'O' || first == '\n') {
      cancel = false;
      answered = true;
    }
  }
  ::close(fd);
  return true;
}

bool _modulePath(char * buffer, std::size_t count) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void *>(&_modulePath), &info) == 0 || !info.dli_fname) {
    return false;
  }
  std::size_t const length = std::strlen(info.dli_fname);
  if (length + 1 > count) {
    return false;
  }
  std::memcpy(buffer, info.dli_fname, length + 1);
  return true;
}

bool _executablePath(char * buffer, std::size_t count) {
  if (count < 2) {
    return false;
  }
  ssize_t const length = ::readlink("/proc/self/exe", buffer, count - 1);
  if (length <= 0 || static_cast<std::size_t>(length) >= count - 1) {
    return false;
  }
  buffer[length] = 0;
  return true;
}

} // namespace VORX::Develop::OS

namespace VORX::Core::OS {

std::uint64_t GetTimeNow() {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
    return 0;
  }
  return static_cast<std::uint64_t>(now.tv_sec) * 1000u +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
}

} // namespace VORX::Core::OS
