#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/qef.h>

#include "component/test_components.h"
#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::QEF;
using namespace qeftest;
using H = CPIQEFUnknown;

namespace {

IQEFUnknown * AsValue(CCounter * object) {
  return static_cast<ITestValue *>(object);
}

// Starts with a fresh counter (count 1, the test's reference) and checks at the end that the
// handles gave back every reference they took: the count is 1 again, and the test's release
// destroys the object.
class CountedComponent : public ::testing::Test {
protected:
  void SetUp() override { object = CCounter::New(probe); }
  void TearDown() override {
    EXPECT_EQ(object->Count(), 1u) << "events: " << probe.events;
    EXPECT_EQ(probe.addRefs.load(), probe.releases.load()) << "events: " << probe.events;
    object->Release();
    EXPECT_EQ(probe.destroyed.load(), 1);
  }
  Probe probe;
  CCounter * object = nullptr;
};

} // namespace

TEST_F(CountedComponent, HandlesCountEveryReferenceAndGiveEachBack) {
  H a(object->base());
  H b(a);
  IPQEF value(IID_ITestValue, a);
  IPQEF copy(value);
  EXPECT_TRUE(a.get() == object->base() && value.get() == AsValue(object));
  EXPECT_EQ(copy.get(), AsValue(object)) << "a copy keeps the type";
  H c;
  c = object->base();
  H d;
  d = value;
  EXPECT_EQ(d.get(), object->base()) << "assigned to a root handle: narrowed to the root";
  EXPECT_EQ(object->Count(), 7u);
  b = c;
  c = object->base();
  value = a;
  EXPECT_EQ(value.get(), AsValue(object)) << "assignment keeps the handle's type";
  copy.free();
  d.free();
  d.free();
  EXPECT_TRUE(!copy && object->Count() == 5u);
}

TEST_F(CountedComponent, RecAdoptsARawPointerAndNarrowsItAtFirstUse) {
  H h(object->base());
  void ** const field = reinterpret_cast<void **>(h.rec());
  EXPECT_EQ(object->Count(), 1u) << "rec() releases what the handle held";
  ASSERT_EQ(object->QueryInterface(IID_ITestValue, field), QEF_S_OK);
  EXPECT_EQ(h.GetLockCount(), 2u) << "AddRef answered 3; less 1";
  IQEFUnknown * raw = nullptr;
  ASSERT_TRUE(h.QueryRawInterface(&raw));
  EXPECT_EQ(raw, AsValue(object)) << "the raw pointer, not narrowed";
  raw->Release();
  probe.events.clear();
  EXPECT_TRUE(h && h.get() == object->base());
  EXPECT_EQ(probe.events, "QR") << "narrowing takes the root interface, then drops the raw one";
  *h.rec() = nullptr;
  EXPECT_TRUE(!h && h.GetLockCount() == 0u) << "a null written through rec() is empty";
}

TEST_F(CountedComponent, RawAssignmentTakesFirstAndHandleAssignmentReleasesFirst) {
  H h(object->base());
  H other(object->base());
  probe.events.clear();
  h = object->base();
  EXPECT_EQ(probe.events, "QR");
  probe.events.clear();
  h = other;
  EXPECT_EQ(probe.events, "RQ") << "deliberately the opposite order";
  probe.events.clear();
  H & same = h;
  h = same;
  EXPECT_EQ(probe.events, "") << "assigning a handle to itself releases nothing";
}

