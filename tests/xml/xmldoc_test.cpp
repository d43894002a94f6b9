// CXMLDoc: entry points, text-form detection, error codes and the positioned report.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <vorx/xml.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "support/temp_dir.h"

namespace {

using namespace VORX::XML;
using VORX::String::CPPoolString;
using VORX::String::CQEFWChar;
using VORX::String::CStringPool;

std::u16string ErrorText(CXMLDoc & doc) {
  CQEFWChar text;
  doc.GetErrorInfo(nullptr, &text);
  qefWChar const * p = text;
  return p != nullptr ? std::u16string(p) : std::u16string();
}

bool ParseUtf8(CXMLDoc & doc, std::string const & text) {
  return doc.OpenDocText(reinterpret_cast<unsigned char const *>(text.c_str()));
}

TEST(XmlDoc, TopLevelRulesGiveTheirCodes) {
  struct {
    char const * text;
    bool ok;
    std::uint32_t code;
  } const rows[] = {
      {"\xEF\xBB\xBF<a>x</a>", true, 128},
      {"<!-- nothing -->", false, 17},
      {"\x80<a/>", false, 13},
  };
  for (auto const & row : rows) {
    CXMLDoc doc;
    EXPECT_EQ(ParseUtf8(doc, row.text), row.ok) << row.text;
    EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), row.code) << row.text;
    EXPECT_EQ(bool(doc.GetRootElement()), row.ok) << row.text;
  }
  CXMLDoc doc;
  EXPECT_FALSE(doc.OpenDocText(static_cast<unsigned char const *>(nullptr)));
  std::uint64_t position = 7;
  EXPECT_TRUE(doc.GetErrorInfo(&position, nullptr) == 0u && position == 0u);
  EXPECT_EQ(ErrorText(doc), u"Bad file or bad encoding");
  EXPECT_TRUE(!doc.OpenDocText(u"") && doc.GetErrorInfo(nullptr, nullptr) == 0u);
  // Regression: four-byte leads that do not decode take two units each in the report.
  EXPECT_FALSE(ParseUtf8(doc, "<a>" + std::string(200, '\xF0')));
  EXPECT_EQ(ErrorText(doc).substr(0, 33), u"[Bad character encoding, Line 1, ");
  EXPECT_FALSE(ParseUtf8(doc, "\xC3<a/>"));
  EXPECT_EQ(ErrorText(doc), u"Offset: 0, Illegal UTF8 character");
}

TEST(XmlDoc, ReportGivesLineOffsetAndMarker) {
  vorx::test::LogCapture log;
  CXMLDoc doc;
  EXPECT_FALSE(ParseUtf8(doc, "<a>\n<b>\n<c></b>"));
  std::uint64_t position = 0;
  EXPECT_TRUE(doc.GetErrorInfo(&position, nullptr) == 5u && position == 12u);
  EXPECT_EQ(ErrorText(doc), u"[Invalid tag, Line 3, Offset 12]<a>\n<b>\n<c><[[*]]/b>");
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].level == qefDL_Warning && lines[0].file == "xmldoc");
  EXPECT_EQ(lines[0].category + u" " + lines[0].message,
            u"VORX XML parsing error [Invalid tag, Line 3, Offset 12]<a>\n<b>\n<c><[[*]]/b>");
  // More than 60 characters before the error: "..." and the last 60 of them.
  EXPECT_FALSE(ParseUtf8(doc, "<a>" + std::string(70, ' ') + "</b>" + std::string(80, ' ')));
  EXPECT_EQ(ErrorText(doc), u"[Invalid tag, Line 1, Offset 74]..." + std::u16string(59, u' ') +
                                u"<[[*]]/b>" + std::u16string(57, u' '));
  // The same in 16-bit text, where a cut inside a pair moves past its low half.
  std::u16string wide = u"<a>" + std::u16string(u"\U00010000") + std::u16string(59, u'x') + u"</b>";
  EXPECT_FALSE(doc.OpenDocText(wide.c_str()));
  EXPECT_EQ(ErrorText(doc),
            u"[Invalid tag, Line 1, Offset 65]..." + std::u16string(59, u'x') + u"<[[*]]/b>");
  doc.Close();
  EXPECT_TRUE(doc.GetErrorInfo(nullptr, nullptr) == 128u && ErrorText(doc).empty());
}

