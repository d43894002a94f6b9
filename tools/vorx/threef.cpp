// vorx 3f: bytes to three-F text (UTF-8, one line) and back, with the library's encoders.
#include <vorx/string.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"

namespace {

using VORX::Buffers::CPPlainMemory;
using VORX::String::CPPoolString;

char const kName[] = "3f";

char const kUsage[] =
    "usage: vorx 3f encode [--fff] [--pad] [FILE]\n"
    "       vorx 3f decode [--fff] [--pad] [FILE]\n"
    "\n"
    "encode reads the bytes of FILE (standard input when FILE is \"-\" or missing) and prints\n"
    "their 3F text, 3 bytes in 4 characters from \"!\" up after a header character, as one\n"
    "line of UTF-8. decode reads such text (a final line end is ignored) and writes the bytes.\n"
    "\n"
    "The decoder rejects the text of a whole number of groups (a size that is a multiple of 3,\n"
    "or of 7 with --fff, including no bytes at all): encode warns about it. --pad carries every\n"
    "size: encode appends the byte 0x80, and one 0x00 when the size is then a multiple of the\n"
    "group, and decode removes them again.\n"
    "\n"
    "Options:\n"
    "  --fff       3FFF instead: 7 bytes in 4 characters of U+4000..U+7FFF\n"
    "  --pad       add (encode) or remove (decode) the padding described above\n"
    "  -h, --help  show this help\n"
    "\n"
    "Exit status: 0 on success, 1 when the input cannot be read or decoded, 2 on a usage error.\n"
    "\n"
    "Example: printf 'hello' | vorx 3f encode | vorx 3f decode   prints hello\n";

bool ReadAll(std::string const & name, std::vector<std::uint8_t> & bytes, std::string & error) {
  bool const standardInput = name == "-";
  std::FILE * file = standardInput ? stdin : std::fopen(name.c_str(), "rb");
  if (!file) {
    error = name + ": " + std::strerror(errno);
    return false;
  }
  std::uint8_t buffer[65536];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
    bytes.insert(bytes.end(), buffer, buffer + got);
  }
  bool const failed = std::ferror(file) != 0;
  if (failed) {
    error = (standardInput ? std::string("standard input") : name) + ": " + std::strerror(errno);
  }
  if (!standardInput) {
    std::fclose(file);
  }
  return !failed;
}

// Why the decoder rejects `text` (its header and length are judged first, as the decoder does).
std::string Rejection(std::u16string const & text, bool fff) {
  char const * const scheme = fff ? "3FFF" : "3F";
  unsigned const group = fff ? 7 : 3;
  unsigned const high = fff ? 0x03 : 0x01;
  if (text.empty()) {
    return "no text to decode";
  }
  if (text[0] >> 8 != high) {
    return std::string("the text does not start with a ") + scheme + " header";
  }
  unsigned const padding = text[0] & 0xFFu;
  char header[16];
  std::snprintf(header, sizeof header, "U+%04X", static_cast<unsigned>(text[0]));
  if (padding == group) {
    return std::string("header ") + header + " marks a whole number of groups, which the " +
           scheme + " decoder rejects (encode with --pad)";
  }
  if (padding > group) {
    return std::string("header ") + header + " is not a " + scheme + " header";
  }
  if ((text.size() - 1) % 4 != 0) {
    return "the text after the header is not a whole number of 4-character groups";
  }
  if (text.size() == 1) {
    return std::string("header ") + header + " announces padding the text does not have";
  }
  return std::string("a character lies outside the ") + scheme + " alphabet";
}

int Encode(std::vector<std::uint8_t> bytes, bool fff, bool pad) {
  std::size_t const group = fff ? 7 : 3;
  if (pad) {
    bytes.push_back(0x80);
    if (bytes.size() % group == 0) {
      bytes.push_back(0x00);
    }
  } else if (bytes.size() % group == 0) {
    vorx_tool::Fail(kName,
                    "note: " + std::to_string(bytes.size()) + " bytes are a whole number of " +
                        std::to_string(group) +
                        "-byte groups; the decoder rejects this text (use --pad)",
                    0);
  }
  CPPoolString const text =
      fff ? CPPoolString(VORX::String::C3FFFEncoder(bytes.data(), bytes.size()))
          : CPPoolString(VORX::String::C3FEncoder(bytes.data(), bytes.size()));
  if (text.isnull()) {
    return vorx_tool::Fail(kName, "out of memory");
  }
  auto const * utf8 = static_cast<unsigned char const *>(text);
  if (text.UTF8Size() == 0 || utf8[0] == 0) {
    return vorx_tool::Fail(kName, "out of memory");
  }
  std::printf("%s\n", reinterpret_cast<char const *>(utf8));
  return 0;
}

