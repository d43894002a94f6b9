// Files: existence tests, creation and deletion, paths, and `CFile` with its bits, pointers,
// sharing and faults.
#include <vorx/files.h>

#include <barrier>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using namespace VORX::Files::OS;
using vorx::test::InChild;
using vorx::test::TempDir;

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};

eFileAccess A(std::uint32_t bits) {
  return static_cast<eFileAccess>(bits);
}
eOpenFileOptions O(std::uint32_t bits) {
  return static_cast<eOpenFileOptions>(bits);
}

TEST(FileOpen, AcceptsExactlyTheDocumentedBitCombinations) {
  struct Row {
    std::uint32_t access, options;
    bool opensExisting; // on a file holding "0123456789"
    long sizeAfter;     // its size after the open, -1 when it is gone
    bool opensMissing;  // on a path that names nothing
    char const * what;
  };
  Row const rows[] = {
      {0, 0, true, 10, false, "read an existing file"},
      {1, 0, true, 10, false, "write an existing file"},
      {0, 4, false, 10, false, "truncate without write access"},
      {1, 4, true, 0, false, "truncate an existing file"},
      {0, 1, false, 10, false, "create without write access"},
      {1, 2, false, 10, false, "option 2 without option 1"},
      {1, 1, true, 10, true, "open, creating a missing file"},
      {1, 1 | 2, true, 10, true, "option 2 with option 1 changes nothing"},
      {1, 1 | 4, true, 0, true, "create anew"},
      {1, 1 | 2 | 4, true, 0, true, "the XML writer's open"},
      {2 | 8, 0, true, 10, false, "read with sharing and the random hint"},
      {1, 8, false, 10, false, "temporary without option 1"},
      {0, 1 | 8, false, 10, false, "temporary without write access"},
      {1 | 8, 1 | 8, false, 10, false, "temporary sharing reading"},
      {1 | 4, 1 | 8, false, 10, false, "temporary sharing writing"},
      {1, 1 | 8, true, -1, true, "temporary: gone as soon as it is open"},
  };
  for (Row const & row : rows) {
    SCOPED_TRACE(row.what);
    TempDir dir;
    dir.Put("old.bin", "0123456789");
    CFile existing;
    EXPECT_EQ(existing.Open(dir.WPath("old.bin"), A(row.access), O(row.options)),
              row.opensExisting);
    EXPECT_EQ(dir.Exists("old.bin") ? static_cast<long>(dir.Get("old.bin").size()) : -1,
              row.sizeAfter);
    CFile missing;
    EXPECT_EQ(missing.Open(dir.WPath("new.bin"), A(row.access), O(row.options)), row.opensMissing);
    EXPECT_EQ(dir.Exists("new.bin"), row.opensMissing && row.sizeAfter >= 0);
  }
}

TEST(FileOpen, RefusesNullEmptyDirectoriesAndASecondOpenKeepingTheFirst) {
  TempDir dir;
  dir.Put("a.txt", "alpha");
  dir.Put("b.txt", "beta");
  ASSERT_TRUE(_CreateDir(dir.WPath("sub")));
  CFile file;
  EXPECT_FALSE(file.Open(nullptr, eFileAccessRead, eOpenFileExisting) ||
               file.Open(u"", eFileAccessWrite, eOpenFileCreate) ||
               file.Open(dir.WPath("sub"), eFileAccessRead, eOpenFileExisting) ||
               file.Open(dir.WPath("sub"), eFileAccessWrite, eOpenFileCreate | eOpenFileEmpty));
  EXPECT_TRUE(_TestDirExists(dir.WPath("sub")) && !file);
  ASSERT_TRUE(file.Open(dir.WPath("a.txt"), eFileAccessRead, eOpenFileExisting));
  EXPECT_FALSE(file.Open(dir.WPath("b.txt"), eFileAccessRead, eOpenFileExisting));
  EXPECT_EQ(file.GetSize(), 5u) << "the first file stays open";
  EXPECT_TRUE(file.Close() && file.Close()) << "closing a closed file too";
}

