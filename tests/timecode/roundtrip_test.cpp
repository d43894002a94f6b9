// Round trips over a whole day in every system. Optimised builds check every frame; debug and
// sanitizer builds check a prime stride (which meets every label of a second over the day);
// the slow suite adds the long form, negative and later positions on every (seventh) frame.
#include <gtest/gtest.h>

#include "timecode/day_sweep.h"

namespace {

#if defined(NDEBUG) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
constexpr std::int64_t kStride = 1; // every frame in optimised builds without sanitizers
#else
constexpr std::int64_t kStride = 101;
#endif

class DayRoundTrip : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(DayRoundTrip, EveryFramePositionSurvivesLabelAndText) {
  EXPECT_GT(vorx::test::SweepDay(GetParam(), kStride, 7), 10000);
}

INSTANTIATE_TEST_SUITE_P(AllSystems, DayRoundTrip, ::testing::Range(0u, 14u));

} // namespace
