// Test support: walks every frame of a 24-hour day of one system beside the label oracle and
// checks that position -> label -> position and position -> short text -> position hold, and
// (on a sparser stride) the long text form, negative positions and positions days later.
#pragma once

#include <cstdint>

#include <gtest/gtest.h>
#include <vorx/timecode.h>

#include "timecode/label_walker.h"

namespace vorx::test {

// Checks every `stride`-th frame fully against the oracle and every `stride * sparse`-th frame
// through the long form and at negative and later positions; stops at the first failure (which
// it adds to the test) and answers how many frames it checked.
inline std::int64_t SweepDay(std::uint32_t system, std::int64_t stride, std::int64_t sparse) {
  using namespace VORX::TimeCode;
  std::int64_t checked = 0;
  auto const check = [&](bool ok, std::int64_t frame, char const * what) {
    if (!ok) {
      ADD_FAILURE() << kFacts[system].name << " frame " << frame << ": " << what;
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
  for (std::int64_t frame = 0; frame < facts.framesPerDay && !::testing::Test::HasFailure();
       ++frame, walker.Next()) {
    if (frame % stride != 0) {
      continue;
    }
    ++checked;
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
  return checked;
}

} // namespace vorx::test
