// `CXMLDoc`: the entry points of the XML reader (files, buffers, UTF-8 and 16-bit text), the tree
// builder fed by the item reader (xmlreader.h), and the positioned error report.
#include <cstring>
#include <new>
#include <string>

#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/files.h>
#include <vorx/xml.h>

#include "string/pool_batch.h"
#include "xml/xmlnode.h"
#include "xml/xmlreader.h"

namespace VORX::XML {

namespace {

constexpr char16_t const * kErrorTexts[] = {u"Bad file",
                                            u"End of file",
                                            u"Open comment",
                                            u"Open string",
                                            u"Open enclosure",
                                            u"Invalid tag",
                                            u"Bad attribute",
                                            u"Bad escape",
                                            u"External replacement",
                                            u"Open CDATA section",
                                            u"Bad data terminator",
                                            u"Version != 1.0",
                                            u"Unsupported encoding specified",
                                            u"Bad character encoding",
                                            u"Bad termination tag",
                                            u"Mixed content",
                                            u"Illegal character",
                                            u"Root element missing",
                                            u"DOM error"};
static_assert(std::size(kErrorTexts) == 19);

// A stack of one-pointer handles (or plain values): the first `kInline` in the stack itself, so a
// small document needs no heap block for it, the rest on the library's heap; handles move as
// bytes when it grows. What it still holds is released with it.
template <class T> class _CHeapStack {
  static_assert(sizeof(T) == sizeof(void *), "one-pointer handles or values");
  static constexpr std::size_t kInline = 32;

public:
  _CHeapStack() : m_items(Inline()) {}
  _CHeapStack(_CHeapStack const &) = delete;
  _CHeapStack & operator=(_CHeapStack const &) = delete;
  ~_CHeapStack() {
    while (m_size > 0) {
      Pop();
    }
    if (m_items != Inline()) {
      Core::OS::_ffree(m_items);
    }
  }
  // False when the stack cannot grow, unchanged.
  bool Push(T const & item) {
    if (!Room()) {
      return false;
    }
    new (m_items + m_size) T(item);
    ++m_size;
    return true;
  }
  bool Push(T && item) {
    if (!Room()) {
      return false;
    }
    new (m_items + m_size) T(std::move(item));
    ++m_size;
    return true;
  }
  void Pop() { m_items[--m_size].~T(); }
  T & Top() { return m_items[m_size - 1]; }
  T * Items() { return m_items; }
  bool Empty() const { return m_size == 0; }
  std::size_t Size() const { return m_size; }
  // Moves the items from position `from` on into `array`, allocated to exactly their number,
  // without touching their counts. False when the array cannot be allocated, nothing moved.
  template <class A> bool MoveInto(A & array, std::size_t from, Buffers::_CBlockArena & arena) {
    if (!array.Adopt(m_items + from, m_size - from, arena)) {
      return false;
    }
    m_size = from;
    return true;
  }

private:
  T * Inline() { return reinterpret_cast<T *>(m_inline); }
  bool Room() {
    if (m_size < m_capacity) {
      return true;
    }
    std::size_t const grown = m_capacity * 2;
    void * block = nullptr;
    if (m_items == Inline()) {
      block = Core::OS::_falloc(grown * sizeof(T));
      if (block != nullptr) {
        std::memcpy(block, m_inline, m_size * sizeof(T));
      }
    } else {
      block = Core::OS::_frealloc(static_cast<void *>(m_items), grown * sizeof(T));
    }
    if (block == nullptr) {
      return false;
    }
    m_items = static_cast<T *>(block);
    m_capacity = grown;
    return true;
  }

  alignas(T) unsigned char m_inline[kInline * sizeof(T)];
  T * m_items;
  std::size_t m_size = 0;
  std::size_t m_capacity = kInline;
};

// Gives the tree builder the pooled strings of the texts it meets. Short texts (element and
// attribute names, attribute values, short data) are remembered per document, so a repeat costs
// a hash, one comparison and a count increment; a short text met for the first time is not looked
// up at once but waits, with the places it goes to, until `kBatch` of them have gathered (or the
// places run out, or `Resolve` is called), and they are then interned together, their table reads
// overlapping under one taking of the pool's lock. Until then those places hold the null string:
// the tree is complete only after `Resolve`. Longer texts and texts with surrogates go to the pool
// at once, so a text the pool cannot keep whole is refused where it stands.
//
// Belongs to one tree builder and is used by its thread only; it holds one reference per text it
// remembers until it goes. Bounded: texts of at most `kMaxUnits` units, at most `kMaxSlots / 2`
// remembered (later ones are still batched, not remembered); `kBatch` waiting texts and
// `kMaxPlaces` waiting places. A table that cannot grow (no memory) stays as it is: remembering
// never makes a parse fail, only a pool without memory does.
class _CPooledTexts {
public:
  static constexpr std::size_t kMaxUnits = 64;
  static constexpr std::size_t kFirstSlots = 64;
  static constexpr std::size_t kMaxSlots = std::size_t(1) << 14;
  static constexpr std::size_t kBatch = String::kInternBatch;
  static constexpr std::size_t kMaxPlaces = 4 * kBatch;