TEST_F(CountedComponent, ComparesInterfacePointersAndEmptyHandlesAreEqual) {
  H empty;
  H a(object->base());
  EXPECT_TRUE(!empty && empty == H() && a != empty);
  H raw;
  ASSERT_EQ(object->QueryInterface(IID_IQEFUnknown, reinterpret_cast<void **>(raw.rec())), 0);
  EXPECT_TRUE(raw == a) << "the mark bit is ignored";
  IPQEF value(IID_ITestValue, a);
  EXPECT_TRUE(value != a) << "another interface of the same object";
  IPQEF nothing(IID_INothing, a);
  EXPECT_TRUE(!nothing && nothing == empty);
  EXPECT_FALSE(H(static_cast<IQEFUnknown *>(nullptr)));

  IQEFUnknown * out = object->base();
  void * typed = nullptr;
  EXPECT_FALSE(a.QueryRawInterface(static_cast<IQEFUnknown **>(nullptr)) ||
               empty.QueryRawInterface(&out) || out != nullptr ||
               value.QueryRawInterface(static_cast<void **>(nullptr)) ||
               nothing.QueryRawInterface(&typed));
  ASSERT_TRUE(value.QueryRawInterface(&typed));
  EXPECT_EQ(typed, static_cast<void *>(static_cast<ITestValue *>(object)));
  static_cast<ITestValue *>(typed)->Release();
}

TEST(InterfacePointer, ContainsAReleaseOrQueryThatThrows) {
  vorx::test::BoxCapture boxes;
  CThrower thrower;
  {
    H h(&thrower);
    thrower.throwOnRelease = true;
    h.free();
  }
  ASSERT_EQ(boxes.Boxes().size(), 1u) << "once: the destructor finds the handle empty";
  EXPECT_EQ(boxes.Boxes()[0].caption + ": " + boxes.Boxes()[0].text,
            "Illegal code point reached: CPIQEFUnknown::free exception");
  EXPECT_EQ(thrower.count, 0u);

  thrower.throwOnRelease = false;
  thrower.throwOnQuery = true;
  EXPECT_FALSE(H(&thrower)) << "a throwing query gives an empty handle";
  // A raw pointer whose narrowing throws: the handle drops it, with its reference.
  H raw;
  *raw.rec() = &thrower;
  thrower.count = 1;
  EXPECT_TRUE(!raw && thrower.count == 0u);
  // A raw pointer whose release throws while it is narrowed: swallowed, no box.
  thrower.throwOnQuery = false;
  thrower.throwOnRelease = true;
  *raw.rec() = &thrower;
  thrower.count = 1;
  EXPECT_TRUE(raw && boxes.Boxes().size() == 1u);
  thrower.throwOnRelease = false;
}

TEST(InterfacePointer, LeavesAnUncountedObjectUncounted) {
  CUncounted object;
  {
    H a(&object);
    H b(a);
    EXPECT_EQ(IPQEF(IID_IQEFClassFactory, a).get(), object.base());
    H raw;
    ASSERT_EQ(object.QueryInterface(IID_IQEFUnknown, reinterpret_cast<void **>(raw.rec())), 0);
    EXPECT_EQ(raw.GetLockCount(), 0xFFFFFFFFu) << "AddRef answers 0; less 1";
  }
  EXPECT_TRUE(object._addRef() == 0u && object.destroyed == 0);
}

// -------------------------------------------------------------------------------------------
// The factory slot

namespace {

// Ends with the slot empty and checks that the factory got back its references and that
// every component it made is gone.
class Factory : public ::testing::Test {
protected:
  void TearDown() override {
    for (int i = 0; i < 16 && H::Factory_IsAvailable(); ++i) {
      H::Factory_Release();
    }
    EXPECT_EQ(factory.count.load(), 0u) << "the slot gave back its reference";
    EXPECT_EQ(made.destroyed.load(), factory.created.load());
  }
  Probe made;
  CTestFactory factory{made};
};

} // namespace

