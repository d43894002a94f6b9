// vorx uid: component identifiers in their canonical text form, and fresh random ones.
#include <vorx/qef.h>
#include <vorx/string.h>

#include <cstdio>
#include <string>
#include <vector>

#include "command.h"

namespace {

char const kName[] = "uid";

char const kUsage[] =
    "usage: vorx uid TEXT...\n"
    "       vorx uid --new\n\n"
    "Reads each TEXT as a component identifier and prints its canonical form, one line each:\n"
    "36 characters, upper case, no braces (00000000-0000-0000-C000-000000000046). The groups\n"
    "are read as hexadecimal numbers, so short groups are accepted; characters after the\n"
    "twelfth digit of the last group are ignored. A text without exactly four dashes is the\n"
    "null identifier 00000000-0000-0000-0000-000000000000, as the library reads it.\n"
    "With --new, prints a fresh random identifier (version 4) from the system's random source.\n\n"
    "Options:\n"
    "  --new       print a fresh random identifier\n"
    "  -h, --help  show this help\n\n"
    "Exit status: 0 on success; 1 when a TEXT does not read as an identifier; 2 on a usage\n"
    "error.\n";

std::string Narrow(VORX::String::CQEFWChar const & wide) {
  VORX::String::CUTF8Char const utf8(wide);
  return *utf8 ? std::string(reinterpret_cast<char const *>(*utf8)) : std::string();
}

// Reads `text` as bytes and as UTF-8 characters; both readings must agree.
bool Print(std::string const & text) {
  VORX::QEF::cqefuid narrow;
  VORX::QEF::cqefuid wide;
  bool const narrowOk = narrow.Set(text.c_str());
  VORX::String::CQEFWChar const characters(reinterpret_cast<unsigned char const *>(text.c_str()));
  bool const wideOk = *characters ? wide.Set(*characters) : wide.Set(u"");
  if (!narrowOk || !wideOk) {
    std::fflush(stdout);
    vorx_tool::Fail(kName, "not an identifier: '" + text + "'");
    return false;
  }
  VORX::String::CANSIChar const narrowText = narrow.ANSI();
  std::string const wideText = Narrow(wide);
  if (narrow != wide || !*narrowText || wideText != *narrowText) {
    std::fflush(stdout);
    vorx_tool::Fail(kName, "reads differently as bytes and as characters: '" + text + "'");
    return false;
  }
  std::printf("%s\n", *narrowText);
  return true;
}

int Run(std::vector<std::string> const & args) {
  bool fresh = false;
  bool options = true;
  std::vector<std::string> texts;
  for (std::string const & word : args) {
    if (options && word == "--") {
      options = false;
    } else if (options && word == "--new") {
      fresh = true;
    } else if (options && word.size() > 1 && word[0] == '-' && word[1] == '-') {
      return vorx_tool::Fail(kName, "unknown option '" + word + "'", 2);
    } else {
      texts.push_back(word);
    }
  }
  if (fresh) {
    if (!texts.empty()) {
      return vorx_tool::Fail(kName, "--new takes no TEXT", 2);
    }
    _qefUID id{};
    if (!VORX::QEF::_createUID(id)) {
      return vorx_tool::Fail(kName, "the system's random source failed");
    }
    VORX::String::CANSIChar const text = VORX::QEF::cqefuid(id).ANSI();
    std::printf("%s\n", *text ? *text : "");
    return *text ? 0 : 1;
  }
  if (texts.empty()) {
    return vorx_tool::Fail(kName, "needs a TEXT or --new", 2);
  }
  bool ok = true;
  for (std::string const & text : texts) {
    ok = Print(text) && ok;
  }
  return ok ? 0 : 1;
}

vorx_tool::CommandRegistration const registration(
    {kName, "print component identifiers in canonical form, or a fresh one", kUsage, &Run});

} // namespace
