// A small host of the VORX component framework: it supplies the process's component factory
// with one component class and its definitions, creates the component through an interface
// pointer, narrows it to its own interface, registers the class with the library and reads the
// class's information record. Prints what it does; exits 1 at the first thing that goes wrong.
#include <vorx/vorx.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

using namespace VORX::QEF;

namespace {

// 8C2E61B0-5E1A-4D8F-9A57-3C0B9F1D2A01: the frame counter's interface.
constexpr _qefUID IID_IFrameCounter{
    0x8C2E61B0u, 0x5E1Au, 0x4D8Fu, {0x9Au, 0x57u, 0x3Cu, 0x0Bu, 0x9Fu, 0x1Du, 0x2Au, 0x01u}};
// 8C2E61B1-5E1A-4D8F-9A57-3C0B9F1D2A01: the frame counter's class.
constexpr _qefUID CLSID_FrameCounter{
    0x8C2E61B1u, 0x5E1Au, 0x4D8Fu, {0x9Au, 0x57u, 0x3Cu, 0x0Bu, 0x9Fu, 0x1Du, 0x2Au, 0x01u}};
// 8C2E61B2-5E1A-4D8F-9A57-3C0B9F1D2A01: the definition of the family the class belongs to.
constexpr _qefUID DEFID_Counters{
    0x8C2E61B2u, 0x5E1Au, 0x4D8Fu, {0x9Au, 0x57u, 0x3Cu, 0x0Bu, 0x9Fu, 0x1Du, 0x2Au, 0x01u}};

// The component's own interface.
struct IFrameCounter : IQEFUnknown {
  virtual std::uint32_t Advance(std::uint32_t frames) = 0;

protected:
  ~IFrameCounter() = default;
};

std::atomic<int> g_alive{0}; // frame counters alive now

// The component: counted, created with one reference (its creator's).
class CFrameCounter final : public _cQEFUnknown, public IFrameCounter {
public:
  CFrameCounter() : _cQEFUnknown(1) { ++g_alive; }
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override { return _query(id, out); }
  std::uint32_t AddRef() override { return _addRef(); }
  std::uint32_t Release() override { return _release(); }
  std::uint32_t Advance(std::uint32_t frames) override { return m_frames += frames; }
  void _destroy() const override { delete this; }
  void * _queryinterface(_qefUID const & id) const override {
    if (_sameUID(id, IID_IFrameCounter)) {
      return static_cast<IFrameCounter *>(const_cast<CFrameCounter *>(this));
    }
    return _cQEFUnknown::_queryinterface(id);
  }
  _qefUID const & GetClassID() const override { return CLSID_FrameCounter; }

private:
  ~CFrameCounter() { --g_alive; }
  std::uint32_t m_frames = 0;
};

// A class definition: a static object answering a fixed set of attributes.
class CDefinition final : public IQEFDefinition {
public:
  CDefinition(_qefUID const & self, char16_t const * name, _qefUID const & related)
      : m_self(self), m_name(name), m_related(related) {}
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (!out) {
      return QEF_E_POINTER;
    }
    bool const offered = _sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFDefinition);
    *out = offered ? static_cast<IQEFDefinition *>(this) : nullptr;
    return offered ? QEF_S_OK : QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return 0; } // static: never counted
  std::uint32_t Release() override { return 0; }
  std::int32_t GetDefinitionID(_qefUID * id) override {
    *id = m_self;
    return QEF_S_OK;
  }
  std::int32_t HasAttribute(_qefUID const & attribute) override {
    return _sameUID(attribute, ATTRID_Value4) ? 1 : 0;
  }
  std::int32_t GetAttribute(_qefUID const & attribute, _qefUID const & type, void * buffer,
                            std::uint32_t bytes) override {
    if (_sameUID(attribute, ATTRID_Name) || _sameUID(attribute, ATTRID_RelatedText)) {
      char16_t const * text = _sameUID(attribute, ATTRID_Name) ? m_name : u"frames since start";
      std::size_t const size = (std::char_traits<char16_t>::length(text) + 1) * sizeof(char16_t);
      return _copy(type, TYPEID_Text, buffer, bytes, text, size);
    }
    if (_sameUID(attribute, ATTRID_ClassID) || _sameUID(attribute, ATTRID_Identifier1)) {
      return _copy(type, TYPEID_Identifier, buffer, bytes, &m_self, sizeof m_self);
    }
    if (_sameUID(attribute, ATTRID_Identifier2)) {
      return _copy(type, TYPEID_Identifier, buffer, bytes, &IID_IFrameCounter, 16);
    }
    if (_sameUID(attribute, ATTRID_Related) || _sameUID(attribute, ATTRID_RelatedIdentifier)) {
      return _copy(type, TYPEID_Identifier, buffer, bytes, &m_related, sizeof m_related);
    }
    std::uint32_t value = 0;
    if (_sameUID(attribute, ATTRID_Value1)) {
      value = 25; // frames per second
    } else if (_sameUID(attribute, ATTRID_Value2)) {
      value = 1;
    } else if (_sameUID(attribute, ATTRID_Value3)) {
      value = 2;
    } else {
      return static_cast<std::int32_t>(0x80004005u); // no such attribute (Value4 among them)
    }
    return _copy(type, TYPEID_UInt32, buffer, bytes, &value, sizeof value);
  }

private:
  static std::int32_t _copy(_qefUID const & asked, _qefUID const & type, void * buffer,
                            std::uint32_t bytes, void const * value, std::size_t size) {
    if (!_sameUID(asked, type) || !buffer || size > bytes) {
      return static_cast<std::int32_t>(0x80070057u);
    }
    std::memcpy(buffer, value, size);
    return QEF_S_OK;
  }
  _qefUID m_self;
  char16_t const * m_name;
  _qefUID m_related;
};

