#include <string>

#include <gtest/gtest.h>
#include <vorx/qef.h>

#include "component/test_components.h"

using namespace VORX::QEF;

TEST(Identifier, TextFormIsUpperCaseWithoutBracesAndParsesByTheFrameworkRules) {
  EXPECT_STREQ(*cqefuid(IID_IQEFClassFactory).ANSI(), "3C43A101-84D4-4215-9A4C-FBF54E8E7541");
  struct Row {
    char const * text;
    bool ok;
    _qefUID id;
  } const rows[] = {
      {"3C43A101", true, qefUID_null},   // no dashes: the null identifier, by design
      {"1-2-3-4-5", false, qefUID_null}, // the last group has fewer than twelve digits
      {"3c43a101-84d4-4215-9a4c-fbf54e8e7541}", true, IID_IQEFClassFactory}, // tail ignored
      {"{3C43A101-84D4-4215-9A4C-FBF54E8E7541}", false, qefUID_null},
      {"1-2-3-4-123456789ABC", true, {1, 2, 3, {0, 4, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}}},
      {"1-2-3-4-12zz56789ABC", false, qefUID_null},
  };
  for (Row const & row : rows) {
    cqefuid id(IID_IQEFUnknown);
    EXPECT_TRUE(id.Set(row.text) == row.ok && id == row.id) << row.text;
  }
  // A long narrow text is widened on the heap; the result is the same.
  cqefuid id;
  EXPECT_TRUE(id.Set(("3C43A101-84D4-4215-9A4C-FBF54E8E7541" + std::string(4000, 'x')).c_str()) &&
              id == IID_IQEFClassFactory);
  id.reset();
  id.rec().Data4[7] = 1;
  EXPECT_TRUE(id) << "the last byte counts";
}

namespace {

// A static factory making `CCounter`s, or throwing.
class CStaticFactory final : public _csFactory {
public:
  qeftest::Probe probe;
  bool throws = false;

protected:
  bool _createInstance(_qefUID const & id, void ** out) override {
    if (throws) {
      throw std::runtime_error("create");
    }
    return qeftest::CCounter::Make(probe, id, out) >= 0;
  }
};

} // namespace

TEST(StaticFactory, IsNeverCountedCreatesWithoutAggregationAndContainsAThrow) {
  CStaticFactory factory;
  qeftest::CThrower outer;
  void * out = nullptr;
  EXPECT_TRUE(factory.AddRef() == 2 && factory.AddRef() == 2 && factory.Release() == 0);
  EXPECT_EQ(factory.CreateInstance(&outer, nullptr, qeftest::IID_ITestValue, &out),
            std::int32_t(0x80040110u));
  ASSERT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_ITestValue, &out), 0);
  auto * const made = static_cast<qeftest::ITestValue *>(out);
  EXPECT_TRUE(made->Value() == 7 && made->Release() == 0u);
  factory.throws = true;
  EXPECT_EQ(factory.CreateInstance(nullptr, nullptr, qeftest::IID_ITestValue, &out),
            std::int32_t(0x80040111u));
  EXPECT_EQ(out, nullptr);
}
