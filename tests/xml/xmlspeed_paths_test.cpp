// The fast paths of parsing and writing: the tree builder's cache of pooled texts and its arrays
// sized at the end of each element, checked against the item reader's own calls; failed
// allocations on those paths; the writer's short pieces, run encoding and data classification
// against output assembled here by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include <vorx/xml.h>

#include "support/memory_hooks.h"
#include "xmlnode_support.h"
#include "xmltree_support.h"

namespace {

using namespace VORX::XML;
using VORX::Buffers::CPPlainMemory;
using VORX::String::CPPoolString;
using vorx::test::Text;

// The tree keeps no attribute without a value; the reader reports them all.
void DropEmptyAttributes(vorx::test::XmlNode & node) {
  std::erase_if(node.attributes, [](auto const & a) { return a.second.empty(); });
  for (vorx::test::XmlNode & child : node.children) {
    DropEmptyAttributes(child);
  }
}

// Empty when the parsed tree holds what the item reader reports, else both text forms.
std::u16string Diff(std::string const & document, CXMLDoc & doc) {
  vorx::test::XmlTreeSink sink;
  auto const * bytes = reinterpret_cast<std::uint8_t const *>(document.data());
  if (_XMLReadDocument(bytes, document.size(), sink).code != kXMLNoError) {
    return u"the reader refused the document";
  }
  DropEmptyAttributes(sink.root);
  std::u16string const want = vorx::test::XmlText(sink.root);
  std::u16string const got = vorx::test::TreeText(doc.GetRootElement());
  return want == got ? u"" : want + u"\n" + got;
}

bool Parse(CXMLDoc & doc, std::string const & text) {
  return doc.OpenDocText(reinterpret_cast<unsigned char const *>(text.c_str()));
}

// A wrapper of `groups` groups, each holding `perGroup` elements: names that come back after the
// text cache is full, attribute values at and around the cache's length bound, texts differing
// only in their last units, non-ASCII texts, empty values (dropped) and nested children.
std::string Document(int groups, int perGroup, int distinctNames) {
  std::string text = "<root kind='catalogue'>";
  int n = 0;
  for (int g = 0; g < groups; ++g) {
    text += "<group id='" + std::to_string(g) + "'>";
    for (int i = 0; i < perGroup; ++i, ++n) {
      std::string const name = "n" + std::to_string(n % distinctNames);
      std::string const value(std::size_t(60 + n % 8), char('a' + n % 26)); // 60..67 units
      text += "<" + name + " v='" + value + "' w='" + std::to_string(n) + "' empty='' tail='ab" +
              std::to_string(n % 5) + "'>";
      if (n % 3 == 0) {
        text += "<leaf>\xC3\xA9t\xC3\xA9 \xE4\xB8\xAD " + std::to_string(n % 7) + "</leaf><leaf/>";
      } else {
        text += "data " + std::to_string(n % 11);
      }
      text += "</" + name + ">";
    }
    text += "</group>";
  }
  return text + "</root>";
}

TEST(XmlSpeedPaths, ParsedTreesMatchTheReadersItems) {
  vorx::test::AllowPersistentBlocks(); // the texts stay in the pool until it ages them
  struct Row {
    char const * what;
    std::string text;
  };
  std::string longNames = "<r>";
  for (int length = 1; length <= 70; ++length) {
    std::string const name(std::size_t(length), 'q');
    longNames += "<" + name + " a='" + name + "'/><" + name + "x/>";
  }
  longNames += "</r>";
  // The waiting attributes outgrow the builder's first stack while their texts wait for the pool.
  std::string manyAttributes = "<r";
  for (int i = 0; i < 40; ++i) {
    manyAttributes += " a" + std::to_string(i) + "='wide value " + std::to_string(i) + "'";
  }
  manyAttributes += "><c/></r>";
  Row const rows[] = {
      {"small", Document(2, 5, 3)},
      {"more distinct texts than the cache keeps", Document(40, 300, 11000)},
      {"names of every length around the bound", longNames},
      {"forty attributes on one element", manyAttributes},
      {"deep nesting",
       [] {
         std::string t;
         for (int i = 0; i < 300; ++i) {
           t += "<d" + std::to_string(i % 4) + " i='" + std::to_string(i) + "'>";
         }
         t += "x";
         for (int i = 299; i >= 0; --i) {
           t += "</d" + std::to_string(i % 4) + ">";
         }
         return t;
       }()},
  };
  for (Row const & row : rows) {
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, row.text)) << row.what;
    EXPECT_EQ(Diff(row.text, doc), u"") << row.what;
  }
  // Names come from the pool: the same record as a text interned elsewhere.
  CXMLDoc doc;
  ASSERT_TRUE(Parse(doc, Document(1, 4, 2)));
  std::uint64_t count = 0;
  CPXMLObject * groups = doc.GetRootElement().GetElements(count);
  ASSERT_EQ(count, 1u);
  CPXMLObject * items = groups[0].GetElements(count);
  ASSERT_EQ(count, 4u);
  EXPECT_TRUE(items[0].GetName() == CPPoolString(u"n0"));
  EXPECT_TRUE(items[2].GetName() == items[0].GetName());
}

