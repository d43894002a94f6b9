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

// A (frame number, label) pair of a system's own frame count.
struct FrameLabel {
  std::int64_t frame;
  Label label;
};

Label LabelOf(TCINFO const & info) {
  return {info.hh(), info.mm(), info.ss(), info.ff()};
}

timecode At(std::int64_t position, std::uint32_t system) {
  return timecode(position, system);
}

// Checks a table in both directions: position -> label, and label -> position.
void ExpectLabels(std::uint32_t system, FrameLabel const * rows, std::size_t count) {
  std::int64_t const frame = kFacts[system].frameBU;
  for (std::size_t i = 0; i < count; ++i) {
    FrameLabel const & row = rows[i];
    TCINFO const info(row.frame * frame, system);
    EXPECT_EQ(LabelOf(info), row.label) << kFacts[system].name << " frame " << row.frame;
    EXPECT_EQ(info.dd(), 0);
    EXPECT_EQ(info.sys(), system);
    timecode const back(static_cast<std::int32_t>(row.label.h), row.label.m, row.label.s,
                        row.label.f, system);
    EXPECT_EQ(back.GetSystem(), system) << kFacts[system].name << " " << row.label;
    EXPECT_EQ(back.GetPosition(), row.frame * frame) << kFacts[system].name << " " << row.label;
  }
}

template <std::size_t N> void ExpectLabels(std::uint32_t system, FrameLabel const (&rows)[N]) {
  ExpectLabels(system, rows, N);
}

} // namespace

// ---- the system table

TEST(TimecodeSystems, TableValues) {
  struct Row {
    std::uint32_t rate, scale;
    std::int64_t frameBU, fieldBU;
    char16_t const * name;
    double fps;
  };
  constexpr Row kRows[] = {
      {25, 1, 48, 24, u"PAL", 25.0},
      {30000, 1001, 40, 20, u"NTSC", 29.97002997002997},
      {30000, 1001, 40, 20, u"NTSC(DF)", 29.97002997002997},
      {24, 1, 50, 25, u"FILM", 24.0},
      {24000, 1001, 50, 25, u"HDFILM", 23.976023976023978},
      {24000, 1001, 50, 25, u"HDFILM(DF)", 23.976023976023978},
      {50, 1, 24, 12, u"HD50", 50.0},
      {60000, 1001, 20, 10, u"HDNTSC", 59.94005994005994},
      {60000, 1001, 20, 10, u"HDNTSC(DF)", 59.94005994005994},
      {25, 2, 96, 48, u"PAL(PX)", 12.5},
      {15, 1, 80, 40, u"NTSC(PX)", 15.0},
      {12, 1, 100, 50, u"FILM(PX)", 12.0},
      {30, 1, 40, 20, u"HD30", 30.0},
      {60, 1, 20, 10, u"HD60", 60.0},
  };
  static_assert(sizeof(kRows) / sizeof(kRows[0]) == 14);
  for (std::uint32_t i = 0; i < 14; ++i) {
    Row const & row = kRows[i];
    std::uint32_t rate = 0;
    std::uint32_t scale = 0;
    EXPECT_TRUE(timecode::GetFrameRateScaleOf(i, rate, scale));
    EXPECT_EQ(rate, row.rate) << i;
    EXPECT_EQ(scale, row.scale) << i;
    EXPECT_EQ(timecode::GetFrameBU(i), row.frameBU) << i;
    EXPECT_EQ(timecode::GetFieldBU(i), row.fieldBU) << i;
    EXPECT_EQ(std::u16string(timecode::GetSystemString(i)), row.name) << i;
    EXPECT_DOUBLE_EQ(timecode::FramerateOf(i), row.fps) << i;
    timecode const value(INT64_C(0), i);
    EXPECT_DOUBLE_EQ(value.Framerate(), row.fps) << i;
    EXPECT_EQ(std::u16string(value.GetSystemString()), row.name) << i;
    EXPECT_DOUBLE_EQ(timecode::BULen(i), row.scale == 1001 ? 1.001 / 1200 : 1.0 / 1200) << i;
  }
  EXPECT_EQ(std::u16string(timecode::GetSystemString(15)), u"PAL") << "normalised first";
  EXPECT_EQ(timecode::GetFrameBU(0x1000E), 48) << "index 14 reads as 0";
}

TEST(TimecodeSystems, NormalisationOfSystemWords) {
  struct Case {
    std::uint32_t word, normalised;
  };
  constexpr Case kCases[] = {
      {0, 0},
      {13, 13},
      {14, 0x20000},
      {15, 0x20000},
      {0x10005, 0x10005},
      {0x1000F, 0x30000},
      {0x4000E, 0x60000},
      {0x20003, 0x20003},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 8);
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::NormalizeSystem(c.word), c.normalised) << std::hex << c.word;
  }
  EXPECT_EQ(timecode(INT64_C(5), 14).GetSystem(), 0x20000u);
  EXPECT_EQ(timecode(INT64_C(5), 14).GetPosition(), 0) << "unassigned means position 0";
}

TEST(TimecodeSystems, DropFramePartnersAndTheDfTest) {
  struct Case {
    std::uint32_t word;
    bool isDF;
    std::uint32_t df, ndf;
  };
  constexpr Case kCases[] = {
      {0, false, 0x20000, 0x20000},
      {1, false, 2, 0x20000},
      {2, true, 0x20000, 1},
      {3, false, 0x20000, 0x20000},
      {4, false, 5, 0x20000},
      {5, true, 0x20000, 4},
      {7, false, 8, 0x20000},
      {8, true, 0x20000, 7},
      {9, true, 0x20000, 0x20000},
      {12, false, 0x20000, 0x20000},
      {0x10002, false, 0x20000, 0x20000},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 11);
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::IsDFSystem(c.word), c.isDF) << c.word;
    EXPECT_EQ(timecode::GetDFSystem(c.word), c.df) << c.word;
    EXPECT_EQ(timecode::GetNDFSystem(c.word), c.ndf) << c.word;
  }
  EXPECT_TRUE(timecode(INT64_C(0), 0x10002).IsDFSystem()) << "the member form reads the index only";
}

