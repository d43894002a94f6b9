// VORX::Buffers: object memory. The reference-counted block under every handle class
// (`CPObjectMemory`), raw byte buffers (`CPPlainMemory`), vectors of handles (`CPObjectVector<T>`,
// `CPOMVector`, `CPTypedObjectVector`), array sorting and searching (`Sort`) and the table-driven
// CRC (`CMachineCRC`).
#pragma once

#include <atomic>
#include <cstring>
#include <new>
#include <utility>

#include <vorx/base.h>
// Only the identifier record: the rest of the component header builds on this one.
#define VORX_QEF_RECORD_ONLY
#include <vorx/qef.h>
#undef VORX_QEF_RECORD_ONLY

namespace VORX::Buffers {

// A payload's class: four plain functions, reached only at create, clone, finalize and
// interface query. Its address is the class's type identifier.
struct tagCPOVTABL {
  // Constructs `bytes` of payload in place.
  void (*create)(void * payload, std::size_t bytes);
  // Copy-constructs `bytes` of payload into raw storage; null when the class cannot be cloned.
  void (*clone)(void * target, void const * source, std::size_t bytes);
  // Destroys `bytes` of payload before the block is freed.
  void (*finalize)(void * payload, std::size_t bytes);
  // A pointer inside the payload to the interface `id`, or null.
  void * (*queryinterface)(void * payload, _qefUID const & id);
};
typedef tagCPOVTABL CPOVTABL;

// The header in front of every payload. The payload starts right after it, 8-byte aligned.
struct tagCPOMEMHEADER {
  std::uint32_t lRefCnt;     // handles sharing the block; 0 marks a permanent, uncounted block
  std::uint32_t uArena;      // 0: a heap block of its own; else carved from a block arena's page
  std::size_t sAllocSize;    // payload capacity in bytes
  std::size_t sSize;         // payload bytes in use, never above sAllocSize
  tagCPOVTABL const * pVTbl; // the payload's class, never null in a live block
};
typedef tagCPOMEMHEADER CPOMEMHEADER;
static_assert(sizeof(tagCPOMEMHEADER) % 8 == 0);

// Handle to a reference-counted heap block: one pointer, null when empty. Copies share the
// block with one atomic increment; the last release finalizes the payload and frees the block.
// == compares blocks, not contents. Counts are atomic, so handles to one block may be copied
// and released from any threads; one handle object must not be assigned while another thread
// reads it. Failures are false results; broken invariants go to the assumption box.
class VORX_API CPObjectMemory {
public:
  CPObjectMemory() noexcept : m_pMH(nullptr) {}
  CPObjectMemory(CPObjectMemory const & other) noexcept : m_pMH(nullptr) {
    tagCPOMEMHEADER * const header = other.m_pMH;
    if (header && header->pVTbl && _count(header).load(std::memory_order_relaxed) != 0) {
      _holdIncremented(header, _count(header).fetch_add(1) + 1);
    } else if (header) {
      CopyCPMemory(other);
    }
  }
  CPObjectMemory(CPObjectMemory && other) noexcept : m_pMH(other.m_pMH) { other.m_pMH = nullptr; }
  ~CPObjectMemory() {
    if (m_pMH) {
      _release(m_pMH);
    }
  }

  CPObjectMemory & operator=(CPObjectMemory const & other) noexcept {
    CopyCPMemory(other);
    return *this;
  }
  CPObjectMemory & operator=(CPObjectMemory && other) noexcept {
    std::swap(m_pMH, other.m_pMH);
    return *this;
  }

  explicit operator bool() const { return m_pMH != nullptr; }
  bool operator==(CPObjectMemory const & other) const { return m_pMH == other.m_pMH; }
  bool operator!=(CPObjectMemory const & other) const { return m_pMH != other.m_pMH; }

