// Private to the component area: the operating-system pieces behind it (os_linux.cpp).
#pragma once

#include <cstddef>

namespace VORX::QEF::OS {

// Fills `bytes` bytes at `buffer` from the system's random source; false when it fails.
bool _systemRandom(void * buffer, std::size_t bytes);

} // namespace VORX::QEF::OS
