#include <gtest/gtest.h>
#include <vorx/develop.h>
#include <vorx/hr.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::BoxCapture;
using vorx::test::LogCapture;
using vorx::test::SwitchesScope;

TEST(RTABox, LogsTheFailureAndAnswersFalseWithTheSwitchOff) {
  SwitchesScope off({false, false, false});
  LogCapture log;
  EXPECT_FALSE(OS::RTABox("Runtime assumption failed", "pMHO->pVTbl"));
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, qefDL_Error);
  EXPECT_EQ(lines[0].category, u"VORX");
  EXPECT_EQ(lines[0].format, u"Failed assumption: %hs:%hs");
  EXPECT_EQ(lines[0].message, u"Failed assumption: Runtime assumption failed:pMHO->pVTbl");
}

TEST(RTABox, ShowsTheBoxWithTheSwitchOnAndAnswersTrueForCancel) {
  LogCapture log;
  {
    BoxCapture ok(false);
    EXPECT_FALSE(OS::RTABox("cap", "text"));
    ASSERT_EQ(ok.Boxes().size(), 1u);
    EXPECT_EQ(ok.Boxes()[0].caption, "cap");
    EXPECT_EQ(ok.Boxes()[0].text, "text");
  }
  {
    BoxCapture cancel(true);
    EXPECT_TRUE(OS::RTABox("cap", "text"));
  }
  {
    // A box that throws counts as Cancel.
    BoxCapture throwing;
    OS::SetAssertBox([](char const *, char const *) -> bool { throw 1; });
    EXPECT_TRUE(OS::RTABox("cap", "text"));
  }
  EXPECT_EQ(log.Lines().size(), 3u) << "every report is logged, box or not";
}

TEST(RTABox, ABoxMayAssertAgainOnItsOwnThread) {
  BoxCapture boxes;
  static int depth = 0;
  depth = 0;
  OS::SetAssertBox([](char const *, char const *) {
    if (++depth == 1) {
      OS::RTABox("inner", "re-entered"); // the assertion lock is recursive
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
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_TRUE(_istrue_(true, "a,1:x"));
  EXPECT_FALSE(_isfalse_(false, "b,2:y"));
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, u"Failed assumption: RTA_ON_TRUE:a,1:x");
  EXPECT_EQ(lines[1].message, u"Failed assumption: RTA_ON_FALSE:b,2:y");
}

TEST(ResultCode, FailuresApplyTheTwoSwitches) {
  LogCapture log;
  {
    SwitchesScope on({false, true, false});
    VORX::hr const ok0(0);
    VORX::hr const ok1(1);
    EXPECT_TRUE(ok0);
    EXPECT_TRUE(ok1);
    EXPECT_TRUE(log.Lines().empty());
    VORX::hr const failed(static_cast<std::int32_t>(0x80004005u));
    EXPECT_FALSE(failed);
    EXPECT_TRUE(failed == static_cast<std::int32_t>(0x80004005u));
    EXPECT_TRUE(failed == VORX::hr(static_cast<std::int32_t>(0x80004005u)));
    EXPECT_EQ(static_cast<std::int32_t>(failed), static_cast<std::int32_t>(0x80004005u));
  }
  auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, qefDL_Trace);
  EXPECT_EQ(lines[0].message, u"lResult < 0: 80004005");

  log.Clear();
  {
    SwitchesScope breakOnly({false, false, true});
    VORX::hr const failed(-1);
  }
  lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].message, u"Failed assumption: RTA_ON_TRUE:VORXQEF,22:lResult < 0");

  log.Clear();
  {
    SwitchesScope off({false, false, false});
    VORX::hr const failed(-1);
  }
  EXPECT_TRUE(log.Lines().empty());
}

TEST(Platform, IsLittleEndianWithSixteenBitWideCharacters) {
  EXPECT_FALSE(_isBigEndian());
  EXPECT_FALSE(_isWChar32());
  EXPECT_EQ(sizeof(qefWChar), 2u);
}
