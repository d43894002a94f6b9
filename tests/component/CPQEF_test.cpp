#include <algorithm>
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

// Starts with a fresh counter (count 1, the test's reference) and checks at the end that the
// handles gave back every reference they took: the count is 1 again, and the test's release
// destroys the object.
class CountedComponent : public ::testing::Test {
protected:
  void SetUp() override {
    probe.record = true;
    object = CCounter::New(probe);
  }
  void TearDown() override {
    EXPECT_EQ(Count(), 1u) << "events: " << probe.events;
    object->Release();
    EXPECT_EQ(probe.destroyed.load(), 1);
  }
  // The count the object holds.
  std::uint32_t Count() const { return H(object->base()).GetLockCount() - 1; }
  Probe probe;
  CCounter * object = nullptr;
};

} // namespace

TEST_F(CountedComponent, HandlesCountEveryReferenceGiveEachBackCompareAndAssignInOrder) {
  IQEFUnknown * const asValue = static_cast<ITestValue *>(object);
  H a(object->base());
  IPQEF value(IID_ITestValue, a);
  IPQEF copy(value);
  EXPECT_TRUE(a.get() == object->base() && copy.get() == asValue);
  H d;
  d = value;
  EXPECT_EQ(d.get(), object->base()) << "assigned to a root handle: narrowed to the root";
  EXPECT_EQ(Count(), 5u);
  value = a;
  EXPECT_EQ(value.get(), asValue) << "assignment keeps the handle's type";
  d.free();
  H raw;
  ASSERT_EQ(object->QueryInterface(IID_IQEFUnknown, reinterpret_cast<void **>(raw.rec())), 0);
  EXPECT_TRUE(raw == a) << "the mark bit is ignored";
  IPQEF nothing(IID_INothing, a);
  EXPECT_TRUE(value != a && a != d && !nothing && nothing == d);
  // A raw pointer is taken before the old one goes; a handle is taken after (deliberately).
  probe.events.clear();
  raw = object->base();
  EXPECT_EQ(probe.events, "QR");
  probe.events.clear();
  raw = a;
  H & same = raw;
  raw = same;
  EXPECT_EQ(probe.events, "RQ") << "assigning a handle to itself releases nothing";
}

TEST_F(CountedComponent, RecAdoptsARawPointerAndNarrowsItAtFirstUse) {
  H h(object->base());
  void ** const field = reinterpret_cast<void **>(h.rec());
  EXPECT_EQ(Count(), 1u) << "rec() releases what the handle held";
  ASSERT_EQ(object->QueryInterface(IID_ITestValue, field), QEF_S_OK);
  EXPECT_EQ(h.GetLockCount(), 2u) << "AddRef answered 3; less 1";
  probe.events.clear();
  EXPECT_TRUE(h && h.get() == object->base());
  EXPECT_EQ(probe.events, "QR") << "narrowing takes the root interface, then drops the raw one";
  *h.rec() = nullptr;
  IQEFUnknown * raw = object->base();
  EXPECT_TRUE(!h && h.GetLockCount() == 0u && !h.QueryRawInterface(&raw) && !raw);
}

TEST(InterfacePointer, ContainsAReleaseOrQueryThatThrows) {
  vorx::test::BoxCapture boxes;
  CThrower thrower;
  thrower.throwOnRelease = true;
  H(&thrower).free();
  ASSERT_EQ(boxes.Boxes().size(), 1u) << "once: the destructor finds the handle empty";
  EXPECT_EQ(boxes.Boxes()[0].caption + ": " + boxes.Boxes()[0].text,
            "Illegal code point reached: CPIQEFUnknown::free exception");
  // A raw pointer whose narrowing throws: the handle drops it, with its reference.
  thrower.throwOnRelease = false;
  thrower.throwOnQuery = true;
  H raw;
  *raw.rec() = &thrower;
  thrower.count = 1;
  EXPECT_TRUE(!raw && thrower.count == 0u && !H(&thrower));
}

// -------------------------------------------------------------------------------------------
// The factory slot, the definitions the factory finds, and the class registry

