// Test components: a counted component that records the calls made on it, an uncounted one,
// an interface that throws on demand, and a host factory with class definitions.
#pragma once

#include <atomic>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <vorx/qef.h>

namespace qeftest {

using namespace VORX::QEF;

constexpr _qefUID Id(std::uint32_t n) {
  return _qefUID{n, 0x1067u, 0x4000u, {0xB3u, 0x1Du, 0, 0, 0, 0, 0, 0xDAu}};
}
inline constexpr _qefUID IID_ITestValue = Id(1); // offered by `CCounter`
inline constexpr _qefUID IID_INothing = Id(2);   // offered by nothing
inline constexpr _qefUID CLSID_Counter = Id(3);  // the class the test factory makes
inline constexpr _qefUID CLSID_Related = Id(4);  // a second definition

struct ITestValue : IQEFUnknown {
  virtual int Value() = 0;

protected:
  ~ITestValue() = default;
};

// What happened to counted components, kept by the test so that it outlives them. `events`
// ('A' AddRef, 'R' Release, 'Q' an answered query, 'q' a refused one) is kept only while
// `record` is set, by single-threaded tests.
struct Probe {
  std::atomic<int> addRefs{0}; // AddRef calls and answered queries
  std::atomic<int> releases{0};
  std::atomic<int> destroyed{0};
  std::string events;
  bool record = true;
};

// A counted heap component offering the root interface and `ITestValue` (a second address).
class CCounter final : public _cQEFUnknown, public ITestValue {
public:
  // Made with one reference, the creator's.
  static CCounter * New(Probe & probe) { return new CCounter(probe); }
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    std::int32_t const result = _query(id, out);
    _note(result >= 0 ? 'Q' : 'q', result >= 0 ? &m_probe.addRefs : nullptr);
    return result;
  }
  std::uint32_t AddRef() override {
    _note('A', &m_probe.addRefs);
    return _addRef();
  }
  std::uint32_t Release() override {
    _note('R', &m_probe.releases);
    return _release();
  }
  int Value() override { return 7; }
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
  // The count the object holds, read without recording.
  std::uint32_t Count() const {
    std::uint32_t const count = _addRef();
    _release();
    return count - 1;
  }

private:
  explicit CCounter(Probe & probe) : _cQEFUnknown(1), m_probe(probe) {}
  ~CCounter() = default;
  void _note(char event, std::atomic<int> * counter) {
    if (counter) {
      counter->fetch_add(1);
    }
    if (m_probe.record) {
      m_probe.events += event;
    }
  }
  Probe & m_probe;
};

// An uncounted component (count 0), as a static or stack object is.
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

// Counted by hand; its `Release` or `QueryInterface` throws on demand.
class CThrower final : public IQEFUnknown {
public:
  std::int32_t QueryInterface(_qefUID const &, void ** out) override {
    if (throwOnQuery) {
      throw std::runtime_error("query");
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

// Counted by hand, so that a test sees every reference come back.
template <class I> class CHandCounted : public I {
public:
  std::uint32_t AddRef() override { return count.fetch_add(1) + 1; }
  std::uint32_t Release() override { return count.fetch_sub(1) - 1; }
  std::int32_t Offer(_qefUID const & id, _qefUID const & own, void ** out) {
    bool const offered = _sameUID(id, IID_IQEFUnknown) || _sameUID(id, own);
    *out = offered ? static_cast<I *>(this) : nullptr;
    if (!offered) {
      return QEF_E_NOINTERFACE;
    }
    AddRef();
    return QEF_S_OK;
  }
  std::atomic<std::uint32_t> count{0};

protected:
  ~CHandCounted() = default;
};

// A definition: attributes by the first word of their id, each a value type and its bytes.
class CDefinition final : public CHandCounted<IQEFDefinition> {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    return Offer(id, IID_IQEFDefinition, out);
  }
  std::int32_t GetDefinitionID(_qefUID * id) override {
    *id = CLSID_Counter;
    return QEF_S_OK;
  }
  std::int32_t HasAttribute(_qefUID const & attribute) override {
    return attributes.count(attribute.Data1) ? 0 : 1;
  }
  std::int32_t GetAttribute(_qefUID const & attribute, _qefUID const & type, void * buffer,
                            std::uint32_t bytes) override {
    auto const found = attributes.find(attribute.Data1);
    if (found == attributes.end() || !_sameUID(found->second.type, type) ||
        found->second.bytes.size() > bytes) {
      return static_cast<std::int32_t>(0x80004005u);
    }
    std::memcpy(buffer, found->second.bytes.data(), found->second.bytes.size());
    return QEF_S_OK;
  }
  template <class T> void Set(_qefUID const & attribute, _qefUID const & type, T const & value) {
    auto const * bytes = reinterpret_cast<unsigned char const *>(&value);
    attributes[attribute.Data1] = {type, std::vector<unsigned char>(bytes, bytes + sizeof(T))};
  }
  void SetText(_qefUID const & attribute, std::u16string const & text) {
    auto const * bytes = reinterpret_cast<unsigned char const *>(text.c_str());
    attributes[attribute.Data1] = {TYPEID_Text, {bytes, bytes + 2 * (text.size() + 1)}};
  }
  struct Value {
    _qefUID type;
    std::vector<unsigned char> bytes;
  };
  std::map<std::uint32_t, Value> attributes;
};

// The host's factory: makes `CCounter`s of `CLSID_Counter` through slot 3 and 4 (counting
// each), finds the definitions it holds, enumerates as a fresh counter. `fail` makes every
// slot fail, `throws` throw.
class CTestFactory final : public CHandCounted<IQEFComponentFactory> {
public:
  explicit CTestFactory(Probe & made) : m_made(made) { m_made.record = false; }
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    return Offer(id, IID_IQEFComponentFactory, out);
  }
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
    auto const found = definitions.find(cls.Data1);
    if (throws || fail || found == definitions.end()) {
      *out = nullptr;
      return static_cast<std::int32_t>(0x80004005u);
    }
    return found->second->QueryInterface(id, out);
  }
  std::int32_t EnumDefinitions(_qefUID const &, void ** out) override {
    return _create(CLSID_Counter, nullptr, IID_IQEFUnknown, out);
  }
  std::map<std::uint32_t, CDefinition *> definitions;
  std::atomic<int> components{0}, instances{0}, lookups{0}, created{0};
  bool fail = false;
  bool throws = false;

private:
  std::int32_t _create(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id, void ** out) {
    if (throws) {
      throw std::runtime_error("factory");
    }
    if (fail || outer || !_sameUID(cls, CLSID_Counter)) {
      *out = nullptr;
      return QEF_E_CLASSNOTAVAILABLE;
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
