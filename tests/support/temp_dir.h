// Test support for code that touches the file system: a fresh directory per test, wide paths
// inside it, and a child process for what the test process itself must not change (user, limits).
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vorx/string.h>

namespace vorx::test {

// A wide path that passes straight to the library's `qefWChar const *` parameters.
struct WidePath : std::u16string {
  WidePath(std::u16string text) : std::u16string(std::move(text)) {}
  operator char16_t const *() const { return c_str(); }
};

// Wide text from UTF-8 of the Basic Multilingual Plane.
inline WidePath Wide(std::string const & text) {
  VORX::String::CQEFWChar const wide(reinterpret_cast<unsigned char const *>(text.c_str()));
  return *wide ? std::u16string(*wide) : std::u16string();
}

// A new empty directory under the system's temporary directory, removed with all it holds.
class TempDir {
public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorx-files-XXXXXX").string();
    char * const made = mkdtemp(pattern.data());
    EXPECT_NE(made, nullptr);
    m_path = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(TempDir const &) = delete;
  TempDir & operator=(TempDir const &) = delete;

  // The system path of `name` inside the directory ("" for the directory itself).
  std::string Path(std::string const & name = "") const {
    return name.empty() ? m_path : m_path + "/" + name;
  }
  WidePath WPath(std::string const & name = "") const { return Wide(Path(name)); }

  // Writes `content` to the file `name`.
  void Put(std::string const & name, std::string const & content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
  }
  std::string Get(std::string const & name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  bool Exists(std::string const & name) const {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(Path(name), ignored));
  }

private:
  std::string m_path;
};

// Runs `body` in a child process and returns its exit status (-1 when it did not exit).
// The child's status: 0 passed, 77 could not set up, anything else failed.
template <typename F> int InChild(F body) {
  pid_t const child = fork();
  if (child == 0) {
    _exit(body());
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    return -1;
  }
  return WEXITSTATUS(status);
}

} // namespace vorx::test
