#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <vorx/timecode.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"

using namespace VORX::TimeCode;
using vorx::test::Narrow;

namespace {

template <class T> std::string Text(T const & text) { // the short or the long form
  return Narrow(text.c_str());
}

} // namespace

TEST(TimecodeText, EachSystemWritesItsSeparatorsAndReadsThemBack) {
  constexpr char const * kOneHour[] = {
      " 01:00:00:00", " 01:00:00.00", " 01.00:00.00", " 01:00:00,00", " 01:00.00,00",
      " 01.00.00,00", " 01:00.00:00", " 01:00.00.00", " 01.00.00.00", " 01.00,00:00",
      " 01:00,00;00", " 01:00,00,00", " 01:00:00;00", " 01:00.00;00",
  };
  for (std::uint32_t system = 0; system < 14; ++system) {
    SZTC const text(1, 0, 0, 0, system);
    EXPECT_EQ(Text(text), kOneHour[system]) << system;
    EXPECT_EQ(TCINFO(text).sys(), system) << "the separators read back as the system";
  }
}

TEST(TimecodeText, TheShapesOfTheShortAndTheLongForm) {
  TCINFO wide(INT64_C(0), TC_PAL);
  wide.nHours = 100; // a field of three digits does not fit
  std::pair<std::string, char const *> const kCases[] = {
      {Text(SZTC(INT64_C(-48), TC_PAL)), "-00:00:00:01"},
      {Text(SZTC(INT64_C(108000000), TC_PAL)), ">##:##:##:##"}, // 25 hours
      {Text(SZTC(timecode(INT64_C(7), 0x10002))), "*##:##:##:##"},
      {Text(SZTC(wide)), "*##:##:##:##"},
      {Text(SZTC(timecode())), " --:--:--:--"},
      {Text(SZTC(0, 1, 0, 0, TC_NTSC_DF)), "*##:##:##:##"}, // a dropped label
      {Text(SZTC(4, TC_PAL)), " 00:00:00:02"},              // fields
      {Text(SZTC(1.0, TC_HD60)), " 00:00.01;00"},
      {Text(SZUTC(timecode(INT64_C(4315680), TC_NTSC_DF))), "01:00:00:00 {30000/1001}Hz/D"},
      {Text(SZUTC(timecode(INT64_C(0), TC_PAL_PX))), "00:00:00:00 {25/2}Hz/D"},
      {Text(SZUTC(timecode(INT64_C(103680000 + 4320000), TC_PAL))), "01:00:00:00+{25/1}Hz"},
      {Text(SZUTC(timecode(INT64_C(-48), TC_PAL))), "23:59:59:24-{25/1}Hz"},
      {Text(SZUTC(timecode(INT64_C(0), 0x20005))), "--:--:--:-- {24000/1001}Hz/D"},
      {Text(SZUTC(timecode(INT64_C(9), 0x10000))), "--:--:--:-- {25/1}Hz"},
  };
  for (auto const & [text, expected] : kCases) {
    EXPECT_EQ(text, expected);
  }
}

// Text in the twelve-character form stays as it is: a "-" in a field is a placeholder, and the
// fields are not range-checked (the conversion gives them their meaning). The separators give
// the system: one combination is undefined, some are no system at all.
TEST(TimecodeText, ShortFormReadingDecodesTheSystemFromTheSeparators) {
  struct Case {
    char16_t const * text;
    std::uint32_t system;
    std::int64_t position; // PAL: 25 frames of 48 units a second
  };
  constexpr Case kCases[] = {
      {u" 10.00.00:00", 0x10000, 0}, // the one undefined combination
      {u" 10,00:00:00", 0x20000, 0}, // not an accepted first separator
      {u" 10:00,00.00", 0x20000, 0}, // accepted, but no system
      {u" --:02:03:04", 0, ((2 * 60 + 3) * 25 + 4) * 48},
      {u" -1:02:03:04", 0, (((1 * 60 + 2) * 60 + 3) * 25 + 4) * 48},
      {u"-00:00:00:01", 0, -48},
      {u" 0-:00:00:01", 0, 48},
      {u" 99:99:99:99", 0, INT64_C(99) * 4320000 + 99 * 72000 + 99 * 1200 + 99 * 48},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(Text(SZTC(c.text)), Narrow(c.text));
    EXPECT_EQ(TCINFO(SZTC(c.text)).sys(), c.system) << Narrow(c.text);
    EXPECT_EQ(static_cast<std::int64_t>(timecode(c.text)), c.position) << Narrow(c.text);
  }
  EXPECT_EQ(static_cast<std::int32_t>(SZTC(u" 00:00:01:00")), 50) << "fields";
  timecode const typed(u"00.01:00.02");
  EXPECT_TRUE(typed.GetSystem() == TC_NTSC_DF && typed.GetPosition() == 72000);
}

