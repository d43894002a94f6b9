#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <vorx/qef.h>

#include "component/test_components.h"
#include "support/diagnostics_capture.h"

using namespace VORX::QEF;
using qeftest::CUncounted;

namespace {

std::string Narrow(cqefuid const & id) {
  VORX::String::CANSIChar const text = id.ANSI();
  return *text ? std::string(*text) : std::string("<none>");
}
std::u16string Wide(cqefuid const & id) {
  VORX::String::CQEFWChar const text = id;
  return *text ? std::u16string(*text) : std::u16string(u"<none>");
}
std::u16string Widen(char const * text) {
  std::u16string wide;
  for (char const * p = text; *p; ++p) {
    wide += static_cast<char16_t>(static_cast<unsigned char>(*p));
  }
  return wide;
}

constexpr _qefUID kThreadWork{
    0x24508B8Fu, 0xA78Eu, 0x4243u, {0x9Eu, 0x68u, 0x71u, 0xAAu, 0x02u, 0x9Cu, 0x83u, 0x8Au}};

} // namespace

TEST(Identifier, HasTheLayoutAndSizeOfTheRecord) {
  static_assert(sizeof(cqefuid) == 16 && sizeof(_qefUID) == 16);
  static_assert(sizeof(COMPONENT_INFO) == 136);
  _qefUID const record = IID_IQEFClassFactory;
  unsigned char bytes[16];
  std::memcpy(bytes, &record, 16);
  // Data1 and the two 16-bit groups in the machine's (little-endian) order, then the bytes.
  unsigned char const expected[16] = {0x01, 0xA1, 0x43, 0x3C, 0xD4, 0x84, 0x15, 0x42,
                                      0x9A, 0x4C, 0xFB, 0xF5, 0x4E, 0x8E, 0x75, 0x41};
  EXPECT_EQ(0, std::memcmp(bytes, expected, 16));
}

