// Directory enumeration: skipping rules, patterns, entry details and faults.
#include <vorx/core.h>
#include <vorx/files.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"
#include "support/temp_dir.h"

using namespace VORX::Files::OS;
using vorx::test::TempDir;
using vorx::test::Wide;

namespace {

// The names an enumeration hands out, sorted; "!" when `BeginEnumerate` fails.
std::vector<std::u16string> Names(TempDir const & dir, char16_t const * pattern, bool filesOnly) {
  CDirectoryEnumerator enumerator;
  if (!enumerator.BeginEnumerate(dir.WPath(), pattern, filesOnly)) {
    return {u"!"};
  }
  std::vector<std::u16string> names;
  CFindData entry;
  while (enumerator.GetNext(entry) && names.size() < 100) {
    names.push_back(entry.GetFilename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

using List = std::vector<std::u16string>;

TEST(DirectoryEnumerator, SkipsDotsLinksAndOnRequestDirectories) {
  TempDir dir;
  EXPECT_EQ(Names(dir, nullptr, false), List{u"!"}) << "only \".\" and \"..\"";
  dir.Put("a.xml", "a");
  dir.Put("b.txt", "bb");
  dir.Put("noext", "");
  dir.Put(".hidden", "");
  ASSERT_TRUE(_CreateDir(dir.WPath("sub.xml")));
  std::filesystem::create_symlink(dir.Path("a.xml"), dir.Path("link.xml"));
  std::filesystem::create_directory_symlink(dir.Path("sub.xml"), dir.Path("dirlink"));

  EXPECT_EQ(Names(dir, nullptr, false),
            (List{u".hidden", u"a.xml", u"b.txt", u"noext", u"sub.xml"}));
  EXPECT_EQ(Names(dir, u"*.*", true), (List{u".hidden", u"a.xml", u"b.txt", u"noext"}));
  EXPECT_EQ(Names(dir, u"*.xml", false), (List{u"a.xml", u"sub.xml"}));
  EXPECT_EQ(Names(dir, u"*.xml", true), List{u"a.xml"});
  EXPECT_EQ(Names(dir, u"?.*", false), (List{u"a.xml", u"b.txt"}));
  EXPECT_EQ(Names(dir, u"[ab].*", false), (List{u"a.xml", u"b.txt"}));
  EXPECT_EQ(Names(dir, u"*.XML", false), List{u"!"}) << "case counts";
  EXPECT_EQ(Names(dir, u"sub.xml", true), List{u"!"}) << "a directory, files only";
  EXPECT_EQ(Names(dir, u"", false), List{u"!"});
}

TEST(DirectoryEnumerator, EntriesCarryPathSizeKindAndTimes) {
  TempDir dir;
  dir.Put("data.bin", std::string(1234, 'd'));
  ASSERT_TRUE(_CreateDir(dir.WPath("sub")));
  // 2001-09-09T01:46:40.123456789Z and a day later.
  timespec const times[2] = {{1000000000, 123456789}, {1000086400, 987654321}};
  ASSERT_EQ(utimensat(AT_FDCWD, dir.Path("data.bin").c_str(), times, 0), 0);
  std::filesystem::permissions(dir.Path("data.bin"), std::filesystem::perms::owner_read |
                                                         std::filesystem::perms::group_read);
  std::uint64_t const before = VORX::Core::OS::GetTimeNow();

  std::map<std::u16string, CFindData> entries;
  CFindData kept;
  {
    CDirectoryEnumerator enumerator;
    std::u16string const backslashed = dir.WPath() + u"\\";
    ASSERT_TRUE(enumerator.BeginEnumerate(backslashed.c_str(), nullptr, false));
    CFindData entry;
    while (enumerator.GetNext(entry)) {
      entries[entry.GetFilename()] = entry;
    }
    EXPECT_FALSE(enumerator.GetNext(entry)) << "every entry handed out";
    kept = entries.at(u"data.bin");
  }
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(std::u16string(kept.GetPath()), dir.WPath() + u"/") << "outlives its enumerator";
  EXPECT_TRUE(kept.GetSize() == 1234u && !kept.isDirectory() && kept.isReadOnly());
  EXPECT_EQ(kept.GetLastAccessed(), 1000000000123u);
  EXPECT_EQ(kept.GetLastModified(), 1000086400987u);
  EXPECT_GT(kept.GetCreated(), 1000086400987u) << "made during this test, not touched back";
  EXPECT_LE(kept.GetCreated(), before);

  CFindData const & sub = entries.at(u"sub");
  EXPECT_TRUE(sub.isDirectory() && !sub.isReadOnly() && sub.GetSize() == 0u);
}

TEST(DirectoryEnumerator, FailsCleanlyAndCanBeReused) {
  TempDir dir;
  dir.Put("one", "1");
  CDirectoryEnumerator enumerator;
  CFindData entry;
  EXPECT_FALSE(enumerator.GetNext(entry)) << "nothing begun";
  EXPECT_FALSE(enumerator.BeginEnumerate(nullptr, nullptr, false) ||
               enumerator.BeginEnumerate(u"", nullptr, false) ||
               enumerator.BeginEnumerate(u"/no/such/dir", nullptr, false) ||
               enumerator.BeginEnumerate(dir.WPath("one"), nullptr, false));
  ASSERT_TRUE(enumerator.BeginEnumerate(dir.WPath(), u"x*", true) ||
              enumerator.BeginEnumerate(dir.WPath(), u"o*", true));
  EXPECT_TRUE(enumerator.GetNext(entry) && !enumerator.GetNext(entry));
  EXPECT_EQ(std::u16string(entry.GetFilename()), u"one") << "a failed GetNext leaves the entry";
  ASSERT_TRUE(enumerator.BeginEnumerate(dir.WPath(), nullptr, false));
  EXPECT_TRUE(enumerator.EndEnumerate() && !enumerator.GetNext(entry));
  EXPECT_EQ(CFindData().GetPath()[0], 0);
}

TEST(DirectoryEnumerator, FilesRemovedMidwayAreNotHandedOut) {
  TempDir dir;
  for (int i = 0; i < 50; ++i) {
    dir.Put("f" + std::to_string(i), "x");
  }
  CDirectoryEnumerator enumerator;
  ASSERT_TRUE(enumerator.BeginEnumerate(dir.WPath(), nullptr, true));
  CFindData entry;
  ASSERT_TRUE(enumerator.GetNext(entry));
  // The entry read ahead was examined already; the others go before they are.
  for (int i = 0; i < 50; ++i) {
    if (Wide("f" + std::to_string(i)) != entry.GetFilename()) {
      std::filesystem::remove(dir.Path("f" + std::to_string(i)));
    }
  }
  EXPECT_TRUE(enumerator.GetNext(entry)) << "the entry read ahead";
  EXPECT_FALSE(enumerator.GetNext(entry));
}

TEST(DirectoryEnumerator, NamesThatAreNotUtf8AreSkippedOthersDecoded) {
  TempDir dir;
  char const * const bad[] = {
      "\xFF.bin",             // not a lead byte
      "\xC3(.bin",            // missing continuation
      "\xC0\xAF.bin",         // overlong "/"
      "\xED\xA0\x80.bin",     // an encoded surrogate
      "\xF4\x90\x80\x80.bin", // above U+10FFFF
  };
  for (char const * name : bad) {
    dir.Put(name, "");
  }
  dir.Put("\xE2\x82\xAC.bin", "");      // U+20AC EURO SIGN
  dir.Put("\xF0\x9F\x8E\xAC.bin", "");  // U+1F3AC CLAPPER BOARD
  dir.Put(std::string(255, 'n'), "");   // the longest name
  dir.Put(std::string(63, '\xF0'), ""); // not UTF-8, long
  List const expected = {std::u16string(255, u'n'), u"\u20AC.bin", u"\xD83C\xDFAC.bin"};
  EXPECT_EQ(Names(dir, nullptr, false), expected);
}

TEST(DirectoryEnumerator, RunningOutOfMemoryGivesFalseAndLeaksNothing) {
  TempDir dir;
  dir.Put("one", "1");
  auto const path = dir.WPath();
  for (long successes = 0; successes < 4; ++successes) {
    vorx::test::AllocationFailure failure(successes);
    CDirectoryEnumerator enumerator;
    CFindData entry;
    bool const begun = enumerator.BeginEnumerate(path, nullptr, false);
    EXPECT_EQ(begun, enumerator.GetNext(entry)) << successes;
  }
  CFile file;
  {
    vorx::test::AllocationFailure failure;
    EXPECT_FALSE(file.Open(dir.WPath("one"), eFileAccessRead, eOpenFileExisting));
  }
  EXPECT_TRUE(file.Open(dir.WPath("one"), eFileAccessRead, eOpenFileExisting));
}

} // namespace
