#include <stdexcept>

#include <gtest/gtest.h>
#include <vorx/develop.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::LogCapture;

namespace {

// Stands in for a debugger, attached or not, recording the strings it is sent.
std::vector<std::u16string> g_sent;

struct DebuggerScope {
  explicit DebuggerScope(bool attached) {
    g_sent.clear();
    OS::SetDebuggerHooks(
        attached ? +[] { return true; } : +[] { return false; },
        [](qefWChar const * text) { g_sent.emplace_back(text); });
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
  std::u16string labels;
  for (int level : {-1, 1, 2, 4, 8, 16, 3, 0}) {
    labels += _levelLabel(static_cast<_qefDebugLevel>(level)) + std::u16string(u"|");
  }
  EXPECT_EQ(labels, u"FULL   |ERROR  |WARNING|verbose|trace  |INFO   |unknown|unknown|");
}

TEST(LogPrefix, HasTheFixedLayoutWithAndWithoutAFile) {
  qefWChar buffer[512];
  EXPECT_EQ(_formatLogPrefix(buffer, 512, 125, qefDL_Error, nullptr, nullptr, 0), 37u);
  EXPECT_EQ(std::u16string(buffer), u"   0.125 [ERROR  ] [VORX.default] [] ");
  _formatLogPrefix(buffer, 512, 61234, qefDL_Info, u"Pool", "cstringpool.cpp", 88);
  EXPECT_EQ(std::u16string(buffer),
            u"  61.234 [INFO   ] [Pool] [] {[file:cstringpool.cpp] [line:88]} ");
  // A prefix longer than its buffer is cut, never overrun.
  EXPECT_EQ(_formatLogPrefix(buffer, 10, 0, qefDL_Trace, u"X", nullptr, 0), 9u);
  EXPECT_EQ(std::u16string(buffer), u"   0.000 ");
}

TEST(LogWrite, SendsPrefixMessageAndLineEndToAnAttachedDebuggerOnly) {
  {
    DebuggerScope detached(false);
    _logWrite(qefDL_Error, u"VORX", "file.cpp", 1, u"%ls", u"lost");
    EXPECT_TRUE(g_sent.empty());
  }
  DebuggerScope debugger(true);
  _logWrite(qefDL_Warning, nullptr, "a.cpp", 12, u"x=%d %hs", 5, "five");
  ASSERT_EQ(g_sent.size(), 3u);
  // The clock is the process's own; only the rest of the prefix is checked.
  EXPECT_EQ(g_sent[0].substr(8) + g_sent[1] + g_sent[2],
            u" [WARNING] [VORX.default] [] {[file:a.cpp] [line:12]} x=5 five\r\n");

  // A message longer than the buffer is cut to 2047 characters; formatted text goes verbatim.
  _logWrite(qefDL_Info, u"c", nullptr, 0, u"%ls", std::u16string(3000, u'a').c_str());
  _logWriteText(qefDL_Info, u"c", nullptr, 0, u"100% done");
  ASSERT_EQ(g_sent.size(), 9u);
  EXPECT_EQ(g_sent[4].size(), 2047u);
  EXPECT_EQ(g_sent[7], u"100% done");

  // An unknown level: the box's own report comes first, then the line itself.
  vorx::test::BoxCapture boxes;
  _logWrite(static_cast<_qefDebugLevel>(3), u"c", nullptr, 0, u"odd");
  EXPECT_EQ(boxes.Boxes().size(), 1u);
  ASSERT_EQ(g_sent.size(), 15u);
  EXPECT_EQ(g_sent[10], u"Failed assumption: Illegal code point reached:Unknown debug level");
  EXPECT_EQ(g_sent[12].substr(8) + g_sent[13], u" [unknown] [c] [] odd");
}

TEST(ExternalLogger, ReceivesTheCallUnformattedAndWithoutDefaults) {
  DebuggerScope debugger(true);
  LogCapture capture;
  _logWrite(qefDL_Trace, nullptr, nullptr, 7, u"%d-%ls", 3, u"x");
  auto const lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  auto const & line = lines[0];
  EXPECT_EQ(line.level, qefDL_Trace);
  EXPECT_EQ(line.file + ":" + std::to_string(line.line), "<null>:7");
  // No default category, no formatting, no label.
  EXPECT_EQ(line.category + u"|" + line.format + u"|" + line.message, u"<null>|%d-%ls|3-x");
  // Formatted text goes as the argument of "%ls", never as the format.
  _logWriteText(qefDL_Info, u"c", nullptr, 0, u"100% %s done");
  ASSERT_EQ(capture.Lines().size(), 2u);
  EXPECT_EQ(capture.Lines()[1].format + u"|" + capture.Lines()[1].message, u"%ls|100% %s done");
  EXPECT_TRUE(g_sent.empty()) << "the logger takes the place of the debugger";
}

TEST(DebuggerChannel, PassesLongTextsWhole) {
  // 5000 characters, most of three UTF-8 bytes, some outside the BMP (a surrogate pair, four
  // bytes), through the system channel (standard error) and through the hook.
  std::u16string wide;
  std::string utf8;
  for (int i = 0; i < 5000; ++i) {
    wide += i % 1024 == 1023 ? u"\U0001F600" : u"\u20AC";
    utf8 += i % 1024 == 1023 ? "\U0001F600" : "\u20AC";
  }
  testing::internal::CaptureStderr();
  OS::OutputDebugMessage(wide.c_str());
  OS::OutputDebugMessage(utf8.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), utf8 + utf8);

  DebuggerScope debugger(true);
  OS::OutputDebugMessage(wide.c_str());
  OS::OutputDebugMessage(utf8.c_str());
  ASSERT_EQ(g_sent.size(), 2u);
  EXPECT_TRUE(g_sent[0] == wide && g_sent[1] == wide);
}

TEST(ExternalLogger, ThatThrowsIsUninstalledForGood) {
  DebuggerScope debugger(true);
  g_throwingCalls = 0;
  SetExternalLogger(&ThrowingLogger);
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"first");
  EXPECT_EQ(GetExternalLogger(), nullptr);
  EXPECT_TRUE(g_sent.empty()) << "the message that made it throw is lost";
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"second");
  EXPECT_EQ(g_throwingCalls, 1);
  ASSERT_EQ(g_sent.size(), 3u);
  EXPECT_EQ(g_sent[1], u"second");
}