TEST(XmlDoc, BufferAndFileFormsAreDetectedFromTheFirstBytes) {
  using namespace std::string_literals;
  std::pair<std::string, bool> const rows[] = {
      {"<a/>\0\0"s, true},
      {"\xFE\xFF\0<\0a\0/\0>\0\0"s, true},
      {"\0 \0<\0a\0/\0>\0\0"s, true}, // big-endian without mark
      {"<\0a\0/\0>\0\0\0"s, true},    // little-endian without mark
      {"\xFF\xFE\0\0\0\0"s, false},   // a mark alone
      {"\0a\0<\0\0"s, false},         // zero then not markup
      {"<\0\0"s, false},              // fewer than 4 bytes
  };
  for (auto const & [bytes, ok] : rows) {
    std::vector<std::uint16_t> aligned(bytes.size() / 2 + 2, 0);
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    CXMLDoc doc;
    EXPECT_EQ(doc.OpenDocText(static_cast<void *>(aligned.data()), bytes.size()), ok)
        << &bytes - &rows[0].first;
  }
  // Files: big-endian without a mark is read; a mark alone, one byte or no file are bad files.
  vorx::test::TempDir temp;
  temp.Put("be.xml", "\0<\0a\0>\0x\0<\0/\0a\0>"s);
  temp.Put("mark.xml", "\xFF\xFE");
  temp.Put("one.xml", "<");
  CXMLDoc doc;
  ASSERT_TRUE(doc.OpenDocFile(temp.WPath("be.xml").c_str(), eXMLEncodingAuto));
  EXPECT_TRUE(doc.GetRootElement().IsData(u"x"));
  for (char const * bad : {"mark.xml", "one.xml", "missing.xml"}) {
    EXPECT_FALSE(doc.OpenDocFile(temp.WPath(bad).c_str(), eXMLEncodingAuto)) << bad;
    EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 0u) << bad;
  }
}

TEST(XmlDoc, DeepNestingIsRefusedAndFailedAllocationsLeakNothing) {
  std::string deep;
  while (deep.size() < 300000) {
    deep += "<a>";
  }
  CXMLDoc doc;
  ASSERT_TRUE(ParseUtf8(doc, "<a/>"));
  EXPECT_TRUE(!ParseUtf8(doc, deep) && doc.GetErrorInfo(nullptr, nullptr) == 18u);
  EXPECT_TRUE(doc.GetRootElement().IsDefault()) << "a failed parse drops the earlier tree";
  std::string const text = "<!DOCTYPE a [<!ENTITY e 'ee'>]><a x='1' y='&e;'><b>t&e;</b><c/></a>";
  bool completed = false;
  for (long successes = 0; !completed && successes < 400; ++successes) {
    CXMLDoc failing;
    {
      vorx::test::AllocationFailure failure(successes);
      completed = ParseUtf8(failing, text);
    }
    EXPECT_TRUE(completed || failing.GetRootElement().IsDefault());
  }
  EXPECT_TRUE(completed);
}

// A host that keeps one text from each of many small documents (an id from each message) keeps
// little more than when it makes those texts itself: a document's new texts must not each hold a
// page sized for large documents.
TEST(XmlDoc, TextsKeptFromSmallDocumentsHoldLittleMoreThanTheirRecords) {
  constexpr long kTexts = 400;
  auto const message = [](long i) {
    return "<clip id=\"take-" + std::to_string(i) + "\" kind=\"video\"/>";
  };
  std::vector<CPPoolString> made;
  std::vector<CPPoolString> parsed;
  made.reserve(kTexts);
  parsed.reserve(kTexts);
  long const start = vorx::test::LiveBytes();
  for (long i = 0; i < kTexts; ++i) {
    std::string const id = "made-" + std::to_string(i);
    made.push_back(CStringPool::GetStringRef(reinterpret_cast<unsigned char const *>(id.c_str())));
  }
  long const afterMade = vorx::test::LiveBytes();
  for (long i = 0; i < kTexts; ++i) {
    CXMLDoc doc;
    ASSERT_TRUE(ParseUtf8(doc, message(i)));
    CPPoolString name;
    CPPoolString value;
    ASSERT_TRUE(doc.GetRootElement().GetAttribute(0, name, value));
    parsed.push_back(value);
  }
  CStringPool::Collect(0xFFFFFFFFu); // the documents' other texts are held by nobody now
  CStringPool::Collect(0xFFFFFFFFu);
  long const perMade = (afterMade - start) / kTexts;
  long const perParsed = (vorx::test::LiveBytes() - afterMade) / kTexts;
  EXPECT_LT(perParsed, perMade + 512)
      << perMade << " bytes per text made, " << perParsed << " per text kept from a document";
}

} // namespace