TEST(XmlSpeedPaths, TextsWaitingToBePooledReachEveryPlace) {
  // Texts met for the first time are pooled in batches; each must reach every place that waits
  // for it, through attribute stacks that move and cache tables that grow meanwhile, and leave no
  // reference behind (this test counts blocks).
  std::string wide = "<r";
  for (int i = 0; i < 150; ++i) {
    wide += " a" + std::to_string(i) + "='v" + std::to_string(i) + "'";
  }
  wide += "><c z='v7'/></r>";
  std::string fewTexts = "<r>";
  for (int i = 0; i < 600; ++i) {
    fewTexts += "<e k='w" + std::to_string(i % 5) + "'>w" + std::to_string(i % 3) + "</e>";
  }
  fewTexts += "</r>";
  std::string repeated = "<r>"; // many places per text; batches end early where the table grows
  for (int i = 0; i < 700; ++i) {
    std::string const v = "'u" + std::to_string(i) + "'";
    repeated += "<e k=" + v + " j=" + v + " l=" + v + " m=" + v + ">u" + std::to_string(i) + "</e>";
  }
  repeated += "</r>";
  for (std::string const & text : {wide, fewTexts, repeated}) {
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, text)) << text.substr(0, 40);
    EXPECT_EQ(Diff(text, doc), u"") << text.substr(0, 40);
  }
}

TEST(XmlSpeedPaths, RunsOfPlainTextEndWhereverTheirEndFalls) {
  // Names, attribute values and character data are scanned in steps of several bytes; whatever
  // ends a run (markup, a reference, a quote, white space, a carriage return, a character beyond
  // ASCII) must end it at every place across those steps.
  struct Stop {
    std::string in;
    std::u16string value; // what an attribute value holds for it
    std::u16string data;  // what character data holds for it
  };
  Stop const stops[] = {
      {"&amp;", u"&", u"&"},     {"&#x3C;", u"<", u"<"}, {"\xC3\xA9", u"\u00E9", u"\u00E9"},
      {"\r\n", u" ", u"\n"},     {"\t", u" ", u"\t"},    {" ", u" ", u" "},
      {"\x7F", u"\x7F", u"\x7F"}};
  for (int before = 0; before < 40; ++before) {
    for (Stop const & stop : stops) {
      std::string const run(std::size_t(before), 'q');
      std::u16string const wide(std::size_t(before), u'q');
      // A name ends at "=", at white space or at ">" after any number of name characters.
      std::string const name = "n" + run + "-.:_9Z";
      std::string const text = "<r><" + name + " v='" + run + stop.in + "z' w=\"" + run + "\"\t>" +
                               run + stop.in + run + "</" + name + "><e>" + run + "</e></r>";
      CXMLDoc doc;
      ASSERT_TRUE(Parse(doc, text)) << before << " " << stop.in;
      std::uint64_t count = 0;
      CPXMLObject * const children = doc.GetRootElement().GetElements(count);
      ASSERT_EQ(count, 2u);
      CPXMLObject const & item = children[0];
      EXPECT_EQ(Text(item.GetName()), u"n" + wide + u"-.:_9Z");
      EXPECT_EQ(Text(item.FindAttribute(CPPoolString(u"v"))), wide + stop.value + u"z");
      EXPECT_EQ(Text(item.FindAttribute(CPPoolString(u"w"))), wide);
      EXPECT_EQ(Text(item.GetData()), wide + stop.data + wide) << before << " " << stop.in;
      EXPECT_EQ(Text(children[1].GetData()), wide);
    }
  }
  // Character data that is white space alone is not data, however long; a "]" or "<" in a value
  // is refused wherever it stands.
  for (int before = 0; before < 40; ++before) {
    std::string const blanks(std::size_t(before), ' ');
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, "<r>" + blanks + "\n\t" + blanks + "<e/>" + blanks + "</r>"));
    EXPECT_EQ(doc.GetRootElement().GetNElements(CPPoolString(u"e")), 1u);
    EXPECT_FALSE(Parse(doc, "<r>" + blanks + "x" + blanks + "<e/></r>")) << "mixed content";
    EXPECT_FALSE(Parse(doc, "<r v='" + blanks + "<'/>"));
    EXPECT_FALSE(Parse(doc, "<r>" + blanks + "]]>" + blanks + "</r>"));
  }
}