TEST(TimecodeSystems, RateOrderedList) {
  std::uint32_t list[20] = {};
  std::uint32_t count = 20;
  timecode::GetFramerateTCList(list, count);
  EXPECT_EQ(count, 14u);
  constexpr std::uint32_t kExpected[] = {11, 9, 10, 4, 5, 3, 0, 1, 2, 12, 6, 7, 8, 13};
  for (int i = 0; i < 14; ++i) {
    EXPECT_EQ(list[i], kExpected[i]) << i;
  }
  std::uint32_t few[3] = {};
  count = 3;
  timecode::GetFramerateTCList(few, count);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(few[2], 10u);
}

TEST(TimecodeSystems, NearestSystemToARate) {
  struct Case {
    double fps;
    std::uint32_t system;
  };
  constexpr Case kCases[] = {
      {70.0, 13},  {60.0, 13},        {12.5, 11},       {5.0, 11},        {25.0, 0x20000},
      {29.98, 1},  {29.97, 0x20000},  {29.99, 0x20000}, {30.0, 0x20000},  {59.95, 7},
      {23.977, 4}, {23.976, 0x20000}, {24.5, 0x20000},  {59.94, 0x20000},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 14);
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::GetBestTCSystem(c.fps), c.system) << c.fps;
  }
  EXPECT_EQ(timecode::GetBestTCSystem(std::nan("")), 0x20000u);
}

TEST(TimecodeSystems, SystemOfARateAndScale) {
  struct Case {
    std::uint32_t rate, scale, system;
  };
  constexpr Case kCases[] = {
      {25, 1, 0},
      {30000, 1001, 1},
      {24, 1, 3},
      {24000, 1001, 4},
      {50, 1, 6},
      {60000, 1001, 7},
      {25, 2, 9},
      {15, 1, 10},
      {12, 1, 11},
      {30, 1, 12},
      {60, 1, 13},
      {48, 1, 0x20000},
      {30000, 1000, 0x20000},
      {1, 0, 13},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 14);
  for (Case const & c : kCases) {
    EXPECT_EQ(timecode::GetTCSystemOf(c.rate, c.scale), c.system) << c.rate << "/" << c.scale;
  }
}

TEST(TimecodeSystems, LimitsOfPositions) {
  struct Case {
    std::uint32_t system;
    std::int64_t maxTC; // -1: undefined
  };
  constexpr Case kCases[] = {
      {0, -1},  {1, 2073600000}, {2, 2071526400},  {3, -1},          {4, -1},
      {5, -1},  {6, 1244160000}, {7, 1036800000},  {8, 1035763200},  {9, -1},
      {10, -1}, {11, -1},        {12, 2073600000}, {13, 1036800000},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 14);
  for (Case const & c : kCases) {
    timecode const maxTC = timecode::GetMaxTC(c.system);
    if (c.maxTC < 0) {
      EXPECT_EQ(maxTC.GetSystem(), 0x10000u) << c.system;
    } else {
      EXPECT_EQ(maxTC.GetSystem(), c.system);
      EXPECT_EQ(maxTC.GetPosition(), c.maxTC) << c.system;
    }
  }
  // 2^63 - 1 = 9223372036854775807 leaves 31 over a multiple of 48 and 7 over one of 20.
  EXPECT_EQ(timecode::GetMaxFrame(0).GetPosition(), INT64_C(9223372036854775776));
  EXPECT_EQ(timecode::GetMinFrame(0).GetPosition(), INT64_C(-9223372036854775776));
  EXPECT_EQ(timecode::GetMaxFrame(13).GetPosition(), INT64_C(9223372036854775800));
}

// ---- construction and conversion

// An `int` selects the field count, a `std::int64_t` base units, a double seconds.
static_assert(!std::is_convertible_v<std::int64_t, timecode>);

TEST(TimecodeConstruction, IntLiteralsCountFieldsAndInt64CountBaseUnits) {
  EXPECT_EQ(timecode(5, TC_PAL).GetPosition(), 120);
  EXPECT_EQ(timecode(INT64_C(5), TC_PAL).GetPosition(), 5);
  EXPECT_EQ(timecode(5.0, TC_PAL).GetPosition(), 6000);
  EXPECT_EQ(TCINFO(50, TC_PAL).ss(), 1u);
  EXPECT_EQ(static_cast<std::int64_t>(SZTC(50, TC_PAL)), 1200);
}

TEST(TimecodeConstruction, FieldCounts) {
  struct Case {
    std::int32_t fields;
    std::uint32_t system;
    std::int64_t position;
    std::uint32_t word;
  };
  constexpr Case kCases[] = {
      {5, 0, 120, 0},
      {-5, 0, -120, 0},
      {107374182, 1, 2147483640, 1},
      {107374183, 1, 0, 0x10000}, // beyond 2147483647 / 20: the index is dropped
      {-107374183, 1, 0, 0x10000},
      {89478485, 0, 2147483640, 0},
      {89478486, 0, 0, 0x10000},
      {INT32_MIN, 13, 0, 0x10000},
      {5, 0x20001, 0, 0x20001},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 9);
  for (Case const & c : kCases) {
    timecode const value(c.fields, c.system);
    EXPECT_EQ(value.GetPosition(), c.position) << c.fields;
    EXPECT_EQ(value.GetSystem(), c.word) << c.fields;
  }
}

TEST(TimecodeConstruction, SecondsRoundHalfAwayFromZeroAndSaturate) {
  struct Case {
    double seconds;
    std::uint32_t system;
    std::int64_t position;
  };
  constexpr Case kCases[] = {
      {1.0, 0, 1200},
      {1.001, 1, 1200},
      {1.0, 1, 1199},   // 1198.8 base units of 1.001/1200
                        // s
      {0.03125, 0, 38}, // 37.5
      {-0.03125, 0, -38},
      {3600.0, 12, 4320000},
      {1e30, 0, kMax},
      {-1e30, 0, -kMax},
      {1e17, 0, kMax}, // within the seconds limit, beyond it in base units
      {-1e17, 0, -kMax},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 10);
  for (Case const & c : kCases) {
    timecode const value(c.seconds, c.system);
    EXPECT_EQ(value.GetPosition(), c.position) << c.seconds;
    EXPECT_EQ(value.GetSystem(), c.system) << c.seconds;
  }
  timecode const notANumber(std::nan(""), 1);
  EXPECT_EQ(notANumber.GetSystem(), 0x10001u);
  EXPECT_EQ(notANumber.GetPosition(), 0);
  EXPECT_EQ(timecode(2.0, 0x20000).GetPosition(), 0);
}

