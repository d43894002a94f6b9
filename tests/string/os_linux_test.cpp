// The ANSI code page: Windows-1252 in the "C" locale, UTF-8 in C.UTF-8, with the result
// conventions unchanged by the locale.
#include <vorx/string.h>

#include <clocale>
#include <string>

#include <gtest/gtest.h>

using namespace VORX::String;

namespace {

// Sets a locale for one test and restores the host's afterwards.
class AnsiCodePage : public ::testing::Test {
protected:
  void SetUp() override { m_saved = std::setlocale(LC_ALL, nullptr); }
  void TearDown() override { std::setlocale(LC_ALL, m_saved.c_str()); }
  bool Use(char const * locale) { return std::setlocale(LC_ALL, locale) != nullptr; }
  std::string m_saved;
};

// Converts up to the terminator, which the result must count; returns the text without it.
std::u16string ToWide(char const * ansi) {
  qefWChar out[32];
  std::uint64_t const n = OS::ANSI_To_qefWChar(ansi, qefAllOnes, out, 32);
  EXPECT_TRUE(n > 0 && out[n - 1] == 0) << n;
  return std::u16string(out, n > 0 ? n - 1 : 0);
}
std::string ToAnsi(qefWChar const * wide) {
  char out[32];
  std::uint64_t const n = OS::qefWChar_To_ANSI(wide, qefAllOnes, out, 32);
  EXPECT_TRUE(n > 0 && out[n - 1] == 0) << n;
  return std::string(out, n > 0 ? n - 1 : 0);
}

TEST_F(AnsiCodePage, IsWindows1252InTheCLocale) {
  ASSERT_TRUE(Use("C"));
  EXPECT_EQ(ToWide(""), u"");
  EXPECT_EQ(ToWide("caf\xE9"), u"caf\xE9");       // U+00E9 LATIN SMALL LETTER E WITH ACUTE
  EXPECT_EQ(ToWide("\x80\x9F"), u"\x20AC\x0178"); // U+20AC EURO SIGN, U+0178 Y WITH DIAERESIS
  EXPECT_EQ(ToWide("\x81"), u"\x0081");           // undefined 0x81 keeps its value
  EXPECT_EQ(ToAnsi(u"caf\xE9\x20AC"), "caf\xE9\x80");
  qefWChar const lone[] = {0x4E2D, 0xDC00, u'b', 0}; // not in the code page; lone surrogate
  EXPECT_EQ(ToAnsi(lone), "??b");
}

TEST_F(AnsiCodePage, IsUtf8InCUtf8) {
  ASSERT_TRUE(Use("C.UTF-8"));
  EXPECT_EQ(ToWide("caf\xC3\xA9"), u"caf\xE9");
  EXPECT_EQ(ToWide("a\xFF"
                   "b"),
            u"a\xFFFD"
            u"b"); // invalid byte
  EXPECT_EQ(ToAnsi(u"caf\xE9\x4E2D"), "caf\xC3\xA9\xE4\xB8\xAD");
  EXPECT_EQ(CANSIChar(u"\xE9").len(), 2u);
  CQEFWChar const w("\xC3\xA9");
  EXPECT_EQ(w.len(), 2u);
  EXPECT_EQ(**w, 0xE9);
}

TEST_F(AnsiCodePage, KeepsItsResultConventionsInEveryLocale) {
  for (char const * locale : {"C", "C.UTF-8"}) {
    ASSERT_TRUE(Use(locale));
    SCOPED_TRACE(locale);
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, nullptr, 0), 4u); // size query
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, nullptr, 0), 4u);
    qefWChar small[3] = {0x5555, 0x5555, 0x5555};
    char tiny[3];
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", 2, small, 3),
              2u); // an explicit length counts no terminator
    EXPECT_EQ(std::u16string(small, 2), u"ab");
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", 2, tiny, 3), 2u);
    EXPECT_EQ(std::string(tiny, 2), "ab");
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, small, 3), 0u); // too small
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, tiny, 3), 0u);
    EXPECT_EQ(OS::ANSI_To_qefWChar(nullptr, qefAllOnes, small, 3), 0u);
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", 0, small, 3), 0u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(nullptr, qefAllOnes, tiny, 3), 0u);
    EXPECT_EQ(CQEFWChar("abc").len(), 4u);
    CANSIChar const a(u"abc");
    EXPECT_EQ(a.len(), 3u);
    EXPECT_STREQ(*a, "abc");
  }
}

} // namespace
