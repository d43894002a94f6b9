// Files and directories: path conversion, the rules of the open bits, `CFile::Open` and the
// skipping rules of the directory enumerator. The system calls are in os_linux.cpp.
#include "files/files_os.h"

#include <cstring>

#include <vorx/core.h>

namespace VORX::Files::OS {
namespace {

bool IsHighSurrogate(std::uint32_t u) {
  return u >= 0xD800 && u <= 0xDBFF;
}
bool IsLowSurrogate(std::uint32_t u) {
  return u >= 0xDC00 && u <= 0xDFFF;
}

std::size_t Length(qefWChar const * text) {
  std::size_t n = 0;
  while (text[n]) {
    ++n;
  }
  return n;
}

// A copy of `text` with `extra` more units of room, or an empty block.
Buffers::CPPlainMemory WideCopy(qefWChar const * text, std::size_t length, std::size_t extra) {
  Buffers::CPPlainMemory block;
  if (block.Alloc((length + extra + 1) * sizeof(qefWChar))) {
    std::memcpy(static_cast<void *>(block), text, length * sizeof(qefWChar));
    static_cast<qefWChar *>(static_cast<void *>(block))[length] = 0;
  }
  return block;
}

} // namespace

CNativePath::CNativePath(qefWChar const * path) {
  if (!path) {
    return;
  }
  std::size_t const units = Length(path);
  // Three bytes per unit at most (a pair takes four bytes for two units).
  auto * const text = static_cast<char *>(Core::OS::_falloc(units * 3 + 1));
  if (!text) {
    return;
  }
  std::size_t n = 0;
  for (std::size_t i = 0; i < units; ++i) {
    std::uint32_t cp = path[i];
    if (IsHighSurrogate(cp) && IsLowSurrogate(path[i + 1])) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (path[i + 1] - 0xDC00u);
      ++i;
    } else if (IsHighSurrogate(cp) || IsLowSurrogate(cp)) {
      Core::OS::_ffree(text);
      return;
    }
    if (cp == '\\') {
      cp = '/';
    }
    if (cp < 0x80) {
      text[n++] = static_cast<char>(cp);
    } else if (cp < 0x800) {
      text[n++] = static_cast<char>(0xC0 | (cp >> 6));
      text[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      text[n++] = static_cast<char>(0xE0 | (cp >> 12));
      text[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      text[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      text[n++] = static_cast<char>(0xF0 | (cp >> 18));
      text[n++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      text[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      text[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  text[n] = '\0';
  m_text = text;
  m_length = n;
}

CNativePath::~CNativePath() {
  Core::OS::_ffree(m_text);
}

bool _DecodeName(char const * name, qefWChar * out, std::size_t count) {
  auto const * p = reinterpret_cast<unsigned char const *>(name);
  std::size_t n = 0;
  while (*p) {
    std::uint32_t cp = *p;
    std::size_t extra = 0;
    std::uint32_t minimum = 0;
    if (cp < 0x80) {
      extra = 0;
    } else if ((cp & 0xE0) == 0xC0) {
      extra = 1;
      cp &= 0x1F;
      minimum = 0x80;
    } else if ((cp & 0xF0) == 0xE0) {
      extra = 2;
      cp &= 0x0F;
      minimum = 0x800;
    } else if ((cp & 0xF8) == 0xF0) {
      extra = 3;
      cp &= 0x07;
      minimum = 0x10000;
    } else {
      return false;
    }
    ++p;
    for (std::size_t k = 0; k < extra; ++k, ++p) {
      if ((*p & 0xC0) != 0x80) {
        return false;
      }
      cp = (cp << 6) | (*p & 0x3Fu);
    }
    if (cp < minimum || cp > 0x10FFFF || IsHighSurrogate(cp) || IsLowSurrogate(cp)) {
      return false;
    }
    std::size_t const units = cp >= 0x10000 ? 2 : 1;
    if (n + units >= count) {
      return false;
    }
    if (units == 2) {
      out[n++] = static_cast<qefWChar>(0xD800 + ((cp - 0x10000) >> 10));
      out[n++] = static_cast<qefWChar>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      out[n++] = static_cast<qefWChar>(cp);
    }
  }
  if (n >= count) {
    return false;
  }
  out[n] = 0;
  return true;
}

bool _PlanOpen(eFileAccess access, eOpenFileOptions options, tagOPENPLAN & plan) {
  plan.write = (access & eFileAccessWrite) != 0;
  plan.random = (access & eFileAccessRandom) != 0;
  plan.shareWrite = (access & eFileAccessShareWrite) != 0;
  plan.shareRead = (access & eFileAccessShareRead) != 0;
  plan.temporary = (options & eOpenFileTemporary) != 0;
  bool const create = (options & eOpenFileCreate) != 0;
  bool const empty = (options & eOpenFileEmpty) != 0;
  if (plan.temporary && (!create || plan.shareRead || plan.shareWrite || !plan.write)) {
    return false;
  }
  if (options & (eOpenFileCreate | eOpenFileCreateMark)) {
    if (!plan.write || !create) {
      return false;
    }
    plan.disposition = empty ? eCreateAlways : eOpenAlways;
  } else {
    if (empty && !plan.write) {
      return false;
    }
    plan.disposition = empty ? eTruncateExisting : eOpenExisting;
  }
  return true;
}

bool CFile::Open(qefWChar const * path, eFileAccess access, eOpenFileOptions options) {
  if (!path || !*path || m_hFile != -1) {
    return false;
  }
  tagOPENPLAN plan{};
  if (!_PlanOpen(access, options, plan)) {
    return false;
  }
  CNativePath native(path);
  if (!native) {
    return false;
  }
  bool missingDirectory = false;
  int handle = _openNative(native.c_str(), plan, missingDirectory);
  if (handle == -1 && missingDirectory) {
    char * const slash = std::strrchr(native.data(), '/');
    if (slash && slash != native.data()) {
      *slash = '\0';
      bool const created = _mkdirNative(native.c_str());
      *slash = '/';
      if (created) {
        handle = _openNative(native.c_str(), plan, missingDirectory);
      }
    }
  }
  if (handle == -1) {
    return false;
  }
  m_hFile = handle;
  m_access = access;
  return true;
}

CFile::~CFile() {
  Close();
}

bool CFile::DeleteFileW(qefWChar const * path) {
  return _DeleteFile(path);
}

qefWChar const * CFindData::GetPath() const {
  static qefWChar const empty[1] = {0};
  void const * const path = m_path;
  return path ? static_cast<qefWChar const *>(path) : empty;
}

CDirectoryEnumerator::~CDirectoryEnumerator() {
  EndEnumerate();
}

bool CDirectoryEnumerator::BeginEnumerate(qefWChar const * directory, qefWChar const * pattern,
                                          bool filesOnly) {
  EndEnumerate();
  if (!directory || !*directory) {
    return false;
  }
  CNativePath native(directory);
  CNativePath nativePattern(pattern ? pattern : u"*.*");
  if (!native || !nativePattern) {
    return false;
  }
  // The directory as the system sees it, with its separator.
  std::size_t length = Length(directory);
  bool const slash = directory[length - 1] == u'/' || directory[length - 1] == u'\\';
  Buffers::CPPlainMemory path = WideCopy(directory, length, slash ? 0 : 1);
  if (!path) {
    return false;
  }
  auto * const text = static_cast<qefWChar *>(static_cast<void *>(path));
  for (std::size_t i = 0; i < length; ++i) {
    if (text[i] == u'\\') {
      text[i] = u'/';
    }
  }
  if (!slash) {
    text[length++] = u'/';
    text[length] = 0;
  }
  bool const everything = std::strcmp(nativePattern.c_str(), "*.*") == 0;
  if (!m_pattern.Alloc(everything ? 2 : nativePattern.length() + 1)) {
    return false;
  }
  std::memcpy(static_cast<void *>(m_pattern), everything ? "*" : nativePattern.c_str(),
              everything ? 2 : nativePattern.length() + 1);
  m_hFind = _openDirNative(native.c_str());
  if (!m_hFind) {
    m_pattern.free();
    return false;
  }
  m_path = path;
  m_filesOnly = filesOnly;
  if (!_FindNext()) {
    return false;
  }
  return true;
}

bool CDirectoryEnumerator::_FindNext() {
  char const * const pattern = static_cast<char const *>(static_cast<void const *>(m_pattern));
  char const * name = nullptr;
  while (_nextNameNative(m_hFind, name)) {
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
        !_matchNative(pattern, name) ||
        !_DecodeName(name, m_pending.m_name, sizeof m_pending.m_name / sizeof(qefWChar))) {
      continue;
    }
    tagENTRYDETAILS details{};
    if (!_detailsNative(m_hFind, name, details) || details.isLink ||
        (m_filesOnly && details.isDirectory)) {
      continue;
    }
    m_pending.m_path = m_path;
    m_pending.m_attributes = (details.isDirectory ? CFindData::kDirectory : 0) |
                             (details.readOnly ? CFindData::kReadOnly : 0);
    m_pending.m_size = details.isDirectory ? 0 : details.size;
    m_pending.m_created = details.created;
    m_pending.m_accessed = details.accessed;
    m_pending.m_modified = details.modified;
    return true;
  }
  EndEnumerate();
  return false;
}

bool CDirectoryEnumerator::GetNext(CFindData & entry) {
  if (!m_hFind) {
    return false;
  }
  entry = m_pending;
  _FindNext();
  return true;
}

bool CDirectoryEnumerator::EndEnumerate() {
  if (m_hFind) {
    _closeDirNative(m_hFind);
    m_hFind = nullptr;
  }
  m_path.free();
  m_pattern.free();
  m_pending = CFindData();
  return true;
}

} // namespace VORX::Files::OS
