// Test components: a counted component that records every call made on it, an uncounted one,
// interfaces that throw, and a host factory with class definitions.
#pragma once

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <vorx/qef.h>

namespace qeftest {

using namespace VORX::QEF;

// 6B29FC40-CA47-1067-B31D-00DD010662DA: a test interface with one operation.
inline constexpr _qefUID IID_ITestValue{
    0x6B29FC40u, 0xCA47u, 0x1067u, {0xB3u, 0x1Du, 0x00u, 0xDDu, 0x01u, 0x06u, 0x62u, 0xDAu}};
// 6B29FC41-CA47-1067-B31D-00DD010662DA: an interface nothing offers.
inline constexpr _qefUID IID_INothing{
    0x6B29FC41u, 0xCA47u, 0x1067u, {0xB3u, 0x1Du, 0x00u, 0xDDu, 0x01u, 0x06u, 0x62u, 0xDAu}};
// Class ids the test factory knows.
inline constexpr _qefUID CLSID_Counter{
    0x0000C001u, 0x0001u, 0x0002u, {0x80u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x01u}};
inline constexpr _qefUID CLSID_Related{
    0x0000C002u, 0x0001u, 0x0002u, {0x80u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x00u, 0x02u}};

struct ITestValue : IQEFUnknown {
  virtual int Value() = 0;

protected:
  ~ITestValue() = default;
};

// What happened to one counted component, kept by the test so that it outlives the object.
// `events` is written by single-threaded tests only: 'A' AddRef, 'R' Release, 'Q' an answered
// query (with its reference), 'q' a refused query.
struct Probe {
  std::atomic<int> addRefs{0};
  std::atomic<int> releases{0};
  std::atomic<int> destroyed{0};
  std::string events;
  bool record = true;
};

// A counted heap component offering the root interface and `ITestValue` (a different address).
class CCounter final : public _cQEFUnknown, public ITestValue {
public:
  // Created with one reference, the creator's.
  static CCounter * New(Probe & probe, int value = 7) { return new CCounter(probe, value); }

  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    std::int32_t const result = _query(id, out);
    _note(result >= 0 ? 'Q' : 'q');
    if (result >= 0) {
      m_probe.addRefs.fetch_add(1);
    }
    return result;
  }
  std::uint32_t AddRef() override {
    _note('A');
    m_probe.addRefs.fetch_add(1);
    return _addRef();
  }
  std::uint32_t Release() override {
    _note('R');
    m_probe.releases.fetch_add(1);
    return _release();
  }
  int Value() override { return m_value; }
  void _destroy() const override {
    m_probe.destroyed.fetch_add(1);
    delete this;
  }
  void * _queryinterface(_qefUID const & id) const override {
    if (_sameUID(id, IID_ITestValue)) {
      return static_cast<ITestValue *>(const_cast<CCounter *>(this));
    }
    return _cQEFUnknown::_queryinterface(id);
  }
  _qefUID const & GetClassID() const override { return CLSID_Counter; }

  // The count as the object holds it (AddRef then Release, not recorded).
  std::uint32_t Count() const {
    std::uint32_t const count = _addRef();
    _release();
    return count == 0 ? 0 : count - 1;
  }

private:
  CCounter(Probe & probe, int value) : _cQEFUnknown(1), m_probe(probe), m_value(value) {}
  ~CCounter() = default;
  void _note(char event) {
    if (m_probe.record) {
      m_probe.events += event;
    }
  }
  Probe & m_probe;
  int m_value;
};

// An uncounted component (count 0): a static or stack object.
class CUncounted final : public _cQEFUnknown {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override { return _query(id, out); }
  std::uint32_t AddRef() override { return _addRef(); }
  std::uint32_t Release() override { return _release(); }
  void _destroy() const override { ++destroyed; }
  _qefUID const & GetClassID() const override { return CLSID_Related; }
  using _cQEFUnknown::_addRef;
  using _cQEFUnknown::_queryinterfaceadd;
  using _cQEFUnknown::_release;
  mutable int destroyed = 0;
};

// An interface whose `Release` or `QueryInterface` throws on demand; counted by hand.
class CThrower final : public IQEFUnknown {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (throwOnQuery) {
      throw std::runtime_error("query");
    }
    if (!_sameUID(id, IID_IQEFUnknown)) {
      *out = nullptr;
      return QEF_E_NOINTERFACE;
    }
    *out = this;
    ++count;
    return QEF_S_OK;
  }
  std::uint32_t AddRef() override { return ++count; }
  std::uint32_t Release() override {
    --count;
    if (throwOnRelease) {
      throw std::runtime_error("release");
    }
    return count;
  }
  bool throwOnQuery = false;
  bool throwOnRelease = false;
  std::uint32_t count = 0;
  virtual ~CThrower() = default;
};

