// The element tree: sharing, mutation rules and their deliberate results, navigation, search.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <vorx/string.h>
#include <vorx/xml.h>

#include "support/memory_hooks.h"

namespace {

using VORX::String::CPPoolString;
using VORX::XML::CPXMLObject;
using VORX::XML::xmlret;

constexpr std::uint64_t kNone = ~std::uint64_t{0};

CPXMLObject Named(char16_t const * name) {
  CPXMLObject node;
  EXPECT_TRUE(node.SetName(name));
  return node;
}

std::u16string Text(CPPoolString const & s) {
  return static_cast<char16_t const *>(s);
}

TEST(XMLObject, CopiesShareTheNodeAndSetNameDetachesOnlyThisHandle) {
  CPXMLObject parent = Named(u"parent");
  CPXMLObject child = Named(u"child");
  CPXMLObject alias = child;
  EXPECT_EQ(parent.Add(child).sIndex(), 1u);
  EXPECT_TRUE(alias.Add(u"text"));
  std::uint64_t count = 0;
  CPXMLObject * slots = parent.GetElements(count);
  ASSERT_EQ(count, 1u);
  EXPECT_TRUE(slots[0] == child) << "the child added is the handle's own node";
  EXPECT_EQ(Text(slots[0].GetData()), u"text") << "an edit through one handle shows in all";
  EXPECT_TRUE(child.Rename(u"renamed"));
  EXPECT_EQ(Text(parent.item(0).GetName()), u"renamed");
  EXPECT_TRUE(child.SetName(u"fresh"));
  EXPECT_FALSE(child == alias);
  EXPECT_TRUE(child.IsNamedDefault());
  EXPECT_EQ(Text(parent.item(0).GetName()), u"renamed") << "the parent keeps the old node";
  EXPECT_EQ(Text(alias.GetData()), u"text");
  EXPECT_FALSE(child.SetName(u"9bad"));
  EXPECT_EQ(Text(child.GetName()), u"fresh") << "a refused name leaves the handle alone";
}

TEST(XMLObject, NamesAndDataAreSharedPoolRecords) {
  CPXMLObject root = Named(u"root");
  for (int i = 0; i < 100000; ++i) {
    CPXMLObject item = Named(u"item");
    ASSERT_TRUE(item.AddAttribute(u"kind", CPPoolString(u"leaf")));
    ASSERT_EQ(root.Add(item).sIndex(), 1u);
  }
  std::uint64_t count = 0;
  CPXMLObject const * items = root.GetElements(count);
  ASSERT_EQ(count, 100000u);
  CPPoolString const kind(u"kind");
  // One record per distinct text: names and values compare as identities across the tree.
  EXPECT_TRUE(items[0].GetName() == items[99999].GetName());
  EXPECT_EQ(items[0].GetName().lockcnt(), items[99999].GetName().lockcnt());
  EXPECT_GE(items[0].GetName().lockcnt(), 100000u);
  EXPECT_TRUE(items[0].FindAttribute(kind) == items[99999].FindAttribute(kind));
  EXPECT_EQ(root.GetNElements(u"item"), 100000u);
}

TEST(XMLObject, IdentityAndStateQueries) {
  CPXMLObject null;
  EXPECT_FALSE(null);
  EXPECT_TRUE(null.IsDefault());
  EXPECT_FALSE(null.IsNamedDefault());
  EXPECT_TRUE(null.GetName().isempty());
  EXPECT_EQ(null.GetState(), 0u);
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node);
  EXPECT_FALSE(node.IsDefault());
  EXPECT_TRUE(node.IsNamedDefault());
  EXPECT_TRUE(node.IsName(u"n"));
  EXPECT_FALSE(node.IsName(u"N"));
  ASSERT_TRUE(node.Add(u"data"));
  ASSERT_TRUE(node.AddAttribute(u"a", u"1"));
  EXPECT_FALSE(node.IsNamedDefault());
  EXPECT_TRUE(node.IsData(u"data"));
  EXPECT_TRUE(node.IsNameData(u"n", u"data"));
  EXPECT_TRUE(node.IsNameAttrib(u"n", u"a"));
  EXPECT_FALSE(node.IsNameAttrib(u"n", u"b"));
  EXPECT_TRUE(node.IsNameAttribVal(u"n", u"a", u"1"));
  EXPECT_FALSE(node.IsNameAttribVal(u"n", u"a", u"2"));
  EXPECT_TRUE(node.GetContent().isempty()) << "always empty, even with data";
  EXPECT_EQ(node.GetNameIndex(u"m|n|o", u'|'), 1u);
  EXPECT_EQ(node.GetNameIndex(u"m|nn", u'|'), kNone);
  node.Reset();
  EXPECT_TRUE(node.IsNamedDefault()) << "Reset keeps the name only";
  EXPECT_EQ(node.GetState(), 0u);
  null.Reset();
  EXPECT_FALSE(null.Rename(u"x"));
}

