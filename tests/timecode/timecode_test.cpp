#include <algorithm>
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

Label LabelOf(TCINFO const & info) {
  return {info.hh(), info.mm(), info.ss(), info.ff()};
}

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

// ---- the system table

TEST(TimecodeSystems, TableValues) {
  struct Row {
    std::uint32_t rate, scale;
    std::int64_t fieldBU;
    char16_t const * name;
    std::int64_t maxTC; // -1: undefined
  };
  constexpr Row kRows[] = {
      {25, 1, 24, u"PAL", -1},
      {30000, 1001, 20, u"NTSC", 2073600000},
      {30000, 1001, 20, u"NTSC(DF)", 2071526400},
      {24, 1, 25, u"FILM", -1},
      {24000, 1001, 25, u"HDFILM", -1},
      {24000, 1001, 25, u"HDFILM(DF)", -1},
      {50, 1, 12, u"HD50", 1244160000},
      {60000, 1001, 10, u"HDNTSC", 1036800000},
      {60000, 1001, 10, u"HDNTSC(DF)", 1035763200},
      {25, 2, 48, u"PAL(PX)", -1},
      {15, 1, 40, u"NTSC(PX)", -1},
      {12, 1, 50, u"FILM(PX)", -1},
      {30, 1, 20, u"HD30", 2073600000},
      {60, 1, 10, u"HD60", 1036800000},
  };
  for (std::uint32_t i = 0; i < 14; ++i) {
    Row const & row = kRows[i];
    std::uint32_t rate = 0;
    std::uint32_t scale = 0;
    EXPECT_TRUE(timecode::GetFrameRateScaleOf(i, rate, scale));
    EXPECT_EQ(rate * 10000 + scale, row.rate * 10000 + row.scale) << i;
    EXPECT_EQ(timecode::GetFrameBU(i), kFacts[i].frameBU) << i;
    EXPECT_EQ(timecode::GetFieldBU(i), row.fieldBU) << i;
    EXPECT_EQ(std::u16string(At(0, i).GetSystemString()), row.name) << i;
    EXPECT_DOUBLE_EQ(At(0, i).Framerate(), static_cast<double>(row.rate) / row.scale) << i;
    EXPECT_DOUBLE_EQ(timecode::BULen(i), row.scale == 1001 ? 1.001 / 1200 : 1.0 / 1200) << i;
    timecode const maxTC = timecode::GetMaxTC(i);
    EXPECT_EQ(maxTC.GetSystem(), row.maxTC < 0 ? 0x10000u : i) << i;
    EXPECT_EQ(maxTC.GetPosition(), row.maxTC < 0 ? 0 : row.maxTC) << i;
  }
  EXPECT_EQ(std::u16string(timecode::GetSystemString(15)), u"PAL") << "normalised first";
  EXPECT_EQ(timecode::GetFrameBU(0x1000E), 48) << "index 14 reads as 0";
  // 2^63 - 1 leaves 31 over a multiple of 48 and 7 over one of 20.
  EXPECT_EQ(timecode::GetMaxFrame(0).GetPosition(), INT64_C(9223372036854775776));
  EXPECT_EQ(timecode::GetMaxFrame(13).GetPosition(), INT64_C(9223372036854775800));
}

TEST(TimecodeSystems, NormalisationPartnersAndRateOrder) {
  struct Case {
    std::uint32_t word, normalised;
    bool isDF;
    std::uint32_t df, ndf;
  };
  constexpr Case kCases[] = {{1, 1, false, 2, 0x20000},
                             {2, 2, true, 0x20000, 1},
                             {8, 8, true, 0x20000, 7},
                             {9, 9, true, 0x20000, 0x20000},
                             {14, 0x20000, false, 0x20000, 0x20000},
                             {0x1000F, 0x30000, false, 0x20000, 0x20000},
                             {0x10002, 0x10002, false, 0x20000, 0x20000}};
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::NormalizeSystem(c.word), c.normalised) << std::hex << c.word;
    EXPECT_EQ(timecode::IsDFSystem(c.word), c.isDF) << c.word;
    EXPECT_EQ(timecode::GetDFSystem(c.word), c.df) << c.word;
    EXPECT_EQ(timecode::GetNDFSystem(c.word), c.ndf) << c.word;
  }
  EXPECT_TRUE(At(0, 0x10002).IsDFSystem()) << "the member form reads the index only";
  EXPECT_EQ(At(5, 14).GetPosition(), 0) << "unassigned means position 0";

  std::uint32_t list[20] = {}, count = 20;
  timecode::GetFramerateTCList(list, count);
  std::uint32_t const kByRate[] = {11, 9, 10, 4, 5, 3, 0, 1, 2, 12, 6, 7, 8, 13};
  EXPECT_TRUE(count == 14 && std::equal(kByRate, kByRate + 14, list));
}

