#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>
#include <vorx/timecode.h>

#include "timecode/label_walker.h"

using namespace VORX::TimeCode;
using vorx::test::kFacts;
using vorx::test::Label;

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

timecode At(std::int64_t position, std::uint32_t system) {
  return timecode(position, system);
}

// An expected result: the position and the whole system word.
struct Result {
  timecode value;
  std::int64_t position;
  std::uint32_t word;
};

template <std::size_t N> void ExpectResults(Result const (&rows)[N]) {
  for (std::size_t i = 0; i < N; ++i) {
    EXPECT_EQ(rows[i].value.GetPosition(), rows[i].position) << "row " << i;
    EXPECT_EQ(rows[i].value.GetSystem(), rows[i].word) << "row " << i;
  }
}

} // namespace

// ---- the system table (frame lengths and labels per second are met by the day sweep)

TEST(TimecodeSystems, TableValues) {
  struct Row {
    std::uint32_t rate, scale;
    char16_t const * name;
    std::int64_t maxTC; // -1: undefined
  };
  constexpr Row kRows[] = {
      {25, 1, u"PAL", -1},
      {30000, 1001, u"NTSC", 2073600000},
      {30000, 1001, u"NTSC(DF)", 2071526400},
      {24, 1, u"FILM", -1},
      {24000, 1001, u"HDFILM", -1},
      {24000, 1001, u"HDFILM(DF)", -1},
      {50, 1, u"HD50", 1244160000},
      {60000, 1001, u"HDNTSC", 1036800000},
      {60000, 1001, u"HDNTSC(DF)", 1035763200},
      {25, 2, u"PAL(PX)", -1},
      {15, 1, u"NTSC(PX)", -1},
      {12, 1, u"FILM(PX)", -1},
      {30, 1, u"HD30", 2073600000},
      {60, 1, u"HD60", 1036800000},
  };
  for (std::uint32_t i = 0; i < 14; ++i) {
    Row const & row = kRows[i];
    std::uint32_t rate = 0;
    std::uint32_t scale = 0;
    EXPECT_TRUE(timecode::GetFrameRateScaleOf(i, rate, scale) && rate == row.rate &&
                scale == row.scale)
        << i;
    EXPECT_EQ(timecode::GetFieldBU(i) * 2, kFacts[i].frameBU) << i;
    EXPECT_EQ(std::u16string(At(0, i).GetSystemString()), row.name) << i;
    EXPECT_DOUBLE_EQ(timecode::BULen(i), row.scale == 1001 ? 1.001 / 1200 : 1.0 / 1200) << i;
    timecode const maxTC = timecode::GetMaxTC(i);
    EXPECT_EQ(maxTC.GetSystem(), row.maxTC < 0 ? 0x10000u : i) << i;
    EXPECT_EQ(maxTC.GetPosition(), row.maxTC < 0 ? 0 : row.maxTC) << i;
  }
  EXPECT_EQ(timecode::GetFrameBU(0x1000E), 48) << "index 14 reads as 0";
  // 2^63 - 1 leaves 31 over a multiple of 48.
  EXPECT_EQ(timecode::GetMaxFrame(0).GetPosition(), INT64_C(9223372036854775776));
}

