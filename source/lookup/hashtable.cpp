// The hash table: a direct index of slot handles, each slot a block of entries sorted by
// (hash, item). Blocks are shared while a walk holds them, so every change copies a shared block
// first and a walk in progress keeps seeing the entries it started with.
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/lookup.h>

#include <cstring>
#include <limits>
#include <new>

namespace VORX::Lookup {
namespace {

using Buffers::CPObjectMemory;
using Buffers::tagCPOMEMHEADER;
using Buffers::tagCPOVTABL;

// Reaches the block behind any handle; the memory layer keeps these members protected.
struct _cBlock : CPObjectMemory {
  static tagCPOMEMHEADER * Header(CPObjectMemory const & h) { return h.*(&_cBlock::m_pMH); }
  // Gives a block held by `h` alone `extra` more bytes of capacity (see `Incalloc`).
  static bool Grow(CPObjectMemory & h, std::size_t extra) {
    return (h.*(&_cBlock::Incalloc))(extra);
  }
  // A fresh block of `capacity` bytes with nothing in use; empty when allocation fails.
  static CPObjectMemory Make(std::size_t capacity, tagCPOVTABL const * table) {
    _cBlock block;
    if (!block.Reserve(capacity, table)) {
      return CPObjectMemory();
    }
    return CPObjectMemory(std::move(block));
  }
};

// Class functions of a block holding an array of `T`.
template <class T> struct _tArray {
  static void Create(void * payload, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      ::new (static_cast<T *>(payload) + i) T();
    }
  }
  static void Clone(void * target, void const * source, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      ::new (static_cast<T *>(target) + i) T(static_cast<T const *>(source)[i]);
    }
  }
  static void Finalize(void * payload, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
      (static_cast<T *>(payload) + i)->~T();
    }
  }
  static constexpr tagCPOVTABL table = {&Create, &Clone, &Finalize, &CPObjectMemory::_nointerface};

  static T * Items(CPObjectMemory const & h) {
    tagCPOMEMHEADER * header = _cBlock::Header(h);
    return header ? reinterpret_cast<T *>(header + 1) : nullptr;
  }
  static std::size_t Count(CPObjectMemory const & h) {
    tagCPOMEMHEADER * header = _cBlock::Header(h);
    return header ? header->sSize / sizeof(T) : 0;
  }
  static std::size_t Capacity(CPObjectMemory const & h) {
    tagCPOMEMHEADER * header = _cBlock::Header(h);
    return header ? header->sAllocSize / sizeof(T) : 0;
  }
  static void SetCount(CPObjectMemory const & h, std::size_t n) {
    _cBlock::Header(h)->sSize = n * sizeof(T);
  }
  // Makes `h` a block of its own with room for `capacity` elements: a shared block is copied
  // into a new one, a block of its own that is too small grows. False when allocation fails (`h`
  // unchanged).
  static bool Own(CPObjectMemory & h, std::size_t capacity) {
    std::size_t const count = Count(h);
    bool const owned = h && h.lockcnt() == 1;
    if (owned && Capacity(h) >= capacity) {
      return true;
    }
    if (capacity > std::numeric_limits<std::size_t>::max() / 2 / sizeof(T)) {
      return false;
    }
    if (owned) {
      // Nobody else sees the block: it grows where it lies when the heap has room behind it,
      // and otherwise its elements move as bytes, their references with them. Either way,
      // growing a slot touches none of the items it holds.
      return _cBlock::Grow(h, (capacity - Capacity(h)) * sizeof(T));
    }
    CPObjectMemory fresh = _cBlock::Make(capacity * sizeof(T), &table);
    if (!fresh) {
      return false;
    }
    Clone(Items(fresh), Items(h), count * sizeof(T));
    SetCount(fresh, count);
    h = std::move(fresh);
    return true;
  }
};

using _tSlot = _tArray<tagHASHENTRY>;
using _tSlots = _tArray<CPObjectMemory>;

constexpr std::size_t kSlotGrowth = 16;

// Slots of at most this many entries are searched from the front rather than by halving.
constexpr std::size_t kLinearFind = 4;

