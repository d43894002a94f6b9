// vorx rational: the best fraction for a number, or a fraction in lowest terms.
#include <vorx/math.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "command.h"

namespace {

using VORX::Math::CRational;

char const kName[] = "rational";

char const kUsage[] =
    "usage: vorx rational VALUE [--max-den N]\n"
    "\n"
    "Prints the fraction nearest to VALUE whose denominator is at most N (default 1000000):\n"
    "continued-fraction convergents, and the semiconvergent when it is closer. VALUE is a\n"
    "decimal number (\"29.97\", \"-0.75\", \"1e-3\") or a fraction \"A/B\", which is brought\n"
    "into lowest terms. Magnitudes must stay below 2^30 (1073741823).\n"
    "\n"
    "The first line is the fraction, the second its decimal value and the difference from\n"
    "VALUE.\n"
    "\n"
    "Example: vorx rational 29.97002997 --max-den 1001   prints 30000/1001\n";

bool ParseDouble(std::string const & text, double & value) {
  if (text.empty()) {
    return false;
  }
  char * end = nullptr;
  errno = 0;
  value = std::strtod(text.c_str(), &end);
  return end == text.c_str() + text.size() && errno != ERANGE && std::isfinite(value);
}

bool ParseInt32(std::string const & text, std::int32_t & value) {
  if (text.empty()) {
    return false;
  }
  char * end = nullptr;
  errno = 0;
  long long const number = std::strtoll(text.c_str(), &end, 10);
  if (end != text.c_str() + text.size() || errno == ERANGE || number < INT32_MIN ||
      number > INT32_MAX) {
    return false;
  }
  value = static_cast<std::int32_t>(number);
  return true;
}

int Run(std::vector<std::string> const & args) {
  std::string text;
  bool haveText = false;
  std::int32_t maxDen = 1000000;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--max-den") {
      if (i + 1 == args.size()) {
        return vorx_tool::Fail(kName, "--max-den needs a value", 2);
      }
      if (!ParseInt32(args[++i], maxDen) || maxDen < 1) {
        return vorx_tool::Fail(kName, "--max-den needs a whole number from 1 to 2147483647", 2);
      }
    } else if (haveText) {
      return vorx_tool::Fail(kName, "one VALUE only", 2);
    } else {
      text = args[i];
      haveText = true;
    }
  }
  if (!haveText) {
    return vorx_tool::Fail(kName, "no VALUE given (try vorx rational --help)", 2);
  }
  CRational result;
  double value = 0.0;
  std::size_t const slash = text.find('/');
  if (slash != std::string::npos) {
    std::int32_t num = 0;
    std::int32_t den = 0;
    if (!ParseInt32(text.substr(0, slash), num) || !ParseInt32(text.substr(slash + 1), den)) {
      return vorx_tool::Fail(kName, "cannot read '" + text + "' as a fraction A/B");
    }
    if (den == 0) {
      return vorx_tool::Fail(kName, "'" + text + "' has a zero denominator");
    }
    result = CRational(num, den);
    if (!result.isNormal()) {
      return vorx_tool::Fail(kName, "'" + text + "' does not reduce to terms below 2^30");
    }
    value = static_cast<double>(num) / static_cast<double>(den);
  } else {
    if (!ParseDouble(text, value)) {
      return vorx_tool::Fail(kName, "cannot read '" + text + "' as a number");
    }
    if (!result.fassign(value, maxDen)) {
      return vorx_tool::Fail(kName, "'" + text + "' is beyond the range of 1073741823");
    }
  }
  std::printf("%d/%u\n", result.num(), result.den());
  std::printf("= %.12g (difference %.3g)\n", result.fract(), result.fract() - value);
  return 0;
}

vorx_tool::CommandRegistration const registration(
    {kName, "the best fraction for a number (rates such as 30000/1001)", kUsage, &Run});

} // namespace
