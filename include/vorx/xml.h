// VORX::XML: the element tree. `CPXMLObject` is a handle to an element node (name, attributes,
// child elements, character data, all pooled strings); `xmlret` is the result of the operations
// that place a child; `CXMLValue` is the text form of a typed value (numbers, rationals,
// timecodes, identifiers, binary, flags through `tagXMLFLAGMAP`) that the writers take.
//
// Map of this header:
//   value text forms   `tagXMLFLAGMAP`, `CXMLValue`
//   child results      `xmlret`
//   element nodes      `CPXMLObject`: identity and state, children, data, attributes, search,
//                      typed readers (`GetDataX`, `FindElementX`, `FindAttributeX`)
//
// Names: every name given to `SetName`, `Rename`, `AddTag`, `SetTag`, `AddAttribute`,
// `DeleteAttribute` and every step of a search path must be an XML 1.0 Name (the character
// classes of XML 1.0, Second Edition, Appendix B; each 16-bit unit is one character).
// Comparisons of names, attribute names, values and data are identities of pooled strings.
#pragma once

#include <cstdarg>
#include <cstdint>

#include <vorx/base.h>
#include <vorx/buffers.h>
#include <vorx/math.h>
#include <vorx/qef.h>
#include <vorx/string.h>
#include <vorx/timecode.h>

namespace VORX::XML {

using String::CPPoolString;

// One entry of a flag-name table: a flag value and its name. Entries with an empty name are
// ignored.
struct tagXMLFLAGMAP {
  std::uint32_t value;
  CPPoolString name;
};
typedef tagXMLFLAGMAP XMLFLAGMAP;

// The text of one typed value, as the tree stores it: the argument of every writer that takes a
// value (`Add`, `Set`, `AddTag`, `SetTag`, `AddAttribute`, `SetAttribute`). Built implicitly from
// the value, so `node.Add(1.5)` writes a double. A text that cannot be produced (memory, a
// formatting error) leaves the value failed, and the writer given it answers false (or -1).
// Forms: text as is; `std::uint64_t` "%I64x" (lower-case hexadecimal); `double` its 64 bits in
// hexadecimal, then "(%.4g)" in the current locale; `CRational` "%d/%d"; `bool` "true" or
// "false"; `timecode` its `SZUTC` text; identifiers their `cqefuid` text; binary two upper-case
// hexadecimal digits per byte, low nibble first (0x1F is "F1"); flags the names of the set
// flags in map order joined by the separator, then any bits left as "0x%08x".
// Note: an `int` literal is ambiguous between the number forms: write `std::uint64_t{5}`; a
// narrow literal ("abc") does not compile, rather than being written as "true".
class VORX_API CXMLValue {
public:
  CXMLValue(CPPoolString const & text) : m_text(text), m_failed(false) {}
  CXMLValue(qefWChar const * text);
  CXMLValue(_qefUID const & id);
  CXMLValue(QEF::cqefuid const & id);
  CXMLValue(TimeCode::timecode const & value);
  CXMLValue(std::uint64_t value);
  CXMLValue(Math::CRational const & value);
  CXMLValue(double value);
  CXMLValue(bool value);
  // Other pointers would turn into `bool`: narrow text must become a `CPPoolString` first.
  template <class T> CXMLValue(T const * pointer) = delete;
  // `length` bytes from `bytes`; an empty buffer gives the empty text.
  CXMLValue(std::uint8_t const * bytes, std::size_t length);
  // The set bits of `value` named through `map[0..count)`, joined by `separator`.
  CXMLValue(std::uint32_t value, tagXMLFLAGMAP const * map, std::size_t count, qefWChar separator);

  // The text; the null string when the value failed.
  CPPoolString const & text() const { return m_text; }
  bool failed() const { return m_failed; }

private:
  void _set(qefWChar const * text);

