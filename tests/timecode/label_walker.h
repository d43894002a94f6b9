// Test oracle: walks the frame labels of a timecode system one frame at a time, from the
// counting rules alone (labels per second, which labels a drop-frame minute skips, the two-second
// cycle of "PAL(PX)"), without any of the library's position arithmetic.
#pragma once

#include <cstdint>

#include <vorx/timecode.h>

namespace vorx::test {

struct Label {
  std::uint32_t h, m, s, f;
  bool operator==(Label const &) const = default;
};

// The published facts of each system, written out by hand.
struct SystemFacts {
  char const * name;
  std::int64_t frameBU;      // base units per frame
  std::uint32_t labels;      // frame labels per second (even seconds for PAL(PX))
  std::uint32_t dropped;     // labels skipped at second 0 of a dropping minute
  std::uint32_t keepEvery;   // minutes divisible by this drop nothing
  std::int64_t framesPerDay; // frames in 24 hours of labels
};

constexpr SystemFacts kFacts[] = {
    {"PAL", 48, 25, 0, 1, 2160000},         {"NTSC", 40, 30, 0, 1, 2592000},
    {"NTSC(DF)", 40, 30, 2, 10, 2589408},   {"FILM", 50, 24, 0, 1, 2073600},
    {"HDFILM", 50, 24, 0, 1, 2073600},      {"HDFILM(DF)", 50, 24, 2, 4, 2071440},
    {"HD50", 24, 50, 0, 1, 4320000},        {"HDNTSC", 20, 60, 0, 1, 5184000},
    {"HDNTSC(DF)", 20, 60, 4, 10, 5178816}, {"PAL(PX)", 96, 13, 0, 1, 1080000},
    {"NTSC(PX)", 80, 15, 0, 1, 1296000},    {"FILM(PX)", 100, 12, 0, 1, 1036800},
    {"HD30", 40, 30, 0, 1, 2592000},        {"HD60", 20, 60, 0, 1, 5184000},
};

class LabelWalker {
public:
  explicit LabelWalker(std::uint32_t system) : m_facts(kFacts[system]), m_px(system == 9) {}

  Label const & label() const { return m_label; }

  void Next() {
    ++m_label.f;
    std::uint32_t const labels = m_px && m_label.s % 2 == 1 ? 12 : m_facts.labels;
    if (m_label.f < labels) {
      return;
    }
    m_label.f = 0;
    if (++m_label.s < 60) {
      return;
    }
    m_label.s = 0;
    if (++m_label.m == 60) {
      m_label.m = 0;
      ++m_label.h;
    }
    if (m_facts.dropped != 0 && m_label.m % m_facts.keepEvery != 0) {
      m_label.f = m_facts.dropped;
    }
  }

private:
  SystemFacts m_facts;
  bool m_px;
  Label m_label{0, 0, 0, 0};
};

} // namespace vorx::test