TEST_F(Factory, SetTwiceWithTheSameFactoryNeedsTwoReleases) {
  Probe otherMade;
  CTestFactory other(otherMade);
  EXPECT_FALSE(H::Factory_Set(static_cast<IQEFComponentFactory *>(nullptr)));
  EXPECT_TRUE(H::Factory_Release()) << "nothing set: true, nothing done";
  CCounter * const notAFactory = CCounter::New(otherMade);
  EXPECT_FALSE(H::Factory_Set(notAFactory->base()));
  notAFactory->Release();
  EXPECT_EQ(otherMade.destroyed.load(), 1) << "the narrowing attempt took no reference";
  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(H::Factory_Set(static_cast<IQEFUnknown *>(&factory))) << "narrowed to the factory";
  EXPECT_EQ(factory.count.load(), 1u) << "one reference for the slot, however often it is set";
  EXPECT_FALSE(H::Factory_Set(&other) || other.count.load() != 0u);
  EXPECT_TRUE(H::Factory_Release() && H::Factory_IsAvailable()) << "the refused one did not count";
  EXPECT_TRUE(H::Factory_Release() && !H::Factory_IsAvailable());
  H handle(static_cast<IQEFUnknown *>(&other));
  ASSERT_TRUE(H::Factory_Set(handle));
  EXPECT_TRUE(H::Factory_Release() && !H::Factory_IsAvailable()) << "the count starts again at 0";
}

TEST_F(Factory, AcquireHandsOutReferences) {
  IQEFComponentFactory * out = &factory;
  IPQEF handle(IID_IQEFComponentFactory);
  EXPECT_FALSE(H::Factory_Acquire(static_cast<IQEFComponentFactory **>(nullptr)) ||
               H::Factory_Acquire(&out) || out != nullptr || H::Factory_Acquire(handle));
  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(H::Factory_Acquire(&out));
  EXPECT_TRUE(out == &factory && factory.count.load() == 2u);
  out->Release();
  ASSERT_TRUE(H::Factory_Acquire(handle));
  EXPECT_EQ(handle.get(), static_cast<IQEFUnknown *>(&factory));
}

TEST_F(Factory, CreatesThroughTheProcessFactoryOrAGivenOne) {
  Probe probe;
  CCounter * const held = CCounter::New(probe);
  H h(held->base());
  held->Release();
  EXPECT_FALSE(h.createComponent(CLSID_Counter)) << "no factory";
  EXPECT_EQ(probe.destroyed.load(), 1) << "what the handle held was released";
  EXPECT_FALSE(h.createInstance(CLSID_Counter) || h.createComponent(CLSID_Counter, nullptr));

  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(h.createComponent(CLSID_Counter));
  EXPECT_EQ(h.GetLockCount(), 1u) << "the handle's reference only";
  IPQEF value(IID_ITestValue);
  ASSERT_TRUE(value.createInstance(CLSID_Counter));
  EXPECT_EQ(static_cast<ITestValue *>(value.get())->Value(), 7) << "narrowed to its own type";
  EXPECT_TRUE(h.createComponent(CLSID_Counter, &factory) &&
              h.createInstance(CLSID_Counter, &factory));
  EXPECT_TRUE(factory.components.load() == 2 && factory.instances.load() == 2);

  EXPECT_FALSE(h.createComponent(IID_INothing)) << "a class the factory does not know";
  factory.fail = true;
  EXPECT_FALSE(value.createInstance(CLSID_Counter) || value);
  factory.fail = false;
  factory.throws = true;
  EXPECT_FALSE(h.createComponent(CLSID_Counter) || h);
}

// -------------------------------------------------------------------------------------------
// Definitions and the component information record

namespace {

constexpr _qefUID kFirst = Id(0x11), kSecond = Id(0x22), kClassRead = Id(0x33),
                  kRelatedId = Id(0x44);

class Definitions : public Factory {
protected:
  void SetUp() override {
    component.SetText(ATTRID_Name, u"Counter");
    component.Set(ATTRID_ClassID, TYPEID_Identifier, kClassRead);
    component.Set(ATTRID_Identifier1, TYPEID_Identifier, kFirst);
    component.Set(ATTRID_Identifier2, TYPEID_Identifier, kSecond);
    component.Set(ATTRID_Related, TYPEID_Identifier, CLSID_Related);
    related.SetText(ATTRID_Name, u"Related");
    related.SetText(ATTRID_RelatedText, u"related text");
    related.Set(ATTRID_RelatedIdentifier, TYPEID_Identifier, kRelatedId);
    _qefUID const * const numbers[] = {&ATTRID_Value1, &ATTRID_Value2, &ATTRID_Value3,
                                       &ATTRID_Value4};
    for (std::uint32_t i = 0; i < 4; ++i) {
      related.Set(*numbers[i], TYPEID_UInt32, i + 1);
    }
    factory.definitions[CLSID_Counter.Data1] = &component;
    factory.definitions[CLSID_Related.Data1] = &related;
    ASSERT_TRUE(H::Factory_Set(&factory));
  }
  void TearDown() override {
    Factory::TearDown();
    EXPECT_TRUE(component.count.load() == 0 && related.count.load() == 0);
  }
  CDefinition component;
  CDefinition related;
};

std::u16string Text(VORX::String::CQEFWChar const & text) {
  return *text ? std::u16string(*text) : std::u16string(u"<none>");
}

} // namespace

