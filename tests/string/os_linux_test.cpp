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

TEST_F(AnsiCodePage, IsWindows1252InTheCLocaleAndUtf8InCUtf8) {
  ASSERT_TRUE(std::setlocale(LC_ALL, "C"));
  EXPECT_EQ(ToWide("caf\xE9\x80\x9F"), u"caf\xE9\x20AC\x0178"); // U+20AC EURO SIGN at 0x80
  EXPECT_EQ(ToWide("\x81"), u"\x0081");                         // undefined 0x81 keeps its value
  qefWChar const lone[] = {0x4E2D, 0xDC00, 0xE9, 0x20AC, 0};    // not in the code page; lone half
  EXPECT_EQ(ToAnsi(lone), "??\xE9\x80");
  ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
  EXPECT_EQ(ToWide("caf\xC3\xA9\xFF"), u"caf\xE9\xFFFD"); // an invalid byte
  EXPECT_EQ(ToAnsi(u"\xE9\x4E2D"), "\xC3\xA9\xE4\xB8\xAD");
  EXPECT_EQ(CANSIChar(u"\xE9").len(), 2u);
}

TEST_F(AnsiCodePage, KeepsItsResultConventionsInEveryLocale) {
  for (char const * locale : {"C", "C.UTF-8"}) {
    ASSERT_TRUE(std::setlocale(LC_ALL, locale));
    SCOPED_TRACE(locale);
    // The size query; an explicit length counts no terminator.
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, nullptr, 0), 4u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, nullptr, 0), 4u);
    qefWChar small[3] = {0x5555, 0x5555, 0x5555};
    char tiny[3];
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", 2, small, 3), 2u);
    EXPECT_EQ(std::u16string(small, 2), u"ab");
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", 2, tiny, 3), 2u);
    // Too small a destination, no text.
    EXPECT_EQ(OS::ANSI_To_qefWChar("abc", qefAllOnes, small, 3), 0u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(u"abc", qefAllOnes, tiny, 3), 0u);
    EXPECT_EQ(OS::ANSI_To_qefWChar(nullptr, qefAllOnes, small, 3), 0u);
    EXPECT_EQ(OS::qefWChar_To_ANSI(nullptr, qefAllOnes, tiny, 3), 0u);
  }
}

} // namespace
