// vorx url: percent-encoding with the library's URL functions, one line of output per text.
#include <vorx/internetional.h>

#include <cstdio>
#include <string>
#include <vector>

#include "command.h"

namespace {

char const kName[] = "url";

char const kUsage[] =
    "usage: vorx url encode [--allow CHARS] [TEXT]\n"
    "       vorx url decode [TEXT]\n"
    "       vorx url check [--allow CHARS] [TEXT]\n\n"
    "Percent-encodes, decodes or checks TEXT, or each line of standard input when no TEXT is\n"
    "given, printing one line per text. Bytes other than letters, digits, \"-._~\" and the\n"
    "CHARS of --allow are escaped as %XX (upper case); every byte from 0x80 up is escaped.\n"
    "Decoding keeps a \"%\" that is not followed by two hexadecimal digits.\n\n"
    "Options:\n"
    "  --allow CHARS  further bytes to leave unescaped (encode, check)\n"
    "  -h, --help     show this help\n\n"
    "Exit status: 0 on success; for check, 1 when a text is not URL-encoded; 2 on a usage\n"
    "error.\n";

enum class Action { Encode, Decode, Check };

auto const * Bytes(std::string const & text) {
  return reinterpret_cast<unsigned char const *>(text.c_str());
}

// Runs `action` on one text; false when a check fails.
bool Apply(Action action, std::string const & text, std::string const & allowed) {
  unsigned char const * const allow = allowed.empty() ? nullptr : Bytes(allowed);
  switch (action) {
  case Action::Encode: {
    std::string out(VORX::Internetional::URL_encoderequired(Bytes(text), allow) + 1, '\0');
    VORX::Internetional::URL_encodebuffer(reinterpret_cast<unsigned char *>(out.data()),
                                          Bytes(text), allow);
    std::printf("%s\n", out.c_str());
    return true;
  }
  case Action::Decode: {
    std::string out(text.size() + 1, '\0');
    VORX::Internetional::URL_decodebuffer(reinterpret_cast<unsigned char *>(out.data()),
                                          Bytes(text));
    std::printf("%s\n", out.c_str());
    return true;
  }
  case Action::Check:
    if (VORX::Internetional::URL_checkescape(Bytes(text), allow)) {
      return true;
    }
    std::fflush(stdout);
    vorx_tool::Fail(kName, "not URL-encoded: " + text);
    return false;
  }
  return false;
}

// Each line of standard input, without its line end.
bool ApplyToLines(Action action, std::string const & allowed) {
  bool ok = true;
  std::string line;
  int c;
  bool pending = false;
  while ((c = std::getchar()) != EOF) {
    if (c == '\n') {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      ok = Apply(action, line, allowed) && ok;
      line.clear();
      pending = false;
    } else {
      line += static_cast<char>(c);
      pending = true;
    }
  }
  if (pending) {
    ok = Apply(action, line, allowed) && ok;
  }
  return ok;
}

int Run(std::vector<std::string> const & args) {
  if (args.empty()) {
    return vorx_tool::Fail(kName, "needs an action: encode, decode or check", 2);
  }
  Action action;
  if (args[0] == "encode") {
    action = Action::Encode;
  } else if (args[0] == "decode") {
    action = Action::Decode;
  } else if (args[0] == "check") {
    action = Action::Check;
  } else {
    return vorx_tool::Fail(kName, "unknown action '" + args[0] + "' (encode, decode or check)", 2);
  }
  std::string allowed;
  std::vector<std::string> texts;
  bool options = true;
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (options && word == "--") {
      options = false;
    } else if (options && action != Action::Decode && word == "--allow") {
      if (i + 1 == args.size()) {
        return vorx_tool::Fail(kName, "--allow needs a value", 2);
      }
      allowed = args[++i];
    } else if (options && action != Action::Decode && word.rfind("--allow=", 0) == 0) {
      allowed = word.substr(8);
    } else if (options && word.size() > 1 && word[0] == '-') {
      return vorx_tool::Fail(kName, "unknown option '" + word + "'", 2);
    } else {
      texts.push_back(word);
    }
  }
  if (texts.size() > 1) {
    return vorx_tool::Fail(kName, "takes at most one TEXT (quote it)", 2);
  }
  bool const ok = texts.empty() ? ApplyToLines(action, allowed) : Apply(action, texts[0], allowed);
  return ok ? 0 : 1;
}

vorx_tool::CommandRegistration const
    registration({kName, "percent-encode, decode or check text for URLs", kUsage, &Run});

} // namespace
