// Small reference-counted blocks carved out of a few large heap pages.
#pragma once

#include <vorx/buffers.h>

#include <cstddef>
#include <cstdint>

namespace VORX::Buffers {

// Hands out `CPObjectMemory` blocks for many small objects made together (the nodes and arrays
// of a document being read, and the records of the texts it brings to the string pool), carved one
// after another out of pages of the library's heap instead of one heap block each: they cost a few
// instructions to make, lie next to each other in the order they were made, and each page goes back
// to the heap in one piece.
//
// A carved block behaves as any other: shared, released and finalized from any thread, grown with
// `Incalloc` (which moves it to a heap block of its own), cloned. A page is freed when its last
// block is gone and the arena has moved on or been destroyed, so one block kept from a
// released tree keeps its page (at most `kMaxPageBytes`) alive. Pages start small and double, so
// what an arena carves for a small document costs little more than heap blocks would, kept or not.
//
// One arena is used by one thread at a time; the blocks it made are free to go anywhere. Blocks
// larger than `kMaxCarvedBytes` of payload are ordinary heap blocks. Failure to get a page is a
// false result, as for `CPObjectMemory::Alloc`.
class _CBlockArena {
public:
  static constexpr std::size_t kFirstPageBytes = 256;
  static constexpr std::size_t kMaxPageBytes = 65536;
  static constexpr std::size_t kMaxCarvedBytes = 1024;

  _CBlockArena() = default;
  _CBlockArena(_CBlockArena const &) = delete;
  _CBlockArena & operator=(_CBlockArena const &) = delete;
  ~_CBlockArena();

  // As `block.Alloc(bytes, table)`: releases what `block` held, then a new block with count 1,
  // capacity and size `bytes`, payload not constructed. False (block empty) for a null table
  // or when memory runs out.
  bool Alloc(CPObjectMemory & block, std::size_t bytes, tagCPOVTABL const * table);

  // Gives a carved block's share of its page back; frees the page after the last share. For
  // the memory layer, once the block's payload is finalized.
  static void _release(tagCPOMEMHEADER * header);

private:
  struct tagPAGE;
  void _drop();

  tagPAGE * m_page = nullptr;
  std::size_t m_used = 0;
  std::size_t m_size = 0;
  std::uint64_t m_carved = 0; // blocks carved from the current page
};

} // namespace VORX::Buffers
