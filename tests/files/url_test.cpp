// Percent-encoding, decoding and checking of byte strings.
#include <vorx/internetional.h>

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
  EXPECT_EQ(out[size], '\0') << "the terminator follows the size announced";
  return out.c_str();
}

std::string Decode(std::string const & text) {
  std::string out(text.size() + 1, '#');
  EXPECT_TRUE(URL_decodebuffer(reinterpret_cast<unsigned char *>(out.data()), U8(text.c_str())));
  return out.c_str();
}

TEST(Url, EncodesChecksAndDecodesEscapes) {
  char const * const rows[][3] = {
      // text, allowed bytes, encoded text
      {"a b/c", "/", "a%20b/c"},
      {"a:b/c", "", "a%3Ab%2Fc"}, // an empty list allows nothing
  };
  for (auto const & [text, allowed, encoded] : rows) {
    EXPECT_EQ(Encode(text, allowed), encoded) << text;
  }
  unsigned char buffer[16] = "a b";
  EXPECT_FALSE(URL_encodebuffer(buffer, buffer, nullptr) || // never in place
               URL_encodebuffer(buffer, nullptr, nullptr));
  for (char const * text : {"100%", "%4", "%zz", "a/b", "\xC3\xA9"}) {
    EXPECT_FALSE(URL_checkescape(U8(text), nullptr)) << text;
  }
  EXPECT_TRUE(URL_checkescape(U8("%e9%E9a/"), U8("/")));
  // Decoding keeps what is not a well-formed escape.
  std::pair<char const *, char const *> const decodings[] = {
      {"%41%4a%zz%", "AJ%zz%"}, // either case; bad escapes kept
      {"%%41", "%A"},           // a kept % then an escape
      {"%2541", "%41"},         // one pass only
      {"a+b%20c", "a+b c"},     // plus is not a space
      {"ab%00cd", "ab"},        // a decoded zero ends the text
  };
  for (auto const & [text, decoded] : decodings) {
    EXPECT_EQ(Decode(text), decoded) << text;
  }
  unsigned char inPlace[] = "x%41y";
  EXPECT_TRUE(URL_decodebuffer(inPlace, inPlace) && !URL_decodebuffer(inPlace, nullptr));
  EXPECT_STREQ(reinterpret_cast<char *>(inPlace), "xAy");
  // Every byte survives the round trip, and its encoded form checks.
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
