#include <gtest/gtest.h>
#include <vorx/develop.h>
#include <vorx/hr.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::BoxCapture;
using vorx::test::LogCapture;
using vorx::test::SwitchesScope;

// The lines logged, each as its level, a blank and its message.
static std::u16string Logged(LogCapture const & log) {
  std::u16string text;
  for (auto const & line : log.Lines()) {
    text += char16_t(u'0' + line.level) + (u" " + line.message + u"\n");
  }
  return text;
}

TEST(RTABox, LogsEveryReportAndAnswersTrueOnlyForCancel) {
  LogCapture log;
  {
    SwitchesScope off({false, false, false});
    EXPECT_FALSE(OS::RTABox("Runtime assumption failed", "pMHO->pVTbl"));
    EXPECT_FALSE(_istrue_(false, "t") || !_isfalse_(true, "t"));
    EXPECT_TRUE(_istrue_(true, "a,1:x") && !_isfalse_(false, "b,2:y"));
    EXPECT_EQ(log.Lines().at(0).category + u"|" + log.Lines().at(0).format,
              u"VORX|Failed assumption: %hs:%hs");
  }
  {
    BoxCapture ok(false);
    EXPECT_FALSE(OS::RTABox("cap", "ok"));
    ASSERT_EQ(ok.Boxes().size(), 1u);
    EXPECT_EQ(ok.Boxes()[0].caption + "|" + ok.Boxes()[0].text, "cap|ok");
  }
  BoxCapture throwing;
  OS::SetAssertBox([](char const *, char const *) -> bool { throw 1; }); // counts as Cancel
  EXPECT_TRUE(OS::RTABox("cap", "throw"));
  EXPECT_EQ(Logged(log),
            u"1 Failed assumption: Runtime assumption failed:pMHO->pVTbl\n"
            u"1 Failed assumption: RTA_ON_TRUE:a,1:x\n1 Failed assumption: RTA_ON_FALSE:b,2:y\n"
            u"1 Failed assumption: cap:ok\n1 Failed assumption: cap:throw\n");
}

// Regression: the assertion lock must be recursive, or a box that asserts deadlocks.
TEST(RTABox, ABoxMayAssertAgainOnItsOwnThread) {
  BoxCapture boxes;
  static int depth;
  depth = 0;
  OS::SetAssertBox([](char const *, char const *) {
    if (++depth == 1) {
      OS::RTABox("inner", "re-entered");
    }
    return false;
  });
  EXPECT_FALSE(OS::RTABox("outer", "first"));
  EXPECT_EQ(depth, 2);
}

TEST(ResultCode, FailuresApplyTheTwoSwitches) {
  struct Row {
    tagDEBUGSWITCHES switches; // AssertBox, LogFailedHRESULT, BreakOnHRESULT
    std::int32_t code;
    char16_t const * logged;
  } const rows[] = {
      {{false, true, true}, 0, u""},
      {{false, true, false}, static_cast<std::int32_t>(0x8007000Eu), u"8 lResult < 0: 8007000e\n"},
      {{false, false, true}, -1, u"1 Failed assumption: RTA_ON_TRUE:VORXQEF,22:lResult < 0\n"},
      {{false, false, false}, -1, u""},
  };
  for (Row const & row : rows) {
    LogCapture log;
    SwitchesScope switches(row.switches);
    VORX::hr const result(row.code);
    bool const asBool = result; // through operator bool, not the integer
    EXPECT_EQ(asBool, row.code >= 0) << row.code;
    EXPECT_EQ(Logged(log), row.logged) << row.code;
  }
}
