// The library's start and stop: what needs a thread (the maintenance thread and the string
// pool's maintenance) starts with the host's first `AppInit` and stops with its last `AppExit`.
#include <vorx/core.h>
#include <vorx/string.h>
#include <vorx/threading.h>

#include <atomic>

namespace VORX {
namespace {

// Changed only by atomic increment and decrement; deliberately not clamped at 0.
std::atomic<std::int32_t> g_appInitCount{0};

} // namespace

bool AppInit() {
  if (g_appInitCount.fetch_add(1) + 1 != 1) {
    return true;
  }
  return Core::OS::_LoadSucceeded() && Threading::_StartMaintenance() &&
         String::CStringPool::AppInit();
}

void AppExit() {
  if (g_appInitCount.fetch_sub(1) != 1) {
    return;
  }
  String::CStringPool::AppExit();
  Threading::_StopMaintenance();
  Threading::_ReleaseMaintenanceList();
}

} // namespace VORX
