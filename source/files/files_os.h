// Private to the files area: path conversion, the rules of the open bits, and the
// operating-system primitives below `CFile` and `CDirectoryEnumerator` (os_linux.cpp).
#pragma once

#include <vorx/files.h>

namespace VORX::Files::OS {

// The system form of a wide path: UTF-8 on the library heap, every "\" turned into "/". Empty
// (false) for a null path, a lone surrogate or a failed allocation.
class CNativePath {
public:
  explicit CNativePath(qefWChar const * path);
  ~CNativePath();
  CNativePath(CNativePath const &) = delete;
  CNativePath & operator=(CNativePath const &) = delete;

  explicit operator bool() const { return m_text != nullptr; }
  char * data() { return m_text; }
  char const * c_str() const { return m_text; }
  std::size_t length() const { return m_length; }

private:
  char * m_text = nullptr;
  std::size_t m_length = 0;
};

// Decodes a name from disk (UTF-8) into `out` (`count` units with the terminator). False for a
// name that is not well-formed UTF-8 (overlong forms, encoded surrogates and values above
// U+10FFFF included) or does not fit.
bool _DecodeName(char const * name, qefWChar * out, std::size_t count);

// What an open does with an existing or missing file.
enum eDisposition {
  eCreateAlways,    // create anew, replacing an existing file
  eOpenAlways,      // open, creating a missing file
  eOpenExisting,    // open as it is; a missing file fails
  eTruncateExisting // open and truncate; a missing file fails
};

// The accepted meaning of one combination of access and option bits.
struct tagOPENPLAN {
  bool write;
  bool random;
  bool shareRead;
  bool shareWrite;
  bool temporary;
  eDisposition disposition;
};

// Applies the acceptance rules of the bits; false for a refused combination.
bool _PlanOpen(eFileAccess access, eOpenFileOptions options, tagOPENPLAN & plan);

// ---------------------------------------------------------------------------------------------
// System primitives (os_linux.cpp); paths are system paths.
// ---------------------------------------------------------------------------------------------

// Opens `path` as `plan` says, with the sharing checks; the descriptor or -1. `missingDirectory`
// tells whether it failed because the file's directory does not exist.
int _openNative(char const * path, tagOPENPLAN const & plan, bool & missingDirectory);
bool _isDirNative(char const * path);
bool _mkdirNative(char const * path);

// A directory stream, or null when it cannot be opened.
void * _openDirNative(char const * path);
void _closeDirNative(void * stream);
// The next name of the stream; false at its end or on a read error.
bool _nextNameNative(void * stream, char const *& name);
// Whether `name` matches the pattern.
bool _matchNative(char const * pattern, char const * name);

struct tagENTRYDETAILS {
  bool isLink;
  bool isDirectory;
  bool readOnly;
  std::uint64_t size;
  std::uint64_t created;
  std::uint64_t accessed;
  std::uint64_t modified;
};
// The details of the entry `name` of the stream's directory, not following a link; false when
// the entry is gone or cannot be examined.
bool _detailsNative(void * stream, char const * name, tagENTRYDETAILS & details);

} // namespace VORX::Files::OS