TEST(XmlSpeedPaths, ParsedArraysGrowWhenTheTreeIsEdited) {
  // The parser sizes each array exactly; edits must still grow it, keeping the order.
  CXMLDoc doc;
  ASSERT_TRUE(Parse(doc, "<r a='1' b='2'><c/><d/></r>"));
  CPXMLObject & root = doc.GetRootElement();
  CPXMLObject child;
  ASSERT_TRUE(child.SetName(CPPoolString(u"e")));
  for (int i = 0; i < 40; ++i) {
    std::u16string const name = u"x" + std::u16string(std::size_t(i + 1), u'z');
    ASSERT_TRUE(root.AddAttribute(CPPoolString(name.c_str()), CXMLValue(u"v")));
    ASSERT_EQ(root.Add(child).sIndex(), 1u);
  }
  ASSERT_EQ(root.Insert(child, 0).sIndex(), 0u);
  CPPoolString name;
  CPPoolString value;
  ASSERT_TRUE(root.GetAttribute(1, name, value));
  EXPECT_EQ(Text(name) + Text(value), u"b2");
  EXPECT_EQ(root.GetNAttributes(), 42u);
  std::uint64_t count = 0;
  CPXMLObject * children = root.GetElements(count);
  ASSERT_EQ(count, 43u);
  EXPECT_EQ(Text(children[0].GetName()) + Text(children[1].GetName()) +
                Text(children[2].GetName()) + Text(children[42].GetName()),
            u"ecde");
}

// Four threads each take a handle on every kept block and release a quarter of theirs at
// once, so counts go up and down on all of them together; then `kept` lets go too.
template <class Handle> void ReleaseOnFourThreads(std::vector<Handle> & kept) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&kept, t] {
      std::vector<Handle> mine(kept.begin(), kept.end());
      for (std::size_t i = std::size_t(t); i < mine.size(); i += 4) {
        mine[i] = Handle();
      }
    });
  }
  for (std::thread & thread : threads) {
    thread.join();
  }
  kept.clear();
}

TEST(XmlSpeedPaths, ParsedNodesOutliveTheirDocumentAndGoFromAnyThread) {
  // A parsed tree lies in shared pages: nodes kept from it must stay whole after the document
  // goes, edits must move them off their pages, and releasing them on several threads at once
  // must give every page back (the leak check counts the pages).
  std::string const text = Document(40, 60, 500);
  std::vector<CPXMLObject> kept;
  std::vector<std::u16string> want;
  {
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, text));
    std::uint64_t groups = 0;
    CPXMLObject * group = doc.GetRootElement().GetElements(groups);
    ASSERT_EQ(groups, 40u);
    for (std::uint64_t g = 0; g < groups; g += 3) {
      std::uint64_t count = 0;
      CPXMLObject * children = group[g].GetElements(count);
      for (std::uint64_t i = 0; i < count; i += 7) {
        kept.push_back(children[i]);
        want.push_back(vorx::test::TreeText(children[i]));
      }
    }
  }
  CXMLDoc other;
  ASSERT_TRUE(Parse(other, Document(3, 5, 4)));
  ASSERT_GT(kept.size(), 100u);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    ASSERT_EQ(vorx::test::TreeText(kept[i]), want[i]) << i;
  }
  for (std::size_t i = 0; i < kept.size(); i += 5) {
    ASSERT_TRUE(kept[i].SetAttribute(CPPoolString(u"w"), CXMLValue(u"edited")));
    ASSERT_TRUE(kept[i].AddTag(CPPoolString(u"more"), CXMLValue(u"x")));
    ASSERT_TRUE(kept[i].Rename(CPPoolString(u"renamed")));
    EXPECT_EQ(Text(kept[i].FindAttribute(CPPoolString(u"w"))), u"edited");
    EXPECT_EQ(Text(kept[i].FindElementData(CPPoolString(u"more"))), u"x");
  }
  ReleaseOnFourThreads(kept);
}