namespace {

// Ends with the slot empty and checks that the factory and the definition got back their
// references and that every component made is gone.
class Factory : public ::testing::Test {
protected:
  void TearDown() override {
    for (int i = 0; i < 16 && H::Factory_IsAvailable(); ++i) {
      H::Factory_Release();
    }
    EXPECT_TRUE(factory.count.load() == 0 && definition.count.load() == 0);
    EXPECT_EQ(factory.made.destroyed.load(), factory.created.load());
  }
  CTestFactory factory;
  CDefinition definition;
};

std::u16string Text(VORX::String::CQEFWChar const & text) {
  return *text ? std::u16string(*text) : std::u16string(u"<none>");
}

} // namespace

TEST_F(Factory, SetTwiceNeedsTwoReleasesAcquireHandsOutReferencesAndHandlesCreateThroughIt) {
  CTestFactory other;
  IQEFComponentFactory * out = &factory;
  CCounter * const held = CCounter::New(other.made);
  H h(held->base());
  held->Release();
  EXPECT_FALSE(H::Factory_Acquire(&out) || out != nullptr || h.createComponent(CLSID_Counter));
  EXPECT_EQ(other.made.destroyed.load(), 1) << "a failed create releases what the handle held";
  ASSERT_TRUE(H::Factory_Set(&factory));
  ASSERT_TRUE(H::Factory_Set(static_cast<IQEFUnknown *>(&factory))) << "narrowed to the factory";
  EXPECT_EQ(factory.count.load(), 1u) << "one reference for the slot, however often it is set";
  EXPECT_FALSE(H::Factory_Set(&other) || other.count.load() != 0u);
  ASSERT_TRUE(H::Factory_Acquire(&out));
  EXPECT_TRUE(out == &factory && factory.count.load() == 2u);
  out->Release();

  ASSERT_TRUE(h.createComponent(CLSID_Counter));
  EXPECT_EQ(h.GetLockCount(), 1u) << "the handle's reference only";
  EXPECT_TRUE(h.createInstance(CLSID_Counter, &factory));
  EXPECT_TRUE(factory.components.load() == 1 && factory.instances.load() == 1);
  factory.throws = true;
  EXPECT_FALSE(h.createComponent(CLSID_Counter) || h);

  EXPECT_TRUE(H::Factory_Release() && H::Factory_IsAvailable()) << "the refused one did not count";
  EXPECT_TRUE(H::Factory_Release() && !H::Factory_IsAvailable());
}

// The class's definition is its own related one: the record reads it twice.
TEST_F(Factory, ComponentInfoIsReadFromTheDefinitionAndItsRelatedOne) {
  definition.Set(ATTRID_Name, TYPEID_Text, u"Counter");
  definition.Set(ATTRID_RelatedText, TYPEID_Text, u"related text");
  definition.Set(ATTRID_ClassID, TYPEID_Identifier, CLSID_Related);
  definition.Set(ATTRID_Identifier1, TYPEID_Identifier, IID_ITestValue);
  definition.Set(ATTRID_Identifier2, TYPEID_Identifier, IID_INothing);
  definition.Set(ATTRID_Related, TYPEID_Identifier, CLSID_Counter);
  definition.Set(ATTRID_RelatedIdentifier, TYPEID_Identifier, IID_IQEFUnknown);
  std::uint32_t number = 0;
  for (_qefUID const * id : {&ATTRID_Value1, &ATTRID_Value2, &ATTRID_Value3, &ATTRID_Value4}) {
    definition.Set(*id, TYPEID_UInt32, ++number);
  }
  factory.definitions[CLSID_Counter.Data1] = &definition;
  ASSERT_TRUE(H::Factory_Set(&factory));
  _qefUID cls = qefUID_null;
  EXPECT_TRUE(H::Factory_FindClass(CLSID_Counter, cls) && _sameUID(cls, CLSID_Related));
  COMPONENT_INFO info;
  ASSERT_TRUE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  EXPECT_EQ(Text(info.strName) + u"," + Text(info.strRelatedName) + u"," +
                Text(info.strRelatedText),
            u"Counter,Counter,related text");
  EXPECT_TRUE(_sameUID(info.uidFirst, IID_ITestValue) && _sameUID(info.uidSecond, IID_INothing) &&
              _sameUID(info.uidRelated, CLSID_Counter) &&
              _sameUID(info.uidRelatedIdentifier, IID_IQEFUnknown));
  EXPECT_TRUE(info.ulValue1 == 1 && info.ulValue2 == 2 && info.ulValue3 == 3 && info.ulValue4 == 4);
  // The last two numbers are optional, the fourth read only after the third.
  definition.attributes.erase(ATTRID_Value3.Data1);
  H found = H::Factory_FindDefinition(CLSID_Counter);
  ASSERT_TRUE(H::Factory_GetComponentInfo(found, info));
  EXPECT_TRUE(info.ulValue3 == 0 && info.ulValue4 == 0);
  definition.attributes.erase(ATTRID_Value2.Data1);
  EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info)) << "a required one missing";
  // A wrong record size raises the box.
  vorx::test::BoxCapture boxes;
  info.sSizeStruct = 137;
  EXPECT_FALSE(H::Factory_GetComponentInfo(CLSID_Counter, info));
  ASSERT_EQ(boxes.Boxes().size(), 1u);
  EXPECT_EQ(boxes.Boxes()[0].caption + ": " + boxes.Boxes()[0].text,
            "RTA_ON_TRUE: CPQEF,551:CompInfo.sSizeStruct != sizeof(COMPONENT_INFO)");
}

