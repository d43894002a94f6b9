// Files: existence tests, creation and deletion, paths, and `CFile` with its bits, pointers,
// sharing and faults.
#include <vorx/files.h>

#include <csignal>
#include <string>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using namespace VORX::Files::OS;
using vorx::test::InChild;
using vorx::test::TempDir;

namespace {

TEST(FileOpen, AcceptsExactlyTheDocumentedBitCombinations) {
  struct {
    std::uint32_t access, options;
    bool opensExisting; // on a file holding "0123456789"
    long sizeAfter;     // its size after the open, -1 when it is gone
    bool opensMissing;  // on a path that names nothing
  } const rows[] = {
      {0, 4, false, 10, false},         // truncate without write access
      {1, 4, true, 0, false},           // truncate an existing file
      {0, 1, false, 10, false},         // create without write access
      {1, 1 | 2 | 4, true, 0, true},    // create anew
      {1 | 8, 1 | 8, false, 10, false}, // temporary sharing reading
      {1, 1 | 8, true, -1, true},       // temporary: gone as soon as it is open
  };
  for (auto const & row : rows) {
    SCOPED_TRACE(&row - rows);
    TempDir dir;
    dir.Put("old.bin", "0123456789");
    eFileAccess const access = eFileAccess(row.access);
    eOpenFileOptions const options = eOpenFileOptions(row.options);
    EXPECT_EQ(CFile().Open(dir.WPath("old.bin"), access, options), row.opensExisting);
    EXPECT_EQ(dir.Exists("old.bin") ? static_cast<long>(dir.Get("old.bin").size()) : -1,
              row.sizeAfter);
    EXPECT_EQ(CFile().Open(dir.WPath("new.bin"), access, options), row.opensMissing);
    EXPECT_EQ(dir.Exists("new.bin"), row.opensMissing && row.sizeAfter >= 0);
  }
}

TEST(FileOpen, RefusesNullDirectoriesAndASecondOpenAndCreatesOneMissingLevel) {
  TempDir dir;
  dir.Put("a.txt", "alpha");
  ASSERT_TRUE(_CreateDir(dir.WPath("sub")));
  CFile file;
  EXPECT_FALSE(file.Open(nullptr, eFileAccessRead, eOpenFileExisting) ||
               file.Open(dir.WPath("sub"), eFileAccessWrite, eOpenFileCreate | eOpenFileEmpty));
  ASSERT_TRUE(file.Open(dir.WPath("a.txt"), eFileAccessRead, eOpenFileExisting));
  EXPECT_FALSE(file.Open(dir.WPath("sub/b.txt"), eFileAccessWrite, eOpenFileCreate));
  EXPECT_TRUE(file.GetSize() == 5u && file.Close() && file.Close()) << "the first stays open";
  EXPECT_TRUE(file.Open(dir.WPath("a/b.xml"), eFileAccessWrite, eOpenFileCreate) && file.Close());
  EXPECT_FALSE(file.Open(dir.WPath("c/d/new.xml"), eFileAccessWrite, eOpenFileCreate));
  EXPECT_FALSE(dir.Exists("c")) << "only one level is created";
  // The directory is made before the second try, whatever the options.
  EXPECT_FALSE(file.Open(dir.WPath("e/old.xml"), eFileAccessRead, eOpenFileExisting));
  EXPECT_TRUE(_TestDirExists(dir.WPath("e")));
}

TEST(FileOpen, PathsReachTheSystemWithSlashesAsUtf8AndWithoutLengthLimit) {
  TempDir dir;
  // Two levels of 200 characters joined by backslashes, then U+00E9 and U+1F600 (a surrogate
  // pair); the UTF-8 bytes written out by hand.
  std::u16string const level = dir.WPath() + u"\\" + std::u16string(200, u'a');
  ASSERT_TRUE(_CreateDir(level.c_str()));
  std::u16string const wide = level + u"\\" + std::u16string(200, u'b') + u"\u00E9\U0001F600";
  ASSERT_TRUE(CFile().Open(wide.c_str(), eFileAccessWrite, eOpenFileCreate));
  EXPECT_TRUE(
      dir.Exists(std::string(200, 'a') + "/" + std::string(200, 'b') + "\xC3\xA9\xF0\x9F\x98\x80"));
  std::u16string const lone = dir.WPath() + u"/x" + char16_t(0xD800);
  EXPECT_FALSE(CFile().Open(lone.c_str(), eFileAccessWrite, eOpenFileCreate)) << "names nothing";
}

TEST(FileIO, ReadsAtTheEndAndMovesBeyondFourGiB) {
  TempDir dir;
  std::uint64_t const far = (std::uint64_t{5} << 30) + 7; // 5 GiB and 7 bytes, sparse
  CFile file;
  ASSERT_TRUE(
      file.Open(dir.WPath("big.bin"), eFileAccessWrite | eFileAccessRandom, eOpenFileCreate));
  ASSERT_TRUE(file.Write("0123", 4, nullptr));
  EXPECT_FALSE(file.MovePointer(-5)) << "before the start";
  ASSERT_TRUE(file.SetPointer(far) && file.Write("end", 3, nullptr));
  EXPECT_EQ(file.GetSize(), far + 3);
  ASSERT_TRUE(file.MovePointer(-static_cast<std::int64_t>(far) - 1));
  char text[6] = {};
  EXPECT_TRUE(file.Read(text, 2, nullptr) && std::string(text) == "23");
  ASSERT_TRUE(file.SetPointer(far + 1));
  std::uint32_t done = 12345;
  EXPECT_FALSE(file.Read(text, 5, &done)) << "at the end, what is there";
  EXPECT_EQ(std::string(text, done), "nd");
  ASSERT_TRUE(file.SetPointer((std::uint64_t{4} << 30) + 1));
  EXPECT_TRUE(file.SetEOF() && file.Flush() && file.Close());
  EXPECT_EQ(std::filesystem::file_size(dir.Path("big.bin")), (std::uint64_t{4} << 30) + 1);
  EXPECT_TRUE(file.GetSize() == ~std::uint64_t{0} && !file.Read(text, 1, &done) && done == 0);
}

TEST(FileSharing, SecondOpenFollowsTheSharingBitsOfBoth) {
  constexpr std::uint32_t R = 0, W = 1, SW = 4, SR = 8;
  struct {
    std::uint32_t first, second;
    bool secondOpens;
  } const rows[] = {
      {R, R | SR | SW, false},      // the first reader shares nothing
      {R | SR, R | SR, true},       // two readers sharing reading
      {R | SR, R, false},           // the second would deny reading to the first
      {R | SR, W | SR, false},      // a writer while a reader denies writing
      {R | SR | SW, W | SR, true},  // the second denies writing, the first only reads
      {W | SR | SW, R | SR, false}, // a reader denying writing to a writer
  };
  for (auto const & row : rows) {
    TempDir dir;
    dir.Put("shared.bin", "data");
    CFile first;
    ASSERT_TRUE(first.Open(dir.WPath("shared.bin"), eFileAccess(row.first), eOpenFileExisting));
    EXPECT_EQ(CFile().Open(dir.WPath("shared.bin"), eFileAccess(row.second), eOpenFileExisting),
              row.secondOpens)
        << &row - rows;
  }
}

TEST(FileSharing, HoldsAcrossProcessesRefusedOpensChangeNothingAndLocksEndWithTheFile) {
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
  EXPECT_FALSE(writer.Open(path, eFileAccessWrite, eOpenFileCreate | eOpenFileEmpty));
  EXPECT_EQ(dir.Get("shared.bin"), "keep me") << "a refused open truncates nothing";
  reader.Close();
  EXPECT_TRUE(writer.Open(path, eFileAccessWrite, eOpenFileExisting)) << "closing releases";
}

// The file size limit stands in for a full disk: writes stop where it is reached.
TEST(FileFaults, FullDiskEndsAWriteWithWhatFitted) {
  TempDir dir;
  auto const path = dir.WPath("full.bin");
  int const status = InChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit const limit{4096, 4096};
    CFile file;
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0 ||
        !file.Open(path, eFileAccessWrite, eOpenFileCreate)) {
      return 77;
    }
    static char block[10000];
    std::uint32_t done = 0;
    bool const refused = !file.Write(block, sizeof block, &done) && done == 4096;
    return refused && !file.Write(block, 1, &done) && file.GetSize() == 4096 ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(std::filesystem::file_size(dir.Path("full.bin")), 4096u);
}