TEST_F(Definitions, FindClassReadsTheClassIdAttribute) {
  _qefUID cls = kFirst;
  ASSERT_TRUE(H::Factory_FindClass(CLSID_Counter, cls));
  EXPECT_TRUE(_sameUID(cls, kClassRead));
  EXPECT_FALSE(H::Factory_FindClass(IID_INothing, cls) || !_sameUID(cls, qefUID_null));
  cls = kFirst;
  EXPECT_FALSE(H::Factory_FindClass(CLSID_Related, cls) || !_sameUID(cls, qefUID_null))
      << "a definition without the attribute";
  EXPECT_FALSE(H::Factory_FindDefinition(IID_INothing));
  EXPECT_TRUE(H::Factory_EnumDefinitions(IID_IQEFDefinition));
}

TEST_F(Definitions, ComponentInfoIsReadFromTheDefinitionAndItsRelatedOne) {
  COMPONENT_INFO info;
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  COMPONENT_INFO const copy(info); // owns copies of the texts
  EXPECT_EQ(Text(copy.strName) + u"," + Text(copy.strRelatedName) + u"," +
                Text(copy.strRelatedText),
            u"Counter,Related,related text");
  EXPECT_TRUE(_sameUID(info.uidFirst, kFirst) && _sameUID(info.uidSecond, kSecond));
  EXPECT_TRUE(_sameUID(info.uidRelated, CLSID_Related) &&
              _sameUID(info.uidRelatedIdentifier, kRelatedId));
  EXPECT_TRUE(info.ulValue1 == 1 && info.ulValue2 == 2 && info.ulValue3 == 3 && info.ulValue4 == 4);

  H definition = H::Factory_FindDefinition(CLSID_Counter);
  COMPONENT_INFO again;
  ASSERT_TRUE(H::Factory_GetComponentInfo(definition, again));
  EXPECT_EQ(Text(again.strName), u"Counter");
}

TEST_F(Definitions, TheLastTwoNumbersAreOptionalTheOthersRequired) {
  related.attributes.erase(ATTRID_Value4.Data1);
  COMPONENT_INFO info;
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_TRUE(info.ulValue3 == 3 && info.ulValue4 == 0);
  related.Set(ATTRID_Value4, TYPEID_UInt32, 4u);
  related.attributes.erase(ATTRID_Value3.Data1);
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_TRUE(info.ulValue3 == 0 && info.ulValue4 == 0) << "the fourth is not read then";

  for (_qefUID const * attribute : {&ATTRID_RelatedText, &ATTRID_Name, &ATTRID_RelatedIdentifier,
                                    &ATTRID_Value1, &ATTRID_Value2}) {
    CDefinition::Value const kept = related.attributes[attribute->Data1];
    related.attributes.erase(attribute->Data1);
    EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info)) << std::hex << attribute->Data1;
    related.attributes[attribute->Data1] = kept;
  }
  component.attributes.erase(ATTRID_Related.Data1);
  COMPONENT_INFO partial;
  EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, partial));
  EXPECT_EQ(Text(partial.strName), u"Counter") << "fields read before the failure stay";
}