TEST(TimecodeConstruction, ConversionsOfPositions) {
  timecode const pal(INT64_C(36), 0); // a field and a half
  EXPECT_EQ(static_cast<std::int32_t>(pal), 2);
  EXPECT_EQ(static_cast<std::int32_t>(At(-36, 0)), -2);
  EXPECT_EQ(static_cast<std::int32_t>(At(35, 0)), 1);
  EXPECT_EQ(static_cast<std::int32_t>(At(kMax, 0)), INT32_MAX) << "saturates";
  EXPECT_EQ(static_cast<std::int64_t>(pal), 36);
  EXPECT_DOUBLE_EQ(static_cast<double>(At(1200, 0)), 1.0);
  EXPECT_DOUBLE_EQ(static_cast<double>(At(1200, 1)), 1.001);
  EXPECT_DOUBLE_EQ(static_cast<double>(At(-600, 12)), -0.5);
  timecode const undefined(INT64_C(1200), 0x10000);
  EXPECT_EQ(static_cast<std::int64_t>(undefined), 0);
  EXPECT_EQ(static_cast<std::int32_t>(undefined), 0);
  EXPECT_EQ(static_cast<double>(undefined), 0.0);
}

TEST(TimecodeConstruction, FieldsAndFramesOfAnotherSystem) {
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    int mode;
    std::int64_t frames, fields;
  };
  constexpr Case kCases[] = {
      {100, 0, -1, 2, 4},   {100, 0, 1, 3, 5},   {100, 0, 0, 2, 4},   {72, 0, 0, 2, 3},
      {72, 0, -1, 1, 3},    {-72, 0, 0, -2, -3}, {-72, 0, 1, -2, -3}, {-72, 0, -1, -1, -3},
      {-100, 0, 1, -3, -5}, {100, 7, 5, 5, 10},  {90, 13, 0, 5, 9},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 11);
  for (Case const & c : kCases) {
    timecode const value(c.position, 1); // the value's own system does not matter
    EXPECT_EQ(value.Frames(c.system, c.mode), c.frames) << c.position << " mode " << c.mode;
    EXPECT_EQ(value.Fields(c.system, c.mode), c.fields) << c.position << " mode " << c.mode;
  }
  EXPECT_EQ(At(100, 0).Frames(0x10000, 0), 0);
  EXPECT_EQ(At(100, 0).Frames(14, 0), 0);
  EXPECT_EQ(At(100, 0x10000).Frames(0, 0), 0);
}

// ---- position <-> label

TEST(NonDropFrameTimecode, LabelsCountFramesPerSecond) {
  constexpr FrameLabel kPal[] = {
      {0, {0, 0, 0, 0}},     {1, {0, 0, 0, 1}},           {24, {0, 0, 0, 24}},
      {25, {0, 0, 1, 0}},    {1499, {0, 0, 59, 24}},      {1500, {0, 1, 0, 0}},
      {90000, {1, 0, 0, 0}}, {2159999, {23, 59, 59, 24}},
  };
  ExpectLabels(TC_PAL, kPal);
  constexpr FrameLabel kNtsc[] = {
      {29, {0, 0, 0, 29}},     {30, {0, 0, 1, 0}},     {1800, {0, 1, 0, 0}},
      {17982, {0, 9, 59, 12}}, {108000, {1, 0, 0, 0}},
  };
  ExpectLabels(TC_NTSC, kNtsc);
  ExpectLabels(TC_HD30, kNtsc);
  constexpr FrameLabel kFilm[] = {{23, {0, 0, 0, 23}}, {24, {0, 0, 1, 0}}, {86400, {1, 0, 0, 0}}};
  ExpectLabels(TC_FILM, kFilm);
  ExpectLabels(TC_HDFILM, kFilm);
  constexpr FrameLabel kHd50[] = {{49, {0, 0, 0, 49}}, {50, {0, 0, 1, 0}}, {180000, {1, 0, 0, 0}}};
  ExpectLabels(TC_HD50, kHd50);
  constexpr FrameLabel kHd60[] = {{59, {0, 0, 0, 59}}, {60, {0, 0, 1, 0}}, {216000, {1, 0, 0, 0}}};
  ExpectLabels(TC_HD60, kHd60);
  ExpectLabels(TC_HDNTSC, kHd60);
  constexpr FrameLabel kNtscPx[] = {{14, {0, 0, 0, 14}}, {15, {0, 0, 1, 0}}, {54000, {1, 0, 0, 0}}};
  ExpectLabels(TC_NTSC_PX, kNtscPx);
  constexpr FrameLabel kFilmPx[] = {{11, {0, 0, 0, 11}}, {12, {0, 0, 1, 0}}, {43200, {1, 0, 0, 0}}};
  ExpectLabels(TC_FILM_PX, kFilmPx);
}

