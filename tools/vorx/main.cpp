// vorx: the command-line face of the VORX library.
#include <vorx/vorx.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command.h"

namespace vorx_tool {
namespace {

std::vector<Command> & Registry() {
  static std::vector<Command> commands;
  return commands;
}

// Logger for -v: every log line, formatted, to standard error (the debugger channel).
void StderrLogger(_qefDebugLevel level, qefWChar const * category, char const * file, int line,
                  qefWChar const * format, std::va_list arguments) {
  qefWChar message[2048];
  VORX::String::_vsnwprintf(message, 2048, format, arguments);
  qefWChar prefix[512];
  VORX::Develop::_formatLogPrefix(prefix, 512, VORX::Develop::OS::_processClock(), level, category,
                                  file, line);
  VORX::Develop::OS::OutputDebugMessage(prefix);
  VORX::Develop::OS::OutputDebugMessage(message);
  VORX::Develop::OS::OutputDebugMessage(u"\n");
}

void PrintHelp() {
  std::printf("usage: vorx [-v] COMMAND [ARGS...]\n"
              "       vorx --help | --version\n\n"
              "Options:\n"
              "  -v, --verbose  print the library's log lines to standard error\n"
              "  -h, --help     show this help (\"vorx COMMAND --help\" for a command)\n"
              "  --version      show the version\n\n"
              "Commands:\n");
  std::vector<Command> commands = Commands();
  std::sort(commands.begin(), commands.end(),
            [](Command const & a, Command const & b) { return std::strcmp(a.name, b.name) < 0; });
  for (Command const & c : commands) {
    std::printf("  %-10s %s\n", c.name, c.summary);
  }
}

} // namespace

CommandRegistration::CommandRegistration(Command const & command) {
  Registry().push_back(command);
}

std::vector<Command> const & Commands() {
  return Registry();
}

int Fail(char const * name, std::string const & message, int status) {
  std::fprintf(stderr, "vorx %s: %s\n", name, message.c_str());
  return status;
}

bool WantsHelp(std::vector<std::string> const & args) {
  return std::any_of(args.begin(), args.end(),
                     [](std::string const & a) { return a == "--help" || a == "-h"; });
}

bool ParseUnsigned(std::string_view text, std::uint64_t & value) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) {
    return false;
  }
  std::uint64_t result = 0;
  for (char ch : text) {
    unsigned digit;
    if (ch >= '0' && ch <= '9') {
      digit = static_cast<unsigned>(ch - '0');
    } else if (base == 16 && ch >= 'a' && ch <= 'f') {
      digit = static_cast<unsigned>(ch - 'a' + 10);
    } else if (base == 16 && ch >= 'A' && ch <= 'F') {
      digit = static_cast<unsigned>(ch - 'A' + 10);
    } else {
      return false;
    }
    if (digit >= static_cast<unsigned>(base) ||
        result > (UINT64_MAX - digit) / static_cast<unsigned>(base)) {
      return false;
    }
    result = result * static_cast<unsigned>(base) + digit;
  }
  value = result;
  return true;
}

} // namespace vorx_tool

int main(int argc, char ** argv) {
  using namespace vorx_tool;
  int i = 1;
  for (; i < argc && argv[i][0] == '-'; ++i) {
    std::string_view const option = argv[i];
    if (option == "-h" || option == "--help") {
      PrintHelp();
      return 0;
    }
    if (option == "--version") {
      std::printf("vorx %s\n", VORX_VERSION_STRING);
      return 0;
    }
    if (option == "-v" || option == "--verbose") {
      VORX::Develop::SetExternalLogger(&StderrLogger);
      continue;
    }
    std::fprintf(stderr, "vorx: unknown option '%s' (try vorx --help)\n", argv[i]);
    return 2;
  }
  if (i == argc) {
    PrintHelp();
    return 2;
  }
  std::string_view const name = argv[i];
  for (Command const & c : Commands()) {
    if (name == c.name) {
      std::vector<std::string> args(argv + i + 1, argv + argc);
      if (WantsHelp(args)) {
        std::printf("%s", c.usage);
        return 0;
      }
      // Every command runs with the library started, as a host would run it.
      VORX::AppInit();
      int const status = c.run(args);
      VORX::AppExit();
      return status;
    }
  }
  std::fprintf(stderr, "vorx: unknown command '%s' (try vorx --help)\n", argv[i]);
  return 2;
}