// Removes the entry (`hash`, `block`) from `slot`, trying `expected` first; releases the slot
// when it becomes empty. False when the entry is no longer there or memory runs out.
bool _removeEntry(CPObjectMemory & slot, std::size_t expected, std::uint64_t hash,
                  CPObjectMemory const & block) {
  std::size_t count = _tSlot::Count(slot);
  tagHASHENTRY * entries = _tSlot::Items(slot);
  std::size_t at = expected;
  if (at >= count || entries[at].hash != hash || entries[at].item != block) {
    for (at = 0; at < count; ++at) {
      if (entries[at].hash == hash && entries[at].item == block) {
        break;
      }
    }
    if (at == count) {
      return false;
    }
  }
  if (!_tSlot::Own(slot, _tSlot::Capacity(slot))) {
    return false;
  }
  entries = _tSlot::Items(slot);
  entries[at].~tagHASHENTRY();
  std::memmove(static_cast<void *>(entries + at), static_cast<void const *>(entries + at + 1),
               (count - at - 1) * sizeof(tagHASHENTRY));
  _tSlot::SetCount(slot, --count);
  if (count == 0) {
    slot.free();
  }
  return true;
}

} // namespace

CBaseHashTable::CBaseHashTable(std::uint32_t uDirectIndexLength)
    : m_mask(0), m_slotCount(0), m_disposeCursor(0) {
  if (!((uDirectIndexLength >= 4) && (uDirectIndexLength <= sizeof(std::size_t) * 8))) {
    Develop::OS::RTABox("Runtime assumption failed",
                        "(uDirectIndexLength >= 4) && (uDirectIndexLength <= sizeof(size_t)*8)");
  }
  // The shift count is taken modulo 64: k = 64 gives one slot, k = 65 two.
  m_slotCount = std::uint64_t{1} << (uDirectIndexLength % 64);
  m_mask = m_slotCount - 1;
}

CBaseHashTable::~CBaseHashTable() = default;

bool CBaseHashTable::isDisposable(CPObjectMemory const &) {
  return false;
}

void CBaseHashTable::tblfinalize(CPObjectMemory const &) {}

void CBaseHashTable::ClearTable() {
  m_slots.free();
}

std::uint64_t CBaseHashTable::GetNItems() const {
  std::uint64_t total = 0;
  CPObjectMemory const * slots = _tSlots::Items(m_slots);
  std::size_t const n = _tSlots::Count(m_slots);
  for (std::size_t s = 0; s < n; ++s) {
    total += _tSlot::Count(slots[s]);
  }
  return total;
}

inline int CBaseHashTable::_compareKey(std::uint64_t hash, CPObjectMemory const & item,
                                       tagHASHENTRY const & entry) {
  if (hash != entry.hash) {
    return hash < entry.hash ? -1 : 1;
  }
  if (!item || !entry.item || item == entry.item) {
    return 0;
  }
  return compare(item, entry.item);
}

