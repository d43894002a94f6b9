// VORX::Core: the process-level services every area uses: heap blocks, atomic helpers, the
// wall clock, the process name and start-up path.
#pragma once

#include <vorx/base.h>

namespace VORX {

// Starts what needs a thread: the maintenance thread, then the string pool's maintenance. Calls
// nest: only the first starts anything, later ones answer true at once. True when both started.
// Note: a failed first call still counts, so the host calls `AppExit` once for every `AppInit`.
VORX_API bool AppInit();
// Only the call that matches the first `AppInit` stops: the pool's maintenance, then the thread
// (stop signal, 20000 ms, interruption, 5000 ms more, then detached), then the service list.
// Note: the count is not clamped: an `AppExit` without `AppInit` takes it below 0. Blocks for up
// to 25 s. A first `AppInit` and a last `AppExit` must not run at the same time.
VORX_API void AppExit();

} // namespace VORX

namespace VORX::Core {

// Atomically stores `value` in `target` (sequentially consistent).
VORX_API void InterlockedSet(std::uint64_t & target, std::uint64_t value);

} // namespace VORX::Core

namespace VORX::Core::OS {

// Heap blocks for all of the library's memory. Failure is a null result, never an exception.
VORX_API void * _falloc(std::size_t bytes);
// Null on failure, leaving `block` as it was.
VORX_API void * _frealloc(void * block, std::size_t bytes);
// Null is ignored.
VORX_API void _ffree(void * block);

// Replaces the three heap functions behind `_falloc`, `_frealloc` and `_ffree` (for leak counting
// and allocation-failure tests); null for all three restores malloc, realloc and free. Blocks
// must be freed by the functions that allocated them: switch only when none are outstanding
// from the other set, or make the replacement forward to malloc/realloc/free.
struct tagMEMORYFUNCTIONS {
  void * (*alloc)(std::size_t);
  void * (*realloc)(void *, std::size_t);
  void (*free)(void *);
};
VORX_API void SetMemoryFunctions(tagMEMORYFUNCTIONS const * functions);

// Atomic helpers with full barriers; each returns the new value.
VORX_API std::uint32_t InterlockedIncrement32(std::uint32_t & value);
VORX_API std::uint32_t InterlockedDecrement32(std::uint32_t & value);
// Stores `exchange` in `*target` when it holds `comparand`; returns the previous value.
VORX_API void * InterlockedCompareSwapPtr(void ** target, void * exchange, void * comparand);

// Milliseconds since 1970-01-01 00:00:00 UTC.
VORX_API std::uint64_t GetTimeNow();

// The executable's file name ("tool"), read at load.
VORX_API qefWChar const * GetProcessName();
// The executable's directory, with "/" separators and a trailing "/".
VORX_API qefWChar const * GetStartupPath();
// The name of the platform: "Linux".
VORX_API qefWChar const * GetPlatformString();

// Whether the load-time set-up succeeded (false when the executable path could not be split).
VORX_API bool _LoadSucceeded();
// The settings file of a module: the path with everything from its last "." replaced by ".ini".
// Writes at most `count` bytes including the terminator; returns false when it does not fit.
VORX_API bool _SettingsPathFor(char const * modulePath, char * buffer, std::size_t count);
// Splits an executable path at its last "/" or "\\": the name after it, the directory up to and
// including it with every "\\" turned into "/". False for an empty path or one without separator.
VORX_API bool _SplitExecutablePath(char const * exePath, qefWChar * name, qefWChar * directory,
                                   std::size_t count);

} // namespace VORX::Core::OS
