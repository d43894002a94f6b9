#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/develop.h>

using VORX::Develop::tagDEBUGSWITCHES;

namespace {

std::string SettingsFor(char const * modulePath) {
  char buffer[256];
  return VORX::Core::OS::_SettingsPathFor(modulePath, buffer, sizeof buffer) ? buffer : "<fail>";
}

// Writes `text` to a fresh file and reads the switches from it.
tagDEBUGSWITCHES Read(std::string const & text) {
  std::string const path =
      ::testing::TempDir() + "vorx_settings_" + std::to_string(getpid()) + ".ini";
  std::ofstream(path) << text;
  tagDEBUGSWITCHES const switches = VORX::Develop::OS::_ReadDebugSettings(path.c_str());
  std::remove(path.c_str());
  return switches;
}

bool operator==(tagDEBUGSWITCHES const & a, tagDEBUGSWITCHES const & b) {
  return a.AssertBox == b.AssertBox && a.LogFailedHRESULT == b.LogFailedHRESULT &&
         a.BreakOnHRESULT == b.BreakOnHRESULT;
}

} // namespace

TEST(SettingsFile, SitsBesideTheModuleFromItsLastDot) {
  EXPECT_EQ(SettingsFor("/usr/lib/libvorx.so"), "/usr/lib/libvorx.ini");
  EXPECT_EQ(SettingsFor("x:/dir/name.dll"), "x:/dir/name.ini");
  EXPECT_EQ(SettingsFor("/opt/v1.2/libvorx"), "/opt/v1.ini") << "a dot in a directory counts";
  EXPECT_EQ(SettingsFor("/opt/libvorx"), "/opt/libvorx.ini");
  char tiny[8];
  EXPECT_FALSE(VORX::Core::OS::_SettingsPathFor("/usr/lib/libvorx.so", tiny, sizeof tiny));
  EXPECT_FALSE(VORX::Core::OS::_SettingsPathFor(nullptr, tiny, sizeof tiny));
}

TEST(SettingsFile, ReadsTheDebugSectionLikeTheProfileReader) {
  struct Row {
    char const * text;
    tagDEBUGSWITCHES expected;
  } const rows[] = {
      {"", {false, false, false}},
      {"[Debug]\nAssertBox=1\n", {true, false, false}},
      {"[debug]\nassertbox=1\nLOGFAILEDHRESULT=2\n", {true, true, false}},
      {"[Debug]\nBreakOnHRESULT=7abc\n", {false, false, true}}, // a leading integer
      {"[Debug]\nAssertBox=abc\nLogFailedHRESULT=0\n", {false, false, false}},
      {"[Debug]\nAssertBox=-1\n", {true, false, false}},
      {"[Other]\nAssertBox=1\n", {false, false, false}},
      {"[Debug]\nAssertBox=0\nAssertBox=1\n", {false, false, false}}, // the first one counts
  };
  for (Row const & row : rows) {
    EXPECT_TRUE(Read(row.text) == row.expected) << row.text;
  }
  EXPECT_TRUE(VORX::Develop::OS::_ReadDebugSettings("/nonexistent/vorx.ini") ==
              (tagDEBUGSWITCHES{false, false, false}));
}

TEST(ProcessPaths, SplitAtTheLastSeparatorWithForwardSlashes) {
  qefWChar name[64];
  qefWChar directory[64];
  ASSERT_TRUE(VORX::Core::OS::_SplitExecutablePath("D:\\apps\\tool.exe", name, directory, 64));
  EXPECT_EQ(std::u16string(name), u"tool.exe");
  EXPECT_EQ(std::u16string(directory), u"D:/apps/");
  ASSERT_TRUE(VORX::Core::OS::_SplitExecutablePath("/usr/bin/h\xC3\xA9te", name, directory, 64));
  EXPECT_EQ(std::u16string(name), u"h\u00e9te");
  EXPECT_EQ(std::u16string(directory), u"/usr/bin/");
  EXPECT_FALSE(VORX::Core::OS::_SplitExecutablePath("tool.exe", name, directory, 64));
  EXPECT_FALSE(VORX::Core::OS::_SplitExecutablePath("", name, directory, 64));
}

TEST(ProcessPaths, DescribeThisTestProgram) {
  EXPECT_TRUE(VORX::Core::OS::_LoadSucceeded());
  EXPECT_EQ(std::u16string(VORX::Core::OS::GetProcessName()), u"vorx_core_tests");
  std::u16string const startup = VORX::Core::OS::GetStartupPath();
  ASSERT_FALSE(startup.empty());
  EXPECT_EQ(startup.front(), u'/');
  EXPECT_EQ(startup.back(), u'/');
  EXPECT_EQ(std::u16string(VORX::Core::OS::GetPlatformString()), u"Linux");
}