  // Releases the block; the handle becomes empty.
  void free();
  // Makes the block exclusive to this handle, copying it when shared. True for an empty or
  // unshared handle; false (with an assumption box) when the class has no clone slot, even
  // unshared, or when the copy cannot be allocated: the handle then keeps the shared block.
  bool clone();

  // 0 for an empty handle; never 0 for a live block (a 0 result becomes 1).
  std::uint32_t hash() const;
  // The header address shifted right by 3; 0 for an empty handle.
  std::size_t key() const { return reinterpret_cast<std::size_t>(m_pMH) >> 3; }
  // The block's reference count; 0 for an empty handle (and for a permanent block).
  std::uint32_t lockcnt() const;
  // The address of the class table; 0 for an empty handle.
  std::size_t GetTypeID() const { return m_pMH ? reinterpret_cast<std::size_t>(m_pMH->pVTbl) : 0; }
  // False for an empty handle.
  bool IsType(void const * typeId) const { return m_pMH && m_pMH->pVTbl == typeId; }
  // Index of the first of `typeIds[0..count)` naming this block's class; 0xFFFFFFFF when none,
  // when empty, or when `count` is 0.
  std::uint32_t GetType(std::size_t * const typeIds, std::uint32_t count) const;
  // False for 0 bytes or a null table (even for an empty handle); true for an empty handle;
  // else the same table and at least `bytes` in use.
  bool IsAssignable(std::size_t bytes, tagCPOVTABL const * table) const;
  // As `IsAssignable`, but the size in use must be a whole multiple of `bytes`.
  bool IsNAssignable(std::size_t bytes, tagCPOVTABL const * table) const;

  // The default interface query: always null.
  static void * _nointerface(void * payload, _qefUID const & id);

  // A shared empty handle.
  static CPObjectMemory const pnull;

protected:
  // Releases the current block, then allocates `bytes` of payload for `table` with count 1 and
  // size `bytes`. Does not construct the payload. False for a null table or a failed allocation
  // (the handle is then empty).
  bool Alloc(std::size_t bytes, tagCPOVTABL const * table);
  // As `Alloc` with a size in use of 0.
  bool Reserve(std::size_t bytes, tagCPOVTABL const * table);
  // Grows the capacity by `extra` in place (the block may move). False unless the handle holds
  // the only reference and `extra` is not 0, or when reallocation fails (block unchanged).
  bool Incalloc(std::size_t extra);
  // Sets the size in use; false for an empty handle or `bytes` above the capacity.
  bool SetSize(std::size_t bytes);
  std::size_t GetSize() const { return m_pMH ? m_pMH->sSize : 0; }
  std::size_t GetAllocSize() const { return m_pMH ? m_pMH->sAllocSize : 0; }
  void * get_ptr() const { return m_pMH ? m_pMH + 1 : nullptr; }
  void const * get_cptr() const { return m_pMH ? m_pMH + 1 : nullptr; }
  // Sharing assignment: the new reference is taken before the old is released.
  void CopyCPMemory(CPObjectMemory const & other);
  // Releases one reference on `header`; frees the block after the last. Null and permanent
  // blocks are left alone. Does not touch any handle.
  static void Free(tagCPOMEMHEADER * header);
  // Byte distance from `object`'s payload start to its interface `id`; all ones when `object`
  // is empty or has no such interface.
  std::size_t queryinterface(CPObjectMemory const & object, _qefUID const & id) const;