  CPPoolString m_text;
  bool m_failed;
};

// Result of the operations that add or place a child: an unsigned 64-bit value, all ones for
// "none". A plain value.
class xmlret {
public:
  xmlret() : m_value(~std::uint64_t{0}) {}
  xmlret(std::uint64_t value) : m_value(value) {}
  xmlret & operator=(std::uint64_t value) {
    m_value = value;
    return *this;
  }
  // True unless the value is all ones.
  explicit operator bool() const { return m_value != ~std::uint64_t{0}; }
  std::uint64_t sIndex() const { return m_value; }

private:
  std::uint64_t m_value;
};

// Output encodings of `CPXMLObject::Write` (0 is taken as UTF-8; any other value is refused):
// UTF-8, UTF-16 (16-bit units in host order, pairs checked and collapsed as the writers say), or
// the 16-bit units copied as they stand. `CXMLDoc::OpenDocFile` takes the same values to force
// a text form (0 detects it).
enum eXMLEncoding : std::uint32_t {
  eXMLEncodingAuto = 0,
  eXMLEncodingUTF8 = 1,
  eXMLEncodingUTF16 = 2,
  eXMLEncodingRaw16 = 3,
};

struct tagXMLNODE;
class _CXMLNodeAccess;

// Handle to an XML element node in a reference-counted block. Copies share the node: an edit
// through one handle is seen through all, a child added to a parent is the handle's own node,
// and the last handle (or parent) to go frees the node and, with it, its subtree (iteratively,
// so trees of any depth are freed). A default handle is null. Nodes have no lock: handles may be
// copied and dropped on any thread, but a tree is changed by one thread at a time and not read
// meanwhile. No operation throws: null or unnamed nodes, invalid names and indexes out of range
// answer false, -1, a null pointer, a null handle or the caller's default, as each member says.
// Note: a node added below itself or one of its descendants makes a cycle that is never freed;
// adding a node to itself is refused.
class VORX_API CPXMLObject : public Buffers::CPObjectMemory {
public:
  CPXMLObject() noexcept = default;
  CPXMLObject(CPXMLObject const &) noexcept = default;
  CPXMLObject(CPXMLObject &&) noexcept = default;
  CPXMLObject & operator=(CPXMLObject const &) noexcept = default;
  CPXMLObject & operator=(CPXMLObject &&) noexcept = default;
  ~CPXMLObject() = default;

  // --- Identity and state ---------------------------------------------------------------------

  // Makes this handle refer to a new node with this name and nothing else; other handles keep
  // the old node. False (handle unchanged) for an invalid name or when memory runs out.
  bool SetName(CPPoolString const & name);
  // Renames the node in place, keeping its content. False for an invalid name or a null handle.
  bool Rename(CPPoolString const & name);
  // Drops attributes, children and data and sets the state to 0; keeps the name.
  void Reset();
  // True when the node exists and has a name, attributes, children or data.
  explicit operator bool() const;
  // True for a null handle or a node without name, attributes, children and data.
  bool IsDefault() const;
  // True when the node has a name and nothing else.
  bool IsNamedDefault() const;
  // The content state: 0 nothing, 1 children only, 2 data only, 3 both, 4 a processing
  // instruction (made by the parser only); 0 for a null handle.
  std::uint32_t GetState() const;
  // The name; the empty string for a null handle.
  CPPoolString const & GetName() const;
  // The data of a named node; else the empty string.
  CPPoolString const & GetData() const;
  // Note: always the empty string, whatever the node holds; on purpose.
  CPPoolString const & GetContent() const;
  // Position of the name in the `separator`-cut `list`; all ones when absent or unnamed.
  std::uint64_t GetNameIndex(qefWChar const * list, qefWChar separator) const;
  bool IsName(CPPoolString const & name) const;
  bool IsData(CPPoolString const & data) const;
  bool IsNameData(CPPoolString const & name, CPPoolString const & data) const;
  // The name is `name` and an attribute `attribute` exists.
  bool IsNameAttrib(CPPoolString const & name, CPPoolString const & attribute) const;
  // The name is `name` and the attribute `attribute` has the value `value`.
  bool IsNameAttribVal(CPPoolString const & name, CPPoolString const & attribute,
                       CPPoolString const & value) const;
  // True when both handles refer to the same node (or are both null).
  bool operator==(CPXMLObject const & other) const { return m_pMH == other.m_pMH; }
  bool operator!=(CPXMLObject const & other) const { return m_pMH != other.m_pMH; }

  // --- Children -------------------------------------------------------------------------------