TEST(XMLObject, AddAnswersOneNotTheIndex) {
  CPXMLObject parent = Named(u"p");
  EXPECT_EQ(parent.Add(Named(u"a")).sIndex(), 1u);
  EXPECT_EQ(parent.Add(Named(u"b")).sIndex(), 1u);
  EXPECT_EQ(parent.Insert(Named(u"first"), 0).sIndex(), 0u);
  EXPECT_EQ(parent.Insert(Named(u"last"), 100).sIndex(), 100u) << "beyond the end appends";
  EXPECT_EQ(parent.Insert(Named(u"end"), kNone).sIndex(), kNone);
  std::u16string order;
  for (std::uint64_t i = 0; i < 5; ++i) {
    order += Text(parent.item(i).GetName()) + u",";
  }
  EXPECT_EQ(order, u"first,a,b,last,end,");
  EXPECT_EQ(parent.GetState(), 1u);
  // Refusals.
  CPXMLObject unnamed;
  EXPECT_FALSE(parent.Add(unnamed)) << "a default child";
  EXPECT_TRUE(parent.CAdd(unnamed)) << "CAdd accepts a default child silently";
  EXPECT_FALSE(parent.Add(parent)) << "a node under itself";
  EXPECT_FALSE(unnamed.Add(Named(u"x")));
  EXPECT_FALSE(unnamed.CAdd(Named(u"x")));
  EXPECT_EQ(parent.GetNElements(u"a"), 1u);
  EXPECT_EQ(parent.GetNElements(CPPoolString::pempty), 0u) << "never counts all children";
  EXPECT_FALSE(parent.item(5));
  EXPECT_TRUE(parent.item(xmlret(1)).IsName(u"a"));
  // No mixed content through Insert.
  CPXMLObject data = Named(u"d");
  ASSERT_TRUE(data.Add(u"text"));
  EXPECT_FALSE(data.Insert(Named(u"x"), 0));
  EXPECT_EQ(data.Add(Named(u"x")).sIndex(), 1u);
  EXPECT_EQ(data.GetState(), 3u);
}

TEST(XMLObject, AddAnswersZeroWhenTheArrayCannotGrow) {
  CPXMLObject parent = Named(u"p");
  CPXMLObject child = Named(u"c");
  ASSERT_TRUE(parent.Add(child));
  ASSERT_TRUE(parent.Add(child));
  std::uint64_t count = 0;
  parent.GetElements(count);
  for (int i = 0; i < 64; ++i) {
    vorx::test::AllocationFailure fail;
    xmlret const result = parent.Add(child);
    if (fail.Refused() > 0) {
      EXPECT_EQ(result.sIndex(), 0u);
      parent.GetElements(count);
      EXPECT_EQ(count, static_cast<std::uint64_t>(i) + 2) << "nothing added";
      return;
    }
    EXPECT_EQ(result.sIndex(), 1u);
  }
  ADD_FAILURE() << "the array never had to grow";
}

