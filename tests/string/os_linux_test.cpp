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

std::u16string ToWide(char const * ansi, std::uint64_t srcLen = qefAllOnes) {
  qefWChar out[32];
  std::uint64_t const n = OS::ANSI_To_qefWChar(ansi, srcLen, out, 32);
  return std::u16string(out, n);
}

std::string ToAnsi(qefWChar const * wide, std::uint64_t srcLen = qefAllOnes) {
  char out[32];
  std::uint64_t const n = OS::qefWChar_To_ANSI(wide, srcLen, out, 32);
  return std::string(out, n);
}

TEST_F(AnsiCodePage, IsWindows1252InTheCLocale) {
  ASSERT_TRUE(Use("C"));
  struct Row {
    char const * ansi;
    std::u16string wide;
    char const * label;
  };
  Row const rows[] = {
      {"abc", std::u16string(u"abc\0", 4), "ASCII, terminator counted"},
      {"caf\xE9", std::u16string(u"caf\xE9\0", 5), "U+00E9 LATIN SMALL LETTER E WITH ACUTE"},
      {"\x80", std::u16string(u"\x20AC\0", 2), "0x80 is U+20AC EURO SIGN"},
      {"\x9F", std::u16string(u"\x0178\0", 2),
       "0x9F is U+0178 LATIN CAPITAL LETTER Y WITH DIAERESIS"},
      {"\x81", std::u16string(u"\x0081\0", 2), "undefined 0x81 keeps its value"},
      {"", std::u16string(u"\0", 1), "empty text: the terminator alone"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(ToWide(row.ansi), row.wide) << row.label;
  }
  EXPECT_EQ(ToAnsi(u"caf\xE9"), std::string("caf\xE9\0", 5));
  EXPECT_EQ(ToAnsi(u"\x20AC"), std::string("\x80\0", 2));
  EXPECT_EQ(ToAnsi(u"\x4E2D"), std::string("?\0", 2)); // not in the code page
  qefWChar const lone[] = {u'a', 0xDC00, u'b', 0};
  EXPECT_EQ(ToAnsi(lone), std::string("a?b\0", 4));
}

TEST_F(AnsiCodePage, IsUtf8InCUtf8) {
  ASSERT_TRUE(Use("C.UTF-8"));
  EXPECT_EQ(ToWide("caf\xC3\xA9"), std::u16string(u"caf\xE9\0", 5));
  EXPECT_EQ(ToAnsi(u"caf\xE9"), std::string("caf\xC3\xA9\0", 6));
  EXPECT_EQ(ToAnsi(u"\x4E2D"), std::string("\xE4\xB8\xAD\0", 4));
  EXPECT_EQ(ToWide("a\xFF"
                   "b"),
            std::u16string(u"a\xFFFD"
                           u"b\0",
                           4)); // invalid byte
  CANSIChar const e(u"\xE9");
  EXPECT_EQ(e.len(), 2u);
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
    EXPECT_EQ(ToWide("abc", 2), u"ab"); // an explicit length counts no terminator
    EXPECT_EQ(ToAnsi(u"abc", 2), "ab");
    qefWChar small[3] = {0x5555, 0x5555, 0x5555};
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, small, 3), 0u); // too small
    char tiny[3];
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, tiny, 3), 0u);
    EXPECT_EQ(OS::ANSI_To_qefWChar(nullptr, qefAllOnes, small, 3), 0u);
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", 0, small, 3), 0u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(nullptr, qefAllOnes, tiny, 3), 0u);
    CQEFWChar const w("abc");
    EXPECT_EQ(w.len(), 4u);
    CANSIChar const a(u"abc");
    EXPECT_EQ(a.len(), 3u);
    EXPECT_STREQ(*a, "abc");
  }
}

} // namespace