TEST(TimecodeSystems, NormalisationPartnersRateOrderAndTheNearestSystem) {
  struct Case {
    std::uint32_t word, normalised;
    bool isDF;
    std::uint32_t df, ndf;
  };
  constexpr Case kCases[] = {{1, 1, false, 2, 0x20000},
                             {8, 8, true, 0x20000, 7},
                             {0x1000F, 0x30000, false, 0x20000, 0x20000},
                             {0x10002, 0x10002, false, 0x20000, 0x20000}};
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::NormalizeSystem(c.word), c.normalised) << std::hex << c.word;
    EXPECT_TRUE(timecode::IsDFSystem(c.word) == c.isDF && timecode::GetDFSystem(c.word) == c.df &&
                timecode::GetNDFSystem(c.word) == c.ndf)
        << c.word;
  }
  EXPECT_TRUE(At(0, 0x10002).IsDFSystem()) << "the member form reads the index only";
  std::uint32_t list[20] = {}, count = 20;
  timecode::GetFramerateTCList(list, count);
  std::uint32_t const kByRate[] = {11, 9, 10, 4, 5, 3, 0, 1, 2, 12, 6, 7, 8, 13};
  EXPECT_TRUE(count == 14 && std::equal(kByRate, kByRate + 14, list));
  constexpr std::pair<double, std::uint32_t> kNearest[] = {
      {70.0, 13}, {12.5, 11}, {25.0, 0x20000}, {29.98, 1}, {29.97, 0x20000}};
  for (auto [fps, system] : kNearest) {
    EXPECT_EQ(timecode::GetBestTCSystem(fps), system) << fps;
  }
  EXPECT_EQ(timecode::GetBestTCSystem(std::nan("")), 0x20000u);
  EXPECT_EQ(timecode::GetTCSystemOf(60000, 1001), 7u);
}

// ---- construction and conversion

// An `int` selects the field count, a `std::int64_t` base units, a double seconds.
static_assert(!std::is_convertible_v<std::int64_t, timecode>);

TEST(TimecodeConstruction, FieldsBaseUnitsSecondsLabelsAndConversions) {
  timecode unassigned = At(48, TC_NTSC);
  unassigned.Unassign(TC_HD60);
  Result const kRows[] = {
      {timecode(5, TC_PAL), 120, 0},              // an int counts fields
      {timecode(107374183, TC_NTSC), 0, 0x10000}, // beyond 2147483647 / 20: the index is dropped
      {timecode(1.0, TC_NTSC), 1199, 1},          // 1198.8 base units of 1.001/1200 s
      {timecode(-1e17, TC_PAL), -kMax, 0}, // within the seconds limit, beyond it in base units
      {timecode(std::nan(""), TC_NTSC), 0, 0x10001},
      {unassigned, 0, 0x2000D},
      // labels: drop-frame labels that do not exist, field ranges, system words
      {timecode(0, 1, 0, 1, TC_NTSC_DF), 0, 0x10002}, // a drop-frame label that does not exist
      {timecode(0, 2, 0, 0, TC_HDFILM_DF), 0, 0x10005},
      {timecode(0, 0, 1, 12, TC_PAL_PX), 0, 0x10009}, // field ranges
      {timecode(743, 0, 0, 0, TC_PAL), 743 * INT64_C(4320000), 0},
      {timecode(744, 0, 0, 0, TC_PAL), 0, 0x10000},
      {timecode(0, 60, 0, 0, 14), 0, 0x30000}, // system words
      {timecode(1, 0, 0, 0, 0x20001), 0, 0x20001},
  };
  ExpectResults(kRows);
  EXPECT_EQ(static_cast<std::int32_t>(At(-36, 0)), -2) << "a field and a half";
  EXPECT_EQ(static_cast<std::int32_t>(At(kMax, 0)), INT32_MAX) << "saturates";
  EXPECT_DOUBLE_EQ(static_cast<double>(At(1200, 1)), 1.001);
  // Fields and frames of another system: -1 toward zero, 1 away from zero, else nearest.
  EXPECT_EQ(At(100, 1).Frames(0, -1) + At(100, 1).Fields(0, 1) + At(72, 1).Fields(0, 0), 10);
  EXPECT_EQ(At(-72, 1).Frames(0, -1), -1);
}

// ---- position <-> label: every frame of a day, its negative and five days later are checked
// against the oracle by the day sweep (roundtrip_test.cpp); here only what it does not meet.