TEST(TimecodeSystems, NearestSystemToARate) {
  struct Case {
    double fps;
    std::uint32_t system;
  };
  constexpr Case kCases[] = {
      {70.0, 13},       {60.0, 13}, {12.5, 11},  {25.0, 0x20000},   {29.98, 1},
      {29.97, 0x20000}, {59.95, 7}, {23.977, 4}, {23.976, 0x20000},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::GetBestTCSystem(c.fps), c.system) << c.fps;
  }
  EXPECT_EQ(timecode::GetBestTCSystem(std::nan("")), 0x20000u);
  EXPECT_EQ(timecode::GetTCSystemOf(60000, 1001), 7u);
  EXPECT_EQ(timecode::GetTCSystemOf(60, 1), 13u) << "found by the nearest-rate search";
  EXPECT_EQ(timecode::GetTCSystemOf(30000, 1000), 0x20000u);
}

// ---- construction and conversion

// An `int` selects the field count, a `std::int64_t` base units, a double seconds.
static_assert(!std::is_convertible_v<std::int64_t, timecode>);

TEST(TimecodeConstruction, FieldsBaseUnitsSecondsAndConversions) {
  timecode unassigned = At(48, TC_NTSC);
  unassigned.Unassign(TC_HD60);
  Result const kRows[] = {
      {timecode(5, TC_PAL), 120, 0}, // an int counts fields
      {timecode(INT64_C(5), TC_PAL), 5, 0},
      {timecode(107374182, TC_NTSC), 2147483640, 1},
      {timecode(107374183, TC_NTSC), 0, 0x10000}, // beyond 2147483647 / 20: the index is dropped
      {timecode(1.001, TC_NTSC), 1200, 1},
      {timecode(1.0, TC_NTSC), 1199, 1},  // 1198.8 base units of 1.001/1200 s
      {timecode(0.03125, TC_PAL), 38, 0}, // 37.5
      {timecode(1e30, TC_PAL), kMax, 0},
      {timecode(-1e17, TC_PAL), -kMax, 0}, // within the seconds limit, beyond it in base units
      {timecode(std::nan(""), TC_NTSC), 0, 0x10001},
      {timecode(2.0, 0x20000), 0, 0x20000},
      {timecode(), 0, 0x20000},
      {unassigned, 0, 0x2000D},
  };
  ExpectResults(kRows);
  EXPECT_EQ(unassigned.GetFlags(), 0x20000u);
  EXPECT_EQ(TCINFO(50, TC_PAL).ss(), 1u);

  EXPECT_EQ(static_cast<std::int32_t>(At(36, 0)), 2) << "a field and a half";
  EXPECT_EQ(static_cast<std::int32_t>(At(-36, 0)), -2);
  EXPECT_EQ(static_cast<std::int32_t>(At(kMax, 0)), INT32_MAX) << "saturates";
  EXPECT_DOUBLE_EQ(static_cast<double>(At(1200, 1)), 1.001);
  EXPECT_EQ(static_cast<std::int64_t>(At(1200, 0x10000)), 0);
  EXPECT_EQ(static_cast<double>(At(1200, 0x10000)), 0.0);
  // Fields and frames of another system: -1 toward zero, 1 away from zero, else nearest.
  EXPECT_EQ(At(100, 1).Frames(0, -1), 2);
  EXPECT_EQ(At(100, 1).Fields(0, 1), 5);
  EXPECT_EQ(At(72, 1).Fields(0, 0), 3);
  EXPECT_EQ(At(-72, 1).Frames(0, -1), -1);
  EXPECT_EQ(At(100, 0).Frames(0x10000, 0), 0);
  EXPECT_EQ(At(100, 0x10000).Frames(0, 0), 0);
}