TEST(XMLObject, DataIsGivenOnceAndStateFollowsContent) {
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.Add(u""));
  EXPECT_EQ(node.GetState(), 0u) << "an empty text changes nothing";
  EXPECT_TRUE(node.Add(u"first"));
  EXPECT_EQ(node.GetState(), 2u);
  EXPECT_FALSE(node.Add(u"second"));
  EXPECT_EQ(Text(node.GetData()), u"first");
  EXPECT_TRUE(node.Set(u"second"));
  EXPECT_EQ(Text(node.GetData()), u"second");
  EXPECT_EQ(node.Add(Named(u"c")).sIndex(), 1u);
  EXPECT_EQ(node.GetState(), 3u);
  EXPECT_TRUE(node.DeleteData());
  EXPECT_EQ(node.GetState(), 1u);
  EXPECT_TRUE(node.Add(u"again"));
  EXPECT_EQ(node.GetState(), 3u);
  EXPECT_TRUE(node.DeleteElements());
  EXPECT_EQ(node.GetState(), 2u);
  EXPECT_TRUE(node.DeleteElements()) << "nothing to delete";
  EXPECT_TRUE(node.DeleteContent());
  EXPECT_EQ(node.GetState(), 0u);
  EXPECT_TRUE(node.DeleteData());
  EXPECT_TRUE(node.Set(Named(u"only")));
  EXPECT_EQ(node.GetState(), 1u);
  EXPECT_FALSE(node.Set(CPXMLObject()));
  CPXMLObject null;
  EXPECT_FALSE(null.Add(u"x"));
  EXPECT_FALSE(null.DeleteData());
  EXPECT_FALSE(null.DeleteElements());
  EXPECT_FALSE(null.Set(u"x"));
  EXPECT_TRUE(null.GetData().isempty());
}

TEST(XMLObject, DeletingTheLastChildKeepsTheState) {
  CPXMLObject node = Named(u"n");
  ASSERT_TRUE(node.Add(Named(u"c")));
  ASSERT_TRUE(node.Delete(std::uint64_t{0}));
  EXPECT_EQ(node.GetState(), 1u);
  EXPECT_TRUE(node.Add(u"42"));
  EXPECT_EQ(node.GetState(), 3u);
  EXPECT_EQ(node.GetDataInt(-1), -1) << "number readers need state 2";
  EXPECT_TRUE(node.DeleteElements());
  EXPECT_EQ(node.GetState(), 2u);
  EXPECT_EQ(node.GetDataInt(-1), 42);
  EXPECT_FALSE(node.Delete(std::uint64_t{0})) << "no children";
}

TEST(XMLObject, ReplaceAndDeleteBySlotOrByNode) {
  CPXMLObject parent = Named(u"p");
  CPXMLObject a = Named(u"a");
  CPXMLObject b = Named(u"b");
  CPXMLObject c = Named(u"c");
  ASSERT_TRUE(parent.Add(a) && parent.Add(b) && parent.Add(a));
  std::uint64_t count = 0;
  CPXMLObject * slots = parent.GetElements(count);
  // A pointer into the array names its slot; any other pointer names the node it holds.
  EXPECT_EQ(parent.Replace(c, slots + 2).sIndex(), 2u);
  EXPECT_TRUE(parent.item(2) == c);
  EXPECT_EQ(parent.Replace(c, &b).sIndex(), 1u);
  EXPECT_EQ(parent.Replace(b, &b).sIndex(), kNone) << "b is no longer a child";
  EXPECT_EQ(parent.Replace(b, c).sIndex(), 1u) << "the first slot holding c";
  EXPECT_FALSE(parent.Replace(b, CPXMLObject()));
  EXPECT_TRUE(parent.Replace(a, std::uint64_t{2}));
  EXPECT_FALSE(parent.Replace(a, std::uint64_t{3}));
  EXPECT_FALSE(parent.Replace(CPXMLObject(), std::uint64_t{0}));
  CPXMLObject unnamed;
  EXPECT_EQ(unnamed.Replace(a, &a).sIndex(), 0u) << "0, not -1, on an unnamed node";
  EXPECT_EQ(unnamed.Replace(a, a).sIndex(), kNone);
  // Now a, b, a.
  slots = parent.GetElements(count);
  EXPECT_TRUE(parent.Delete(slots + 2));
  EXPECT_TRUE(parent.Delete(&a)) << "the first slot holding a";
  EXPECT_TRUE(parent.item(0) == b);
  EXPECT_FALSE(parent.Delete(a));
  EXPECT_FALSE(parent.Delete(static_cast<CPXMLObject const *>(nullptr)));
  EXPECT_TRUE(parent.Delete(b));
  EXPECT_EQ(parent.GetState(), 1u);
  EXPECT_FALSE(unnamed.Delete(std::uint64_t{0}));
}