TEST(Identifier, TextFormIsUpperCaseWithoutBracesNarrowAndWideAlike) {
  struct Row {
    _qefUID id;
    char const * text;
  };
  Row const rows[] = {
      {qefUID_null, "00000000-0000-0000-0000-000000000000"},
      {IID_IQEFUnknown, "00000000-0000-0000-C000-000000000046"},
      {IID_IQEFClassFactory, "3C43A101-84D4-4215-9A4C-FBF54E8E7541"},
      {kThreadWork, "24508B8F-A78E-4243-9E68-71AA029C838A"},
      {_qefUID{0xFFFFFFFFu, 0xFFFFu, 0xFFFFu, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
       "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"},
      {_qefUID{0x1u, 0x2u, 0x3u, {0x4, 0x5, 0x6, 0x7, 0x8, 0x9, 0xA, 0xB}},
       "00000001-0002-0003-0405-060708090A0B"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Narrow(row.id), row.text);
    EXPECT_EQ(Wide(row.id), Widen(row.text)) << row.text;
  }
}

TEST(Identifier, ParsesByTheFrameworkRulesNarrowAndWideAlike) {
  struct Row {
    char const * text;
    bool ok;
    _qefUID id;
    char const * why;
  };
  _qefUID const small{0x1u, 0x2u, 0x3u, {0x00, 0x04, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}};
  Row const rows[] = {
      {"", true, qefUID_null, "the empty text is the null identifier"},
      {"3C43A101", true, qefUID_null, "no dashes: the null identifier, by design"},
      {"a-b-c", true, qefUID_null, "two dashes"},
      {"1-2-3-4-5-6", true, qefUID_null, "five dashes"},
      {"1-2-3-4-5", false, qefUID_null, "the last group has fewer than twelve digits"},
      {"3c43a101-84d4-4215-9a4c-fbf54e8e7541", true, IID_IQEFClassFactory, "lower case"},
      {"3C43A101-84D4-4215-9A4C-FBF54E8E7541", true, IID_IQEFClassFactory, "upper case"},
      {"3C43A101-84D4-4215-9A4C-FBF54E8E7541}", true, IID_IQEFClassFactory,
       "characters after the twelfth digit are ignored"},
      {"{3C43A101-84D4-4215-9A4C-FBF54E8E7541}", false, qefUID_null, "braces do not scan"},
      {"1-2-3-4-123456789ABC", true, small, "short groups read as numbers"},
      {"1-2-3-4-123456789AB", false, qefUID_null, "eleven digits"},
      {"1-2-3-4-12zz56789ABC", false, qefUID_null, "a pair that does not scan"},
      {"1-2-3-x-123456789ABC", false, qefUID_null, "the fourth group does not scan"},
      {"00000000-0000-0000-C000-000000000046", true, IID_IQEFUnknown, "the root interface"},
  };
  for (Row const & row : rows) {
    cqefuid narrow(IID_IQEFUnknown);
    cqefuid wide(IID_IQEFUnknown);
    std::u16string const text = Widen(row.text);
    EXPECT_EQ(narrow.Set(row.text), row.ok) << row.why;
    EXPECT_EQ(wide.Set(text.c_str()), row.ok) << row.why;
    EXPECT_TRUE(narrow == row.id) << row.why << ": " << Narrow(narrow);
    EXPECT_TRUE(wide == row.id) << row.why << ": " << Narrow(wide);
  }
}

TEST(Identifier, NullTextAndLongTextAreSafe) {
  cqefuid id(IID_IQEFUnknown);
  EXPECT_TRUE(id.Set(static_cast<char const *>(nullptr)));
  EXPECT_FALSE(id);
  id = IID_IQEFUnknown;
  EXPECT_TRUE(id.Set(static_cast<qefWChar const *>(nullptr)));
  EXPECT_FALSE(id);
  // A long narrow text goes through a heap copy; the result does not change.
  std::string const longText = "3C43A101-84D4-4215-9A4C-FBF54E8E7541" + std::string(4000, 'x');
  EXPECT_TRUE(id.Set(longText.c_str()));
  EXPECT_TRUE(id == IID_IQEFClassFactory);
}

TEST(Identifier, ComparesAllBytesAndIsTrueWhenAnyByteIsSet) {
  cqefuid a(IID_IQEFUnknown);
  cqefuid b("00000000-0000-0000-C000-000000000046");
  EXPECT_TRUE(a == b && !(a != b));
  EXPECT_TRUE(a == IID_IQEFUnknown);
  b.rec().Data4[7] = 0x47;
  EXPECT_TRUE(a != b && a != b.rec());
  EXPECT_TRUE(static_cast<bool>(a));
  a.reset();
  EXPECT_FALSE(static_cast<bool>(a));
  EXPECT_TRUE(a == qefUID_null);
  cqefuid last;
  last.rec().Data4[7] = 1;
  EXPECT_TRUE(static_cast<bool>(last)) << "the last byte counts too";
  cqefuid assigned;
  assigned = u"3C43A101-84D4-4215-9A4C-FBF54E8E7541";
  EXPECT_TRUE(assigned == IID_IQEFClassFactory);
  assigned = "1-2-3-4-5"; // does not parse: the null identifier
  EXPECT_FALSE(static_cast<bool>(assigned));
}

TEST(Identifier, FreshIdentifiersHaveTheVersion4LayoutAndDiffer) {
  _qefUID a{};
  _qefUID b{};
  ASSERT_TRUE(_createUID(a));
  ASSERT_TRUE(_createUID(b));
  EXPECT_FALSE(_sameUID(a, b));
  for (_qefUID const & id : {a, b}) {
    EXPECT_EQ(id.Data3 >> 12, 4) << Narrow(id);
    EXPECT_EQ(id.Data4[0] >> 6, 2) << Narrow(id);
    std::string const text = Narrow(id);
    EXPECT_EQ(text[14], '4');
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
  }
}

TEST(ComponentBase, AnUncountedObjectStaysAtZeroAndIsNeverDestroyed) {
  CUncounted object;
  EXPECT_EQ(object._addRef(), 0u);
  EXPECT_EQ(object._release(), 0u);
  EXPECT_EQ(object._release(), 0u);
  EXPECT_NE(object._queryinterfaceadd(IID_IQEFUnknown), nullptr);
  EXPECT_EQ(object._release(), 0u);
  EXPECT_EQ(object.destroyed, 0);
}

TEST(ComponentBase, AnswersTheRootAndFrameworkIdentifiersOnly) {
  CUncounted object;
  EXPECT_EQ(object._queryinterface(IID_IQEFUnknown), static_cast<void *>(object.base()));
  EXPECT_EQ(object._queryinterface(IID_IQEFClassFactory), static_cast<void *>(object.base()));
  EXPECT_EQ(object._queryinterface(qeftest::IID_ITestValue), nullptr);
  EXPECT_EQ(object._queryinterface(qefUID_null), nullptr);
  void * out = &object;
  EXPECT_EQ(object.QueryInterface(qeftest::IID_INothing, &out), QEF_E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(object.QueryInterface(IID_IQEFUnknown, nullptr), QEF_E_POINTER);
}

TEST(ComponentBase, ACountedObjectIsDestroyedOnceWhenTheCountFallsToZero) {
  qeftest::Probe probe;
  qeftest::CCounter * const object = qeftest::CCounter::New(probe);
  EXPECT_EQ(object->AddRef(), 2u);
  void * out = nullptr;
  EXPECT_EQ(object->QueryInterface(qeftest::IID_ITestValue, &out), QEF_S_OK);
  EXPECT_EQ(out, static_cast<void *>(static_cast<qeftest::ITestValue *>(object)));
  EXPECT_NE(out, static_cast<void *>(object->base())) << "a second interface, a second address";
  EXPECT_EQ(static_cast<qeftest::ITestValue *>(out)->Release(), 2u);
  EXPECT_EQ(object->Release(), 1u);
  EXPECT_EQ(probe.destroyed.load(), 0);
  EXPECT_EQ(object->Release(), 0u);
  EXPECT_EQ(probe.destroyed.load(), 1);
}

namespace {

// A static factory making `CCounter`s, or failing, or throwing.
class CStaticFactory final : public _csFactory {
public:
  qeftest::Probe probe;
  enum { Make, Fail, Throw } mode = Make;

protected:
  bool _createInstance(_qefUID const & id, void ** out) override {
    if (mode == Throw) {
      throw std::runtime_error("create");
    }
    if (mode == Fail) {
      return false;
    }
    qeftest::CCounter * const made = qeftest::CCounter::New(probe);
    bool const ok = made->QueryInterface(id, out) >= 0;
    made->Release();
    return ok;
  }
};

} // namespace

TEST(StaticFactory, AnswersItsInterfacesAndIsNeverCounted) {
  CStaticFactory factory;
  void * out = &factory;
  EXPECT_EQ(factory.QueryInterface(IID_IQEFUnknown, nullptr),
            static_cast<std::int32_t>(0x80000003u));
  EXPECT_EQ(factory.QueryInterface(IID_IQEFUnknown, &out), 0);
  EXPECT_EQ(out, static_cast<void *>(static_cast<IQEFClassFactory *>(&factory)));
  out = nullptr;
  EXPECT_EQ(factory.QueryInterface(IID_IQEFClassFactory, &out), 0);
  EXPECT_EQ(out, static_cast<void *>(static_cast<IQEFClassFactory *>(&factory)));
  EXPECT_EQ(factory.QueryInterface(IID_IQEFDefinition, &out),
            static_cast<std::int32_t>(0x80000004u));
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory.AddRef(), 2u);
  EXPECT_EQ(factory.AddRef(), 2u);
  EXPECT_EQ(factory.Release(), 0u);
}

TEST(StaticFactory, CreatesWithoutAggregationAndReportsFailures) {
  CStaticFactory factory;
  qeftest::CUncounted outer;
  void * out = nullptr;
  EXPECT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_ITestValue, nullptr),
            static_cast<std::int32_t>(0x80000003u));
  EXPECT_EQ(factory.CreateInstance(&outer, nullptr, qeftest::IID_ITestValue, &out),
            static_cast<std::int32_t>(0x80040110u));
  EXPECT_EQ(out, nullptr);
  ASSERT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_ITestValue, &out), 0);
  ASSERT_NE(out, nullptr);
  auto * const value = static_cast<qeftest::ITestValue *>(out);
  EXPECT_EQ(value->Value(), 7);
  EXPECT_EQ(value->Release(), 0u);
  EXPECT_EQ(factory.probe.destroyed.load(), 1);
  for (auto mode : {CStaticFactory::Fail, CStaticFactory::Throw}) {
    factory.mode = mode;
    out = &factory;
    EXPECT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_ITestValue, &out),
              static_cast<std::int32_t>(0x80040111u));
    EXPECT_EQ(out, nullptr);
  }
  factory.mode = CStaticFactory::Make;
  out = &factory;
  EXPECT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_INothing, &out),
            static_cast<std::int32_t>(0x80040111u))
      << "an interface the object does not offer";
  EXPECT_EQ(factory.probe.destroyed.load(), 2);
}