  tagCPOMEMHEADER * m_pMH;

private:
  static std::atomic_ref<std::uint32_t> _count(tagCPOMEMHEADER * header) {
    return std::atomic_ref<std::uint32_t>(header->lRefCnt);
  }
  // Holds `header` after its count was raised to `count`; a count that is not above 1 means a
  // corrupt block and is reported (the handle then holds it only if a fresh count exceeds 1).
  void _holdIncremented(tagCPOMEMHEADER * header, std::uint32_t count) {
    if (count > 1) {
      m_pMH = header;
    } else {
      _holdOddCount(header, count);
    }
  }
  void _holdOddCount(tagCPOMEMHEADER * header, std::uint32_t count);
  // Releases one reference on a non-null header; permanent blocks are left alone.
  static void _release(tagCPOMEMHEADER * header) {
    std::atomic_ref<std::uint32_t> count = _count(header);
    if (count.load(std::memory_order_relaxed) != 0 && count.fetch_sub(1) == 1) {
      _destroy(header);
    }
  }
  // Finalizes the payload and frees the block.
  static void _destroy(tagCPOMEMHEADER * header);
};
static_assert(sizeof(CPObjectMemory) == sizeof(void *));

// Handle to a block of raw bytes. Copies share the bytes; nothing clones before a change.
// Sizes are in bytes. Failures are false results with the handle unchanged.
class VORX_API CPPlainMemory : public CPObjectMemory {
public:
  CPPlainMemory() noexcept = default;
  CPPlainMemory(CPPlainMemory const &) noexcept = default;
  CPPlainMemory(CPPlainMemory &&) noexcept = default;
  CPPlainMemory & operator=(CPPlainMemory const &) noexcept = default;
  CPPlainMemory & operator=(CPPlainMemory &&) noexcept = default;
  // Shares `other` when it is empty or a plain block of at least one byte; else empty.
  CPPlainMemory(CPObjectMemory const & other);
  CPPlainMemory & operator=(CPObjectMemory const & other);

  operator void *() { return get_ptr(); }
  operator void const *() const { return get_cptr(); }

  // Releases the block held, then a new block of exactly `bytes` (contents undefined); 0 gives
  // an empty handle. False when allocation fails, with the handle empty.
  bool Alloc(std::size_t bytes) { return _Alloc(bytes, &_vtbl); }
  // Changes the size in use; grows to exactly `bytes` when beyond the capacity.
  bool Resize(std::size_t bytes);
  std::size_t GetMemorySize() const { return GetSize(); }
  // True when `p` lies after the block's first byte and below the end of its capacity.
  // Note: the header counts as inside, except its very first byte.
  bool isMemory(void const * p) const;

  // As `Alloc` with class `table`; a null `table` with `bytes` above 0 gives false.
  bool _Alloc(std::size_t bytes, tagCPOVTABL const * table);
  // Capacity for `bytes`, keeping the size in use; true at once when `bytes` is at most it.
  bool _Reserve(std::size_t bytes, tagCPOVTABL const * table);
  // Size in use `bytes`, reallocating to exactly `bytes` beyond the capacity.
  bool _Resize(std::size_t bytes, tagCPOVTABL const * table);

  static std::size_t GetTypeID() { return reinterpret_cast<std::size_t>(&_vtbl); }
  using CPObjectMemory::GetTypeID;