TEST(XmlSpeedPaths, TextsFirstPooledByAParseStayInThePoolAfterTheirDocument) {
  // The records of texts new to the pool lie in pages the parse carves. Texts kept after the
  // document goes, and their UTF-8 forms, must stay whole while the pool drops the others;
  // a later parse and a plain look-up must find the very same records; releasing them on several
  // threads at once must give every page back (the leak check counts the pages).
  auto const unique = [](int i, std::size_t length) {
    std::string text = "kept-" + std::to_string(i) + "-";
    text.resize(length, char('a' + i % 26));
    return text;
  };
  // Short texts are pooled in batches, longer ones one by one, and the longest are too large to
  // lie in a page.
  std::vector<std::size_t> const lengths = {8, 40, 64, 65, 200, 470, 490, 900};
  std::string text = "<root>";
  std::vector<std::string> values;
  for (int i = 0; i < 400; ++i) {
    values.push_back(unique(i, lengths[std::size_t(i) % lengths.size()]));
    text += "<e" + std::to_string(i % 7) + " v='" + values.back() + "'>" + unique(i + 1000, 12) +
            "</e" + std::to_string(i % 7) + ">";
  }
  text += "</root>";
  std::vector<CPPoolString> kept;
  std::vector<std::string> want;
  {
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, text));
    std::uint64_t count = 0;
    CPXMLObject * children = doc.GetRootElement().GetElements(count);
    ASSERT_EQ(count, 400u);
    for (std::uint64_t i = 0; i < count; i += 3) {
      kept.push_back(children[i].FindAttribute(CPPoolString(u"v")));
      want.push_back(values[i]);
      ASSERT_NE(static_cast<unsigned char const *>(kept.back()), nullptr);
    }
  }
  VORX::String::CStringPool::Collect(0xFFFFFFFFu);
  VORX::String::CStringPool::Collect(0xFFFFFFFFu);
  auto const utf8 = [](CPPoolString const & s) {
    return std::string(reinterpret_cast<char const *>(static_cast<unsigned char const *>(s)));
  };
  for (std::size_t i = 0; i < kept.size(); ++i) {
    ASSERT_EQ(utf8(kept[i]), want[i]) << i;
    CPPoolString const again = VORX::String::CStringPool::GetStringRefn(
        reinterpret_cast<unsigned char const *>(want[i].c_str()), want[i].size());
    EXPECT_EQ(static_cast<qefWChar const *>(again), static_cast<qefWChar const *>(kept[i])) << i;
  }
  {
    CXMLDoc doc;
    ASSERT_TRUE(Parse(doc, text));
    std::uint64_t count = 0;
    CPXMLObject * children = doc.GetRootElement().GetElements(count);
    for (std::uint64_t i = 0; i < count; i += 3) {
      EXPECT_EQ(static_cast<qefWChar const *>(children[i].FindAttribute(CPPoolString(u"v"))),
                static_cast<qefWChar const *>(kept[i / 3]))
          << i;
    }
  }
  ReleaseOnFourThreads(kept);
}