TEST(TimecodeText, FreeTextIsCompletedIntoTheTwelveCharacterForm) {
  constexpr std::pair<char const *, char const *> kCases[] = {
      {"  -1:00:00:00 ", "-01:00:00:00"},    {"1:2", " 00:00:01:02"},
      {"10 : 00 . 00 : 00", " 10:00.00:00"}, {"", " --:--:--:--"},
      {"<12:00:00:00", "*##:##:##:##"},      {"123456789", "*##:##:##:##"},
      {"\xC3\xA9", "*##:##:##:##"}, // not ASCII
  };
  for (auto const & [typed, normalised] : kCases) {
    SZTC const text(typed);
    EXPECT_EQ(Text(text), normalised) << "typed \"" << typed << "\"";
    // Whatever it makes, the reader takes: a system, unassigned, or undefined, never garbage.
    TCINFO const info(text);
    TCINFO const again{SZTC(info)};
    EXPECT_TRUE(!info.IsDefined() ||
                (again.sys() == info.sys() &&
                 static_cast<std::int64_t>(again) == static_cast<std::int64_t>(info)))
        << typed;
  }
}

TEST(TimecodeText, HandsItsTextToTheLibraryStringBuffers) {
  SZTC const text(INT64_C(72000), TC_NTSC_DF);
  VORX::String::CUTF8Char const utf8 = text;
  ASSERT_TRUE(utf8);
  EXPECT_EQ(std::string(reinterpret_cast<char const *>(*utf8)), " 00.01:00.02");
  vorx::test::AllocationFailure const refuse;
  VORX::String::CQEFWChar const none = text;
  EXPECT_FALSE(none) << "no heap: an empty buffer, no crash";
}

TEST(TimecodeText, LongFormReadingAndTheStoredForm) {
  struct Case {
    char16_t const * text;
    std::int64_t position;
    std::uint32_t system;
  };
  constexpr Case kCases[] = {
      {u"00:01:00:02 {30000/1001}Hz/D", 72000, TC_NTSC_DF},
      {u"00:01:00:00 {30000/1001}Hz/D", 0, 0x10002}, // a dropped label
      {u"00:00:00:00 {25/2}Hz/D", 0, 0x20000},       // PAL(PX) does not come back
      {u"1:2:3:4 {25/1}Hz", 4320000 + 2 * 72000 + 3 * 1200 + 4 * 48, TC_PAL},
      {u"01:00:00:00+{30/1}Hz", 4320000 + 2073600000, TC_HD30},
      {u"01:00:00:00+{25/1}Hz", 4320000, 0x10000}, // no slip quantity for PAL
      {u"01:00:00:00 {26/1}Hz", 0, 0x20000},       // nearest to PAL: no system
      {u"744:00:00:00 {25/1}Hz", 0, 0x10000},
  };
  for (Case const & c : kCases) {
    timecode const value = SZUTC(c.text);
    EXPECT_TRUE(value.GetSystem() == c.system && value.GetPosition() == c.position)
        << Narrow(c.text);
  }
  // The text is stored as given unless too long; without a label only the rate is read.
  constexpr std::pair<char const *, char const *> kStored[] = {
      {"  01:00:00:00 {30/1}Hz", "  01:00:00:00 {30/1}Hz"},
      {"000000000000001:00:00:00 {30/1}Hz", "01:00:00:00 {30/1}Hz"},
      {"nothing at all", "--:--:--:-- {25/1}Hz"},
  };
  for (auto const & [text, stored] : kStored) {
    EXPECT_EQ(Text(SZUTC(text)), stored) << text;
  }
}
