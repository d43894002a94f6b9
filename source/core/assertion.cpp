// Runtime-assumption reports and the assertion box.
#include <vorx/buffers.h>
#include <vorx/develop.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

#include "core/os.h"

namespace VORX::Develop::OS {
namespace {

// The process-wide recursive lock that lets one box up at a time, on an object-memory block.
class CAssertionLock : public Buffers::CPObjectMemory {
public:
  CAssertionLock() {
    if (Alloc(sizeof(std::recursive_mutex), &_vtbl)) {
      ::new (get_ptr()) std::recursive_mutex();
    }
  }
  std::recursive_mutex * get() const { return static_cast<std::recursive_mutex *>(get_ptr()); }

private:
  static void Finalize(void * payload, std::size_t) {
    static_cast<std::recursive_mutex *>(payload)->~recursive_mutex();
  }
  static Buffers::tagCPOVTABL const _vtbl;
};

Buffers::tagCPOVTABL const CAssertionLock::_vtbl = {[](void *, std::size_t) {}, nullptr,
                                                    &CAssertionLock::Finalize,
                                                    &Buffers::CPObjectMemory::_nointerface};

CAssertionLock const g_assertionLock;

bool DefaultBox(char const * caption, char const * text) {
  bool cancel = false;
  _terminalBox(caption, text, cancel);
  return cancel;
}

std::atomic<_qefAssertBox> g_box{nullptr};

} // namespace

void SetAssertBox(_qefAssertBox box) {
  g_box.store(box);
}

bool RTABox(char const * caption, char const * text) {
  bool cancel = false;
  if (GetDebugSwitches().AssertBox) {
    std::recursive_mutex * const lock = g_assertionLock.get();
    if (lock) {
      lock->lock();
    }
    try {
      _qefAssertBox const box = g_box.load();
      cancel = box ? box(caption, text) : DefaultBox(caption, text);
    } catch (...) {
      cancel = true;
    }
    if (lock) {
      lock->unlock();
    }
  }
  _logWrite(qefDL_Error, u"VORX", __FILE_NAME__, __LINE__, u"Failed assumption: %hs:%hs", caption,
            text);
  return cancel;
}

} // namespace VORX::Develop::OS

namespace VORX::Develop {

bool _istrue_(bool condition, char const * text) {
  if (condition) {
    OS::RTABox("RTA_ON_TRUE", text);
  }
  return condition;
}

bool _isfalse_(bool condition, char const * text) {
  if (!condition) {
    OS::RTABox("RTA_ON_FALSE", text);
  }
  return condition;
}

bool _isBigEndian() {
  static bool const big = [] {
    std::uint32_t const probe = 0x01020304;
    unsigned char first;
    std::memcpy(&first, &probe, 1);
    return first == 0x01;
  }();
  return big;
}

bool _isWChar32() {
  return false;
}

} // namespace VORX::Develop