  static tagCPOVTABL const _vtbl;
};

namespace Sort {

// Sorts `count` elements of `width` bytes ascending, in place, not stable. Ranges of more than
// 8 elements are partitioned around their middle element; 8 or fewer finish by selection.
VORX_API void vfqsort(void * base, std::size_t count, std::size_t width,
                      int (*compare)(void const *, void const *));
// As `vfqsort`, passing `context` as the comparison's third argument.
VORX_API void vfpqsort(void * base, std::size_t count, std::size_t width, void const * context,
                       int (*compare)(void const *, void const *, void const *));
// The first position whose element is not less than `key` (lower bound); `count` when `key` is
// above all. `compare(key, element)`.
VORX_API std::size_t vfqfind(void const * key, void const * base, std::size_t count,
                             std::size_t width, int (*compare)(void const *, void const *));
// As `vfqfind`, with `compare(key, element, context)`.
VORX_API std::size_t vfpqsearch(void const * key, void const * base, std::size_t count,
                                std::size_t width, void const * context,
                                int (*compare)(void const *, void const *, void const *));

} // namespace Sort

// Exchanges `width` bytes of `a` and `b`; nothing when they are the same address.
VORX_API void swap(void * a, void * b, std::size_t width);

// Growable array of handles of type `T` (a one-pointer handle derived from `CPObjectMemory`)
// in one shared block. Copies share the block; no operation clones before changing it, so a
// caller that shares the block and wants a private change calls `clone()` first. Elements are
// counted through their own blocks. One vector block must not be changed by two threads at once.
// Instantiated in the library for `CPObjectMemory` (see `CPOMVector`) and for pooled strings.
template <class T> class CPObjectVector : public CPObjectMemory {
  static_assert(sizeof(T) == sizeof(void *), "vector elements are one-pointer handles");

public:
  CPObjectVector() noexcept = default;
  CPObjectVector(CPObjectVector const &) noexcept = default;
  CPObjectVector(CPObjectVector &&) noexcept = default;
  CPObjectVector & operator=(CPObjectVector const &) noexcept = default;
  CPObjectVector & operator=(CPObjectVector &&) noexcept = default;
  // Shares `other` when it is empty or a vector of this element type; else empty.
  CPObjectVector(CPObjectMemory const & other) { _assign(other); }
  CPObjectVector & operator=(CPObjectMemory const & other) {
    _assign(other);
    return *this;
  }
  // `n` empty elements with capacity `n`; 0 gives an empty handle (as does a failed allocation).
  explicit CPObjectVector(std::size_t n) { Alloc(n); }

  // True for an empty handle or a vector of no elements.
  bool isEmpty() const { return GetSize() == 0; }
  // Element `i`; no bounds check, no clone.
  T & operator[](std::size_t i) { return _items()[i]; }
  T const & operator[](std::size_t i) const { return _items()[i]; }
  std::size_t GetNItems() const { return GetSize() / sizeof(T); }
  // The element array (null when empty) and its count in `n`.
  T * GetArray(std::size_t & n) {
    n = GetNItems();
    return m_pMH ? _items() : nullptr;
  }

  // Releases the block held, then `n` empty elements with capacity `n`; 0 gives an empty
  // handle. False when allocation fails, with the handle empty.
  bool Alloc(std::size_t n);
  // Capacity `n` with the elements kept. Note: true at once only when `n` is at most the count;
  // beyond the count it always reallocates, even when the capacity would do.
  bool Reserve(std::size_t n);
  // `n` elements: extra ones released, new ones empty; beyond the capacity a block of exactly
  // `n`. False only when allocation fails, with the vector unchanged.
  bool Resize(std::size_t n);
  // Shares `item` into position `pos` (a `pos` above the count appends). The capacity grows
  // 16 elements at a time. False only when allocation fails, with the vector unchanged.
  bool Insert(T const & item, std::size_t pos);
  // Removes element `pos`; false when `pos` is not below the count. When the last element goes
  // and `freeWhenEmpty` is set, the handle becomes empty.
  bool Delete(std::size_t pos, bool freeWhenEmpty);
  // The first index above `after` whose element holds `item`'s block (identity); all ones when
  // none. Note: search starts at `after + 1`, so pass all ones to search from element 0.
  std::size_t Find(T const & item, std::size_t after) const;
  // Sorts the elements with `Sort::vfqsort` (element width 8).
  void Sort(int (*compare)(void const *, void const *));

  static std::size_t GetTypeID() { return reinterpret_cast<std::size_t>(&_vtbl); }
  using CPObjectMemory::GetTypeID;

  static tagCPOVTABL const _vtbl;

private:
  T * _items() const { return static_cast<T *>(get_ptr()); }
  void _assign(CPObjectMemory const & other);
  // A new block of capacity `capacity` holding shares of the first `keep` elements.
  bool _regrow(std::size_t capacity, std::size_t keep);

  static void _create(void * payload, std::size_t bytes) {
    T * items = static_cast<T *>(payload);
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      ::new (items + i) T();
    }
  }
  static void _clone(void * target, void const * source, std::size_t bytes) {
    T * to = static_cast<T *>(target);
    T const * from = static_cast<T const *>(source);
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      ::new (to + i) T(from[i]);
    }
  }
  static void _finalize(void * payload, std::size_t bytes) {
    T * items = static_cast<T *>(payload);
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      items[i].~T();
    }
  }
};