CDefinition g_counterDefinition(CLSID_FrameCounter, u"Frame counter", DEFID_Counters);
CDefinition g_familyDefinition(DEFID_Counters, u"Counters", DEFID_Counters);

// The host's component factory: a static object that counts its references to show that the
// library gives back every one it takes.
class CHostFactory final : public IQEFComponentFactory {
public:
  std::int32_t QueryInterface(_qefUID const & id, void ** out) override {
    if (!out) {
      return QEF_E_POINTER;
    }
    if (_sameUID(id, IID_IQEFUnknown) || _sameUID(id, IID_IQEFComponentFactory)) {
      *out = static_cast<IQEFComponentFactory *>(this);
      AddRef();
      return QEF_S_OK;
    }
    *out = nullptr;
    return QEF_E_NOINTERFACE;
  }
  std::uint32_t AddRef() override { return ++m_count; }
  std::uint32_t Release() override { return --m_count; }
  std::int32_t CreateComponent(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                               void ** out) override {
    if (!out) {
      return QEF_E_POINTER;
    }
    *out = nullptr;
    if (outer || !_sameUID(cls, CLSID_FrameCounter)) {
      return QEF_E_CLASSNOTAVAILABLE;
    }
    CFrameCounter * const made = new CFrameCounter;
    std::int32_t const result = made->QueryInterface(id, out);
    made->Release();
    return result;
  }
  std::int32_t CreateInstance(_qefUID const & cls, IQEFUnknown * outer, _qefUID const & id,
                              void ** out) override {
    return CreateComponent(cls, outer, id, out);
  }
  std::int32_t LockFactory(std::int32_t) override { return QEF_S_OK; }
  std::int32_t FindDefinition(_qefUID const & cls, _qefUID const & id, void ** out) override {
    CDefinition * const found = _sameUID(cls, CLSID_FrameCounter) ? &g_counterDefinition
                                : _sameUID(cls, DEFID_Counters)   ? &g_familyDefinition
                                                                  : nullptr;
    if (!found) {
      if (out) {
        *out = nullptr;
      }
      return QEF_E_CLASSNOTAVAILABLE;
    }
    return found->QueryInterface(id, out);
  }
  std::int32_t EnumDefinitions(_qefUID const & id, void ** out) override {
    return FindDefinition(id, IID_IQEFDefinition, out);
  }
  std::uint32_t Count() const { return m_count; }

private:
  std::atomic<std::uint32_t> m_count{0};
};

CHostFactory g_factory;

// The creation function the host registers for its class.
CPIQEFUnknown CreateFrameCounter(_qefUID const &) {
  CFrameCounter * const made = new CFrameCounter;
  CPIQEFUnknown handle(made->base());
  made->Release();
  return handle;
}

std::string Text(VORX::String::CQEFWChar const & wide) {
  VORX::String::CUTF8Char const utf8(wide);
  return *utf8 ? reinterpret_cast<char const *>(*utf8) : "";
}

std::string Text(_qefUID const & id) {
  VORX::String::CANSIChar const text = cqefuid(id).ANSI();
  return *text ? *text : "";
}

int Check(bool ok, char const * what) {
  std::printf("%s: %s\n", what, ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}

int Run() {
  if (Check(CPIQEFUnknown::Factory_Set(&g_factory), "set the factory")) {
    return 1;
  }
  {
    CPIQEFUnknown component;
    if (Check(component.createComponent(CLSID_FrameCounter), "create the frame counter")) {
      return 1;
    }
    IPQEF counter(IID_IFrameCounter, component);
    if (Check(static_cast<bool>(counter), "narrow it to IFrameCounter")) {
      return 1;
    }
    auto * const frames = static_cast<IFrameCounter *>(counter.get());
    frames->Advance(24);
    std::printf("frames after two advances: %u\n", frames->Advance(1));
  }
  if (Check(g_alive.load() == 0, "the component is gone with its handles")) {
    return 1;
  }
  if (Check(CPIQEFUnknown::Factory_RegisterClass(CLSID_FrameCounter, IID_IFrameCounter,
                                                 VORX::String::CPPoolString(u"Frame counter"),
                                                 &CreateFrameCounter),
            "register the class")) {
    return 1;
  }
  {
    IPQEF registered(IID_IFrameCounter,
                     CPIQEFUnknown::Factory_CreateRegisteredClass(CLSID_FrameCounter));
    if (Check(static_cast<bool>(registered), "create it through the registry")) {
      return 1;
    }
  }
  COMPONENT_INFO info;
  if (Check(CPIQEFUnknown::Factory_GetComponentInfo(CLSID_FrameCounter, info),
            "read the class's information")) {
    return 1;
  }
  std::printf("name: %s\nclass: %s\ninterface: %s\nfamily: %s (%s, \"%s\")\n"
              "values: %u %u %u %u\n",
              Text(info.strName).c_str(), Text(info.uidFirst).c_str(), Text(info.uidSecond).c_str(),
              Text(info.strRelatedName).c_str(), Text(info.uidRelated).c_str(),
              Text(info.strRelatedText).c_str(), info.ulValue1, info.ulValue2, info.ulValue3,
              info.ulValue4);
  CPIQEFUnknown::Factory_Release();
  return Check(g_factory.Count() == 0 && g_alive.load() == 0,
               "every reference given back and every component gone");
}

} // namespace

int main() {
  return Run();
}
