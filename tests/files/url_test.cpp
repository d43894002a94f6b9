// Percent-encoding, decoding and checking of byte strings.
#include <vorx/internetional.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

using namespace VORX::Internetional;

namespace {

auto const * U8(char const * text) {
  return reinterpret_cast<unsigned char const *>(text);
}

std::string Encode(char const * text, char const * allowed) {
  std::size_t const size = URL_encoderequired(U8(text), U8(allowed));
  std::string out(size + 1, '#');
  EXPECT_TRUE(
      URL_encodebuffer(reinterpret_cast<unsigned char *>(out.data()), U8(text), U8(allowed)));
  EXPECT_EQ(out[size], '\0') << "terminator right after the size announced";
  return std::string(out.c_str());
}

std::string Decode(std::string text) {
  std::string out(text.size() + 1, '#');
  EXPECT_TRUE(URL_decodebuffer(reinterpret_cast<unsigned char *>(out.data()), U8(text.c_str())));
  return std::string(out.c_str());
}

TEST(UrlEncode, EscapesAllButUnreservedAndAllowedBytes) {
  struct Row {
    char const * text;
    char const * allowed;
    char const * encoded;
    char const * label;
  };
  Row const rows[] = {
      {"a b/c", nullptr, "a%20b%2Fc", "space and slash"},
      {"a b/c", "/", "a%20b/c", "slash allowed"},
      {"a:b/c", "", "a%3Ab%2Fc", "empty allowed list"},
      {"a:b/c", ":/", "a:b/c", "two allowed bytes"},
      {"-._~AZaz09", nullptr, "-._~AZaz09", "the unreserved set"},
      {"100%", nullptr, "100%25", "percent sign"},
      {"\xC3\xA9", nullptr, "%C3%A9", "U+00E9 as UTF-8: one escape per byte, upper case"},
      {"\x01\x7F\x80\xFF", nullptr, "%01%7F%80%FF", "control and high bytes"},
      {"", nullptr, "", "empty text"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Encode(row.text, row.allowed), row.encoded) << row.label;
  }
  EXPECT_EQ(URL_encoderequired(U8("a b"), nullptr), 5u);
  EXPECT_EQ(URL_encoderequired(nullptr, nullptr), 0u);
}

TEST(UrlEncode, RefusesNullAndInPlace) {
  unsigned char buffer[16] = "a b";
  EXPECT_FALSE(URL_encodebuffer(buffer, buffer, nullptr));
  EXPECT_STREQ(reinterpret_cast<char *>(buffer), "a b");
  EXPECT_FALSE(URL_encodebuffer(nullptr, U8("a"), nullptr));
  EXPECT_FALSE(URL_encodebuffer(buffer, nullptr, nullptr));
}

TEST(UrlDecode, DecodesWellFormedEscapesAndKeepsTheRest) {
  struct Row {
    char const * text;
    char const * decoded;
    char const * label;
  };
  Row const rows[] = {
      {"%41%4a%zz%", "AJ%zz%", "either case; bad escapes kept"},
      {"%4", "%4", "cut at the end"},
      {"%G1", "%G1", "not a hexadecimal digit"},
      {"%%41", "%A", "a kept % then an escape"},
      {"%2541", "%41", "one pass only"},
      {"a+b%20c", "a+b c", "plus is not a space"},
      {"%C3%A9", "\xC3\xA9", "U+00E9 as two escapes"},
      {"ab%00cd", "ab", "a decoded zero ends the text"},
      {"", "", "empty"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(Decode(row.text), row.decoded) << row.label;
  }
  unsigned char buffer[] = "x%41y%2";
  EXPECT_TRUE(URL_decodebuffer(buffer, buffer));
  EXPECT_STREQ(reinterpret_cast<char *>(buffer), "xAy%2");
  EXPECT_FALSE(URL_decodebuffer(nullptr, U8("a")));
  EXPECT_FALSE(URL_decodebuffer(buffer, nullptr));
}

TEST(UrlCheck, AcceptsOnlyEncodedText) {
  struct Row {
    char const * text;
    char const * allowed;
    bool ok;
    char const * label;
  };
  Row const rows[] = {
      {"100%25", nullptr, true, "well-formed escape"},
      {"100%", nullptr, false, "% at the end"},
      {"%4", nullptr, false, "one digit"},
      {"%zz", nullptr, false, "not digits"},
      {"%e9%E9", nullptr, true, "either case"},
      {"a b", nullptr, false, "space"},
      {"a/b", nullptr, false, "slash not allowed"},
      {"a/b", "/", true, "slash allowed"},
      {"\xC3\xA9", nullptr, false, "raw high bytes"},
      {"", nullptr, true, "empty"},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(URL_checkescape(U8(row.text), U8(row.allowed)), row.ok) << row.label;
  }
}

TEST(UrlRoundTrip, EveryByteSurvivesAndEncodedTextChecks) {
  std::string all;
  for (int b = 1; b < 256; ++b) {
    all += static_cast<char>(b);
  }
  std::string const encoded = Encode(all.c_str(), nullptr);
  EXPECT_EQ(encoded.size(), 66 + 3 * (255 - 66)); // 66 unreserved bytes
  EXPECT_TRUE(URL_checkescape(U8(encoded.c_str()), nullptr));
  EXPECT_EQ(Decode(encoded), all);
}

} // namespace