  // The records of texts new to the pool are carved from `arena`.
  explicit _CPooledTexts(Buffers::_CBlockArena & arena)
      : m_arena(arena), m_slots(reinterpret_cast<tagSLOT *>(m_firstSlots)) {
    for (std::size_t i = 0; i < m_capacity; ++i) {
      m_slots[i].hash = 0;
    }
  }
  _CPooledTexts(_CPooledTexts const &) = delete;
  _CPooledTexts & operator=(_CPooledTexts const &) = delete;
  ~_CPooledTexts() {
    for (std::size_t i = 0; i < m_capacity; ++i) {
      if (m_slots[i].hash != 0) {
        m_slots[i].pooled.~CPPoolString();
      }
    }
    FreeSlots();
  }

  // Makes `*place` the pooled string of `text[0..length)`, now or at the next `Resolve`; `place`
  // must stay where it is until then. `stack` is where the builder's stack of waiting handles
  // lies now (see `SetInStack`). False when the pool gives none (memory runs out, or the pool
  // would not keep every unit: a surrogate pair counts one character there).
  bool Set(qefWChar const * text, std::size_t length, CPPoolString * place, CPPoolString * stack) {
    return Put(text, length, place, 0, stack);
  }
  // As `Set` for the handle at `index` of a stack that lies at `stack` now and may still move:
  // until `Moved` gives the handle its lasting place, it is reached through the stack.
  bool SetInStack(qefWChar const * text, std::size_t length, CPPoolString * stack,
                  std::size_t index) {
    return Put(text, length, stack + index, index + 1, stack);
  }
  // The stack's handles from `from` on now lie at `to`, where they stay until `Resolve`.
  void Moved(std::size_t from, CPPoolString * to) {
    for (std::size_t i = m_places; i > 0 && m_place[i - 1].stacked != 0; --i) {
      tagPLACE & p = m_place[i - 1];
      p.handle = to + (p.stacked - 1 - from);
      p.stacked = 0;
    }
  }
  // Interns the waiting texts and fills their places (those still in the stack through `stack`).
  // False when the pool gives none for one of them; the places then keep the null string.
  bool Resolve(CPPoolString * stack) {
    if (m_pending == 0) {
      return true;
    }
    qefWChar const * texts[kBatch];
    std::uint64_t lengths[kBatch];
    CPPoolString pooled[kBatch];
    for (std::size_t k = 0; k < m_pending; ++k) {
      texts[k] = m_text + k * kMaxUnits;
      lengths[k] = m_length[k];
    }
    String::_InternWideBatch(texts, lengths, m_pending, pooled, &m_arena);
    bool ok = true;
    for (std::size_t k = 0; k < m_pending; ++k) {
      ok = ok && pooled[k].len() == m_length[k];
    }
    if (ok) {
      for (std::size_t i = 0; i < m_places; ++i) {
        tagPLACE const & p = m_place[i];
        *(p.stacked != 0 ? stack + (p.stacked - 1) : p.handle) = pooled[p.text];
      }
    }
    for (std::size_t k = 0; k < m_pending; ++k) {
      if (m_slot[k] != kNoSlot) {
        tagSLOT & slot = m_slots[m_slot[k]];
        if (ok) {
          slot.pooled = std::move(pooled[k]);
        } else {
          slot.hash = 0; // forgotten: the table holds only pooled strings
          slot.pooled.~CPPoolString();
          --m_used;
        }
      }
    }
    m_pending = 0;
    m_places = 0;
    return ok;
  }

private:
  static constexpr std::size_t kNoSlot = static_cast<std::size_t>(-1);

