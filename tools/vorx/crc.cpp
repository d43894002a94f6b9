// vorx crc: the library's CRC of files, one "checksum  name" line each.
#include <vorx/buffers.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"
#include "os.h"

namespace {

char const kName[] = "crc";

struct CrcSettings {
  std::uint64_t width = 64;
  std::uint64_t poly = 0x42F0E1EBA9EA3693;
  std::uint64_t init = 0;
};

// Bytes read per call: large enough that the checksum, which runs at memory speed, waits on
// the disk rather than on calls.
constexpr std::size_t kReadBytes = std::size_t{4} << 20;

// Reads `file` in large pieces into `crc`; false with `error` set when reading fails.
bool Digest(std::FILE * file, VORX::Buffers::CMachineCRC const & engine, std::uint64_t & crc,
            std::string & error) {
  static std::vector<unsigned char> buffer(kReadBytes);
  // The stream's own buffer would only add a copy: each read goes straight into ours.
  std::setvbuf(file, nullptr, _IONBF, 0);
  vorx_tool::OS::AdviseSequential(file);
  for (;;) {
    std::size_t const got = std::fread(buffer.data(), 1, buffer.size(), file);
    crc = engine.Eval(buffer.data(), got, crc);
    if (got < buffer.size()) {
      if (std::ferror(file)) {
        error = std::strerror(errno);
        return false;
      }
      return true;
    }
  }
}

// Reports a file that could not be read, after the lines already printed.
void FailFile(std::string const & name, std::string const & reason) {
  std::fflush(stdout);
  vorx_tool::Fail(kName, name + ": " + reason);
}

// One file ("-" is standard input): prints its line, or reports why it cannot; false on failure.
bool CrcOfFile(std::string const & name, CrcSettings const & settings,
               VORX::Buffers::CMachineCRC const & engine) {
  bool const standardInput = name == "-";
  errno = 0;
  std::FILE * file = standardInput ? stdin : std::fopen(name.c_str(), "rb");
  if (file == nullptr) {
    FailFile(name, std::strerror(errno));
    return false;
  }
  std::uint64_t crc = settings.init;
  std::string error;
  bool const ok = Digest(file, engine, crc, error);
  if (!standardInput) {
    std::fclose(file);
  }
  if (!ok) {
    FailFile(name, error);
    return false;
  }
  int const digits = static_cast<int>((settings.width + 3) / 4);
  std::printf("%0*llx  %s\n", digits, static_cast<unsigned long long>(crc), name.c_str());
  return true;
}

bool ParseOption(std::vector<std::string> const & args, std::size_t & i, std::string const & option,
                 std::uint64_t & value, bool & matched, std::string & error) {
  std::string const & word = args[i];
  std::string text;
  if (word == option) {
    if (i + 1 == args.size()) {
      error = option + " needs a value";
      return false;
    }
    text = args[++i];
  } else if (word.compare(0, option.size() + 1, option + "=") == 0) {
    text = word.substr(option.size() + 1);
  } else {
    return true;
  }
  matched = true;
  if (!vorx_tool::ParseUnsigned(text, value)) {
    error = "bad number '" + text + "' for " + option + " (decimal, or hexadecimal after 0x)";
    return false;
  }
  return true;
}

int RunCrc(std::vector<std::string> const & args) {
  CrcSettings settings;
  std::vector<std::string> files;
  bool options = true;
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (!options || word == "-" || word.empty() || word[0] != '-') {
      files.push_back(word);
      continue;
    }
    if (word == "--") {
      options = false;
      continue;
    }
    bool matched = false;
    std::string error;
    if (!ParseOption(args, i, "--width", settings.width, matched, error) ||
        (!matched && !ParseOption(args, i, "--poly", settings.poly, matched, error)) ||
        (!matched && !ParseOption(args, i, "--init", settings.init, matched, error))) {
      return vorx_tool::Fail(kName, error, 2);
    }
    if (!matched) {
      return vorx_tool::Fail(kName, "unknown option '" + word + "' (try vorx crc --help)", 2);
    }
  }
  if (settings.width < 8 || settings.width > 64) {
    return vorx_tool::Fail(kName, "width " + std::to_string(settings.width) + " is outside 8..64",
                           2);
  }
  if (settings.width < 64) {
    std::uint64_t const limit = std::uint64_t{1} << settings.width;
    if (settings.poly >= limit) {
      return vorx_tool::Fail(
          kName, "polynomial is wider than " + std::to_string(settings.width) + " bits", 2);
    }
    if (settings.init >= limit) {
      return vorx_tool::Fail(
          kName, "initial value is wider than " + std::to_string(settings.width) + " bits", 2);
    }
  }
  if (files.empty()) {
    files.push_back("-");
  }
  VORX::Buffers::CMachineCRC const engine(static_cast<unsigned>(settings.width), settings.poly);
  int status = 0;
  for (std::string const & name : files) {
    if (!CrcOfFile(name, settings, engine)) {
      status = 1;
    }
  }
  return status;
}

vorx_tool::CommandRegistration const registration({
    kName,
    "print the CRC of files (CRC-64/ECMA-182 by default)",
    "usage: vorx crc [--width W] [--poly P] [--init I] [FILE...]\n\n"
    "Prints \"checksum  name\" for each FILE: the CRC in lower-case hexadecimal, width/4 digits.\n"
    "With no FILE, or when FILE is -, reads standard input.\n\n"
    "Options (numbers in decimal, or hexadecimal after 0x):\n"
    "  --width W  CRC width in bits, 8 to 64 (default 64)\n"
    "  --poly P   generator polynomial without its top bit (default 0x42F0E1EBA9EA3693)\n"
    "  --init I   initial value (default 0)\n\n"
    "The CRC is computed most significant bit first, without reflection and without a final\n"
    "exclusive-or. Note: width 8 prints the initial value whatever the input.\n"
    "Exit status: 0, 1 when a file cannot be read (the others are still printed), 2 on bad\n"
    "options.\n",
    &RunCrc,
});

} // namespace
