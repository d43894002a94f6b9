// The operating-system side of files and directories: stat, open with emulated sharing, file
// I/O, and directory streams.
#include "files/files_os.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <vorx/core.h>

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VORX::Files::OS {
namespace {

// Sharing locks: one byte per role, far beyond any file's data. Every open holds a read lock on
// the bytes of its roles; an open conflicts with another open that holds the opposite role.
constexpr off_t kLockBase = 0x7FFFFFFFFFFFFF00;
constexpr off_t kHoldsRead = kLockBase + 0;   // every open: all opens read
constexpr off_t kHoldsWrite = kLockBase + 1;  // opens with write access
constexpr off_t kDeniesRead = kLockBase + 2;  // opens without eFileAccessShareRead
constexpr off_t kDeniesWrite = kLockBase + 3; // opens without eFileAccessShareWrite

// Opens of this process take and check their locks one at a time, so that two of them never
// both fail for seeing each other.
std::mutex g_sharing;

enum eLockResult { eLocked, eConflict, eUnsupported };

bool Unsupported(int error) {
  return error == EINVAL || error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS ||
         error == EBADF;
}

// Takes a shared lock on one role byte.
eLockResult Hold(int fd, off_t role) {
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = role;
  lock.l_len = 1;
  if (fcntl(fd, F_OFD_SETLK, &lock) == 0) {
    return eLocked;
  }
  return Unsupported(errno) ? eUnsupported : eConflict;
}

// Whether another open description holds a lock on one role byte.
bool HeldByOther(int fd, off_t role) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = role;
  lock.l_len = 1;
  if (fcntl(fd, F_OFD_GETLK, &lock) != 0) {
    return !Unsupported(errno);
  }
  return lock.l_type != F_UNLCK;
}

// Takes the roles of `plan` on `fd`, then checks the other opens' roles. False on a conflict
// (the descriptor still holds its locks; closing it releases them).
bool TakeSharing(int fd, tagOPENPLAN const & plan) {
  std::lock_guard<std::mutex> guard(g_sharing);
  off_t roles[4];
  int count = 0;
  roles[count++] = kHoldsRead;
  if (plan.write) {
    roles[count++] = kHoldsWrite;
  }
  if (!plan.shareRead) {
    roles[count++] = kDeniesRead;
  }
  if (!plan.shareWrite) {
    roles[count++] = kDeniesWrite;
  }
  for (int i = 0; i < count; ++i) {
    eLockResult const result = Hold(fd, roles[i]);
    if (result == eUnsupported) {
      return true; // the file system has no such locks: open without sharing checks
    }
    if (result == eConflict) {
      return false;
    }
  }
  if (HeldByOther(fd, kDeniesRead)) {
    return false;
  }
  if (plan.write && HeldByOther(fd, kDeniesWrite)) {
    return false;
  }
  if (!plan.shareRead && HeldByOther(fd, kHoldsRead)) {
    return false;
  }
  if (!plan.shareWrite && HeldByOther(fd, kHoldsWrite)) {
    return false;
  }
  return true;
}

// The directory part of `path` (before its last "/") is missing.
bool DirectoryMissing(char const * path) {
  char const * const slash = std::strrchr(path, '/');
  if (!slash || slash == path) {
    return false;
  }
  std::size_t const length = static_cast<std::size_t>(slash - path);
  auto * const parent = static_cast<char *>(Core::OS::_falloc(length + 1));
  if (!parent) {
    return false;
  }
  std::memcpy(parent, path, length);
  parent[length] = '\0';
  bool const missing = !_isDirNative(parent);
  Core::OS::_ffree(parent);
  return missing;
}

std::uint64_t Milliseconds(struct statx_timestamp const & time) {
  if (time.tv_sec < 0) {
    return 0;
  }
  return static_cast<std::uint64_t>(time.tv_sec) * 1000u + time.tv_nsec / 1000000u;
}

} // namespace

