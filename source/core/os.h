// The operating-system services behind the diagnostics and the process information; the only
// implementation is os_linux.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VORX::Develop::OS {

// Monotonic nanoseconds; 0 when the clock cannot be read.
std::uint64_t _monotonicNanos();
// The process's start on the monotonic clock's scale (nanoseconds), from its start time in
// /proc/self/stat against the boot-time clock; 0 when either cannot be read. Resolution: one
// kernel clock tick (usually 10 ms).
std::uint64_t _processStartNanos();
// Whether a tracer is attached now.
bool _tracerAttached();
// Writes bytes to the debugger sink (standard error).
void _writeDebugSink(char const * bytes, std::size_t length);
// Shows caption and text on the controlling terminal and waits for OK or Cancel. False when the
// process has no terminal (the answer is then OK).
bool _terminalBox(char const * caption, char const * text, bool & cancel);
// The full path of the library's own file; false when it cannot be found or does not fit.
bool _modulePath(char * buffer, std::size_t count);
// The full path of the executable; false when it cannot be read or does not fit.
bool _executablePath(char * buffer, std::size_t count);

} // namespace VORX::Develop::OS
