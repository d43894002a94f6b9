// The W3C "xmltest" cases, read from ../shared/xmlconf (never copied into the repository).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "xmlnode_support.h"
#include "xmltree_support.h"

namespace {

using namespace VORX::XML;
using vorx::test::XmlConformanceDir;

std::vector<std::filesystem::path> Cases(char const * sub) {
  std::vector<std::filesystem::path> files;
  for (auto const & entry : std::filesystem::directory_iterator(XmlConformanceDir() / sub)) {
    if (entry.path().extension() == ".xml") {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(XmlConformance, CasesAreRejectedOrAcceptedAndWrittenBackTheSame) {
  if (XmlConformanceDir().empty()) {
    GTEST_SKIP() << "../shared/xmlconf/xmltest is absent: conformance cases not run";
  }
  auto const rejected = Cases("not-wf/sa");
  EXPECT_EQ(rejected.size(), 186u);
  for (auto const & file : rejected) {
    vorx::test::XmlTreeSink sink;
    auto const result = vorx::test::ReadBytes(vorx::test::ReadFileBytes(file), sink);
    EXPECT_NE(result.code, kXMLNoError) << file.filename() << " was accepted";
  }
  // None of the standalone valid cases needs mixed or outside content, which the reader refuses
  // by its documented policy. Cases whose tree does not survive a write, by the writers'
  // documented rules:
  // - characters above U+FFFF (052, 064, 089): the writers collapse each pair to 0x00 or 0x01 on
  //   purpose (and pooled strings keep only as many units as the text has characters, so these
  //   cases are not read into a tree today);
  // - a carriage return given by reference in data (067, 068) is written as it is and reads back
  //   as a line feed;
  // - tab, line feed or carriage return given by reference in an attribute value (105, 106, 107)
  //   are written as they are (only the five special characters are escaped) and read back as
  //   spaces.
  std::set<std::string> const excused = {"052.xml", "064.xml", "089.xml", "067.xml",
                                         "068.xml", "105.xml", "106.xml", "107.xml"};
  auto const accepted = Cases("valid/sa");
  EXPECT_EQ(accepted.size(), 120u);
  for (auto const & file : accepted) {
    std::string const bytes = vorx::test::ReadFileBytes(file);
    vorx::test::XmlTreeSink sink;
    auto const result = vorx::test::ReadBytes(bytes, sink);
    EXPECT_TRUE(result.code == kXMLNoError && sink.roots == 1) << file.filename();
    std::vector<std::uint16_t> aligned(bytes.size() / 2 + 3, 0);
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    bool const exempt = excused.count(file.filename().string()) != 0;
    CXMLDoc doc;
    if (!doc.OpenDocText(static_cast<void *>(aligned.data()), bytes.size())) {
      EXPECT_TRUE(exempt) << file.filename() << " not read";
      continue;
    }
    for (eXMLEncoding encoding : {eXMLEncodingUTF8, eXMLEncodingUTF16}) {
      VORX::Buffers::CPPlainMemory out;
      CXMLDoc back;
      bool const same =
          doc.GetRootElement().Write(out, encoding, true) &&
          vorx::test::ReadBack(out, encoding, back) &&
          vorx::test::TreeText(doc.GetRootElement()) == vorx::test::TreeText(back.GetRootElement());
      EXPECT_TRUE(same || exempt) << file.filename() << " in encoding " << encoding;
    }
  }
}

} // namespace
