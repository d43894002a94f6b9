// The item reader: what it accepts, the code and position of what it refuses, and its limits on
// hostile input.
#include <gtest/gtest.h>

#include "support/memory_hooks.h"
#include "xmltree_support.h"

namespace {

using namespace VORX::XML;
using vorx::test::XmlText;
using vorx::test::XmlTreeSink;

constexpr std::uint64_t kAny = ~std::uint64_t(0);

tagXMLREADRESULT Read8(std::string const & text, _IXMLItemSink & sink) {
  return _XMLReadDocument(reinterpret_cast<std::uint8_t const *>(text.data()), text.size(), sink);
}

std::string Repeat(std::string const & piece, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) {
    out += piece;
  }
  return out;
}

TEST(XmlReader, AcceptsWellFormedDocumentsAndBuildsTheirItems) {
  std::pair<char const *, char16_t const *> const cases[] = {
      // Attributes in order, both quotes; white space between children is not data.
      {"<a x=\"1\" y='2'>\n <b/>\n <c>t</c>\n</a>", u"a[x=1 y=2]{b,c(\"t\")}"},
      {"<a>  </a>", u"a(\"  \")"}, // white space alone is data
      {"<a>&amp;&lt;&gt;&apos;&quot;&#65;&#x42;&#x10000;</a>", u"a(\"&<>'\"AB\U00010000\")"},
      {"<a><![CDATA[ <x>&amp; ]]></a>", u"a(\" <x>&amp; \")"},
      {"<a>x\r\ny\rz</a>", u"a(\"x\ny\nz\")"}, // line ends normalised
      // Attribute white space becomes spaces; references to it are kept.
      {"<a x=\"a\tb\nc&#9;d&#10;e\"/>", u"a[x=a b c\td\ne]"},
      {"\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\" standalone='yes' ?><!-- c --><?pi x?>"
       "<a>x<!--y-->z<?p?></a><!--e-->",
       u"a(\"xz\")"},
      {"<!DOCTYPE a [<!ENTITY e \"<b>t</b>\">]><a>&e;&e;</a>", u"a{b(\"t\"),b(\"t\")}"},
      {"<!DOCTYPE a [<!ENTITY i 'in'><!ENTITY o 'x&i;y'>]><a v='&o;'>&o;</a>",
       u"a[v=xiny](\"xiny\")"},
      // Declarations of every kind; the first declaration of an entity binds.
      {"<!DOCTYPE a SYSTEM 'a.dtd' [<!ELEMENT a (b|(c,d)*)+><!ELEMENT b (#PCDATA|c)*>"
       "<!ELEMENT c EMPTY><!ATTLIST a x CDATA #IMPLIED y (p|q) 'p' z NOTATION (n) #REQUIRED>"
       "<!NOTATION n PUBLIC 'pub'><!ENTITY % p '<!ENTITY f \"F\">'>%p;"
       "<!ENTITY u SYSTEM 'u' NDATA n><!ENTITY f 'G'><!ENTITY lt 'x'>]><a>&f;&lt;</a>",
       u"a(\"F<\")"},
  };
  for (auto const & [text, tree] : cases) {
    XmlTreeSink sink;
    EXPECT_EQ(Read8(text, sink).code, kXMLNoError) << text;
    EXPECT_EQ(XmlText(sink.root), tree) << text;
  }
}

TEST(XmlReader, RefusesMalformedDocumentsWithCodeAndPosition) {
  struct {
    std::string text;
    std::uint32_t code;
    std::uint64_t position; // kAny: not checked
  } const cases[] = {
      {"", kXMLErrRootMissing, 0},
      {"<a/><b/>", kXMLErrRootMissing, 4},
      {"<a></b>", kXMLErrInvalidTag, 4}, // after its "<"
      {"<a>x<b/></a>", kXMLErrMixedContent, 4},
      {"<a>", kXMLErrEndOfFile, 3},
      {"<?xml version=\"1.1\"?><a/>", kXMLErrVersion, kAny},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>", kXMLErrEncoding, kAny},
      {" <?xml version=\"1.0\"?><a/>", kXMLErrInvalidTag, kAny},
      {"<a><?pi data", kXMLErrOpenEnclosure, 12},
      {"<a x=\"1/>", kXMLErrOpenString, 9},
      {"<a><!-- a -- b --></a>", kXMLErrOpenComment, 10},
      {"<a><![CDATA[x</a>", kXMLErrOpenCDATA, 17},
      {"<a>x]]></a>", kXMLErrBadDataTerminator, 4},
      {"<a>\xC0\x80</a>", kXMLErrBadEncoding, 3}, // overlong
      // U+20AC counts one unit, U+10000 two.
      {"<a>\xE2\x82\xAC\xF0\x90\x80\x80\x01</a>", kXMLErrIllegalCharacter, 6},
      {"<a>&#0;</a>", kXMLErrBadEscape, kAny},
      {"<a>&e;</a>", kXMLErrBadEscape, kAny},
      {"<!DOCTYPE a SYSTEM 'a.dtd'><a>&e;</a>", kXMLErrExternal, kAny},
      {"<!DOCTYPE a [<!ENTITY e SYSTEM 'e.xml'>]><a x='&e;'/>", kXMLErrExternal, kAny},
      {"<!DOCTYPE a [<!ENTITY p '&q;'><!ENTITY q '&p;'>]><a x='&p;'/>", kXMLErrBadEscape, kAny},
      {"<!DOCTYPE a [<!ENTITY e '<b>'>]><a>&e;</b></a>", kXMLErrBadTermination, kAny},
      {"<!DOCTYPE a [<!ENTITY e '&#60;'>]><a x='&e;'/>", kXMLErrBadAttribute, kAny},
      {"<!DOCTYPE a [<!ENTITY % p 'x'><!ENTITY e '%p;'>]><a/>", kXMLErrInvalidTag, kAny},
      {"<1a/>", kXMLErrInvalidTag, 1},
  };
  for (auto const & c : cases) {
    XmlTreeSink sink;
    tagXMLREADRESULT const result = Read8(c.text, sink);
    EXPECT_EQ(result.code, c.code) << c.text;
    EXPECT_TRUE(c.position == kAny || result.position == c.position) << c.text;
  }
}

