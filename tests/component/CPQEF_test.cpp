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
using qeftest::CCounter;
using qeftest::CDefinition;
using qeftest::CLSID_Counter;
using qeftest::CLSID_Related;
using qeftest::CTestFactory;
using qeftest::CThrower;
using qeftest::CUncounted;
using qeftest::IID_INothing;
using qeftest::IID_ITestValue;
using qeftest::ITestValue;
using qeftest::Probe;
using H = CPIQEFUnknown;

namespace {

IQEFUnknown * AsValue(CCounter * object) {
  return static_cast<ITestValue *>(object);
}

// Starts with a fresh counter (count 1, the test's own reference) and checks at the end that
// the handles gave back every reference they took: the count is 1 again, and the test's
// release destroys the object.
class CountedComponent : public ::testing::Test {
protected:
  void SetUp() override { object = CCounter::New(probe); }
  void TearDown() override {
    EXPECT_EQ(object->Count(), 1u) << "events: " << probe.events;
    EXPECT_EQ(probe.addRefs.load(), probe.releases.load()) << "events: " << probe.events;
    object->Release();
    EXPECT_EQ(probe.destroyed.load(), 1);
  }
  void Mark() { probe.events.clear(); }

  Probe probe;
  CCounter * object = nullptr;
};

} // namespace

TEST_F(CountedComponent, HandlesCountEveryReferenceAndGiveEachBack) {
  {
    H a(object->base());
    EXPECT_EQ(object->Count(), 2u);
    EXPECT_EQ(a.get(), object->base());
    H b(a);
    IPQEF value(IID_ITestValue, a);
    EXPECT_EQ(value.get(), AsValue(object)) << "narrowed to the other interface";
    IPQEF copy(value);
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
    EXPECT_EQ(object->Count(), 7u);
    copy.free();
    EXPECT_FALSE(copy);
    d.free();
    d.free();
    EXPECT_EQ(object->Count(), 5u);
    IPQEF fromRaw(IID_ITestValue, object->base());
    EXPECT_EQ(fromRaw.get(), AsValue(object));
    EXPECT_EQ(object->Count(), 6u);
  }
}

TEST_F(CountedComponent, RecAdoptsARawPointerAndNarrowsItAtFirstUse) {
  H h(object->base());
  void ** const field = reinterpret_cast<void **>(h.rec());
  EXPECT_EQ(object->Count(), 1u) << "rec() releases what the handle held";
  ASSERT_EQ(object->QueryInterface(IID_ITestValue, field), QEF_S_OK);
  EXPECT_EQ(h.GetLockCount(), 2u) << "AddRef answered 3; the count before it is 2";
  IQEFUnknown * raw = nullptr;
  ASSERT_TRUE(h.QueryRawInterface(&raw));
  EXPECT_EQ(raw, AsValue(object)) << "the raw pointer, not narrowed";
  raw->Release();
  Mark();
  EXPECT_TRUE(h);
  EXPECT_EQ(probe.events, "QR") << "narrowing takes the root interface, then drops the raw one";
  EXPECT_EQ(h.get(), object->base());
  EXPECT_EQ(object->Count(), 2u);
  *h.rec() = nullptr;
  EXPECT_FALSE(h) << "a null written through rec() is empty";
  EXPECT_EQ(h.GetLockCount(), 0u);
  h.rec();
  EXPECT_FALSE(h) << "nothing written: empty";
}

TEST_F(CountedComponent, RawAssignmentTakesFirstAndHandleAssignmentReleasesFirst) {
  H h(object->base());
  H other(object->base());
  Mark();
  h = object->base();
  EXPECT_EQ(probe.events, "QR");
  Mark();
  h = other;
  EXPECT_EQ(probe.events, "RQ") << "deliberately the opposite order";
  Mark();
  H & same = h;
  h = same;
  EXPECT_EQ(probe.events, "") << "assigning a handle to itself releases nothing";
  IPQEF value(IID_ITestValue);
  Mark();
  value = other;
  EXPECT_EQ(probe.events, "Q");
  EXPECT_EQ(object->Count(), 4u);
}