int Decode(std::vector<std::uint8_t> const & input, bool fff, bool pad) {
  std::size_t end = input.size();
  while (end > 0 && (input[end - 1] == '\n' || input[end - 1] == '\r' || input[end - 1] == ' ' ||
                     input[end - 1] == '\t')) {
    --end; // the text itself never ends in an ASCII blank
  }
  if (std::memchr(input.data(), 0, end) != nullptr) {
    return vorx_tool::Fail(kName, "the input holds a zero byte");
  }
  std::u16string text;
  if (end > 0) {
    std::uint64_t const units = VORX::String::UTF8_To_qefWChar(input.data(), end, nullptr, 0);
    if (units == 0) {
      return vorx_tool::Fail(kName, "the input is not well-formed UTF-8");
    }
    text.resize(units);
    VORX::String::UTF8_To_qefWChar(input.data(), end, text.data(), units);
    text.resize(units - 1);
  }
  CPPlainMemory const bytes = fff ? CPPlainMemory(VORX::String::C3FFFDecoder(text.c_str()))
                                  : CPPlainMemory(VORX::String::C3FDecoder(text.c_str()));
  std::uint64_t const expected = fff ? VORX::String::_3FFFDecodedSize(text.c_str(), text.size())
                                     : VORX::String::_3FDecodedSize(text.c_str(), text.size());
  std::size_t size = bytes.GetMemorySize();
  if (size == 0 && expected != 0) {
    if (expected != ~std::uint64_t{0}) {
      // Header and length are right: either a character is wrong or the block was not had.
      std::vector<std::uint8_t> scratch(expected);
      if ((fff ? VORX::String::_3FFFDecode : VORX::String::_3FDecode)(scratch.data(), text.c_str(),
                                                                      text.size())) {
        return vorx_tool::Fail(kName, "out of memory");
      }
    }
    return vorx_tool::Fail(kName, Rejection(text, fff));
  }
  auto const * data = static_cast<std::uint8_t const *>(static_cast<void const *>(bytes));
  if (pad) {
    while (size > 0 && data[size - 1] == 0x00) {
      --size;
    }
    if (size == 0 || data[size - 1] != 0x80) {
      return vorx_tool::Fail(kName, "no padding at the end of the bytes (encoded without --pad?)");
    }
    --size;
  }
  if (size > 0 && std::fwrite(data, 1, size, stdout) != size) {
    return vorx_tool::Fail(kName, std::string("standard output: ") + std::strerror(errno));
  }
  return 0;
}

int Run(std::vector<std::string> const & args) {
  if (args.empty()) {
    return vorx_tool::Fail(kName, "needs an action: encode or decode", 2);
  }
  bool const encode = args[0] == "encode";
  if (!encode && args[0] != "decode") {
    return vorx_tool::Fail(kName, "unknown action '" + args[0] + "' (encode or decode)", 2);
  }
  bool fff = false, pad = false, options = true;
  std::vector<std::string> files;
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (options && word == "--") {
      options = false;
    } else if (options && word == "--fff") {
      fff = true;
    } else if (options && word == "--pad") {
      pad = true;
    } else if (options && word.size() > 1 && word[0] == '-') {
      return vorx_tool::Fail(kName, "unknown option '" + word + "'", 2);
    } else {
      files.push_back(word);
    }
  }
  if (files.size() > 1) {
    return vorx_tool::Fail(kName, "takes at most one FILE", 2);
  }
  std::vector<std::uint8_t> input;
  std::string error;
  if (!ReadAll(files.empty() ? "-" : files[0], input, error)) {
    return vorx_tool::Fail(kName, error);
  }
  return encode ? Encode(std::move(input), fff, pad) : Decode(input, fff, pad);
}

vorx_tool::CommandRegistration const
    registration({kName, "three-F escaping: bytes to compact text and back", kUsage, &Run});

} // namespace