  // Appends `child` (shared). Note: answers 1 when appended and 0 when the array could not
  // grow, not the index; -1 for a null or default child, this node itself, or a null or
  // unnamed node. The state gains the children bit even when 0 is answered.
  xmlret Add(CPXMLObject const & child);
  // As `Add`, but a null or default child is accepted and nothing is added (true); false when
  // this node is null or unnamed, or the child could not be added.
  bool CAdd(CPXMLObject const & child);
  // Inserts `child` at `index` (an index beyond the children, all ones included, appends) and
  // answers `index`; only on a named node without data, so insertion never mixes content.
  // -1 when refused (also for a null or default child) or when the array cannot grow.
  xmlret Insert(CPXMLObject const & child, std::uint64_t index);
  // Replaces the slot `old` points at when it lies in the element array, else the first slot
  // holding the node `*old` holds; answers the slot's index, -1 when none matches.
  // Note: answers 0, not -1, on a null or unnamed node; on purpose.
  xmlret Replace(CPXMLObject const & child, CPXMLObject const * old);
  // Replaces the first slot holding the node `old` holds; its index, or -1.
  xmlret Replace(CPXMLObject const & child, CPXMLObject const & old);
  // Replaces the slot at `index`; false on a null or unnamed node, for a null or default
  // `child`, or when `index` is not below the number of children.
  bool Replace(CPXMLObject const & child, std::uint64_t index);
  // Removes the child at `index`. False on a null or unnamed node, without children, or out of
  // range. Note: the state is kept, even when the last child goes (see `DeleteElements`).
  bool Delete(std::uint64_t index);
  // Removes the slot `child` points at when it lies in the element array, else the first slot
  // holding the same node; false when none matches. The state is kept.
  bool Delete(CPXMLObject const * child);
  // Removes the first slot holding the node `child` holds; false when none does.
  bool Delete(CPXMLObject const & child);
  // Releases all children; the state becomes 2 with data, else 0. False on a null or unnamed
  // node; true at once when there is no element array.
  bool DeleteElements();
  // Empties the data; the state becomes 1 with an element array, else 0. False on a null or
  // unnamed node; true at once when there is no data.
  bool DeleteData();
  // `DeleteData`, then `DeleteElements` when that succeeded.
  bool DeleteContent();
  // The first child handle and, in `count`, the number of children; null and 0 on a null or
  // unnamed node or without children. Valid until the children change.
  CPXMLObject * GetElements(std::uint64_t & count) const;
  // Children named `name`; 0 for an empty name (it never counts all children).
  std::uint64_t GetNElements(CPPoolString const & name) const;
  // A new handle to the child at `index`; null when out of range or on a null or unnamed node.
  CPXMLObject item(std::uint64_t index) const;
  CPXMLObject item(xmlret const & index) const { return item(index.sIndex()); }

  // --- Data and valued children ---------------------------------------------------------------

  // Gives a named node its data. False on a null or unnamed node, when the data is already
  // set, or when the value failed; an empty text is accepted and changes nothing (true).
  bool Add(CXMLValue const & value);
  bool Add(std::uint8_t const * bytes, std::size_t length) { return Add(CXMLValue(bytes, length)); }
  bool Add(std::uint32_t flags, tagXMLFLAGMAP const * map, std::size_t count, qefWChar sep) {
    return Add(CXMLValue(flags, map, count, sep));
  }
  // `DeleteData`, `DeleteElements`, then `Add(value)`; false at the first step that fails.
  bool Set(CXMLValue const & value);
  bool Set(std::uint8_t const * bytes, std::size_t length) { return Set(CXMLValue(bytes, length)); }
  bool Set(std::uint32_t flags, tagXMLFLAGMAP const * map, std::size_t count, qefWChar sep) {
    return Set(CXMLValue(flags, map, count, sep));
  }
  // `DeleteData`, `DeleteElements`, then `Add(child)`; true when that answered other than -1.
  bool Set(CPXMLObject const & child);
  // Formats into 2048 units (terminator included), then `Add` of the text. False on a null or
  // unnamed node, with data, for a null format, or when the text does not fit.
  bool printf(qefWChar const * format, ...);
  // Formats as `printf`, then `Set` of the text.
  bool Sprintf(qefWChar const * format, ...);
  // Appends a new child named `name`, with data from `value` in the second form; the result of
  // `Add(child)`, -1 for an invalid name or a failed value.
  xmlret AddTag(CPPoolString const & name);
  xmlret AddTag(CPPoolString const & name, CXMLValue const & value);
  xmlret AddTag(CPPoolString const & name, std::uint8_t const * bytes, std::size_t length) {
    return AddTag(name, CXMLValue(bytes, length));
  }
  xmlret AddTag(CPPoolString const & name, std::uint32_t flags, tagXMLFLAGMAP const * map,
                std::size_t count, qefWChar sep) {
    return AddTag(name, CXMLValue(flags, map, count, sep));
  }
  // Builds the child as `AddTag` does and makes it the only content of this node. False for an
  // invalid name, a failed value, or a null or unnamed node.
  bool SetTag(CPPoolString const & name, CXMLValue const & value);
  bool SetTag(CPPoolString const & name, std::uint8_t const * bytes, std::size_t length) {
    return SetTag(name, CXMLValue(bytes, length));
  }
  bool SetTag(CPPoolString const & name, std::uint32_t flags, tagXMLFLAGMAP const * map,
              std::size_t count, qefWChar sep) {
    return SetTag(name, CXMLValue(flags, map, count, sep));
  }
  // Format into 2048 units, then `AddTag(name, text)` / `SetTag(name, text)`.
  xmlret printfTag(CPPoolString const & name, qefWChar const * format, ...);
  bool SprintfTag(CPPoolString const & name, qefWChar const * format, ...);

