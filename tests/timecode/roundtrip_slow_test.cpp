// Every frame of a whole day in every system, also in debug and sanitizer builds.
#include <gtest/gtest.h>

#include "timecode/day_sweep.h"

namespace {

class FullDayRoundTrip : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(FullDayRoundTrip, EveryFramePositionSurvivesLabelAndText) {
  vorx::test::SweepResult const result = vorx::test::SweepDay(GetParam(), 1, 13);
  EXPECT_EQ(result.failures, 0) << result.first;
  EXPECT_EQ(result.checked, vorx::test::kFacts[GetParam()].framesPerDay);
}

INSTANTIATE_TEST_SUITE_P(AllSystems, FullDayRoundTrip, ::testing::Range(0u, 14u));

} // namespace