TEST(XmlReader, ReadsSixteenBitTextWithItsOwnEncodingNames) {
  struct {
    std::u16string text;
    std::uint32_t code;
    std::uint64_t position;
  } const rows[] = {
      {u"\uFEFF<a>x\U00010000</a>", kXMLNoError, 0},
      {u"<?xml version='1.0' encoding='UTF-8'?><a/>", kXMLErrEncoding, kAny},
      {u"<a>\xD800x</a>", kXMLErrIllegalCharacter, 3},
  };
  for (auto const & row : rows) {
    XmlTreeSink sink;
    tagXMLREADRESULT const result = _XMLReadDocument(
        reinterpret_cast<std::uint16_t const *>(row.text.data()), row.text.size(), sink);
    EXPECT_EQ(result.code, row.code) << &row - rows;
    EXPECT_TRUE(row.position == kAny || result.position == row.position) << &row - rows;
  }
}

TEST(XmlReader, RefusesEntityBombsAndDeepNestingWithinItsLimits) {
  // Ten entities, each referring to the previous one ten times.
  std::string laughs = "<!DOCTYPE a [<!ENTITY l0 'lol'>";
  for (int i = 1; i <= 9; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '" +
              Repeat("&l" + std::to_string(i - 1) + ";", 10) + "'>";
  }
  // One entity of 50 000 characters referred to 50 000 times, in data and in a value.
  std::string const big = "<!DOCTYPE a [<!ENTITY e '" + Repeat("x", 50000) + "'>]>";
  for (std::string const & text :
       {laughs + "]><a>&l9;</a>", big + "<a>" + Repeat("&e;", 50000) + "</a>",
        big + "<a v='" + Repeat("&e;", 50000) + "'/>", Repeat("<a>", 100000),
        "<!DOCTYPE a [<!ELEMENT a " + Repeat("(", 100000) + "b" + Repeat(")", 100000) +
            ">]><a/>"}) {
    XmlTreeSink sink;
    EXPECT_EQ(Read8(text, sink).code, kXMLErrDOM) << text.substr(0, 40);
  }
  // Just inside the limits: 1 MiB of expansion from a small document, the deepest nesting.
  XmlTreeSink sink;
  std::string const within =
      "<!DOCTYPE a [<!ENTITY e '" + Repeat("y", 1000) + "'>]><a>" + Repeat("&e;", 1000) + "</a>";
  ASSERT_EQ(Read8(within, sink).code, kXMLNoError);
  EXPECT_EQ(sink.root.data.size(), 1000000u);
  std::string const atLimit = Repeat("<a>", kXMLMaxDepth) + Repeat("</a>", kXMLMaxDepth);
  EXPECT_EQ(Read8(atLimit, sink).code, kXMLNoError);
}

// Refuses every call after the first `calls`.
class RefusingSink final : public VORX::XML::_IXMLItemSink {
public:
  explicit RefusingSink(int calls) : m_left(calls) {}
  bool StartElement(char16_t const *, std::size_t) override { return --m_left >= 0; }
  bool Attribute(char16_t const *, std::size_t, char16_t const *, std::size_t) override {
    return --m_left >= 0;
  }
  bool Data(char16_t const *, std::size_t) override { return --m_left >= 0; }
  bool EndElement() override { return --m_left >= 0; }

private:
  int m_left;
};

TEST(XmlReader, FailedAllocationsAndRefusingSinksGiveDOMErrorWithoutLeaks) {
  std::string const text = "<!DOCTYPE a [<!ENTITY e '<b x=\"1\">t</b>'>]>"
                           "<a y='&#65;' z='2'>&e;<c>" +
                           Repeat("data ", 100) + "</c></a>";
  long const before = vorx::test::LiveBlocks();
  bool completed = false;
  for (long successes = 0; !completed && successes < 200; ++successes) {
    XmlTreeSink sink;
    tagXMLREADRESULT result;
    {
      vorx::test::AllocationFailure failure(successes);
      result = Read8(text, sink);
    }
    ASSERT_TRUE(result.code == kXMLNoError || result.code == kXMLErrDOM) << successes;
    completed = result.code == kXMLNoError;
    EXPECT_EQ(vorx::test::LiveBlocks(), before);
  }
  EXPECT_TRUE(completed);
  // Eleven calls: a, two attributes, b, its attribute, its data, its end, c, its data, its end, a's
  // end.
  for (int calls = 0; calls < 11; ++calls) {
    RefusingSink sink(calls);
    EXPECT_EQ(Read8(text, sink).code, kXMLErrDOM) << calls;
  }
  RefusingSink enough(11);
  EXPECT_EQ(Read8(text, enough).code, kXMLNoError);
}

} // namespace