  // --- Attributes -----------------------------------------------------------------------------

  // Appends the pair. False for an invalid name, a null or unnamed node, an empty or failed
  // value, or when the node has an attribute of that name.
  bool AddAttribute(CPPoolString const & name, CXMLValue const & value);
  bool AddAttribute(CPPoolString const & name, std::uint8_t const * bytes, std::size_t length) {
    return AddAttribute(name, CXMLValue(bytes, length));
  }
  bool AddAttribute(CPPoolString const & name, std::uint32_t flags, tagXMLFLAGMAP const * map,
                    std::size_t count, qefWChar sep) {
    return AddAttribute(name, CXMLValue(flags, map, count, sep));
  }
  // Removes the attribute, then `AddAttribute`: the pair moves to the end. Note: an empty value
  // removes the attribute and answers false.
  bool SetAttribute(CPPoolString const & name, CXMLValue const & value);
  bool SetAttribute(CPPoolString const & name, std::uint8_t const * bytes, std::size_t length) {
    return SetAttribute(name, CXMLValue(bytes, length));
  }
  bool SetAttribute(CPPoolString const & name, std::uint32_t flags, tagXMLFLAGMAP const * map,
                    std::size_t count, qefWChar sep) {
    return SetAttribute(name, CXMLValue(flags, map, count, sep));
  }
  // Format into 2048 units, then add / set the attribute.
  bool printfAttribute(CPPoolString const & name, qefWChar const * format, ...);
  bool SprintfAttribute(CPPoolString const & name, qefWChar const * format, ...);
  // Removes the pair, closing the gap. False only for an invalid name (true when absent or on a
  // null or unnamed node).
  bool DeleteAttribute(CPPoolString const & name);
  // Takes `other`'s attributes in order: a name this node has keeps its value unless
  // `overwrite`; others are appended. False on a null or unnamed node or when memory runs out.
  bool MergeAttributes(CPXMLObject const & other, bool overwrite);
  std::uint64_t GetNAttributes() const;
  // Copies pair `index`; both outputs are first set to the empty string. False on a null or
  // unnamed node or out of range.
  bool GetAttribute(std::uint64_t index, CPPoolString & name, CPPoolString & value) const;
  bool HasAttribute(CPPoolString const & name) const;
  // The value; the empty string when absent.
  CPPoolString const & FindAttribute(CPPoolString const & name) const;
  // The value; `def` when absent.
  CPPoolString FindAttributeString(CPPoolString const & name, CPPoolString const & def) const;
  // True when the attribute exists with exactly this value.
  bool FindAttributeValue(CPPoolString const & name, CPPoolString const & value) const;

  // --- Search ---------------------------------------------------------------------------------

