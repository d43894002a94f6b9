// The reference-counted block under every handle class.
#include <vorx/buffers.h>
#include <vorx/core.h>
#include <vorx/develop.h>

#include "buffers/block_arena.h"
#include "core/assume.h"

#include <atomic>
#include <cstring>

namespace VORX::Buffers {
namespace {

using Develop::OS::RTABox;

std::uint32_t LoadCount(tagCPOMEMHEADER const * header) {
  return std::atomic_ref<std::uint32_t const>(header->lRefCnt).load();
}

void * Payload(tagCPOMEMHEADER * header) {
  return header + 1;
}

// A new block of `bytes` payload for `table`: count 1, capacity `bytes`, size `size`.
tagCPOMEMHEADER * NewBlock(std::size_t bytes, std::size_t size, tagCPOVTABL const * table) {
  if (bytes > static_cast<std::size_t>(-1) - sizeof(tagCPOMEMHEADER)) {
    return nullptr;
  }
  auto * header =
      static_cast<tagCPOMEMHEADER *>(Core::OS::_falloc(sizeof(tagCPOMEMHEADER) + bytes));
  if (header) {
    header->lRefCnt = 1;
    header->uArena = 0;
    header->sAllocSize = bytes;
    header->sSize = size;
    header->pVTbl = table;
  }
  return header;
}

} // namespace

CPObjectMemory const CPObjectMemory::pnull;

void * CPObjectMemory::_nointerface(void *, _qefUID const &) {
  return nullptr;
}

void CPObjectMemory::Free(tagCPOMEMHEADER * header) {
  if (header) {
    _release(header);
  }
}

void CPObjectMemory::_destroy(tagCPOMEMHEADER * header) {
  try {
    header->pVTbl->finalize(Payload(header), header->sSize);
  } catch (...) {
    RTABox("Illegal code point reached", "CPObjectMemory::Free exception");
  }
  try {
    if (header->uArena != 0) {
      _CBlockArena::_release(header);
    } else {
      Core::OS::_ffree(header);
    }
  } catch (...) {
    RTABox("Illegal code point reached", "CPObjectMemory::Free exception");
  }
}

void CPObjectMemory::_holdOddCount(tagCPOMEMHEADER * header, std::uint32_t count) {
  if (count == 0) {
    // The count wrapped: the block is already corrupt.
    RTABox("Illegal code point reached",
           "InterlockedIncrement32 returned 0, possible multi-threading access problem on shared "
           "object!");
    return;
  }
  RTABox("Runtime assumption failed", "pMHO->lRefCnt > 1");
  if (LoadCount(header) > 1) {
    m_pMH = header;
  }
}

void CPObjectMemory::CopyCPMemory(CPObjectMemory const & other) {
  tagCPOMEMHEADER * const incoming = other.m_pMH;
  if (incoming == m_pMH) {
    return;
  }
  tagCPOMEMHEADER * const old = m_pMH;
  m_pMH = nullptr;
  if (!incoming) {
    Free(old);
    return;
  }
  if (!incoming->pVTbl) {
    RTABox("Runtime assumption failed", "pMHO->pVTbl");
  }
  if (LoadCount(incoming) == 0) {
    m_pMH = incoming;
    Free(old);
    return;
  }
  std::uint32_t const count = _count(incoming).fetch_add(1) + 1;
  _holdIncremented(incoming, count);
  if (count == 0) {
    return; // and the old block is left alone too
  }
  Free(old);
}

void CPObjectMemory::free() {
  tagCPOMEMHEADER * const old = m_pMH;
  m_pMH = nullptr;
  Free(old);
}

bool CPObjectMemory::clone() {
  if (!m_pMH) {
    return true;
  }
  try {
    if (LoadCount(m_pMH) == 0) {
      RTABox("Runtime assumption failed", "m_pMH->lRefCnt>0");
    }
    if (!m_pMH->pVTbl) {
      RTABox("Runtime assumption failed", "m_pMH->pVTbl");
      return false;
    }
    if (!m_pMH->pVTbl->clone) {
      RTABox("Illegal code point reached", "CPObjectMemory::clone: Class does not allow cloning");
      return false;
    }
    if (LoadCount(m_pMH) < 2) {
      return true;
    }
    tagCPOMEMHEADER * const copy = NewBlock(m_pMH->sSize, m_pMH->sSize, m_pMH->pVTbl);
    if (!copy) {
      return false;
    }
    try {
      m_pMH->pVTbl->clone(Payload(copy), Payload(m_pMH), m_pMH->sSize);
    } catch (...) {
      Core::OS::_ffree(copy);
      throw;
    }
    tagCPOMEMHEADER * const shared = m_pMH;
    m_pMH = copy;
    Free(shared);
    return true;
  } catch (...) {
    RTABox("Illegal code point reached", "CPObjectMemory::Clone exception");
    return false;
  }
}

std::uint32_t CPObjectMemory::hash() const {
  if (!m_pMH) {
    return 0;
  }
  auto const address = reinterpret_cast<std::uint64_t>(m_pMH);
  std::uint32_t const folded =
      static_cast<std::uint32_t>(address >> 32) ^ static_cast<std::uint32_t>(address);
  return folded ? folded : 1;
}

std::uint32_t CPObjectMemory::lockcnt() const {
  return m_pMH ? LoadCount(m_pMH) : 0;
}

std::uint32_t CPObjectMemory::GetType(std::size_t * const typeIds, std::uint32_t count) const {
  if (m_pMH && typeIds) {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (typeIds[i] == reinterpret_cast<std::size_t>(m_pMH->pVTbl)) {
        return i;
      }
    }
  }
  return 0xFFFFFFFF;
}