TEST(FileOpen, CreatesOneMissingDirectoryLevel) {
  TempDir dir;
  ASSERT_TRUE(_CreateDir(dir.WPath("a")));
  eFileAccess const write = eFileAccessWrite;
  eOpenFileOptions const replace = eOpenFileCreate | eOpenFileCreateMark | eOpenFileEmpty;
  CFile file;
  EXPECT_TRUE(file.Open(dir.WPath("a/b/new.xml"), write, replace) && file.Close());
  EXPECT_TRUE(dir.Exists("a/b/new.xml"));
  EXPECT_FALSE(file.Open(dir.WPath("c/d/new.xml"), write, replace));
  EXPECT_FALSE(dir.Exists("c")) << "only one level is created";

  // The directory is made before the second try, whatever the options.
  EXPECT_FALSE(file.Open(dir.WPath("a/e/old.xml"), eFileAccessRead, eOpenFileExisting));
  EXPECT_TRUE(_TestDirExists(dir.WPath("a/e")));
  // A missing file in an existing directory creates nothing.
  EXPECT_FALSE(file.Open(dir.WPath("a/old.xml"), eFileAccessRead, eOpenFileExisting));
}

TEST(FileOpen, PathsReachTheSystemWithSlashesAsUtf8AndWithoutLengthLimit) {
  TempDir dir;
  // Nine levels of 30 characters written with backslashes: well over 300 characters.
  std::string native = dir.Path();
  std::u16string wide = dir.WPath();
  for (char level = 'a'; level < 'j'; ++level) {
    native += "/" + std::string(30, level);
    wide += u"\\" + std::u16string(30, static_cast<char16_t>(level));
    ASSERT_TRUE(_CreateDir(wide.c_str())) << level;
  }
  // U+00E9 and U+1F600 (a surrogate pair); the UTF-8 bytes written out by hand.
  wide += u"\\\u00E9\U0001F600.txt";
  native += "/\xC3\xA9\xF0\x9F\x98\x80.txt";
  ASSERT_GT(wide.size(), 300u);
  CFile file;
  ASSERT_TRUE(file.Open(wide.c_str(), eFileAccessWrite, eOpenFileCreate));
  EXPECT_TRUE(std::filesystem::exists(native));
  std::u16string const lone = dir.WPath() + u"/x" + char16_t(0xD800);
  EXPECT_FALSE(CFile().Open(lone.c_str(), eFileAccessWrite, eOpenFileCreate)) << "names nothing";
  EXPECT_FALSE(_CreateDir(lone.c_str()));
}

TEST(FileIO, ReadAtTheEndDeliversWhatIsThere) {
  TempDir dir;
  dir.Put("data.bin", std::string(1000, 'x') + "0123456789");
  CFile file;
  ASSERT_TRUE(file.Open(dir.WPath("data.bin"), eFileAccessShareRead, eOpenFileExisting));
  ASSERT_TRUE(file.SetPointer(1000));
  char buffer[100] = {};
  std::uint32_t done = 12345;
  EXPECT_FALSE(file.Read(buffer, 100, &done));
  EXPECT_EQ(std::string(buffer, done), "0123456789");
  EXPECT_FALSE(file.Read(buffer, 1, &done) || done != 0u || file.Read(nullptr, 4, &done));
  // Read only: flushing has nothing to do, ending and writing are refused.
  EXPECT_TRUE(file.Flush() && !file.SetEOF());
  EXPECT_FALSE(file.Write("x", 1, &done) || done != 0u);
  EXPECT_EQ(file.GetSize(), 1010u);
  file.Close();
  EXPECT_TRUE(file.GetSize() == kAllOnes && file.GetPointer() == kAllOnes);
  EXPECT_FALSE(file.Read(buffer, 1, &done));
}

TEST(FileIO, SizesAndPointersBeyondFourGiB) {
  TempDir dir;
  std::uint64_t const far = (std::uint64_t{5} << 30) + 7; // 5 GiB and 7 bytes, sparse
  CFile file;
  ASSERT_TRUE(
      file.Open(dir.WPath("big.bin"), eFileAccessWrite | eFileAccessRandom, eOpenFileCreate));
  ASSERT_TRUE(file.Write("0123", 4, nullptr));
  EXPECT_FALSE(file.MovePointer(-5)) << "before the start";
  EXPECT_EQ(file.GetPointer(), 4u);
  ASSERT_TRUE(file.SetPointer(far));
  ASSERT_TRUE(file.Write("end", 3, nullptr));
  EXPECT_EQ(file.GetSize(), far + 3);
  ASSERT_TRUE(file.MovePointer(-static_cast<std::int64_t>(far) - 1));
  char text[6] = {};
  EXPECT_TRUE(file.Read(text, 2, nullptr) && std::string(text) == "23");
  ASSERT_TRUE(file.MovePointer(static_cast<std::int64_t>(far) - 4));
  EXPECT_TRUE(file.Read(text, 3, nullptr) && std::string(text) == "end");
  EXPECT_FALSE(file.SetPointer(std::uint64_t{1} << 63));
  ASSERT_TRUE(file.SetPointer((std::uint64_t{4} << 30) + 1));
  EXPECT_TRUE(file.SetEOF() && file.Flush() && file.Close());
  EXPECT_EQ(std::filesystem::file_size(dir.Path("big.bin")), (std::uint64_t{4} << 30) + 1);
}

