#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <vorx/timecode.h>

#include "support/diagnostics_capture.h"
#include "support/memory_hooks.h"
#include "timecode/label_walker.h"

using namespace VORX::TimeCode;
using vorx::test::Label;

namespace {

template <class T> std::string Text(T const & text) { // the short or the long form
  return vorx::test::Narrow(text.c_str());
}

timecode At(std::int64_t position, std::uint32_t system) {
  return timecode(position, system);
}

} // namespace

// ---- short form

TEST(ShortTimecodeText, EachSystemWritesItsSeparators) {
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

TEST(ShortTimecodeText, TheFourShapes) {
  struct Case {
    SZTC text;
    char const * expected;
  };
  Case const kCases[] = {
      {SZTC(INT64_C(-48), TC_PAL), "-00:00:00:01"},
      {SZTC(INT64_C(103679952), TC_PAL), " 23:59:59:24"},
      {SZTC(INT64_C(108000000), TC_PAL), ">##:##:##:##"}, // 25 hours
      {SZTC(INT64_C(103680000), TC_NTSC_DF), ">##.##:##.##"},
      {SZTC(timecode(INT64_C(7), 0x10002)), "*##:##:##:##"},
      {SZTC(timecode()), " --:--:--:--"},
      {SZTC(0, 1, 0, 0, TC_NTSC_DF), "*##:##:##:##"}, // a dropped label
      {SZTC(INT64_C(72020), TC_HDNTSC_DF), " 00.01.00.05"},
      {SZTC(4, TC_PAL), " 00:00:00:02"}, // fields
      {SZTC(1.0, TC_HD60), " 00:00.01;00"},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(Text(c.text), c.expected);
  }
  TCINFO wide(INT64_C(0), TC_PAL);
  wide.nHours = 100;
  EXPECT_EQ(Text(SZTC(wide)), "*##:##:##:##") << "a field of three digits does not fit";
}

TEST(ShortTimecodeText, ReadingDecodesTheSystemFromTheSeparators) {
  struct Case {
    char16_t const * text;
    std::uint32_t system;
    Label label;
    std::int64_t days;
  };
  constexpr Case kCases[] = {
      {u" 10.00.00:00", 0x10000, {}, 0}, // the one undefined combination
      {u" 10,00:00:00", 0x20000, {}, 0}, // not an accepted first separator
      {u" 10:00,00.00", 0x20000, {}, 0}, // accepted, but no system
      {u" --.--:--.--", 0x20002, {}, 0},         {u" 1-:00:00:00", 0, {10, 0, 0, 0}, 0},
      {u" 99:99:99:99", 0, {99, 99, 99, 99}, 0}, // not range-checked
      {u"-00:00:00:01", 0, {0, 0, 0, 1}, -1},    {u" 01:02:03;04", 12, {1, 2, 3, 4}, 0},
      {u" 1x:00:00:00", 0x10000, {}, 0},
  };
  for (Case const & c : kCases) {
    TCINFO const info{SZTC(c.text)}; // each text is already in the twelve-character form
    EXPECT_EQ(info.sys(), c.system) << vorx::test::Narrow(c.text);
    if (info.IsDefined()) {
      EXPECT_EQ((Label{info.hh(), info.mm(), info.ss(), info.ff()}), c.label)
          << vorx::test::Narrow(c.text);
      EXPECT_EQ(info.dd(), c.days) << vorx::test::Narrow(c.text);
    }
  }
}

TEST(ShortTimecodeText, FreeTextIsCompletedIntoTheTwelveCharacterForm) {
  struct Case {
    char const * typed;
    char const * normalised;
  };
  constexpr Case kCases[] = {
      {"01:00:00;00", " 01:00:00;00"}, // HD30 in this library's separators
      {"  -1:00:00:00 ", "-01:00:00:00"},
      {"1:2", " 00:00:01:02"},
      {"10.00", " 00:00:10.00"},
      {"1000", " 00:00:10:00"},
      {"12345678", " 12:34:56:78"},
      {"10 : 00 . 00 : 00", " 10:00.00:00"},
      {"", " --:--:--:--"},
      {"--.--:--.--", " --.--:--.--"},
      {"-", " --:--:--:--"},
      {"<12:00:00:00", "*##:##:##:##"},
      {"1:2:3:4:5", "*##:##:##:##"},
      {"123456789", "*##:##:##:##"},
      {"10/00/00/00", "*##:##:##:##"},
  };
  for (Case const & c : kCases) {
    SZTC const text(c.typed);
    EXPECT_EQ(Text(text), c.normalised) << "typed \"" << c.typed << "\"";
    // Whatever it makes, the reader takes: a system, unassigned, or undefined, never garbage.
    TCINFO const info(text);
    if (info.IsDefined()) {
      TCINFO const again{SZTC(info)};
      EXPECT_EQ(again.sys(), info.sys()) << "typed \"" << c.typed << "\"";
      EXPECT_EQ(static_cast<std::int64_t>(again), static_cast<std::int64_t>(info)) << c.typed;
    }
  }
  EXPECT_EQ(Text(SZTC(static_cast<qefWChar const *>(nullptr))), " --:--:--:--");
  EXPECT_EQ(Text(SZTC(static_cast<char const *>(nullptr))), " --:--:--:--");
  EXPECT_EQ(Text(SZTC("\xC3\xA9")), "*##:##:##:##") << "not ASCII";
}

// Text already in the twelve-character form stays as it is: a "-" in a field is a placeholder.
TEST(ShortTimecodeText, DashesInTheHoursArePlaceholdersNotSigns) {
  struct Case {
    char16_t const * text;
    std::int64_t position; // PAL: 25 frames a second, 48 position units a frame
  } const kCases[] = {
      {u" --:02:03:04", ((2 * 60 + 3) * 25 + 4) * 48},
      {u" -1:02:03:04", (((1 * 60 + 2) * 60 + 3) * 25 + 4) * 48},
      {u" -0:00:00:01", 48},
      {u" 0-:00:00:01", 48},
      {u" 1-:00:00:00", 10 * 3600 * 25 * 48},
  };
  for (Case const & c : kCases) {
    std::string const text = vorx::test::Narrow(c.text);
    EXPECT_EQ(Text(SZTC(c.text)), text);
    EXPECT_EQ(static_cast<std::int64_t>(timecode(c.text)), c.position) << text;
  }
}

TEST(ShortTimecodeText, ConversionsReadThroughTheLabel) {
  EXPECT_EQ(static_cast<std::int64_t>(SZTC(u" 01:00:00:00")), 4320000);
  EXPECT_EQ(static_cast<std::int32_t>(SZTC(u" 00:00:01:00")), 50) << "fields";
  EXPECT_EQ(static_cast<std::int64_t>(SZTC(u"*")), 0);
  EXPECT_EQ(static_cast<std::int64_t>(SZTC(u" 99:99:99:99")),
            INT64_C(99) * 4320000 + 99 * 72000 + 99 * 1200 + 99 * 48)
      << "the conversion gives unchecked fields their meaning";
  timecode const typed(u"00.01:00.02");
  EXPECT_EQ(typed.GetSystem(), TC_NTSC_DF);
  EXPECT_EQ(typed.GetPosition(), 72000);
  EXPECT_EQ(timecode(u"garbage").GetSystem(), 0x10000u);
  EXPECT_EQ(timecode(u"").GetSystem(), 0x20000u);
}

TEST(ShortTimecodeText, HandsItsTextToTheLibraryStringBuffers) {
  SZTC const text(INT64_C(72000), TC_NTSC_DF);
  VORX::String::CQEFWChar const wide = text;
  ASSERT_TRUE(wide);
  EXPECT_EQ(std::u16string(*wide), u" 00.01:00.02");
  VORX::String::CUTF8Char const utf8 = text;
  ASSERT_TRUE(utf8);
  EXPECT_EQ(std::string(reinterpret_cast<char const *>(*utf8)), " 00.01:00.02");
  vorx::test::AllocationFailure const refuse;
  VORX::String::CQEFWChar const none = text;
  EXPECT_FALSE(none) << "no heap: an empty buffer, no crash";
}

// ---- long form

TEST(LongTimecodeText, Writing) {
  struct Case {
    timecode value;
    char const * expected;
  };
  Case const kCases[] = {
      {At(4315680, TC_NTSC_DF), "01:00:00:00 {30000/1001}Hz/D"},
      {At(72020, TC_HDNTSC_DF), "00:01:00:05 {60000/1001}Hz/D"},
      {At(0, TC_PAL_PX), "00:00:00:00 {25/2}Hz/D"},
      {At(103680000 + 4320000, TC_PAL), "01:00:00:00+{25/1}Hz"},
      {At(-48, TC_PAL), "23:59:59:24-{25/1}Hz"},
      {timecode(INT64_C(0), 0x20005), "--:--:--:-- {24000/1001}Hz/D"},
      {timecode(INT64_C(9), 0x10000), "--:--:--:-- {25/1}Hz"},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(Text(SZUTC(c.value)), c.expected);
  }
  EXPECT_EQ(Text(SZUTC()), "--:--:--:-- {25/1}Hz");
}

TEST(LongTimecodeText, Reading) {
  struct Case {
    char16_t const * text;
    std::int64_t position;
    std::uint32_t system;
  };
  constexpr Case kCases[] = {
      {u"00:01:00:02 {30000/1001}Hz/D", 72000, TC_NTSC_DF},
      {u"00:01:00:00 {30000/1001}Hz/D", 0, 0x10002}, // a dropped label
      {u"00:00:00:00 {25/2}Hz/D", 0, 0x20000},       // PAL(PX) does not come back
      {u"00:00:00:00 {25/1}Hz/D", 0, 0x20000},       // no drop-frame partner
      {u"1:2:3:4 {25/1}Hz", 4320000 + 2 * 72000 + 3 * 1200 + 4 * 48, TC_PAL},
      {u"01:00:00:00+{30/1}Hz", 4320000 + 2073600000, TC_HD30},
      {u"01:00:00:00+{25/1}Hz", 4320000, 0x10000}, // no slip quantity for PAL
      {u"01:00:00:00 {26/1}Hz", 0, 0x20000},       // nearest to PAL: no system
      {u"744:00:00:00 {25/1}Hz", 0, 0x10000},
  };
  for (Case const & c : kCases) {
    // The reader of a stored text: a text written by the class itself is read as such.
    timecode const value = SZUTC(c.text);
    EXPECT_EQ(value.GetSystem(), c.system) << vorx::test::Narrow(c.text);
    EXPECT_EQ(value.GetPosition(), c.position) << vorx::test::Narrow(c.text);
  }
}

TEST(LongTimecodeText, ReadingTextStoresItsLongForm) {
  struct Case {
    char const * text;
    char const * stored;
  };
  constexpr Case kCases[] = {
      {"  01:00:00:00 {30/1}Hz", "  01:00:00:00 {30/1}Hz"},          // kept as given
      {"000000000000001:00:00:00 {30/1}Hz", "01:00:00:00 {30/1}Hz"}, // too long: re-written
      // fallback: only the rate is read, an unassigned value of that system
      {"--:--:--:-- {30000/1001}Hz/D", "--:--:--:-- {30000/1001}Hz/D"},
      {"xx {25/2}Hz/D", "--:--:--:-- {25/1}Hz"},
      {"nothing at all", "--:--:--:-- {25/1}Hz"},
  };
  for (Case const & c : kCases) {
    EXPECT_EQ(Text(SZUTC(c.text)), c.stored) << c.text;
  }
  EXPECT_EQ(Text(SZUTC(static_cast<qefWChar const *>(nullptr))), "--:--:--:-- {25/1}Hz");
}
