// vorx ls: the entries the library's directory enumerator hands out, one line each.
#include <vorx/files.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "command.h"

namespace {

char const kName[] = "ls";

char const kUsage[] =
    "usage: vorx ls [--files] DIR [PATTERN]\n\n"
    "Lists the entries of DIR whose names match PATTERN (\"*.*\", every name, by default), in\n"
    "the order the system lists them, one line each:\n\n"
    "  KIND SIZE MODIFIED NAME\n\n"
    "KIND is \"file\" or \"dir\", SIZE is in bytes (0 for a directory), MODIFIED is the time\n"
    "of the last change in ISO 8601, UTC, to the millisecond (2026-01-31T12:00:00.000Z).\n"
    "Symbolic links, \".\", \"..\" and names that are not UTF-8 are not listed. PATTERN uses\n"
    "\"*\", \"?\" and \"[...]\"; case counts. Either slash may separate the parts of DIR.\n\n"
    "Options:\n"
    "  --files     list files only, no directories\n"
    "  -h, --help  show this help\n\n"
    "Exit status: 0 on success (also when nothing matches); 1 when DIR is not a directory;\n"
    "2 on a usage error.\n";

// UTF-8 to UTF-16; a byte that does not start a well-formed character becomes U+FFFD.
std::u16string Widen(std::string const & text) {
  std::u16string wide;
  std::size_t i = 0;
  while (i < text.size()) {
    auto const lead = static_cast<unsigned char>(text[i]);
    std::size_t const extra = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    char32_t cp = extra == 0 ? lead : lead & (0x3F >> extra);
    bool ok = (lead < 0x80 || lead >= 0xC2) && lead < 0xF5 && i + extra < text.size();
    for (std::size_t k = 1; ok && k <= extra; ++k) {
      auto const next = static_cast<unsigned char>(text[i + k]);
      ok = (next & 0xC0) == 0x80;
      cp = (cp << 6) | (next & 0x3F);
    }
    ok = ok && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF) &&
         cp >= (extra == 2   ? 0x800u
                : extra == 3 ? 0x10000u
                             : 0u);
    if (!ok) {
      wide += u'\uFFFD';
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      wide += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
      wide += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      wide += static_cast<char16_t>(cp);
    }
    i += extra + 1;
  }
  return wide;
}

// UTF-16 (well formed, as the enumerator hands it out) to UTF-8.
std::string Narrow(qefWChar const * wide) {
  std::string text;
  for (; *wide; ++wide) {
    char32_t cp = *wide;
    if (cp >= 0xD800 && cp <= 0xDBFF && wide[1] >= 0xDC00 && wide[1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (wide[1] - 0xDC00u);
      ++wide;
    }
    if (cp < 0x80) {
      text += static_cast<char>(cp);
    } else if (cp < 0x800) {
      text += static_cast<char>(0xC0 | (cp >> 6));
      text += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      text += static_cast<char>(0xE0 | (cp >> 12));
      text += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      text += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      text += static_cast<char>(0xF0 | (cp >> 18));
      text += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      text += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      text += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return text;
}

// Milliseconds since 1970 as "YYYY-MM-DDTHH:MM:SS.mmmZ".
std::string Iso8601(std::uint64_t ms) {
  using namespace std::chrono;
  sys_time<milliseconds> const time{milliseconds{static_cast<std::int64_t>(ms)}};
  sys_days const day = floor<days>(time);
  year_month_day const date{day};
  hh_mm_ss<milliseconds> const clock{time - day};
  char text[40];
  std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

int Run(std::vector<std::string> const & args) {
  bool filesOnly = false;
  bool options = true;
  std::vector<std::string> words;
  for (std::string const & word : args) {
    if (options && word == "--") {
      options = false;
    } else if (options && word == "--files") {
      filesOnly = true;
    } else if (options && word.size() > 1 && word[0] == '-') {
      return vorx_tool::Fail(kName, "unknown option '" + word + "'", 2);
    } else {
      words.push_back(word);
    }
  }
  if (words.empty() || words.size() > 2) {
    return vorx_tool::Fail(kName, "needs DIR and at most one PATTERN (quote it)", 2);
  }
  std::u16string const directory = Widen(words[0]);
  std::u16string const pattern = words.size() == 2 ? Widen(words[1]) : u"*.*";
  if (!VORX::Files::OS::_TestDirExists(directory.c_str())) {
    return vorx_tool::Fail(kName, words[0] + ": not a directory");
  }
  VORX::Files::OS::CDirectoryEnumerator enumerator;
  if (!enumerator.BeginEnumerate(directory.c_str(), pattern.c_str(), filesOnly)) {
    return 0;
  }
  VORX::Files::OS::CFindData entry;
  while (enumerator.GetNext(entry)) {
    std::printf("%s %llu %s %s\n", entry.isDirectory() ? "dir" : "file",
                static_cast<unsigned long long>(entry.GetSize()),
                Iso8601(entry.GetLastModified()).c_str(), Narrow(entry.GetFilename()).c_str());
  }
  return 0;
}

vorx_tool::CommandRegistration const
    registration({kName, "list a directory as the library enumerates it", kUsage, &Run});

} // namespace
