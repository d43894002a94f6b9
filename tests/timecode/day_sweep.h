// Test support: walks every frame of a 24-hour day of one system beside the label oracle and
// checks that position -> label -> position and position -> short text -> position hold, and
// (on a sparser stride) the long text form, negative positions and positions days later.
#pragma once

#include <cstdint>
#include <sstream>
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
  auto const fail = [&](std::int64_t frame, char const * what) {
    if (result.failures++ == 0) {
      std::ostringstream out;
      out << kFacts[system].name << " frame " << frame << ": " << what;
      result.first = out.str();
    }
  };
  SystemFacts const & facts = kFacts[system];
  std::int64_t const dayBU = facts.framesPerDay * facts.frameBU;
  std::int64_t const later = 5 * dayBU;
  LabelWalker walker(system);
  for (std::int64_t frame = 0; frame < facts.framesPerDay; ++frame, walker.Next()) {
    if (frame % stride != 0) {
      continue;
    }
    ++result.checked;
    std::int64_t const position = frame * facts.frameBU;
    Label const & expected = walker.label();
    TCINFO const info(position, system);
    if (!(Label{info.hh(), info.mm(), info.ss(), info.ff()} == expected) || info.dd() != 0) {
      fail(frame, "label differs from the oracle");
    }
    if (static_cast<std::int64_t>(info) != position) {
      fail(frame, "label -> position");
    }
    SZTC const text(info);
    TCINFO const read(text);
    if (read.sys() != system || static_cast<std::int64_t>(read) != position) {
      fail(frame, "short text -> position");
    }
    if (frame % (stride * sparse) != 0) {
      continue;
    }
    timecode const value(position, system);
    timecode const back = SZUTC(value);
    if (system == TC_PAL_PX ? back.GetSystem() != TC_UNASSIGNED
                            : back != value) { // "PAL(PX)" reads back unassigned, on purpose
      fail(frame, "long text -> value");
    }
    if (frame != 0) {
      TCINFO const negative(-position, system);
      if (!(Label{negative.hh(), negative.mm(), negative.ss(), negative.ff()} == expected) ||
          negative.dd() != -1 || static_cast<std::int64_t>(negative) != -position) {
        fail(frame, "negative position");
      }
      if (static_cast<std::int64_t>(SZTC(-position, system)) != -position) {
        fail(frame, "negative short text");
      }
    }
    TCINFO const beyond(position + later, system);
    if (!(Label{beyond.hh(), beyond.mm(), beyond.ss(), beyond.ff()} == expected) ||
        beyond.dd() != 5 || static_cast<std::int64_t>(beyond) != position + later) {
      fail(frame, "five days later");
    }
  }
  if (!(walker.label() == Label{24, 0, 0, 0})) {
    fail(facts.framesPerDay, "the oracle did not end the day at 24:00:00:00");
  }
  TCINFO const nextDay(dayBU, system);
  if (nextDay.dd() != 1 || nextDay.hh() != 0 || nextDay.mm() != 0 || nextDay.ss() != 0 ||
      nextDay.ff() != 0) {
    fail(facts.framesPerDay, "the day's length");
  }
  return result;
}

} // namespace vorx::test