TEST_F(Definitions, AWrongRecordSizeRaisesTheBoxWithoutAskingTheFactory) {
  vorx::test::BoxCapture boxes;
  int const lookups = factory.lookups.load();
  for (std::uint64_t size : {0, 135, 137}) {
    COMPONENT_INFO info;
    info.sSizeStruct = size;
    EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  }
  EXPECT_EQ(factory.lookups.load(), lookups);
  ASSERT_EQ(boxes.Boxes().size(), 3u);
  EXPECT_EQ(boxes.Boxes()[0].caption + ": " + boxes.Boxes()[0].text,
            "RTA_ON_TRUE: CPQEF,551:CompInfo.sSizeStruct != sizeof(COMPONENT_INFO)");
}

TEST_F(Definitions, ATextFillingTheWholeBufferIsCutToStayTerminated) {
  component.attributes[ATTRID_Name.Data1] = {TYPEID_Text, std::vector<unsigned char>(512, 'a')};
  COMPONENT_INFO info;
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(Text(info.strName), std::u16string(255, u'\x6161'));
}

// -------------------------------------------------------------------------------------------
// The class registry

namespace {

Probe g_registered;

CPIQEFUnknown MakeCounter(_qefUID const &) {
  CCounter * const made = CCounter::New(g_registered);
  CPIQEFUnknown handle(made->base());
  made->Release();
  return handle;
}

VORX::String::CPPoolString Name(char16_t const * text) {
  return text ? VORX::String::CPPoolString(text) : VORX::String::CPPoolString();
}

_qefUID Fresh() {
  _qefUID id{};
  EXPECT_TRUE(_createUID(id));
  return id;
}

} // namespace

TEST(ClassRegistry, ANameIsMandatory) {
  vorx::test::LogCapture log;
  _qefUID const cls = Id(0xC001);
  for (VORX::String::CPPoolString const & name : {Name(nullptr), Name(u"")}) {
    EXPECT_FALSE(H::Factory_RegisterClass(cls, qefUID_null, name, &MakeCounter));
  }
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].level == qefDL_Error && lines[0].category == u"VORX");
  EXPECT_EQ(
      lines[0].message,
      u"Factory_RegisterClass: ClassNames are mandatory! 0000C001-1067-4000-B31D-0000000000DA");
  EXPECT_FALSE(H::Factory_FindRegisteredClass(cls, nullptr, nullptr, nullptr));
}

TEST(ClassRegistry, KeepsTheFirstRecordOfAClassAndCreatesThroughIt) {
  vorx::test::AllowPersistentBlocks(); // the registry keeps its records for the process
  g_registered.record = false;
  _qefUID const cls = Fresh();
  _qefUID const second = Fresh();
  ASSERT_TRUE(H::Factory_RegisterClass(cls, second, Name(u"First"), &MakeCounter));
  EXPECT_FALSE(H::Factory_RegisterClass(cls, qefUID_null, Name(u"Again"), nullptr));
  _qefUID readSecond{};
  VORX::String::CPPoolString name;
  qefCreateFunction create = nullptr;
  ASSERT_TRUE(H::Factory_FindRegisteredClass(cls, &readSecond, &name, &create));
  EXPECT_TRUE(_sameUID(readSecond, second) && create == &MakeCounter);
  EXPECT_EQ(std::u16string(static_cast<qefWChar const *>(name)), u"First");
  int const before = g_registered.destroyed.load();
  {
    IPQEF value(IID_ITestValue, H::Factory_CreateRegisteredClass(cls));
    ASSERT_TRUE(value);
    EXPECT_EQ(static_cast<ITestValue *>(value.get())->Value(), 7);
  }
  EXPECT_EQ(g_registered.destroyed.load(), before + 1);
  EXPECT_FALSE(H::Factory_CreateRegisteredClass(Fresh()));
  _qefUID const noFunction = Fresh();
  ASSERT_TRUE(H::Factory_RegisterClass(noFunction, second, Name(u"None"), nullptr));
  EXPECT_FALSE(H::Factory_CreateRegisteredClass(noFunction));
}

