// VORX::QEF: the small binary component framework in the COM binary layout.
//
// Map of this header:
//   identifiers               `_qefUID` (the record), `cqefuid` (its value class and text forms),
//                             `_createUID` (a fresh random identifier)
//   interfaces                `IQEFUnknown` (the root), `IQEFComponentFactory` (the host's
//                             factory), `IQEFDefinition` (a class definition), `IQEFClassFactory`
//   interface pointers        `CPIQEFUnknown` (root type, plus the factory functions),
//                             `IPQEF` (of any interface type)
//   implementation bases      `_cQEFUnknown` (counted component), `_csFactory` (static factory)
//   component information     `COMPONENT_INFO`
//
// The identifier record and the root interface come first: the memory layer includes this
// header for them alone (with `VORX_QEF_RECORD_ONLY` defined), before strings are declared.
// Two include guards instead of `#pragma once`, one per part.
#ifndef VORX_QEF_RECORD_DECLARED
#define VORX_QEF_RECORD_DECLARED

#include <vorx/base.h>

// A 16-byte identifier in the GUID layout: one 32-bit group, two 16-bit groups, eight bytes.
struct _qefUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(_qefUID) == 16);

namespace VORX::QEF {

// The all-zero identifier.
inline constexpr _qefUID qefUID_null{};

} // namespace VORX::QEF

// The root component interface, in the COM binary layout: three slots, the interface query
// first. Result codes follow the HRESULT convention (negative means failure; see `VORX::hr`).
// An object that lives in an object-memory block and is counted by its block answers 0 from
// `AddRef` and `Release` (uncounted).
struct IQEFUnknown {
  // Stores the interface `id` in `*out` and answers `VORX::QEF::QEF_S_OK`; stores null and
  // answers `QEF_E_NOINTERFACE` when the object does not offer it (`QEF_E_POINTER` for a null
  // `out`).
  virtual std::int32_t QueryInterface(_qefUID const & id, void ** out) = 0;
  // The new reference count; 0 for an uncounted object.
  virtual std::uint32_t AddRef() = 0;
  // The new reference count; 0 for an uncounted object.
  virtual std::uint32_t Release() = 0;

protected:
  ~IQEFUnknown() = default;
};

namespace VORX::QEF {

// Result codes of the component interfaces.
inline constexpr std::int32_t QEF_S_OK = 0;
inline constexpr std::int32_t QEF_E_NOINTERFACE = static_cast<std::int32_t>(0x80004002u);
inline constexpr std::int32_t QEF_E_POINTER = static_cast<std::int32_t>(0x80004003u);

// 00000000-0000-0000-C000-000000000046, the identifier of `IQEFUnknown`.
inline constexpr _qefUID IID_IQEFUnknown{
    0x00000000u, 0x0000u, 0x0000u, {0xC0u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x46u}};

// Byte-wise equality of two identifiers.
constexpr bool _sameUID(_qefUID const & a, _qefUID const & b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) {
    return false;
  }
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) {
      return false;
    }
  }
  return true;
}

} // namespace VORX::QEF

#endif // VORX_QEF_RECORD_DECLARED

#if !defined(VORX_QEF_RECORD_ONLY) && !defined(VORX_QEF_INTERFACES_DECLARED)
#define VORX_QEF_INTERFACES_DECLARED

#include <vorx/string.h>