bool _isDirNative(char const * path) {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool _mkdirNative(char const * path) {
  return mkdir(path, 0777) == 0;
}

bool _TestFileExists(qefWChar const * path) {
  CNativePath native(path);
  struct stat status {};
  return native && native.length() && stat(native.c_str(), &status) == 0 &&
         !S_ISDIR(status.st_mode);
}

bool _TestDirExists(qefWChar const * path) {
  CNativePath native(path);
  if (!native || !native.length()) {
    return false;
  }
  std::size_t length = native.length();
  while (length > 1 && native.data()[length - 1] == '/') {
    native.data()[--length] = '\0';
  }
  return _isDirNative(native.c_str());
}

bool _CreateDir(qefWChar const * path) {
  CNativePath native(path);
  return native && native.length() && _mkdirNative(native.c_str());
}

bool _DeleteFile(qefWChar const * path) {
  CNativePath native(path);
  return native && native.length() && unlink(native.c_str()) == 0;
}

bool CFile::RenameFile(qefWChar const * from, qefWChar const * to) {
  CNativePath source(from);
  CNativePath target(to);
  if (!source || !target || !source.length() || !target.length()) {
    return false;
  }
  if (syscall(SYS_renameat2, AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(),
              RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return false;
  }
  // A file system without the no-replace flag: check first.
  struct stat status {};
  if (lstat(target.c_str(), &status) == 0 || errno != ENOENT) {
    return false;
  }
  return rename(source.c_str(), target.c_str()) == 0;
}

int _openNative(char const * path, tagOPENPLAN const & plan, bool & missingDirectory) {
  missingDirectory = false;
  int const mode = (plan.write ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK;
  bool const create = plan.disposition == eCreateAlways || plan.disposition == eOpenAlways;
  int fd = -1;
  bool created = false;
  mode_t const permissions = plan.temporary ? 0600 : 0666;
  // Create exclusively first, so that a file this call made can be removed again on failure.
  for (int attempt = 0; attempt < 2 && fd == -1; ++attempt) {
    if (create) {
      fd = open(path, mode | O_CREAT | O_EXCL, permissions);
      if (fd != -1) {
        created = true;
        break;
      }
      if (errno != EEXIST) {
        break;
      }
    }
    fd = open(path, mode);
    if (fd != -1 || errno != ENOENT || !create) {
      break;
    }
  }
  // Still neither there nor creatable exclusively: a symbolic link to a missing file, or a race
  // with another creator; let the system create what the link names.
  if (fd == -1 && create && errno == ENOENT) {
    fd = open(path, mode | O_CREAT, permissions);
  }
  if (fd == -1) {
    missingDirectory = errno == ENOENT && DirectoryMissing(path);
    return -1;
  }
  struct stat status {};
  bool ok = fstat(fd, &status) == 0 && !S_ISDIR(status.st_mode) && TakeSharing(fd, plan);
  if (ok && (plan.disposition == eCreateAlways || plan.disposition == eTruncateExisting) &&
      !created && S_ISREG(status.st_mode)) {
    ok = ftruncate(fd, 0) == 0;
  }
  if (ok && plan.temporary) {
    ok = unlink(path) == 0;
  }
  if (!ok) {
    if (created) {
      unlink(path);
    }
    close(fd);
    return -1;
  }
  int const flags = fcntl(fd, F_GETFL);
  if (flags != -1) {
    fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  }
  posix_fadvise(fd, 0, 0, plan.random ? POSIX_FADV_RANDOM : POSIX_FADV_SEQUENTIAL);
  return fd;
}

bool CFile::Close() {
  if (m_hFile != -1) {
    close(m_hFile);
    m_hFile = -1;
  }
  m_access = eFileAccessRead;
  return true;
}

bool CFile::Read(void * buffer, std::uint32_t count, std::uint32_t * done) {
  std::uint32_t total = 0;
  bool ok = m_hFile != -1 && buffer;
  while (ok && total < count) {
    ssize_t const got = read(m_hFile, static_cast<char *>(buffer) + total, count - total);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      ok = false;
      break;
    }
    total += static_cast<std::uint32_t>(got);
  }
  if (done) {
    *done = total;
  }
  return ok;
}

bool CFile::Write(void const * buffer, std::uint32_t count, std::uint32_t * done) {
  std::uint32_t total = 0;
  bool ok = m_hFile != -1 && (m_access & eFileAccessWrite) && buffer;
  while (ok && total < count) {
    ssize_t const put = write(m_hFile, static_cast<char const *>(buffer) + total, count - total);
    if (put < 0 && errno == EINTR) {
      continue;
    }
    if (put <= 0) {
      ok = false;
      break;
    }
    total += static_cast<std::uint32_t>(put);
  }
  if (done) {
    *done = total;
  }
  return ok;
}

std::uint64_t CFile::GetSize() {
  struct stat status {};
  if (m_hFile == -1 || fstat(m_hFile, &status) != 0) {
    return ~std::uint64_t{0};
  }
  return static_cast<std::uint64_t>(status.st_size);
}

bool CFile::SetPointer(std::uint64_t position) {
  return m_hFile != -1 && position <= static_cast<std::uint64_t>(LLONG_MAX) &&
         lseek(m_hFile, static_cast<off_t>(position), SEEK_SET) != -1;
}

bool CFile::MovePointer(std::int64_t distance) {
  return m_hFile != -1 && lseek(m_hFile, static_cast<off_t>(distance), SEEK_CUR) != -1;
}

std::uint64_t CFile::GetPointer() {
  off_t const position = m_hFile == -1 ? -1 : lseek(m_hFile, 0, SEEK_CUR);
  return position < 0 ? ~std::uint64_t{0} : static_cast<std::uint64_t>(position);
}

bool CFile::SetEOF() {
  if (m_hFile == -1 || !(m_access & eFileAccessWrite)) {
    return false;
  }
  off_t const position = lseek(m_hFile, 0, SEEK_CUR);
  return position >= 0 && ftruncate(m_hFile, position) == 0;
}

bool CFile::Flush() {
  if (m_hFile == -1 || !(m_access & eFileAccessWrite)) {
    return true;
  }
  return fsync(m_hFile) == 0;
}

void * _openDirNative(char const * path) {
  return opendir(path);
}

void _closeDirNative(void * stream) {
  closedir(static_cast<DIR *>(stream));
}

bool _nextNameNative(void * stream, char const *& name) {
  dirent const * const entry = readdir(static_cast<DIR *>(stream));
  if (!entry) {
    return false;
  }
  name = entry->d_name;
  return true;
}

bool _matchNative(char const * pattern, char const * name) {
  return fnmatch(pattern, name, FNM_NOESCAPE) == 0;
}

bool _detailsNative(void * stream, char const * name, tagENTRYDETAILS & details) {
  struct statx status {};
  int const directory = dirfd(static_cast<DIR *>(stream));
  if (directory == -1 || statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                               STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_ATIME | STATX_MTIME |
                                   STATX_CTIME | STATX_BTIME,
                               &status) != 0) {
    return false;
  }
  details.isLink = S_ISLNK(status.stx_mode);
  details.isDirectory = S_ISDIR(status.stx_mode);
  details.readOnly = (status.stx_mode & 0222) == 0;
  details.size = status.stx_size;
  details.created =
      Milliseconds((status.stx_mask & STATX_BTIME) ? status.stx_btime : status.stx_ctime);
  details.accessed = Milliseconds(status.stx_atime);
  details.modified = Milliseconds(status.stx_mtime);
  return true;
}

} // namespace VORX::Files::OS