TEST(XMLObject, AttributesKeepOrderAndRefuseEmptyValues) {
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.AddAttribute(u"a", u"1"));
  EXPECT_TRUE(node.AddAttribute(u"b", u"2"));
  EXPECT_FALSE(node.AddAttribute(u"a", u"3")) << "names are unique";
  EXPECT_FALSE(node.AddAttribute(u"c", u"")) << "values are never empty";
  EXPECT_FALSE(node.AddAttribute(u"1c", u"x")) << "an invalid name";
  EXPECT_EQ(node.GetNAttributes(), 2u);
  EXPECT_TRUE(node.SetAttribute(u"a", u"3"));
  CPPoolString name;
  CPPoolString value;
  ASSERT_TRUE(node.GetAttribute(1, name, value));
  EXPECT_EQ(Text(name), u"a") << "SetAttribute moves the pair to the end";
  EXPECT_EQ(Text(value), u"3");
  EXPECT_FALSE(node.GetAttribute(2, name, value));
  EXPECT_TRUE(name.isempty() && value.isempty());
  EXPECT_TRUE(node.HasAttribute(u"b"));
  EXPECT_EQ(Text(node.FindAttribute(u"b")), u"2");
  EXPECT_TRUE(node.FindAttribute(u"z").isempty());
  EXPECT_EQ(Text(node.FindAttributeString(u"z", u"dflt")), u"dflt");
  EXPECT_TRUE(node.FindAttributeValue(u"b", u"2"));
  EXPECT_FALSE(node.FindAttributeValue(u"b", u"3"));
  EXPECT_FALSE(node.SetAttribute(u"b", u"")) << "an empty value removes and refuses";
  EXPECT_FALSE(node.HasAttribute(u"b"));
  EXPECT_TRUE(node.DeleteAttribute(u"absent"));
  EXPECT_FALSE(node.DeleteAttribute(u"not valid"));
  EXPECT_TRUE(node.DeleteAttribute(u"a"));
  EXPECT_EQ(node.GetNAttributes(), 0u);
  CPXMLObject null;
  EXPECT_TRUE(null.DeleteAttribute(u"a"));
  EXPECT_FALSE(null.AddAttribute(u"a", u"1"));
  EXPECT_FALSE(null.GetAttribute(0, name, value));
  EXPECT_EQ(null.GetNAttributes(), 0u);
}

TEST(XMLObject, MergeAttributesKeepsOrOverwrites) {
  CPXMLObject node = Named(u"n");
  CPXMLObject other = Named(u"o");
  ASSERT_TRUE(node.AddAttribute(u"a", u"1") && node.AddAttribute(u"b", u"2"));
  ASSERT_TRUE(other.AddAttribute(u"b", u"20") && other.AddAttribute(u"c", u"30"));
  EXPECT_TRUE(node.MergeAttributes(other, false));
  EXPECT_EQ(Text(node.FindAttribute(u"b")), u"2");
  EXPECT_EQ(Text(node.FindAttribute(u"c")), u"30");
  EXPECT_TRUE(node.MergeAttributes(other, true));
  EXPECT_EQ(Text(node.FindAttribute(u"b")), u"20");
  EXPECT_EQ(node.GetNAttributes(), 3u);
  EXPECT_TRUE(node.MergeAttributes(CPXMLObject(), true));
  EXPECT_FALSE(CPXMLObject().MergeAttributes(other, true));
}