  struct tagSLOT {
    std::uint64_t hash;  // 0 for a free slot
    CPPoolString pooled; // the null string while the text waits
  };
  struct tagPLACE {
    CPPoolString * handle;
    std::size_t stacked; // 1 + the stack index until `Moved`, else 0
    std::size_t text;
  };

  bool Put(qefWChar const * text, std::size_t length, CPPoolString * place, std::size_t stacked,
           CPPoolString * stack) {
    if (length == 0 || length > kMaxUnits || _hasSurrogate(text, length)) {
      *place = String::_InternWide(text, length, &m_arena);
      return place->len() == length;
    }
    std::uint64_t const hash = Hash(text, length);
    std::size_t const mask = m_capacity - 1;
    std::size_t at = hash & mask;
    for (; m_slots[at].hash != 0; at = (at + 1) & mask) {
      tagSLOT const & slot = m_slots[at];
      if (slot.hash != hash) {
        continue;
      }
      if (!slot.pooled.isnull()) {
        if (Same(slot.pooled, text, length)) {
          *place = slot.pooled;
          return true;
        }
        continue;
      }
      std::size_t const k = Waiting(at);
      if (SameWaiting(k, text, length)) {
        if (m_places == kMaxPlaces) {
          // Resolving fills the slot: the text is then found as any other.
          return Resolve(stack) && Put(text, length, place, stacked, stack);
        }
        return Wait(place, stacked, k);
      }
    }
    if ((m_pending == kBatch || m_places == kMaxPlaces) && !Resolve(stack)) {
      return false;
    }
    bool remember = 2 * (m_used + 1) <= m_capacity;
    if (!remember && 4 * m_capacity <= kMaxSlots) {
      // The table grows only while no text waits, so no waiting text's slot moves.
      if (!Resolve(stack)) {
        return false;
      }
      remember = Grow();
      for (at = hash & (m_capacity - 1); remember && m_slots[at].hash != 0;
           at = (at + 1) & (m_capacity - 1)) {
      }
    }
    std::size_t const k = m_pending++;
    qefWChar * const row = m_text + k * kMaxUnits;
    for (std::size_t i = 0; i < length; ++i) {
      row[i] = text[i];
    }
    m_length[k] = length;
    m_slot[k] = kNoSlot;
    if (remember) {
      m_slots[at].hash = hash;
      ::new (&m_slots[at].pooled) CPPoolString();
      m_slot[k] = at;
      ++m_used;
    }
    return Wait(place, stacked, k);
  }
  // The number of the waiting text whose slot is `at`.
  std::size_t Waiting(std::size_t at) const {
    std::size_t k = 0;
    while (m_slot[k] != at) {
      ++k;
    }
    return k;
  }
  // Adds a place for waiting text `text`; the caller has made room.
  bool Wait(CPPoolString * place, std::size_t stacked, std::size_t text) {
    m_place[m_places++] = tagPLACE{place, stacked, text};
    return true;
  }
  static bool _hasSurrogate(qefWChar const * text, std::size_t length) {
    unsigned found = 0;
    for (std::size_t i = 0; i < length; ++i) {
      found |= unsigned(text[i] - 0xD800u) < 0x800u;
    }
    return found != 0;
  }
  static bool Same(CPPoolString const & pooled, qefWChar const * text, std::size_t length) {
    return pooled.len() == length &&
           std::memcmp(static_cast<qefWChar const *>(pooled), text, length * sizeof(qefWChar)) == 0;
  }
  bool SameWaiting(std::size_t k, qefWChar const * text, std::size_t length) const {
    return m_length[k] == length &&
           std::memcmp(m_text + k * kMaxUnits, text, length * sizeof(qefWChar)) == 0;
  }
  // Four units at a time, never 0.
  static std::uint64_t Hash(qefWChar const * text, std::size_t length) {
    std::uint64_t h = 0x9E3779B97F4A7C15u ^ length;
    std::size_t i = 0;
    for (; i + 4 <= length; i += 4) {
      std::uint64_t word;
      std::memcpy(&word, text + i, sizeof word);
      h = (h ^ word) * 0xBF58476D1CE4E5B9u;
      h ^= h >> 31;
    }
    std::uint64_t tail = 0;
    for (unsigned shift = 0; i < length; ++i, shift += 16) {
      tail |= std::uint64_t(text[i]) << shift;
    }
    h = (h ^ tail) * 0x94D049BB133111EBu;
    h ^= h >> 29;
    return h | 1;
  }
  // Makes the table four times as large (fewer large blocks per document), moving the handles
  // as bytes; no text may be waiting. False when it is at its bound or memory runs out, the
  // table unchanged.
  bool Grow() {
    std::size_t const capacity = 4 * m_capacity;
    if (capacity > kMaxSlots) {
      return false;
    }
    auto * const slots = static_cast<tagSLOT *>(Core::OS::_falloc(capacity * sizeof(tagSLOT)));
    if (slots == nullptr) {
      return false;
    }
    for (std::size_t i = 0; i < capacity; ++i) {
      slots[i].hash = 0;
    }

    for (std::size_t i = 0; i < m_capacity; ++i) {
      if (m_slots[i].hash == 0) {
        continue;
      }
      std::size_t at = m_slots[i].hash & (capacity - 1);
      while (slots[at].hash != 0) {
        at = (at + 1) & (capacity - 1);
      }
      std::memcpy(static_cast<void *>(&slots[at]), static_cast<void const *>(&m_slots[i]),
                  sizeof(tagSLOT));
    }
    FreeSlots();
    m_slots = slots;
    m_capacity = capacity;
    return true;
  }
  void FreeSlots() {
    if (m_slots != reinterpret_cast<tagSLOT *>(m_firstSlots)) {
      Core::OS::_ffree(m_slots);
    }
  }

