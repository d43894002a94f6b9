// The tool's operating-system calls.
#include <fcntl.h>

#include "os.h"

namespace vorx_tool::OS {

void AdviseSequential(std::FILE * file) {
  // Only advice: where the kernel cannot take it, the file reads as before.
  (void)::posix_fadvise(::fileno(file), 0, 0, POSIX_FADV_SEQUENTIAL);
}

} // namespace vorx_tool::OS