TEST(TimecodeLabels, APositionBetweenFramesReadsByDividingTheRest) {
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    Label label;
  };
  constexpr Case kCases[] = {
      {47, TC_PAL, {0, 0, 0, 0}},
      {49, TC_PAL, {0, 0, 0, 1}},
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

TEST(DropFrameTimecode, NtscSkipsLabels0And1AtEachMinuteExceptTenths) {
  constexpr FrameLabel kFirstMinuteRollover[] = {
      {1799, {0, 0, 59, 29}}, {1800, {0, 1, 0, 2}}, {1801, {0, 1, 0, 3}},
      {3597, {0, 1, 59, 29}}, {3598, {0, 2, 0, 2}},
  };
  ExpectLabels(TC_NTSC_DF, kFirstMinuteRollover);
  constexpr FrameLabel kTenthMinute[] = {
      {17981, {0, 9, 59, 29}},  {17982, {0, 10, 0, 0}}, {17983, {0, 10, 0, 1}},
      {19781, {0, 10, 59, 29}}, {19782, {0, 11, 0, 2}},
  };
  ExpectLabels(TC_NTSC_DF, kTenthMinute);
  constexpr FrameLabel kHoursAndDay[] = {
      {107891, {0, 59, 59, 29}},
      {107892, {1, 0, 0, 0}},
      {1078920, {10, 0, 0, 0}},
      {2589407, {23, 59, 59, 29}},
  };
  ExpectLabels(TC_NTSC_DF, kHoursAndDay);
}

TEST(DropFrameTimecode, HdntscCountsPairsAndSkipsLabels0To3) {
  constexpr FrameLabel kFirstMinuteRollover[] = {
      {3598, {0, 0, 59, 58}}, {3599, {0, 0, 59, 59}}, {3600, {0, 1, 0, 4}},
      {3601, {0, 1, 0, 5}},   {7195, {0, 1, 59, 59}}, {7196, {0, 2, 0, 4}},
  };
  ExpectLabels(TC_HDNTSC_DF, kFirstMinuteRollover);
  constexpr FrameLabel kTenthMinuteAndHour[] = {
      {35963, {0, 9, 59, 59}}, {35964, {0, 10, 0, 0}},      {35965, {0, 10, 0, 1}},
      {215784, {1, 0, 0, 0}},  {5178815, {23, 59, 59, 59}},
  };
  ExpectLabels(TC_HDNTSC_DF, kTenthMinuteAndHour);
}

TEST(DropFrameTimecode, HdfilmSkipsLabels0And1ExceptEveryFourthMinute) {
  constexpr FrameLabel kMinutes1To5[] = {
      {1439, {0, 0, 59, 23}}, {1440, {0, 1, 0, 2}},   {2877, {0, 1, 59, 23}}, {2878, {0, 2, 0, 2}},
      {4316, {0, 3, 0, 2}},   {5753, {0, 3, 59, 23}}, {5754, {0, 4, 0, 0}},   {5755, {0, 4, 0, 1}},
      {7193, {0, 4, 59, 23}}, {7194, {0, 5, 0, 2}},
  };
  ExpectLabels(TC_HDFILM_DF, kMinutes1To5);
  constexpr FrameLabel kHour[] = {{86309, {0, 59, 59, 23}}, {86310, {1, 0, 0, 0}}};
  ExpectLabels(TC_HDFILM_DF, kHour);
}

TEST(PxTimecode, PalPxLabels13FramesInEvenAnd12InOddSeconds) {
  constexpr FrameLabel kTwoSecondCycle[] = {
      {0, {0, 0, 0, 0}},     {12, {0, 0, 0, 12}}, {13, {0, 0, 1, 0}},
      {24, {0, 0, 1, 11}},   {25, {0, 0, 2, 0}},  {37, {0, 0, 2, 12}},
      {749, {0, 0, 59, 11}}, {750, {0, 1, 0, 0}}, {45000, {1, 0, 0, 0}},
  };
  ExpectLabels(TC_PAL_PX, kTwoSecondCycle);
}

TEST(TimecodeLabels, NegativePositionsAreSignAndMagnitude) {
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    std::int64_t days;
    Label label;
  };
  constexpr Case kCases[] = {
      {-1, TC_PAL, -1, {0, 0, 0, 0}},
      {-48, TC_PAL, -1, {0, 0, 0, 1}},
      {-4320000, TC_PAL, -1, {1, 0, 0, 0}},
      {-103680000, TC_PAL, -2, {0, 0, 0, 0}},
      {-72000, TC_NTSC_DF, -1, {0, 1, 0, 2}},
      {103680048, TC_PAL, 1, {0, 0, 0, 1}},
      {103576320 * 3 + 72000, TC_NTSC_DF, 3, {0, 1, 0, 2}},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 7);
  for (Case const & c : kCases) {
    TCINFO const info(c.position, c.system);
    EXPECT_EQ(info.dd(), c.days) << c.position;
    EXPECT_EQ(LabelOf(info), c.label) << c.position;
    if (c.position % kFacts[c.system].frameBU == 0) {
      EXPECT_EQ(static_cast<std::int64_t>(info), c.position) << c.position;
    }
  }
  EXPECT_EQ(static_cast<std::int64_t>(TCINFO(INT64_C(-9223372036854775800), TC_HD60)),
            INT64_C(-9223372036854775800))
      << "the far end";
  EXPECT_EQ(TCINFO(INT64_MIN, TC_PAL).dd(), INT64_C(-88959992640)) << "no overflow at the very end";
}