TEST(FileSharing, SecondOpenFollowsTheSharingBitsOfBoth) {
  constexpr std::uint32_t R = 0, W = 1, SW = 4, SR = 8;
  struct Row {
    std::uint32_t first, second;
    bool secondOpens;
    char const * what;
  };
  Row const rows[] = {
      {R, R | SR | SW, false, "the first reader shares nothing"},
      {R | SR, R | SR, true, "two readers sharing reading"},
      {R | SR, R, false, "the second would deny reading to the first"},
      {R | SR, W | SR, false, "a writer while a reader denies writing"},
      {R | SR | SW, W | SR | SW, true, "a writer while a reader shares writing"},
      {R | SR | SW, W | SR, true, "the second denies writing, the first only reads"},
      {W | SR | SW, R | SR, false, "a reader denying writing to a writer"},
      {W | SR | SW, R | SR | SW, true, "a reader sharing with a writer"},
      {W | SR, W | SR | SW, false, "the first writer shares only reading"},
      {W | SR | SW, W | SR | SW, true, "two writers sharing everything"},
  };
  for (Row const & row : rows) {
    TempDir dir;
    dir.Put("shared.bin", "data");
    auto const path = dir.WPath("shared.bin");
    CFile first;
    CFile second;
    ASSERT_TRUE(first.Open(path, A(row.first), eOpenFileExisting)) << row.what;
    EXPECT_EQ(second.Open(path, A(row.second), eOpenFileExisting), row.secondOpens) << row.what;
  }
}

TEST(FileSharing, RefusedOpensChangeNothingAndLocksEndWithTheFile) {
  TempDir dir;
  dir.Put("shared.bin", "keep me");
  auto const path = dir.WPath("shared.bin");
  CFile reader;
  ASSERT_TRUE(reader.Open(path, eFileAccessShareRead, eOpenFileExisting));
  int const status = InChild([&] {
    CFile file; // another process: a writer is refused, a reader sharing reading is not
    return file.Open(path, eFileAccessWrite, eOpenFileExisting) ||
           !file.Open(path, eFileAccessShareRead, eOpenFileExisting);
  });
  EXPECT_EQ(status, 0);
  CFile writer;
  EXPECT_FALSE(
      writer.Open(path, eFileAccessWrite, eOpenFileCreate | eOpenFileCreateMark | eOpenFileEmpty));
  EXPECT_EQ(dir.Get("shared.bin"), "keep me") << "a refused open truncates nothing";
  reader.Close();
  EXPECT_TRUE(writer.Open(path, eFileAccessWrite, eOpenFileExisting));
  {
    CFile inner;
    EXPECT_FALSE(inner.Open(path, eFileAccessShareRead | eFileAccessShareWrite, eOpenFileExisting));
    writer.Close();
    ASSERT_TRUE(inner.Open(path, eFileAccessRead, eOpenFileExisting));
  }
  EXPECT_TRUE(writer.Open(path, eFileAccessWrite, eOpenFileExisting))
      << "the destructor released the locks";
}

TEST(FileSharing, OpensRacingInOneProcessLetExactlyOneIn) {
  TempDir dir;
  dir.Put("race.bin", "r");
  auto const path = dir.WPath("race.bin");
  constexpr int kRounds = 200;
  bool opened[2][kRounds] = {};
  std::barrier sync(2);
  auto const race = [&](int side) {
    for (int round = 0; round < kRounds; ++round) {
      CFile file; // shares nothing
      sync.arrive_and_wait();
      opened[side][round] = file.Open(path, eFileAccessWrite, eOpenFileExisting);
      sync.arrive_and_wait(); // both have tried before either closes
    }
  };
  std::thread other(race, 1);
  race(0);
  other.join();
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_NE(opened[0][round], opened[1][round]) << round;
  }
}