namespace VORX::QEF {

// ---------------------------------------------------------------------------------------------
// Identifiers
// ---------------------------------------------------------------------------------------------

// Result codes of the class-factory interface (`_csFactory`).
inline constexpr std::int32_t QEF_E_ARGUMENT = static_cast<std::int32_t>(0x80000003u);
inline constexpr std::int32_t QEF_E_NOINTERFACE_16 = static_cast<std::int32_t>(0x80000004u);
inline constexpr std::int32_t QEF_E_NOAGGREGATION = static_cast<std::int32_t>(0x80040110u);
inline constexpr std::int32_t QEF_E_CLASSNOTAVAILABLE = static_cast<std::int32_t>(0x80040111u);

// 3C43A101-84D4-4215-9A4C-FBF54E8E7541: the class-factory interface. Note: every
// `_cQEFUnknown` answers it too, with its root interface, as the framework always has.
inline constexpr _qefUID IID_IQEFClassFactory{
    0x3C43A101u, 0x84D4u, 0x4215u, {0x9Au, 0x4Cu, 0xFBu, 0xF5u, 0x4Eu, 0x8Eu, 0x75u, 0x41u}};
// 1B25BD95-43E7-4C3C-B8BF-8FACF3CE31F7: the host's component factory, `IQEFComponentFactory`.
inline constexpr _qefUID IID_IQEFComponentFactory{
    0x1B25BD95u, 0x43E7u, 0x4C3Cu, {0xB8u, 0xBFu, 0x8Fu, 0xACu, 0xF3u, 0xCEu, 0x31u, 0xF7u}};
// 1718A226-7FD0-11D6-BD1D-00306542A024: a class definition, `IQEFDefinition`.
inline constexpr _qefUID IID_IQEFDefinition{
    0x1718A226u, 0x7FD0u, 0x11D6u, {0xBDu, 0x1Du, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};

// Value types of definition attributes: what `IQEFDefinition::GetAttribute` writes.
// 905DBB84-7104-11D6-AED3-0030658A6504: an identifier, 16 bytes.
inline constexpr _qefUID TYPEID_Identifier{
    0x905DBB84u, 0x7104u, 0x11D6u, {0xAEu, 0xD3u, 0x00u, 0x30u, 0x65u, 0x8Au, 0x65u, 0x04u}};
// 88FA1842-0D06-4796-81BF-58DC8C1CCDC1: zero-terminated wide text, at most the buffer's bytes
// including the terminator.
inline constexpr _qefUID TYPEID_Text{
    0x88FA1842u, 0x0D06u, 0x4796u, {0x81u, 0xBFu, 0x58u, 0xDCu, 0x8Cu, 0x1Cu, 0xCDu, 0xC1u}};
// E8A25890-31AC-4DFB-A1EE-8A4AB575E705: an unsigned 32-bit value, 4 bytes.
inline constexpr _qefUID TYPEID_UInt32{
    0xE8A25890u, 0x31ACu, 0x4DFBu, {0xA1u, 0xEEu, 0x8Au, 0x4Au, 0xB5u, 0x75u, 0xE7u, 0x05u}};

// Attributes of a definition that the library reads (see `COMPONENT_INFO`).
// 2FBF0363-7FD3-11D6-8797-00306542A024: the class id of a definition (an identifier).
inline constexpr _qefUID ATTRID_ClassID{
    0x2FBF0363u, 0x7FD3u, 0x11D6u, {0x87u, 0x97u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 2C535058-7FD2-11D6-ABB9-00306542A024: the name (text, up to 512 bytes).
inline constexpr _qefUID ATTRID_Name{
    0x2C535058u, 0x7FD2u, 0x11D6u, {0xABu, 0xB9u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 6262D680-7FD1-11D6-86E6-00306542A024: an identifier (the info record's first).
inline constexpr _qefUID ATTRID_Identifier1{
    0x6262D680u, 0x7FD1u, 0x11D6u, {0x86u, 0xE6u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// BC63692C-7FD1-11D6-ACDC-00306542A024: an identifier (the info record's second).
inline constexpr _qefUID ATTRID_Identifier2{
    0xBC63692Cu, 0x7FD1u, 0x11D6u, {0xACu, 0xDCu, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 2FBF0364-7FD3-11D6-8797-00306542A024: the identifier of the related definition.
inline constexpr _qefUID ATTRID_Related{
    0x2FBF0364u, 0x7FD3u, 0x11D6u, {0x87u, 0x97u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 5FAA8564-7FD2-11D6-B6AE-00306542A024: a text, read from the related definition.
inline constexpr _qefUID ATTRID_RelatedText{
    0x5FAA8564u, 0x7FD2u, 0x11D6u, {0xB6u, 0xAEu, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 4C1C4E92-7FD2-11D6-AD27-00306542A024: an identifier, read from the related definition.
inline constexpr _qefUID ATTRID_RelatedIdentifier{
    0x4C1C4E92u, 0x7FD2u, 0x11D6u, {0xADu, 0x27u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// D44AD7E4-7FD1-11D6-9318-00306542A024, ECD473E3-7FD1-11D6-8FF2-00306542A024: 32-bit values,
// read from the related definition.
inline constexpr _qefUID ATTRID_Value1{
    0xD44AD7E4u, 0x7FD1u, 0x11D6u, {0x93u, 0x18u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
inline constexpr _qefUID ATTRID_Value2{
    0xECD473E3u, 0x7FD1u, 0x11D6u, {0x8Fu, 0xF2u, 0x00u, 0x30u, 0x65u, 0x42u, 0xA0u, 0x24u}};
// 7709BE44-1BCF-11E3-B718-001F2903051E, 7709BE45-...: optional 32-bit values of the related
// definition (0 when missing).
inline constexpr _qefUID ATTRID_Value3{
    0x7709BE44u, 0x1BCFu, 0x11E3u, {0xB7u, 0x18u, 0x00u, 0x1Fu, 0x29u, 0x03u, 0x05u, 0x1Eu}};
inline constexpr _qefUID ATTRID_Value4{
    0x7709BE45u, 0x1BCFu, 0x11E3u, {0xB7u, 0x18u, 0x00u, 0x1Fu, 0x29u, 0x03u, 0x05u, 0x1Eu}};

// Value class over one identifier: exactly the 16 bytes of a `_qefUID`. Its text form is
// "%08X-%04hX-%04hX-%02hX%02hX-%02hX%02hX%02hX%02hX%02hX%02hX" (36 characters, upper case, no
// braces). Parsing keeps the framework's rules, quirks included: a text without exactly four
// dashes (the empty or null text too) is the null identifier and succeeds; characters after the
// twelfth digit of the last group are ignored. Parsing reads the text once, never beyond its
// terminator. Not synchronised: a value belongs to one thread at a time.
class VORX_API cqefuid {
public:
  cqefuid() noexcept : m_uid{} {}
  cqefuid(_qefUID const & uid) noexcept : m_uid(uid) {}
  // `Set` of the text; the result is ignored (an unparsable text gives the null identifier).
  cqefuid(char const * text) : m_uid{} { Set(text); }
  cqefuid(qefWChar const * text) : m_uid{} { Set(text); }
  cqefuid & operator=(_qefUID const & uid) noexcept {
    m_uid = uid;
    return *this;
  }
  cqefuid & operator=(char const * text) {
    Set(text);
    return *this;
  }
  cqefuid & operator=(qefWChar const * text) {
    Set(text);
    return *this;
  }

  // Parses `text`; false (identifier zero) when four dashes are present but the groups do not
  // read. Narrow text is read byte for byte, exactly as the same characters in wide text; from
  // 128 bytes on it is widened in one heap copy (false, identifier zero, when that fails).
  bool Set(char const * text);
  bool Set(qefWChar const * text);

  bool operator==(cqefuid const & other) const { return _sameUID(m_uid, other.m_uid); }
  bool operator==(_qefUID const & other) const { return _sameUID(m_uid, other); }
  bool operator!=(cqefuid const & other) const { return !_sameUID(m_uid, other.m_uid); }
  bool operator!=(_qefUID const & other) const { return !_sameUID(m_uid, other); }
  // True when any byte is not zero.
  explicit operator bool() const { return !_sameUID(m_uid, qefUID_null); }

  void reset() { m_uid = _qefUID{}; }
  _qefUID & rec() { return m_uid; }
  operator _qefUID const &() const { return m_uid; }

  // The text form; an empty buffer when memory runs out.
  String::CANSIChar ANSI() const;
  operator String::CQEFWChar() const;

private:
  _qefUID m_uid;
};
static_assert(sizeof(cqefuid) == sizeof(_qefUID));

// Fills `uid` with a fresh random identifier in the version-4 layout (the third group starts
// with the digit 4, the fourth with 8, 9, A or B) from the system's random source. False, with
// `uid` zero, when the source fails.
VORX_API bool _createUID(_qefUID & uid);

// ---------------------------------------------------------------------------------------------
// Interfaces. Each keeps the root slots first and the slot numbers given (after the three root
// slots: slot 3 is the first function declared below). Result codes follow the HRESULT rule.
// ---------------------------------------------------------------------------------------------

// The process's component factory, supplied by the host (see `CPIQEFUnknown::Factory_Set`).
struct IQEFComponentFactory : IQEFUnknown {
  // Slot 3: creates a component of class `cls` and stores its interface `id` in `*out`.
  // `outer` is the aggregating object, or null.
  virtual std::int32_t CreateComponent(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                                       void ** out) = 0;
  // Slot 4: as slot 3, for a plain instance.
  virtual std::int32_t CreateInstance(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                                      void ** out) = 0;
  // Slot 5: keeps the host's factory alive while `lock` is non-zero; the library never calls it.
  virtual std::int32_t LockFactory(std::int32_t lock) = 0;
  // Slot 6: stores the definition of `cls`, as interface `id`, in `*out`.
  virtual std::int32_t FindDefinition(_qefUID const & cls, _qefUID const & id, void ** out) = 0;
  // Slot 7: stores an enumeration of the definitions named by `id` in `*out`.
  virtual std::int32_t EnumDefinitions(_qefUID const & id, void ** out) = 0;

protected:
  ~IQEFComponentFactory() = default;
};

// The definition of one class of the host's factory: a set of typed attributes.
struct IQEFDefinition : IQEFUnknown {
  // Slot 3: stores the definition's own identifier in `*id`.
  virtual std::int32_t GetDefinitionID(_qefUID * id) = 0;
  // Slot 4: 0 when the definition has attribute `attribute`, 1 when not.
  virtual std::int32_t HasAttribute(_qefUID const & attribute) = 0;
  // Slot 5: writes attribute `attribute` as value type `type` (a `TYPEID_...`) into `buffer` of
  // `bytes` bytes. Negative when the attribute is missing, of another type or does not fit.
  virtual std::int32_t GetAttribute(_qefUID const & attribute, _qefUID const & type, void * buffer,
                                    std::uint32_t bytes) = 0;

protected:
  ~IQEFDefinition() = default;
};

// The class-factory interface (`IID_IQEFClassFactory`).
struct IQEFClassFactory : IQEFUnknown {
  // Slot 3: creates an object and stores its interface `id` in `*out`; `reserved` is not used.
  virtual std::int32_t CreateInstance(IQEFUnknown * outer, void * reserved, _qefUID const & id,
                                      void ** out) = 0;

protected:
  ~IQEFClassFactory() = default;
};

// ---------------------------------------------------------------------------------------------
// Interface pointers
// ---------------------------------------------------------------------------------------------

class CPIQEFUnknown;
struct tagCOMPONENT_INFO;

// A class's creation function in the registry.
using qefCreateFunction = CPIQEFUnknown (*)(_qefUID const & cls);

// Handle to one interface of a component, of the handle's type (`GetType()`: the root interface
// here, any interface for `IPQEF`). It owns one reference to the interface it holds and releases
// it in its destructor. A pointer given to it (a constructor, `=`) is narrowed at once with
// `QueryInterface`, so the caller keeps its own reference; a pointer written through `rec()` or
// by a create call is adopted as it is and narrowed at its first use. An interface whose
// `Release` or `QueryInterface` throws is contained: a failed narrowing gives an empty handle.
// Not synchronised: even a const handle changes on first use, so one handle belongs to one
// thread at a time. Copies hold references of their own.
class VORX_API CPIQEFUnknown {
public:
  CPIQEFUnknown() noexcept : m_pI(_empty()) {}
  // Holds its own reference to `p`'s interface of the handle's type; empty when `p` is null or
  // does not offer it.
  CPIQEFUnknown(IQEFUnknown * p) : m_pI(_mark(_addRef(p))) {}
  CPIQEFUnknown(CPIQEFUnknown const & other) : m_pI(_mark(_addRef(other._getptr()))) {}
  virtual ~CPIQEFUnknown() { free(); }

  // Narrows `p` first, then releases what the handle held.
  CPIQEFUnknown & operator=(IQEFUnknown * p);
  // Releases what the handle held first, then narrows `other`'s interface. Note: the opposite
  // order from the raw-pointer form, deliberately; assigning a handle to itself does nothing.
  CPIQEFUnknown & operator=(CPIQEFUnknown const & other);

  // Releases the held interface (an exception from its `Release` raises an assumption box) and
  // leaves the handle empty.
  virtual void free();
  // The interface type this handle narrows to: the root interface.
  virtual _qefUID const & GetType() const;

  // Same interface pointer (narrowed or not), nothing else.
  bool operator==(CPIQEFUnknown const & other) const { return _bare(m_pI) == _bare(other.m_pI); }
  bool operator!=(CPIQEFUnknown const & other) const { return !(*this == other); }
  // True when the handle holds an interface of its type (narrowing it first).
  explicit operator bool() const { return _getptr() != nullptr; }

  // The held interface (narrowed now) without a new reference; null when empty.
  IQEFUnknown * get() const { return _getptr(); }
  // Stores the held pointer, not narrowed, in `*out` with a new reference. False for a null
  // `out` or an empty handle (`*out` then null).
  bool QueryRawInterface(IQEFUnknown ** out) const;
  // Empties the handle and answers its field, for a callee to store an interface pointer in;
  // that pointer is adopted with its reference and narrowed at first use.
  IQEFUnknown ** rec();
  // The held interface's reference count as its `AddRef` and `Release` report it: the count
  // after `AddRef`, less 1 (all ones for an uncounted object, which answers 0); 0 for an empty
  // handle. Meant for a handle just filled through `rec()`; it does not narrow. Note: the mark
  // bit is cleared before the calls, so a handle already used answers too, instead of calling
  // through a marked pointer.
  std::uint32_t GetLockCount() const;

  // Creates component `cls` through `factory`'s slot 3 (through the process's factory in the
  // one-argument form), asking for the root interface, and holds the result as `rec()` would:
  // adopted as it is, narrowed to the handle's type at first use. False, with the handle
  // empty, when there is no factory or the factory fails, throws or stores null.
  bool createComponent(_qefUID const & cls, IQEFComponentFactory * factory);
  bool createComponent(_qefUID const & cls);
  // As `createComponent`, through slot 4.
  bool createInstance(_qefUID const & cls, IQEFComponentFactory * factory);
  bool createInstance(_qefUID const & cls);

  // The process's component factory: one slot with a lock count, guarded by a recursive lock.
  // Every function below may be called from any thread.
  //
  // Sets the factory, or counts one more lock on the same one. False for null, and when another
  // factory is set (nothing changes then). Each true result needs one `Factory_Release`.
  // Note: a bare `nullptr` is ambiguous between the forms; pass a typed null.
  static bool Factory_Set(IQEFComponentFactory * factory);
  // Narrows to `IQEFComponentFactory` first; false when that fails.
  static bool Factory_Set(IQEFUnknown * factory);
  static bool Factory_Set(CPIQEFUnknown & factory);
  // Counts one lock down; the last one releases the factory and empties the slot. Always true
  // (with no factory set it does nothing).
  static bool Factory_Release();
  // Whether a factory is set now (read without the lock).
  static bool Factory_IsAvailable();
  // Stores the factory in `*out` with a new reference; false (`*out` null) for a null `out` or
  // when none is set.
  static bool Factory_Acquire(IQEFComponentFactory ** out);
  // Holds the factory in `handle` (narrowed to the handle's type); false when there is none.
  static bool Factory_Acquire(CPIQEFUnknown & handle);
  // The factory's enumeration of the definitions named `id` (slot 7); empty on failure or with
  // no factory.
  static CPIQEFUnknown Factory_EnumDefinitions(_qefUID const & id);
  // The definition of class `cls` (slot 6, asking for `IID_IQEFDefinition`); empty on failure.
  static CPIQEFUnknown Factory_FindDefinition(_qefUID const & cls);
  // Reads the class id (`ATTRID_ClassID`) of the definition of `id` into `cls`. False, with
  // `cls` zero, on any failure.
  static bool Factory_FindClass(_qefUID const & id, _qefUID & cls);
  // Fills `info` from the definition of `cls`, or from `definition`, and its related definition.
  // False when `info.sSizeStruct` is not 136 (an assumption box; nothing is asked of the factory)
  // or when a required attribute cannot be read; fields read before the failure keep their
  // values. The last two numbers are optional and become 0 when missing.
  static bool Factory_GetComponentInfo(_qefUID const & cls, tagCOMPONENT_INFO & info);
  static bool Factory_GetComponentInfo(CPIQEFUnknown & definition, tagCOMPONENT_INFO & info);

  // The class registry: records of (class id, second identifier, name, creation function),
  // keyed by the class id, guarded by a read/write interlock. Records are never removed.
  //
  // Adds a record. False when `name` is null or empty (logged at level 1, by design: class
  // names are mandatory), when `cls` is registered already (the first record stays), or when
  // memory runs out.
  static bool Factory_RegisterClass(_qefUID const & cls, _qefUID const & second,
                                    String::CPPoolString const & name, qefCreateFunction create);
  // Reads the record of `cls`: any of `second`, `name`, `create` may be null. False when there
  // is none (the outputs are left alone).
  static bool Factory_FindRegisteredClass(_qefUID const & cls, _qefUID * second,
                                          String::CPPoolString * name, qefCreateFunction * create);
  // Calls the creation function of `cls` with `cls`; empty when none is registered, the
  // function is null, or it throws.
  static CPIQEFUnknown Factory_CreateRegisteredClass(_qefUID const & cls);

protected:
  // `p`'s interface of the handle's type with a new reference; null for null `p`, a failed or
  // throwing `QueryInterface`.
  IQEFUnknown * _addRef(IQEFUnknown * p) const;
  // The held interface; a pointer not yet narrowed is narrowed now (its own reference is then
  // released). Null when empty.
  IQEFUnknown * _getptr() const;
  // Releases the held interface (exceptions swallowed) and adopts `p` as narrowed, without
  // `AddRef` or `QueryInterface`.
  void _assign(IQEFUnknown * p);
  // `other._getptr()`, for derived handles.
  static IQEFUnknown * _getptrOf(CPIQEFUnknown const & other) { return other._getptr(); }

private:
  static constexpr std::uintptr_t kMark = 1;
  static IQEFUnknown * _empty() { return reinterpret_cast<IQEFUnknown *>(kMark); }
  static IQEFUnknown * _mark(IQEFUnknown * p) {
    return reinterpret_cast<IQEFUnknown *>(reinterpret_cast<std::uintptr_t>(p) | kMark);
  }
  static IQEFUnknown * _bare(IQEFUnknown * p) {
    return reinterpret_cast<IQEFUnknown *>(reinterpret_cast<std::uintptr_t>(p) & ~kMark);
  }
  static bool _marked(IQEFUnknown * p) { return (reinterpret_cast<std::uintptr_t>(p) & kMark); }
  bool _create(_qefUID const & cls, IQEFComponentFactory * factory, bool instance);

  // The interface pointer; the lowest bit marks it as narrowed and owned. 1 alone is empty.
  mutable IQEFUnknown * m_pI;
};
static_assert(sizeof(CPIQEFUnknown) == 2 * sizeof(void *));

// Handle to one interface of a given type, chosen at construction and kept by assignment:
// whatever is assigned is narrowed to this handle's type. Otherwise as `CPIQEFUnknown`.
class VORX_API IPQEF : public CPIQEFUnknown {
public:
  // An empty handle of type `type`.
  explicit IPQEF(_qefUID const & type) : m_type(type) {}
  // Holds `p`'s interface `type`, with its own reference.
  IPQEF(_qefUID const & type, IQEFUnknown * p) : m_type(type) { _assign(_addRef(p)); }
  // Holds `other`'s interface `type`, with its own reference.
  IPQEF(_qefUID const & type, CPIQEFUnknown const & other) : m_type(type) {
    _assign(_addRef(_getptrOf(other)));
  }
  IPQEF(IPQEF const & other) : CPIQEFUnknown(), m_type(other.m_type) {
    _assign(_addRef(other._getptr()));
  }
  IPQEF & operator=(IPQEF const & other) {
    CPIQEFUnknown::operator=(other);
    return *this;
  }
  using CPIQEFUnknown::operator=;

  _qefUID const & GetType() const override { return m_type; }

  // Narrows first; stores the interface in `*out` with a new reference. False for a null `out`
  // or an empty handle (`*out` then null).
  bool QueryRawInterface(void ** out) const;
  using CPIQEFUnknown::QueryRawInterface;

private:
  _qefUID m_type;
};

// ---------------------------------------------------------------------------------------------
// Implementation bases
// ---------------------------------------------------------------------------------------------

// Base of a component implementation: one atomic reference count. A count of 0 marks an
// uncounted object (a static one, or one whose life something else decides): counting leaves it
// at 0 and never destroys it. A heap object starts counted by passing 1, the creator's
// reference, to the constructor. The derived class implements the three root slots, usually
// with `_query`, `_addRef` and `_release`, the destruction slot (called once, when the count
// falls to 0) and `GetClassID`, and extends `_queryinterface`. Counting is thread-safe.
class VORX_API _cQEFUnknown : public IQEFUnknown {
public:
  // Destroys the object; called by `_release` when the count falls to 0.
  virtual void _destroy() const = 0;
  // The interface `id` of this object, without a reference; null when it has none. This base
  // answers the root interface and `IID_IQEFClassFactory`.
  virtual void * _queryinterface(_qefUID const & id) const;
  // The identifier of the implementation's class.
  virtual _qefUID const & GetClassID() const = 0;

  // The object as its root interface.
  IQEFUnknown * base() const { return const_cast<_cQEFUnknown *>(this); }

protected:
  explicit _cQEFUnknown(std::uint32_t count = 0) noexcept : m_lRefCount(count) {}
  _cQEFUnknown(_cQEFUnknown const &) noexcept : m_lRefCount(0) {}
  _cQEFUnknown & operator=(_cQEFUnknown const &) noexcept { return *this; }
  ~_cQEFUnknown() = default;

  // The new count; 0 (and no change) for an uncounted object.
  std::uint32_t _addRef() const;
  // The new count; 0 (and no change) for an uncounted object. Destroys the object at 0.
  std::uint32_t _release() const;
  // `_queryinterface(id)` with a new reference when it is not null.
  void * _queryinterfaceadd(_qefUID const & id) const;
  // The root slot `QueryInterface` over `_queryinterfaceadd`: `QEF_E_POINTER` for a null `out`,
  // `QEF_E_NOINTERFACE` (and `*out` null) when `id` is not offered.
  std::int32_t _query(_qefUID const & id, void ** out) const;

private:
  mutable std::uint32_t m_lRefCount;
};

// Base of a static class factory (an object that is never counted: `AddRef` answers 2,
// `Release` 0). It answers the root interface and `IID_IQEFClassFactory` with itself and
// creates objects through the derived class's `_createInstance`. Stateless and thread-safe as
// far as `_createInstance` is.
class VORX_API _csFactory : public IQEFClassFactory {
public:
  // `QEF_E_ARGUMENT` for a null `out`; 0x80000004 (and `*out` null) for another interface.
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override;
  std::uint32_t AddRef() override { return 2; }
  std::uint32_t Release() override { return 0; }
  // `QEF_E_ARGUMENT` for a null `out`, `QEF_E_NOAGGREGATION` with an `outer` object,
  // `QEF_E_CLASSNOTAVAILABLE` when `_createInstance` fails (or throws); 0 on success.
  std::int32_t CreateInstance(IQEFUnknown * outer, void * reserved, _qefUID const & id,
                              void ** out) override;

protected:
  // Creates one object and stores its interface `id` in `*out` with one reference; false when
  // it cannot.
  virtual bool _createInstance(_qefUID const & id, void ** out) = 0;
  ~_csFactory() = default;
};

// ---------------------------------------------------------------------------------------------
// Component information
// ---------------------------------------------------------------------------------------------

// What `Factory_GetComponentInfo` reads about a class from the host's definitions, field by
// field from the attribute named beside it. `sSizeStruct` is the record's size as the caller
// declares it: it must be 136 (the default). A plain value; copies are deep.
struct tagCOMPONENT_INFO {
  std::uint64_t sSizeStruct = 136;
  _qefUID uidFirst{};               // ATTRID_Identifier1
  _qefUID uidSecond{};              // ATTRID_Identifier2
  String::CQEFWChar strName;        // ATTRID_Name
  _qefUID uidRelated{};             // ATTRID_Related
  String::CQEFWChar strRelatedName; // ATTRID_Name of the related definition
  _qefUID uidRelatedIdentifier{};   // ATTRID_RelatedIdentifier of the related definition
  String::CQEFWChar strRelatedText; // ATTRID_RelatedText of the related definition
  std::uint32_t ulValue1 = 0;       // ATTRID_Value1 of the related definition
  std::uint32_t ulValue2 = 0;       // ATTRID_Value2 of the related definition
  std::uint32_t ulValue3 = 0;       // ATTRID_Value3 of the related definition, optional
  std::uint32_t ulValue4 = 0;       // ATTRID_Value4 of the related definition, optional
};
typedef tagCOMPONENT_INFO COMPONENT_INFO;
static_assert(sizeof(COMPONENT_INFO) == 136);

} // namespace VORX::QEF

#endif // VORX_QEF_INTERFACES_DECLARED