template <class T>
tagCPOVTABL const CPObjectVector<T>::_vtbl = {
    &CPObjectVector<T>::_create, &CPObjectVector<T>::_clone, &CPObjectVector<T>::_finalize,
    &CPObjectMemory::_nointerface};

template <class T> void CPObjectVector<T>::_assign(CPObjectMemory const & other) {
  if (!other || other.IsNAssignable(sizeof(T), &_vtbl)) {
    CopyCPMemory(other);
  } else {
    free();
  }
}

template <class T> bool CPObjectVector<T>::_regrow(std::size_t capacity, std::size_t keep) {
  CPObjectVector grown;
  if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(T)) {
    return false;
  }
  if (!grown.CPObjectMemory::Reserve(capacity * sizeof(T), &_vtbl)) {
    return false;
  }
  _clone(grown.get_ptr(), get_cptr(), keep * sizeof(T));
  grown.SetSize(keep * sizeof(T));
  std::swap(m_pMH, grown.m_pMH);
  return true;
}

template <class T> bool CPObjectVector<T>::Alloc(std::size_t n) {
  free();
  if (n == 0) {
    return true;
  }
  if (n > static_cast<std::size_t>(-1) / 2 / sizeof(T) ||
      !CPObjectMemory::Alloc(n * sizeof(T), &_vtbl)) {
    return false;
  }
  _create(get_ptr(), n * sizeof(T));
  return true;
}

template <class T> bool CPObjectVector<T>::Reserve(std::size_t n) {
  std::size_t const count = GetNItems();
  if (n <= count) {
    return true;
  }
  return _regrow(n, count);
}

template <class T> bool CPObjectVector<T>::Resize(std::size_t n) {
  std::size_t const count = GetNItems();
  if (n == count) {
    return true;
  }
  if (n < count) {
    _finalize(_items() + n, (count - n) * sizeof(T));
  } else if (n * sizeof(T) <= GetAllocSize()) {
    _create(_items() + count, (n - count) * sizeof(T));
  } else {
    if (!_regrow(n, count)) {
      return false;
    }
    _create(_items() + count, (n - count) * sizeof(T));
  }
  SetSize(n * sizeof(T));
  return true;
}

template <class T> bool CPObjectVector<T>::Insert(T const & item, std::size_t pos) {
  // Take the new reference first: `item` may live inside this vector's own block.
  T shared(item);
  std::size_t const count = GetNItems();
  if (!m_pMH) {
    if (!_regrow(16, 0)) {
      return false;
    }
  } else if (count * sizeof(T) >= GetAllocSize()) {
    if (!_regrow(count + 16, count)) {
      return false;
    }
  }
  if (pos > count) {
    pos = count;
  }
  T * items = _items();
  std::memmove(static_cast<void *>(items + pos + 1), static_cast<void const *>(items + pos),
               (count - pos) * sizeof(T));
  ::new (items + pos) T(std::move(shared));
  SetSize((count + 1) * sizeof(T));
  return true;
}

template <class T> bool CPObjectVector<T>::Delete(std::size_t pos, bool freeWhenEmpty) {
  std::size_t const count = GetNItems();
  if (pos >= count) {
    return false;
  }
  T * items = _items();
  items[pos].~T();
  std::memmove(static_cast<void *>(items + pos), static_cast<void const *>(items + pos + 1),
               (count - pos - 1) * sizeof(T));
  SetSize((count - 1) * sizeof(T));
  if (count == 1 && freeWhenEmpty) {
    free();
  }
  return true;
}