  // Follows a path of names joined by "/" (blanks allowed around each name), taking the first
  // child of each name. The slot of the element found in its parent's array, or null for an
  // invalid path or when a step finds nothing; `*parent` (set to null first) receives the
  // parent's handle, this handle itself for a one-name path.
  CPXMLObject const * FindFirstElement(qefWChar const * path,
                                       CPXMLObject const ** parent = nullptr) const;
  CPXMLObject * FindFirstElement(qefWChar const * path, CPXMLObject ** parent = nullptr);
  // The first slot after `after` (from the first slot when null) whose child is named `name`;
  // null when none, when `after` is the last slot or not a slot of this node, or on a null or
  // unnamed node.
  CPXMLObject * FindNextElement(CPPoolString const & name,
                                CPXMLObject const * after = nullptr) const;
  // ... and has the attribute `attribute`.
  CPXMLObject * FindNextElementAtt(CPPoolString const & name, CPPoolString const & attribute,
                                   CPXMLObject const * after = nullptr) const;
  // ... and that attribute has the value `value`.
  CPXMLObject * FindNextElementAttVal(CPPoolString const & name, CPPoolString const & attribute,
                                      CPPoolString const & value,
                                      CPXMLObject const * after = nullptr) const;
  // ... and its data is `data`.
  CPXMLObject * FindNextElementData(CPPoolString const & name, CPPoolString const & data,
                                    CPXMLObject const * after = nullptr) const;
  // The same four, scanning backward from the slot before `before` (from the last when null).
  CPXMLObject * FindPrevElement(CPPoolString const & name,
                                CPXMLObject const * before = nullptr) const;
  CPXMLObject * FindPrevElementAtt(CPPoolString const & name, CPPoolString const & attribute,
                                   CPXMLObject const * before = nullptr) const;
  CPXMLObject * FindPrevElementAttVal(CPPoolString const & name, CPPoolString const & attribute,
                                      CPPoolString const & value,
                                      CPXMLObject const * before = nullptr) const;
  CPXMLObject * FindPrevElementData(CPPoolString const & name, CPPoolString const & data,
                                    CPXMLObject const * before = nullptr) const;
  // `GetData` of the first child named `name`; the empty string when none.
  CPPoolString const & FindElementData(CPPoolString const & name) const;
  // The same, with `def` when no child has the name.
  CPPoolString FindElementString(CPPoolString const & name, CPPoolString const & def) const;

  // --- Output ------------------------------------------------------------------------------

  // Writes this node and its subtree to the file at `path` (created, replacing what was there;
  // a missing last directory is created), with the declaration of `encoding` and, with
  // `indent`, a line end after each element and two spaces per level. A failed write deletes
  // the file (a refused encoding leaves the opened, empty file).
  // Note: true exactly when the serialiser failed, false otherwise, also after a complete
  // write; on purpose: check for the file to know whether it was written.
  bool Write(qefWChar const * path, eXMLEncoding encoding, bool indent) const;
  // Writes into `out` (emptied first), ending in one zero character of the encoding. True when
  // the tree was written; false for a null handle, a refused encoding, a node without name, a
  // processing instruction without data or mixed content. `out` stays empty on any failure.
  // Note: characters above U+FFFF are written as the one character 0x00 or 0x01; on purpose.
  bool Write(Buffers::CPPlainMemory & out, eXMLEncoding encoding, bool indent) const;

  // --- Typed readers --------------------------------------------------------------------------
  // `GetDataX(def)` reads this node's data, `FindElementX(name, def)` the first child named
  // `name` (that child only), `FindAttributeX(name, def)` the attribute. Each answers `def`
  // on a null or unnamed node, for an absent child or attribute, an empty text, or a text that
  // converts nothing. The number readers of data (Int, UInt, LInt, LUInt, Hex, Double, EDouble,
  // Index) also answer `def` unless the state is exactly 2 (data without children).
  // Note: `LUInt` reads decimal while the `std::uint64_t` writer writes hexadecimal, and
  // `Double` reads decimal while the `double` writer writes bits: `EDouble` reads those back.

  std::int32_t GetDataInt(std::int32_t def) const;                    // " %d"
  std::uint32_t GetDataUInt(std::uint32_t def) const;                 // " %u"
  std::int64_t GetDataLInt(std::int64_t def) const;                   // " %I64d"
  std::uint64_t GetDataLUInt(std::uint64_t def) const;                // " %I64u"
  std::uint64_t GetDataFileTime(std::uint64_t def) const;             // " %I64u", any state
  std::uint32_t GetDataHex(std::uint32_t def) const;                  // " %x"
  double GetDataEDouble(double def) const;                            // " %I64x" as bits
  double GetDataDouble(double def) const;                             // decimal
  Math::CRational GetDataRational(Math::CRational const & def) const; // " %d / %d"
  bool GetDataBool(bool def) const;                                   // "true"/"false", any case
  // Note: read by `cqefuid`'s parser, so a text without exactly four dashes is the null
  // identifier rather than `def`.
  QEF::cqefuid GetDataGUID(QEF::cqefuid const & def) const; // identifier text
  // Note: any non-empty text goes to `SZUTC`; one it cannot read gives its unassigned value.
  TimeCode::timecode GetDataTimecode(TimeCode::timecode const & def) const; // `SZUTC` text
  // Position of the data in the `sep`-cut `list`; all ones when absent.
  std::uint64_t GetDataIndex(qefWChar const * list, qefWChar sep) const;
  // Bits named by the data through `map` (tokens cut at `sep`, "0x" tokens hexadecimal); 0
  // when nothing reads.
  std::uint32_t GetDataFlags(tagXMLFLAGMAP const * map, std::size_t count, qefWChar sep) const;
  // Bytes the binary data holds: the pairs of characters when all are hexadecimal digits or
  // blanks and their count is even; else 0.
  std::uint64_t GetDataBinarySize() const;
  // Reads the binary data into `bytes[0..size)` (blanks skipped anywhere, low nibble first);
  // bytes stored, stopping at any other character.
  std::uint64_t GetDataBinary(std::uint8_t * bytes, std::uint64_t size) const;