TEST(TimecodeLabels, ValidationOfLabels) {
  struct Case {
    std::int32_t h;
    std::uint32_t m, s, f, system;
    std::uint32_t word;    // the resulting system word
    std::int64_t position; // when valid
  };
  constexpr Case kCases[] = {
      // drop-frame labels that do not exist
      {0, 1, 0, 0, 2, 0x10002, 0},
      {0, 1, 0, 1, 2, 0x10002, 0},
      {0, 1, 0, 2, 2, 2, 72000},
      {0, 10, 0, 0, 2, 2, 719280},
      {0, 1, 0, 3, 8, 0x10008, 0},
      {0, 1, 0, 4, 8, 8, 72000},
      {0, 1, 0, 1, 5, 0x10005, 0},
      {0, 2, 0, 0, 5, 0x10005, 0},
      {0, 4, 0, 0, 5, 5, 287700},
      {0, 1, 1, 0, 2, 2, 73120},
      // field ranges
      {0, 0, 1, 12, 9, 0x10009, 0},
      {0, 0, 1, 11, 9, 9, 2304},
      {0, 0, 0, 12, 9, 9, 1152},
      {0, 0, 0, 13, 9, 0x10009, 0},
      {0, 0, 0, 24, 0, 0, 1152},
      {0, 0, 0, 25, 0, 0x10000, 0},
      {0, 0, 0, 30, 1, 0x10001, 0},
      {0, 60, 0, 0, 12, 0x1000C, 0},
      {0, 0, 60, 0, 12, 0x1000C, 0},
      {743, 0, 0, 0, 0, 0, 743 * INT64_C(4320000)},
      {744, 0, 0, 0, 0, 0x10000, 0},
      {-743, 0, 0, 0, 0, 0, -743 * INT64_C(4320000)},
      {-744, 0, 0, 0, 0, 0x10000, 0},
      {-1, 0, 0, 0, 0, 0, -4320000},
      {INT32_MIN, 0, 0, 0, 0, 0x10000, 0},
      // system words
      {0, 0, 0, 0, 14, 0x20000, 0},
      {0, 60, 0, 0, 14, 0x30000, 0},
      {1, 0, 0, 0, 0x20001, 0x20001, 0},
      {1, 0, 0, 0, 0x10001, 0x10001, 0},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 29);
  for (Case const & c : kCases) {
    timecode const value(c.h, c.m, c.s, c.f, c.system);
    EXPECT_EQ(value.GetSystem(), c.word)
        << c.h << ":" << c.m << ":" << c.s << ":" << c.f << " in " << c.system;
    EXPECT_EQ(value.GetPosition(), c.position) << c.h << ":" << c.m << ":" << c.s << ":" << c.f;
  }
  TCINFO const negative(-25, 1, 2, 3, 0);
  EXPECT_EQ(negative.dd(), -2);
  EXPECT_EQ(LabelOf(negative), (Label{1, 1, 2, 3}));
}

TEST(TimecodeLabels, GetInfoFoldsTheDaysIntoTheHours) {
  std::uint32_t h = 0, m = 0, s = 0, f = 0, system = 0;
  std::int32_t sign = 0;
  ASSERT_TRUE(TCINFO(30, 1, 2, 3, 0).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_EQ((Label{h, m, s, f}), (Label{30, 1, 2, 3}));
  EXPECT_EQ(sign, 1);
  ASSERT_TRUE(TCINFO(-30, 1, 2, 3, 12).GetInfo(&h, nullptr, nullptr, nullptr, &sign, &system));
  EXPECT_EQ(h, 30u);
  EXPECT_EQ(sign, -1);
  EXPECT_EQ(system, 12u);
  system = 0;
  EXPECT_FALSE(TCINFO(INT64_C(0), 0x10003).GetInfo(&h, &m, &s, &f, &sign, &system));
  EXPECT_EQ(system, 0x10003u) << "the word is written even for a flagged value";
  EXPECT_EQ(h, 30u) << "nothing else is";
}

TEST(TimecodeLabels, ClipOfABrokenDownValueKeepsTheTimeOfDay) {
  TCINFO info(INT64_C(3) * 103680000 + 48, TC_PAL);
  info.Clip();
  EXPECT_EQ(static_cast<std::int64_t>(info), 48);
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
      {0, 0, 0, 0},         {24, 48, 0, 48},        {23, 0, 0, 48},    {48, 48, 48, 48},
      {53, 48, 48, 96},     {-5, 0, 0, 48},         {-24, -48, 0, 48}, {-53, -48, -96, 0},
      {-48, -48, -48, -48}, {-101, -96, -144, -48},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 10);
  for (Case const & c : kCases) {
    EXPECT_EQ(At(c.position, TC_PAL).Aligned().GetPosition(), c.aligned) << c.position;
    EXPECT_EQ(At(c.position, TC_PAL).Trunced().GetPosition(), c.trunced) << c.position;
    EXPECT_EQ(At(c.position, TC_PAL).Roofed().GetPosition(), c.roofed) << c.position;
  }
}

TEST(TimecodeAlignment, ToAnotherSystemAndAtTheLimits) {
  timecode value = At(100, TC_PAL);
  value.AlignToSystem(TC_NTSC); // 2.5 frames of 40: ties away from zero
  EXPECT_EQ(value.GetPosition(), 120);
  EXPECT_EQ(value.GetSystem(), TC_NTSC);
  EXPECT_EQ(At(100, TC_PAL).TruncedToSystem(TC_HD60).GetPosition(), 100);
  EXPECT_EQ(At(101, TC_PAL).RoofedToSystem(TC_HD60).GetPosition(), 120);
  EXPECT_EQ(timecode::AlignedToSystem(At(36, TC_PAL), TC_HD50).GetPosition(), 48);

  timecode undefined(INT64_C(7), 0x10000);
  EXPECT_EQ(undefined.AlignToSystem(TC_NTSC).GetSystem(), 0x10000u) << "left as it is";
  timecode unassigned;
  EXPECT_EQ(unassigned.AlignToSystem(TC_NTSC).GetSystem(), 0x20001u);
  EXPECT_EQ(At(7, 0x10000).TruncedToSystem(TC_HD60).GetSystem(), 0x1000Du) << "only the index";
  EXPECT_EQ(At(7, 0x10000).TruncedToSystem(TC_HD60).GetPosition(), 7);

  EXPECT_EQ(At(kMax, TC_PAL).Roofed().GetSystem(), 0x10000u);
  EXPECT_EQ(At(kMax, TC_PAL).Aligned().GetSystem(), 0x10000u) << "31 over: rounds up, beyond";
  EXPECT_EQ(At(kMax, TC_PAL).Trunced().GetPosition(), INT64_C(9223372036854775776));
  EXPECT_EQ(At(-kMax, TC_PAL).Trunced().GetSystem(), 0x10000u);
  EXPECT_EQ(At(INT64_MIN, TC_PAL).Trunced().GetSystem(), 0x10000u);

  EXPECT_TRUE(At(96, TC_PAL).AssertAligned());
  EXPECT_FALSE(At(95, TC_PAL).AssertAligned());
  EXPECT_TRUE(At(96, TC_PAL).AssertAlignedToSystem(TC_HD50));
  EXPECT_FALSE(At(96, TC_PAL).AssertAlignedToSystem(TC_NTSC_PX));
  EXPECT_FALSE(At(96, TC_PAL).AssertAlignedToSystem(0x10000));
  EXPECT_FALSE(At(96, 0x10000).AssertAligned());
}

