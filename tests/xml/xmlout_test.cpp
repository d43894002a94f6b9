// The writers: exact output of the serialiser, encodings, the file form's inverted result and
// clean-up, and round trips through the reader.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <sys/resource.h>

#include <vorx/xml.h>

#include "support/memory_hooks.h"
#include "support/temp_dir.h"
#include "xmltree_support.h"

namespace {

using namespace VORX::XML;
using VORX::Buffers::CPPlainMemory;
using VORX::String::CPPoolString;

CPXMLObject Node(char16_t const * name) {
  CPXMLObject node;
  EXPECT_TRUE(node.SetName(CPPoolString(name)));
  return node;
}

std::string Utf8Out(CPXMLObject const & node, bool indent, bool * ok = nullptr) {
  CPPlainMemory out;
  bool const written = node.Write(out, eXMLEncodingUTF8, indent);
  if (ok != nullptr) {
    *ok = written;
  }
  if (out.GetMemorySize() == 0) {
    return "<none>";
  }
  char const * bytes = static_cast<char const *>(static_cast<void const *>(out));
  EXPECT_EQ(bytes[out.GetMemorySize() - 1], 0);
  return std::string(bytes, out.GetMemorySize() - 1);
}

constexpr char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

TEST(XmlOut, WritesElementsAttributesAndDataExactly) {
  struct Row {
    char const * label;
    char16_t const * data;
    char const * written;
  };
  Row const rows[] = {
      {"plain data unescaped", u"a b", "<n>a b</n>"},
      {"leading blank", u" a", "<n><![CDATA[ a]]></n>"},
      {"trailing blank", u"a\n", "<n><![CDATA[a\n]]></n>"},
      {"two blanks", u"a  b", "<n><![CDATA[a  b]]></n>"},
      {"special character", u"a&b", "<n><![CDATA[a&b]]></n>"},
      {"special character first", u">a", "<n><![CDATA[>a]]></n>"},
      {"]]> split", u"a]]>b", "<n><![CDATA[a]]]]><![CDATA[>b]]></n>"},
  };
  for (Row const & row : rows) {
    CPXMLObject node = Node(u"n");
    ASSERT_TRUE(node.Add(CXMLValue(CPPoolString(row.data))));
    EXPECT_EQ(Utf8Out(node, false), std::string(kDecl) + row.written) << row.label;
  }
  CPXMLObject root = Node(u"r");
  ASSERT_TRUE(root.AddAttribute(CPPoolString(u"q"), CXMLValue(CPPoolString(u"a\"b&<>'"))));
  CPXMLObject child = Node(u"c");
  ASSERT_EQ(root.Add(child).sIndex(), 1u);
  ASSERT_EQ(root.Add(Node(u"d")).sIndex(), 1u);
  ASSERT_TRUE(child.Add(CXMLValue(CPPoolString(u"x"))));
  EXPECT_EQ(Utf8Out(root, false),
            std::string(kDecl) + "<r q=\"a&quot;b&amp;&lt;&gt;&apos;\"><c>x</c><d/></r>");
  EXPECT_EQ(Utf8Out(root, true), std::string(kDecl) +
                                     "\r\n<r q=\"a&quot;b&amp;&lt;&gt;&apos;\">\r\n  <c>x</c>\r\n"
                                     "  <d/>\r\n</r>\r\n");
}

TEST(XmlOut, IndentsFortyLevelsWithEightySpaces) {
  CPXMLObject root = Node(u"l");
  CPXMLObject current = root;
  for (int i = 0; i < 40; ++i) {
    CPXMLObject next = Node(u"l");
    ASSERT_EQ(current.Add(next).sIndex(), 1u);
    current = next;
  }
  std::string const out = Utf8Out(root, true);
  EXPECT_NE(out.find("\r\n" + std::string(80, ' ') + "<l/>\r\n"), std::string::npos);
  EXPECT_EQ(out.find(std::string(81, ' ')), std::string::npos);
}

TEST(XmlOut, EncodingsWriteTheirDeclarationAndAZeroCharacterLast) {
  CPXMLObject node = Node(u"n");
  ASSERT_TRUE(node.Add(CXMLValue(CPPoolString(u"\u00E9\u20AC"))));
  CPPlainMemory out;
  ASSERT_TRUE(node.Write(out, eXMLEncodingAuto, false));
  std::string const utf8(static_cast<char const *>(static_cast<void const *>(out)),
                         out.GetMemorySize());
  EXPECT_EQ(utf8, std::string(kDecl) + "<n>\xC3\xA9\xE2\x82\xAC</n>" + std::string(1, '\0'));
  for (eXMLEncoding encoding : {eXMLEncodingUTF16, eXMLEncodingRaw16}) {
    ASSERT_TRUE(node.Write(out, encoding, false));
    std::u16string const wide(static_cast<char16_t const *>(static_cast<void const *>(out)),
                              out.GetMemorySize() / 2);
    EXPECT_EQ(wide,
              std::u16string(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><n>\u00E9\u20AC</n>") +
                  char16_t(0));
  }
  EXPECT_FALSE(node.Write(out, static_cast<eXMLEncoding>(4), false));
  EXPECT_EQ(out.GetMemorySize(), 0u);
}

TEST(XmlOut, RefusesMixedContentUnnamedNodesAndNullHandles) {
  CPXMLObject mixed = Node(u"m");
  ASSERT_EQ(mixed.Add(Node(u"c")).sIndex(), 1u);
  ASSERT_TRUE(mixed.Add(CXMLValue(CPPoolString(u"text"))));
  CPPlainMemory out;
  EXPECT_FALSE(mixed.Write(out, eXMLEncodingUTF8, true));
  EXPECT_EQ(out.GetMemorySize(), 0u);
  EXPECT_FALSE(CPXMLObject().Write(out, eXMLEncodingUTF8, true));
}

class XmlOutFile : public ::testing::Test {
protected:
  vorx::test::WidePath Path(char const * name) const { return temp.WPath(name); }
  vorx::test::TempDir temp;
};

TEST_F(XmlOutFile, FileFormAnswersInvertedAndDeletesFailedOutput) {
  CPXMLObject good = Node(u"g");
  ASSERT_TRUE(good.Add(CXMLValue(CPPoolString(u"v"))));
  // Note: false after a complete write, true when the serialiser failed.
  EXPECT_FALSE(good.Write(Path("sub/good.xml").c_str(), eXMLEncodingUTF8, false));
  CXMLDoc doc;
  ASSERT_TRUE(doc.OpenDocFile(Path("sub/good.xml").c_str(), eXMLEncodingAuto));
  EXPECT_TRUE(doc.GetRootElement().IsName(good.GetName()));
  CPXMLObject mixed = Node(u"m");
  ASSERT_EQ(mixed.Add(Node(u"c")).sIndex(), 1u);
  ASSERT_TRUE(mixed.Add(CXMLValue(CPPoolString(u"text"))));
  EXPECT_TRUE(mixed.Write(Path("mixed.xml").c_str(), eXMLEncodingUTF8, true));
  EXPECT_FALSE(std::filesystem::exists(temp.Path("mixed.xml")));
  // A refused encoding leaves the opened, empty file.
  EXPECT_FALSE(good.Write(Path("enc.xml").c_str(), static_cast<eXMLEncoding>(9), true));
  EXPECT_TRUE(std::filesystem::exists(temp.Path("enc.xml")));
  EXPECT_EQ(std::filesystem::file_size(temp.Path("enc.xml")), 0u);
}

TEST_F(XmlOutFile, FullDiskLeavesNoFile) {
  CPXMLObject root = Node(u"big");
  for (int i = 0; i < 2000; ++i) {
    CPXMLObject child = Node(u"item");
    ASSERT_TRUE(child.Add(CXMLValue(CPPoolString(u"some text of the item"))));
    ASSERT_EQ(root.Add(child).sIndex(), 1u);
  }
  struct rlimit saved;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  auto const previous = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = saved;
  small.rlim_cur = 20000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  bool const serialiserFailed = root.Write(Path("full.xml").c_str(), eXMLEncodingUTF8, true);
  setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, previous);
  EXPECT_TRUE(serialiserFailed);
  EXPECT_FALSE(std::filesystem::exists(temp.Path("full.xml")));
}

TEST_F(XmlOutFile, FailedAllocationsLeaveNoOutput) {
  // Output of more than two 16384-byte chunks: whichever allocation fails, the file is either
  // complete or gone, never a prefix.
  CPXMLObject root = Node(u"r");
  for (int i = 0; i < 2000; ++i) {
    CPXMLObject child = Node(u"c");
    ASSERT_TRUE(child.AddAttribute(CPPoolString(u"a"), CXMLValue(CPPoolString(u"value"))));
    ASSERT_EQ(root.Add(child).sIndex(), 1u);
  }
  ASSERT_FALSE(root.Write(Path("whole.xml").c_str(), eXMLEncodingUTF8, true));
  std::string const whole = temp.Get("whole.xml");
  ASSERT_GT(whole.size(), 2u * 16384u);
  bool memoryDone = false;
  bool fileDone = false;
  long refused = 1;
  for (long successes = 0; refused > 0 && successes < 10000; ++successes) {
    CPPlainMemory out;
    bool written;
    bool fileResult;
    {
      vorx::test::AllocationFailure failure(successes);
      written = root.Write(out, eXMLEncodingUTF16, true);
      fileResult = root.Write(Path("f.xml").c_str(), eXMLEncodingUTF8, true);
      refused = failure.Refused();
    }
    if (written && out.GetMemorySize() != 0) {
      memoryDone = true;
    }
    bool const fileThere = std::filesystem::exists(temp.Path("f.xml"));
    EXPECT_TRUE(!fileResult || !fileThere) << successes;
    if (fileThere) {
      EXPECT_EQ(temp.Get("f.xml"), whole) << successes;
      fileDone = true;
    }
    std::filesystem::remove(temp.Path("f.xml"));
  }
  EXPECT_EQ(refused, 0);
  EXPECT_TRUE(memoryDone);
  EXPECT_TRUE(fileDone);
}

// --- round trips --------------------------------------------------------------------------

bool SameTree(CPXMLObject const & a, CPXMLObject const & b, std::string & why) {
  if (!(a.GetName() == b.GetName())) {
    why = "name";
    return false;
  }
  if (!(a.GetData() == b.GetData())) {
    why = "data of " + std::to_string(a.GetName().len());
    return false;
  }
  if (a.GetNAttributes() != b.GetNAttributes()) {
    why = "attribute count";
    return false;
  }
  for (std::size_t i = 0; i < a.GetNAttributes(); ++i) {
    CPPoolString an, av, bn, bv;
    a.GetAttribute(i, an, av);
    b.GetAttribute(i, bn, bv);
    if (!(an == bn) || !(av == bv)) {
      why = "attribute";
      return false;
    }
  }
  std::size_t ac = 0;
  std::size_t bc = 0;
  CPXMLObject * ae = const_cast<CPXMLObject &>(a).GetElements(ac);
  CPXMLObject * be = const_cast<CPXMLObject &>(b).GetElements(bc);
  if (ac != bc) {
    why = "child count";
    return false;
  }
  for (std::size_t i = 0; i < ac; ++i) {
    if (!SameTree(ae[i], be[i], why)) {
      return false;
    }
  }
  return true;
}

bool ReadBack(CPPlainMemory const & out, eXMLEncoding encoding, CXMLDoc & doc) {
  void const * bytes = out;
  return encoding == eXMLEncodingUTF8 ? doc.OpenDocText(static_cast<unsigned char const *>(bytes))
                                      : doc.OpenDocText(static_cast<std::uint16_t const *>(bytes));
}

// Characters that survive a write and a read: no line-end or white-space normalisation (no
// carriage return in data; no tab, line feed or carriage return in attribute values), nothing
// outside the Basic Multilingual Plane (the writers collapse pairs on purpose).
char16_t const kDataChars[] = u"ab z09&<>\"']\n\u00E9\u4E2D\uFFFD-";
char16_t const kValueChars[] = u"ab z09&<>\"']\u00E9\u4E2D-";
char16_t const * const kNames[] = {u"a",     u"b", u"x:y", u"_n", u"item-1", u"\u00E9l\u00E8ve",
                                   u"\u4E2D"};

CPPoolString RandomText(std::mt19937 & random, char16_t const * chars, std::size_t count,
                        std::size_t maxLength) {
  std::u16string text;
  std::size_t const length = random() % (maxLength + 1);
  for (std::size_t i = 0; i < length; ++i) {
    text += chars[random() % count];
  }
  return CPPoolString(text.c_str());
}

CPXMLObject RandomTree(std::mt19937 & random, int depth) {
  CPXMLObject node = Node(kNames[random() % std::size(kNames)]);
  int const attributes = int(random() % 4);
  for (int i = 0; i < attributes; ++i) {
    CPPoolString const value = RandomText(random, kValueChars, std::size(kValueChars) - 1, 8);
    if (value.len() != 0) {
      node.SetAttribute(CPPoolString(kNames[random() % std::size(kNames)]), CXMLValue(value));
    }
  }
  if (depth > 0 && random() % 2 == 0) {
    int const children = 1 + int(random() % 3);
    for (int i = 0; i < children; ++i) {
      EXPECT_EQ(node.Add(RandomTree(random, depth - 1)).sIndex(), 1u);
    }
  } else {
    CPPoolString const data = RandomText(random, kDataChars, std::size(kDataChars) - 1, 12);
    if (data.len() != 0) {
      EXPECT_TRUE(node.Add(CXMLValue(data)));
    }
  }
  return node;
}

TEST(XmlRoundTrip, GeneratedTreesReadBackEqualInEveryEncoding) {
  // The random texts stay in the string pool until it ages them.
  vorx::test::AllowPersistentBlocks();
  std::mt19937 random(20261125);
  for (int round = 0; round < 300; ++round) {
    CPXMLObject const tree = RandomTree(random, 4);
    for (eXMLEncoding encoding : {eXMLEncodingUTF8, eXMLEncodingUTF16, eXMLEncodingRaw16}) {
      for (bool indent : {false, true}) {
        CPPlainMemory out;
        ASSERT_TRUE(tree.Write(out, encoding, indent));
        CXMLDoc doc;
        ASSERT_TRUE(ReadBack(out, encoding, doc)) << round << " " << encoding;
        std::string why;
        EXPECT_TRUE(SameTree(tree, doc.GetRootElement(), why))
            << "round " << round << " encoding " << encoding << " indent " << indent << ": " << why;
      }
    }
  }
}

TEST(XmlRoundTrip, AcceptedConformanceCasesReadBackEqual) {
  if (vorx::test::XmlConformanceDir().empty()) {
    GTEST_SKIP() << "../shared/xmlconf/xmltest is absent: conformance cases not run";
  }
  // Cases whose tree does not survive a write, by the writers' documented rules.
  std::map<std::string, char const *> const exceptions = {
      // Characters above U+FFFF: the writers collapse each pair to 0x00 or 0x01 on purpose (and
      // pooled strings keep only as many units as the text has characters, so these cases are
      // not read into a tree today).
      {"052.xml", "characters above U+FFFF"},
      {"064.xml", "characters above U+FFFF"},
      {"089.xml", "characters above U+FFFF"},
      // A carriage return given by reference is written as it is and reads back as a line feed.
      {"067.xml", "&#13; in data"},
      {"068.xml", "&#13; in data"},
      // Tab, line feed or carriage return given by reference in an attribute value are written
      // as they are (only the five special characters are escaped) and read back as spaces.
      {"105.xml", "&#9; in an attribute value"},
      {"106.xml", "&#10; in an attribute value"},
      {"107.xml", "&#13; in an attribute value"},
  };
  std::map<std::string, std::string> failures;
  for (auto const & entry :
       std::filesystem::directory_iterator(vorx::test::XmlConformanceDir() / "valid/sa")) {
    if (entry.path().extension() != ".xml") {
      continue;
    }
    std::string bytes = vorx::test::ReadFileBytes(entry.path());
    bytes.append(4, '\0');
    std::vector<std::uint16_t> aligned(bytes.size() / 2 + 1, 0);
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    CXMLDoc doc;
    std::string const name = entry.path().filename().string();
    if (!doc.OpenDocText(static_cast<void *>(aligned.data()), bytes.size() - 4)) {
      if (exceptions.count(name) == 0) {
        failures[name] = "not read";
      }
      continue;
    }
    for (eXMLEncoding encoding : {eXMLEncodingUTF8, eXMLEncodingUTF16}) {
      CPPlainMemory out;
      CXMLDoc back;
      std::string why = "not read back";
      if (!doc.GetRootElement().Write(out, encoding, true) || !ReadBack(out, encoding, back) ||
          !SameTree(doc.GetRootElement(), back.GetRootElement(), why)) {
        if (exceptions.count(name) == 0) {
          failures[name] = why;
        }
      }
    }
  }
  for (auto const & failure : failures) {
    ADD_FAILURE() << failure.first << ": " << failure.second;
  }
}

} // namespace
