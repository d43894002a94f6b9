// Reaching the payload of any handle, for the threading classes that work on blocks of other
// classes (a work object, an attached event, a maintenance client).
#pragma once

#include <vorx/buffers.h>

namespace VORX::Threading {

struct _cBlockAccess : Buffers::CPObjectMemory {
  // The payload of `handle`, or null for an empty handle.
  static void * Payload(Buffers::CPObjectMemory const & handle) {
    Buffers::tagCPOMEMHEADER * header = handle.*(&_cBlockAccess::m_pMH);
    return header ? header + 1 : nullptr;
  }
  // Frees a block whose payload could not be built, without running its class's finalizer.
  static void Abandon(Buffers::CPObjectMemory & handle) {
    Buffers::tagCPOMEMHEADER * header = handle.*(&_cBlockAccess::m_pMH);
    if (header) {
      header->pVTbl = &Buffers::CPPlainMemory::_vtbl;
    }
    handle.free();
  }
  // The byte distance of interface `id` from the payload of `object`; all ones when none.
  static std::size_t Interface(Buffers::CPObjectMemory const & object, _qefUID const & id) {
    return _cBlockAccess().queryinterface(object, id);
  }
};

// The interface at byte `offset` of the payload of `object`.
template <class I> I * _InterfaceAt(Buffers::CPObjectMemory const & object, std::size_t offset) {
  return static_cast<I *>(
      static_cast<void *>(static_cast<char *>(_cBlockAccess::Payload(object)) + offset));
}

} // namespace VORX::Threading
