// The element tree: sharing, mutation rules and their deliberate results, navigation, search.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/memory_hooks.h"
#include "xmlnode_support.h"

namespace {

using VORX::String::CPPoolString;
using VORX::XML::CPXMLObject;
using VORX::XML::xmlret;

using vorx::test::kNone;
using vorx::test::Named;
using vorx::test::Text;
using vorx::test::TreeText;

std::uint64_t Count(CPXMLObject const & node) {
  std::uint64_t count = 0;
  node.GetElements(count);
  return count;
}

TEST(XMLObject, CopiesShareTheNodeAndSetNameDetachesOnlyThisHandle) {
  CPXMLObject parent = Named(u"parent");
  CPXMLObject child = Named(u"child");
  CPXMLObject alias = child;
  EXPECT_EQ(parent.Add(child).sIndex(), 1u);
  EXPECT_TRUE(alias.Add(u"text"));
  EXPECT_TRUE(child.Rename(u"renamed"));
  EXPECT_EQ(TreeText(parent), u"parent{renamed(\"text\")}") << "edits show through every handle";
  EXPECT_TRUE(child.SetName(u"fresh"));
  EXPECT_TRUE(!(child == alias) && child.IsNamedDefault());
  EXPECT_EQ(TreeText(parent), u"parent{renamed(\"text\")}") << "the parent keeps the old node";
  EXPECT_TRUE(!child.SetName(u"9bad") && child.IsName(u"fresh")) << "a refusal changes nothing";
  // Names and values are shared pool records: they compare as identities across the tree.
  ASSERT_TRUE(child.AddAttribute(u"kind", u"leaf") && alias.AddAttribute(u"kind", u"leaf"));
  EXPECT_TRUE(child.FindAttribute(u"kind") == alias.FindAttribute(u"kind"));
  EXPECT_TRUE(Named(u"fresh").GetName() == child.GetName());
}

TEST(XMLObject, StateQueriesResetAndTheNullNode) {
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node && !node.IsDefault() && node.IsNamedDefault());
  ASSERT_TRUE(node.Add(u"data") && node.AddAttribute(u"a", u"1"));
  EXPECT_TRUE(node.IsNameData(u"n", u"data") && !node.IsNameAttribVal(u"N", u"a", u"1"));
  EXPECT_TRUE(node.GetContent().isempty()) << "always empty, even with data";
  EXPECT_EQ(node.GetNameIndex(u"nn|n|o", u'|'), 1u);
  node.Reset();
  EXPECT_TRUE(node.IsNamedDefault() && node.GetState() == 0u) << "Reset keeps the name only";
  // The null node answers its defaults and refuses edits.
  CPXMLObject null;
  std::uint64_t count = 7;
  EXPECT_TRUE(!null && null.IsDefault() && !null.IsNamedDefault() && null.GetName().isempty());
  EXPECT_TRUE(null.GetElements(count) == nullptr && count == 0u);
  EXPECT_FALSE(null.Rename(u"x") || null.Add(u"x") || null.Add(node) || null.Insert(node, 0) ||
               null.AddAttribute(u"a", u"1") || null.printf(u"x") || null.DeleteData() ||
               null.Delete(std::uint64_t{0}) || null.item(0) || null.HasAttribute(u"x"));
  EXPECT_TRUE(null.DeleteAttribute(u"a")) << "nothing to delete";
  EXPECT_TRUE(null.AddTag(u"x").sIndex() == kNone && null.FindAttributeInt(u"x", 9) == 9);
}

