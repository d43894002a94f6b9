// Handle classes for the buffer tests: an int payload whose class table counts its calls, the
// same without a clone slot, and one whose finalize throws.
#pragma once

#include <stdexcept>

#include <vorx/buffers.h>

namespace vorx::test {

struct TableCalls {
  int creates = 0;
  int clones = 0;
  int finalizes = 0;
};

// Exposes the protected block interface of `CPObjectMemory` to the tests.
class TestBlock : public VORX::Buffers::CPObjectMemory {
public:
  TestBlock() = default;
  TestBlock(VORX::Buffers::CPObjectMemory const & other) : CPObjectMemory(other) {}
  using CPObjectMemory::Alloc;
  using CPObjectMemory::get_ptr;
  using CPObjectMemory::GetAllocSize;
  using CPObjectMemory::Incalloc;
  using CPObjectMemory::queryinterface;
  using CPObjectMemory::Reserve;
  using CPObjectMemory::SetSize;
  VORX::Buffers::tagCPOMEMHEADER * header() const { return m_pMH; }

  // A block holding `value` in a class that counts its calls in `calls`.
  static TestBlock Make(int value) {
    TestBlock block;
    if (block.Alloc(sizeof(int), &Table)) {
      *static_cast<int *>(block.get_ptr()) = value;
    }
    return block;
  }
  int value() const { return *static_cast<int const *>(get_ptr()); }
  void set(int v) { *static_cast<int *>(get_ptr()) = v; }

  static inline TableCalls calls;
  static VORX::Buffers::tagCPOVTABL const Table;
  static VORX::Buffers::tagCPOVTABL const NoCloneTable;
  static VORX::Buffers::tagCPOVTABL const ThrowingTable;
};

inline VORX::Buffers::tagCPOVTABL const TestBlock::Table = {
    [](void *, std::size_t) { ++calls.creates; },
    [](void * target, void const * source, std::size_t bytes) {
      ++calls.clones;
      std::memcpy(target, source, bytes);
    },
    [](void *, std::size_t) { ++calls.finalizes; },
    [](void * payload, _qefUID const & id) -> void * {
      return id.Data1 == 7 ? static_cast<char *>(payload) + 2 : nullptr;
    }};

inline VORX::Buffers::tagCPOVTABL const TestBlock::NoCloneTable = {
    [](void *, std::size_t) {}, nullptr, [](void *, std::size_t) {},
    &VORX::Buffers::CPObjectMemory::_nointerface};

inline VORX::Buffers::tagCPOVTABL const TestBlock::ThrowingTable = {
    [](void *, std::size_t) {},
    [](void *, void const *, std::size_t) { throw std::runtime_error("clone"); },
    [](void *, std::size_t) { throw std::runtime_error("finalize"); },
    &VORX::Buffers::CPObjectMemory::_nointerface};

} // namespace vorx::test