// A definition: attributes by id, each a value type and its bytes. Counted by hand, kept by
// the factory.
class CDefinition final : public IQEFDefinition {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (_sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFDefinition)) {
      *out = static_cast<IQEFDefinition *>(this);
      count.fetch_add(1);
      return QEF_S_OK;
    }
    *out = nullptr;
    return QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return count.fetch_add(1) + 1; }
  std::uint32_t Release() override { return count.fetch_sub(1) - 1; }
  std::int32_t GetDefinitionID(_qefUID * id) override {
    *id = self;
    return QEF_S_OK;
  }
  std::int32_t HasAttribute(_qefUID const & attribute) override {
    return attributes.count(cqefuid(attribute)) ? 0 : 1;
  }
  std::int32_t GetAttribute(_qefUID const & attribute, _qefUID const & type, void * buffer,
                            std::uint32_t bytes) override {
    auto const found = attributes.find(cqefuid(attribute));
    if (found == attributes.end() || !_sameUID(found->second.type, type) ||
        found->second.bytes.size() > bytes) {
      return static_cast<std::int32_t>(0x80004005u);
    }
    std::memcpy(buffer, found->second.bytes.data(), found->second.bytes.size());
    return QEF_S_OK;
  }

  void SetIdentifier(_qefUID const & attribute, _qefUID const & value) {
    _set(attribute, TYPEID_Identifier, &value, sizeof value);
  }
  void SetNumber(_qefUID const & attribute, std::uint32_t value) {
    _set(attribute, TYPEID_UInt32, &value, sizeof value);
  }
  void SetText(_qefUID const & attribute, std::u16string const & text) {
    _set(attribute, TYPEID_Text, text.c_str(), (text.size() + 1) * sizeof(char16_t));
  }

  struct Value {
    _qefUID type;
    std::vector<unsigned char> bytes;
  };
  struct Less {
    bool operator()(cqefuid const & a, cqefuid const & b) const {
      return std::memcmp(&static_cast<_qefUID const &>(a), &static_cast<_qefUID const &>(b),
                         sizeof(_qefUID)) < 0;
    }
  };
  std::map<cqefuid, Value, Less> attributes;
  _qefUID self{};
  std::atomic<std::uint32_t> count{0};

private:
  void _set(_qefUID const & attribute, _qefUID const & type, void const * data, std::size_t n) {
    auto const * bytes = static_cast<unsigned char const *>(data);
    attributes[cqefuid(attribute)] = Value{type, std::vector<unsigned char>(bytes, bytes + n)};
  }
};

// The host's factory: creates `CCounter` for `CLSID_Counter` (slot 3 and 4 alike, counting
// which was used), finds the definitions it holds, enumerates as a fresh counter. Counted by
// hand (a static object in the host); `fail` makes every slot fail, `throws` throw.
class CTestFactory final : public IQEFComponentFactory {
public:
  explicit CTestFactory(Probe & made) : m_made(made) { m_made.record = false; }
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (_sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFComponentFactory)) {
      *out = static_cast<IQEFComponentFactory *>(this);
      count.fetch_add(1);
      return QEF_S_OK;
    }
    *out = nullptr;
    return QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return count.fetch_add(1) + 1; }
  std::uint32_t Release() override { return count.fetch_sub(1) - 1; }
  std::int32_t CreateComponent(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                               void ** out) override {
    components.fetch_add(1);
    return _create(cls, outer, id, out);
  }
  std::int32_t CreateInstance(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                              void ** out) override {
    instances.fetch_add(1);
    return _create(cls, outer, id, out);
  }
  std::int32_t LockFactory(std::int32_t) override { return QEF_S_OK; }
  std::int32_t FindDefinition(_qefUID const & cls, _qefUID const & id, void ** out) override {
    lookups.fetch_add(1);
    _check();
    auto const found = definitions.find(cqefuid(cls));
    if (fail || found == definitions.end()) {
      *out = nullptr;
      return static_cast<std::int32_t>(0x80004005u);
    }
    return found->second->QueryInterface(id, out);
  }
  std::int32_t EnumDefinitions(_qefUID const &, void ** out) override {
    lookups.fetch_add(1);
    return _create(CLSID_Counter, nullptr, IID_IQEFUnknown, out);
  }

  std::map<cqefuid, CDefinition *, CDefinition::Less> definitions;
  std::atomic<std::uint32_t> count{0};
  std::atomic<int> components{0};
  std::atomic<int> instances{0};
  std::atomic<int> lookups{0};
  std::atomic<int> created{0}; // components made, by any slot
  bool fail = false;
  bool throws = false;

private:
  void _check() {
    if (throws) {
      throw std::runtime_error("factory");
    }
  }
  std::int32_t _create(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id, void ** out) {
    _check();
    if (fail || outer || !_sameUID(cls, CLSID_Counter)) {
      *out = nullptr;
      return static_cast<std::int32_t>(0x80040111u);
    }
    CCounter * const made = CCounter::New(m_made);
    created.fetch_add(1);
    std::int32_t const result = made->QueryInterface(id, out);
    made->Release();
    return result;
  }
  Probe & m_made;
};

} // namespace qeftest