// A registering thread and a creating thread at once: every class is found afterwards, every
// component made is destroyed, and the sanitizer sees no race.
TEST_F(Factory, RegistrationAndCreationFromTwoThreadsLoseNoClass) {
  vorx::test::AllowPersistentBlocks();
  g_registered.record = false;
  ASSERT_TRUE(H::Factory_Set(&factory));
  constexpr int kClasses = 300;
  std::vector<_qefUID> ids(kClasses);
  for (_qefUID & id : ids) {
    id = Fresh();
  }
  std::atomic<int> published{0};
  int const before = g_registered.destroyed.load();
  int createdByRegistry = 0;
  std::thread registrar([&] {
    for (int i = 0; i < kClasses; ++i) {
      EXPECT_TRUE(H::Factory_RegisterClass(ids[i], ids[(i + 1) % kClasses], Name(u"Concurrent"),
                                           &MakeCounter));
      published.store(i + 1);
    }
  });
  std::thread creator([&] {
    for (int round = 0; published.load() < kClasses || round < 50; ++round) {
      H component;
      EXPECT_TRUE(component.createComponent(CLSID_Counter));
      if (int const known = published.load()) {
        EXPECT_TRUE(H::Factory_CreateRegisteredClass(ids[round % known]));
        ++createdByRegistry;
      }
    }
  });
  registrar.join();
  creator.join();
  for (int i = 0; i < kClasses; ++i) {
    _qefUID second{};
    ASSERT_TRUE(H::Factory_FindRegisteredClass(ids[i], &second, nullptr, nullptr)) << i;
    EXPECT_TRUE(_sameUID(second, ids[(i + 1) % kClasses]));
  }
  EXPECT_EQ(g_registered.destroyed.load(), before + createdByRegistry);
}

// -------------------------------------------------------------------------------------------
// Binary layout: hosts call the interfaces by slot number.

namespace {

// Calls slot `slot` of `object`'s table as a plain function taking the object first.
template <class R, class... A> R CallSlot(void * object, int slot, A... args) {
  void ** const table = *static_cast<void ***>(object);
  return reinterpret_cast<R (*)(void *, A...)>(table[slot])(object, args...);
}

} // namespace

TEST_F(Definitions, TheSlotsSitWhereHostsCallThem) {
  using Id = _qefUID const *;
  IQEFComponentFactory * const f = &factory;
  void * out = nullptr;
  auto const create = [&](int slot) {
    return CallSlot<std::int32_t>(f, slot, Id(&CLSID_Counter), static_cast<IQEFUnknown *>(nullptr),
                                  Id(&IID_IQEFUnknown), &out);
  };
  ASSERT_EQ(create(3), 0);
  EXPECT_EQ(CallSlot<std::uint32_t>(out, 2), 0u) << "slot 2 releases: the new component goes";
  ASSERT_EQ(create(4), 0);
  EXPECT_EQ(CallSlot<std::uint32_t>(out, 1), 2u) << "slot 1 adds a reference";
  static_cast<IQEFUnknown *>(out)->Release();
  static_cast<IQEFUnknown *>(out)->Release();
  EXPECT_TRUE(factory.components.load() == 1 && factory.instances.load() == 1);
  ASSERT_EQ((CallSlot<std::int32_t>(f, 6, Id(&CLSID_Related), Id(&IID_IQEFDefinition), &out)), 0);
  EXPECT_EQ(out, static_cast<void *>(static_cast<IQEFDefinition *>(&related)));
  std::uint32_t value = 0;
  EXPECT_EQ((CallSlot<std::int32_t>(out, 5, Id(&ATTRID_Value2), Id(&TYPEID_UInt32),
                                    static_cast<void *>(&value), std::uint32_t{4})),
            0);
  EXPECT_EQ(value, 2u);
  related.Release();
  ASSERT_EQ((CallSlot<std::int32_t>(f, 7, Id(&IID_IQEFDefinition), &out)), 0);
  static_cast<IQEFUnknown *>(out)->Release();
}
