// VORX::Files: files and directories for the library and its hosts. `VORX::Files::OS` holds
// existence tests, creation and deletion (`_TestFileExists`, `_TestDirExists`, `_CreateDir`,
// `_DeleteFile`), an open file with explicit access and open options (`CFile`), and a directory
// enumerator that hands out one entry at a time (`CDirectoryEnumerator`, `CFindData`).
//
// Paths are wide text. Either slash is accepted: every "\" becomes "/" before the operating
// system sees a path, and the text is handed over as UTF-8. There is no length limit of the
// library's own (the system's limits apply) and no long-path prefix. A path that is not
// well-formed UTF-16 (a lone surrogate) names nothing: every call given one fails.
// Failures are false results (all ones for sizes and positions); nothing is logged and nothing
// throws. The free functions keep no state and may run on any thread.
#pragma once

#include <vorx/base.h>
#include <vorx/buffers.h>

namespace VORX::Files::OS {

// Access bits of `CFile::Open`, combined by the caller. Read access is always given.
enum eFileAccess : std::uint32_t {
  eFileAccessRead = 0,
  // Read and write; without it the file is read only.
  eFileAccessWrite = 1,
  // Random-access hint; without it the sequential-scan hint is given.
  eFileAccessRandom = 2,
  // Others may write the file while it is open.
  eFileAccessShareWrite = 4,
  // Others may read the file while it is open.
  eFileAccessShareRead = 8,
};
constexpr eFileAccess operator|(eFileAccess a, eFileAccess b) {
  return static_cast<eFileAccess>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

// Open option bits of `CFile::Open`, combined by the caller.
enum eOpenFileOptions : std::uint32_t {
  // Open an existing file as it is.
  eOpenFileExisting = 0,
  // Create the file when it does not exist.
  eOpenFileCreate = 1,
  // Valid only together with `eOpenFileCreate`; no further effect.
  eOpenFileCreateMark = 2,
  // Start empty: with `eOpenFileCreate` the file is always created anew, without it an existing
  // file is truncated.
  eOpenFileEmpty = 4,
  // Temporary file: requires `eOpenFileCreate`, write access and no sharing bit. Its name is
  // removed as soon as it is open, so the file is gone when it is closed and also when the
  // process dies; until then it is reached only through its `CFile`.
  eOpenFileTemporary = 8,
};
constexpr eOpenFileOptions operator|(eOpenFileOptions a, eOpenFileOptions b) {
  return static_cast<eOpenFileOptions>(static_cast<std::uint32_t>(a) |
                                       static_cast<std::uint32_t>(b));
}

// True if `path` names an existing entry that is not a directory (symbolic links are followed).
// False for a null path.
VORX_API bool _TestFileExists(qefWChar const * path);
// True if `path` names an existing directory (symbolic links are followed). Trailing "/" or "\"
// are ignored. False for a null or empty path.
VORX_API bool _TestDirExists(qefWChar const * path);
// Creates one directory level; the parent must exist. False for a null path, a missing parent
// or an existing entry.
VORX_API bool _CreateDir(qefWChar const * path);
// Deletes a file (a symbolic link itself, not its target). False for a null path, a directory
// or a missing entry.
VORX_API bool _DeleteFile(qefWChar const * path);

// An open file: owns one operating-system file descriptor (-1 when closed) and the access bits
// it was opened with (0 when closed); the destructor closes it. Not copyable; one object is used
// by one thread at a time. Sizes and positions are 64-bit.
//
// Sharing: the sharing bits hold among the files this library opens, in this and in other
// processes, through open-file-description locks (`F_OFD_SETLK`) on bytes far beyond any file's
// data. An open fails while another open of the same file does not share an access the new one
// asks for (every open reads; write access needs `eFileAccessShareWrite` of every other open),
// or when the new open denies an access another open holds. The locks go with the descriptor:
// `Close`, the destructor and the death of the process release them. Not enforced: opens by
// other programs, deletion and renaming of an open file, and files on file systems without
// such locks (those open without sharing checks). Two opens racing from different processes
// may both fail where one of them would have succeeded; opens within one process are serialised.
class VORX_API CFile {
public:
  CFile() = default;
  ~CFile();
  CFile(CFile const &) = delete;
  CFile & operator=(CFile const &) = delete;

  // Opens `path`. False for a null or empty path, while this object holds a file, for refused
  // bit combinations (`eOpenFileTemporary` without `eOpenFileCreate`, write access or with a
  // sharing bit; `eOpenFileCreate` or `eOpenFileCreateMark` without write access or
  // `eOpenFileCreateMark` alone; `eOpenFileEmpty` alone without write access), for a
  // directory, a sharing conflict, or any system refusal. When the file's directory is missing,
  // that one directory level is created and the open tried once more.
  // Note: that directory is created before the second try even when the options would not
  // create the file, so a failed read-only open can leave an empty directory behind.
  bool Open(qefWChar const * path, eFileAccess access, eOpenFileOptions options);
  // Closes the file if one is open (releasing its sharing locks); always true.
  bool Close();

  // Reads up to `count` bytes at the file pointer; `done` (may be null) receives the bytes read.
  // True only when all `count` were read; false at the end of the file, on a system error, and
  // without a file or buffer (then `done` is 0).
  bool Read(void * buffer, std::uint32_t count, std::uint32_t * done);
  // Writes `count` bytes at the file pointer; `done` (may be null) receives the bytes written.
  // True only when all were written; false when the disk or the file size limit is reached
  // (after what fitted), on a system error, without a file, write access or buffer.
  bool Write(void const * buffer, std::uint32_t count, std::uint32_t * done);

  // The file's size; all ones without a file.
  std::uint64_t GetSize();
  // Moves the file pointer to `position` (beyond the end is allowed). False without a file or
  // above 2^63-1.
  bool SetPointer(std::uint64_t position);
  // Moves the file pointer by `distance`; false without a file or before the start.
  bool MovePointer(std::int64_t distance);
  // The file pointer; all ones without a file.
  std::uint64_t GetPointer();
  // Ends the file at the file pointer; false without a file or without write access.
  bool SetEOF();
  // Writes the file's buffers to the device. True without doing anything when no file is open
  // or it is read only.
  bool Flush();

  // Deletes a file; as `_DeleteFile`.
  static bool DeleteFileW(qefWChar const * path);
  // Renames or moves a file or directory within one file system. Never replaces: false when
  // `to` exists, when either path is null, or on a system refusal.
  static bool RenameFile(qefWChar const * from, qefWChar const * to);

  explicit operator bool() const { return m_hFile != -1; }

private:
  int m_hFile = -1;
  eFileAccess m_access = eFileAccessRead;
};

// One entry handed out by `CDirectoryEnumerator`: a value. It shares the enumeration's
// directory path (a reference-counted block), so `GetPath` stays valid as long as the entry
// lives, even after its enumerator is gone. A default entry has an empty path and name.
class VORX_API CFindData {
public:
  CFindData() = default;

  // The directory of the enumeration, with "/" separators and a trailing "/".
  qefWChar const * GetPath() const;
  // The entry's name (at most 255 units; names on disk are at most 255 bytes of UTF-8).
  qefWChar const * GetFilename() const { return m_name; }
  // The size in bytes; 0 for a directory.
  std::uint64_t GetSize() const { return m_size; }
  bool isDirectory() const { return (m_attributes & kDirectory) != 0; }
  // True when the entry's mode grants nobody write permission (an attribute of the entry, not
  // the caller's rights).
  bool isReadOnly() const { return (m_attributes & kReadOnly) != 0; }
  // Times in milliseconds since 1970-01-01 00:00:00 UTC (the unit of `GetTimeNow`); times
  // before 1970 read as 0. Created is the birth time where the file system keeps one, else the
  // time of the last status change.
  std::uint64_t GetCreated() const { return m_created; }
  std::uint64_t GetLastAccessed() const { return m_accessed; }
  std::uint64_t GetLastModified() const { return m_modified; }

private:
  friend class CDirectoryEnumerator;
  static constexpr std::uint32_t kReadOnly = 0x1;
  static constexpr std::uint32_t kDirectory = 0x10;

  Buffers::CPPlainMemory m_path;
  std::uint32_t m_attributes = 0;
  std::uint64_t m_created = 0;
  std::uint64_t m_accessed = 0;
  std::uint64_t m_modified = 0;
  std::uint64_t m_size = 0;
  qefWChar m_name[256] = {};
};

// Hands out the entries of one directory, one at a time, in the order the system lists them.
// Skipped: symbolic links, "." and "..", directories when `filesOnly` is set, entries removed
// before their details could be read, and names that are not well-formed UTF-8 (they could not
// be named back to the system). Patterns follow `fnmatch` without flags: "*" and "?" match any
// characters including a leading "."; "[...]" sets; case counts; "\" is a literal character;
// "*.*" matches every name. Owns a directory stream (null when no enumeration is open), closed
// by `EndEnumerate`, a new `BeginEnumerate` or the destructor. Not copyable; one thread at a
// time. Entries created or removed during an enumeration may or may not be handed out.
class VORX_API CDirectoryEnumerator {
public:
  CDirectoryEnumerator() = default;
  ~CDirectoryEnumerator();
  CDirectoryEnumerator(CDirectoryEnumerator const &) = delete;
  CDirectoryEnumerator & operator=(CDirectoryEnumerator const &) = delete;

  // Starts an enumeration of `directory` for names matching `pattern` ("*.*" when null), ending
  // one that is open. False for a null or empty directory, one that cannot be read, a path or
  // pattern that is not well-formed, and when no entry remains after the skipping rules.
  bool BeginEnumerate(qefWChar const * directory, qefWChar const * pattern, bool filesOnly);
  // Copies the next entry into `entry`; false (leaving `entry` alone) when no enumeration is
  // open or every entry has been handed out.
  bool GetNext(CFindData & entry);
  // Ends the enumeration; always true.
  bool EndEnumerate();

private:
  // Reads ahead to the next entry that passes the skipping rules; ends the search without one.
  bool _FindNext();

  void * m_hFind = nullptr;
  Buffers::CPPlainMemory m_path;    // wide directory path ending in "/"
  Buffers::CPPlainMemory m_pattern; // UTF-8 pattern
  bool m_filesOnly = false;
  CFindData m_pending;
};

} // namespace VORX::Files::OS