bool CPObjectMemory::IsAssignable(std::size_t bytes, tagCPOVTABL const * table) const {
  if (bytes == 0 || !table) {
    return false;
  }
  return !m_pMH || (m_pMH->pVTbl == table && m_pMH->sSize >= bytes);
}

bool CPObjectMemory::IsNAssignable(std::size_t bytes, tagCPOVTABL const * table) const {
  if (bytes == 0 || !table) {
    return false;
  }
  return !m_pMH || (m_pMH->pVTbl == table && m_pMH->sSize % bytes == 0);
}

bool CPObjectMemory::Alloc(std::size_t bytes, tagCPOVTABL const * table) {
  free();
  if (!table) {
    return false;
  }
  m_pMH = NewBlock(bytes, bytes, table);
  return m_pMH != nullptr;
}

bool CPObjectMemory::Reserve(std::size_t bytes, tagCPOVTABL const * table) {
  free();
  if (!table) {
    return false;
  }
  m_pMH = NewBlock(bytes, 0, table);
  return m_pMH != nullptr;
}

bool CPObjectMemory::Incalloc(std::size_t extra) {
  if (!m_pMH || LoadCount(m_pMH) != 1 || extra == 0) {
    return false;
  }
  std::size_t const capacity = m_pMH->sAllocSize;
  if (extra > static_cast<std::size_t>(-1) - sizeof(tagCPOMEMHEADER) - capacity) {
    return false;
  }
  if (m_pMH->uArena != 0) {
    // A carved block cannot grow where it lies: it moves to a heap block of its own.
    tagCPOMEMHEADER * const moved = NewBlock(capacity + extra, m_pMH->sSize, m_pMH->pVTbl);
    if (!moved) {
      return false;
    }
    std::memcpy(static_cast<void *>(moved + 1), static_cast<void const *>(m_pMH + 1), capacity);
    _CBlockArena::_release(m_pMH);
    m_pMH = moved;
    return true;
  }
  void * const moved = Core::OS::_frealloc(m_pMH, sizeof(tagCPOMEMHEADER) + capacity + extra);
  if (!moved) {
    return false;
  }
  m_pMH = static_cast<tagCPOMEMHEADER *>(moved);
  m_pMH->sAllocSize = capacity + extra;
  return true;
}

bool CPObjectMemory::SetSize(std::size_t bytes) {
  if (!m_pMH) {
    return false;
  }
  VORX_ASSUME("object_memory", m_pMH->lRefCnt > 0);
  VORX_ASSUME("object_memory", m_pMH->pVTbl);
  if (bytes > m_pMH->sAllocSize) {
    return false;
  }
  m_pMH->sSize = bytes;
  return true;
}

std::size_t CPObjectMemory::queryinterface(CPObjectMemory const & object,
                                           _qefUID const & id) const {
  if (!object.m_pMH || !object.m_pMH->pVTbl || !object.m_pMH->pVTbl->queryinterface) {
    return static_cast<std::size_t>(-1);
  }
  void * const payload = Payload(object.m_pMH);
  void * const found = object.m_pMH->pVTbl->queryinterface(payload, id);
  if (!found) {
    return static_cast<std::size_t>(-1);
  }
  return static_cast<std::size_t>(static_cast<char *>(found) - static_cast<char *>(payload));
}

} // namespace VORX::Buffers
