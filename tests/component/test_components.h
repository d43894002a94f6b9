// Test components: a counted component that records the calls made on it, one counted by hand
// that throws on demand, and a host factory with class definitions.
#pragma once

#include <atomic>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include <vorx/qef.h>

namespace qeftest {

using namespace VORX::QEF;

constexpr _qefUID Id(std::uint32_t n) {
  return _qefUID{n, 0x1067u, 0x4000u, {0xB3u, 0x1Du, 0, 0, 0, 0, 0, 0xDAu}};
}
inline constexpr _qefUID IID_ITestValue = Id(1); // offered by `CCounter`
inline constexpr _qefUID IID_INothing = Id(2);   // offered by nothing
inline constexpr _qefUID CLSID_Counter = Id(3);  // the class the test factory makes
inline constexpr _qefUID CLSID_Related = Id(4);  // another class

struct ITestValue : IQEFUnknown {
  virtual int Value() = 0;

protected:
  ~ITestValue() = default;
};

// What happened to counted components, kept by the test so that it outlives them. `events`
// ('A' AddRef, 'R' Release, 'Q' an answered query) is kept only while `record` is set, by
// single-threaded tests.
struct Probe {
  std::atomic<int> destroyed{0};
  std::string events;
  bool record = false;
};

// A counted heap component offering the root interface and `ITestValue` (a second address).
class CCounter final : public _cQEFUnknown, public ITestValue {
public:
  // Made with one reference, the creator's.
  static CCounter * New(Probe & probe) { return new CCounter(probe); }
  // Makes one and answers `QueryInterface(id, out)` on it.
  static std::int32_t Make(Probe & probe, _qefUID const & id, void ** out) {
    CCounter * const made = New(probe);
    std::int32_t const result = made->QueryInterface(id, out);
    made->Release();
    return result;
  }
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    std::int32_t const result = _query(id, out);
    _note(result >= 0 ? "Q" : "");
    return result;
  }
  std::uint32_t AddRef() override {
    _note("A");
    return _addRef();
  }
  std::uint32_t Release() override {
    _note("R");
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

private:
  explicit CCounter(Probe & probe) : _cQEFUnknown(1), m_probe(probe) {}
  ~CCounter() = default;
  void _note(char const * event) {
    if (m_probe.record) {
      m_probe.events += event;
    }
  }
  Probe & m_probe;
};

// Counted by hand, so that a test sees every reference come back. Offers the root interface
// and `own`, or everything asked for when `own` is null; throws on demand.
template <class I> class CHandCounted : public I {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (throwOnQuery) {
      throw std::runtime_error("query");
    }
    bool const offered =
        _sameUID(id, IID_IQEFUnknown) || _sameUID(id, own) || _sameUID(own, qefUID_null);
    *out = offered ? static_cast<I *>(this) : nullptr;
    if (offered) {
      AddRef();
    }
    return offered ? QEF_S_OK : QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return count.fetch_add(1) + 1; }
  std::uint32_t Release() override {
    std::uint32_t const left = count.fetch_sub(1) - 1;
    if (throwOnRelease) {
      throw std::runtime_error("release");
    }
    return left;
  }
  _qefUID own = qefUID_null;
  std::atomic<std::uint32_t> count{0};
  bool throwOnQuery = false;
  bool throwOnRelease = false;
  virtual ~CHandCounted() = default;
};

using CThrower = CHandCounted<IQEFUnknown>;

// A definition: attributes by the first word of their id, each a value type and its bytes (a
// text is set as a terminated array).
class CDefinition final : public CHandCounted<IQEFDefinition> {
public:
  CDefinition() { own = IID_IQEFDefinition; }
  // Not asked for by the library.
  std::int32_t GetDefinitionID(_qefUID *) override { return QEF_E_NOINTERFACE; }
  std::int32_t HasAttribute(_qefUID const &) override { return QEF_E_NOINTERFACE; }
  std::int32_t GetAttribute(_qefUID const & attribute, _qefUID const & type, void * buffer,
                            std::uint32_t bytes) override {
    auto const found = attributes.find(attribute.Data1);
    if (found == attributes.end() || !_sameUID(found->second.first, type) ||
        found->second.second.size() > bytes) {
      return static_cast<std::int32_t>(0x80004005u);
    }
    std::memcpy(buffer, found->second.second.data(), found->second.second.size());
    return QEF_S_OK;
  }
  template <class T> void Set(_qefUID const & attribute, _qefUID const & type, T const & value) {
    attributes[attribute.Data1] = {type, {reinterpret_cast<char const *>(&value), sizeof(T)}};
  }
  std::map<std::uint32_t, std::pair<_qefUID, std::string>> attributes;
};

// The host's factory: makes `CCounter`s of `CLSID_Counter` (counted in `made`) through slot 3
// and 4 (counting each), finds the definitions it holds, enumerates nothing.
// `throws` makes the creating slots throw.
class CTestFactory final : public CHandCounted<IQEFComponentFactory> {
public:
  CTestFactory() { own = IID_IQEFComponentFactory; }
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
    auto const found = definitions.find(cls.Data1);
    *out = nullptr;
    return found == definitions.end() ? QEF_E_NOINTERFACE : found->second->QueryInterface(id, out);
  }
  std::int32_t EnumDefinitions(_qefUID const &, void **) override { return QEF_E_NOINTERFACE; }
  std::map<std::uint32_t, CDefinition *> definitions;
  std::atomic<int> components{0}, instances{0}, created{0};
  Probe made;
  bool throws = false;

private:
  std::int32_t _create(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id, void ** out) {
    if (throws) {
      throw std::runtime_error("factory");
    }
    *out = nullptr;
    if (outer || !_sameUID(cls, CLSID_Counter)) {
      return QEF_E_CLASSNOTAVAILABLE;
    }
    created.fetch_add(1);
    return CCounter::Make(made, id, out);
  }
};

} // namespace qeftest