TEST(XmlSpeedPaths, TextsNewToThePoolBecomeOneRecordEachWhicheverThreadPoolsThemFirst) {
  // Four threads parse one document of texts no parse has met, in batches and one by one: each
  // text must become one record for all four trees, and a text met in two letter cases must
  // head its case group with the form the document shows first.
  std::string text = "<root>";
  for (int i = 0; i < 300; ++i) {
    std::string const n = std::to_string(i);
    std::string const tail = i % 5 == 0 ? std::string(70, 'z') : ""; // pooled one by one
    text += "<e a='Fresh-" + n + "-mixed" + tail + "' b='FRESH-" + n + "-MIXED" + tail +
            "' c='Fresh-" + n + "-mixed" + tail + "'/>";
  }
  text += "</root>";
  constexpr int kThreads = 4;
  std::vector<std::vector<CPPoolString>> seen(kThreads);
  std::vector<std::thread> threads;
  std::latch start(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      CXMLDoc doc;
      if (!Parse(doc, text)) {
        return;
      }
      std::uint64_t count = 0;
      CPXMLObject * children = doc.GetRootElement().GetElements(count);
      for (std::uint64_t i = 0; i < count; ++i) {
        for (char16_t const * name : {u"a", u"b", u"c"}) {
          seen[std::size_t(t)].push_back(children[i].FindAttribute(CPPoolString(name)));
        }
      }
    });
  }
  for (std::thread & thread : threads) {
    thread.join();
  }
  auto const same = [](CPPoolString const & x, CPPoolString const & y) {
    return static_cast<qefWChar const *>(x) == static_cast<qefWChar const *>(y);
  };
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(seen[std::size_t(t)].size(), 900u) << t;
  }
  for (std::size_t i = 0; i < 900; i += 3) {
    std::vector<CPPoolString> const & first = seen[0];
    EXPECT_TRUE(same(first[i], first[i + 2])) << i;
    EXPECT_FALSE(same(first[i], first[i + 1])) << i;
    for (int t = 1; t < kThreads; ++t) {
      EXPECT_TRUE(same(seen[std::size_t(t)][i], first[i])) << t << " " << i;
      EXPECT_TRUE(same(seen[std::size_t(t)][i + 1], first[i + 1])) << t << " " << i;
    }
    std::u16string lowered = Text(first[i]);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c; });
    EXPECT_TRUE(same(VORX::String::CStringPool::QueryStringRefi(lowered.c_str()), first[i])) << i;
  }
}

TEST(XmlSpeedPaths, TextsThePoolCannotKeepWholeAreRefusedOnEveryPath) {
  std::string const pair = "\xF0\x9F\x98\x80"; // U+1F600, two units
  std::string const longText(80, 'l');
  for (std::string const & text :
       {"<r a='" + pair + "'/>", "<r>" + longText + pair + "</r>",
        "<r a='" + longText + pair + "'/>", "<r><a/><b>" + pair + "</b></r>"}) {
    CXMLDoc doc;
    EXPECT_FALSE(Parse(doc, text)) << text;
    EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 18u) << text;
    EXPECT_TRUE(doc.GetRootElement().IsDefault()) << text;
  }
}

TEST(XmlSpeedPaths, FailedAllocationsWhileCachingAndSizingLeaveNothingBehind) {
  // Enough distinct texts to make the cache grow, children and attributes at three levels.
  std::string const text = Document(2, 80, 150);
  bool completed = false;
  for (long successes = 0; !completed && successes < 20000; ++successes) {
    CXMLDoc doc;
    bool ok;
    {
      vorx::test::AllocationFailure failure(successes);
      ok = Parse(doc, text);
    }
    if (ok) {
      completed = true;
      EXPECT_EQ(Diff(text, doc), u"") << successes;
    } else {
      EXPECT_TRUE(doc.GetRootElement().IsDefault()) << successes;
      EXPECT_EQ(doc.GetErrorInfo(nullptr, nullptr), 18u) << successes;
    }
  }
  EXPECT_TRUE(completed);
}

// --- writing ------------------------------------------------------------------------------------