// ---- position <-> label: every frame of a day, its negative and five days later are checked
// against the oracle by the day sweep (roundtrip_test.cpp); here only what it does not meet.

TEST(TimecodeLabels, NegativeDayEdgesAndTheVeryEnd) {
  EXPECT_EQ(TCINFO(INT64_C(-1), TC_PAL).dd(), -1) << "sign and magnitude";
  EXPECT_EQ(LabelOf(TCINFO(INT64_C(-1), TC_PAL)), (Label{0, 0, 0, 0}));
  EXPECT_EQ(TCINFO(INT64_C(-103680000), TC_PAL).dd(), -2);
  EXPECT_EQ(TCINFO(INT64_MIN, TC_PAL).dd(), INT64_C(-88959992640)) << "no overflow at the very end";
}

TEST(TimecodeLabels, APositionBetweenFramesReadsByDividingTheRest) {
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    Label label;
  };
  constexpr Case kCases[] = {
      {1199, TC_PAL_PX, {0, 0, 0, 12}}, // 1199 / 96
      {1247, TC_PAL_PX, {0, 0, 1, 0}},  // still in frame 12 (1152-1247), but second 1, 47 / 96
      {1296, TC_PAL_PX, {0, 0, 1, 1}},  // frame 1 of second 1 starts only at 1344
      {72001, TC_NTSC_DF, {0, 1, 0, 2}},
      {71999, TC_NTSC_DF, {0, 0, 59, 29}},
      // 71920 is 00:00:59:28; 71930 lies in that frame, but 71930 * 5 / 359640 is minute 1
      // with rest 10: frame 0 of second 0, a dropped label, so the end of minute 0.
      {71930, TC_NTSC_DF, {0, 0, 59, 29}},
      {71930, TC_HDFILM_DF, {0, 0, 59, 23}}, // 71930 * 2 / 143850 is minute 1, rest 30
      {1, TC_HDNTSC_DF, {0, 0, 0, 1}},       // any position past the start of a pair is odd
      {72019, TC_HDNTSC_DF, {0, 1, 0, 5}},   // pair 72000 reads frame 2: 2 * 2 + 1
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(LabelOf(TCINFO(c.position, c.system)), c.label)
        << c.position << " in " << kFacts[c.system].name;
  }
}

TEST(TimecodeLabels, ValidationOfLabels) {
  Result const kRows[] = {
      // drop-frame labels that do not exist
      {timecode(0, 1, 0, 1, TC_NTSC_DF), 0, 0x10002},
      {timecode(0, 10, 0, 0, TC_NTSC_DF), 719280, 2},
      {timecode(0, 1, 0, 3, TC_HDNTSC_DF), 0, 0x10008},
      {timecode(0, 2, 0, 0, TC_HDFILM_DF), 0, 0x10005},
      {timecode(0, 4, 0, 0, TC_HDFILM_DF), 287700, 5},
      // field ranges
      {timecode(0, 0, 1, 12, TC_PAL_PX), 0, 0x10009},
      {timecode(0, 0, 0, 25, TC_PAL), 0, 0x10000},
      {timecode(0, 0, 0, 30, TC_NTSC), 0, 0x10001},
      {timecode(0, 60, 0, 0, TC_HD30), 0, 0x1000C},
      {timecode(743, 0, 0, 0, TC_PAL), 743 * INT64_C(4320000), 0},
      {timecode(744, 0, 0, 0, TC_PAL), 0, 0x10000},
      {timecode(INT32_MIN, 0, 0, 0, TC_PAL), 0, 0x10000},
      // system words
      {timecode(0, 0, 0, 0, 14), 0, 0x20000},
      {timecode(0, 60, 0, 0, 14), 0, 0x30000},
      {timecode(1, 0, 0, 0, 0x20001), 0, 0x20001},
  };
  ExpectResults(kRows);
  TCINFO const negative(-25, 1, 2, 3, 0);
  EXPECT_EQ(negative.dd(), -2);
  EXPECT_EQ(LabelOf(negative), (Label{1, 1, 2, 3}));
}