  Buffers::_CBlockArena & m_arena;
  // The first table lies here, so a small document needs no heap block for it.
  alignas(tagSLOT) unsigned char m_firstSlots[kFirstSlots * sizeof(tagSLOT)];
  tagSLOT * m_slots;
  std::size_t m_capacity = kFirstSlots;
  std::size_t m_used = 0;
  // The waiting texts, each in its own row of `kMaxUnits` units, with their slots (or kNoSlot).
  qefWChar m_text[kBatch * kMaxUnits];
  std::size_t m_length[kBatch];
  std::size_t m_slot[kBatch];
  std::size_t m_pending = 0;
  tagPLACE m_place[kMaxPlaces];
  std::size_t m_places = 0;
};

// Builds `CPXMLObject` nodes from the reader's items. An attribute with an empty value is not
// kept: a node holds no attribute without a value. The attributes of the element being read and
// the children of the open elements wait in stacks until their number is known; each array is
// then allocated once, to its exact size, and the handles are moved in.
class _CXMLTreeBuilder final : public _IXMLItemSink {
public:
  _CXMLTreeBuilder() = default;
  _CXMLTreeBuilder(_CXMLTreeBuilder const &) = delete;
  _CXMLTreeBuilder & operator=(_CXMLTreeBuilder const &) = delete;
  ~_CXMLTreeBuilder() = default;