  std::int32_t FindElementInt(CPPoolString const & name, std::int32_t def) const;
  std::uint32_t FindElementUInt(CPPoolString const & name, std::uint32_t def) const;
  std::int64_t FindElementLInt(CPPoolString const & name, std::int64_t def) const;
  std::uint64_t FindElementLUInt(CPPoolString const & name, std::uint64_t def) const;
  std::uint64_t FindElementFileTime(CPPoolString const & name, std::uint64_t def) const;
  std::uint32_t FindElementHex(CPPoolString const & name, std::uint32_t def) const;
  double FindElementEDouble(CPPoolString const & name, double def) const;
  double FindElementDouble(CPPoolString const & name, double def) const;
  Math::CRational FindElementRational(CPPoolString const & name, Math::CRational const & def) const;
  bool FindElementBool(CPPoolString const & name, bool def) const;
  QEF::cqefuid FindElementGUID(CPPoolString const & name, QEF::cqefuid const & def) const;
  TimeCode::timecode FindElementTimecode(CPPoolString const & name,
                                         TimeCode::timecode const & def) const;
  std::uint64_t FindElementIndex(CPPoolString const & name, qefWChar const * list,
                                 qefWChar sep) const;
  std::uint32_t FindElementFlags(CPPoolString const & name, tagXMLFLAGMAP const * map,
                                 std::size_t count, qefWChar sep) const;

  // Attribute forms scan without the leading blank of the data forms ("%d", "%u", ...).
  std::int32_t FindAttributeInt(CPPoolString const & name, std::int32_t def) const;
  std::uint32_t FindAttributeUInt(CPPoolString const & name, std::uint32_t def) const;
  std::int64_t FindAttributeLInt(CPPoolString const & name, std::int64_t def) const;
  // Note: the same as `FindAttributeFileTime`.
  std::uint64_t FindAttributeLUInt(CPPoolString const & name, std::uint64_t def) const;
  std::uint64_t FindAttributeFileTime(CPPoolString const & name, std::uint64_t def) const;
  std::uint32_t FindAttributeHex(CPPoolString const & name, std::uint32_t def) const;
  double FindAttributeEDouble(CPPoolString const & name, double def) const;
  double FindAttributeDouble(CPPoolString const & name, double def) const;
  Math::CRational FindAttributeRational(CPPoolString const & name,
                                        Math::CRational const & def) const;
  bool FindAttributeBool(CPPoolString const & name, bool def) const;
  QEF::cqefuid FindAttributeGUID(CPPoolString const & name, QEF::cqefuid const & def) const;
  TimeCode::timecode FindAttributeTimecode(CPPoolString const & name,
                                           TimeCode::timecode const & def) const;
  std::uint64_t FindAttributeIndex(CPPoolString const & name, qefWChar const * list,
                                   qefWChar sep) const;
  std::uint32_t FindAttributeFlags(CPPoolString const & name, tagXMLFLAGMAP const * map,
                                   std::size_t count, qefWChar sep) const;

  static std::size_t GetTypeID() { return reinterpret_cast<std::size_t>(&_vtbl); }
  using CPObjectMemory::GetTypeID;

  // The class table of node blocks (no clone slot: nodes are shared, never copied).
  static Buffers::tagCPOVTABL const _vtbl;

private:
  friend class _CXMLNodeAccess;

