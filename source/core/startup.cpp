// What the library does when it is loaded: read the debug switches from the settings file beside
// it, and record the process name and start-up path.
#include <vorx/core.h>
#include <vorx/develop.h>

#include <cstring>

#include "core/os.h"
#include "core/text.h"

namespace VORX::Core::OS {
namespace {

constexpr std::size_t kPathUnits = 4096;

qefWChar g_processName[kPathUnits];
qefWChar g_startupPath[kPathUnits];
bool g_loadSucceeded = false;
std::uint64_t g_startNanos = Develop::OS::_processStartNanos();

bool LoadSettingsAndPaths() {
  char modulePath[kPathUnits];
  char settingsPath[kPathUnits];
  if (Develop::OS::_modulePath(modulePath, sizeof modulePath) &&
      _SettingsPathFor(modulePath, settingsPath, sizeof settingsPath)) {
    Develop::_SetDebugSwitches(Develop::OS::_ReadDebugSettings(settingsPath));
  }
  char exePath[kPathUnits];
  return Develop::OS::_executablePath(exePath, sizeof exePath) &&
         _SplitExecutablePath(exePath, g_processName, g_startupPath, kPathUnits);
}

// Runs once, when the library is loaded. It cannot refuse the load; a failure is recorded.
struct CLibraryLoad {
  CLibraryLoad() {
    // The process's own start; where it cannot be read, the library's load stands in.
    g_startNanos = Develop::OS::_processStartNanos();
    if (g_startNanos == 0) {
      g_startNanos = Develop::OS::_monotonicNanos();
    }
    g_loadSucceeded = LoadSettingsAndPaths();
    if (!g_loadSucceeded) {
      Develop::_logWrite(qefDL_Error, u"VORX", __FILE_NAME__, __LINE__,
                         u"Cannot determine the executable's path: the library refuses to start");
    }
  }
};

CLibraryLoad const g_libraryLoad;

} // namespace

bool _SplitExecutablePath(char const * exePath, qefWChar * name, qefWChar * directory,
                          std::size_t count) {
  if (!exePath || !*exePath || !name || !directory || count == 0) {
    return false;
  }
  char const * separator = nullptr;
  for (char const * p = exePath; *p; ++p) {
    if (*p == '/' || *p == '\\') {
      separator = p;
    }
  }
  if (!separator) {
    return false;
  }
  Develop::_utf8ToWide(separator + 1, name, count);
  std::size_t const directoryBytes = static_cast<std::size_t>(separator - exePath) + 1;
  char directoryText[kPathUnits];
  if (directoryBytes >= sizeof directoryText) {
    return false;
  }
  std::memcpy(directoryText, exePath, directoryBytes);
  directoryText[directoryBytes] = 0;
  Develop::_utf8ToWide(directoryText, directory, count);
  for (qefWChar * p = directory; *p; ++p) {
    if (*p == u'\\') {
      *p = u'/';
    }
  }
  return true;
}

bool _LoadSucceeded() {
  return g_loadSucceeded;
}

qefWChar const * GetProcessName() {
  return g_processName;
}

qefWChar const * GetStartupPath() {
  return g_startupPath;
}

qefWChar const * GetPlatformString() {
  return u"Linux";
}

} // namespace VORX::Core::OS

namespace VORX::Develop::OS {

// Milliseconds since the process started (taken once, when the library is loaded), however late
// the host loads the library.
std::int64_t _processClock() {
  std::uint64_t const start = Core::OS::g_startNanos;
  std::uint64_t const now = _monotonicNanos();
  return now > start ? static_cast<std::int64_t>((now - start) / 1000000u) : 0;
}

} // namespace VORX::Develop::OS
