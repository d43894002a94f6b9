#include <gtest/gtest.h>
#include <vorx/develop.h>
#include <vorx/hr.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::BoxCapture;
using vorx::test::LogCapture;
using vorx::test::SwitchesScope;

// The messages logged, one per line.
static std::u16string Logged(LogCapture const & log) {
  std::u16string text;
  for (auto const & line : log.Lines()) {
    text += line.message + u"\n";
  }
  return text;
}

TEST(RTABox, LogsEveryReportAndAnswersTrueOnlyForCancel) {
  LogCapture log;
  {
    SwitchesScope off({false, false, false});
    EXPECT_FALSE(OS::RTABox("Runtime assumption failed", "pMHO->pVTbl"));
  }
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(log.Lines()[0].level, qefDL_Error);
  EXPECT_EQ(log.Lines()[0].category + u"|" + log.Lines()[0].format,
            u"VORX|Failed assumption: %hs:%hs");
  {
    BoxCapture ok(false);
    EXPECT_FALSE(OS::RTABox("cap", "ok"));
    ASSERT_EQ(ok.Boxes().size(), 1u);
    EXPECT_EQ(ok.Boxes()[0].caption + "|" + ok.Boxes()[0].text, "cap|ok");
  }
  {
    BoxCapture cancel(true);
    EXPECT_TRUE(OS::RTABox("cap", "cancel"));
  }
  BoxCapture throwing;
  OS::SetAssertBox([](char const *, char const *) -> bool { throw 1; }); // counts as Cancel
  EXPECT_TRUE(OS::RTABox("cap", "throw"));
  EXPECT_EQ(Logged(log), u"Failed assumption: Runtime assumption failed:pMHO->pVTbl\n"
                         u"Failed assumption: cap:ok\nFailed assumption: cap:cancel\n"
                         u"Failed assumption: cap:throw\n");
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

TEST(AssumptionChecks, ReportOnlyTheFailingCondition) {
  SwitchesScope off({false, false, false});
  LogCapture log;
  EXPECT_FALSE(_istrue_(false, "t"));
  EXPECT_TRUE(_isfalse_(true, "t"));
  EXPECT_TRUE(_istrue_(true, "a,1:x"));
  EXPECT_FALSE(_isfalse_(false, "b,2:y"));
  EXPECT_EQ(Logged(log),
            u"Failed assumption: RTA_ON_TRUE:a,1:x\nFailed assumption: RTA_ON_FALSE:b,2:y\n");
}

TEST(ResultCode, FailuresApplyTheTwoSwitches) {
  std::int32_t const fail = static_cast<std::int32_t>(0x80004005u);
  LogCapture log;
  {
    SwitchesScope logOnly({false, true, false});
    EXPECT_TRUE(VORX::hr(0) && VORX::hr(1));
    EXPECT_TRUE(log.Lines().empty()) << "success codes never log";
    VORX::hr const failed(fail);
    EXPECT_FALSE(failed);
    EXPECT_TRUE(failed == fail && failed == VORX::hr(fail)); // the second one logs too
  }
  ASSERT_EQ(log.Lines().size(), 2u);
  EXPECT_EQ(log.Lines()[0].level, qefDL_Trace);
  EXPECT_EQ(Logged(log), u"lResult < 0: 80004005\nlResult < 0: 80004005\n");

  log.Clear();
  {
    SwitchesScope breakOnly({false, false, true});
    VORX::hr const failed(-1);
  }
  {
    SwitchesScope off({false, false, false});
    VORX::hr const failed(-1);
  }
  EXPECT_EQ(Logged(log), u"Failed assumption: RTA_ON_TRUE:VORXQEF,22:lResult < 0\n");
}
