// The vorx tool's subcommands: each file registers one with a static `CommandRegistration`.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorx_tool {

struct Command {
  char const * name;    // the word after "vorx"
  char const * summary; // one line for "vorx --help"
  char const * usage;   // the text of "vorx NAME --help"
  // Runs the subcommand; `args` are the words after its name. Returns the exit status.
  int (*run)(std::vector<std::string> const & args);
};

// Registers a subcommand at static initialisation.
struct CommandRegistration {
  explicit CommandRegistration(Command const & command);
};

std::vector<Command> const & Commands();

// Prints "vorx NAME: message" to standard error; returns the exit status 2 (usage) or 1.
int Fail(char const * name, std::string const & message, int status = 1);

// True when one of `args` is "--help" or "-h".
bool WantsHelp(std::vector<std::string> const & args);

// Reads an unsigned number in decimal, or hexadecimal after "0x"; false when `text` is not one
// or does not fit 64 bits.
bool ParseUnsigned(std::string_view text, std::uint64_t & value);

} // namespace vorx_tool