TEST(XMLObject, AddAnswersOneNotTheIndex) {
  CPXMLObject parent = Named(u"p");
  EXPECT_TRUE(parent.Add(Named(u"a")).sIndex() == 1u && parent.Add(Named(u"b")).sIndex() == 1u);
  EXPECT_EQ(parent.Insert(Named(u"first"), 0).sIndex(), 0u);
  EXPECT_EQ(parent.Insert(Named(u"last"), 100).sIndex(), 100u) << "beyond the end appends";
  EXPECT_EQ(parent.Insert(Named(u"end"), kNone).sIndex(), kNone);
  EXPECT_EQ(TreeText(parent), u"p{first,a,b,last,end}");
  CPXMLObject unnamed;
  EXPECT_FALSE(parent.Add(unnamed)) << "a default child";
  EXPECT_TRUE(parent.CAdd(unnamed)) << "CAdd accepts a default child silently";
  EXPECT_FALSE(parent.Add(parent)) << "a node under itself";
  EXPECT_EQ(parent.GetNElements(CPPoolString::pempty), 0u) << "never counts all children";
  EXPECT_TRUE(parent.item(xmlret(1)).IsName(u"a") && !parent.item(5));
  // No mixed content through Insert.
  CPXMLObject data = Named(u"d");
  ASSERT_TRUE(data.Add(u"text"));
  EXPECT_FALSE(data.Insert(Named(u"x"), 0));
  EXPECT_TRUE(data.Add(Named(u"x")).sIndex() == 1u && data.GetState() == 3u);
}

TEST(XMLObject, AddAnswersZeroWhenTheArrayCannotGrow) {
  CPXMLObject parent = Named(u"p");
  CPXMLObject child = Named(u"c");
  ASSERT_TRUE(parent.Add(child) && parent.Add(child));
  for (int i = 0; i < 64; ++i) {
    vorx::test::AllocationFailure fail;
    xmlret const result = parent.Add(child);
    if (fail.Refused() > 0) {
      EXPECT_EQ(result.sIndex(), 0u);
      EXPECT_EQ(Count(parent), static_cast<std::uint64_t>(i) + 2) << "nothing added";
      return;
    }
    EXPECT_EQ(result.sIndex(), 1u);
  }
  ADD_FAILURE() << "the array never had to grow";
}

TEST(XMLObject, DataIsGivenOnceAndStateFollowsContentButNotDeletion) {
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.Add(u"") && node.GetState() == 0u) << "an empty text changes nothing";
  EXPECT_TRUE(node.Add(u"first") && node.GetState() == 2u);
  EXPECT_FALSE(node.Add(u"second"));
  EXPECT_TRUE(node.Set(u"second") && node.IsData(u"second"));
  EXPECT_TRUE(node.Add(Named(u"c")).sIndex() == 1u && node.GetState() == 3u);
  EXPECT_TRUE(node.DeleteData() && node.GetState() == 1u);
  EXPECT_TRUE(node.Add(u"again") && node.DeleteElements() && node.GetState() == 2u);
  EXPECT_TRUE(node.DeleteContent() && node.GetState() == 0u);
  EXPECT_TRUE(node.Set(Named(u"only")) && node.GetState() == 1u);
  // Deleting the last child keeps the state.
  EXPECT_TRUE(node.Delete(std::uint64_t{0}) && node.GetState() == 1u);
  EXPECT_TRUE(node.Add(u"42") && node.GetState() == 3u);
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
  EXPECT_EQ(parent.Replace(c, &b).sIndex(), 1u);
  EXPECT_EQ(parent.Replace(b, &b).sIndex(), kNone) << "b is no longer a child";
  EXPECT_EQ(parent.Replace(b, c).sIndex(), 1u) << "the first slot holding c";
  EXPECT_TRUE(parent.Replace(a, std::uint64_t{2}) && !parent.Replace(a, std::uint64_t{3}));
  EXPECT_EQ(CPXMLObject().Replace(a, &a).sIndex(), 0u) << "0, not -1, on an unnamed node";
  EXPECT_EQ(TreeText(parent), u"p{a,b,a}");
  EXPECT_TRUE(parent.Delete(parent.GetElements(count) + 2));
  EXPECT_TRUE(parent.Delete(&a) && !parent.Delete(a)) << "the first slot holding a, then none";
  EXPECT_EQ(TreeText(parent), u"p{b}");
}

