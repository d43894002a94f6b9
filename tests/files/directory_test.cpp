// Directory enumeration: skipping rules, patterns, entry details and faults.
#include <vorx/files.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "support/memory_hooks.h"
#include "support/temp_dir.h"

using namespace VORX::Files::OS;
using vorx::test::TempDir;

namespace {

using List = std::vector<std::u16string>;

// The names an enumeration hands out, sorted; "!" when `BeginEnumerate` fails.
List Names(TempDir const & dir, char16_t const * pattern, bool filesOnly) {
  CDirectoryEnumerator enumerator;
  if (!enumerator.BeginEnumerate(dir.WPath(), pattern, filesOnly)) {
    return {u"!"};
  }
  List names;
  CFindData entry;
  while (enumerator.GetNext(entry) && names.size() < 100) {
    names.push_back(entry.GetFilename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(DirectoryEnumerator, SkipsDotsLinksAndOnRequestDirectories) {
  TempDir dir;
  EXPECT_EQ(Names(dir, nullptr, false), List{u"!"}) << "only \".\" and \"..\"";
  dir.Put("a.xml", "a");
  dir.Put("b.txt", "bb");
  dir.Put(".hidden", "");
  ASSERT_TRUE(_CreateDir(dir.WPath("sub.xml")));
  std::filesystem::create_symlink(dir.Path("a.xml"), dir.Path("link.xml"));
  std::filesystem::create_directory_symlink(dir.Path("sub.xml"), dir.Path("dirlink"));
  // Names that are not UTF-8 are skipped (an overlong "/", an encoded surrogate, a long one),
  // others decoded (U+1F3AC, and the longest name).
  for (char const * name : {"\xC0\xAF.bin", "\xED\xA0\x80.bin", "\xF0\x9F\x8E\xAC.bin"}) {
    dir.Put(name, "");
  }
  dir.Put(std::string(63, '\xF0'), "");
  dir.Put(std::string(255, 'n'), "");
  EXPECT_EQ(Names(dir, nullptr, false),
            (List{u".hidden", u"a.xml", u"b.txt", std::u16string(255, u'n'), u"sub.xml",
                  u"\xD83C\xDFAC.bin"}));
  EXPECT_EQ(Names(dir, u"*.xml", true), List{u"a.xml"});
  EXPECT_EQ(Names(dir, u"[ab].*", false), (List{u"a.xml", u"b.txt"}));
  EXPECT_EQ(Names(dir, u"*.XML", false), List{u"!"}) << "case counts";
}

TEST(DirectoryEnumerator, EntriesCarryPathSizeKindAndTimes) {
  TempDir dir;
  dir.Put("data.bin", std::string(1234, 'd'));
  // 2001-09-09T01:46:40.123456789Z and a day later.
  timespec const times[2] = {{1000000000, 123456789}, {1000086400, 987654321}};
  ASSERT_EQ(utimensat(AT_FDCWD, dir.Path("data.bin").c_str(), times, 0), 0);
  std::filesystem::permissions(dir.Path("data.bin"), std::filesystem::perms::owner_read);
  CFindData kept;
  {
    CDirectoryEnumerator enumerator;
    ASSERT_TRUE(enumerator.BeginEnumerate((dir.WPath() + u"\\").c_str(), u"data.bin", true));
    ASSERT_TRUE(enumerator.GetNext(kept) && !enumerator.GetNext(kept));
  }
  EXPECT_EQ(std::u16string(kept.GetPath()), dir.WPath() + u"/") << "outlives its enumerator";
  EXPECT_TRUE(kept.GetSize() == 1234u && !kept.isDirectory() && kept.isReadOnly());
  EXPECT_TRUE(kept.GetLastAccessed() == 1000000000123u && kept.GetLastModified() == 1000086400987u);
  EXPECT_GT(kept.GetCreated(), 1000086400987u) << "made during this test, not touched back";
}

TEST(DirectoryEnumerator, FailsCleanlyAndSkipsFilesRemovedMidway) {
  TempDir dir;
  CDirectoryEnumerator enumerator;
  CFindData entry;
  EXPECT_FALSE(enumerator.GetNext(entry)) << "nothing begun";
  for (int i = 0; i < 50; ++i) {
    dir.Put("f" + std::to_string(i), "x");
  }
  EXPECT_FALSE(enumerator.BeginEnumerate(u"/no/such/dir", nullptr, false) ||
               enumerator.BeginEnumerate(dir.WPath("f0"), nullptr, false));
  ASSERT_TRUE(enumerator.BeginEnumerate(dir.WPath(), nullptr, true));
  ASSERT_TRUE(enumerator.GetNext(entry));
  // The entry read ahead was examined already; the others go before they are.
  for (int i = 0; i < 50; ++i) {
    if (vorx::test::Wide("f" + std::to_string(i)) != entry.GetFilename()) {
      std::filesystem::remove(dir.Path("f" + std::to_string(i)));
    }
  }
  EXPECT_TRUE(enumerator.GetNext(entry)) << "the entry read ahead";
  std::u16string const last = entry.GetFilename();
  EXPECT_FALSE(enumerator.GetNext(entry));
  EXPECT_EQ(std::u16string(entry.GetFilename()), last) << "a failed GetNext leaves the entry";
}

TEST(DirectoryEnumerator, RunningOutOfMemoryGivesFalseAndLeaksNothing) {
  TempDir dir;
  dir.Put("one", "1");
  auto const path = dir.WPath();
  auto const one = dir.WPath("one");
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
    EXPECT_FALSE(file.Open(one, eFileAccessRead, eOpenFileExisting));
  }
  EXPECT_TRUE(file.Open(one, eFileAccessRead, eOpenFileExisting));
}

} // namespace
