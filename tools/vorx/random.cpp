// vorx random: numbers from the library's generators, one per line.
#include <vorx/develop.h>
#include <vorx/random.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "command.h"

namespace {

char const kName[] = "random";

char const kUsage[] =
    "usage: vorx random [--seed N] [--count N] [--real] [--mono]\n"
    "\n"
    "Prints COUNT (default 10) pseudo-random numbers, one per line.\n"
    "\n"
    "By default they are 32-bit words (0..4294967295) of the library's Mersenne-Twister\n"
    "sequence: from the process-wide generator, seeded from the clock, or, with --seed, from\n"
    "a generator seeded with N. The first 624 words after seeding are the seeded state itself,\n"
    "tempered, so the sequence differs from the published MT19937 one.\n"
    "\n"
    "Options:\n"
    "  --seed N   seed (decimal, or hexadecimal after 0x; at most 0xFFFFFFFF)\n"
    "  --count N  how many numbers to print\n"
    "  --real     numbers from 0 to 1 inclusive instead of words (the word / 4294967295)\n"
    "  --mono     the small linear congruential generator instead: 0..32767, seed 1 by\n"
    "             default (its numbers then begin 41, 18467, 6334)\n"
    "  -h, --help show this help\n";

bool ReadValue(std::vector<std::string> const & args, std::size_t & i, std::uint64_t & value,
               std::uint64_t max, int & status) {
  std::string const & option = args[i];
  if (i + 1 == args.size()) {
    status = vorx_tool::Fail(kName, option + " needs a value", 2);
    return false;
  }
  std::string const & text = args[++i];
  if (!vorx_tool::ParseUnsigned(text, value) || value > max) {
    status = vorx_tool::Fail(kName, "bad value for " + option + ": '" + text + "'", 2);
    return false;
  }
  return true;
}

int Run(std::vector<std::string> const & args) {
  std::uint64_t seed = 0, count = 10;
  bool seeded = false, real = false, mono = false;
  int status = 0;
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string const & word = args[i];
    if (word == "--seed") {
      if (!ReadValue(args, i, seed, 0xFFFFFFFFu, status)) {
        return status;
      }
      seeded = true;
    } else if (word == "--count") {
      if (!ReadValue(args, i, count, ~std::uint64_t{0}, status)) {
        return status;
      }
    } else if (word == "--real") {
      real = true;
    } else if (word == "--mono") {
      mono = true;
    } else {
      return vorx_tool::Fail(kName, "unknown argument '" + word + "'", 2);
    }
  }
  if (mono && real) {
    return vorx_tool::Fail(kName, "--real does not apply to --mono", 2);
  }

  if (mono) {
    VORX::Random::CMonoRand generator(seeded ? static_cast<int>(seed) : 1);
    for (std::uint64_t i = 0; i < count; ++i) {
      std::printf("%d\n", generator.rand());
    }
    return 0;
  }
  VORX::Develop::CMTRandom generator;
  if (seeded) {
    generator.seed(static_cast<std::uint32_t>(seed));
  }
  for (std::uint64_t i = 0; i < count; ++i) {
    if (real) {
      std::printf("%.10f\n", seeded ? generator.drnd() : VORX::Develop::_drandom(1.0));
    } else {
      std::printf("%u\n",
                  static_cast<unsigned>(seeded ? generator.rnd() : VORX::Develop::_random()));
    }
  }
  return 0;
}

vorx_tool::CommandRegistration const
    registration({kName, "pseudo-random numbers from the library's generators", kUsage, &Run});

} // namespace
