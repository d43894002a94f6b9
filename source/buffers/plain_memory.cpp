// Raw byte buffers on object-memory blocks.
#include <vorx/buffers.h>

#include <cstring>
#include <utility>

namespace VORX::Buffers {
namespace {

void NoPayload(void *, std::size_t) {}
void MoveBytes(void * target, void const * source, std::size_t bytes) {
  std::memmove(target, source, bytes);
}

} // namespace

tagCPOVTABL const CPPlainMemory::_vtbl = {&NoPayload, &MoveBytes, &NoPayload,
                                          &CPObjectMemory::_nointerface};

CPPlainMemory::CPPlainMemory(CPObjectMemory const & other) {
  *this = other;
}

CPPlainMemory & CPPlainMemory::operator=(CPObjectMemory const & other) {
  if (!other || other.IsAssignable(1, &_vtbl)) {
    CopyCPMemory(other);
  } else {
    free();
  }
  return *this;
}

bool CPPlainMemory::Resize(std::size_t bytes) {
  return _Resize(bytes, m_pMH ? m_pMH->pVTbl : &_vtbl);
}

bool CPPlainMemory::isMemory(void const * p) const {
  if (!m_pMH || !p) {
    return false;
  }
  auto const address = reinterpret_cast<std::uintptr_t>(p);
  auto const first = reinterpret_cast<std::uintptr_t>(m_pMH);
  auto const end = reinterpret_cast<std::uintptr_t>(get_cptr()) + m_pMH->sAllocSize;
  return address > first && address < end;
}

bool CPPlainMemory::_Alloc(std::size_t bytes, tagCPOVTABL const * table) {
  // Releases first, so a failed allocation leaves the handle empty.
  free();
  if (bytes == 0) {
    return true;
  }
  return table && CPObjectMemory::Alloc(bytes, table);
}

bool CPPlainMemory::_Reserve(std::size_t bytes, tagCPOVTABL const * table) {
  std::size_t const size = GetSize();
  if (bytes <= size) {
    return true;
  }
  if (!table) {
    return false;
  }
  CPPlainMemory grown;
  if (!grown.CPObjectMemory::Reserve(bytes, table)) {
    return false;
  }
  if (size != 0) {
    std::memcpy(grown.get_ptr(), get_cptr(), size);
    grown.SetSize(size);
  }
  std::swap(m_pMH, grown.m_pMH);
  return true;
}

bool CPPlainMemory::_Resize(std::size_t bytes, tagCPOVTABL const * table) {
  std::size_t const size = GetSize();
  if (bytes == size) {
    return true;
  }
  if (bytes > size && bytes > GetAllocSize()) {
    if (!table) {
      return false;
    }
    CPPlainMemory grown;
    if (!grown.CPObjectMemory::Alloc(bytes, table)) {
      return false;
    }
    if (size != 0) {
      std::memcpy(grown.get_ptr(), get_cptr(), size);
    }
    std::swap(m_pMH, grown.m_pMH);
    return true;
  }
  return SetSize(bytes);
}

} // namespace VORX::Buffers
