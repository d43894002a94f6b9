#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vorx/develop.h>
#include <vorx/string.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::LogCapture;

namespace {

// Stands in for an attached debugger, recording what it is sent.
std::vector<std::u16string> g_debugger;
bool Attached() {
  return true;
}
bool Detached() {
  return false;
}
void Receive(qefWChar const * text) {
  g_debugger.emplace_back(text);
}

struct DebuggerScope {
  explicit DebuggerScope(bool attached) {
    g_debugger.clear();
    OS::SetDebuggerHooks(attached ? &Attached : &Detached, &Receive);
  }
  ~DebuggerScope() { OS::SetDebuggerHooks(nullptr, nullptr); }
};

int g_throwingCalls = 0;
void ThrowingLogger(_qefDebugLevel, qefWChar const *, char const *, int, qefWChar const *,
                    std::va_list) {
  ++g_throwingCalls;
  throw std::runtime_error("logger failure");
}

} // namespace

TEST(LogLabels, AreSevenCharactersWithTwoInLowerCase) {
  struct Row {
    int level;
    char16_t const * label;
  } const rows[] = {{-1, u"FULL   "}, {1, u"ERROR  "},  {2, u"WARNING"}, {4, u"verbose"},
                    {8, u"trace  "},  {16, u"INFO   "}, {3, u"unknown"}, {0, u"unknown"}};
  for (Row const & row : rows) {
    EXPECT_EQ(std::u16string(_levelLabel(static_cast<_qefDebugLevel>(row.level))), row.label)
        << row.level;
  }
}

TEST(LogPrefix, HasTheFixedLayoutWithAndWithoutAFile) {
  qefWChar buffer[512];
  std::size_t const length = _formatLogPrefix(buffer, 512, 125, qefDL_Error, nullptr, nullptr, 0);
  EXPECT_EQ(std::u16string(buffer), u"   0.125 [ERROR  ] [VORX.default] [] ");
  EXPECT_EQ(length, 37u);

  _formatLogPrefix(buffer, 512, 61234, qefDL_Info, u"Pool", "cstringpool.cpp", 88);
  EXPECT_EQ(std::u16string(buffer),
            u"  61.234 [INFO   ] [Pool] [] {[file:cstringpool.cpp] [line:88]} ");

  // A prefix longer than its buffer is cut, never overrun.
  qefWChar small[10];
  EXPECT_EQ(_formatLogPrefix(small, 10, 0, qefDL_Trace, u"X", nullptr, 0), 9u);
  EXPECT_EQ(std::u16string(small), u"   0.000 ");
}

TEST(LogWrite, GoesNowhereWithoutLoggerOrDebugger) {
  DebuggerScope debugger(false);
  _logWrite(qefDL_Error, u"VORX", "file.cpp", 1, u"%ls", u"lost");
  EXPECT_TRUE(g_debugger.empty());
}

TEST(LogWrite, SendsPrefixMessageAndLineEndToTheDebugger) {
  DebuggerScope debugger(true);
  _logWrite(qefDL_Warning, nullptr, "a.cpp", 12, u"x=%d %hs", 5, "five");
  ASSERT_EQ(g_debugger.size(), 3u);
  // The clock is the process's own; only its shape is checked.
  std::u16string const prefix = g_debugger[0];
  ASSERT_GE(prefix.size(), 9u);
  EXPECT_EQ(prefix.substr(8), u" [WARNING] [VORX.default] [] {[file:a.cpp] [line:12]} ");
  EXPECT_EQ(g_debugger[1], u"x=5 five");
  EXPECT_EQ(g_debugger[2], u"\r\n");

  // A message longer than the buffer is cut to 2047 characters.
  g_debugger.clear();
  std::u16string const longText(3000, u'a');
  _logWrite(qefDL_Info, u"c", nullptr, 0, u"%ls", longText.c_str());
  ASSERT_EQ(g_debugger.size(), 3u);
  EXPECT_EQ(g_debugger[1].size(), 2047u);

  // Already formatted text is copied verbatim, "%" included.
  g_debugger.clear();
  _logWriteText(qefDL_Info, u"c", nullptr, 0, u"100% done");
  ASSERT_EQ(g_debugger.size(), 3u);
  EXPECT_EQ(g_debugger[1], u"100% done");
}

TEST(LogWrite, AnUnknownLevelIsLabelledAfterAnAssumptionBox) {
  DebuggerScope debugger(true);
  vorx::test::BoxCapture boxes;
  _logWrite(static_cast<_qefDebugLevel>(3), u"c", nullptr, 0, u"odd");
  ASSERT_EQ(boxes.Boxes().size(), 1u);
  EXPECT_EQ(boxes.Boxes()[0].caption, "Illegal code point reached");
  EXPECT_EQ(boxes.Boxes()[0].text, "Unknown debug level");
  // The box's own report comes first, then the line itself.
  ASSERT_EQ(g_debugger.size(), 6u);
  EXPECT_EQ(g_debugger[1], u"Failed assumption: Illegal code point reached:Unknown debug level");
  EXPECT_NE(g_debugger[3].find(u"[unknown] [c] [] "), std::u16string::npos);
  EXPECT_EQ(g_debugger[4], u"odd");
}

TEST(ExternalLogger, ReceivesTheCallUnformattedAndWithoutDefaults) {
  DebuggerScope debugger(true);
  LogCapture capture;
  _logWrite(qefDL_Trace, nullptr, nullptr, 7, u"%d-%ls", 3, u"x");
  auto const lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, qefDL_Trace);
  EXPECT_EQ(lines[0].category, u"<null>") << "no default category for the logger";
  EXPECT_EQ(lines[0].file, "<null>");
  EXPECT_EQ(lines[0].line, 7);
  EXPECT_EQ(lines[0].format, u"%d-%ls");
  EXPECT_EQ(lines[0].message, u"3-x");
  EXPECT_TRUE(g_debugger.empty()) << "the logger takes the place of the debugger";
}

TEST(ExternalLogger, ThatThrowsIsUninstalledForGood) {
  DebuggerScope debugger(true);
  g_throwingCalls = 0;
  SetExternalLogger(&ThrowingLogger);
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"first");
  EXPECT_EQ(GetExternalLogger(), nullptr);
  EXPECT_TRUE(g_debugger.empty()) << "the message that made it throw is lost";
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"second");
  EXPECT_EQ(g_throwingCalls, 1);
  ASSERT_EQ(g_debugger.size(), 3u);
  EXPECT_EQ(g_debugger[1], u"second");
}
