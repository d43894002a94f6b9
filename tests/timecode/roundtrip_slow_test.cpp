// The whole-day sweep with every check on every frame: the long form, the negative position and
// the position five days later too. Debug and sanitizer builds take every seventh frame, so that
// the sweep stays within seconds there as well.
#include <gtest/gtest.h>

#include "timecode/day_sweep.h"

namespace {

#if defined(NDEBUG) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
constexpr std::int64_t kStride = 1;
constexpr std::int64_t kSparse = 1;
#else
constexpr std::int64_t kStride = 7; // prime to every rate, so every label of a second is met
constexpr std::int64_t kSparse = 3;
#endif

class FullDayRoundTrip : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(FullDayRoundTrip, EveryFramePositionSurvivesLabelAndText) {
  EXPECT_EQ(vorx::test::SweepDay(GetParam(), kStride, kSparse),
            (vorx::test::kFacts[GetParam()].framesPerDay + kStride - 1) / kStride);
}

INSTANTIATE_TEST_SUITE_P(AllSystems, FullDayRoundTrip, ::testing::Range(0u, 14u));

} // namespace