TEST(XMLObject, TagsAndFormattedForms) {
  CPXMLObject node = Named(u"n");
  EXPECT_EQ(node.AddTag(u"a").sIndex(), 1u);
  EXPECT_EQ(node.AddTag(u"b", u"text").sIndex(), 1u);
  EXPECT_EQ(node.AddTag(u"").sIndex(), kNone);
  EXPECT_EQ(node.AddTag(u"-x", u"t").sIndex(), kNone);
  EXPECT_EQ(Text(node.FindElementData(u"b")), u"text");
  EXPECT_EQ(node.printfTag(u"c", u"%d-%ls", 7, u"x").sIndex(), 1u);
  EXPECT_EQ(Text(node.FindElementData(u"c")), u"7-x");
  EXPECT_TRUE(node.SetTag(u"only", std::uint64_t{255}));
  std::uint64_t count = 0;
  node.GetElements(count);
  EXPECT_EQ(count, 1u) << "SetTag leaves exactly one child";
  EXPECT_EQ(Text(node.FindElementData(u"only")), u"ff");
  EXPECT_FALSE(node.SetTag(u"a b", u"x"));
  EXPECT_TRUE(node.SprintfTag(u"s", u"%03u", 5u));
  EXPECT_EQ(Text(node.FindElementData(u"s")), u"005");
  EXPECT_EQ(Text(node.FindElementString(u"none", u"dflt")), u"dflt");

  CPXMLObject data = Named(u"d");
  EXPECT_TRUE(data.printf(u"%hs=%I64u", "x", std::uint64_t{1} << 40));
  EXPECT_EQ(Text(data.GetData()), u"x=1099511627776");
  EXPECT_FALSE(data.printf(u"more")) << "the node has data";
  EXPECT_TRUE(data.Sprintf(u"%c", u'z'));
  EXPECT_EQ(Text(data.GetData()), u"z");
  EXPECT_FALSE(data.Sprintf(nullptr));
  EXPECT_TRUE(data.printfAttribute(u"at", u"%x", 255u));
  EXPECT_FALSE(data.printfAttribute(u"at", u"%x", 1u));
  EXPECT_TRUE(data.SprintfAttribute(u"at", u"%x", 1u));
  EXPECT_EQ(Text(data.FindAttribute(u"at")), u"1");
  // The buffer holds 2048 units with the terminator.
  std::u16string const fits(2047, u'x');
  std::u16string const longer(2048, u'x');
  EXPECT_TRUE(data.Sprintf(u"%ls", fits.c_str()));
  EXPECT_EQ(data.GetData().len(), 2047u);
  EXPECT_FALSE(data.Sprintf(u"%ls", longer.c_str()));
  EXPECT_FALSE(CPXMLObject().printf(u"x"));
}

