// The fourteen timecode systems and the label arithmetic shared by the model and the text forms.
#pragma once

#include <vorx/timecode.h>

#include <cstdint>
#include <limits>

namespace VORX::TimeCode::detail {

__extension__ typedef __int128 int128;

constexpr std::int64_t kMaxPosition = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSecondBU = 1200;

struct tagTCSYSTEM {
  qefWChar const * name;
  std::uint32_t rate;
  std::uint32_t scale;
  std::int64_t frameBU;
  std::int64_t fieldBU;
  std::uint32_t labels;  // frame labels per second
  std::int64_t minuteBU; // as used for labelling
  std::int64_t hourBU;
  std::int64_t dayBU;
  std::uint32_t dfPeriod; // drop-frame: every minute not divisible by this drops labels; 0 none
  std::uint32_t dfDrop;   // labels dropped at such a minute
  qefWChar separators[3]; // of the short text form
};

constexpr tagTCSYSTEM kSystems[] = {
    {u"PAL", 25, 1, 48, 24, 25, 72000, 4320000, 103680000, 0, 0, {':', ':', ':'}},
    {u"NTSC", 30000, 1001, 40, 20, 30, 72000, 4320000, 103680000, 0, 0, {':', ':', '.'}},
    {u"NTSC(DF)", 30000, 1001, 40, 20, 30, 71920, 4315680, 103576320, 10, 2, {'.', ':', '.'}},
    {u"FILM", 24, 1, 50, 25, 24, 72000, 4320000, 103680000, 0, 0, {':', ':', ','}},
    {u"HDFILM", 24000, 1001, 50, 25, 24, 72000, 4320000, 103680000, 0, 0, {':', '.', ','}},
    {u"HDFILM(DF)", 24000, 1001, 50, 25, 24, 71900, 4315500, 103572000, 4, 2, {'.', '.', ','}},
    {u"HD50", 50, 1, 24, 12, 50, 72000, 4320000, 103680000, 0, 0, {':', '.', ':'}},
    {u"HDNTSC", 60000, 1001, 20, 10, 60, 72000, 4320000, 103680000, 0, 0, {':', '.', '.'}},
    {u"HDNTSC(DF)", 60000, 1001, 20, 10, 60, 71920, 4315680, 103576320, 10, 4, {'.', '.', '.'}},
    {u"PAL(PX)", 25, 2, 96, 48, 13, 72000, 4320000, 103680000, 0, 0, {'.', ',', ':'}},
    {u"NTSC(PX)", 15, 1, 80, 40, 15, 72000, 4320000, 103680000, 0, 0, {':', ',', ';'}},
    {u"FILM(PX)", 12, 1, 100, 50, 12, 72000, 4320000, 103680000, 0, 0, {':', ',', ','}},
    {u"HD30", 30, 1, 40, 20, 30, 72000, 4320000, 103680000, 0, 0, {':', ':', ';'}},
    {u"HD60", 60, 1, 20, 10, 60, 72000, 4320000, 103680000, 0, 0, {':', '.', ';'}},
};
static_assert(sizeof(kSystems) / sizeof(kSystems[0]) == TC_SYSTEMS);

// System indexes in ascending order of rate.
constexpr std::uint32_t kByRate[] = {11, 9, 10, 4, 5, 3, 0, 1, 2, 12, 6, 7, 8, 13};
static_assert(sizeof(kByRate) / sizeof(kByRate[0]) == TC_SYSTEMS);

// The table row of a word (index 0 for 14 and 15).
inline tagTCSYSTEM const & _row(std::uint32_t system) {
  std::uint32_t const index = system & TC_INDEX_MASK;
  return kSystems[index < TC_SYSTEMS ? index : 0];
}

inline std::uint64_t _magnitude(std::int64_t value) {
  return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

// n / d (d > 0) with `mode`: -1 toward zero, 1 away from zero, else nearest with ties away.
inline int128 _divide(int128 n, int128 d, int mode) {
  int128 q = n / d;
  int128 r = n % d;
  if (r != 0) {
    int128 const magnitude = r < 0 ? -r : r;
    if (mode == 1 || (mode != -1 && magnitude * 2 >= d)) {
      q += n < 0 ? -1 : 1;
    }
  }
  return q;
}

inline bool _fits(int128 value) {
  return value >= -kMaxPosition && value <= kMaxPosition;
}

// Fills the label fields of a valid word from a position (the system word is set by the caller).
void _decompose(std::int64_t position, std::uint32_t system, TCINFO & info);
// The position of a label of a valid word, saturated at +/-9223372036854775807.
std::int64_t _compose(TCINFO const & info);

} // namespace VORX::TimeCode::detail
