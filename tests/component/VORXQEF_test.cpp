#include <string>

#include <gtest/gtest.h>
#include <vorx/qef.h>

#include "component/test_components.h"

using namespace VORX::QEF;
using qeftest::CUncounted;

namespace {

std::string Narrow(cqefuid const & id) {
  VORX::String::CANSIChar const text = id.ANSI();
  return *text ? std::string(*text) : std::string("<none>");
}
// Each byte as the unit of the same value.
std::u16string Widen(std::string const & text) {
  return std::u16string(text.begin(), text.end());
}

} // namespace

TEST(Identifier, TextFormIsUpperCaseWithoutBracesNarrowAndWideAlike) {
  struct Row {
    _qefUID id;
    char const * text;
  } const rows[] = {
      {qefUID_null, "00000000-0000-0000-0000-000000000000"},
      {IID_IQEFUnknown, "00000000-0000-0000-C000-000000000046"},
      {IID_IQEFClassFactory, "3C43A101-84D4-4215-9A4C-FBF54E8E7541"},
      {{0x1u, 0x2u, 0xABu, {0x4, 0x5, 0x6, 0x7, 0x8, 0x9, 0xA, 0xFF}},
       "00000001-0002-00AB-0405-060708090AFF"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Narrow(row.id), row.text);
    VORX::String::CQEFWChar const wide = cqefuid(row.id);
    EXPECT_EQ(std::u16string(*wide), Widen(row.text));
  }
}

TEST(Identifier, ParsesByTheFrameworkRulesNarrowAndWideAlike) {
  struct Row {
    char const * text;
    bool ok;
    _qefUID id;
    char const * why;
  } const rows[] = {
      {"", true, qefUID_null, "the empty text is the null identifier"},
      {"3C43A101", true, qefUID_null, "no dashes: the null identifier, by design"},
      {"1-2-3-4-5-6", true, qefUID_null, "five dashes"},
      {"1-2-3-4-5", false, qefUID_null, "the last group has fewer than twelve digits"},
      {"3c43a101-84d4-4215-9a4c-fbf54e8e7541", true, IID_IQEFClassFactory, "lower case"},
      {"3C43A101-84D4-4215-9A4C-FBF54E8E7541}", true, IID_IQEFClassFactory,
       "characters after the twelfth digit are ignored"},
      {"{3C43A101-84D4-4215-9A4C-FBF54E8E7541}", false, qefUID_null, "braces do not scan"},
      {"1-2-3-4-123456789ABC",
       true,
       {1, 2, 3, {0, 4, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}},
       "short groups read as numbers"},
      {"1-2-3-4-12zz56789ABC", false, qefUID_null, "a pair that does not scan"},
      {"1-2-3-x-123456789ABC", false, qefUID_null, "the fourth group does not scan"},
  };
  for (Row const & row : rows) {
    cqefuid narrow(IID_IQEFUnknown);
    cqefuid wide(IID_IQEFUnknown);
    EXPECT_EQ(narrow.Set(row.text), row.ok) << row.why;
    EXPECT_EQ(wide.Set(Widen(row.text).c_str()), row.ok) << row.why;
    EXPECT_TRUE(narrow == row.id && wide == row.id) << row.why << ": " << Narrow(narrow);
  }
  cqefuid id(IID_IQEFUnknown);
  cqefuid wide(IID_IQEFUnknown);
  EXPECT_TRUE(id.Set(static_cast<char const *>(nullptr)) && !id);
  EXPECT_TRUE(wide.Set(static_cast<qefWChar const *>(nullptr)) && !wide);
  // A long narrow text is widened on the heap; the result is the same.
  std::string const longText = "3C43A101-84D4-4215-9A4C-FBF54E8E7541" + std::string(4000, 'x');
  EXPECT_TRUE(id.Set(longText.c_str()) && id == IID_IQEFClassFactory);
}