TEST(XMLObject, PathSearchTakesTheFirstChildOfEachName) {
  CPXMLObject root = Named(u"root");
  CPXMLObject a = Named(u"a");
  CPXMLObject b1 = Named(u"b");
  CPXMLObject b2 = Named(u"b");
  CPXMLObject c = Named(u"c");
  ASSERT_TRUE(b2.Add(c) && a.Add(b1) && a.Add(b2) && root.Add(a));
  struct {
    char16_t const * path;
    CPXMLObject const * node; // null: not found
  } const rows[] = {
      {u"a", &a},          {u"a/b", &b1},      {u" a / b ", &b1},   {u"\ta\r\n/\nb", &b1},
      {u"a/b/c", nullptr}, {u"a//b", nullptr}, {u"a/", nullptr},    {u"a/ ", nullptr},
      {u"/a", nullptr},    {u"1a", nullptr},   {u"a/b c", nullptr}, {u"", nullptr},
      {u"x", nullptr},     {u"a/x", nullptr},  {u"a b", nullptr},
  };
  for (auto const & row : rows) {
    CPXMLObject const * parent = &root;
    CPXMLObject const * found =
        static_cast<CPXMLObject const &>(root).FindFirstElement(row.path, &parent);
    if (!row.node) {
      EXPECT_EQ(found, nullptr);
      EXPECT_EQ(parent, nullptr);
      continue;
    }
    ASSERT_NE(found, nullptr);
    EXPECT_TRUE(*found == *row.node);
  }
  // The slot found lies in its parent's array; a one-name path answers this handle as parent.
  CPXMLObject * parent = nullptr;
  CPXMLObject * found = root.FindFirstElement(u"a/b", &parent);
  std::uint64_t count = 0;
  EXPECT_EQ(found, a.GetElements(count));
  EXPECT_TRUE(*parent == a);
  EXPECT_EQ(root.FindFirstElement(u"a", &parent), root.GetElements(count));
  EXPECT_EQ(parent, &root);
  EXPECT_EQ(root.FindFirstElement(nullptr), nullptr);
  EXPECT_EQ(CPXMLObject().FindFirstElement(u"a"), nullptr);
}

TEST(XMLObject, ScansForwardAndBackwardFromASlot) {
  CPXMLObject root = Named(u"r");
  char16_t const * const names[] = {u"x", u"y", u"x", u"x"};
  for (int i = 0; i < 4; ++i) {
    CPXMLObject child = Named(names[i]);
    ASSERT_TRUE(child.AddAttribute(u"n", CPPoolString(static_cast<std::int32_t>(i))));
    if (i >= 2) {
      ASSERT_TRUE(child.Add(u"data"));
    }
    ASSERT_TRUE(root.Add(child));
  }
  std::uint64_t count = 0;
  CPXMLObject * const slots = root.GetElements(count);
  EXPECT_EQ(root.FindNextElement(u"x"), slots);
  EXPECT_EQ(root.FindNextElement(u"x", slots), slots + 2);
  EXPECT_EQ(root.FindNextElement(u"x", slots + 3), nullptr) << "after the last slot";
  EXPECT_EQ(root.FindNextElement(u"z"), nullptr);
  EXPECT_EQ(root.FindNextElementAtt(u"y", u"n"), slots + 1);
  EXPECT_EQ(root.FindNextElementAtt(u"y", u"m"), nullptr);
  EXPECT_EQ(root.FindNextElementAttVal(u"x", u"n", u"3"), slots + 3);
  EXPECT_EQ(root.FindNextElementData(u"x", u"data"), slots + 2);
  EXPECT_EQ(root.FindPrevElement(u"x"), slots + 3);
  EXPECT_EQ(root.FindPrevElement(u"x", slots + 2), slots);
  EXPECT_EQ(root.FindPrevElement(u"x", slots), nullptr);
  EXPECT_EQ(root.FindPrevElementAtt(u"x", u"n", slots + 3), slots + 2);
  EXPECT_EQ(root.FindPrevElementAttVal(u"x", u"n", u"0"), slots);
  EXPECT_EQ(root.FindPrevElementData(u"x", u"data", slots + 2), nullptr);
  CPXMLObject stranger = Named(u"x");
  EXPECT_EQ(root.FindNextElement(u"x", &stranger), nullptr) << "not a slot of this node";
  EXPECT_EQ(CPXMLObject().FindNextElement(u"x"), nullptr);
}

