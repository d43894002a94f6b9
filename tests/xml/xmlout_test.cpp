// The writers: exact output of the serialiser, encodings, the file form's inverted result and
// clean-up, and round trips through the reader.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <sys/resource.h>

#include "support/memory_hooks.h"
#include "support/temp_dir.h"
#include "xmlnode_support.h"

namespace {

using namespace VORX::XML;
using VORX::Buffers::CPPlainMemory;
using VORX::String::CPPoolString;
using vorx::test::Named;

std::string Utf8Out(CPXMLObject const & node, bool indent) {
  CPPlainMemory out;
  EXPECT_TRUE(node.Write(out, eXMLEncodingUTF8, indent));
  char const * bytes = static_cast<char const *>(static_cast<void const *>(out));
  EXPECT_TRUE(out.GetMemorySize() > 0 && bytes[out.GetMemorySize() - 1] == 0);
  return std::string(bytes, out.GetMemorySize() - 1);
}

constexpr char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// A node "m" holding a child and text: mixed content, which no writer accepts.
CPXMLObject Mixed() {
  CPXMLObject mixed = Named(u"m");
  EXPECT_EQ(mixed.Add(Named(u"c")).sIndex(), 1u);
  EXPECT_TRUE(mixed.Add(CXMLValue(CPPoolString(u"text"))));
  return mixed;
}

TEST(XmlOut, WritesElementsAttributesAndDataExactly) {
  std::pair<char16_t const *, char const *> const rows[] = {
      {u"a b", "<n>a b</n>"},                             // plain data unescaped
      {u"a\n", "<n><![CDATA[a\n]]></n>"},                 // a trailing blank
      {u"a&b", "<n><![CDATA[a&b]]></n>"},                 // a special character
      {u"a]]>b", "<n><![CDATA[a]]]]><![CDATA[>b]]></n>"}, // "]]>" split
  };
  for (auto const & [data, written] : rows) {
    CPXMLObject node = Named(u"n");
    ASSERT_TRUE(node.Add(CXMLValue(CPPoolString(data))));
    EXPECT_EQ(Utf8Out(node, false), std::string(kDecl) + written);
  }
  CPXMLObject root = Named(u"r");
  ASSERT_TRUE(root.AddAttribute(CPPoolString(u"q"), CXMLValue(CPPoolString(u"a\"b&<>'"))));
  CPXMLObject child = Named(u"c");
  ASSERT_EQ(root.Add(child).sIndex(), 1u);
  ASSERT_TRUE(child.Add(CXMLValue(CPPoolString(u"x"))));
  // Forty levels below: eighty spaces of indent, never more.
  CPXMLObject current = root;
  for (int i = 0; i < 40; ++i, current = current.item(current.IsName(u"r") ? 1 : 0)) {
    ASSERT_EQ(current.AddTag(u"d").sIndex(), 1u);
  }
  std::string const flat = Utf8Out(root, false);
  EXPECT_EQ(flat.substr(0, flat.find("<d>")),
            std::string(kDecl) + "<r q=\"a&quot;b&amp;&lt;&gt;&apos;\"><c>x</c>");
  std::string const indented = Utf8Out(root, true);
  EXPECT_EQ(indented.substr(0, indented.find("<d>")),
            std::string(kDecl) + "\r\n<r q=\"a&quot;b&amp;&lt;&gt;&apos;\">\r\n  <c>x</c>\r\n  ");
  EXPECT_NE(indented.find("\r\n" + std::string(80, ' ') + "<d/>\r\n"), std::string::npos);
  EXPECT_EQ(indented.find(std::string(81, ' ')), std::string::npos);
}

// Data is checked eight units at a time: a special character or two blanks in a row is seen
// wherever it falls, across the steps too, in ASCII data and in other data.
TEST(XmlOut, DataIsProtectedWhereverItsTroubleFalls) {
  for (std::size_t at = 1; at < 20; ++at) {
    for (char16_t const * tail : {u"z", u"\u00E9"}) {
      std::u16string const head(at, u'x');
      std::u16string const rest = std::u16string(u"yyyyyyyy") + tail;
      std::pair<std::u16string, bool> const cases[] = {
          {head + u" y " + rest, false}, {head + u"  " + rest, true}, {head + u"<" + rest, true}};
      for (auto const & [data, protect] : cases) {
        CPXMLObject node = Named(u"n");
        ASSERT_TRUE(node.Add(CXMLValue(CPPoolString(data.c_str()))));
        EXPECT_EQ(Utf8Out(node, false).find("CDATA") != std::string::npos, protect)
            << "at " << at << ", ASCII " << (tail[0] == u'z');
      }
    }
  }
}

TEST(XmlOut, EncodingsWriteTheirDeclarationAndAZeroCharacterLast) {
  CPXMLObject node = Named(u"n");
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
  EXPECT_FALSE(Mixed().Write(out, eXMLEncodingUTF8, true) ||
               CPXMLObject().Write(out, eXMLEncodingUTF8, true));
  EXPECT_EQ(out.GetMemorySize(), 0u);
}

// A text with a pair counts it as one character of one UTF-8 byte, like ASCII: the writer must
// still take it through the encoder (the pair written as one byte, the text's last unit cut),
// beside other non-ASCII text too.
TEST(XmlOut, PairsInShortTextsGoThroughTheEncoder) {
  std::pair<char16_t const *, std::string> const rows[] = {
      {u"a\U0001F600bc", "a\x01"
                         "b"},
      {u"\u00E9\U0001F600bc", "\xC3\xA9\x01"
                              "b"},
  };
  for (auto const & [text, written] : rows) {
    CPPoolString const paired(text);
    CPXMLObject node = Named(u"n");
    ASSERT_TRUE(node.AddAttribute(CPPoolString(u"v"), CXMLValue(paired)));
    CPXMLObject child = Named(u"c");
    ASSERT_EQ(node.Add(child).sIndex(), 1u);
    ASSERT_TRUE(child.Add(CXMLValue(paired)));
    EXPECT_EQ(Utf8Out(node, false),
              std::string(kDecl) + "<n v=\"" + written + "\"><c>" + written + "</c></n>");
  }
}

class XmlOutFile : public ::testing::Test {
protected:
  vorx::test::WidePath Path(char const * name) const { return temp.WPath(name); }
  // A tree whose output is more than two 16384-byte chunks.
  static CPXMLObject Big() {
    CPXMLObject root = Named(u"r");
    for (int i = 0; i < 2000; ++i) {
      CPXMLObject child = Named(u"c");
      EXPECT_TRUE(child.AddAttribute(CPPoolString(u"a"), CXMLValue(CPPoolString(u"value"))));
      EXPECT_EQ(root.Add(child).sIndex(), 1u);
    }
    return root;
  }
  vorx::test::TempDir temp;
};

TEST_F(XmlOutFile, FileFormAnswersInvertedAndDeletesFailedOutput) {
  CPXMLObject good = Named(u"g");
  ASSERT_TRUE(good.Add(CXMLValue(CPPoolString(u"v"))));
  // Note: false after a complete write, true when the serialiser failed.
  EXPECT_FALSE(good.Write(Path("sub/good.xml").c_str(), eXMLEncodingUTF8, false));
  CXMLDoc doc;
  EXPECT_TRUE(doc.OpenDocFile(Path("sub/good.xml").c_str(), eXMLEncodingAuto) &&
              doc.GetRootElement().IsData(u"v"));
  EXPECT_TRUE(Mixed().Write(Path("mixed.xml").c_str(), eXMLEncodingUTF8, true));
  EXPECT_FALSE(temp.Exists("mixed.xml"));
  // A refused encoding leaves the opened, empty file.
  EXPECT_FALSE(good.Write(Path("enc.xml").c_str(), static_cast<eXMLEncoding>(9), true));
  EXPECT_TRUE(temp.Exists("enc.xml") && temp.Get("enc.xml").empty());
}

TEST_F(XmlOutFile, FullDiskLeavesNoFile) {
  CPXMLObject const root = Big();
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
  EXPECT_FALSE(temp.Exists("full.xml"));
}

TEST_F(XmlOutFile, FailedAllocationsLeaveNoOutput) {
  // Whichever allocation fails, the file is either complete or gone, never a prefix.
  CPXMLObject const root = Big();
  ASSERT_FALSE(root.Write(Path("whole.xml").c_str(), eXMLEncodingUTF8, true));
  std::string const whole = temp.Get("whole.xml");
  ASSERT_GT(whole.size(), 2u * 16384u);
  bool memoryDone = false;
  bool fileDone = false;
  long refused = 1;
  for (long successes = 0; refused > 0 && successes < 10000; ++successes) {
    CPPlainMemory out;
    bool written, fileResult;
    {
      vorx::test::AllocationFailure failure(successes);
      written = root.Write(out, eXMLEncodingUTF16, true);
      fileResult = root.Write(Path("f.xml").c_str(), eXMLEncodingUTF8, true);
      refused = failure.Refused();
    }
    memoryDone = memoryDone || (written && out.GetMemorySize() != 0);
    bool const fileThere = temp.Exists("f.xml");
    EXPECT_TRUE(!fileThere || (!fileResult && temp.Get("f.xml") == whole)) << successes;
    fileDone = fileDone || fileThere;
    std::filesystem::remove(temp.Path("f.xml"));
  }
  EXPECT_TRUE(refused == 0 && memoryDone && fileDone);
}

// Characters that survive a write and a read: no line-end or white-space normalisation (no
// carriage return in data; no tab, line feed or carriage return in attribute values), nothing
// outside the Basic Multilingual Plane (the writers collapse pairs on purpose).
char16_t const kDataChars[] = u"ab z09&<>\"']\n\u00E9\u4E2D\uFFFD-";
char16_t const kValueChars[] = u"ab z09&<>\"']\u00E9\u4E2D-";
char16_t const * const kNames[] = {u"a", u"x:y", u"_n", u"item-1", u"\u00E9l\u00E8ve", u"\u4E2D"};

CPPoolString RandomText(std::mt19937 & random, std::u16string const & chars, std::size_t most) {
  std::u16string text(random() % (most + 1), u' ');
  for (char16_t & c : text) {
    c = chars[random() % chars.size()];
  }
  return CPPoolString(text.c_str());
}

CPXMLObject RandomTree(std::mt19937 & random, int depth) {
  CPXMLObject node = Named(kNames[random() % std::size(kNames)]);
  for (int i = int(random() % 4); i > 0; --i) {
    CPPoolString const value = RandomText(random, kValueChars, 8);
    if (value.len() != 0) {
      node.SetAttribute(CPPoolString(kNames[random() % std::size(kNames)]), CXMLValue(value));
    }
  }
  if (depth > 0 && random() % 2 == 0) {
    for (int i = 1 + int(random() % 3); i > 0; --i) {
      EXPECT_EQ(node.Add(RandomTree(random, depth - 1)).sIndex(), 1u);
    }
  } else if (CPPoolString const data = RandomText(random, kDataChars, 12); data.len() != 0) {
    EXPECT_TRUE(node.Add(CXMLValue(data)));
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
        ASSERT_TRUE(vorx::test::ReadBack(out, encoding, doc)) << round << " " << encoding;
        EXPECT_EQ(vorx::test::TreeText(doc.GetRootElement()), vorx::test::TreeText(tree))
            << "round " << round << " encoding " << encoding << " indent " << indent;
      }
    }
  }
}

} // namespace