TEST_F(CountedComponent, ComparesInterfacePointersAndEmptyHandlesAreEqual) {
  H empty;
  H alsoEmpty;
  EXPECT_FALSE(empty);
  EXPECT_TRUE(empty == alsoEmpty);
  H a(object->base());
  EXPECT_TRUE(a != empty);
  H raw;
  ASSERT_EQ(object->QueryInterface(IID_IQEFUnknown, reinterpret_cast<void **>(raw.rec())), 0);
  EXPECT_TRUE(raw == a) << "the mark bit is ignored";
  IPQEF value(IID_ITestValue, a);
  EXPECT_TRUE(value != a) << "another interface of the same object";
  IPQEF nothing(IID_INothing, a);
  EXPECT_FALSE(nothing);
  EXPECT_TRUE(nothing == empty);
  H fromNull(static_cast<IQEFUnknown *>(nullptr));
  EXPECT_FALSE(fromNull);

  IQEFUnknown * out = object->base();
  EXPECT_FALSE(a.QueryRawInterface(nullptr));
  EXPECT_FALSE(empty.QueryRawInterface(&out));
  EXPECT_EQ(out, nullptr);
  void * typed = nullptr;
  EXPECT_FALSE(value.QueryRawInterface(static_cast<void **>(nullptr)));
  EXPECT_FALSE(nothing.QueryRawInterface(&typed));
  ASSERT_TRUE(value.QueryRawInterface(&typed));
  EXPECT_EQ(typed, static_cast<void *>(static_cast<ITestValue *>(object)));
  EXPECT_EQ(static_cast<ITestValue *>(typed)->Value(), 7);
  static_cast<ITestValue *>(typed)->Release();
}

TEST(InterfacePointer, ContainsAReleaseOrQueryThatThrows) {
  vorx::test::BoxCapture boxes;
  CThrower thrower;
  {
    H h(&thrower);
    EXPECT_EQ(thrower.count, 1u);
    thrower.throwOnRelease = true;
    h.free();
    EXPECT_FALSE(h);
  }
  ASSERT_EQ(boxes.Boxes().size(), 1u) << "once: the destructor finds the handle empty";
  EXPECT_EQ(boxes.Boxes()[0].caption, "Illegal code point reached");
  EXPECT_EQ(boxes.Boxes()[0].text, "CPIQEFUnknown::free exception");
  EXPECT_EQ(thrower.count, 0u);

  thrower.throwOnRelease = false;
  thrower.throwOnQuery = true;
  H queried(&thrower);
  EXPECT_FALSE(queried) << "a throwing query gives an empty handle";
  EXPECT_EQ(thrower.count, 0u);

  // A raw pointer whose narrowing throws: the handle drops it, and its reference too.
  H raw;
  *raw.rec() = &thrower;
  thrower.count = 1;
  EXPECT_FALSE(raw);
  EXPECT_EQ(thrower.count, 0u);
  // A raw pointer whose release throws while it is narrowed: swallowed without a box.
  thrower.throwOnQuery = false;
  thrower.throwOnRelease = true;
  *raw.rec() = &thrower;
  thrower.count = 1;
  EXPECT_TRUE(raw);
  EXPECT_EQ(boxes.Boxes().size(), 1u);
  EXPECT_EQ(thrower.count, 1u);
  thrower.throwOnRelease = false;
}

TEST(InterfacePointer, LeavesAnUncountedObjectUncounted) {
  CUncounted object;
  {
    H a(&object);
    H b(a);
    IPQEF framework(IID_IQEFClassFactory, a);
    EXPECT_EQ(framework.get(), object.base());
    H raw;
    ASSERT_EQ(object.QueryInterface(IID_IQEFUnknown, reinterpret_cast<void **>(raw.rec())), 0);
    EXPECT_EQ(raw.GetLockCount(), 0xFFFFFFFFu) << "AddRef answers 0; 0 less 1";
  }
  EXPECT_EQ(object._addRef(), 0u);
  EXPECT_EQ(object.destroyed, 0);
}

// -------------------------------------------------------------------------------------------
// The factory slot