  bool StartElement(qefWChar const * name, std::size_t length) override {
    CPXMLObject node;
    // Created with the permanent empty name, which is not counted; the record stays where it is
    // until its pooled name arrives.
    if (!TakeAttributes() || !_CXMLNodeAccess::Create(node, CPPoolString::pempty, m_arena) ||
        !m_open.Push(_CXMLNodeAccess::Record(node))) {
      return false;
    }
    // The node waits among its parent's children (the root is kept aside); its own children
    // start after it.
    bool const placed =
        m_open.Size() == 1 ? (root = std::move(node), true) : m_children.Push(std::move(node));
    if (!placed || !m_firstChild.Push(m_children.Size())) {
      m_open.Pop();
      return false;
    }
    return m_texts.Set(name, length, &m_open.Top()->name, m_attributes.Items());
  }
  // Attributes and data go straight into the node record: the reader has checked the names
  // and made the attributes unique, and the text is kept exactly as read.
  bool Attribute(qefWChar const * name, std::size_t nameLength, qefWChar const * value,
                 std::size_t valueLength) override {
    if (valueLength == 0) {
      return true;
    }
    std::size_t const at = m_attributes.Size();
    if (!m_attributes.Push(CPPoolString()) || !m_attributes.Push(CPPoolString())) {
      return false;
    }
    return m_texts.SetInStack(name, nameLength, m_attributes.Items(), at) &&
           m_texts.SetInStack(value, valueLength, m_attributes.Items(), at + 1);
  }
  bool Data(qefWChar const * text, std::size_t length) override {
    if (!TakeAttributes()) {
      return false;
    }
    tagXMLNODE * const node = m_open.Top();
    node->state |= kXMLStateData;
    return m_texts.Set(text, length, &node->data, m_attributes.Items());
  }
  bool EndElement() override {
    if (!TakeAttributes()) {
      return false;
    }
    std::size_t const first = m_firstChild.Top();
    if (m_children.Size() > first) {
      tagXMLNODE * const node = m_open.Top();
      if (!m_children.MoveInto(node->elements, first, m_arena)) {
        return false;
      }
      node->state = node->state == kXMLStateData ? kXMLStateMixed : kXMLStateElements;
    }
    m_firstChild.Pop();
    m_open.Pop();
    return true;
  }

  // Completes the tree once the document has been read: the texts still waiting get their pooled
  // strings. False when the pool gives none.
  bool Finish() { return m_texts.Resolve(m_attributes.Items()); }

  CPXMLObject root;

private:
  // Hands the waiting attributes to the element being read.
  bool TakeAttributes() {
    if (m_attributes.Empty()) {
      return true;
    }
    _CXMLArray<CPPoolString> & array = m_open.Top()->attributes;
    if (!m_attributes.MoveInto(array, 0, m_arena)) {
      return false;
    }
    m_texts.Moved(0, array.items());
    return true;
  }

