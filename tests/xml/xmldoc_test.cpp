// CXMLDoc: entry points, text-form detection, error codes and the positioned report.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <vorx/develop.h>
#include <vorx/string.h>
#include <vorx/xml.h>

#include "support/memory_hooks.h"
#include "support/temp_dir.h"

namespace {

using namespace VORX::XML;
using VORX::String::CQEFWChar;

std::u16string ErrorText(CXMLDoc & doc) {
  CQEFWChar text;
  doc.GetErrorInfo(nullptr, &text);
  qefWChar const * p = text;
  return p != nullptr ? std::u16string(p) : std::u16string();
}

bool ParseUtf8(CXMLDoc & doc, std::string const & text) {
  return doc.OpenDocText(reinterpret_cast<unsigned char const *>(text.c_str()));
}

std::u16string LastLog;

void CaptureLog(::_qefDebugLevel level, qefWChar const * category, char const * file, int,
                qefWChar const * format, std::va_list arguments) {
  qefWChar buffer[1024];
  VORX::String::_vsnwprintf(buffer, 1024, format, arguments);
  LastLog = std::u16string(level == ::qefDL_Warning ? u"2 " : u"? ") + std::u16string(category) +
            u" " + std::u16string(reinterpret_cast<char16_t const *>(u"")) +
            (std::strcmp(file, "xmldoc") == 0 ? u"xmldoc " : u"? ") + buffer;
}

TEST(XmlDoc, EmptyOrNullTextIsABadFile) {
  CXMLDoc doc;
  EXPECT_FALSE(doc.OpenDocText(static_cast<unsigned char const *>(nullptr)));
  std::uint64_t position = 7;
  CQEFWChar text;
  EXPECT_EQ(doc.GetErrorInfo(&position, &text), 0u);
  EXPECT_EQ(position, 0u);
  EXPECT_EQ(std::u16string(static_cast<qefWChar const *>(text)), u"Bad file or bad encoding");
  EXPECT_FALSE(doc.OpenDocText(u""));
  EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 0u);
}

TEST(XmlDoc, TopLevelRulesGiveTheirCodes) {
  struct Row {
    char const * text;
    bool ok;
    std::uint32_t code;
  };
  Row const rows[] = {
      {"\xEF\xBB\xBF<a>x</a>", true, 128},
      {"<?xml version=\"1.1\"?><a/>", false, 11},
      {"<?xml version=\"1.0\" encoding=\"utf-8\"?><a/>", true, 128},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", false, 12},
      {"<a/><b/>", false, 17},
      {"</a>", false, 14},
      {"<!-- nothing -->", false, 17},
      {"\x80<a/>", false, 13},
  };
  for (Row const & row : rows) {
    CXMLDoc doc;
    EXPECT_EQ(ParseUtf8(doc, row.text), row.ok) << row.text;
    EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), row.code) << row.text;
    EXPECT_EQ(bool(doc.GetRootElement()), row.ok) << row.text;
  }
  CXMLDoc doc;
  // Regression: four-byte leads that do not decode take two units each in the report.
  EXPECT_FALSE(ParseUtf8(doc, "<a>" + std::string(200, '\xF0')));
  EXPECT_EQ(ErrorText(doc).substr(0, 33), u"[Bad character encoding, Line 1, ");
  EXPECT_FALSE(ParseUtf8(doc, "\xC3<a/>"));
  EXPECT_EQ(ErrorText(doc), u"Offset: 0, Illegal UTF8 character");
}

TEST(XmlDoc, ReportGivesLineOffsetAndMarker) {
  VORX::Develop::SetExternalLogger(&CaptureLog);
  CXMLDoc doc;
  EXPECT_FALSE(ParseUtf8(doc, "<a>\n<b>\n<c></b>"));
  std::uint64_t position = 0;
  EXPECT_EQ(doc.GetErrorInfo(&position, nullptr), 5u);
  EXPECT_EQ(position, 12u);
  EXPECT_EQ(ErrorText(doc), u"[Invalid tag, Line 3, Offset 12]<a>\n<b>\n<c><[[*]]/b>");
  EXPECT_EQ(
      LastLog,
      u"2 VORX xmldoc XML parsing error [Invalid tag, Line 3, Offset 12]<a>\n<b>\n<c><[[*]]/b>");
  // More than 60 characters before the error: "..." and the last 60 of them.
  std::string const spaces(70, ' ');
  EXPECT_FALSE(ParseUtf8(doc, "<a>" + spaces + "</b>" + std::string(80, ' ')));
  EXPECT_EQ(ErrorText(doc), u"[Invalid tag, Line 1, Offset 74]..." + std::u16string(59, u' ') +
                                u"<[[*]]/b>" + std::u16string(57, u' '));
  // The same in 16-bit text, where a cut inside a pair moves past its low half.
  std::u16string wide = u"<a>" + std::u16string(u"\U00010000") + std::u16string(59, u'x') + u"</b>";
  EXPECT_FALSE(doc.OpenDocText(wide.c_str()));
  EXPECT_EQ(ErrorText(doc),
            u"[Invalid tag, Line 1, Offset 65]..." + std::u16string(59, u'x') + u"<[[*]]/b>");
  VORX::Develop::SetExternalLogger(nullptr);
  doc.Close();
  EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 128u);
  EXPECT_EQ(ErrorText(doc), u"");
}