TEST(FileSystem, ExistenceCreationDeletionAndRenaming) {
  TempDir dir;
  dir.Put("f.txt", "f");
  ASSERT_TRUE(_CreateDir(dir.WPath("d")));
  std::filesystem::create_symlink(dir.Path("f.txt"), dir.Path("link"));
  EXPECT_TRUE(_TestFileExists(dir.WPath("link")) && _TestDirExists(dir.WPath("d\\")));
  EXPECT_FALSE(_TestDirExists(dir.WPath("f.txt")) || _TestFileExists(dir.WPath("d")) ||
               _TestFileExists(dir.WPath("f.txt/")) || _TestFileExists(u""));
  EXPECT_FALSE(_CreateDir(dir.WPath("d")) || _CreateDir(dir.WPath("x/y"))) << "exists; no parent";
  EXPECT_FALSE(_DeleteFile(dir.WPath("d")) || _DeleteFile(nullptr)) << "a directory";
  EXPECT_TRUE(CFile::DeleteFileW(dir.WPath("link")));
  EXPECT_TRUE(dir.Exists("f.txt")) << "the link went, not its target";
  dir.Put("g.txt", "g");
  EXPECT_FALSE(CFile::RenameFile(dir.WPath("f.txt"), dir.WPath("g.txt"))) << "never replaces";
  EXPECT_TRUE(CFile::RenameFile(dir.WPath("f.txt"), dir.WPath("d\\moved.txt")));
  EXPECT_EQ(dir.Get("g.txt") + dir.Get("d/moved.txt"), "gf");
}

} // namespace
