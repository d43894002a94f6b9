#include <stdexcept>

#include <gtest/gtest.h>
#include <vorx/develop.h>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using vorx::test::LogCapture;

namespace {

// Stands in for an attached debugger, recording the strings it is sent.
std::vector<std::u16string> g_sent;

struct DebuggerScope {
  DebuggerScope() {
    g_sent.clear();
    OS::SetDebuggerHooks([] { return true; },
                         [](qefWChar const * text) { g_sent.emplace_back(text); });
  }
  ~DebuggerScope() { OS::SetDebuggerHooks(nullptr, nullptr); }
};

} // namespace

TEST(LogPrefix, HasTheFixedLayoutAndSevenCharacterLabels) {
  std::u16string labels;
  for (int level : {-1, 1, 2, 4, 8, 16, 3}) {
    labels += _levelLabel(static_cast<_qefDebugLevel>(level)) + std::u16string(u"|");
  }
  EXPECT_EQ(labels, u"FULL   |ERROR  |WARNING|verbose|trace  |INFO   |unknown|");
  qefWChar buffer[512];
  EXPECT_EQ(_formatLogPrefix(buffer, 512, 125, qefDL_Error, nullptr, nullptr, 0), 37u);
  EXPECT_EQ(std::u16string(buffer), u"   0.125 [ERROR  ] [VORX.default] [] ");
  // A prefix longer than its buffer is cut, never overrun.
  EXPECT_EQ(_formatLogPrefix(buffer, 10, 0, qefDL_Trace, u"X", nullptr, 0), 9u);
  EXPECT_EQ(std::u16string(buffer), u"   0.000 ");
}

TEST(LogWrite, SendsPrefixMessageAndLineEndToAnAttachedDebugger) {
  DebuggerScope debugger;
  _logWrite(qefDL_Warning, nullptr, "a.cpp", 12, u"x=%d %hs", 5, "five");
  ASSERT_EQ(g_sent.size(), 3u);
  // The clock is the process's own; only the rest of the prefix is checked.
  EXPECT_EQ(g_sent[0].substr(8) + g_sent[1] + g_sent[2],
            u" [WARNING] [VORX.default] [] {[file:a.cpp] [line:12]} x=5 five\r\n");
  // A message longer than the buffer is cut to 2047 characters.
  _logWrite(qefDL_Info, u"c", nullptr, 0, u"%ls", std::u16string(3000, u'a').c_str());
  ASSERT_EQ(g_sent.size(), 6u);
  EXPECT_EQ(g_sent[4].size(), 2047u);
}

TEST(ExternalLogger, ReceivesTheCallUnformattedAndIsUninstalledWhenItThrows) {
  DebuggerScope debugger;
  {
    LogCapture capture;
    _logWrite(qefDL_Trace, nullptr, nullptr, 7, u"%d-%ls", 3, u"x");
    _logWriteText(qefDL_Info, u"c", nullptr, 0, u"100% %s done");
    auto const lines = capture.Lines();
    ASSERT_EQ(lines.size(), 2u);
    // No default category, no formatting, no label; formatted text goes as "%ls"'s argument.
    EXPECT_EQ(lines[0].file + ":" + std::to_string(lines[0].line) + "|" +
                  vorx::test::Narrow(lines[0].category + u"|" + lines[0].format + u"|" +
                                     lines[0].message),
              "<null>:7|<null>|%d-%ls|3-x");
    EXPECT_EQ(lines[1].format + u"|" + lines[1].message, u"%ls|100% %s done");
    EXPECT_TRUE(g_sent.empty()) << "the logger takes the place of the debugger";
  }
  SetExternalLogger([](_qefDebugLevel, qefWChar const *, char const *, int, qefWChar const *,
                       std::va_list) { throw std::runtime_error("logger failure"); });
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"first");
  EXPECT_EQ(GetExternalLogger(), nullptr);
  EXPECT_TRUE(g_sent.empty()) << "the message that made it throw is lost";
  _logWrite(qefDL_Error, u"c", nullptr, 0, u"second");
  ASSERT_EQ(g_sent.size(), 3u);
  EXPECT_EQ(g_sent[1], u"second");
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
  EXPECT_EQ(testing::internal::GetCapturedStderr(), utf8);
  DebuggerScope debugger;
  OS::OutputDebugMessage(utf8.c_str());
  EXPECT_TRUE(g_sent.size() == 1u && g_sent[0] == wide);
}