TEST(FileFaults, ForbiddenFilesDoNotOpen) {
  TempDir dir;
  dir.Put("secret.bin", "s");
  std::filesystem::permissions(dir.Path("secret.bin"), std::filesystem::perms::none);
  auto const path = dir.WPath("secret.bin");
  int const status = InChild([&]() -> int {
    if (geteuid() == 0 && setuid(65534) != 0) {
      return 77;
    }
    CFile denied;
    return denied.Open(path, eFileAccessRead, eOpenFileExisting) ||
           denied.Open(path, eFileAccessWrite, eOpenFileEmpty) || denied;
  });
  if (status == 77) {
    GTEST_SKIP() << "cannot drop root rights here";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(dir.Get("secret.bin"), "s");
}

// The file size limit stands in for a full disk: writes stop where it is reached.
TEST(FileFaults, FullDiskEndsAWriteWithWhatFitted) {
  TempDir dir;
  auto const path = dir.WPath("full.bin");
  int const status = InChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit const limit{4096, 4096};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      return 77;
    }
    CFile file;
    if (!file.Open(path, eFileAccessWrite, eOpenFileCreate)) {
      return 2;
    }
    static char block[10000];
    std::memset(block, 'f', sizeof block);
    std::uint32_t done = 0;
    bool const refused = !file.Write(block, sizeof block, &done) && done == 4096;
    bool const more = file.Write(block, 1, &done);
    return refused && !more && file.GetSize() == 4096 ? 0 : 3;
  });
  ASSERT_NE(status, 77);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(std::filesystem::file_size(dir.Path("full.bin")), 4096u);
}

TEST(FileSystem, ExistenceCreationDeletionAndRenaming) {
  TempDir dir;
  dir.Put("f.txt", "f");
  ASSERT_TRUE(_CreateDir(dir.WPath("d")));
  std::filesystem::create_symlink(dir.Path("f.txt"), dir.Path("link"));
  std::filesystem::create_symlink(dir.Path("nowhere"), dir.Path("dangling"));

  struct Row {
    std::string name;
    bool file, directory;
  };
  Row const rows[] = {
      {"f.txt", true, false}, {"d\\", false, true},       {"d//", false, true},
      {"link", true, false},  {"dangling", false, false}, {"f.txt/", false, false},
  };
  for (Row const & row : rows) {
    EXPECT_EQ(_TestFileExists(dir.WPath(row.name)), row.file) << row.name;
    EXPECT_EQ(_TestDirExists(dir.WPath(row.name)), row.directory) << row.name;
  }
  for (auto * const fn : {&_TestFileExists, &_TestDirExists, &_CreateDir, &_DeleteFile}) {
    EXPECT_FALSE(fn(nullptr));
    EXPECT_FALSE(fn(u""));
  }

  EXPECT_FALSE(_CreateDir(dir.WPath("d")) || _CreateDir(dir.WPath("x/y"))) << "exists; no parent";
  EXPECT_FALSE(_DeleteFile(dir.WPath("d"))) << "a directory";
  CFile target; // opening a dangling link with the create option creates what it names
  EXPECT_TRUE(target.Open(dir.WPath("dangling"), eFileAccessWrite, eOpenFileCreate));
  EXPECT_TRUE(dir.Exists("nowhere"));
  EXPECT_TRUE(CFile::DeleteFileW(dir.WPath("link")));
  EXPECT_TRUE(dir.Exists("f.txt")) << "the link went, not its target";

  dir.Put("g.txt", "g");
  EXPECT_FALSE(CFile::RenameFile(dir.WPath("f.txt"), dir.WPath("g.txt"))) << "never replaces";
  EXPECT_EQ(dir.Get("g.txt"), "g");
  EXPECT_TRUE(CFile::RenameFile(dir.WPath("f.txt"), dir.WPath("d\\moved.txt")));
  EXPECT_EQ(dir.Get("d/moved.txt"), "f");
  EXPECT_FALSE(CFile::RenameFile(nullptr, dir.WPath("h.txt")));
}

} // namespace