  tagXMLNODE * _node() const { return static_cast<tagXMLNODE *>(get_ptr()); }
  // The record of a named node; null for a null or unnamed one.
  tagXMLNODE * _named() const;
  // A new node named `name` (not checked) into `node`; false when memory runs out.
  static bool _create(CPXMLObject & node, CPPoolString const & name);
  bool _setName(CPPoolString const & name);
  bool _addAttribute(CPPoolString const & name, CPPoolString const & value);
  void _deleteAttribute(CPPoolString const & name);
  // The first child named `name`; null when none.
  CPXMLObject const * _firstChild(CPPoolString const & name) const;
  // The value of attribute `name`; null when absent or unnamed.
  CPPoolString const * _attribute(CPPoolString const & name) const;
  // Data a number reader may read: a named node in state 2 with data; else null.
  qefWChar const * _numberData() const;
  // Data any other reader may read: a named node with data; else null.
  qefWChar const * _textData() const;
  bool _vprintf(qefWChar const * format, std::va_list arguments);
};
static_assert(sizeof(CPXMLObject) == sizeof(void *));

// Reads XML documents (files, buffers, UTF-8 or 16-bit text) into a tree of `CPXMLObject` and
// keeps the root of the last one read and the description of the last error. One object is used
// by one thread at a time; separate documents may be read on separate threads. Copies share the
// tree and the error text. Every failure is a false result with an error code (an index into
// the fixed table "Bad file" ... "DOM error"; 128 when none is pending), a position in
// characters from the start of the text, and a log line "XML parsing error %ls" at level 2 with
// the report "[text, Line n, Offset n]" followed by the text around the position, marked
// "[[*]]". What the reader accepts, and its limits on nesting and entity expansion, are
// described in source/xml/xmlreader.h: strict XML 1.0; no mixed content (code 15); nothing from
// outside the document (code 8); attributes with empty values are not kept. The nodes and
// arrays of a tree read here lie in a few blocks of the heap per document (up to 64 KiB each),
// and each block is freed when its last node or array goes: a node kept from a released tree
// keeps the block it lies in. The pooled strings of the texts a document brings to the pool
// first lie in blocks of their own, kept likewise while one of them stays in the pool.
class VORX_API CXMLDoc {
public:
  CXMLDoc();
  CXMLDoc(CXMLDoc const & other);
  CXMLDoc & operator=(CXMLDoc const & other);
  ~CXMLDoc();

  // Reads the whole file (below 4 GiB) and parses it in the text form found from its first
  // bytes (UTF-8, or 16-bit in either byte order with or without a mark, swapped in place).
  // `encoding` 1 forces UTF-8, 2 and 3 16-bit units as they stand, 0 detects. Missing,
  // unreadable or shorter than two bytes: false, code 0.
  bool OpenDocFile(qefWChar const * path, eXMLEncoding encoding);
  // Parses zero-terminated UTF-8. Null or empty: code 0; an undecodable first character: code
  // 13 with the text "Offset: 0, Illegal UTF8 character".
  bool OpenDocText(unsigned char const * text);
  // Parses zero-terminated 16-bit units (host order).
  bool OpenDocText(std::uint16_t const * text);
  bool OpenDocText(qefWChar const * text);
  // Parses a buffer whose text form is detected as for a file; it must end in a 16-bit zero
  // (`size` only refuses buffers of fewer than 4 bytes) and, for 16-bit text, be 2-byte
  // aligned. 16-bit big-endian text is swapped in place. Note: the refusals made before the
  // text form is chosen (fewer than 4 bytes, two zero bytes first, a zero followed by neither
  // "<" nor white space, a mark alone) set code 0 but keep the earlier tree.
  bool OpenDocText(void * data, std::uint64_t size);
  // Drops the tree and the error text; position 0, code 128.
  void Close();
  // The root of the last successful parse; a default handle otherwise.
  CPXMLObject & GetRootElement();
  // The error code; `position` (may be null) receives the error position and `text` (may be
  // null) the error report, or "Bad file or bad encoding" when there is none and the code is 0.
  std::uint32_t GetErrorInfo(std::uint64_t * position, String::CQEFWChar * text);

private:
  bool _openForm(void * data, bool buffer, eXMLEncoding encoding);
  bool _setErrorText(qefWChar const * text);
  void _report(qefWChar const * wide, std::size_t length);

  Buffers::CPPlainMemory m_errorText;
  std::uint64_t m_errorPosition = 0;
  std::uint32_t m_errorCode = 0;
  CPXMLObject m_root;
};

} // namespace VORX::XML