TEST(Identifier, ComparesAllBytesAndIsTrueWhenAnyByteIsSet) {
  cqefuid a(IID_IQEFUnknown);
  cqefuid b(u"00000000-0000-0000-C000-000000000046");
  EXPECT_TRUE(a == b && !(a != b));
  b.rec().Data4[7] = 0x47;
  EXPECT_TRUE(a != b && a != b.rec()) << "the last byte counts";
  a.reset();
  a.rec().Data4[7] = 1;
  EXPECT_TRUE(static_cast<bool>(a)) << "the last byte counts too";
  a = "1-2-3-4-5";
  EXPECT_FALSE(static_cast<bool>(a)) << "assigning text that does not parse gives null";
}

TEST(Identifier, FreshIdentifiersHaveTheVersion4LayoutAndDiffer) {
  _qefUID a{};
  _qefUID b{};
  ASSERT_TRUE(_createUID(a) && _createUID(b));
  EXPECT_FALSE(_sameUID(a, b));
  for (_qefUID const & id : {a, b}) {
    std::string const text = Narrow(id);
    EXPECT_EQ(text[14], '4') << text;
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
  }
}

TEST(ComponentBase, AnUncountedObjectStaysAtZeroAndAnswersTwoIdentifiers) {
  CUncounted object;
  EXPECT_TRUE(object._addRef() == 0u && object._release() == 0u);
  EXPECT_EQ(object._queryinterfaceadd(IID_IQEFClassFactory), static_cast<void *>(object.base()));
  EXPECT_TRUE(object._release() == 0u && object.destroyed == 0);
  EXPECT_EQ(object._queryinterface(IID_IQEFUnknown), static_cast<void *>(object.base()));
  EXPECT_EQ(object._queryinterface(qeftest::IID_ITestValue), nullptr);
  void * out = &object;
  EXPECT_EQ(object.QueryInterface(qeftest::IID_INothing, &out), QEF_E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(object.QueryInterface(IID_IQEFUnknown, nullptr), QEF_E_POINTER);
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
    qeftest::CCounter * const made = qeftest::CCounter::New(probe);
    bool const ok = mode == Make && made->QueryInterface(id, out) >= 0;
    made->Release();
    return ok;
  }
};

constexpr std::int32_t Code(std::uint32_t code) {
  return static_cast<std::int32_t>(code);
}

} // namespace

TEST(StaticFactory, AnswersItsInterfacesIsNeverCountedAndCreatesWithoutAggregation) {
  CStaticFactory factory;
  void * const self = static_cast<IQEFClassFactory *>(&factory);
  void * out = nullptr;
  EXPECT_EQ(factory.QueryInterface(IID_IQEFUnknown, nullptr), Code(0x80000003u));
  EXPECT_TRUE(factory.QueryInterface(IID_IQEFUnknown, &out) == 0 && out == self);
  EXPECT_TRUE(factory.QueryInterface(IID_IQEFClassFactory, &out) == 0 && out == self);
  EXPECT_TRUE(factory.QueryInterface(IID_IQEFDefinition, &out) == Code(0x80000004u) && !out);
  EXPECT_TRUE(factory.AddRef() == 2 && factory.AddRef() == 2 && factory.Release() == 0);

  qeftest::CUncounted outer;
  auto const create = [&](IQEFUnknown * with, _qefUID const & id, void ** to) {
    return factory.CreateInstance(with, nullptr, id, to);
  };
  EXPECT_EQ(create(nullptr, qeftest::IID_ITestValue, nullptr), Code(0x80000003u));
  EXPECT_EQ(create(&outer, qeftest::IID_ITestValue, &out), Code(0x80040110u));
  ASSERT_EQ(create(nullptr, qeftest::IID_ITestValue, &out), 0);
  auto * const made = static_cast<qeftest::ITestValue *>(out);
  EXPECT_TRUE(made->Value() == 7 && made->Release() == 0u);
  EXPECT_EQ(create(nullptr, qeftest::IID_INothing, &out), Code(0x80040111u))
      << "an interface the object does not offer";
  factory.mode = CStaticFactory::Fail;
  EXPECT_EQ(create(nullptr, qeftest::IID_ITestValue, &out), Code(0x80040111u));
  factory.mode = CStaticFactory::Throw;
  EXPECT_TRUE(create(nullptr, qeftest::IID_ITestValue, &out) == Code(0x80040111u) && !out);
  EXPECT_EQ(factory.probe.destroyed.load(), 3);
}
