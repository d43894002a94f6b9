// The item reader: what it accepts, the code and position of what it refuses, and its limits on
// hostile input.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/memory_hooks.h"
#include "xmltree_support.h"

namespace {

using namespace VORX::XML;
using vorx::test::XmlText;
using vorx::test::XmlTreeSink;

constexpr std::uint64_t kAny = ~std::uint64_t(0);

struct Case {
  char const * label;
  std::string text;
  std::uint32_t code;
  std::uint64_t position; // kAny: not checked
  char const * tree;      // for accepted documents
};

tagXMLREADRESULT Read8(std::string const & text, _IXMLItemSink & sink) {
  return _XMLReadDocument(reinterpret_cast<std::uint8_t const *>(text.data()), text.size(), sink);
}

TEST(XmlReader, AcceptsWellFormedDocumentsAndBuildsTheirItems) {
  Case const cases[] = {
      {"empty element", "<a/>", kXMLNoError, 0, "a"},
      {"attributes in order, both quotes", "<a x=\"1\" y='2'>t</a>", kXMLNoError, 0,
       "a[x=1 y=2](\"t\")"},
      {"white space between children is not data", "<a>\n <b/>\n <c>x</c>\n</a>", kXMLNoError, 0,
       "a{b,c(\"x\")}"},
      {"white space alone is data", "<a>  </a>", kXMLNoError, 0, "a(\"  \")"},
      {"predefined and character references",
       "<a>&amp;&lt;&gt;&apos;&quot;&#65;&#x42;&#x10000;</a>", kXMLNoError, 0,
       "a(\"&<>'\"AB\xF0\x90\x80\x80\")"},
      {"CDATA keeps markup characters", "<a><![CDATA[ <x>&amp; ]]></a>", kXMLNoError, 0,
       "a(\" <x>&amp; \")"},
      {"line ends normalised", "<a>x\r\ny\rz</a>", kXMLNoError, 0, "a(\"x\ny\nz\")"},
      {"attribute white space becomes spaces, references kept", "<a x=\"a\tb\nc&#9;d&#10;e\"/>",
       kXMLNoError, 0, "a[x=a b c\td\ne]"},
      {"comments and processing instructions dropped",
       "<?xml version='1.0'?><!-- c --><?pi x?><a>x<!--y-->z<?p?></a><!--e-->", kXMLNoError, 0,
       "a(\"xz\")"},
      {"declaration with encoding in any case and standalone",
       "<?xml version=\"1.0\" encoding=\"utf-8\" standalone='yes' ?><a/>", kXMLNoError, 0, "a"},
      {"byte-order mark skipped", "\xEF\xBB\xBF<?xml version=\"1.0\"?><a/>", kXMLNoError, 0, "a"},
      {"internal entity with markup", "<!DOCTYPE a [<!ENTITY e \"<b>t</b>\">]><a>&e;&e;</a>",
       kXMLNoError, 0, "a{b(\"t\"),b(\"t\")}"},
      {"entity in entity and in attribute",
       "<!DOCTYPE a [<!ENTITY i 'in'><!ENTITY o 'x&i;y'>]><a v='&o;'>&o;</a>", kXMLNoError, 0,
       "a[v=xiny](\"xiny\")"},
      {"character reference in entity builds markup",
       "<!DOCTYPE a [<!ENTITY e '&#60;b/>'>]><a>&e;</a>", kXMLNoError, 0, "a{b}"},
      {"declarations of every kind",
       "<!DOCTYPE a SYSTEM 'a.dtd' [<!ELEMENT a (b|(c,d)*)+><!ELEMENT b (#PCDATA|c)*>"
       "<!ELEMENT c EMPTY><!ATTLIST a x CDATA #IMPLIED y (p|q) 'p' z NOTATION (n) #REQUIRED>"
       "<!NOTATION n PUBLIC 'pub'><!ENTITY % p '<!ENTITY f \"F\">'>%p;"
       "<!ENTITY u SYSTEM 'u' NDATA n>]><a>&f;</a>",
       kXMLNoError, 0, "a(\"F\")"},
      {"first entity declaration binds",
       "<!DOCTYPE a [<!ENTITY e '1'><!ENTITY e '2'><!ENTITY lt 'x'>]><a>&e;&lt;</a>", kXMLNoError,
       0, "a(\"1<\")"},
  };
  for (Case const & c : cases) {
    XmlTreeSink sink;
    tagXMLREADRESULT const result = Read8(c.text, sink);
    EXPECT_EQ(result.code, c.code) << c.label;
    EXPECT_EQ(XmlText(sink.root), c.tree) << c.label;
  }
}

TEST(XmlReader, RefusesMalformedDocumentsWithCodeAndPosition) {
  Case const cases[] = {
      {"empty text", "", kXMLErrRootMissing, 0, nullptr},
      {"comment only", "<!-- c -->", kXMLErrRootMissing, 10, nullptr},
      {"two top-level elements", "<a/><b/>", kXMLErrRootMissing, 4, nullptr},
      {"end tag at top level", "</a>", kXMLErrBadTermination, 1, nullptr},
      {"mismatched end tag, after its <", "<a></b>", kXMLErrInvalidTag, 4, nullptr},
      {"text then child", "<a>x<b/></a>", kXMLErrMixedContent, 4, nullptr},
      {"child then text", "<a><b/>x</a>", kXMLErrMixedContent, 8, nullptr},
      {"unclosed element", "<a>", kXMLErrEndOfFile, 3, nullptr},
      {"top-level text", "<a/>x", kXMLErrInvalidTag, 4, nullptr},
      {"version 1.1", "<?xml version=\"1.1\"?><a/>", kXMLErrVersion, kAny, nullptr},
      {"version missing", "<?xml encoding=\"UTF-8\"?><a/>", kXMLErrVersion, kAny, nullptr},
      {"foreign encoding", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", kXMLErrEncoding,
       kAny, nullptr},
      {"16-bit encoding name in UTF-8", "<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>",
       kXMLErrEncoding, kAny, nullptr},
      {"declaration after white space", " <?xml version=\"1.0\"?><a/>", kXMLErrInvalidTag, kAny,
       nullptr},
      {"xml target inside", "<a><?XmL x?></a>", kXMLErrInvalidTag, kAny, nullptr},
      {"unclosed processing instruction", "<a><?pi data", kXMLErrOpenEnclosure, 12, nullptr},
      {"duplicate attribute", "<a x=\"1\" x=\"2\"/>", kXMLErrBadAttribute, kAny, nullptr},
      {"unquoted value", "<a x=1/>", kXMLErrBadAttribute, 5, nullptr},
      {"< in value", "<a x=\"<\"/>", kXMLErrBadAttribute, 6, nullptr},
      {"attributes not separated", "<a x=\"1\"y=\"2\"/>", kXMLErrBadAttribute, kAny, nullptr},
      {"unterminated value", "<a x=\"1/>", kXMLErrOpenString, 9, nullptr},
      {"unclosed tag", "<a x=\"1\"", kXMLErrOpenEnclosure, 8, nullptr},
      {"-- in comment", "<a><!-- a -- b --></a>", kXMLErrOpenComment, 10, nullptr},
      {"unclosed comment", "<a><!-- x", kXMLErrOpenComment, 9, nullptr},
      {"unclosed CDATA", "<a><![CDATA[x</a>", kXMLErrOpenCDATA, 17, nullptr},
      {"]]> in data", "<a>x]]></a>", kXMLErrBadDataTerminator, 4, nullptr},
      {"control character", "<a>\x01</a>", kXMLErrIllegalCharacter, 3, nullptr},
      {"overlong UTF-8", "<a>\xC0\x80</a>", kXMLErrBadEncoding, 3, nullptr},
      {"encoded surrogate", "<a>\xED\xA0\x80</a>", kXMLErrBadEncoding, 3, nullptr},
      {"truncated UTF-8", "<a>\xE2\x82</a>", kXMLErrBadEncoding, 3, nullptr},
      // U+20AC counts one unit, U+10000 two.
      {"position in 16-bit units", "<a>\xE2\x82\xAC\xF0\x90\x80\x80\x01</a>",
       kXMLErrIllegalCharacter, 6, nullptr},
      {"U+FFFF", "<a>\xEF\xBF\xBF</a>", kXMLErrIllegalCharacter, 3, nullptr},
      {"reference to U+0000", "<a>&#0;</a>", kXMLErrBadEscape, kAny, nullptr},
      {"reference to a surrogate", "<a>&#xD800;</a>", kXMLErrBadEscape, kAny, nullptr},
      {"reference beyond U+10FFFF", "<a>&#x110000;</a>", kXMLErrBadEscape, kAny, nullptr},
      {"upper-case X in hexadecimal reference", "<a>&#X41;</a>", kXMLErrBadEscape, kAny, nullptr},
      {"reference without ;", "<a>&amp</a>", kXMLErrBadEscape, kAny, nullptr},
      {"undeclared entity", "<a>&e;</a>", kXMLErrBadEscape, kAny, nullptr},
      {"undeclared entity with an external subset", "<!DOCTYPE a SYSTEM 'a.dtd'><a>&e;</a>",
       kXMLErrExternal, kAny, nullptr},
      {"external entity", "<!DOCTYPE a [<!ENTITY e SYSTEM 'e.xml'>]><a>&e;</a>", kXMLErrExternal,
       kAny, nullptr},
      {"unparsed entity in content",
       "<!DOCTYPE a [<!NOTATION n SYSTEM 'n'><!ENTITY e SYSTEM 'e' NDATA n>]><a>&e;</a>",
       kXMLErrExternal, kAny, nullptr},
      {"external entity in attribute", "<!DOCTYPE a [<!ENTITY e SYSTEM 'e.xml'>]><a x='&e;'/>",
       kXMLErrExternal, kAny, nullptr},
      {"entity referring to itself", "<!DOCTYPE a [<!ENTITY e 'x&e;'>]><a>&e;</a>",
       kXMLErrBadEscape, kAny, nullptr},
      {"entities referring to each other",
       "<!DOCTYPE a [<!ENTITY p '&q;'><!ENTITY q '&p;'>]><a x='&p;'/>", kXMLErrBadEscape, kAny,
       nullptr},
      {"element left open in entity", "<!DOCTYPE a [<!ENTITY e '<b>'>]><a>&e;</b></a>",
       kXMLErrBadTermination, kAny, nullptr},
      {"element closed in entity", "<!DOCTYPE a [<!ENTITY e '</b>'>]><a><b>&e;</a>",
       kXMLErrBadTermination, kAny, nullptr},
      {"< through entity in attribute", "<!DOCTYPE a [<!ENTITY e '&#60;'>]><a x='&e;'/>",
       kXMLErrBadAttribute, kAny, nullptr},
      {"parameter reference in entity value",
       "<!DOCTYPE a [<!ENTITY % p 'x'><!ENTITY e '%p;'>]><a/>", kXMLErrInvalidTag, kAny, nullptr},
      {"unclosed internal subset", "<!DOCTYPE a [<!ELEMENT a EMPTY>", kXMLErrEndOfFile, kAny,
       nullptr},
      {"mixed model without *", "<!DOCTYPE a [<!ELEMENT a (#PCDATA|b)>]><a/>", kXMLErrInvalidTag,
       kAny, nullptr},
      {"model mixing , and |", "<!DOCTYPE a [<!ELEMENT a (b,c|d)>]><a/>", kXMLErrInvalidTag, kAny,
       nullptr},
      {"second DOCTYPE", "<!DOCTYPE a><!DOCTYPE a><a/>", kXMLErrInvalidTag, kAny, nullptr},
      {"DOCTYPE after the root", "<a/><!DOCTYPE a>", kXMLErrInvalidTag, kAny, nullptr},
      {"bad public identifier", "<!DOCTYPE a PUBLIC '{' 's'><a/>", kXMLErrInvalidTag, kAny,
       nullptr},
      {"name starting with a digit", "<1a/>", kXMLErrInvalidTag, 1, nullptr},
  };
  for (Case const & c : cases) {
    XmlTreeSink sink;
    tagXMLREADRESULT const result = Read8(c.text, sink);
    EXPECT_EQ(result.code, c.code) << c.label;
    if (c.position != kAny) {
      EXPECT_EQ(result.position, c.position) << c.label;
    }
  }
}

TEST(XmlReader, ReadsSixteenBitTextWithItsOwnEncodingNames) {
  struct Row {
    char const * label;
    std::u16string text;
    std::uint32_t code;
    std::uint64_t position;
  };
  Row const rows[] = {
      {"plain", u"<a>x\U00010000</a>", kXMLNoError, 0},
      {"mark skipped", u"\uFEFF<a/>", kXMLNoError, 0},
      {"UTF-16 named", u"<?xml version='1.0' encoding='utf-16'?><a/>", kXMLNoError, 0},
      {"UCS-2 named", u"<?xml version='1.0' encoding='ISO-10646-UCS-2'?><a/>", kXMLNoError, 0},
      {"Unicode named", u"<?xml version='1.0' encoding='Unicode'?><a/>", kXMLNoError, 0},
      {"UTF-8 named", u"<?xml version='1.0' encoding='UTF-8'?><a/>", kXMLErrEncoding, kAny},
      {"lone high surrogate", u"<a>\xD800x</a>", kXMLErrIllegalCharacter, 3},
      {"lone low surrogate", u"<a>x\xDC00</a>", kXMLErrIllegalCharacter, 4},
  };
  for (Row const & row : rows) {
    XmlTreeSink sink;
    tagXMLREADRESULT const result = _XMLReadDocument(
        reinterpret_cast<std::uint16_t const *>(row.text.data()), row.text.size(), sink);
    EXPECT_EQ(result.code, row.code) << row.label;
    if (row.position != kAny) {
      EXPECT_EQ(result.position, row.position) << row.label;
    }
  }
}

std::string Repeat(std::string const & piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) {
    out += piece;
  }
  return out;
}