TEST(TimecodeAlignment, ClipAndWrapKeepTheTimeOfDayOfTheLabel) {
  struct Case {
    std::int64_t position;
    std::uint32_t system;
    std::int64_t clipped, wrapped;
  };
  constexpr Case kCases[] = {
      {-48, TC_PAL, -48, 103679952},
      {103680048, TC_PAL, 48, 48},
      {-103680048, TC_PAL, -48, 103679952},
      {-103680000, TC_PAL, 0, 0},
      {-40, TC_NTSC_DF, -40, 103576280},
      {103572000 + 50, TC_HDFILM_DF, 50, 50},
      {-7, TC_PAL, 0, 0}, // recomposed from the label, which drops the sub-frame offset
      {71930, TC_NTSC_DF, 71960, 71960}, // reads 00:00:59:29
      // 2^63 mod 103680000 is 43255808, which reads 10:00:46:30 (43255800).
      {INT64_MIN, TC_HD60, -43255800, 60424200},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 9);
  for (Case const & c : kCases) {
    EXPECT_EQ(At(c.position, c.system).Clipped().GetPosition(), c.clipped) << c.position;
    EXPECT_EQ(At(c.position, c.system).Wrapped().GetPosition(), c.wrapped) << c.position;
  }
  EXPECT_EQ(At(-48, 0x10000).Wrapped().GetPosition(), -48) << "flagged values are unchanged";
}

TEST(TimecodeAlignment, Scale) {
  struct Case {
    std::int64_t position, num, den;
    bool round;
    std::int64_t result;
    std::uint32_t word;
  };
  constexpr Case kCases[] = {
      {1000, 1001, 1000, false, 1001, 0},
      {1000, 1, 3, false, 333, 0},
      {1000, 2, 3, false, 666, 0},
      {1000, 2, 3, true, 667, 0},
      {-1000, 2, 3, true, -667, 0},
      {-1000, 2, 3, false, -666, 0},
      {1000, 1, 0, false, 0, 0x10000},
      {2147483647, 1, 1, false, 2147483647, 0},
      {2147483647, 2, 1, false, 4294967294, 0x10000}, // the 32-bit limit, position kept
      {-2147483647, 2, 1, false, -4294967294, 0},     // the lower end is not tested
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 10);
  for (Case const & c : kCases) {
    timecode const value = At(c.position, TC_PAL).Scaled(c.num, c.den, c.round);
    EXPECT_EQ(value.GetPosition(), c.result) << c.position << "*" << c.num << "/" << c.den;
    EXPECT_EQ(value.GetSystem(), c.word) << c.position << "*" << c.num << "/" << c.den;
  }
  EXPECT_EQ(At(kMax, TC_PAL).Scaled(kMax, 1, false).GetSystem(), 0x10000u);
  EXPECT_EQ(At(5, 0x20000).Scaled(2, 1, false).GetPosition(), 0);
}

TEST(TimecodeMoves, MapToAlignsThenStepsByDirection) {
  struct Case {
    std::int64_t position;
    int direction;
    std::int64_t mapped; // into NTSC frames of 40
  };
  constexpr Case kCases[] = {
      {100, 0, 120}, {100, -1, 80}, {100, 1, 120}, {90, 0, 80},   {90, -1, 80},
      {90, 1, 120},  {80, 1, 80},   {80, -1, 80},  {-90, 1, -80}, {-90, -1, -120},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 10);
  for (Case const & c : kCases) {
    timecode const mapped = At(c.position, TC_PAL).MappedTo(TC_NTSC, c.direction);
    EXPECT_EQ(mapped.GetPosition(), c.mapped) << c.position << " dir " << c.direction;
    EXPECT_EQ(mapped.GetSystem(), TC_NTSC);
  }
  EXPECT_EQ(At(100, 0x10000).MappedTo(TC_NTSC, 0).GetSystem(), 0x10000u);
}

TEST(TimecodeMoves, UpAndDownConversionPairRates) {
  struct Case {
    std::uint32_t system;
    std::uint32_t up, down; // 99: unchanged
  };
  constexpr Case kCases[] = {
      {TC_PAL, TC_HD50, TC_PAL_PX},
      {TC_NTSC, TC_HDNTSC, 99},
      {TC_NTSC_DF, TC_HDNTSC_DF, 99},
      {TC_FILM, 99, TC_FILM_PX},
      {TC_HDFILM, 99, 99},
      {TC_HD50, 99, TC_PAL},
      {TC_HDNTSC, 99, TC_NTSC},
      {TC_HDNTSC_DF, 99, TC_NTSC_DF},
      {TC_PAL_PX, TC_PAL, 99},
      {TC_NTSC_PX, TC_HD30, 99},
      {TC_FILM_PX, TC_FILM, 99},
      {TC_HD30, TC_HD60, TC_NTSC_PX},
      {TC_HD60, 99, TC_HD30},
  };
  static_assert(sizeof(kCases) / sizeof(kCases[0]) == 13);
  for (Case const & c : kCases) {
    timecode const value = At(4800, c.system); // a frame boundary of every system
    EXPECT_EQ(value.Upconverted(0).GetSystem(), c.up == 99 ? c.system : c.up) << c.system;
    EXPECT_EQ(value.Downconverted(0).GetSystem(), c.down == 99 ? c.system : c.down) << c.system;
    EXPECT_EQ(value.Upconverted(0).GetPosition(), 4800);
  }
  EXPECT_EQ(At(24, TC_HD50).Downconverted(0).GetPosition(), 48);
  EXPECT_EQ(At(24, TC_HD50).Downconverted(-1).GetPosition(), 0);
}