template <class T> std::size_t CPObjectVector<T>::Find(T const & item, std::size_t after) const {
  std::size_t const count = GetNItems();
  std::size_t const first = after + 1;
  if (count == 0 || first >= count) {
    return static_cast<std::size_t>(-1);
  }
  T const * items = _items();
  for (std::size_t i = first; i < count; ++i) {
    if (items[i] == item) {
      return i;
    }
  }
  return static_cast<std::size_t>(-1);
}

template <class T> void CPObjectVector<T>::Sort(int (*compare)(void const *, void const *)) {
  if (!isEmpty()) {
    Sort::vfqsort(get_ptr(), GetNItems(), sizeof(T), compare);
  }
}

extern template class VORX_API CPObjectVector<CPObjectMemory>;

// The vector of plain object handles, under its own class name.
class VORX_API CPOMVector : public CPObjectVector<CPObjectMemory> {
public:
  using CPObjectVector<CPObjectMemory>::CPObjectVector;
  using CPObjectVector<CPObjectMemory>::operator=;
  CPOMVector() noexcept = default;
  CPOMVector(CPObjectVector<CPObjectMemory> const & other) noexcept
      : CPObjectVector<CPObjectMemory>(other) {}
};

// A set of objects keyed by their class: at most one element per class table, kept in
// ascending order of type identifier. Stores and hands out private copies (clones), so a
// caller's later changes never reach the stored element. Not synchronised.
class VORX_API CPTypedObjectVector {
public:
  CPTypedObjectVector() = default;
  CPTypedObjectVector(CPTypedObjectVector const &) = default;
  CPTypedObjectVector & operator=(CPTypedObjectVector const &) = default;
  virtual ~CPTypedObjectVector();

  // Stores a private copy of `object` in place of any element of its class. False for an empty
  // `object` or when the copy or the slot cannot be allocated.
  bool Set(CPObjectMemory const & object);
  // A private copy of the element of class `typeId`; empty when there is none.
  CPObjectMemory Get(std::size_t typeId) const;
  // Removes the element of class `typeId`, freeing the block with the last one; always true.
  bool Delete(std::size_t typeId);

  CPOMVector const & GetVector() const { return m_vector; }

private:
  // Where `typeId` is or would go.
  std::size_t _position(std::size_t typeId) const;

  CPOMVector m_vector;
};

// Table-driven cyclic redundancy check, most significant bit first, of width 8 to 64 and any
// polynomial; no reflection and no final exclusive-or. The library's checksum is
// `CMachineCRC(64, 0x42F0E1EBA9EA3693)` (CRC-64/ECMA-182). Width 64 folds long data by
// carry-less multiplication where the processor offers it, with the table's results.
// Immutable after construction, so one object may serve several threads.
struct _cCRCTables;

class VORX_API CMachineCRC {
public:
  // A width below 8 or above 64 leaves the table empty: `Eval` then computes nothing.
  CMachineCRC(unsigned int width, std::uint64_t polynomial);
  // The CRC of `length` bytes continuing from `initial`. Note: width 8 (and an unconfigured
  // width) returns `initial` unchanged, as the byte-shift is 0.
  std::uint64_t Eval(void const * data, std::size_t length, std::uint64_t initial) const;

private:
  std::uint32_t shift;
  std::uint64_t mask;
  std::uint64_t table[256];
  // Width 64 only (else zero): slice[k][b] is the CRC of byte `b` followed by k + 1 zero bytes,
  // so eight bytes are folded in one step with the same result as the byte-wise update.
  std::uint64_t slice[7][256];
  // Width 64 only (else zero): x^D and x^(D + 64) modulo the polynomial for the distances the
  // carry-less folding uses, which runs where the processor offers it.
  std::uint64_t fold[16];

  friend struct _cCRCTables; // the library's own hashing reads the tables directly
};

} // namespace VORX::Buffers
