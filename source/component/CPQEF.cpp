// Interface pointers, the process's component factory slot, the queries of the host's class
// definitions and the library's class registry.
#include <vorx/buffers.h>
#include <vorx/develop.h>
#include <vorx/lookup.h>
#include <vorx/qef.h>
#include <vorx/string.h>
#include <vorx/threading.h>

#include <atomic>
#include <cstring>
#include <new>

#include "core/forever.h"

namespace VORX::QEF {
namespace {

using Buffers::CPObjectMemory;
using Buffers::tagCPOMEMHEADER;
using Buffers::tagCPOVTABL;
using Develop::OS::RTABox;

// Calls `f` on `p`, swallowing any exception; `fallback` then.
template <class F> std::int32_t _guarded(F && f, std::int32_t fallback) {
  try {
    return f();
  } catch (...) {
    return fallback;
  }
}

constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005u);

// Adds a reference to `p`; false when `p` is null or its AddRef throws.
bool _addRefQuietly(IQEFUnknown * p) {
  if (!p) {
    return false;
  }
  try {
    p->AddRef();
  } catch (...) {
    return false;
  }
  return true;
}

void _releaseQuietly(IQEFUnknown * p) {
  if (p) {
    try {
      p->Release();
    } catch (...) {
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The factory slot: the pointer is read without the lock by `Factory_IsAvailable`, so it is
// atomic; it and the count change only under the recursive lock.
_tForever<Threading::CPCriticalSection> g_factoryLock;
std::atomic<IQEFComponentFactory *> g_pFactory{nullptr};
std::uint32_t g_uFactoryLock = 0;

class _cFactoryGuard {
public:
  _cFactoryGuard() : m_held(g_factoryLock->Enter()) {}
  ~_cFactoryGuard() {
    if (m_held) {
      g_factoryLock->Leave();
    }
  }
  _cFactoryGuard(_cFactoryGuard const &) = delete;
  _cFactoryGuard & operator=(_cFactoryGuard const &) = delete;
  explicit operator bool() const { return m_held; }

private:
  bool m_held;
};

// ---------------------------------------------------------------------------------------------
// The class registry.

struct SClassRegister {
  _qefUID cls;
  _qefUID second;
  String::CPPoolString name;
  qefCreateFunction create;
};

// Handle to a block holding one `SClassRegister`.
class _cPClassRecord : public CPObjectMemory {
public:
  // A record block; empty when memory runs out.
  static CPObjectMemory Make(_qefUID const & cls, _qefUID const & second,
                             String::CPPoolString const & name, qefCreateFunction create) {
    _cPClassRecord block;
    if (!block.Alloc(sizeof(SClassRegister), &table)) {
      return CPObjectMemory();
    }
    ::new (block.get_ptr()) SClassRegister{cls, second, name, create};
    return CPObjectMemory(std::move(block));
  }
  static SClassRegister const * Get(CPObjectMemory const & h) {
    tagCPOMEMHEADER * const header = h.*(&_cPClassRecord::m_pMH);
    return header ? reinterpret_cast<SClassRegister const *>(header + 1) : nullptr;
  }

private:
  static void _create(void *, std::size_t) {}
  static void _clone(void * target, void const * source, std::size_t) {
    ::new (target) SClassRegister(*static_cast<SClassRegister const *>(source));
  }
  static void _finalize(void * payload, std::size_t) {
    static_cast<SClassRegister *>(payload)->~SClassRegister();
  }
  static constexpr tagCPOVTABL table = {&_create, &_clone, &_finalize,
                                        &CPObjectMemory::_nointerface};
};

// 1024 buckets keyed by the CRC of the class id; records of one id compare equal.
class _cClassRegistry : public Lookup::CBaseHashTable {
public:
  _cClassRegistry() : CBaseHashTable(10) {}
  // The record now stored for its class id: `record` itself, or the one registered before.
  CPObjectMemory Add(std::uint64_t hash, CPObjectMemory const & record) {
    return AddItem(hash, record, Lookup::eHashKeepEqual);
  }
  CPObjectMemory Find(std::uint64_t hash, CPObjectMemory const & probe) {
    return FindItem(hash, probe);
  }

protected:
  int compare(CPObjectMemory const & a, CPObjectMemory const & b) override {
    return std::memcmp(&_cPClassRecord::Get(a)->cls, &_cPClassRecord::Get(b)->cls, sizeof(_qefUID));
  }
};

_tForever<Buffers::CMachineCRC> g_crc(64u, std::uint64_t{0x42F0E1EBA9EA3693});
_tForever<Threading::CPRWInterlock> g_registryLock;
_tForever<_cClassRegistry> g_registry;

std::uint64_t _classHash(_qefUID const & cls) {
  return g_crc->Eval(&cls, sizeof cls, 0);
}

bool _isNamed(String::CPPoolString const & name) {
  return !name.isnull() && !name.isempty();
}

// ---------------------------------------------------------------------------------------------
// Attribute reads through a definition's slot 5.

bool _readAttribute(IQEFUnknown * definition, _qefUID const & attribute, _qefUID const & type,
                    void * buffer, std::uint32_t bytes) {
  if (!definition) {
    return false;
  }
  IQEFDefinition * const d = static_cast<IQEFDefinition *>(definition);
  return _guarded([&] { return d->GetAttribute(attribute, type, buffer, bytes); }, kFailed) >= 0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CPIQEFUnknown

_qefUID const & CPIQEFUnknown::GetType() const {
  return IID_IQEFUnknown;
}

void CPIQEFUnknown::free() {
  IQEFUnknown * const held = _bare(m_pI);
  m_pI = _empty();
  if (held) {
    try {
      held->Release();
    } catch (...) {
      RTABox("Illegal code point reached", "CPIQEFUnknown::free exception");
    }
  }
}

CPIQEFUnknown & CPIQEFUnknown::operator=(IQEFUnknown * p) {
  IQEFUnknown * const taken = _addRef(p);
  free();
  m_pI = _mark(taken);
  return *this;
}

CPIQEFUnknown & CPIQEFUnknown::operator=(CPIQEFUnknown const & other) {
  if (this != &other) {
    free();
    m_pI = _mark(_addRef(other._getptr()));
  }
  return *this;
}

bool CPIQEFUnknown::QueryRawInterface(IQEFUnknown ** out) const {
  if (!out) {
    return false;
  }
  IQEFUnknown * const p = _bare(m_pI);
  *out = _addRefQuietly(p) ? p : nullptr;
  return *out != nullptr;
}

IQEFUnknown ** CPIQEFUnknown::rec() {
  free();
  return &m_pI;
}

std::uint32_t CPIQEFUnknown::GetLockCount() const {
  IQEFUnknown * const p = _bare(m_pI);
  if (!p) {
    return 0;
  }
  try {
    std::uint32_t const count = p->AddRef();
    p->Release();
    return count - 1;
  } catch (...) {
    return 0;
  }
}

IQEFUnknown * CPIQEFUnknown::_addRef(IQEFUnknown * p) const {
  if (!p) {
    return nullptr;
  }
  try {
    void * out = nullptr;
    std::int32_t const result = p->QueryInterface(GetType(), &out);
    return result >= 0 ? static_cast<IQEFUnknown *>(out) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

IQEFUnknown * CPIQEFUnknown::_getptr() const {
  if (_marked(m_pI)) {
    return _bare(m_pI);
  }
  if (!m_pI) {
    return nullptr;
  }
  IQEFUnknown * const raw = m_pI;
  IQEFUnknown * const narrowed = _addRef(raw);
  _releaseQuietly(raw);
  m_pI = _mark(narrowed);
  return narrowed;
}

void CPIQEFUnknown::_assign(IQEFUnknown * p) {
  IQEFUnknown * const held = _bare(m_pI);
  m_pI = _mark(p);
  _releaseQuietly(held);
}

bool CPIQEFUnknown::_create(_qefUID const & cls, IQEFComponentFactory * factory, bool instance) {
  free();
  if (!factory) {
    return false;
  }
  void * out = nullptr;
  std::int32_t const result = _guarded(
      [&] {
        return instance ? factory->CreateInstance(cls, nullptr, IID_IQEFUnknown, &out)
                        : factory->CreateComponent(cls, nullptr, IID_IQEFUnknown, &out);
      },
      kFailed);
  if (result < 0) {
    return false;
  }
  m_pI = static_cast<IQEFUnknown *>(out);
  return m_pI != nullptr;
}

bool CPIQEFUnknown::createComponent(_qefUID const & cls, IQEFComponentFactory * factory) {
  return _create(cls, factory, false);
}

bool CPIQEFUnknown::createInstance(_qefUID const & cls, IQEFComponentFactory * factory) {
  return _create(cls, factory, true);
}

bool CPIQEFUnknown::createComponent(_qefUID const & cls) {
  IQEFComponentFactory * factory = nullptr;
  if (!Factory_Acquire(&factory)) {
    free();
    return false;
  }
  bool const created = _create(cls, factory, false);
  _releaseQuietly(factory);
  return created;
}

bool CPIQEFUnknown::createInstance(_qefUID const & cls) {
  IQEFComponentFactory * factory = nullptr;
  if (!Factory_Acquire(&factory)) {
    free();
    return false;
  }
  bool const created = _create(cls, factory, true);
  _releaseQuietly(factory);
  return created;
}

// IPQEF

bool IPQEF::QueryRawInterface(void ** out) const {
  if (!out) {
    return false;
  }
  IQEFUnknown * const p = _getptr();
  *out = _addRefQuietly(p) ? p : nullptr;
  return *out != nullptr;
}

// ---------------------------------------------------------------------------------------------
// The factory slot

bool CPIQEFUnknown::Factory_Set(IQEFComponentFactory * factory) {
  if (!factory) {
    return false;
  }
  _cFactoryGuard const guard;
  if (!guard) {
    return false;
  }
  IQEFComponentFactory * current = g_pFactory.load();
  if (!current) {
    if (g_uFactoryLock != 0) {
      RTABox("Runtime assumption failed", "g_uFactoryLock == 0");
    }
    if (!_addRefQuietly(factory)) {
      return false;
    }
    g_pFactory.store(factory);
    current = factory;
  }
  if (current != factory) {
    return false;
  }
  ++g_uFactoryLock;
  return true;
}

bool CPIQEFUnknown::Factory_Set(IQEFUnknown * factory) {
  if (!factory) {
    return false;
  }
  void * out = nullptr;
  if (_guarded([&] { return factory->QueryInterface(IID_IQEFComponentFactory, &out); }, kFailed) <
          0 ||
      !out) {
    return false;
  }
  IQEFComponentFactory * const narrowed = static_cast<IQEFComponentFactory *>(out);
  bool const set = Factory_Set(narrowed);
  _releaseQuietly(narrowed);
  return set;
}

bool CPIQEFUnknown::Factory_Set(CPIQEFUnknown & factory) {
  return Factory_Set(factory._getptr());
}

bool CPIQEFUnknown::Factory_Release() {
  _cFactoryGuard const guard;
  if (guard && g_uFactoryLock > 0) {
    if (--g_uFactoryLock == 0) {
      _releaseQuietly(g_pFactory.exchange(nullptr));
    }
  }
  return true;
}

bool CPIQEFUnknown::Factory_IsAvailable() {
  return g_pFactory.load() != nullptr;
}

bool CPIQEFUnknown::Factory_Acquire(IQEFComponentFactory ** out) {
  if (!out) {
    return false;
  }
  *out = nullptr;
  _cFactoryGuard const guard;
  if (!guard) {
    return false;
  }
  IQEFComponentFactory * const factory = g_pFactory.load();
  if (!_addRefQuietly(factory)) {
    return false;
  }
  *out = factory;
  return true;
}

bool CPIQEFUnknown::Factory_Acquire(CPIQEFUnknown & handle) {
  IQEFComponentFactory * factory = nullptr;
  if (!Factory_Acquire(&factory)) {
    handle.free();
    return false;
  }
  handle = static_cast<IQEFUnknown *>(factory);
  _releaseQuietly(factory);
  return static_cast<bool>(handle);
}

// ---------------------------------------------------------------------------------------------
// Definitions

CPIQEFUnknown CPIQEFUnknown::Factory_EnumDefinitions(_qefUID const & id) {
  CPIQEFUnknown result;
  IQEFComponentFactory * factory = nullptr;
  if (!Factory_Acquire(&factory)) {
    return result;
  }
  void * out = nullptr;
  if (_guarded([&] { return factory->EnumDefinitions(id, &out); }, kFailed) >= 0 && out) {
    *result.rec() = static_cast<IQEFUnknown *>(out);
  }
  _releaseQuietly(factory);
  return result;
}

CPIQEFUnknown CPIQEFUnknown::Factory_FindDefinition(_qefUID const & cls) {
  CPIQEFUnknown result;
  IQEFComponentFactory * factory = nullptr;
  if (!Factory_Acquire(&factory)) {
    return result;
  }
  void * out = nullptr;
  if (_guarded([&] { return factory->FindDefinition(cls, IID_IQEFDefinition, &out); }, kFailed) >=
          0 &&
      out) {
    *result.rec() = static_cast<IQEFUnknown *>(out);
  }
  _releaseQuietly(factory);
  return result;
}

namespace {

// Reads from `definition`'s `IQEFDefinition` interface; false when it has none.
class _cDefinitionReader {
public:
  explicit _cDefinitionReader(IQEFUnknown * definition) {
    if (definition) {
      void * out = nullptr;
      if (_guarded([&] { return definition->QueryInterface(IID_IQEFDefinition, &out); }, kFailed) >=
          0) {
        m_p = static_cast<IQEFUnknown *>(out);
      }
    }
  }
  ~_cDefinitionReader() { _releaseQuietly(m_p); }
  _cDefinitionReader(_cDefinitionReader const &) = delete;
  _cDefinitionReader & operator=(_cDefinitionReader const &) = delete;

  bool Identifier(_qefUID const & attribute, _qefUID & value) const {
    _qefUID read{};
    if (!_readAttribute(m_p, attribute, TYPEID_Identifier, &read, sizeof read)) {
      return false;
    }
    value = read;
    return true;
  }
  bool Number(_qefUID const & attribute, std::uint32_t & value) const {
    std::uint32_t read = 0;
    if (!_readAttribute(m_p, attribute, TYPEID_UInt32, &read, sizeof read)) {
      return false;
    }
    value = read;
    return true;
  }
  // Up to 512 bytes of wide text, always terminated.
  bool Text(_qefUID const & attribute, String::CQEFWChar & value) const {
    qefWChar read[256] = {};
    if (!_readAttribute(m_p, attribute, TYPEID_Text, read, sizeof read)) {
      return false;
    }
    read[255] = 0;
    value = static_cast<qefWChar const *>(read);
    return true;
  }

private:
  IQEFUnknown * m_p = nullptr;
};

} // namespace

bool CPIQEFUnknown::Factory_FindClass(_qefUID const & id, _qefUID & cls) {
  cls = _qefUID{};
  CPIQEFUnknown definition = Factory_FindDefinition(id);
  _cDefinitionReader const reader(definition._getptr());
  _qefUID read{};
  if (!reader.Identifier(ATTRID_ClassID, read)) {
    return false;
  }
  cls = read;
  return true;
}

bool CPIQEFUnknown::Factory_GetComponentInfo(_qefUID const & cls, COMPONENT_INFO & info) {
  if (info.sSizeStruct != sizeof(COMPONENT_INFO)) {
    CPIQEFUnknown none;
    return Factory_GetComponentInfo(none, info);
  }
  CPIQEFUnknown definition = Factory_FindDefinition(cls);
  return Factory_GetComponentInfo(definition, info);
}

bool CPIQEFUnknown::Factory_GetComponentInfo(CPIQEFUnknown & definition, COMPONENT_INFO & info) {
  if (Develop::_istrue_(info.sSizeStruct != sizeof(COMPONENT_INFO),
                        "CPQEF,551:CompInfo.sSizeStruct != sizeof(COMPONENT_INFO)")) {
    return false;
  }
  _cDefinitionReader const reader(definition._getptr());
  if (!reader.Text(ATTRID_Name, info.strName) ||
      !reader.Identifier(ATTRID_Identifier1, info.uidFirst) ||
      !reader.Identifier(ATTRID_Identifier2, info.uidSecond) ||
      !reader.Identifier(ATTRID_Related, info.uidRelated)) {
    return false;
  }
  CPIQEFUnknown relatedDefinition = Factory_FindDefinition(info.uidRelated);
  _cDefinitionReader const related(relatedDefinition._getptr());
  if (!related.Text(ATTRID_RelatedText, info.strRelatedText) ||
      !related.Text(ATTRID_Name, info.strRelatedName) ||
      !related.Identifier(ATTRID_RelatedIdentifier, info.uidRelatedIdentifier) ||
      !related.Number(ATTRID_Value1, info.ulValue1) ||
      !related.Number(ATTRID_Value2, info.ulValue2)) {
    return false;
  }
  if (!related.Number(ATTRID_Value3, info.ulValue3)) {
    info.ulValue3 = 0;
    info.ulValue4 = 0;
  } else if (!related.Number(ATTRID_Value4, info.ulValue4)) {
    info.ulValue4 = 0;
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// The class registry

bool CPIQEFUnknown::Factory_RegisterClass(_qefUID const & cls, _qefUID const & second,
                                          String::CPPoolString const & name,
                                          qefCreateFunction create) {
  if (!_isNamed(name)) {
    String::CQEFWChar const text = cqefuid(cls);
    Develop::_logWrite(qefDL_Error, u"VORX", "CPQEF", __LINE__,
                       u"Factory_RegisterClass: ClassNames are mandatory! %ls",
                       static_cast<qefWChar const *>(text));
    return false;
  }
  if (!g_registryLock->Enter()) {
    return false;
  }
  bool added = false;
  try {
    CPObjectMemory const record = _cPClassRecord::Make(cls, second, name, create);
    added = record && g_registry->Add(_classHash(cls), record) == record;
  } catch (...) {
    added = false;
  }
  g_registryLock->Leave();
  return added;
}

bool CPIQEFUnknown::Factory_FindRegisteredClass(_qefUID const & cls, _qefUID * second,
                                                String::CPPoolString * name,
                                                qefCreateFunction * create) {
  CPObjectMemory const probe =
      _cPClassRecord::Make(cls, qefUID_null, String::CPPoolString(), nullptr);
  if (!probe || !g_registryLock->EnterRead()) {
    return false;
  }
  CPObjectMemory const found = g_registry->Find(_classHash(cls), probe);
  g_registryLock->LeaveRead();
  SClassRegister const * const record = _cPClassRecord::Get(found);
  if (!record) {
    return false;
  }
  if (second) {
    *second = record->second;
  }
  if (name) {
    *name = record->name;
  }
  if (create) {
    *create = record->create;
  }
  return true;
}

CPIQEFUnknown CPIQEFUnknown::Factory_CreateRegisteredClass(_qefUID const & cls) {
  qefCreateFunction create = nullptr;
  if (!Factory_FindRegisteredClass(cls, nullptr, nullptr, &create) || !create) {
    return CPIQEFUnknown();
  }
  try {
    return create(cls);
  } catch (...) {
    return CPIQEFUnknown();
  }
}

} // namespace VORX::QEF