TEST(XMLObject, AttributesKeepOrderRefuseEmptyValuesAndMerge) {
  CPXMLObject node = Named(u"n");
  EXPECT_TRUE(node.AddAttribute(u"a", u"1") && node.AddAttribute(u"b", u"2"));
  // Names are unique and valid, values never empty.
  EXPECT_FALSE(node.AddAttribute(u"a", u"3") || node.AddAttribute(u"c", u"") ||
               node.AddAttribute(u"1c", u"x"));
  EXPECT_TRUE(node.SetAttribute(u"a", u"3"));
  EXPECT_EQ(TreeText(node), u"n[b=2 a=3]") << "SetAttribute moves the pair to the end";
  CPPoolString name(u"x"), value(u"y");
  EXPECT_FALSE(node.GetAttribute(2, name, value));
  EXPECT_TRUE(name.isempty() && value.isempty());
  EXPECT_FALSE(node.SetAttribute(u"b", u"") || node.HasAttribute(u"b")) << "removes and refuses";
  EXPECT_TRUE(node.DeleteAttribute(u"absent") && !node.DeleteAttribute(u"not valid"));
  // Merging keeps or overwrites.
  CPXMLObject other = Named(u"o");
  ASSERT_TRUE(node.AddAttribute(u"b", u"2"));
  ASSERT_TRUE(other.AddAttribute(u"b", u"20") && other.AddAttribute(u"c", u"30"));
  EXPECT_TRUE(node.MergeAttributes(other, false));
  EXPECT_EQ(TreeText(node), u"n[a=3 b=2 c=30]");
  EXPECT_TRUE(node.MergeAttributes(other, true));
  EXPECT_TRUE(node.FindAttributeValue(u"b", u"20") && node.GetNAttributes() == 3u);
}

TEST(XMLObject, TagsAndFormattedForms) {
  CPXMLObject node = Named(u"n");
  EXPECT_EQ(node.AddTag(u"a").sIndex(), 1u);
  EXPECT_EQ(node.AddTag(u"b", u"text").sIndex(), 1u);
  EXPECT_EQ(node.AddTag(u"-x", u"t").sIndex(), kNone);
  EXPECT_EQ(node.printfTag(u"c", u"%d-%ls", 7, u"x").sIndex(), 1u);
  EXPECT_EQ(TreeText(node), u"n{a,b(\"text\"),c(\"7-x\")}");
  EXPECT_TRUE(node.SprintfTag(u"s", u"%03u", 5u));
  EXPECT_EQ(TreeText(node), u"n{s(\"005\")}") << "the set forms leave exactly one child";
  EXPECT_TRUE(node.SetTag(u"only", std::uint64_t{255}));
  EXPECT_EQ(TreeText(node), u"n{only(\"ff\")}");
  CPXMLObject data = Named(u"d");
  EXPECT_TRUE(data.printf(u"%hs=%I64u", "x", std::uint64_t{1} << 40) && !data.printf(u"more"));
  EXPECT_EQ(Text(data.GetData()), u"x=1099511627776");
  EXPECT_TRUE(data.printfAttribute(u"at", u"%x", 255u) && !data.printfAttribute(u"at", u"%x", 1u));
  // The buffer holds 2048 units with the terminator.
  EXPECT_TRUE(data.Sprintf(u"%ls", std::u16string(2047, u'x').c_str()));
  EXPECT_EQ(data.GetData().len(), 2047u);
  EXPECT_FALSE(data.Sprintf(u"%ls", std::u16string(2048, u'x').c_str()));
}

