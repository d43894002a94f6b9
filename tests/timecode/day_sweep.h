// Test support: walks every frame of a 24-hour day of one system beside the label oracle and
// checks that position -> label -> position and position -> short text -> position hold, and
// (on a sparser stride) the long text form, negative positions and positions days later.
#pragma once

#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <vorx/timecode.h>

#include "timecode/label_walker.h"

namespace vorx::test {

struct SweepResult {
  std::int64_t checked = 0;
  std::int64_t failures = 0;
  std::string first; // the first failure, described
};

// Checks every `stride`-th frame fully against the oracle and every `stride * sparse`-th frame
// through the long form and at negative and later positions.
inline SweepResult SweepDay(std::uint32_t system, std::int64_t stride, std::int64_t sparse) {
  using namespace VORX::TimeCode;
  SweepResult result;
  auto const check = [&](bool ok, std::int64_t frame, char const * what) {
    if (!ok && result.failures++ == 0) {
      result.first =
          std::string(kFacts[system].name) + " frame " + std::to_string(frame) + ": " + what;
    }
  };
  // The label of `position` is `expected` on day `days`, and composes back to `position`.
  auto const reads = [](std::int64_t position, std::uint32_t word, Label const & expected,
                        std::int64_t days) {
    TCINFO const info(position, word);
    return Label{info.hh(), info.mm(), info.ss(), info.ff()} == expected && info.dd() == days &&
           static_cast<std::int64_t>(info) == position;
  };
  SystemFacts const & facts = kFacts[system];
  std::int64_t const dayBU = facts.framesPerDay * facts.frameBU;
  LabelWalker walker(system);
  for (std::int64_t frame = 0; frame < facts.framesPerDay; ++frame, walker.Next()) {
    if (frame % stride != 0) {
      continue;
    }
    ++result.checked;
    std::int64_t const position = frame * facts.frameBU;
    check(reads(position, system, walker.label(), 0), frame, "label or label -> position");
    TCINFO const read{SZTC(TCINFO(position, system))};
    check(read.sys() == system && static_cast<std::int64_t>(read) == position, frame,
          "short text -> position");
    if (frame % (stride * sparse) != 0) {
      continue;
    }
    timecode const value(position, system);
    timecode const back = SZUTC(value);
    // "PAL(PX)" reads back unassigned, on purpose.
    check(system == TC_PAL_PX ? back.GetSystem() == TC_UNASSIGNED : back == value, frame,
          "long text -> value");
    check(frame == 0 || reads(-position, system, walker.label(), -1), frame, "negative position");
    check(frame == 0 || static_cast<std::int64_t>(SZTC(-position, system)) == -position, frame,
          "negative short text");
    check(reads(position + 5 * dayBU, system, walker.label(), 5), frame, "five days later");
  }
  check(walker.label() == Label{24, 0, 0, 0}, facts.framesPerDay, "the oracle's day end");
  check(reads(dayBU, system, Label{0, 0, 0, 0}, 1), facts.framesPerDay, "the day's length");
  return result;
}

} // namespace vorx::test