  // Carves the nodes and arrays, so that a document's tree lies in few pages, in document order.
  Buffers::_CBlockArena m_arena;
  // The records of the open elements, the root first; each is held by `root` or `m_children`.
  _CHeapStack<tagXMLNODE *> m_open;
  _CHeapStack<std::size_t> m_firstChild; // per open element: where its children start
  _CHeapStack<CPXMLObject> m_children;   // the children of the open elements, in order
  _CHeapStack<CPPoolString> m_attributes;
  // Carves the records of the texts new to the pool, in pages of their own: they stay as long as
  // the pool keeps them, and the tree's pages need not wait for them.
  Buffers::_CBlockArena m_textArena;
  _CPooledTexts m_texts{m_textArena};
};

// A bounded text being assembled for the report.
class _CReportText {
public:
  static constexpr std::size_t kCapacity = 320;
  void Add(char16_t const * text) {
    while (*text != 0) {
      AddUnit(*text++);
    }
  }
  void AddUnit(qefWChar c) {
    if (m_size + 1 < kCapacity) {
      m_text[m_size++] = c;
      m_text[m_size] = 0;
    }
  }
  void AddNumber(std::uint32_t value) {
    char16_t digits[12];
    std::size_t n = 0;
    do {
      digits[n++] = char16_t(u'0' + value % 10);
      value /= 10;
    } while (value != 0);
    while (n > 0) {
      AddUnit(digits[--n]);
    }
  }
  std::size_t Size() const { return m_size; }
  void Cut(std::size_t size) {
    m_size = size;
    m_text[m_size] = 0;
  }
  qefWChar const * Text() const { return m_text; }

private:
  qefWChar m_text[kCapacity] = {};
  std::size_t m_size = 0;
};

constexpr std::size_t kContext = 60;

// "[text, Line n, Offset n]", then the 60 characters before the position ("..." first when more
// precede them), the marker "[[*]]" and up to 60 characters after it.
void _buildReport(qefWChar const * text, std::size_t length, std::uint32_t code,
                  std::uint64_t position, _CReportText & report) {
  if (position > length) {
    position = length;
  }
  std::uint32_t line = 1;
  for (std::size_t i = 0; i < position; ++i) {
    line += text[i] == 0x000A;
  }
  report.Add(u"[");
  report.Add(code < std::size(kErrorTexts) ? kErrorTexts[code] : u"");
  report.Add(u", Line ");
  report.AddNumber(line);
  report.Add(u", Offset ");
  report.AddNumber(std::uint32_t(position));
  report.Add(u"]");
  if (report.Size() > 128) {
    report.Cut(128);
  }
  std::size_t start = 0;
  if (position > kContext) {
    report.Add(u"...");
    start = std::size_t(position) - kContext;
    if (text[start] >= 0xDC00 && text[start] <= 0xDFFF) {
      ++start;
    }
  }
  for (std::size_t i = start; i < position; ++i) {
    report.AddUnit(text[i]);
  }
  report.Add(u"[[*]]");
  std::size_t end =
      std::size_t(position) + kContext < length ? std::size_t(position) + kContext : length;
  if (end > position && end < length && text[end - 1] >= 0xD800 && text[end - 1] <= 0xDBFF) {
    --end;
  }
  for (std::size_t i = std::size_t(position); i < end; ++i) {
    report.AddUnit(text[i]);
  }
}

// UTF-8 as 16-bit units (at most two per byte), counted as the reader counts positions: bytes
// that do not decode give U+FFFD per lead byte (two units for a four-byte lead), continuation
// bytes nothing.
qefWChar * _wideForReport(unsigned char const * text, std::size_t length, std::size_t & units) {
  auto * wide = static_cast<qefWChar *>(Core::OS::_falloc((2 * length + 1) * sizeof(qefWChar)));
  units = 0;
  if (wide == nullptr) {
    return nullptr;
  }
  for (std::size_t i = 0; i < length; ++i) {
    unsigned char const b = text[i];
    if ((b & 0xC0) == 0x80) {
      continue;
    }
    if (b < 0x80) {
      wide[units++] = b;
      continue;
    }
    std::size_t const n = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : 2;
    std::uint32_t c = b & (n == 2 ? 0x1F : n == 3 ? 0x0F : 0x07);
    bool ok = i + n <= length && b >= 0xC2 && b < 0xF5;
    for (std::size_t k = 1; ok && k < n; ++k) {
      ok = (text[i + k] & 0xC0) == 0x80;
      c = (c << 6) | (text[i + k] & 0x3F);
    }
    if (n == 4) {
      ok = ok && c >= 0x10000 && c <= 0x10FFFF;
      wide[units++] = ok ? qefWChar(0xD800 + ((c - 0x10000) >> 10)) : qefWChar(0xFFFD);
      wide[units++] = ok ? qefWChar(0xDC00 + ((c - 0x10000) & 0x3FF)) : qefWChar(0xFFFD);
    } else {
      wide[units++] = ok ? qefWChar(c) : qefWChar(0xFFFD);
    }
  }
  wide[units] = 0;
  return wide;
}

void _swapUnits(std::uint8_t * bytes) {
  for (;; bytes += 2) {
    std::swap(bytes[0], bytes[1]);
    if (bytes[0] == 0 && bytes[1] == 0) {
      return;
    }
  }
}

constexpr bool _isBlankByte(std::uint8_t b) {
  return b == 0x9 || b == 0xA || b == 0xD || b == 0x20;
}

enum class eTextForm { Refuse, UTF8, Units, SwapUnits };

// The text form of a zero-terminated block (at least two bytes): the choice of a file, with the
// two further refusals of a buffer when `buffer` is set.
eTextForm _detect(std::uint8_t const * b, bool buffer) {
  std::uint16_t first;
  std::uint16_t second;
  std::memcpy(&first, b, 2);
  std::memcpy(&second, b + 2, 2);
  if (buffer && b[0] == 0 && b[1] == 0) {
    return eTextForm::Refuse;
  }
  if (b[0] == 0 && (b[1] == '<' || _isBlankByte(b[1]))) {
    return eTextForm::SwapUnits;
  }
  if (buffer && b[0] == 0) {
    return eTextForm::Refuse;
  }
  if (first == 0xFEFF) {
    return second == 0 ? eTextForm::Refuse : eTextForm::Units;
  }
  if (first == 0xFFFE) {
    return eTextForm::SwapUnits;
  }
  if (b[1] == 0 && (b[0] == '<' || _isBlankByte(b[0]))) {
    return eTextForm::Units;
  }
  return eTextForm::UTF8;
}

// The number of 16-bit units of a text (a UTF-8 character above U+FFFF takes two).
std::uint64_t _unitCount(std::uint16_t const *, std::size_t length) {
  return length;
}
std::uint64_t _unitCount(std::uint8_t const * text, std::size_t length) {
  std::uint64_t units = 0;
  for (std::size_t i = 0; i < length; ++i) {
    units += (text[i] & 0xC0) != 0x80;
    units += text[i] >= 0xF0;
  }
  return units;
}

// Reads `text` into a tree: on success `root` takes it, otherwise `code` and `position` say why.
template <class Unit>
bool _readTree(Unit const * text, std::size_t length, CPXMLObject & root, std::uint32_t & code,
               std::uint64_t & position) {
  _CXMLTreeBuilder builder;
  tagXMLREADRESULT const result = _XMLReadDocument(text, length, builder);
  if (result.code == kXMLNoError && builder.Finish()) {
    root = builder.root;
    return true;
  }
  code = result.code == kXMLNoError ? std::uint32_t(kXMLErrDOM) : result.code;
  position = result.code == kXMLNoError ? _unitCount(text, length) : result.position;
  return false;
}

} // namespace

CXMLDoc::CXMLDoc() = default;
CXMLDoc::CXMLDoc(CXMLDoc const &) = default;
CXMLDoc & CXMLDoc::operator=(CXMLDoc const &) = default;
CXMLDoc::~CXMLDoc() = default;

void CXMLDoc::Close() {
  m_errorText = Buffers::CPPlainMemory();
  m_errorPosition = 0;
  m_errorCode = kXMLNoError;
  m_root = CPXMLObject();
}

CPXMLObject & CXMLDoc::GetRootElement() {
  return m_root;
}

std::uint32_t CXMLDoc::GetErrorInfo(std::uint64_t * position, String::CQEFWChar * text) {
  if (position != nullptr) {
    *position = m_errorPosition;
  }
  if (text != nullptr) {
    if (m_errorText.GetMemorySize() != 0) {
      *text = static_cast<qefWChar const *>(static_cast<void const *>(m_errorText));
    } else {
      *text = m_errorCode == kXMLErrBadFile ? u"Bad file or bad encoding" : u"";
    }
  }
  return m_errorCode;
}

bool CXMLDoc::_setErrorText(qefWChar const * text) {
  std::size_t length = 0;
  while (text[length] != 0) {
    ++length;
  }
  Buffers::CPPlainMemory block;
  if (!block.Alloc((length + 1) * sizeof(qefWChar))) {
    return false;
  }
  std::memcpy(static_cast<void *>(block), text, (length + 1) * sizeof(qefWChar));
  m_errorText = block;
  return true;
}

void CXMLDoc::_report(qefWChar const * wide, std::size_t length) {
  _CReportText report;
  if (wide != nullptr) {
    _buildReport(wide, length, m_errorCode, m_errorPosition, report);
  }
  _setErrorText(report.Text());
  Develop::_logWrite(qefDL_Warning, u"VORX", "xmldoc", __LINE__, u"XML parsing error %ls",
                     report.Text());
}

bool CXMLDoc::OpenDocText(unsigned char const * text) {
  Close();
  if (text == nullptr || text[0] == 0) {
    m_errorCode = kXMLErrBadFile;
    return false;
  }
  std::size_t const length = std::strlen(reinterpret_cast<char const *>(text));
  std::uint32_t first = 0;
  unsigned char const * probe = text;
  if (!String::utf8_qefW32(&first, probe)) {
    m_errorCode = kXMLErrBadEncoding;
    _setErrorText(u"Offset: 0, Illegal UTF8 character");
    Develop::_logWrite(qefDL_Warning, u"VORX", "xmldoc", __LINE__, u"XML parsing error %ls",
                       u"Offset: 0, Illegal UTF8 character");
    return false;
  }
  if (_readTree(text, length, m_root, m_errorCode, m_errorPosition)) {
    return true;
  }
  std::size_t units = 0;
  qefWChar * const wide = _wideForReport(text, length, units);
  _report(wide, units);
  Core::OS::_ffree(wide);
  return false;
}

bool CXMLDoc::OpenDocText(std::uint16_t const * text) {
  Close();
  if (text == nullptr || text[0] == 0) {
    m_errorCode = kXMLErrBadFile;
    return false;
  }
  std::size_t length = 0;
  while (text[length] != 0) {
    ++length;
  }
  if (_readTree(text, length, m_root, m_errorCode, m_errorPosition)) {
    return true;
  }
  _report(reinterpret_cast<qefWChar const *>(text), length);
  return false;
}

bool CXMLDoc::OpenDocText(qefWChar const * text) {
  return OpenDocText(reinterpret_cast<std::uint16_t const *>(text));
}

bool CXMLDoc::_openForm(void * data, bool buffer, eXMLEncoding encoding) {
  auto * const bytes = static_cast<std::uint8_t *>(data);
  eTextForm form;
  switch (encoding) {
  case eXMLEncodingUTF8:
    form = eTextForm::UTF8;
    break;
  case eXMLEncodingUTF16:
  case eXMLEncodingRaw16:
    form = eTextForm::Units;
    break;
  default:
    form = _detect(bytes, buffer);
    break;
  }
  switch (form) {
  case eTextForm::Refuse:
    return false;
  case eTextForm::SwapUnits:
    _swapUnits(bytes);
    return OpenDocText(static_cast<std::uint16_t const *>(data));
  case eTextForm::Units:
    return OpenDocText(static_cast<std::uint16_t const *>(data));
  case eTextForm::UTF8:
  default:
    return OpenDocText(static_cast<unsigned char const *>(data));
  }
}

bool CXMLDoc::OpenDocText(void * data, std::uint64_t size) {
  m_errorCode = kXMLErrBadFile;
  if (data == nullptr || size < 4) {
    return false;
  }
  return _openForm(data, true, eXMLEncodingAuto);
}

bool CXMLDoc::OpenDocFile(qefWChar const * path, eXMLEncoding encoding) {
  Close();
  m_errorCode = kXMLErrBadFile;
  if (path == nullptr || !Files::OS::_TestFileExists(path)) {
    return false;
  }
  Files::OS::CFile file;
  if (!file.Open(path, Files::OS::eFileAccessShareRead, Files::OS::eOpenFileExisting)) {
    return false;
  }
  std::uint64_t const size = file.GetSize();
  if (size >= (std::uint64_t(1) << 32)) {
    return false;
  }
  auto * const block = static_cast<std::uint8_t *>(Core::OS::_falloc(std::size_t(size) + 4));
  if (block == nullptr) {
    return false;
  }
  std::uint32_t done = 0;
  bool const read = size == 0 || (file.Read(block, std::uint32_t(size), &done) && done == size);
  file.Close();
  block[size] = 0;
  block[size + 1] = 0;
  block[size + 2] = 0;
  block[size + 3] = 0;
  bool result = false;
  m_errorCode = kXMLErrBadFile;
  if (read && size >= 2) {
    result = _openForm(block, false, encoding);
  }
  Core::OS::_ffree(block);
  return result;
}

} // namespace VORX::XML