TEST(XmlDoc, CloseAfterSuccessLeavesDefaultRoot) {
  CXMLDoc doc;
  ASSERT_TRUE(ParseUtf8(doc, "<a x='1'><b>t</b></a>"));
  CPXMLObject root = doc.GetRootElement();
  EXPECT_EQ(std::u16string(static_cast<qefWChar const *>(root.GetName())), u"a");
  CXMLDoc copy(doc);
  EXPECT_TRUE(copy.GetRootElement().IsName(root.GetName()));
  doc.Close();
  EXPECT_TRUE(doc.GetRootElement().IsDefault());
  EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 128u);
  // A failed parse drops the earlier tree.
  ASSERT_TRUE(ParseUtf8(doc, "<a/>"));
  EXPECT_FALSE(ParseUtf8(doc, "<a>"));
  EXPECT_TRUE(doc.GetRootElement().IsDefault());
}

std::vector<std::uint8_t> Bytes(std::initializer_list<int> values) {
  std::vector<std::uint8_t> out;
  for (int v : values) {
    out.push_back(std::uint8_t(v));
  }
  return out;
}

TEST(XmlDoc, BufferFormIsDetectedFromTheFirstBytes) {
  struct Row {
    char const * label;
    std::vector<std::uint8_t> bytes;
    bool ok;
  };
  Row const rows[] = {
      {"UTF-8", Bytes({'<', 'a', '/', '>', 0, 0}), true},
      {"little-endian with mark", Bytes({0xFF, 0xFE, '<', 0, 'a', 0, '/', 0, '>', 0, 0, 0}), true},
      {"big-endian with mark", Bytes({0xFE, 0xFF, 0, '<', 0, 'a', 0, '/', 0, '>', 0, 0}), true},
      {"big-endian without mark", Bytes({0, '<', 0, 'a', 0, '/', 0, '>', 0, 0}), true},
      {"big-endian without mark after a blank",
       Bytes({0, ' ', 0, '<', 0, 'a', 0, '/', 0, '>', 0, 0}), true},
      {"little-endian without mark", Bytes({'<', 0, 'a', 0, '/', 0, '>', 0, 0, 0}), true},
      {"a mark alone", Bytes({0xFF, 0xFE, 0, 0, 0, 0}), false},
      {"two zero bytes first", Bytes({0, 0, '<', 0, 0, 0}), false},
      {"zero then not markup", Bytes({0, 'a', 0, '<', 0, 0}), false},
      {"fewer than 4 bytes", Bytes({'<', 0, 0}), false},
  };
  for (Row const & row : rows) {
    std::vector<std::uint16_t> aligned((row.bytes.size() + 1) / 2 + 1, 0);
    std::memcpy(aligned.data(), row.bytes.data(), row.bytes.size());
    CXMLDoc doc;
    EXPECT_EQ(doc.OpenDocText(static_cast<void *>(aligned.data()), row.bytes.size()), row.ok)
        << row.label;
  }
}

class XmlDocFile : public ::testing::Test {
protected:
  vorx::test::WidePath Path(char const * name) const { return temp.WPath(name); }
  void Put(char const * name, std::vector<std::uint8_t> const & bytes) const {
    temp.Put(name, std::string(bytes.begin(), bytes.end()));
  }
  vorx::test::TempDir temp;
};

TEST_F(XmlDocFile, FileFormsAreReadAndBadFilesRefused) {
  Put("be.xml", Bytes({0, '<', 0, 'a', 0, '>', 0, 'x', 0, '<', 0, '/', 0, 'a', 0, '>'}));
  Put("mark.xml", Bytes({0xFF, 0xFE}));
  Put("one.xml", Bytes({'<'}));
  Put("utf8.xml", Bytes({'<', 'a', '/', '>'}));
  CXMLDoc doc;
  ASSERT_TRUE(doc.OpenDocFile(Path("be.xml").c_str(), eXMLEncodingAuto));
  EXPECT_EQ(std::u16string(static_cast<qefWChar const *>(doc.GetRootElement().GetData())), u"x");
  EXPECT_TRUE(doc.OpenDocFile(Path("utf8.xml").c_str(), eXMLEncodingAuto));
  for (char const * bad : {"mark.xml", "one.xml", "missing.xml"}) {
    EXPECT_FALSE(doc.OpenDocFile(Path(bad).c_str(), eXMLEncodingAuto)) << bad;
    EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 0u) << bad;
  }
}

TEST(XmlDoc, DeepNestingIsRefusedAndFailedAllocationsLeakNothing) {
  std::string deep;
  for (int i = 0; i < 100000; ++i) {
    deep += "<a>";
  }
  CXMLDoc doc;
  EXPECT_FALSE(ParseUtf8(doc, deep));
  EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 18u);
  std::string const text = "<!DOCTYPE a [<!ENTITY e 'ee'>]><a x='1' y='&e;'><b>t&e;</b><c/></a>";
  bool completed = false;
  for (long successes = 0; !completed && successes < 400; ++successes) {
    CXMLDoc failing;
    bool ok;
    {
      vorx::test::AllocationFailure failure(successes);
      ok = ParseUtf8(failing, text);
    }
    completed = ok;
    if (!ok) {
      EXPECT_TRUE(failing.GetRootElement().IsDefault());
    }
  }
  EXPECT_TRUE(completed);
}

} // namespace
