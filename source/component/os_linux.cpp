// The operating-system side of the component area: the system's random source.
#include <cerrno>
#include <cstddef>

#include <sys/random.h>

#include "component/component_os.h"

namespace VORX::QEF::OS {

bool _systemRandom(void * buffer, std::size_t bytes) {
  unsigned char * at = static_cast<unsigned char *>(buffer);
  while (bytes > 0) {
    ssize_t const got = getrandom(at, bytes, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    at += got;
    bytes -= static_cast<std::size_t>(got);
  }
  return true;
}

} // namespace VORX::QEF::OS