namespace {

class Factory : public ::testing::Test {
protected:
  void TearDown() override {
    for (int i = 0; i < 16 && H::Factory_IsAvailable(); ++i) {
      H::Factory_Release();
    }
    EXPECT_FALSE(H::Factory_IsAvailable());
    EXPECT_EQ(factory.count.load(), 0u) << "the slot gave back its reference";
    EXPECT_EQ(made.destroyed.load(), factory.created.load())
        << "every component made was destroyed";
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
  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(H::Factory_Set(&factory));
  EXPECT_EQ(factory.count.load(), 1u) << "one reference for the slot, however often it is set";
  EXPECT_FALSE(H::Factory_Set(&other));
  EXPECT_EQ(other.count.load(), 0u);
  EXPECT_TRUE(H::Factory_Release());
  EXPECT_TRUE(H::Factory_IsAvailable()) << "the refused factory did not count";
  EXPECT_TRUE(H::Factory_Release());
  EXPECT_FALSE(H::Factory_IsAvailable());
  EXPECT_EQ(factory.count.load(), 0u);
  ASSERT_TRUE(H::Factory_Set(&other));
  EXPECT_TRUE(H::Factory_Release());
  EXPECT_FALSE(H::Factory_IsAvailable()) << "the count starts again at 0";
  EXPECT_EQ(other.count.load(), 0u);
}

TEST_F(Factory, SetNarrowsAnInterfaceOrHandleToTheFactory) {
  Probe probe;
  CCounter * const notAFactory = CCounter::New(probe);
  EXPECT_FALSE(H::Factory_Set(notAFactory->base()));
  EXPECT_FALSE(H::Factory_Set(static_cast<IQEFUnknown *>(nullptr)));
  notAFactory->Release();
  EXPECT_EQ(probe.destroyed.load(), 1);

  ASSERT_TRUE(H::Factory_Set(static_cast<IQEFUnknown *>(&factory)));
  EXPECT_EQ(factory.count.load(), 1u) << "the narrowing's own reference went back";
  H handle(static_cast<IQEFUnknown *>(&factory));
  ASSERT_TRUE(H::Factory_Set(handle));
  handle.free();
  H::Factory_Release();
  EXPECT_TRUE(H::Factory_IsAvailable());
}

TEST_F(Factory, AcquireHandsOutReferences) {
  IQEFComponentFactory * out = &factory;
  EXPECT_FALSE(H::Factory_Acquire(static_cast<IQEFComponentFactory **>(nullptr)));
  EXPECT_FALSE(H::Factory_Acquire(&out));
  EXPECT_EQ(out, nullptr);
  IPQEF handle(IID_IQEFComponentFactory);
  EXPECT_FALSE(H::Factory_Acquire(handle));

  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(H::Factory_Acquire(&out));
  EXPECT_EQ(out, &factory);
  EXPECT_EQ(factory.count.load(), 2u);
  out->Release();
  ASSERT_TRUE(H::Factory_Acquire(handle));
  EXPECT_EQ(handle.get(), static_cast<IQEFUnknown *>(&factory));
  handle.free();
  EXPECT_EQ(factory.count.load(), 1u);
}

TEST_F(Factory, CreatesThroughTheProcessFactoryOrAGivenOne) {
  Probe probe;
  CCounter * const held = CCounter::New(probe);
  H h(held->base());
  held->Release();
  EXPECT_FALSE(h.createComponent(CLSID_Counter)) << "no factory";
  EXPECT_FALSE(h);
  EXPECT_EQ(probe.destroyed.load(), 1) << "what the handle held was released";
  EXPECT_FALSE(h.createInstance(CLSID_Counter));
  EXPECT_FALSE(h.createComponent(CLSID_Counter, nullptr));

  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(h.createComponent(CLSID_Counter));
  EXPECT_EQ(factory.components.load(), 1);
  EXPECT_EQ(h.GetLockCount(), 1u) << "the handle's reference only";
  IPQEF value(IID_ITestValue, h);
  ASSERT_TRUE(value);
  EXPECT_EQ(static_cast<ITestValue *>(value.get())->Value(), 7);
  ASSERT_TRUE(value.createInstance(CLSID_Counter));
  EXPECT_EQ(factory.instances.load(), 1);
  EXPECT_TRUE(_sameUID(value.GetType(), IID_ITestValue));
  EXPECT_EQ(static_cast<ITestValue *>(value.get())->Value(), 7) << "narrowed to its own type";
  ASSERT_TRUE(h.createComponent(CLSID_Counter, &factory));
  ASSERT_TRUE(h.createInstance(CLSID_Counter, &factory));

  EXPECT_FALSE(h.createComponent(IID_INothing)) << "a class the factory does not know";
  EXPECT_FALSE(h);
  factory.fail = true;
  EXPECT_FALSE(value.createInstance(CLSID_Counter));
  EXPECT_FALSE(value);
  factory.fail = false;
  factory.throws = true;
  EXPECT_FALSE(h.createComponent(CLSID_Counter));
  EXPECT_FALSE(h);
  EXPECT_EQ(factory.count.load(), 1u);
}

// -------------------------------------------------------------------------------------------
// Definitions and the component information record

namespace {

constexpr _qefUID kFirst{0x11111111u, 1, 1, {1, 1, 1, 1, 1, 1, 1, 1}};
constexpr _qefUID kSecond{0x22222222u, 2, 2, {2, 2, 2, 2, 2, 2, 2, 2}};
constexpr _qefUID kClassRead{0x33333333u, 3, 3, {3, 3, 3, 3, 3, 3, 3, 3}};
constexpr _qefUID kRelatedId{0x44444444u, 4, 4, {4, 4, 4, 4, 4, 4, 4, 4}};

class Definitions : public Factory {
protected:
  void SetUp() override {
    component.self = CLSID_Counter;
    component.SetText(ATTRID_Name, u"Counter");
    component.SetIdentifier(ATTRID_ClassID, kClassRead);
    component.SetIdentifier(ATTRID_Identifier1, kFirst);
    component.SetIdentifier(ATTRID_Identifier2, kSecond);
    component.SetIdentifier(ATTRID_Related, CLSID_Related);
    related.self = CLSID_Related;
    related.SetText(ATTRID_Name, u"Related");
    related.SetText(ATTRID_RelatedText, u"related text");
    related.SetIdentifier(ATTRID_RelatedIdentifier, kRelatedId);
    related.SetNumber(ATTRID_Value1, 1);
    related.SetNumber(ATTRID_Value2, 2);
    related.SetNumber(ATTRID_Value3, 3);
    related.SetNumber(ATTRID_Value4, 4);
    factory.definitions[cqefuid(CLSID_Counter)] = &component;
    factory.definitions[cqefuid(CLSID_Related)] = &related;
    ASSERT_TRUE(H::Factory_Set(&factory));
  }
  void TearDown() override {
    Factory::TearDown();
    EXPECT_EQ(component.count.load(), 0u);
    EXPECT_EQ(related.count.load(), 0u);
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
  cls = kFirst;
  EXPECT_FALSE(H::Factory_FindClass(IID_INothing, cls)) << "no such definition";
  EXPECT_TRUE(_sameUID(cls, qefUID_null));
  cls = kFirst;
  EXPECT_FALSE(H::Factory_FindClass(CLSID_Related, cls)) << "a definition without the attribute";
  EXPECT_TRUE(_sameUID(cls, qefUID_null));
  H definition = H::Factory_FindDefinition(CLSID_Counter);
  EXPECT_TRUE(definition);
  EXPECT_FALSE(H::Factory_FindDefinition(IID_INothing));
  H enumeration = H::Factory_EnumDefinitions(IID_IQEFDefinition);
  EXPECT_TRUE(enumeration);
}

TEST_F(Definitions, ComponentInfoIsReadFromTheDefinitionAndItsRelatedOne) {
  COMPONENT_INFO info;
  EXPECT_EQ(info.sSizeStruct, 136u);
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(Text(info.strName), u"Counter");
  EXPECT_TRUE(_sameUID(info.uidFirst, kFirst));
  EXPECT_TRUE(_sameUID(info.uidSecond, kSecond));
  EXPECT_TRUE(_sameUID(info.uidRelated, CLSID_Related));
  EXPECT_EQ(Text(info.strRelatedName), u"Related");
  EXPECT_TRUE(_sameUID(info.uidRelatedIdentifier, kRelatedId));
  EXPECT_EQ(Text(info.strRelatedText), u"related text");
  EXPECT_EQ(info.ulValue1, 1u);
  EXPECT_EQ(info.ulValue2, 2u);
  EXPECT_EQ(info.ulValue3, 3u);
  EXPECT_EQ(info.ulValue4, 4u);

  COMPONENT_INFO const copy(info);
  COMPONENT_INFO moved(std::move(info));
  EXPECT_EQ(Text(copy.strRelatedText), u"related text");
  EXPECT_EQ(Text(moved.strName), u"Counter");

  H definition = H::Factory_FindDefinition(CLSID_Counter);
  COMPONENT_INFO again;
  ASSERT_TRUE(H::Factory_GetComponentInfo(definition, again));
  EXPECT_EQ(Text(again.strName), u"Counter");
}

TEST_F(Definitions, TheLastTwoNumbersAreOptional) {
  related.attributes.erase(cqefuid(ATTRID_Value4));
  COMPONENT_INFO info;
  info.ulValue4 = 99;
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(info.ulValue3, 3u);
  EXPECT_EQ(info.ulValue4, 0u);
  related.SetNumber(ATTRID_Value4, 4);
  related.attributes.erase(cqefuid(ATTRID_Value3));
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(info.ulValue3, 0u);
  EXPECT_EQ(info.ulValue4, 0u) << "not read when the third is missing";
}

TEST_F(Definitions, AMissingRequiredAttributeFails) {
  _qefUID const * const required[] = {&ATTRID_RelatedText, &ATTRID_Name, &ATTRID_RelatedIdentifier,
                                      &ATTRID_Value1, &ATTRID_Value2};
  for (_qefUID const * attribute : required) {
    CDefinition::Value const kept = related.attributes[cqefuid(*attribute)];
    related.attributes.erase(cqefuid(*attribute));
    COMPONENT_INFO info;
    EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info))
        << vorx::test::Narrow(Text(cqefuid(*attribute)));
    related.attributes[cqefuid(*attribute)] = kept;
  }
  component.attributes.erase(cqefuid(ATTRID_Related));
  COMPONENT_INFO info;
  EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(Text(info.strName), u"Counter") << "fields read before the failure stay";
  EXPECT_FALSE(H::Factory_GetComponentInfo(IID_INothing, info));
}

TEST_F(Definitions, AWrongRecordSizeRaisesTheBoxWithoutAskingTheFactory) {
  vorx::test::BoxCapture boxes;
  int const lookups = factory.lookups.load();
  for (std::uint64_t size : {std::uint64_t{0}, std::uint64_t{135}, std::uint64_t{137}}) {
    COMPONENT_INFO info;
    info.sSizeStruct = size;
    EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  }
  EXPECT_EQ(factory.lookups.load(), lookups);
  ASSERT_EQ(boxes.Boxes().size(), 3u);
  EXPECT_EQ(boxes.Boxes()[0].caption, "RTA_ON_TRUE");
  EXPECT_EQ(boxes.Boxes()[0].text, "CPQEF,551:CompInfo.sSizeStruct != sizeof(COMPONENT_INFO)");
}

TEST_F(Definitions, ATextFillingTheWholeBufferIsCutToStayTerminated) {
  CDefinition::Value full{TYPEID_Text, std::vector<unsigned char>(512, 'a')};
  component.attributes[cqefuid(ATTRID_Name)] = full; // 256 units of U+6161, no terminator
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

_qefUID Fresh() {
  _qefUID id{};
  EXPECT_TRUE(_createUID(id));
  return id;
}

} // namespace

TEST(ClassRegistry, ANameIsMandatory) {
  vorx::test::LogCapture log;
  _qefUID const cls{0x0000C001u, 0x0001u, 0x0002u, {0x80, 0, 0, 0, 0, 0, 0, 0x01}};
  EXPECT_FALSE(H::Factory_RegisterClass(cls, qefUID_null, qefClassName(), &MakeCounter));
  EXPECT_FALSE(H::Factory_RegisterClass(cls, qefUID_null, qefClassName(u""), &MakeCounter));
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, qefDL_Error);
  EXPECT_EQ(lines[0].category, u"VORX");
  EXPECT_EQ(
      lines[0].message,
      u"Factory_RegisterClass: ClassNames are mandatory! 0000C001-0001-0002-8000-000000000001");
  EXPECT_FALSE(H::Factory_FindRegisteredClass(cls, nullptr, nullptr, nullptr));
}

TEST(ClassRegistry, KeepsTheFirstRecordOfAClassAndCreatesThroughIt) {
  vorx::test::AllowPersistentBlocks(); // the registry keeps its records for the process
  g_registered.record = false;
  _qefUID const cls = Fresh();
  _qefUID const second = Fresh();
  ASSERT_TRUE(H::Factory_RegisterClass(cls, second, qefClassName(u"First"), &MakeCounter));
  EXPECT_FALSE(H::Factory_RegisterClass(cls, qefUID_null, qefClassName(u"Again"), nullptr));
  _qefUID readSecond{};
  qefClassName name;
  qefCreateFunction create = nullptr;
  ASSERT_TRUE(H::Factory_FindRegisteredClass(cls, &readSecond, &name, &create));
  EXPECT_TRUE(_sameUID(readSecond, second));
  EXPECT_EQ(std::u16string(static_cast<qefWChar const *>(name)), u"First");
  EXPECT_EQ(create, &MakeCounter);
  int const before = g_registered.destroyed.load();
  {
    IPQEF value(IID_ITestValue, H::Factory_CreateRegisteredClass(cls));
    ASSERT_TRUE(value);
    EXPECT_EQ(static_cast<ITestValue *>(value.get())->Value(), 7);
  }
  EXPECT_EQ(g_registered.destroyed.load(), before + 1);
  EXPECT_FALSE(H::Factory_CreateRegisteredClass(Fresh()));
  _qefUID const noFunction = Fresh();
  ASSERT_TRUE(H::Factory_RegisterClass(noFunction, second, qefClassName(u"None"), nullptr));
  EXPECT_FALSE(H::Factory_CreateRegisteredClass(noFunction));
}

// A registering thread and a creating thread at once: every class is found afterwards, every
// component made is destroyed, and the sanitizer sees no race.
TEST(ClassRegistry, RegistrationAndCreationFromTwoThreadsLoseNoClass) {
  vorx::test::AllowPersistentBlocks();
  g_registered.record = false;
  Probe made;
  CTestFactory factory(made);
  ASSERT_TRUE(H::Factory_Set(&factory));
  constexpr int kClasses = 300;
  std::vector<_qefUID> ids(kClasses);
  for (_qefUID & id : ids) {
    id = Fresh();
  }
  std::atomic<int> published{0};
  int const before = g_registered.destroyed.load();
  std::atomic<int> createdByRegistry{0};
  std::thread registrar([&] {
    for (int i = 0; i < kClasses; ++i) {
      EXPECT_TRUE(H::Factory_RegisterClass(ids[i], ids[(i + 1) % kClasses],
                                           qefClassName(u"Concurrent"), &MakeCounter));
      published.store(i + 1);
    }
  });
  std::thread creator([&] {
    int round = 0;
    while (published.load() < kClasses || round < 50) {
      H component;
      EXPECT_TRUE(component.createComponent(CLSID_Counter));
      int const known = published.load();
      if (known > 0) {
        H registered = H::Factory_CreateRegisteredClass(ids[round % known]);
        EXPECT_TRUE(registered);
        createdByRegistry.fetch_add(1);
      }
      ++round;
    }
  });
  registrar.join();
  creator.join();
  H::Factory_Release();
  for (int i = 0; i < kClasses; ++i) {
    _qefUID second{};
    ASSERT_TRUE(H::Factory_FindRegisteredClass(ids[i], &second, nullptr, nullptr)) << i;
    EXPECT_TRUE(_sameUID(second, ids[(i + 1) % kClasses]));
  }
  EXPECT_EQ(g_registered.destroyed.load(), before + createdByRegistry.load());
  EXPECT_EQ(made.destroyed.load(), factory.created.load());
  EXPECT_EQ(factory.count.load(), 0u);
}