TEST(TimecodeMoves, XlateKeepsTheLabel) {
  struct Case {
    timecode value;
    std::uint32_t system;
    std::int64_t position;
  };
  Case const kCases[] = {
      {timecode(1, 0, 0, 29, TC_NTSC), TC_PAL, 4320000 + 24 * 48},
      {timecode(0, 1, 0, 0, TC_NTSC), TC_NTSC_DF, 72000}, // 00:01:00;00 moves on to ;02
      {timecode(0, 0, 1, 12, TC_PAL), TC_PAL_PX, (13 + 6) * 96},
      {timecode(0, 0, 1, 24, TC_PAL), TC_PAL_PX, (13 + 11) * 96},
      {timecode(-1, 0, 0, 0, TC_PAL), TC_HD60, -4320000},
      {timecode(0, 1, 0, 4, TC_HDNTSC_DF), TC_NTSC_DF, 72000},
  };
  for (Case const & c : kCases) {
    timecode const moved = c.value.XlatedToSystem(c.system);
    EXPECT_EQ(moved.GetSystem(), c.system);
    EXPECT_EQ(moved.GetPosition(), c.position) << c.value.GetPosition();
  }
}

TEST(TimecodeMoves, RoundToBiasAndSlip) {
  EXPECT_EQ(At(130, 0).RoundedTo(At(100, 0), At(10, 0)).GetPosition(), 110);
  EXPECT_EQ(At(160, 0).RoundedTo(At(100, 0), At(10, 0)).GetPosition(), 210);
  EXPECT_EQ(At(-40, 0).RoundedTo(At(100, 0), At(10, 0)).GetPosition(), -90) << "ties away";
  EXPECT_EQ(At(130, 0).RoundedTo(At(0, 0), At(10, 0)).GetSystem(), 0x10000u);
  EXPECT_EQ(At(100, 0).Biased(At(50, 0), At(1000, 0)).GetPosition(), 1050);
  EXPECT_EQ(At(100, 0).Biased(At(50, 0x10000), At(1000, 0)).GetSystem(), 0x10000u);
  EXPECT_EQ(At(kMax, 0).Biased(At(0, 0), At(1, 0)).GetSystem(), 0x10000u);

  EXPECT_EQ(At(4320000, TC_HD30).Slipped(1).GetPosition(), 4320000 + 2073600000);
  EXPECT_EQ(At(4320000, TC_HD30).Slipped(-1).GetPosition(), 4320000 - 2073600000);
  EXPECT_EQ(At(4320000, TC_PAL).Slipped(1).GetSystem(), 0x10000u) << "no quantity for PAL";
  EXPECT_EQ(At(kMax, TC_HD30).Slipped(1).GetSystem(), 0x1000Cu);
  EXPECT_EQ(timecode::Slipped(At(0, TC_HD60), 2).GetPosition(), 2073600000);
}

// ---- arithmetic

TEST(TimecodeArithmetic, AdditionOfTimecodes) {
  timecode const pal = At(100, TC_PAL);
  timecode const ntsc = At(50, TC_NTSC);
  timecode const undefined(INT64_C(7), 0x10003);
  timecode const unassigned;
  EXPECT_EQ((pal + ntsc).GetPosition(), 150);
  EXPECT_EQ((pal + ntsc).GetSystem(), TC_PAL) << "the left side's system";
  EXPECT_EQ((unassigned + ntsc).GetSystem(), TC_NTSC) << "unassigned + x is x";
  EXPECT_EQ((unassigned + undefined).GetSystem(), 0x10003u);
  timecode const sum = ntsc + undefined;
  EXPECT_EQ(sum.GetSystem(), 0x10000u) << "+ gives exactly 0x10000";
  EXPECT_EQ(sum.GetPosition(), 57) << "and keeps the sum";
  timecode accumulated = ntsc;
  accumulated += undefined;
  EXPECT_EQ(accumulated.GetSystem(), 0x10001u) << "+= ors the flag into its own word";
  EXPECT_EQ(accumulated.GetPosition(), 50) << "and keeps its position";
  accumulated = pal;
  accumulated += ntsc;
  EXPECT_EQ(accumulated.GetPosition(), 150);
  EXPECT_EQ((At(kMax, TC_PAL) + At(1, TC_PAL)).GetSystem(), 0x10000u);
}

TEST(TimecodeArithmetic, AdditionOfNumbers) {
  timecode const pal = At(100, TC_PAL);
  EXPECT_EQ((pal + INT64_C(5)).GetPosition(), 105) << "base units";
  EXPECT_EQ((INT64_C(5) + pal).GetPosition(), 105);
  EXPECT_EQ((pal + 2).GetPosition(), 148) << "an int counts fields";
  EXPECT_EQ((2 + pal).GetPosition(), 148);
  EXPECT_EQ((pal + 1.0).GetPosition(), 1300) << "a double counts seconds";
  EXPECT_EQ((1.0 + pal).GetPosition(), 1300);
  EXPECT_EQ((At(0, TC_NTSC) + 1.001).GetPosition(), 1200);

  timecode const field = At(0, TC_NTSC) + 107374183;
  EXPECT_EQ(field.GetSystem(), 0x10000u) << "an out-of-range count";
  EXPECT_EQ((timecode() + 2).GetSystem(), 0x20000u) << "unassigned adds nothing";
  EXPECT_EQ((At(7, 0x10000) + 2).GetPosition(), 7) << "undefined adds nothing";
  EXPECT_EQ((timecode() + INT64_C(5)).GetPosition(), 0);
  EXPECT_EQ((At(kMax, TC_PAL) + INT64_C(1)).GetSystem(), 0x10000u);

  timecode unchecked;
  unchecked += INT64_C(5);
  EXPECT_EQ(unchecked.GetPosition(), 5) << "+= of base units adds without any check";
  EXPECT_EQ(unchecked.GetSystem(), 0x20000u);
  timecode wrapping = At(kMax, TC_PAL);
  wrapping += INT64_C(1);
  EXPECT_EQ(wrapping.GetPosition(), INT64_MIN);
}