TEST(XMLObject, PathSearchTakesTheFirstChildOfEachName) {
  CPXMLObject root = Named(u"root");
  CPXMLObject a = Named(u"a");
  CPXMLObject b1 = Named(u"b");
  CPXMLObject b2 = Named(u"b");
  ASSERT_TRUE(b2.Add(Named(u"c")) && a.Add(b1) && a.Add(b2) && root.Add(a));
  for (char16_t const * missing : {u"a/b/c", u"a//b", u"a/", u"/a", u"a/b c", u""}) {
    CPXMLObject * parent = &root;
    EXPECT_TRUE(root.FindFirstElement(missing, &parent) == nullptr && parent == nullptr);
  }
  // The slot found lies in its parent's array; a one-name path answers this handle as parent.
  CPXMLObject * parent = nullptr;
  std::uint64_t count = 0;
  EXPECT_EQ(root.FindFirstElement(u"\ta\r\n/ b ", &parent), a.GetElements(count));
  EXPECT_TRUE(*parent == a);
  EXPECT_EQ(root.FindFirstElement(u"a", &parent), root.GetElements(count));
  EXPECT_EQ(parent, &root);
}

TEST(XMLObject, ScansForwardAndBackwardFromASlot) {
  CPXMLObject root = Named(u"r");
  for (char16_t const * name : {u"x", u"y", u"x", u"x"}) {
    ASSERT_EQ(root.AddTag(name, Count(root) < 2 ? u"" : u"data").sIndex(), 1u);
  }
  ASSERT_TRUE(root.item(0).AddAttribute(u"n", u"0"));
  std::uint64_t count = 0;
  CPXMLObject * const s = root.GetElements(count);
  EXPECT_EQ(root.FindNextElement(u"x", s), s + 2);
  EXPECT_EQ(root.FindNextElement(u"x", s + 3), nullptr) << "after the last slot";
  EXPECT_EQ(root.FindNextElementData(u"x", u"data"), s + 2);
  EXPECT_TRUE(root.FindPrevElement(u"x") == s + 3 && root.FindPrevElement(u"x", s) == nullptr);
  EXPECT_EQ(root.FindPrevElementAttVal(u"x", u"n", u"0"), s);
  CPXMLObject stranger = Named(u"x");
  EXPECT_EQ(root.FindNextElement(u"x", &stranger), nullptr) << "not a slot of this node";
}

// Building and dropping trees in every shape, also with operations failing for want of memory,
// ends with every block freed (the harness counts them after each test).
TEST(XMLObject, DeepAndWideTreesAreFreedWhole) {
  CPXMLObject deep = Named(u"level");
  CPXMLObject leaf = deep;
  for (int i = 0; i < 200000; ++i) {
    CPXMLObject next = Named(u"level");
    ASSERT_TRUE(leaf.Add(next) && next.AddAttribute(u"depth", u"d"));
    leaf = next;
  }
  leaf = CPXMLObject();
  deep = CPXMLObject(); // freed without recursing 200000 levels deep
  CPXMLObject wide = Named(u"wide");
  ASSERT_TRUE(wide.AddTag(u"w", u"text") && wide.AddTag(u"w"));
  CPXMLObject kept = wide.item(1);
  wide = CPXMLObject();
  EXPECT_TRUE(kept.IsName(u"w")) << "a child outlives its parent while held";
}

TEST(XMLObject, HandlesToOneTreeAreDroppedOnSeveralThreads) {
  CPXMLObject root = Named(u"root");
  for (int i = 0; i < 200; ++i) {
    CPXMLObject end = Named(u"c");
    ASSERT_TRUE(root.Add(end));
    for (int k = 0; k < 50; ++k, end = end.item(0)) {
      ASSERT_EQ(end.AddTag(u"c").sIndex(), 1u);
    }
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
      }
    }
    // Whatever got in is readable and well formed.
    for (std::uint64_t i = 0; i < Count(root); ++i) {
      EXPECT_TRUE(root.item(i).GetName().isdef());
    }
    EXPECT_LE(root.GetNAttributes(), 2u);
  }
}

} // namespace