std::string Utf8(std::u16string const & text) {
  std::string out;
  for (char16_t c : text) {
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6));
      out += char(0x80 | (c & 0x3F));
    } else {
      out += char(0xE0 | (c >> 12));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

TEST(XmlSpeedPaths, LongOutputsCrossTheBufferWithTheDocumentedBytes) {
  // Data of every length from 1 to 90 units in three scripts, so that pieces of one, two and
  // three bytes per unit end at every place of the 16384-byte buffer.
  std::u16string const scripts[] = {u"abcdefghij", u"\u00E9\u00E8\u00EA\u00EB\u00E0",
                                    u"\u4E2D\u6587\u5B57"};
  CPXMLObject root;
  ASSERT_TRUE(root.SetName(CPPoolString(u"r")));
  std::string indented = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<r>\r\n";
  std::string flat = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>";
  std::u16string wide = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><r>";
  for (int round = 0; round < 6; ++round) {
    for (std::size_t length = 1; length <= 90; ++length) {
      std::u16string const & script = scripts[(length + round) % 3];
      std::u16string data;
      for (std::size_t i = 0; i < length; ++i) {
        data += script[(i + length) % script.size()];
      }
      std::u16string const name = round % 3 == 0   ? u"e"
                                  : round % 3 == 1 ? u"\u00E9l\u00E9ment"
                                                   : u"long-element-n\u00E4me";
      // Values up to 39 units: plain runs broken by a special character or a non-ASCII one at
      // every offset of the eight-unit steps, or a run of ampersands.
      std::u16string value = u"v";
      std::u16string escaped = u"v";
      for (std::size_t i = 0; i < length % 40; ++i) {
        char16_t unit = char16_t(u'a' + i % 26);
        if (round == 5 || (i + length) % 11 == 10) {
          unit = u"&<>\"'"[round == 5 ? 0 : (i / 11 + length) % 5];
        } else if ((i + std::size_t(round)) % 13 == 12) {
          unit = u'\u00E9';
        }
        value += unit;
        std::u16string_view const entities[] = {u"&amp;", u"&lt;", u"&gt;", u"&quot;", u"&apos;"};
        std::size_t const special = std::u16string_view(u"&<>\"'").find(unit);
        escaped += special == std::u16string_view::npos ? std::u16string(1, unit)
                                                        : std::u16string(entities[special]);
      }
      CPXMLObject child;
      ASSERT_TRUE(child.SetName(CPPoolString(name.c_str())));
      ASSERT_TRUE(child.AddAttribute(CPPoolString(u"a"), CXMLValue(value.c_str())));
      ASSERT_TRUE(child.Add(CXMLValue(data.c_str())));
      ASSERT_EQ(root.Add(child).sIndex(), 1u);
      std::u16string const element =
          u"<" + name + u" a=\"" + escaped + u"\">" + data + u"</" + name + u">";
      indented += "  " + Utf8(element) + "\r\n";
      flat += Utf8(element);
      wide += element;
    }
  }
  indented += "</r>\r\n";
  flat += "</r>";
  wide += u"</r>";
  ASSERT_GT(flat.size(), 3u * 16384u); // the writer's buffer
  for (bool indent : {true, false}) {
    CPPlainMemory out;
    ASSERT_TRUE(root.Write(out, eXMLEncodingUTF8, indent));
    std::string const & want = indent ? indented : flat;
    ASSERT_EQ(out.GetMemorySize(), want.size() + 1) << indent;
    EXPECT_EQ(std::string(static_cast<char const *>(static_cast<void const *>(out)), want.size()),
              want)
        << indent;
  }
  CPPlainMemory out;
  ASSERT_TRUE(root.Write(out, eXMLEncodingUTF16, false));
  ASSERT_EQ(out.GetMemorySize(), 2 * (wide.size() + 1));
  EXPECT_EQ(
      std::u16string(static_cast<char16_t const *>(static_cast<void const *>(out)), wide.size()),
      wide);
}

TEST(XmlSpeedPaths, DataIsProtectedExactlyWhenItWouldNotReadBack) {
  struct Row {
    char16_t const * data;
    bool cdata;
  };
  Row const rows[] = {
      {u"plain words", false}, {u"a\tb\nc\rd e", false}, {u"\u00E9\u00A0\u4E2D", false},
      {u" lead", true},        {u"\tlead", true},        {u"trail\n", true},
      {u"two  spaces", true},  {u"tab\t\nline", true},   {u"cr\r\tx", true},
      {u"amp&", true},         {u"lt<", true},           {u"gt>", true},
      {u"quot\"", true},       {u"apos'", true},         {u"x]y", false},
  };
  for (Row const & row : rows) {
    CPXMLObject node;
    ASSERT_TRUE(node.SetName(CPPoolString(u"d")));
    ASSERT_TRUE(node.Add(CXMLValue(row.data)));
    CPPlainMemory out;
    ASSERT_TRUE(node.Write(out, eXMLEncodingUTF8, false));
    std::string const body = Utf8(row.data);
    std::string const want = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><d>" +
                             (row.cdata ? "<![CDATA[" + body + "]]>" : body) + "</d>";
    EXPECT_EQ(std::string(static_cast<char const *>(static_cast<void const *>(out))), want) << body;
  }
}

} // namespace