TEST(XmlReader, RefusesEntityBombsWithinTheExpansionLimit) {
  // Ten entities, each referring to the previous one ten times.
  std::string laughs = "<!DOCTYPE a [<!ENTITY l0 'lol'>";
  for (int i = 1; i <= 9; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '" +
              Repeat("&l" + std::to_string(i - 1) + ";", 10) + "'>";
  }
  laughs += "]><a>&l9;</a>";
  // One entity of 50 000 characters referred to 50 000 times.
  std::string const quadratic =
      "<!DOCTYPE a [<!ENTITY e '" + Repeat("x", 50000) + "'>]><a>" + Repeat("&e;", 50000) + "</a>";
  std::string const inAttribute = "<!DOCTYPE a [<!ENTITY e '" + Repeat("x", 50000) + "'>]><a v='" +
                                  Repeat("&e;", 50000) + "'/>";
  for (std::string const * text :
       std::vector<std::string const *>{&laughs, &quadratic, &inAttribute}) {
    XmlTreeSink sink;
    EXPECT_EQ(Read8(*text, sink).code, kXMLErrDOM);
  }
  // Just inside the limit: 1 MiB of expansion from a small document is read.
  std::string const within =
      "<!DOCTYPE a [<!ENTITY e '" + Repeat("y", 1000) + "'>]><a>" + Repeat("&e;", 1000) + "</a>";
  XmlTreeSink sink;
  ASSERT_EQ(Read8(within, sink).code, kXMLNoError);
  EXPECT_EQ(sink.root.data.size(), 1000000u);
}

TEST(XmlReader, RefusesNestingBeyondTheDepthLimitWithoutRecursion) {
  XmlTreeSink sink;
  std::string const deep = Repeat("<a>", 100000) + Repeat("</a>", 100000);
  EXPECT_EQ(Read8(deep, sink).code, kXMLErrDOM);
  std::string const atLimit = Repeat("<a>", kXMLMaxDepth) + Repeat("</a>", kXMLMaxDepth);
  XmlTreeSink limitSink;
  EXPECT_EQ(Read8(atLimit, limitSink).code, kXMLNoError);
  std::string const model =
      "<!DOCTYPE a [<!ELEMENT a " + Repeat("(", 100000) + "b" + Repeat(")", 100000) + ">]><a/>";
  EXPECT_EQ(Read8(model, sink).code, kXMLErrDOM);
}

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
