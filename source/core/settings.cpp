// The debug switches and the settings file they are read from.
#include <vorx/core.h>
#include <vorx/develop.h>

#include <ini.h>
#include <strings.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace VORX::Develop {
namespace {

std::atomic<bool> g_assertBox{false};
std::atomic<bool> g_logFailedHResult{false};
std::atomic<bool> g_breakOnHResult{false};

struct SettingsRead {
  tagDEBUGSWITCHES switches{};
  bool seen[3]{};
};

// A leading decimal integer, as the Windows profile reader takes it; anything else is 0.
long LeadingInteger(char const * value) {
  while (*value == ' ' || *value == '\t') {
    ++value;
  }
  return std::strtol(value, nullptr, 10);
}

int OnSetting(void * user, char const * section, char const * name, char const * value) {
  auto * read = static_cast<SettingsRead *>(user);
  if (strcasecmp(section, "Debug") != 0) {
    return 1;
  }
  static char const * const keys[3] = {"AssertBox", "LogFailedHRESULT", "BreakOnHRESULT"};
  bool * const targets[3] = {&read->switches.AssertBox, &read->switches.LogFailedHRESULT,
                             &read->switches.BreakOnHRESULT};
  for (int i = 0; i < 3; ++i) {
    // The first occurrence of a key counts.
    if (!read->seen[i] && strcasecmp(name, keys[i]) == 0) {
      read->seen[i] = true;
      *targets[i] = LeadingInteger(value) != 0;
    }
  }
  return 1;
}

// Feeds the parser one line at a time without the white space that starts it: the Windows
// profile reader ignores it, where the parser would take an indented line as the continuation
// of the value before it.
struct UnindentingReader {
  std::FILE * file;
  bool atLineStart = true;
};

char * ReadUnindented(char * buffer, int size, void * stream) {
  auto * reader = static_cast<UnindentingReader *>(stream);
  if (!std::fgets(buffer, size, reader->file)) {
    return nullptr;
  }
  if (reader->atLineStart) {
    std::size_t skip = 0;
    while (buffer[skip] == ' ' || buffer[skip] == '\t') {
      ++skip;
    }
    std::memmove(buffer, buffer + skip, std::strlen(buffer + skip) + 1);
  }
  std::size_t const length = std::strlen(buffer);
  reader->atLineStart = length > 0 && buffer[length - 1] == '\n';
  return buffer;
}

} // namespace

tagDEBUGSWITCHES GetDebugSwitches() {
  return {g_assertBox.load(std::memory_order_relaxed),
          g_logFailedHResult.load(std::memory_order_relaxed),
          g_breakOnHResult.load(std::memory_order_relaxed)};
}

void _SetDebugSwitches(tagDEBUGSWITCHES const & switches) {
  g_assertBox.store(switches.AssertBox, std::memory_order_relaxed);
  g_logFailedHResult.store(switches.LogFailedHRESULT, std::memory_order_relaxed);
  g_breakOnHResult.store(switches.BreakOnHRESULT, std::memory_order_relaxed);
}

tagDEBUGSWITCHES OS::_ReadDebugSettings(char const * settingsPath) {
  SettingsRead read;
  if (!settingsPath) {
    return read.switches;
  }
  if (std::FILE * const file = std::fopen(settingsPath, "r")) {
    UnindentingReader reader{file};
    ini_parse_stream(&ReadUnindented, &reader, &OnSetting, &read);
    std::fclose(file);
  }
  return read.switches;
}

} // namespace VORX::Develop

namespace VORX::Core::OS {

bool _SettingsPathFor(char const * modulePath, char * buffer, std::size_t count) {
  if (!modulePath || !buffer) {
    return false;
  }
  std::size_t length = std::strlen(modulePath);
  // From the last "." anywhere in the path, even one in a directory name.
  char const * const dot = std::strrchr(modulePath, '.');
  if (dot) {
    length = static_cast<std::size_t>(dot - modulePath);
  }
  if (length + sizeof ".ini" > count) {
    return false;
  }
  std::memcpy(buffer, modulePath, length);
  std::memcpy(buffer + length, ".ini", sizeof ".ini");
  return true;
}

} // namespace VORX::Core::OS
