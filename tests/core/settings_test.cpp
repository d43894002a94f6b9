#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/develop.h>

using namespace VORX::Core::OS;

static std::string SettingsFor(char const * modulePath, std::size_t size = 256) {
  char buffer[256];
  return _SettingsPathFor(modulePath, buffer, size) ? buffer : "<fail>";
}

// The three switches read from a fresh file holding `text`, as three digits.
static std::string Read(std::string const & text) {
  std::string const path =
      ::testing::TempDir() + "vorx_settings_" + std::to_string(getpid()) + ".ini";
  std::ofstream(path) << text;
  auto const s = VORX::Develop::OS::_ReadDebugSettings(path.c_str());
  std::remove(path.c_str());
  return {char('0' + s.AssertBox), char('0' + s.LogFailedHRESULT), char('0' + s.BreakOnHRESULT)};
}

TEST(SettingsFile, SitsBesideTheModuleAndIsReadLikeAProfile) {
  EXPECT_EQ(SettingsFor("/usr/lib/libvorx.so"), "/usr/lib/libvorx.ini");
  EXPECT_EQ(SettingsFor("/opt/v1.2/libvorx"), "/opt/v1.ini") << "a dot in a directory counts";
  EXPECT_EQ(SettingsFor("/opt/libvorx"), "/opt/libvorx.ini");
  EXPECT_EQ(SettingsFor("/usr/lib/libvorx.so", 8) + SettingsFor(nullptr), "<fail><fail>");
  // The file's text, then AssertBox, LogFailedHRESULT and BreakOnHRESULT as read.
  std::pair<char const *, char const *> const rows[] = {
      {"[debug]\nassertbox=-1\nLOGFAILEDHRESULT=2\n", "110"},   // any case, any non-zero value
      {"[Debug]\nBreakOnHRESULT=7abc\nAssertBox=abc\n", "001"}, // a leading integer or none
      {"[Other]\nAssertBox=1\n", "000"},
      {"[Debug]\nAssertBox=0\nAssertBox=1\n", "000"}, // the first one counts
      // White space that starts a line is ignored, on keys and sections alike.
      {"  [Debug]\n AssertBox = 1\n\tBreakOnHRESULT=1\n", "101"},
  };
  for (auto [text, switches] : rows) {
    EXPECT_EQ(Read(text), switches) << text;
  }
  EXPECT_FALSE(VORX::Develop::OS::_ReadDebugSettings("/nonexistent/vorx.ini").AssertBox);
}

TEST(ProcessPaths, SplitAtTheLastSeparatorWithForwardSlashes) {
  qefWChar name[64];
  qefWChar directory[64];
  ASSERT_TRUE(_SplitExecutablePath("D:\\apps\\tool.exe", name, directory, 64));
  EXPECT_EQ(std::u16string(directory) + u"|" + name, u"D:/apps/|tool.exe");
  ASSERT_TRUE(_SplitExecutablePath("/usr/bin/h\xC3\xA9te", name, directory, 64));
  EXPECT_EQ(std::u16string(directory) + u"|" + name, u"/usr/bin/|h\u00e9te");
  EXPECT_FALSE(_SplitExecutablePath("tool.exe", name, directory, 64));
  // This test program's own.
  EXPECT_EQ(std::u16string(GetProcessName()), u"vorx_core_tests");
  std::u16string const startup = GetStartupPath();
  EXPECT_TRUE(startup.size() > 1 && startup.front() == u'/' && startup.back() == u'/');
}