// Building and dropping trees in every shape, also with operations failing for want of memory,
// ends with every block freed (the harness counts them after each test).
TEST(XMLObject, DeepAndWideTreesAreFreedWhole) {
  CPXMLObject deep = Named(u"level");
  CPXMLObject leaf = deep;
  for (int i = 0; i < 200000; ++i) {
    CPXMLObject next = Named(u"level");
    ASSERT_TRUE(leaf.Add(next));
    ASSERT_TRUE(next.AddAttribute(u"depth", u"d"));
    leaf = next;
  }
  leaf = CPXMLObject();
  deep = CPXMLObject(); // freed without recursing 200000 levels deep
  CPXMLObject wide = Named(u"wide");
  for (int i = 0; i < 1000; ++i) {
    CPXMLObject child = Named(u"w");
    ASSERT_TRUE(child.AddTag(u"inner", u"text"));
    ASSERT_TRUE(wide.Add(child));
  }
  CPXMLObject kept = wide.item(500);
  wide = CPXMLObject();
  EXPECT_TRUE(kept.IsName(u"w")) << "a child outlives its parent while held";
}

TEST(XMLObject, HandlesToOneTreeAreDroppedOnSeveralThreads) {
  CPXMLObject root = Named(u"root");
  for (int i = 0; i < 200; ++i) {
    CPXMLObject chain = Named(u"c");
    CPXMLObject end = chain;
    for (int k = 0; k < 50; ++k) {
      ASSERT_EQ(end.AddTag(u"c").sIndex(), 1u);
      end = end.item(0);
    }
    ASSERT_TRUE(root.Add(chain));
  }
  // Each thread holds every other subtree and drops it while the others drop theirs.
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    std::vector<CPXMLObject> held;
    for (std::uint64_t i = static_cast<std::uint64_t>(t); i < 200; i += 2) {
      held.push_back(root.item(i));
    }
    threads.emplace_back([held = std::move(held)]() mutable { held.clear(); });
  }
  root = CPXMLObject();
  for (std::thread & thread : threads) {
    thread.join();
  }
}

TEST(XMLObject, FailedAllocationsLeaveConsistentTreesAndNoLeak) {
  for (long successes = 0; successes < 60; ++successes) {
    CPXMLObject root;
    {
      vorx::test::AllocationFailure fail(successes);
      if (root.SetName(u"root")) {
        root.AddAttribute(u"a", u"1");
        root.AddTag(u"t", true);
        for (int i = 0; i < 20; ++i) {
          root.AddTag(u"c");
        }
        root.SetAttribute(u"a", u"2");
        root.printfTag(u"p", u"%d", 5);
        CPXMLObject other;
        if (other.SetName(u"o") && other.AddAttribute(u"m", u"n")) {
          root.MergeAttributes(other, true);
        }
      }
    }
    // Whatever got in is readable and well formed.
    std::uint64_t count = 0;
    CPXMLObject const * slots = root.GetElements(count);
    for (std::uint64_t i = 0; i < count; ++i) {
      EXPECT_TRUE(slots[i].GetName().isdef());
    }
    EXPECT_LE(root.GetNAttributes(), 2u);
  }
}

TEST(XMLObject, NullAndUnnamedNodesAnswerTheirDefaults) {
  CPXMLObject null;
  std::uint64_t count = 7;
  EXPECT_EQ(null.GetElements(count), nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(null.Delete(std::uint64_t{0}));
  EXPECT_FALSE(null.Insert(Named(u"x"), 0));
  EXPECT_EQ(null.AddTag(u"x").sIndex(), kNone);
  EXPECT_FALSE(null.SetTag(u"x", u"y"));
  EXPECT_FALSE(null.item(0));
  EXPECT_EQ(null.GetNElements(u"x"), 0u);
  EXPECT_EQ(null.GetNameIndex(u"x", u'|'), kNone);
  EXPECT_TRUE(null.FindElementData(u"x").isempty());
  EXPECT_FALSE(null.HasAttribute(u"x"));
  EXPECT_EQ(null.FindAttributeInt(u"x", 9), 9);
  EXPECT_EQ(null.GetDataInt(9), 9);
  EXPECT_FALSE(null.DeleteContent());
}

} // namespace
