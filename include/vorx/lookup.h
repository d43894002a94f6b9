// VORX::Lookup: the library's associative container. `CBaseHashTable` maps 64-bit hash values
// to items held as object-memory handles; `HASHENTRY` is one stored pair, `IBaseHashTableEnum`
// the walking callback and `eHashCollision` the rule for a key that is already present.
#pragma once

#include <vorx/base.h>
#include <vorx/buffers.h>

namespace VORX::Lookup {

// One stored pair: the caller's full hash value and the item (the table holds one reference).
struct tagHASHENTRY {
  std::uint64_t hash;
  Buffers::CPObjectMemory item;
};
typedef tagHASHENTRY HASHENTRY;
static_assert(sizeof(tagHASHENTRY) == 16);

// What `AddItem` does when an entry with the same hash sits at the insertion point.
enum eHashCollision : int {
  eHashKeepEqual = 0,    // keep and return an entry that compares equal; else insert
  eHashReplaceEqual = 1, // replace the item of an entry that compares equal; else insert
  eHashKeepHash = 2,     // keep and return the entry without comparing
  eHashReplaceHash = 3,  // replace its item without comparing
};

// Walking callback. For `EnumTableBy`: true to go on, false to stop. For `PurgeTable`: true to
// keep the entry, false to drop it.
class VORX_API IBaseHashTableEnum {
public:
  virtual bool OnEntry(std::uint64_t hash, Buffers::CPObjectMemory const & item) = 0;

protected:
  ~IBaseHashTableEnum() = default;
};

// Abstract hash table: a direct index of 2^k slots chosen by the low k bits of the hash, each
// slot a vector of entries sorted by (hash, item) and grown 16 entries at a time. A derived class
// orders items of equal hash (`compare`) and may age items out (`isDisposable`, `tblfinalize`).
// Owns one reference to every stored item. No locking inside: a caller sharing a table between
// threads locks around every call. Absence is a null handle or a false result; nothing throws.
// Note: two entries compare equal when their hashes are equal and either item is null or both
// are the same block; `compare` is asked only for two different live blocks.
class VORX_API CBaseHashTable {
public:
  // k = `uDirectIndexLength` should lie in 4..64; outside that an assumption box is raised and
  // the table is built anyway with 2^(k mod 64) slots. Note: k = 64 gives a single slot.
  explicit CBaseHashTable(std::uint32_t uDirectIndexLength);
  virtual ~CBaseHashTable();
  CBaseHashTable(CBaseHashTable const &) = delete;
  CBaseHashTable & operator=(CBaseHashTable const &) = delete;

  // Releases every entry at once, without `tblfinalize`; the table becomes empty.
  void ClearTable();
  // Entries in all slots.
  std::uint64_t GetNItems() const;

protected:
  // Orders two different live items of equal hash: negative, zero or positive.
  virtual int compare(Buffers::CPObjectMemory const & a, Buffers::CPObjectMemory const & b) = 0;
  // Whether `DisposeTable` may age `item` out; false by default.
  virtual bool isDisposable(Buffers::CPObjectMemory const & item);
  // Called for an item leaving through `DeleteItem`, `DeleteIndex` or `DisposeTable`; nothing
  // by default.
  virtual void tblfinalize(Buffers::CPObjectMemory const & item);

  // Stores `item` under `hash` as `mode` rules (see `eHashCollision`) and answers the item now in
  // the table for the key. Null when the slot memory cannot be allocated, and, for a mode outside
  // 0..3, when an equal entry exists (nothing is stored then).
  Buffers::CPObjectMemory AddItem(std::uint64_t hash, Buffers::CPObjectMemory const & item,
                                  eHashCollision mode);
  // The stored item whose entry compares equal to (`hash`, `probe`); null when none. A null
  // `probe` finds the first entry of that hash.
  Buffers::CPObjectMemory FindItem(std::uint64_t hash, Buffers::CPObjectMemory const & probe);
  // Finds as `FindItem`, calls `tblfinalize` on the stored item and removes it. True when
  // removed; false when not found. Note: true as well when the table has no slots yet.
  bool DeleteItem(std::uint64_t hash, Buffers::CPObjectMemory const & probe);
  // Calls `tblfinalize` on every entry of the slot of `hash` (whatever their own hashes) and
  // releases the slot. Always true.
  bool DeleteIndex(std::uint64_t hash);
  // Calls `e` for every entry in slot order (`byHash` false), or for the entries of `hash` only
  // (`byHash` true). False for a null `e`, a table without slots, or when `e` stops the walk.
  // The walk keeps its own references, so `e` may change the table without disturbing it.
  bool EnumTableBy(IBaseHashTableEnum * e, std::uint64_t hash, bool byHash);
  // Drops every entry for which `e` answers false (no `tblfinalize`), releasing emptied slots.
  // False for a null `e` or a table without slots.
  bool PurgeTable(IBaseHashTableEnum * e);
  // One ageing pass: from the slot after the last one visited, removes the entries that
  // `isDisposable` accepts (after `tblfinalize`), walking each slot from its last entry. Answers
  // false as soon as more than `timeLimit` milliseconds have passed (the next pass resumes at
  // the following slot), true after a whole cycle or for a table without slots.
  bool DisposeTable(std::uint32_t timeLimit);

  std::uint64_t m_mask;            // 2^k - 1
  std::uint64_t m_slotCount;       // 2^k
  std::uint64_t m_disposeCursor;   // the slot where the next `DisposeTable` pass starts
  Buffers::CPObjectMemory m_slots; // the slot array; null until the first insertion

private:
  int _compareKey(std::uint64_t hash, Buffers::CPObjectMemory const & item,
                  tagHASHENTRY const & entry);
  std::size_t _locate(tagHASHENTRY const * entries, std::size_t count, std::uint64_t hash,
                      Buffers::CPObjectMemory const & item);
};

} // namespace VORX::Lookup