TEST(TimecodeLabels, APositionBetweenFramesReadsByDividingTheRest) {
  EXPECT_EQ(TCINFO(INT64_MIN, TC_PAL).dd(), INT64_C(-88959992640)) << "no overflow at the very end";
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    Label label;
  };
  constexpr Case kCases[] = {
      {-1, TC_PAL, {0, 0, 0, 0}},      // sign and magnitude: day -1, label 0
      {1247, TC_PAL_PX, {0, 0, 1, 0}}, // still in frame 12 (1152-1247), but second 1, 47 / 96
      // 71920 is 00:00:59:28; 71930 lies in that frame, but 71930 * 5 / 359640 is minute 1
      // with rest 10: frame 0 of second 0, a dropped label, so the end of minute 0.
      {71930, TC_NTSC_DF, {0, 0, 59, 29}},
      {72019, TC_HDNTSC_DF, {0, 1, 0, 5}}, // pair 72000 reads frame 2: 2 * 2 + 1
  };
  for (Case const & c : kCases) {
    TCINFO const info(c.position, c.system);
    EXPECT_EQ((Label{info.hh(), info.mm(), info.ss(), info.ff()}), c.label)
        << c.position << " in " << kFacts[c.system].name;
  }
}

TEST(TimecodeLabels, TheBrokenDownForm) {
  std::uint32_t h = 0, m = 0, s = 0, f = 0, system = 0;
  std::int32_t sign = 0;
  ASSERT_TRUE(TCINFO(-30, 1, 2, 3, 0).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_EQ((Label{h, m, s, f}), (Label{30, 1, 2, 3})) << "the days fold into the hours";
  EXPECT_EQ(sign, -1);
  EXPECT_FALSE(TCINFO(INT64_C(0), 0x10003).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_TRUE(system == 0x10003u && h == 30u) << "only the word is written for a flagged value";
  TCINFO negative(INT64_C(-3) * 103680000 - 48, TC_PAL);
  negative.Clip();
  EXPECT_EQ(static_cast<std::int64_t>(negative), -48);
}

// ---- operations

TEST(TimecodeOperations, AlignClipWrapScaleMapConvertXlateRoundBiasAndSlip) {
  // Position, aligned, trunced, roofed.
  constexpr std::array<std::int64_t, 4> kPal[] = {
      {24, 48, 0, 48}, {23, 0, 0, 48}, {-24, -48, 0, 48}, {-53, -48, -96, 0}};
  for (auto [position, aligned, trunced, roofed] : kPal) {
    EXPECT_EQ(At(position, TC_PAL).Aligned().GetPosition(), aligned) << position;
    EXPECT_EQ(At(position, TC_PAL).Trunced().GetPosition(), trunced) << position;
    EXPECT_EQ(At(position, TC_PAL).Roofed().GetPosition(), roofed) << position;
  }
  EXPECT_TRUE(At(96, TC_PAL).AssertAlignedToSystem(TC_HD50));
  EXPECT_FALSE(At(95, TC_PAL).AssertAligned() || At(96, TC_PAL).AssertAlignedToSystem(TC_NTSC_PX));
  Result const kRows[] = {
      {At(100, TC_PAL).AlignedToSystem(TC_NTSC), 120, TC_NTSC}, // 2.5 frames: ties away
      {At(7, 0x10000).TruncedToSystem(TC_HD60), 7, 0x1000D},    // only the index
      {At(kMax, TC_PAL).Aligned(), kMax, 0x10000},              // 31 over: rounds up, beyond
      {At(INT64_MIN, TC_PAL).Trunced(), INT64_MIN + 32, 0x10000},
      // Clip and Wrap recompose the time of day of the label.
      {At(-40, TC_NTSC_DF).Wrapped(), 103576280, 2},
      {At(71930, TC_NTSC_DF).Clipped(), 71960, 2}, // reads 00:00:59:29
      // 2^63 mod 103680000 is 43255808, which reads 10:00:46:30 (43255800).
      {At(INT64_MIN, TC_HD60).Clipped(), -43255800, 13},
      // Scale: truncating, or rounding half away from zero; the 32-bit limit above only.
      {At(-1000, TC_PAL).Scaled(2, 3, true), -667, 0},
      {At(2147483647, TC_PAL).Scaled(2, 1, false), 4294967294, 0x10000},
      // MapTo aligns, then steps back (-1) past the old position; NTSC frames of 40.
      {At(100, TC_PAL).MappedTo(TC_NTSC, -1), 80, TC_NTSC},
      // Up and down in the same family; 4800 is a frame boundary of every system.
      {At(4800, TC_PAL).Downconverted(0), 4800, TC_PAL_PX},
      {At(4800, TC_NTSC_DF).Upconverted(0), 4800, TC_HDNTSC_DF},
      // Xlate keeps the label; a dropped one moves on to the first kept label.
      {timecode(0, 1, 0, 0, TC_NTSC).XlatedToSystem(TC_NTSC_DF), 72000, TC_NTSC_DF},
      {timecode(0, 0, 1, 24, TC_PAL).XlatedToSystem(TC_PAL_PX), (13 + 11) * 96, TC_PAL_PX},
      {At(-40, 0).RoundedTo(At(100, 0), At(10, 0)), -90, 0}, // ties away from the origin
      {At(100, 0).Biased(At(50, 0), At(1000, 0)), 1050, 0},
      {At(4320000, TC_HD30).Slipped(-1), 4320000 - 2073600000, TC_HD30},
      {At(4320000, TC_PAL).Slipped(1), 4320000, 0x10000}, // no quantity for PAL
  };
  ExpectResults(kRows);
}

// ---- arithmetic and comparison

TEST(TimecodeArithmetic, ResultsAndFlags) {
  timecode const pal = At(100, TC_PAL);
  timecode const ntsc = At(50, TC_NTSC);
  timecode const undefined(INT64_C(7), 0x10003);
  timecode accumulated = ntsc;
  accumulated += undefined;
  timecode wrapping = At(kMax, TC_PAL);
  wrapping += INT64_C(1);
  Result const kRows[] = {
      {pal + ntsc, 150, TC_PAL},       // the left side's system
      {ntsc + undefined, 57, 0x10000}, // + gives exactly 0x10000 and keeps the sum
      {accumulated, 50, 0x10001},      // += ors the flag in and keeps its position
      {At(kMax, TC_PAL) + At(1, TC_PAL), 0, 0x10000},
      {2 + pal, 148, 0},        // an int counts fields
      {wrapping, INT64_MIN, 0}, // += of base units adds without any check
      {pal * 0.125, 13, 0},     // 12.5 rounds away from zero
      {pal / 0, 0, 0x10000},
      {-At(48, 0x10000), 48, 0x10000}, // flagged values unchanged
      {-At(INT64_MIN, TC_PAL), INT64_MIN, 0x10000},
  };
  ExpectResults(kRows);
  EXPECT_TRUE(At(300, 0) / At(200, 1) == 1.5 && At(300, 0) / At(200, 0x10000) == 0.0);
  timecode value = At(0, TC_NTSC);
  timecode & same = value++;
  EXPECT_TRUE(&same == &value && value.GetPosition() == 40) << "postfix returns the value itself";
  EXPECT_TRUE(!timecode() && !At(0, TC_PAL) && !!At(48, 0x10000));
}

TEST(TimecodeComparison, RulesIncludingTheirAsymmetries) {
  auto const compare = [](timecode const & a, timecode const & b) { // == != < > <= >=
    return std::string{"01"[a == b], "01"[a != b], "01"[a < b],
                       "01"[a > b],  "01"[a <= b], "01"[a >= b]};
  };
  timecode const a = At(100, TC_PAL);
  timecode const u1(INT64_C(1), 0x10000);
  EXPECT_EQ(compare(a, At(200, TC_PAL)), "011010");
  EXPECT_EQ(compare(a, At(100, TC_NTSC)), "010011") << "systems count for == only";
  EXPECT_EQ(compare(u1, At(2, 0x10000)), "111011") << "both == and !=";
  EXPECT_EQ(compare(u1, a), "010100") << "> but not >=";
  EXPECT_EQ(compare(timecode(), At(0, TC_PAL)), "010011");
  timecode const pal = At(120, TC_PAL);
  EXPECT_TRUE(pal == INT64_C(120) && pal == 5 && pal == 0.1) << "base units, fields, seconds";
  EXPECT_TRUE(pal < 107374183) << "an out-of-range count is undefined, which every value is below";
  EXPECT_FALSE(timecode() == 0) << "unassigned is not position 0 of the system";
}
