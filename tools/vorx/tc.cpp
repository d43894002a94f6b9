// vorx tc: reads a timecode and shows it in every form; converts and adds.
#include <vorx/string.h>
#include <vorx/timecode.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "command.h"

namespace {

using VORX::TimeCode::SZTC;
using VORX::TimeCode::SZUTC;
using VORX::TimeCode::TCINFO;
using VORX::TimeCode::timecode;

char const kName[] = "tc";

char const kUsage[] =
    "usage: vorx tc TIMECODE [--system NAME] [--to NAME] [--add VALUE] [--sub VALUE]...\n"
    "\n"
    "Reads a timecode and prints its system, position in base units (1/1200 s of nominal\n"
    "rate), frames, seconds, short form and long form.\n"
    "\n"
    "TIMECODE is the short form, whose separators choose the system (\"01:00:00:00\" PAL,\n"
    "\"01:00:00.00\" NTSC, \"01.00:00.00\" NTSC(DF), ...; missing fields are completed from\n"
    "the right: \"1:00\" is one second), or the long form (\"01:00:00:00 {30000/1001}Hz/D\").\n"
    "With --system NAME it may also be a position in base units (a plain integer), and a\n"
    "short-form label is read in that system whatever its separators. Labels are checked:\n"
    "a label that a drop-frame system skips is refused.\n"
    "\n"
    "Options, applied in the order given:\n"
    "  --system NAME  the system of TIMECODE (see below)\n"
    "  --to NAME      convert to another system, aligning to the nearest of its frames\n"
    "  --add VALUE    add a timecode, or a number of frames of the current system\n"
    "  --sub VALUE    subtract one\n"
    "\n"
    "Systems: PAL, NTSC, NTSC(DF), FILM, HDFILM, HDFILM(DF), HD50, HDNTSC, HDNTSC(DF),\n"
    "PAL(PX), NTSC(PX), FILM(PX), HD30, HD60 (case ignored; \"DF\" may also be written\n"
    "\"NTSC-DF\"), or their index 0-13.\n"
    "\n"
    "Example: vorx tc 00.01:00.02 --to HDNTSC(DF)\n";

// Wide text as UTF-8, through the library's converter.
std::string Narrow(qefWChar const * text) {
  std::uint64_t const bytes =
      VORX::String::qefWChar_To_UTF8(text, VORX::String::qefAllOnes, nullptr, 0);
  if (bytes == 0) {
    return std::string();
  }
  std::string out(static_cast<std::size_t>(bytes), '\0');
  VORX::String::qefWChar_To_UTF8(text, VORX::String::qefAllOnes,
                                 reinterpret_cast<unsigned char *>(out.data()), bytes);
  out.resize(static_cast<std::size_t>(bytes - 1));
  return out;
}

// UTF-8 text as wide characters, through the library's converter; false when it is not UTF-8.
bool Widen(std::string const & text, std::u16string & wide) {
  auto const bytes = reinterpret_cast<unsigned char const *>(text.c_str());
  std::uint64_t const units =
      VORX::String::UTF8_To_qefWChar(bytes, VORX::String::qefAllOnes, nullptr, 0);
  if (units == 0) {
    return false;
  }
  wide.assign(static_cast<std::size_t>(units), u'\0');
  VORX::String::UTF8_To_qefWChar(bytes, VORX::String::qefAllOnes, wide.data(), units);
  wide.resize(static_cast<std::size_t>(units - 1));
  return true;
}

std::string Canonical(std::string name) {
  std::string out;
  for (char ch : name) {
    if (ch >= 'a' && ch <= 'z') {
      ch = static_cast<char>(ch - 'a' + 'A');
    }
    if (ch != '(' && ch != ')' && ch != '-' && ch != '_' && ch != ' ') {
      out += ch;
    }
  }
  return out;
}

// A system by name or index; false when there is none.
bool SystemByName(std::string const & name, std::uint32_t & system) {
  std::uint64_t index = 0;
  if (vorx_tool::ParseUnsigned(name, index)) {
    system = static_cast<std::uint32_t>(index);
    return index < VORX::TimeCode::TC_SYSTEMS;
  }
  for (std::uint32_t i = 0; i < VORX::TimeCode::TC_SYSTEMS; ++i) {
    if (Canonical(Narrow(timecode::GetSystemString(i))) == Canonical(name)) {
      system = i;
      return true;
    }
  }
  return false;
}

bool ParseSigned(std::string const & text, std::int64_t & value) {
  if (text.empty()) {
    return false;
  }
  bool const negative = text[0] == '-';
  std::uint64_t magnitude = 0;
  if (!vorx_tool::ParseUnsigned(negative || text[0] == '+' ? text.substr(1) : text, magnitude) ||
      magnitude > (negative ? UINT64_C(9223372036854775808) : UINT64_C(9223372036854775807))) {
    return false;
  }
  value =
      negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
  return true;
}

// Reads a timecode from text; `system` > 13 when none was given. Empty `error` on success.
timecode ReadTimecode(std::string const & text, std::uint32_t system, std::string & error) {
  std::int64_t position = 0;
  if (system < VORX::TimeCode::TC_SYSTEMS && ParseSigned(text, position)) {
    return timecode(position, system);
  }
  std::u16string wide;
  if (!Widen(text, wide)) {
    error = "cannot read '" + text + "' as a timecode (not UTF-8)";
    return timecode();
  }
  if (text.find("Hz") != std::string::npos) {
    timecode const value = SZUTC(wide.c_str());
    if (!value.IsValid()) {
      error = "cannot read '" + text + "' as a long-form timecode";
    }
    return value;
  }
  if (system < VORX::TimeCode::TC_SYSTEMS) {
    for (char16_t & ch : wide) { // the given system decides, not the separators
      if (ch == '.' || ch == ',' || ch == ';') {
        ch = u':';
      }
    }
  }
  SZTC const shortForm(wide.c_str());
  TCINFO const info(shortForm);
  if (!info.IsDefined()) {
    error = (info.sys() & VORX::TimeCode::TC_UNDEFINED) != 0
                ? "cannot read '" + text + "' as a timecode"
                : "the separators of '" + text + "' name no system (try --system NAME)";
    return timecode();
  }
  // Checked again as a label, in the given system or the one of the separators.
  std::uint32_t hours = 0;
  std::int32_t sign = 1;
  info.GetInfo(&hours, nullptr, nullptr, nullptr, &sign, nullptr);
  std::uint32_t const target = system < VORX::TimeCode::TC_SYSTEMS ? system : info.sys();
  timecode value(static_cast<std::int32_t>(hours > 743 ? 744 : hours), info.mm(), info.ss(),
                 info.ff(), target);
  if (!value.IsValid()) {
    error = "'" + text + "' is not a label of " + Narrow(timecode::GetSystemString(target));
    return timecode();
  }
  return sign < 0 ? -value : value;
}

void Print(timecode const & value) {
  std::uint32_t rate = 0;
  std::uint32_t scale = 0;
  value.GetFrameRateScale(rate, scale);
  std::uint32_t const system = value.GetSystem();
  std::printf("system: %s\n", Narrow(value.GetSystemString()).c_str());
  std::printf("rate: %u/%u\n", rate, scale);
  std::printf("position: %lld\n", static_cast<long long>(value.GetPosition()));
  std::printf("frames: %lld%s\n", static_cast<long long>(value.Frames(system, -1)),
              value.AssertAligned() ? "" : " (between frames)");
  std::printf("seconds: %.6f\n", static_cast<double>(value));
  std::printf("short: \"%s\"\n", Narrow(SZTC(value).c_str()).c_str());
  std::printf("long: \"%s\"\n", Narrow(SZUTC(value).c_str()).c_str());
}

int Run(std::vector<std::string> const & args) {
  std::string text;
  bool haveText = false;
  std::uint32_t system = 0xFFFFFFFF;
  // First pass: the text and --system, which decides how the text is read.
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (word == "--system" || word == "--to" || word == "--add" || word == "--sub") {
      if (i + 1 == args.size()) {
        return vorx_tool::Fail(kName, word + " needs a value", 2);
      }
      if (word == "--system" && !SystemByName(args[i + 1], system)) {
        return vorx_tool::Fail(kName, "unknown system '" + args[i + 1] + "'");
      }
      ++i;
    } else if (word.size() > 2 && word[0] == '-' && word[1] == '-') {
      return vorx_tool::Fail(kName, "unknown option '" + word + "' (try vorx tc --help)", 2);
    } else if (haveText) {
      return vorx_tool::Fail(kName, "one TIMECODE only (quote a text with blanks)", 2);
    } else {
      text = word;
      haveText = true;
    }
  }
  if (!haveText) {
    return vorx_tool::Fail(kName, "no TIMECODE given (try vorx tc --help)", 2);
  }
  std::string error;
  timecode value = ReadTimecode(text, system, error);
  if (!error.empty()) {
    return vorx_tool::Fail(kName, error);
  }
  // Second pass: the operations, in order.
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (word == "--system") {
      ++i;
    } else if (word == "--to") {
      std::uint32_t target = 0;
      if (!SystemByName(args[++i], target)) {
        return vorx_tool::Fail(kName, "unknown system '" + args[i] + "'");
      }
      value.AlignToSystem(target);
    } else if (word == "--add" || word == "--sub") {
      std::string const & operand = args[++i];
      std::int64_t frames = 0;
      timecode other;
      if (ParseSigned(operand, frames)) {
        other = timecode(frames, value.GetSystem()) * static_cast<int>(value.GetFrameBU());
        if (!other.IsValid()) {
          return vorx_tool::Fail(kName, "'" + operand + "' frames is out of range");
        }
      } else {
        other = ReadTimecode(operand, system, error);
        if (!error.empty()) {
          return vorx_tool::Fail(kName, error);
        }
      }
      value = word == "--add" ? value + other : value - other;
    }
    if (!value.IsValid()) {
      return vorx_tool::Fail(kName, "the result is out of range after " + word);
    }
  }
  Print(value);
  return 0;
}

vorx_tool::CommandRegistration const
    registration({kName, "read, convert and add timecodes in the fourteen systems", kUsage, &Run});

} // namespace
