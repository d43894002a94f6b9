// vorx pool: interns every word of UTF-8 files in the library's string pool and reports what
// the pool holds afterwards.
#include <vorx/string.h>

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "command.h"

namespace {

char const kName[] = "pool";
// Longer runs of non-blank bytes are not interned (they are counted apart).
constexpr std::size_t kMaxWordBytes = 1 << 20;

struct PoolRun {
  bool ignoreCase = false;
  std::uint64_t words = 0;
  std::uint64_t refused = 0; // not UTF-8, or too long
  std::chrono::steady_clock::duration interning{};
  // One handle per distinct record, so that nothing ages out while the files are read.
  std::unordered_set<void const *> seen;
  std::vector<VORX::String::CPPoolString> held;
};

bool IsBlank(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void Intern(PoolRun & run, std::string const & word) {
  ++run.words;
  if (word.size() > kMaxWordBytes) {
    ++run.refused;
    return;
  }
  auto const * utf8 = reinterpret_cast<unsigned char const *>(word.c_str());
  auto const start = std::chrono::steady_clock::now();
  VORX::String::CPPoolString s = run.ignoreCase ? VORX::String::CStringPool::GetStringRefi(utf8)
                                                : VORX::String::CStringPool::GetStringRef(utf8);
  run.interning += std::chrono::steady_clock::now() - start;
  if (s.isnull()) {
    ++run.refused;
    return;
  }
  if (run.seen.insert(static_cast<qefWChar const *>(s)).second) {
    run.held.push_back(std::move(s));
  }
}

// Reads one file ("-" is standard input) word by word; false with a message when it cannot.
bool InternFile(PoolRun & run, std::string const & name) {
  bool const standardInput = name == "-";
  errno = 0;
  std::FILE * file = standardInput ? stdin : std::fopen(name.c_str(), "rb");
  if (!file) {
    std::fflush(stdout);
    vorx_tool::Fail(kName, name + ": " + std::strerror(errno));
    return false;
  }
  static unsigned char buffer[1 << 16];
  std::string word;
  bool tooLong = false;
  bool ok = true;
  for (;;) {
    std::size_t const got = std::fread(buffer, 1, sizeof buffer, file);
    for (std::size_t i = 0; i < got; ++i) {
      if (!IsBlank(buffer[i])) {
        if (word.size() <= kMaxWordBytes) {
          word.push_back(static_cast<char>(buffer[i]));
        } else {
          tooLong = true;
        }
      } else if (!word.empty()) {
        Intern(run, word);
        word.clear();
        tooLong = false;
      }
    }
    if (got < sizeof buffer) {
      if (std::ferror(file)) {
        std::fflush(stdout);
        vorx_tool::Fail(kName, name + ": " + std::strerror(errno));
        ok = false;
      }
      break;
    }
  }
  if (!word.empty() || tooLong) {
    Intern(run, word);
  }
  if (!standardInput) {
    std::fclose(file);
  }
  return ok;
}

int RunPool(std::vector<std::string> const & args) {
  PoolRun run;
  std::vector<std::string> files;
  bool options = true;
  for (std::string const & word : args) {
    if (!options || word == "-" || word.empty() || word[0] != '-') {
      files.push_back(word);
    } else if (word == "--") {
      options = false;
    } else if (word == "--ignore-case" || word == "-i") {
      run.ignoreCase = true;
    } else {
      return vorx_tool::Fail(kName, "unknown option '" + word + "' (try vorx pool --help)", 2);
    }
  }
  if (files.empty()) {
    return vorx_tool::Fail(kName, "no FILE given (use - for standard input)", 2);
  }
  int status = 0;
  for (std::string const & name : files) {
    if (!InternFile(run, name)) {
      status = 1;
    }
  }
  using VORX::String::CStringPool;
  double const seconds = std::chrono::duration<double>(run.interning).count();
  std::printf("words: %" PRIu64 "\n", run.words);
  if (run.refused) {
    std::printf("not interned: %" PRIu64 "\n", run.refused);
  }
  std::printf("pooled strings: %" PRIu64 "\n", CStringPool::GetNItems());
  std::printf("case-insensitive groups: %" PRIu64 "\n", CStringPool::GetNGroups());
  std::printf("pool size: %" PRIu64 " bytes\n", CStringPool::GetSize());
  std::printf("verify: %s\n", CStringPool::Verify() ? "true" : "false");
  if (seconds > 0) {
    std::printf("interning rate: %.0f words/s\n", static_cast<double>(run.words) / seconds);
  } else {
    std::printf("interning rate: -\n");
  }
  return status;
}

vorx_tool::CommandRegistration const registration({
    kName,
    "intern the words of UTF-8 files in the string pool and show the pool",
    "usage: vorx pool [--ignore-case] FILE...\n\n"
    "Interns every word of each FILE (- is standard input) in the library's string pool, keeping\n"
    "one handle per pooled string, then prints: the number of words, the pooled strings and the\n"
    "case-insensitive groups the pool holds, its size in bytes, whether every record passes its\n"
    "integrity check, and the interning rate in words per second.\n\n"
    "A word is a run of bytes other than space, tab, line feed, carriage return, vertical tab and\n"
    "form feed. Words that are not UTF-8 or longer than 1 MiB are counted as not interned.\n\n"
    "Options:\n"
    "  -i, --ignore-case  intern with GetStringRefi: a word equal to an earlier one ignoring case\n"
    "                     gives that one's pooled string\n\n"
    "Note: a text with characters beyond U+FFFF is stored with each as two units; such records\n"
    "fail the integrity check, which re-measures the stored units, so verify prints false.\n"
    "Exit status: 0, 1 when a file cannot be read (the others are still interned), 2 on bad\n"
    "options.\n",
    &RunPool,
});

} // namespace
