// The node record behind `CPXMLObject`, for the library's own XML code (tree, parser, writers).
#pragma once

#include <vorx/xml.h>

#include "buffers/block_arena.h"

#include <new>

namespace VORX::XML {

// An array of one-pointer handles in one block, owned by a single node record (never shared),
// that grows by doubling in place.
template <class T> class _CXMLArray : public Buffers::CPObjectVector<T> {
public:
  // Shares `item` into position `pos` (beyond the end appends). False when the array cannot
  // grow, unchanged.
  bool Put(T const & item, std::size_t pos) {
    T shared(item); // `item` may live in this array, which growing moves
    std::size_t const count = this->GetNItems();
    if (this->m_pMH && (count + 1) * sizeof(T) > this->GetAllocSize()) {
      if (this->lockcnt() != 1 || !this->Incalloc(this->GetAllocSize())) {
        return false;
      }
    }
    return Buffers::CPObjectVector<T>::Insert(shared, pos);
  }
  // Releases what it held, then takes over the `n` handles at `from` as they stand (their counts
  // unchanged; the caller forgets them), in a block of exactly `n` carved by `arena`. False when
  // the block cannot be had: nothing taken, the array empty.
  bool Adopt(T const * from, std::size_t n, Buffers::_CBlockArena & arena) {
    this->free();
    if (n == 0) {
      return true;
    }
    if (n > static_cast<std::size_t>(-1) / 2 / sizeof(T) ||
        !arena.Alloc(*this, n * sizeof(T), &Buffers::CPObjectVector<T>::_vtbl)) {
      return false;
    }
    // Copied as bytes in fixed steps (handles are one pointer each; arrays are short, so a library
    // call and constructing empty handles first cost more than the copy).
    auto * const to = static_cast<unsigned char *>(this->get_ptr());
    auto const * const bytes = reinterpret_cast<unsigned char const *>(from);
    std::size_t i = 0;
    for (; i + 16 <= n * sizeof(T); i += 16) {
      std::memcpy(to + i, bytes + i, 16);
    }
    if (i < n * sizeof(T)) {
      std::memcpy(to + i, bytes + i, 8);
    }
    return true;
  }
  T * items() const { return static_cast<T *>(this->get_ptr()); }
  // Moves every handle of `from` to the end of this array without touching their counts;
  // `from` is left empty. False (nothing moved) when this array cannot grow.
  bool TakeAll(_CXMLArray & from) {
    std::size_t const count = this->GetNItems();
    std::size_t const more = from.GetNItems();
    if (more == 0) {
      return true;
    }
    if (!this->m_pMH || from.lockcnt() != 1 || this->lockcnt() != 1) {
      return false;
    }
    std::size_t const need = (count + more) * sizeof(T);
    if (need > this->GetAllocSize()) {
      std::size_t const grow = need > 2 * this->GetAllocSize() ? need : 2 * this->GetAllocSize();
      if (!this->Incalloc(grow - this->GetAllocSize())) {
        return false;
      }
    }
    std::memcpy(static_cast<void *>(items() + count), static_cast<void const *>(from.items()),
                more * sizeof(T));
    this->SetSize(need);
    from.SetSize(0);
    return true;
  }
  // Moves the last handle out without touching its count; the array must not be empty.
  void PopInto(T & slot) {
    std::size_t const count = this->GetNItems();
    std::memcpy(static_cast<void *>(&slot), static_cast<void const *>(items() + count - 1),
                sizeof(T));
    this->SetSize((count - 1) * sizeof(T));
  }
};

// The node record, in this order: name, content state, attribute pairs (name then value),
// children, data. Names and data are the empty string when absent; the arrays are empty handles
// when there are none.
struct tagXMLNODE {
  CPPoolString name;
  std::uint32_t state = 0;
  _CXMLArray<CPPoolString> attributes;
  _CXMLArray<CPXMLObject> elements;
  CPPoolString data;
};

// Content states.
inline constexpr std::uint32_t kXMLStateEmpty = 0;
inline constexpr std::uint32_t kXMLStateElements = 1;
inline constexpr std::uint32_t kXMLStateData = 2;
inline constexpr std::uint32_t kXMLStateMixed = 3;
inline constexpr std::uint32_t kXMLStatePI = 4;

// The library's own access to node records.
class _CXMLNodeAccess {
public:
  // The record; null for a null handle.
  static tagXMLNODE * Record(CPXMLObject const & node) { return node._node(); }
  // A new node named `name` (not checked) into `node`, its block carved by `arena`; false when
  // memory runs out.
  static bool Create(CPXMLObject & node, CPPoolString const & name, Buffers::_CBlockArena & arena) {
    CPXMLObject fresh;
    if (!arena.Alloc(fresh, sizeof(tagXMLNODE), &CPXMLObject::_vtbl)) {
      return false;
    }
    Construct(fresh, name);
    node = std::move(fresh);
    return true;
  }
  // Builds the record of a fresh node block: named `name`, nothing else.
  static void Construct(CPXMLObject & fresh, CPPoolString const & name) {
    tagXMLNODE * const record = ::new (fresh.get_ptr()) tagXMLNODE();
    record->name = name;
    record->data = CPPoolString::pempty;
  }
};

} // namespace VORX::XML