std::size_t CBaseHashTable::_locate(tagHASHENTRY const * entries, std::size_t count,
                                    std::uint64_t hash, CPObjectMemory const & item) {
  if (count == 0 || _compareKey(hash, item, entries[0]) <= 0) {
    return 0;
  }
  if (_compareKey(hash, item, entries[count - 1]) > 0) {
    return count;
  }
  // entries[lo] is below the key, entries[hi] at or above it.
  std::size_t lo = 0;
  std::size_t hi = count - 1;
  while (hi - lo > 1) {
    std::size_t const mid = (lo + hi) / 2;
    if (_compareKey(hash, item, entries[mid]) > 0) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return hi;
}

CPObjectMemory CBaseHashTable::AddItem(std::uint64_t hash, CPObjectMemory const & item,
                                       eHashCollision mode) {
  if (!m_slots) {
    if (m_slotCount > std::numeric_limits<std::size_t>::max() / 2 / sizeof(CPObjectMemory)) {
      return CPObjectMemory();
    }
    CPObjectMemory slots = _cBlock::Make(m_slotCount * sizeof(CPObjectMemory), &_tSlots::table);
    if (!slots) {
      return CPObjectMemory();
    }
    _tSlots::Create(_tSlots::Items(slots), m_slotCount * sizeof(CPObjectMemory));
    _tSlots::SetCount(slots, m_slotCount);
    m_slots = std::move(slots);
  }
  std::size_t const index = hash & m_mask;
  CPObjectMemory * slot = _tSlots::Items(m_slots) + index;
  std::size_t const count = _tSlot::Count(*slot);
  tagHASHENTRY * entries = _tSlot::Items(*slot);
  std::size_t const at = _locate(entries, count, hash, item);

  if (at < count && entries[at].hash == hash) {
    bool replace = false;
    switch (mode) {
    case eHashKeepEqual:
      if (_compareKey(hash, item, entries[at]) == 0) {
        return entries[at].item;
      }
      break;
    case eHashReplaceEqual:
      replace = _compareKey(hash, item, entries[at]) == 0;
      break;
    case eHashKeepHash:
      return entries[at].item;
    case eHashReplaceHash:
      replace = true;
      break;
    default:
      if (_compareKey(hash, item, entries[at]) == 0) {
        return CPObjectMemory();
      }
      break;
    }
    if (replace) {
      CPObjectMemory kept(item); // `item` may be the very handle that is replaced
      if (!_tSlots::Own(m_slots, m_slotCount)) {
        return CPObjectMemory();
      }
      slot = _tSlots::Items(m_slots) + index;
      if (!_tSlot::Own(*slot, _tSlot::Capacity(*slot))) {
        return CPObjectMemory();
      }
      _tSlot::Items(*slot)[at].item = kept;
      return kept;
    }
  }

  CPObjectMemory kept(item);
  if (!_tSlots::Own(m_slots, m_slotCount)) {
    return CPObjectMemory();
  }
  slot = _tSlots::Items(m_slots) + index;
  std::size_t capacity = _tSlot::Capacity(*slot);
  if (count == capacity) {
    capacity += kSlotGrowth;
  }
  if (!_tSlot::Own(*slot, capacity)) {
    return CPObjectMemory();
  }
  entries = _tSlot::Items(*slot);
  std::memmove(static_cast<void *>(entries + at + 1), static_cast<void const *>(entries + at),
               (count - at) * sizeof(tagHASHENTRY));
  ::new (entries + at) tagHASHENTRY{hash, kept};
  _tSlot::SetCount(*slot, count + 1);
  return kept;
}

CPObjectMemory CBaseHashTable::FindItem(std::uint64_t hash, CPObjectMemory const & probe) {
  if (!m_slots) {
    return CPObjectMemory();
  }
  CPObjectMemory const & slot = _tSlots::Items(m_slots)[hash & m_mask];
  std::size_t const count = _tSlot::Count(slot);
  tagHASHENTRY const * entries = _tSlot::Items(slot);
  if (count <= kLinearFind) {
    // The first entry at or above the key, as the binary search finds it, with one comparison
    // per entry.
    for (std::size_t i = 0; i < count; ++i) {
      int const order = _compareKey(hash, probe, entries[i]);
      if (order <= 0) {
        return order == 0 ? entries[i].item : CPObjectMemory();
      }
    }
    return CPObjectMemory();
  }
  std::size_t const at = _locate(entries, count, hash, probe);
  if (at < count && _compareKey(hash, probe, entries[at]) == 0) {
    return entries[at].item;
  }
  return CPObjectMemory();
}

bool CBaseHashTable::DeleteItem(std::uint64_t hash, CPObjectMemory const & probe) {
  if (!m_slots) {
    return true;
  }
  std::size_t const index = hash & m_mask;
  CPObjectMemory const & slot = _tSlots::Items(m_slots)[index];
  std::size_t const count = _tSlot::Count(slot);
  tagHASHENTRY const * entries = _tSlot::Items(slot);
  std::size_t const at = _locate(entries, count, hash, probe);
  if (at >= count || _compareKey(hash, probe, entries[at]) != 0) {
    return false;
  }
  CPObjectMemory const stored(entries[at].item);
  tblfinalize(stored);
  if (!m_slots || !_tSlots::Own(m_slots, m_slotCount)) {
    return false;
  }
  return _removeEntry(_tSlots::Items(m_slots)[index], at, hash, stored);
}

bool CBaseHashTable::DeleteIndex(std::uint64_t hash) {
  if (!m_slots) {
    return true;
  }
  std::size_t const index = hash & m_mask;
  CPObjectMemory const slot(_tSlots::Items(m_slots)[index]);
  tagHASHENTRY const * entries = _tSlot::Items(slot);
  std::size_t const count = _tSlot::Count(slot);
  for (std::size_t i = 0; i < count; ++i) {
    tblfinalize(entries[i].item);
  }
  if (m_slots && _tSlots::Own(m_slots, m_slotCount)) {
    _tSlots::Items(m_slots)[index].free();
  }
  return true;
}

bool CBaseHashTable::EnumTableBy(IBaseHashTableEnum * e, std::uint64_t hash, bool byHash) {
  if (!e || !m_slots) {
    return false;
  }
  CPObjectMemory const slots(m_slots);
  CPObjectMemory const * slotItems = _tSlots::Items(slots);
  if (byHash) {
    CPObjectMemory const slot(slotItems[hash & m_mask]);
    tagHASHENTRY const * entries = _tSlot::Items(slot);
    std::size_t const count = _tSlot::Count(slot);
    for (std::size_t i = _locate(entries, count, hash, CPObjectMemory::pnull);
         i < count && entries[i].hash == hash; ++i) {
      if (!e->OnEntry(entries[i].hash, entries[i].item)) {
        return false;
      }
    }
    return true;
  }
  std::size_t const n = _tSlots::Count(slots);
  for (std::size_t s = 0; s < n; ++s) {
    CPObjectMemory const slot(slotItems[s]);
    tagHASHENTRY const * entries = _tSlot::Items(slot);
    std::size_t const count = _tSlot::Count(slot);
    for (std::size_t i = 0; i < count; ++i) {
      if (!e->OnEntry(entries[i].hash, entries[i].item)) {
        return false;
      }
    }
  }
  return true;
}

bool CBaseHashTable::PurgeTable(IBaseHashTableEnum * e) {
  if (!e || !m_slots) {
    return false;
  }
  for (std::size_t s = 0; m_slots && s < _tSlots::Count(m_slots); ++s) {
    // The walk holds the slot as it was; drops are applied to the table's own slot.
    CPObjectMemory const slot(_tSlots::Items(m_slots)[s]);
    tagHASHENTRY const * entries = _tSlot::Items(slot);
    std::size_t const count = _tSlot::Count(slot);
    for (std::size_t i = 0; i < count; ++i) {
      if (!e->OnEntry(entries[i].hash, entries[i].item) && m_slots &&
          _tSlots::Own(m_slots, m_slotCount)) {
        _removeEntry(_tSlots::Items(m_slots)[s], i, entries[i].hash, entries[i].item);
      }
    }
  }
  return true;
}

bool CBaseHashTable::DisposeTable(std::uint32_t timeLimit) {
  if (!m_slots) {
    return true;
  }
  std::uint64_t const start = Core::OS::GetTimeNow();
  for (std::uint64_t visited = 0; visited < m_slotCount && m_slots; ++visited) {
    std::size_t const s = m_disposeCursor;
    CPObjectMemory const slot(_tSlots::Items(m_slots)[s]);
    tagHASHENTRY const * entries = _tSlot::Items(slot);
    for (std::size_t i = _tSlot::Count(slot); i-- > 0;) {
      if (isDisposable(entries[i].item)) {
        tblfinalize(entries[i].item);
        if (m_slots && _tSlots::Own(m_slots, m_slotCount)) {
          _removeEntry(_tSlots::Items(m_slots)[s], i, entries[i].hash, entries[i].item);
        }
      }
    }
    m_disposeCursor = (m_disposeCursor + 1) % m_slotCount;
    if (Core::OS::GetTimeNow() - start > timeLimit) {
      return false;
    }
  }
  return true;
}

} // namespace VORX::Lookup
