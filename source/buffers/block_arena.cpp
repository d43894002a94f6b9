// Small reference-counted blocks carved out of a few large heap pages.
#include "buffers/block_arena.h"

#include <vorx/core.h>

#include <algorithm>
#include <atomic>
#include <new>

namespace VORX::Buffers {

// A page starts with its count and the blocks follow, each 16-byte aligned. While the page is the
// arena's current one, the count starts at `kHeld` and each release of a block takes one off; when
// the arena moves on it takes off `kHeld` less the blocks it carved, which leaves the number of
// blocks still alive. So carving a block costs no atomic operation, and the count cannot reach 0
// while the arena still carves from the page.
struct _CBlockArena::tagPAGE {
  alignas(16) std::uint64_t live;
};
static_assert(sizeof(tagCPOMEMHEADER) % 16 == 0, "carved payloads stay 16-byte aligned");

namespace {

constexpr std::size_t kUnit = 16;
constexpr std::uint64_t kHeld = std::uint64_t(1) << 62;

std::atomic_ref<std::uint64_t> _live(void * page) {
  return std::atomic_ref<std::uint64_t>(*static_cast<std::uint64_t *>(page));
}

// Reaches the header behind a handle; the memory layer keeps it protected.
struct _cArenaBlock : CPObjectMemory {
  static tagCPOMEMHEADER *& Header(CPObjectMemory & h) { return h.*(&_cArenaBlock::m_pMH); }
  static bool HeapAlloc(CPObjectMemory & h, std::size_t bytes, tagCPOVTABL const * table) {
    return (h.*(&_cArenaBlock::Alloc))(bytes, table);
  }
};

} // namespace

_CBlockArena::~_CBlockArena() {
  _drop();
}

void _CBlockArena::_drop() {
  if (m_page &&
      _live(m_page).fetch_sub(kHeld - m_carved, std::memory_order_acq_rel) == kHeld - m_carved) {
    Core::OS::_ffree(m_page);
  }
  m_page = nullptr;
  m_used = 0;
  m_carved = 0;
  m_size = 0;
}

bool _CBlockArena::Alloc(CPObjectMemory & block, std::size_t bytes, tagCPOVTABL const * table) {
  if (bytes > kMaxCarvedBytes || !table) {
    return _cArenaBlock::HeapAlloc(block, bytes, table);
  }
  static_assert(sizeof(tagPAGE) == kUnit);
  static_assert(sizeof(tagPAGE) + sizeof(tagCPOMEMHEADER) + kMaxCarvedBytes + kUnit <=
                    kMaxPageBytes &&
                (kMaxPageBytes % kFirstPageBytes) == 0);
  block.free();
  std::size_t const need = (sizeof(tagCPOMEMHEADER) + bytes + kUnit - 1) / kUnit * kUnit;
  if (!m_page || m_used + need > m_size) {
    std::size_t size = m_size == 0 ? kFirstPageBytes : std::min(2 * m_size, kMaxPageBytes);
    while (size < sizeof(tagPAGE) + need) {
      size *= 2; // the largest carved block fits in a page of at most kMaxPageBytes
    }
    void * const fresh = Core::OS::_falloc(size);
    if (!fresh) {
      return false;
    }
    _drop();
    m_page = ::new (fresh) tagPAGE{kHeld};
    m_carved = 0;
    m_used = sizeof(tagPAGE);
    m_size = size;
  }
  auto * const header =
      reinterpret_cast<tagCPOMEMHEADER *>(reinterpret_cast<unsigned char *>(m_page) + m_used);
  header->lRefCnt = 1;
  header->uArena = static_cast<std::uint32_t>(m_used / kUnit);
  header->sAllocSize = bytes;
  header->sSize = bytes;
  header->pVTbl = table;
  m_used += need;
  ++m_carved;
  _cArenaBlock::Header(block) = header;
  return true;
}

void _CBlockArena::_release(tagCPOMEMHEADER * header) {
  void * const page =
      reinterpret_cast<unsigned char *>(header) - std::size_t(header->uArena) * kUnit;
  if (_live(page).fetch_sub(1, std::memory_order_acq_rel) == 1) {
    Core::OS::_ffree(page);
  }
}

} // namespace VORX::Buffers