TEST(TimecodeLabels, GetInfoClipAndFieldsOfTheBrokenDownForm) {
  std::uint32_t h = 0, m = 0, s = 0, f = 0, system = 0;
  std::int32_t sign = 0;
  ASSERT_TRUE(TCINFO(30, 1, 2, 3, 0).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_EQ((Label{h, m, s, f}), (Label{30, 1, 2, 3})) << "the days fold into the hours";
  EXPECT_EQ(sign, 1);
  ASSERT_TRUE(TCINFO(-30, 1, 2, 3, 12).GetInfo(&h, nullptr, nullptr, nullptr, &sign, &system));
  EXPECT_EQ(h, 30u);
  EXPECT_EQ(sign, -1);
  EXPECT_FALSE(TCINFO(INT64_C(0), 0x10003).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_EQ(system, 0x10003u) << "the word is written even for a flagged value";
  EXPECT_EQ(h, 30u) << "nothing else is";

  TCINFO negative(INT64_C(-3) * 103680000 - 48, TC_PAL);
  negative.Clip();
  EXPECT_EQ(static_cast<std::int64_t>(negative), -48);
  EXPECT_EQ(static_cast<std::int32_t>(TCINFO(INT64_C(-96), TC_PAL)), -4);
}

// ---- operations

TEST(TimecodeAlignment, AlignTruncAndRoofInPal) {
  struct Case {
    std::int64_t position, aligned, trunced, roofed;
  };
  constexpr Case kCases[] = {
      {24, 48, 0, 48},   {23, 0, 0, 48},     {53, 48, 48, 96},       {-5, 0, 0, 48},
      {-24, -48, 0, 48}, {-53, -48, -96, 0}, {-101, -96, -144, -48},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(At(c.position, TC_PAL).Aligned().GetPosition(), c.aligned) << c.position;
    EXPECT_EQ(At(c.position, TC_PAL).Trunced().GetPosition(), c.trunced) << c.position;
    EXPECT_EQ(At(c.position, TC_PAL).Roofed().GetPosition(), c.roofed) << c.position;
  }
  EXPECT_TRUE(At(96, TC_PAL).AssertAligned());
  EXPECT_FALSE(At(95, TC_PAL).AssertAligned());
  EXPECT_TRUE(At(96, TC_PAL).AssertAlignedToSystem(TC_HD50));
  EXPECT_FALSE(At(96, TC_PAL).AssertAlignedToSystem(TC_NTSC_PX));
  EXPECT_FALSE(At(96, TC_PAL).AssertAlignedToSystem(0x10000));
  EXPECT_FALSE(At(96, 0x10000).AssertAligned());
}

TEST(TimecodeAlignment, OtherSystemsLimitsClipWrapAndScale) {
  Result const kRows[] = {
      {At(100, TC_PAL).AlignedToSystem(TC_NTSC), 120, TC_NTSC}, // 2.5 frames: ties away
      {At(101, TC_PAL).RoofedToSystem(TC_HD60), 120, TC_HD60},
      {At(7, 0x10000).AlignedToSystem(TC_NTSC), 7, 0x10000}, // left as it is
      {timecode().AlignedToSystem(TC_NTSC), 0, 0x20001},
      {At(7, 0x10000).TruncedToSystem(TC_HD60), 7, 0x1000D}, // only the index
      {At(kMax, TC_PAL).Roofed(), kMax, 0x10000},
      {At(kMax, TC_PAL).Aligned(), kMax, 0x10000}, // 31 over: rounds up, beyond
      {At(-kMax, TC_PAL).Trunced(), -kMax + 31, 0x10000},
      {At(INT64_MIN, TC_PAL).Trunced(), INT64_MIN + 32, 0x10000},
      // Clip and Wrap recompose the time of day of the label.
      {At(-103680048, TC_PAL).Clipped(), -48, 0},
      {At(-40, TC_NTSC_DF).Wrapped(), 103576280, 2},
      {At(103572000 + 50, TC_HDFILM_DF).Wrapped(), 50, 5},
      {At(-7, TC_PAL).Clipped(), 0, 0},            // the label drops the sub-frame offset
      {At(71930, TC_NTSC_DF).Clipped(), 71960, 2}, // reads 00:00:59:29
      // 2^63 mod 103680000 is 43255808, which reads 10:00:46:30 (43255800).
      {At(INT64_MIN, TC_HD60).Clipped(), -43255800, 13},
      {At(INT64_MIN, TC_HD60).Wrapped(), 60424200, 13},
      {At(-48, 0x10000).Wrapped(), -48, 0x10000},
      // Scale: truncating, or rounding half away from zero; the 32-bit limit above only.
      {At(1000, TC_PAL).Scaled(1001, 1000, false), 1001, 0},
      {At(-1000, TC_PAL).Scaled(2, 3, true), -667, 0},
      {At(1000, TC_PAL).Scaled(1, 0, false), 0, 0x10000},
      {At(2147483647, TC_PAL).Scaled(2, 1, false), 4294967294, 0x10000},
      {At(-2147483647, TC_PAL).Scaled(2, 1, false), -4294967294, 0},
      {At(kMax, TC_PAL).Scaled(kMax, 1, false), kMax, 0x10000},
  };
  ExpectResults(kRows);
}

TEST(TimecodeMoves, MapConvertXlateRoundBiasAndSlip) {
  Result const kRows[] = {
      // MapTo aligns, then steps back (-1) or on (1) past the old position; NTSC frames of 40.
      {At(100, TC_PAL).MappedTo(TC_NTSC, -1), 80, TC_NTSC},
      {At(90, TC_PAL).MappedTo(TC_NTSC, 1), 120, TC_NTSC},
      {At(-90, TC_PAL).MappedTo(TC_NTSC, -1), -120, TC_NTSC},
      {At(100, 0x10000).MappedTo(TC_NTSC, 0), 100, 0x10000},
      // Up and down in the same family; 4800 is a frame boundary of every system.
      {At(4800, TC_PAL).Upconverted(0), 4800, TC_HD50},
      {At(4800, TC_PAL).Downconverted(0), 4800, TC_PAL_PX},
      {At(4800, TC_NTSC_DF).Upconverted(0), 4800, TC_HDNTSC_DF},
      {At(4800, TC_HDFILM).Upconverted(0), 4800, TC_HDFILM},
      {At(4800, TC_HD60).Downconverted(0), 4800, TC_HD30},
      {At(24, TC_HD50).Downconverted(-1), 0, TC_PAL},
      // Xlate keeps the label; a dropped one moves on to the first kept label.
      {timecode(1, 0, 0, 29, TC_NTSC).XlatedToSystem(TC_PAL), 4320000 + 24 * 48, TC_PAL},
      {timecode(0, 1, 0, 0, TC_NTSC).XlatedToSystem(TC_NTSC_DF), 72000, TC_NTSC_DF},
      {timecode(0, 0, 1, 24, TC_PAL).XlatedToSystem(TC_PAL_PX), (13 + 11) * 96, TC_PAL_PX},
      {At(-40, 0).RoundedTo(At(100, 0), At(10, 0)), -90, 0}, // ties away from the origin
      {At(130, 0).RoundedTo(At(0, 0), At(10, 0)), 130, 0x10000},
      {At(100, 0).Biased(At(50, 0), At(1000, 0)), 1050, 0},
      {At(4320000, TC_HD30).Slipped(-1), 4320000 - 2073600000, TC_HD30},
      {At(4320000, TC_PAL).Slipped(1), 4320000, 0x10000}, // no quantity for PAL
  };
  ExpectResults(kRows);
}

// ---- arithmetic

TEST(TimecodeArithmetic, ResultsAndFlags) {
  timecode const pal = At(100, TC_PAL);
  timecode const ntsc = At(50, TC_NTSC);
  timecode const undefined(INT64_C(7), 0x10003);
  timecode accumulated = ntsc;
  accumulated += undefined;
  timecode unchecked;
  unchecked += INT64_C(5);
  timecode wrapping = At(kMax, TC_PAL);
  wrapping += INT64_C(1);
  Result const kRows[] = {
      {pal + ntsc, 150, TC_PAL}, // the left side's system
      {timecode() + ntsc, 50, TC_NTSC},
      {ntsc + undefined, 57, 0x10000}, // + gives exactly 0x10000 and keeps the sum
      {accumulated, 50, 0x10001},      // += ors the flag in and keeps its position
      {At(kMax, TC_PAL) + At(1, TC_PAL), 0, 0x10000},
      {INT64_C(5) + pal, 105, 0}, // base units
      {2 + pal, 148, 0},          // an int counts fields
      {1.0 + pal, 1300, 0},       // a double counts seconds
      {At(0, TC_NTSC) + 1.001, 1200, 1},
      {At(0, TC_NTSC) + 107374183, 0, 0x10000}, // an out-of-range count
      {timecode() + 2, 0, 0x20000},             // unassigned adds nothing
      {At(7, 0x10000) + 2, 7, 0x10000},
      {At(-kMax, TC_PAL) - INT64_C(2), 0, 0x10000},
      {unchecked, 5, 0x20000}, // += of base units adds without any check
      {wrapping, INT64_MIN, 0},
      {pal * -3, -300, 0},
      {pal * 0.125, 13, 0}, // 12.5 rounds away from zero
      {-pal / 8, -13, 0},
      {pal / 0, 0, 0x10000},
      {pal * std::nan(""), 0, 0x10000},
      {At(kMax, 0) * 2, 0, 0x10000},
      {At(INT64_MIN, 0) / -1, 0, 0x10000},
      {-At(48, 0x10000), 48, 0x10000}, // flagged values unchanged
      {-At(INT64_MIN, TC_PAL), INT64_MIN, 0x10000},
      {tcabs(At(-48, TC_PAL)), 48, 0},
  };
  ExpectResults(kRows);
  EXPECT_DOUBLE_EQ(At(300, 0) / At(200, 1), 1.5);
  EXPECT_EQ(At(300, 0) / At(0, 1), 0.0);
  EXPECT_EQ(At(300, 0) / At(200, 0x10000), 0.0);
  timecode value = At(0, TC_NTSC);
  timecode & same = value++;
  EXPECT_EQ(&same, &value) << "the postfix form returns the value itself";
  EXPECT_EQ(value.GetPosition(), 40);
  EXPECT_TRUE(!At(0, TC_PAL));
  EXPECT_TRUE(!timecode());
  EXPECT_FALSE(!At(48, 0x10000));
}

TEST(TimecodeComparison, RulesIncludingTheirAsymmetries) {
  struct Case {
    timecode a, b;
    bool eq, ne, lt, gt, le, ge;
  };
  timecode const a = At(100, TC_PAL);
  timecode const u1(INT64_C(1), 0x10000);
  Case const kCases[] = {
      {a, At(200, TC_PAL), false, true, true, false, true, false},
      {a, a, true, false, false, false, true, true},
      {a, At(100, TC_NTSC), false, true, false, false, true, true}, // systems count for == only
      {u1, At(2, 0x10000), true, true, true, false, true, true},    // both == and !=
      {a, u1, false, true, true, false, true, false},
      {u1, a, false, true, false, true, false, false}, // > but not >=
      {timecode(), At(0, TC_PAL), false, true, false, false, true, true},
  };
  for (std::size_t i = 0; i < sizeof(kCases) / sizeof(kCases[0]); ++i) {
    Case const & c = kCases[i];
    EXPECT_EQ(c.a == c.b, c.eq) << "row " << i;
    EXPECT_EQ(c.a != c.b, c.ne) << "row " << i;
    EXPECT_EQ(c.a < c.b, c.lt) << "row " << i;
    EXPECT_EQ(c.a > c.b, c.gt) << "row " << i;
    EXPECT_EQ(c.a <= c.b, c.le) << "row " << i;
    EXPECT_EQ(c.a >= c.b, c.ge) << "row " << i;
  }
  timecode const pal = At(120, TC_PAL);
  EXPECT_TRUE(pal == INT64_C(120));
  EXPECT_TRUE(pal == 5) << "five fields";
  EXPECT_TRUE(pal == 0.1) << "a tenth of a second";
  EXPECT_TRUE(pal < 107374183) << "an out-of-range count is undefined, which every value is below";
  EXPECT_FALSE(timecode() == 0) << "unassigned is not position 0 of the system";
}