TEST(TimecodeArithmetic, SubtractionMirrorsAddition) {
  timecode const pal = At(100, TC_PAL);
  EXPECT_EQ((pal - At(30, TC_NTSC)).GetPosition(), 70);
  EXPECT_EQ((pal - At(30, TC_NTSC)).GetSystem(), TC_PAL);
  EXPECT_EQ((timecode() - At(30, TC_NTSC)).GetPosition(), -30) << "unassigned - x is -x";
  EXPECT_EQ((pal - At(7, 0x10001)).GetSystem(), 0x10000u);
  timecode difference = pal;
  difference -= At(7, 0x10001);
  EXPECT_EQ(difference.GetSystem(), 0x10000u | TC_PAL);
  EXPECT_EQ((pal - INT64_C(5)).GetPosition(), 95);
  EXPECT_EQ((pal - 2).GetPosition(), 52);
  EXPECT_EQ((pal - 1.0).GetPosition(), -1100);
  EXPECT_EQ((At(-kMax, TC_PAL) - INT64_C(2)).GetSystem(), 0x10000u);
}

TEST(TimecodeArithmetic, MultiplicationAndDivision) {
  struct Case {
    timecode result;
    std::int64_t position;
    std::uint32_t word;
  };
  timecode const pal = At(100, TC_PAL);
  Case const kCases[] = {
      {pal * 3, 300, 0},
      {pal * -3, -300, 0},
      {pal * 1.5, 150, 0},
      {pal * 0.125, 13, 0}, // 12.5 rounds away from zero
      {pal / 3, 33, 0},
      {pal / 8, 13, 0}, // 12.5
      {-pal / 8, -13, 0},
      {pal / -8, -13, 0},
      {pal / 0, 0, 0x10000},
      {pal / 2.0, 50, 0},
      {pal / 0.0, 0, 0x10000},
      {pal * std::nan(""), 0, 0x10000},
      {At(kMax, 0) * 2, 0, 0x10000},
      {At(kMax, 0) * 2.0, 0, 0x10000},
      {At(INT64_MIN, 0) / -1, 0, 0x10000},
      {At(7, 0x10000) * 2, 7, 0x10000},
  };
  for (std::size_t i = 0; i < sizeof(kCases) / sizeof(kCases[0]); ++i) {
    EXPECT_EQ(kCases[i].result.GetPosition(), kCases[i].position) << "row " << i;
    EXPECT_EQ(kCases[i].result.GetSystem(), kCases[i].word) << "row " << i;
  }
  EXPECT_DOUBLE_EQ(At(300, 0) / At(200, 1), 1.5);
  EXPECT_EQ(At(300, 0) / At(0, 1), 0.0);
  EXPECT_EQ(At(300, 0) / At(200, 0x10000), 0.0);
}

TEST(TimecodeArithmetic, IncrementNegationAndNot) {
  timecode value = At(0, TC_NTSC);
  timecode & same = value++;
  EXPECT_EQ(&same, &value) << "the postfix form returns the value itself";
  EXPECT_EQ(value.GetPosition(), 40);
  timecode undefined(INT64_C(7), 0x10000);
  undefined++;
  EXPECT_EQ(undefined.GetPosition(), 7);
  EXPECT_EQ((-At(48, TC_PAL)).GetPosition(), -48);
  EXPECT_EQ((-At(48, 0x10000)).GetPosition(), 48) << "flagged values unchanged";
  EXPECT_EQ((-At(INT64_MIN, TC_PAL)).GetSystem(), 0x10000u);
  EXPECT_EQ(tcabs(At(-48, TC_PAL)).GetPosition(), 48);
  EXPECT_EQ(tcabs(At(-48, 0x10000)).GetPosition(), -48);
  EXPECT_TRUE(!At(0, TC_PAL));
  EXPECT_TRUE(!timecode());
  EXPECT_FALSE(!At(48, TC_PAL));
  EXPECT_FALSE(!At(48, 0x10000));
}

TEST(TimecodeComparison, RulesIncludingTheirAsymmetries) {
  struct Case {
    timecode a, b;
    bool eq, ne, lt, gt, le, ge;
  };
  timecode const a = At(100, TC_PAL);
  timecode const b = At(200, TC_PAL);
  timecode const n = At(100, TC_NTSC);
  timecode const u1(INT64_C(1), 0x10000);
  timecode const u2(INT64_C(2), 0x10000);
  Case const kCases[] = {
      {a, b, false, true, true, false, true, false},
      {b, a, false, true, false, true, false, true},
      {a, a, true, false, false, false, true, true},
      {a, n, false, true, false, false, true, true}, // systems count for == only
      {u1, u2, true, true, true, false, true, true}, // both == and !=
      {u1, u1, true, false, true, false, true, true},
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
}

TEST(TimecodeComparison, WithNumbersOfTheSameSystem) {
  timecode const pal = At(120, TC_PAL);
  EXPECT_TRUE(pal == INT64_C(120));
  EXPECT_TRUE(pal == 5) << "five fields";
  EXPECT_TRUE(pal == 0.1) << "a tenth of a second";
  EXPECT_TRUE(pal < 6);
  EXPECT_TRUE(pal > INT64_C(119));
  EXPECT_TRUE(pal <= 0.1);
  EXPECT_TRUE(pal != 4);
  EXPECT_TRUE(pal < 107374183) << "an out-of-range count is undefined, which every value is below";
  EXPECT_FALSE(timecode() == 0) << "unassigned is not position 0 of the system";
  EXPECT_FALSE(At(120, 0x10000) == INT64_C(120));
}

TEST(TimecodeConstruction, DefaultAndUnassign) {
  timecode value = At(48, TC_NTSC);
  value.Unassign(TC_HD60);
  EXPECT_EQ(value.GetSystem(), 0x2000Du);
  EXPECT_EQ(value.GetPosition(), 0);
  EXPECT_FALSE(value.IsAssigned());
  EXPECT_TRUE(value.IsDefined());
  EXPECT_EQ(value.GetFlags(), 0x20000u);
  value.Unassign();
  EXPECT_EQ(value.GetSystem(), 0x20000u);
  EXPECT_EQ(timecode().GetSystem(), 0x20000u);
  EXPECT_EQ(timecode(1, 0, 0, 0, 0).GetPosition(), 4320000);
  EXPECT_EQ(timecode(0, 1, 0, 2, 2).GetPosition(), 72000);
  EXPECT_EQ(LabelOf(TCINFO(timecode(0, 1, 0, 2, 2))), (Label{0, 1, 0, 2}));
}