namespace {

Probe g_registered;

CPIQEFUnknown MakeCounter(_qefUID const &) {
  CPIQEFUnknown handle;
  CCounter::Make(g_registered, IID_IQEFUnknown, reinterpret_cast<void **>(handle.rec()));
  return handle;
}

_qefUID Fresh() {
  _qefUID id{};
  EXPECT_TRUE(_createUID(id));
  return id;
}

} // namespace

// A registering thread and a creating thread at once: every class is found afterwards, every
// component made is destroyed, and the sanitizer sees no race. The first record of a class
// stays, a record without a function creates nothing, and a class needs a name.
TEST_F(Factory, TheRegistryKeepsTheFirstNamedRecordAndLosesNoClassToTwoThreads) {
  vorx::test::AllowPersistentBlocks(); // the registry keeps its records for the process
  vorx::test::LogCapture log;
  ASSERT_TRUE(H::Factory_Set(&factory));
  constexpr int kClasses = 300;
  std::vector<_qefUID> ids(kClasses);
  std::generate(ids.begin(), ids.end(), Fresh);
  std::atomic<int> published{0};
  int const before = g_registered.destroyed.load();
  int createdByRegistry = 0;
  std::thread registrar([&] {
    for (int i = 0; i < kClasses; ++i) {
      EXPECT_TRUE(H::Factory_RegisterClass(ids[i], ids[(i + 1) % kClasses], u"Concurrent",
                                           i ? &MakeCounter : nullptr));
      published.store(i + 1);
    }
  });
  std::thread creator([&] {
    for (int round = 0; published.load() < kClasses || round < 50; ++round) {
      EXPECT_TRUE(H().createComponent(CLSID_Counter));
      if (int const known = published.load(); known > 1) {
        EXPECT_TRUE(H::Factory_CreateRegisteredClass(ids[1 + round % (known - 1)]));
        ++createdByRegistry;
      }
    }
  });
  registrar.join();
  creator.join();
  EXPECT_EQ(g_registered.destroyed.load(), before + createdByRegistry);
  for (int i = 0; i < kClasses; ++i) {
    _qefUID second{};
    ASSERT_TRUE(H::Factory_FindRegisteredClass(ids[i], &second, nullptr, nullptr)) << i;
    EXPECT_TRUE(_sameUID(second, ids[(i + 1) % kClasses]));
  }
  EXPECT_FALSE(H::Factory_RegisterClass(ids[1], qefUID_null, u"Again", nullptr));
  VORX::String::CPPoolString name;
  qefCreateFunction create = nullptr;
  ASSERT_TRUE(H::Factory_FindRegisteredClass(ids[1], nullptr, &name, &create));
  EXPECT_TRUE(create == &MakeCounter && name == u"Concurrent");
  EXPECT_FALSE(H::Factory_CreateRegisteredClass(ids[0]) ||
               H::Factory_CreateRegisteredClass(Fresh()));

  EXPECT_FALSE(H::Factory_RegisterClass(Id(0xC001), qefUID_null, u"", &MakeCounter));
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(
      log.Lines()[0].message,
      u"Factory_RegisterClass: ClassNames are mandatory! 0000C001-1067-4000-B31D-0000000000DA");
}
