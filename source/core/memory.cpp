// The library's heap and atomic helpers.
#include <vorx/core.h>

#include <atomic>
#include <cstdlib>

namespace VORX::Core::OS {
namespace {

// The heap functions in force; replaced only by `SetMemoryFunctions`.
std::atomic<void * (*)(std::size_t)> g_alloc{&std::malloc};
std::atomic<void * (*)(void *, std::size_t)> g_realloc{&std::realloc};
std::atomic<void (*)(void *)> g_free{&std::free};

} // namespace

void * _falloc(std::size_t bytes) {
  return g_alloc.load(std::memory_order_acquire)(bytes);
}

void * _frealloc(void * block, std::size_t bytes) {
  return g_realloc.load(std::memory_order_acquire)(block, bytes);
}

void _ffree(void * block) {
  if (block) {
    g_free.load(std::memory_order_acquire)(block);
  }
}

void SetMemoryFunctions(tagMEMORYFUNCTIONS const * functions) {
  bool const valid = functions && functions->alloc && functions->realloc && functions->free;
  g_alloc.store(valid ? functions->alloc : &std::malloc, std::memory_order_release);
  g_realloc.store(valid ? functions->realloc : &std::realloc, std::memory_order_release);
  g_free.store(valid ? functions->free : &std::free, std::memory_order_release);
}

std::uint32_t InterlockedIncrement32(std::uint32_t & value) {
  return std::atomic_ref<std::uint32_t>(value).fetch_add(1) + 1;
}

std::uint32_t InterlockedDecrement32(std::uint32_t & value) {
  return std::atomic_ref<std::uint32_t>(value).fetch_sub(1) - 1;
}

void * InterlockedCompareSwapPtr(void ** target, void * exchange, void * comparand) {
  std::atomic_ref<void *>(*target).compare_exchange_strong(comparand, exchange);
  return comparand;
}

} // namespace VORX::Core::OS

namespace VORX::Core {

void InterlockedSet(std::uint64_t & target, std::uint64_t value) {
  std::atomic_ref<std::uint64_t>(target).store(value);
}

} // namespace VORX::Core
