// Timecode values: positions in base units, labels, alignment and arithmetic.
#include "timecode/tcsystem.h"

#include <cmath>

namespace VORX::TimeCode {

using detail::_divide;
using detail::_fits;
using detail::_magnitude;
using detail::_row;
using detail::int128;
using detail::kMaxPosition;
using detail::kSecondBU;
using detail::tagTCSYSTEM;

namespace detail {

namespace {

// Drop-frame label of a time of day `r2` within an hour: minutes by the closed form on `r2` as it
// stands, then a label that falls on a dropped one belongs to the end of the previous minute.
void _dropFrameLabel(std::uint64_t r2, std::uint64_t frameBU, tagTCSYSTEM const & row,
                     std::uint32_t dropped, TCINFO & info) {
  std::uint64_t const period = row.dfPeriod;
  std::uint64_t const minuteBU = static_cast<std::uint64_t>(row.minuteBU);
  std::uint64_t minutes = r2 * period / (minuteBU * period + dropped * frameBU);
  std::uint64_t const rest = r2 - minutes * minuteBU - (minutes / period) * dropped * frameBU;
  std::uint64_t seconds = rest / kSecondBU;
  std::uint64_t frames = rest % kSecondBU / frameBU;
  if (frames < dropped && seconds == 0 && minutes % period != 0) {
    minutes -= 1;
    seconds = 59;
    frames = kSecondBU / frameBU - 1;
  }
  info.nMinutes = static_cast<std::uint32_t>(minutes);
  info.nSeconds = static_cast<std::uint32_t>(seconds);
  info.nFrames = static_cast<std::uint32_t>(frames);
}

} // namespace

void _decompose(std::int64_t position, std::uint32_t system, TCINFO & info) {
  std::uint32_t const index = system & TC_INDEX_MASK;
  tagTCSYSTEM const & row = _row(system);
  std::uint64_t const day = static_cast<std::uint64_t>(row.dayBU);
  std::uint64_t const magnitude = _magnitude(position);
  std::int64_t const days = static_cast<std::int64_t>(magnitude / day);
  info.nDays = position < 0 ? -days - 1 : days;
  std::uint64_t const r = magnitude % day;
  std::uint64_t const hour = static_cast<std::uint64_t>(row.hourBU);
  info.nHours = static_cast<std::uint32_t>(r / hour);
  std::uint64_t const r2 = r % hour;
  std::uint64_t const frameBU = static_cast<std::uint64_t>(row.frameBU);
  if (index == TC_HDNTSC_DF) {
    // Counted on pairs of frames with the NTSC(DF) constants; the label is twice the pair label,
    // plus one for any position past the start of the pair.
    std::uint64_t const pair = 2 * frameBU;
    _dropFrameLabel(r2 - r2 % pair, pair, row, 2, info);
    info.nFrames = info.nFrames * 2 + (r2 % pair != 0 ? 1 : 0);
  } else if (row.dfPeriod != 0) {
    _dropFrameLabel(r2, frameBU, row, row.dfDrop, info);
  } else {
    // Also "PAL(PX)": frames count from the whole second, so in an odd second (whose frames
    // start 48 base units after their whole-second multiples) a position between frames reads
    // the next label 48 base units early: 1200 reads 00:00:01:00, 1296 reads 00:00:01:01.
    std::uint64_t const minuteBU = static_cast<std::uint64_t>(row.minuteBU);
    info.nMinutes = static_cast<std::uint32_t>(r2 / minuteBU);
    info.nSeconds = static_cast<std::uint32_t>(r2 % minuteBU / kSecondBU);
    info.nFrames = static_cast<std::uint32_t>(r2 % kSecondBU / frameBU);
  }
}

std::int64_t _compose(TCINFO const & info) {
  std::uint32_t const index = info.nSystem & TC_INDEX_MASK;
  tagTCSYSTEM const & row = _row(info.nSystem);
  std::uint64_t const days =
      info.nDays < 0 ? _magnitude(info.nDays + 1) : static_cast<std::uint64_t>(info.nDays);
  // Every field is below 2^32 and every factor below 2^27, so only the days can overflow.
  int128 sum = 0;
  if (index == TC_PAL_PX) {
    sum = (static_cast<int128>(info.nSeconds % 2) * 13 + info.nFrames) * row.frameBU +
          static_cast<int128>(info.nSeconds - info.nSeconds % 2) * kSecondBU;
  } else {
    sum = static_cast<int128>(info.nFrames) * row.frameBU +
          static_cast<int128>(info.nSeconds) * kSecondBU;
  }
  sum += static_cast<int128>(info.nMinutes) * row.minuteBU +
         static_cast<int128>(info.nHours) * row.hourBU + static_cast<int128>(days) * row.dayBU;
  if (row.dfPeriod != 0) {
    sum += static_cast<int128>(info.nMinutes / row.dfPeriod) * row.dfDrop * row.frameBU;
  }
  if (sum > kMaxPosition) {
    sum = kMaxPosition;
  }
  return static_cast<std::int64_t>(info.nDays < 0 ? -sum : sum);
}

} // namespace detail

// ---- TCINFO

TCINFO::TCINFO(std::int64_t position, std::uint32_t system) : TCINFO(timecode(position, system)) {}

TCINFO::TCINFO(std::int32_t fields, std::uint32_t system) : TCINFO(timecode(fields, system)) {}

TCINFO::TCINFO(double seconds, std::uint32_t system) : TCINFO(timecode(seconds, system)) {}

TCINFO::TCINFO(timecode const & value) {
  nSystem = value.GetSystem();
  if (nSystem < 16) {
    detail::_decompose(value.GetPosition(), nSystem, *this);
  }
}

TCINFO::TCINFO(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds,
               std::uint32_t frames, std::uint32_t system) {
  std::uint32_t const word = timecode::NormalizeSystem(system);
  nSystem = word;
  if ((word & TC_UNDEFINED) != 0 || (system & TC_UNASSIGNED) != 0) {
    return;
  }
  std::uint32_t const index = word & TC_INDEX_MASK;
  tagTCSYSTEM const & row = _row(word);
  std::uint64_t const magnitude = _magnitude(hours);
  std::uint64_t const days = magnitude / 24;
  if (days > 30 || minutes > 59 || seconds > 59 || frames >= row.labels ||
      (index == TC_PAL_PX && seconds % 2 == 1 && frames > 11)) {
    nSystem = (word & TC_UNASSIGNED) != 0 ? TC_UNDEFINED | TC_UNASSIGNED : index | TC_UNDEFINED;
    return;
  }
  if (row.dfPeriod != 0 && seconds == 0 && minutes % row.dfPeriod != 0 && frames < row.dfDrop) {
    nSystem = index | TC_UNDEFINED;
    return;
  }
  if ((word & TC_UNASSIGNED) != 0) {
    return; // an index of 14 or 15: a valid label, but no system to read it in
  }
  nMinutes = minutes;
  nSeconds = seconds;
  nFrames = frames;
  nHours = static_cast<std::uint32_t>(magnitude - 24 * days);
  nDays = hours < 0 ? -static_cast<std::int64_t>(days) - 1 : static_cast<std::int64_t>(days);
}

TCINFO::operator std::int64_t() const {
  return IsDefined() ? detail::_compose(*this) : 0;
}

TCINFO::operator std::int32_t() const {
  if (!IsDefined()) {
    return 0;
  }
  std::int64_t const fields = detail::_compose(*this) / _row(nSystem).fieldBU;
  if (fields > INT32_MAX) {
    return INT32_MAX;
  }
  return fields < INT32_MIN ? INT32_MIN : static_cast<std::int32_t>(fields);
}

void TCINFO::Clip() {
  if (IsDefined()) {
    nDays = nDays < 0 ? -1 : 0;
  }
}

bool TCINFO::GetInfo(std::uint32_t * hours, std::uint32_t * minutes, std::uint32_t * seconds,
                     std::uint32_t * frames, std::int32_t * sign, std::uint32_t * system) const {
  if (system) {
    *system = nSystem;
  }
  if (!IsDefined()) {
    return false;
  }
  if (hours) {
    std::uint64_t const days =
        nDays < 0 ? _magnitude(nDays + 1) : static_cast<std::uint64_t>(nDays);
    int128 const total = static_cast<int128>(days) * 24 + nHours;
    *hours = total > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(total);
  }
  if (minutes) {
    *minutes = nMinutes;
  }
  if (seconds) {
    *seconds = nSeconds;
  }
  if (frames) {
    *frames = nFrames;
  }
  if (sign) {
    *sign = nDays < 0 ? -1 : 1;
  }
  return true;
}

// ---- timecode: construction and conversion

timecode::timecode(std::int64_t position, std::uint32_t system)
    : m_position(position), m_system(NormalizeSystem(system)) {
  if (!IsAssigned()) {
    m_position = 0;
  }
}

timecode::timecode(std::int32_t fields, std::uint32_t system) : m_system(NormalizeSystem(system)) {
  if (!IsAssigned()) {
    return;
  }
  std::int64_t const fieldBU = _row(m_system).fieldBU;
  if (_magnitude(fields) > static_cast<std::uint64_t>(INT32_MAX / fieldBU)) {
    m_system = TC_UNDEFINED;
    return;
  }
  m_position = fields * fieldBU;
}

namespace {

// Base units for a number of seconds; false for a NaN. Saturates at +/-9223372036854775807.
bool _secondsToBU(double seconds, std::uint32_t system, std::int64_t & position) {
  if (std::isnan(seconds)) {
    return false;
  }
  constexpr double kLimit = 9223372036854775808.0;
  double units = 0.0;
  if (seconds < -kLimit) {
    units = -kLimit;
  } else if (seconds > kLimit) {
    units = kLimit;
  } else {
    units = std::round(seconds / timecode::BULen(system));
  }
  if (units >= kLimit) {
    position = kMaxPosition;
  } else if (units <= -kLimit) {
    position = -kMaxPosition;
  } else {
    position = static_cast<std::int64_t>(units);
  }
  return true;
}

// The word of a checked result: kept, or with 0x10000 and position 0 when out of range.
timecode _checked(int128 position, std::uint32_t system) {
  if (_fits(position)) {
    return timecode(static_cast<std::int64_t>(position), system);
  }
  return timecode(INT64_C(0), system | TC_UNDEFINED);
}

} // namespace

timecode::timecode(double seconds, std::uint32_t system) : m_system(NormalizeSystem(system)) {
  if (!IsAssigned()) {
    return;
  }
  if (!_secondsToBU(seconds, m_system, m_position)) {
    m_system |= TC_UNDEFINED;
    m_position = 0;
  }
}

timecode::timecode(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds,
                   std::uint32_t frames, std::uint32_t system)
    : timecode(TCINFO(hours, minutes, seconds, frames, system)) {}

timecode::timecode(TCINFO const & info) : m_system(NormalizeSystem(info.nSystem)) {
  if (IsValid()) {
    m_position = static_cast<std::int64_t>(info);
  }
}

void timecode::Unassign(std::uint32_t system) {
  m_position = 0;
  m_system = (NormalizeSystem(system) & TC_INDEX_MASK) | TC_UNASSIGNED;
}

timecode::operator std::int64_t() const {
  return IsValid() ? m_position : 0;
}

timecode::operator std::int32_t() const {
  if (!IsValid()) {
    return 0;
  }
  int128 const fields = _divide(m_position, GetFieldBU(), 0);
  if (fields > INT32_MAX) {
    return INT32_MAX;
  }
  return fields < INT32_MIN ? INT32_MIN : static_cast<std::int32_t>(fields);
}

timecode::operator double() const {
  if (!IsValid()) {
    return 0.0;
  }
  return static_cast<double>(m_position) * BULen();
}

std::int64_t timecode::Fields(std::uint32_t system, int mode) const {
  if (!IsValid() || system >= 16 || NormalizeSystem(system) >= 16) {
    return 0;
  }
  return static_cast<std::int64_t>(_divide(m_position, GetFieldBU(system), mode));
}

std::int64_t timecode::Frames(std::uint32_t system, int mode) const {
  if (!IsValid() || system >= 16 || NormalizeSystem(system) >= 16) {
    return 0;
  }
  return static_cast<std::int64_t>(_divide(m_position, GetFrameBU(system), mode));
}

double timecode::Framerate() const {
  std::uint32_t const index = m_system & TC_INDEX_MASK;
  return index < TC_SYSTEMS ? FramerateOf(index) : 0.0;
}

qefWChar const * timecode::GetSystemString() const {
  std::uint32_t const index = m_system & TC_INDEX_MASK;
  return index < TC_SYSTEMS ? detail::kSystems[index].name : u"";
}

bool timecode::IsDFSystem() const {
  return IsDFSystem(m_system & TC_INDEX_MASK);
}

bool timecode::GetFrameRateScale(std::uint32_t & rate, std::uint32_t & scale) const {
  return GetFrameRateScaleOf(m_system, rate, scale);
}

// ---- the system table

std::uint32_t timecode::NormalizeSystem(std::uint32_t system) {
  if ((system & TC_INDEX_MASK) >= TC_SYSTEMS) {
    return (system & ~static_cast<std::uint32_t>(TC_INDEX_MASK)) | TC_UNASSIGNED;
  }
  return system;
}

qefWChar const * timecode::GetSystemString(std::uint32_t system) {
  return _row(NormalizeSystem(system)).name;
}

double timecode::FramerateOf(std::uint32_t system) {
  tagTCSYSTEM const & row = _row(system);
  return static_cast<double>(row.rate) / static_cast<double>(row.scale);
}

bool timecode::GetFrameRateScaleOf(std::uint32_t system, std::uint32_t & rate,
                                   std::uint32_t & scale) {
  rate = _row(system).rate;
  scale = _row(system).scale;
  return true;
}

double timecode::BULen(std::uint32_t system) {
  return _row(system).scale == 1001 ? 1.001 / 1200.0 : 1.0 / 1200.0;
}

std::int64_t timecode::GetFrameBU(std::uint32_t system) {
  return _row(system).frameBU;
}
std::int64_t timecode::GetFieldBU(std::uint32_t system) {
  return _row(system).fieldBU;
}

void timecode::GetFramerateTCList(std::uint32_t * list, std::uint32_t & count) {
  if (count > TC_SYSTEMS) {
    count = TC_SYSTEMS;
  }
  for (std::uint32_t i = 0; list && i < count; ++i) {
    list[i] = detail::kByRate[i];
  }
}

bool timecode::IsDFSystem(std::uint32_t system) {
  return system == TC_NTSC_DF || system == TC_HDFILM_DF || system == TC_HDNTSC_DF ||
         system == TC_PAL_PX;
}

std::uint32_t timecode::GetDFSystem(std::uint32_t system) {
  switch (system) {
  case TC_NTSC:
    return TC_NTSC_DF;
  case TC_HDFILM:
    return TC_HDFILM_DF;
  case TC_HDNTSC:
    return TC_HDNTSC_DF;
  default:
    return TC_UNASSIGNED;
  }
}

std::uint32_t timecode::GetNDFSystem(std::uint32_t system) {
  switch (system) {
  case TC_NTSC_DF:
    return TC_NTSC;
  case TC_HDFILM_DF:
    return TC_HDFILM;
  case TC_HDNTSC_DF:
    return TC_HDNTSC;
  default:
    return TC_UNASSIGNED;
  }
}

timecode timecode::GetMaxFrame(std::uint32_t system) {
  std::uint32_t const word = NormalizeSystem(system);
  return timecode(kMaxPosition - kMaxPosition % GetFrameBU(word), word);
}

timecode timecode::GetMinFrame(std::uint32_t system) {
  std::uint32_t const word = NormalizeSystem(system);
  return timecode(-(kMaxPosition - kMaxPosition % GetFrameBU(word)), word);
}

timecode timecode::GetMaxTC(std::uint32_t system) {
  // The day length taken as a count of fields.
  std::uint32_t const word = NormalizeSystem(system);
  return timecode(static_cast<std::int32_t>(_row(word).dayBU), word);
}

std::uint32_t timecode::GetBestTCSystem(double fps) {
  if (fps >= 60.0) {
    return TC_HD60;
  }
  if (fps <= 12.5) {
    return TC_FILM_PX;
  }
  for (std::uint32_t i = 1; i < TC_SYSTEMS; ++i) {
    if (FramerateOf(detail::kByRate[i]) >= fps) {
      double const mean =
          (FramerateOf(detail::kByRate[i - 1]) + FramerateOf(detail::kByRate[i])) / 2;
      return GetNDFSystem(mean > fps ? detail::kByRate[i - 1] : detail::kByRate[i]);
    }
  }
  return TC_UNASSIGNED; // not a number
}

std::uint32_t timecode::GetTCSystemOf(std::uint32_t rate, std::uint32_t scale) {
  for (std::uint32_t i = 0; i < TC_HD60; ++i) {
    if (detail::kSystems[i].rate == rate && detail::kSystems[i].scale == scale) {
      return i;
    }
  }
  return GetBestTCSystem(static_cast<double>(rate) / static_cast<double>(scale));
}

// ---- alignment and moves

timecode & timecode::Align() {
  return AlignToSystem(m_system & TC_INDEX_MASK);
}

timecode & timecode::AlignToSystem(std::uint32_t system) {
  if (!IsDefined()) {
    return *this;
  }
  m_system = GetFlags() | NormalizeSystem(system);
  if (!IsAssigned()) {
    m_position = 0;
    return *this;
  }
  std::int64_t const frame = GetFrameBU();
  int128 const aligned = _divide(m_position, frame, 0) * frame;
  if (_fits(aligned)) {
    m_position = static_cast<std::int64_t>(aligned);
  } else {
    m_system |= TC_UNDEFINED;
  }
  return *this;
}

namespace {

// Sets the index of `system` (normalised) under the old flags; true when the value is then valid.
bool _setIndex(std::int64_t & position, std::uint32_t & word, std::uint32_t system) {
  word = (word & ~static_cast<std::uint32_t>(TC_INDEX_MASK)) | timecode::NormalizeSystem(system);
  if ((word & TC_UNASSIGNED) != 0) {
    position = 0;
  }
  return word < 16;
}

} // namespace

timecode & timecode::Trunc() {
  return TruncToSystem(m_system & TC_INDEX_MASK);
}

timecode & timecode::TruncToSystem(std::uint32_t system) {
  if (!_setIndex(m_position, m_system, system)) {
    return *this;
  }
  std::int64_t const frame = GetFrameBU();
  std::int64_t const remainder = m_position % frame;
  if (remainder != 0) {
    m_position -= remainder;
    if (m_position < 0) {
      if (m_position < -kMaxPosition + frame) {
        m_system |= TC_UNDEFINED;
      } else {
        m_position -= frame;
      }
    }
  }
  return *this;
}

timecode & timecode::Roof() {
  return RoofToSystem(m_system & TC_INDEX_MASK);
}

timecode & timecode::RoofToSystem(std::uint32_t system) {
  if (!_setIndex(m_position, m_system, system)) {
    return *this;
  }
  std::int64_t const frame = GetFrameBU();
  std::int64_t const remainder = m_position % frame;
  if (remainder != 0) {
    int128 const roofed = static_cast<int128>(m_position) - remainder + frame;
    if (roofed > kMaxPosition) {
      m_system |= TC_UNDEFINED;
    } else {
      m_position = static_cast<std::int64_t>(roofed);
    }
  }
  return *this;
}

bool timecode::AssertAligned() const {
  return IsValid() && m_position % GetFrameBU() == 0;
}

bool timecode::AssertAlignedToSystem(std::uint32_t system) const {
  if (!IsValid() || system >= 16 || NormalizeSystem(system) >= 16) {
    return false;
  }
  return m_position % GetFrameBU(system) == 0;
}

timecode & timecode::Clip() {
  if (IsValid()) {
    TCINFO label(*this);
    label.Clip();
    m_position = static_cast<std::int64_t>(label);
  }
  return *this;
}

timecode & timecode::Wrap() {
  if (IsValid()) {
    Clip();
    if (m_position < 0) {
      m_position += _row(m_system).dayBU;
    }
  }
  return *this;
}

timecode & timecode::Scale(std::int64_t num, std::int64_t den, bool round) {
  if (!IsValid()) {
    return *this;
  }
  if (den == 0) {
    m_system |= TC_UNDEFINED;
    m_position = 0;
    return *this;
  }
  int128 product = static_cast<int128>(m_position) * num;
  if (round) {
    product += product < 0 ? -(den / 2) : den / 2;
  }
  int128 const result = product / den;
  if (!_fits(result)) {
    m_system |= TC_UNDEFINED;
    m_position = result > 0 ? kMaxPosition : -kMaxPosition;
    return *this;
  }
  m_position = static_cast<std::int64_t>(result);
  if (result > INT32_MAX) {
    m_system |= TC_UNDEFINED;
  }
  return *this;
}

timecode & timecode::Slip(int n) {
  if (!IsValid()) {
    return *this;
  }
  timecode const quantity = GetMaxTC(m_system);
  int128 const slipped =
      static_cast<int128>(m_position) + static_cast<int128>(n) * quantity.m_position;
  if (!quantity.IsDefined() || !_fits(slipped)) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  m_position = static_cast<std::int64_t>(slipped);
  return *this;
}

timecode & timecode::_step(std::int64_t units) {
  int128 const moved = static_cast<int128>(m_position) + units;
  if (_fits(moved)) {
    m_position = static_cast<std::int64_t>(moved);
  } else {
    m_system |= TC_UNDEFINED;
  }
  return *this;
}

timecode & timecode::MapTo(std::uint32_t system, int direction) {
  if (!IsValid()) {
    return *this;
  }
  std::int64_t const old = m_position;
  AlignToSystem(system);
  if (!IsValid()) {
    return *this;
  }
  if (direction < 0 && m_position > old) {
    return _step(-GetFrameBU());
  }
  if (direction > 0 && m_position < old) {
    return _step(GetFrameBU());
  }
  return *this;
}

namespace {

constexpr std::int32_t kUpconvert[] = {TC_HD50, TC_HDNTSC, TC_HDNTSC_DF, -1, -1,
                                       -1,      -1,        -1,           -1, TC_PAL,
                                       TC_HD30, TC_FILM,   TC_HD60,      -1};
static_assert(sizeof(kUpconvert) / sizeof(kUpconvert[0]) == TC_SYSTEMS);
constexpr std::int32_t kDownconvert[] = {TC_PAL_PX, -1,     -1,         TC_FILM_PX, -1,
                                         -1,        TC_PAL, TC_NTSC,    TC_NTSC_DF, -1,
                                         -1,        -1,     TC_NTSC_PX, TC_HD30};
static_assert(sizeof(kDownconvert) / sizeof(kDownconvert[0]) == TC_SYSTEMS);

} // namespace

timecode & timecode::Upconvert(int direction) {
  if (IsValid() && kUpconvert[m_system] >= 0) {
    MapTo(static_cast<std::uint32_t>(kUpconvert[m_system]), direction);
  }
  return *this;
}

timecode & timecode::Downconvert(int direction) {
  if (IsValid() && kDownconvert[m_system] >= 0) {
    MapTo(static_cast<std::uint32_t>(kDownconvert[m_system]), direction);
  }
  return *this;
}

timecode & timecode::XlateToSystem(std::uint32_t system) {
  if (!IsValid()) {
    return *this;
  }
  std::uint32_t const word = NormalizeSystem(system);
  if (word >= 16) {
    *this = timecode(m_position, word);
    return *this;
  }
  TCINFO label(*this);
  tagTCSYSTEM const & from = _row(m_system);
  tagTCSYSTEM const & to = _row(word);
  std::uint32_t frames = label.nFrames * to.labels / from.labels;
  if (word == TC_PAL_PX && label.nSeconds % 2 == 1 && frames > 11) {
    frames = 11;
  }
  if (to.dfPeriod != 0 && label.nSeconds == 0 && label.nMinutes % to.dfPeriod != 0 &&
      frames < to.dfDrop) {
    frames = to.dfDrop;
  }
  label.nFrames = frames;
  label.nSystem = word;
  m_system = word;
  m_position = static_cast<std::int64_t>(label);
  return *this;
}

timecode & timecode::RoundTo(timecode const & step, timecode const & origin) {
  if (!IsValid()) {
    return *this;
  }
  if (!step.IsValid() || step.m_position <= 0 || !origin.IsValid()) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  int128 const offset = static_cast<int128>(m_position) - origin.m_position;
  int128 const rounded = origin.m_position + _divide(offset, step.m_position, 0) * step.m_position;
  if (!_fits(rounded)) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  m_position = static_cast<std::int64_t>(rounded);
  return *this;
}

timecode & timecode::Bias(timecode const & from, timecode const & to) {
  if (!IsValid()) {
    return *this;
  }
  if (!from.IsValid() || !to.IsValid()) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  int128 const moved = static_cast<int128>(m_position) + to.m_position - from.m_position;
  if (!_fits(moved)) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  m_position = static_cast<std::int64_t>(moved);
  return *this;
}

// ---- arithmetic

timecode timecode::operator+(timecode const & other) const {
  if (!IsAssigned()) {
    return other;
  }
  timecode result = _checked(static_cast<int128>(m_position) + other.m_position, m_system);
  if (!other.IsDefined()) {
    result.m_system = TC_UNDEFINED;
  }
  return result;
}

timecode & timecode::operator+=(timecode const & other) {
  if (!IsAssigned()) {
    return *this = other;
  }
  if (!other.IsDefined()) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  return *this = _checked(static_cast<int128>(m_position) + other.m_position, m_system);
}

timecode timecode::operator+(std::int64_t units) const {
  return _checked(static_cast<int128>(m_position) + units, m_system);
}

timecode & timecode::operator+=(std::int64_t units) {
  m_position = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_position) +
                                         static_cast<std::uint64_t>(units));
  return *this;
}

timecode timecode::operator+(std::int32_t fields) const {
  if (!IsValid()) {
    return *this;
  }
  return *this + timecode(fields, m_system);
}

timecode timecode::operator+(double seconds) const {
  return *this + timecode(seconds, m_system & TC_INDEX_MASK);
}

timecode timecode::operator-(timecode const & other) const {
  if (!IsAssigned()) {
    return -other;
  }
  timecode result = _checked(static_cast<int128>(m_position) - other.m_position, m_system);
  if (!other.IsDefined()) {
    result.m_system = TC_UNDEFINED;
  }
  return result;
}

timecode & timecode::operator-=(timecode const & other) {
  if (!IsAssigned()) {
    return *this = -other;
  }
  if (!other.IsDefined()) {
    m_system |= TC_UNDEFINED;
    return *this;
  }
  return *this = _checked(static_cast<int128>(m_position) - other.m_position, m_system);
}

timecode timecode::operator-(std::int64_t units) const {
  return _checked(static_cast<int128>(m_position) - units, m_system);
}

timecode & timecode::operator-=(std::int64_t units) {
  m_position = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_position) -
                                         static_cast<std::uint64_t>(units));
  return *this;
}

timecode timecode::operator-(std::int32_t fields) const {
  if (!IsValid()) {
    return *this;
  }
  return *this - timecode(fields, m_system);
}

timecode timecode::operator-(double seconds) const {
  return *this - timecode(seconds, m_system & TC_INDEX_MASK);
}

timecode timecode::operator*(int factor) const {
  if (!IsValid()) {
    return *this;
  }
  return _checked(static_cast<int128>(m_position) * factor, m_system);
}

namespace {

// position * factor rounded half away from zero; false for a NaN or outside the 64-bit range.
bool _scaleDouble(std::int64_t position, double factor, std::int64_t & result) {
  double const product = std::round(static_cast<double>(position) * factor);
  if (!(product > -9223372036854775808.0 && product < 9223372036854775808.0)) {
    return false;
  }
  result = static_cast<std::int64_t>(product);
  return true;
}

} // namespace

timecode timecode::operator*(double factor) const {
  if (!IsValid()) {
    return *this;
  }
  std::int64_t position = 0;
  if (!_scaleDouble(m_position, factor, position)) {
    return timecode(INT64_C(0), m_system | TC_UNDEFINED);
  }
  return timecode(position, m_system);
}

timecode timecode::operator/(int divisor) const {
  if (!IsValid()) {
    return *this;
  }
  if (divisor == 0) {
    return timecode(INT64_C(0), m_system | TC_UNDEFINED);
  }
  int128 const n = divisor < 0 ? -static_cast<int128>(m_position) : static_cast<int128>(m_position);
  int128 const d = divisor < 0 ? -static_cast<int128>(divisor) : static_cast<int128>(divisor);
  return _checked(_divide(n, d, 0), m_system);
}

timecode timecode::operator/(double divisor) const {
  if (!IsValid()) {
    return *this;
  }
  std::int64_t position = 0;
  if (divisor == 0.0 || !_scaleDouble(m_position, 1.0 / divisor, position)) {
    return timecode(INT64_C(0), m_system | TC_UNDEFINED);
  }
  return timecode(position, m_system);
}

double timecode::operator/(timecode const & divisor) const {
  if (!IsValid() || !divisor.IsValid() || divisor.m_position == 0) {
    return 0.0;
  }
  return static_cast<double>(m_position) / static_cast<double>(divisor.m_position);
}

timecode & timecode::operator++(int) {
  if (IsValid()) {
    _step(GetFrameBU());
  }
  return *this;
}

timecode timecode::operator-() const {
  if (!IsValid()) {
    return *this;
  }
  if (m_position == INT64_MIN) {
    return timecode(m_position, m_system | TC_UNDEFINED);
  }
  return timecode(-m_position, m_system);
}

// ---- comparison

bool timecode::operator==(timecode const & other) const {
  if (!IsDefined() && !other.IsDefined()) {
    return true;
  }
  return m_position == other.m_position && m_system == other.m_system;
}

bool timecode::operator!=(timecode const & other) const {
  return m_position != other.m_position || m_system != other.m_system;
}

bool timecode::operator<(timecode const & other) const {
  if (!other.IsDefined()) {
    return true;
  }
  return IsDefined() && m_position < other.m_position;
}

bool timecode::operator>(timecode const & other) const {
  if (!other.IsDefined()) {
    return false;
  }
  return !IsDefined() || m_position > other.m_position;
}

bool timecode::operator<=(timecode const & other) const {
  if (!other.IsDefined()) {
    return true;
  }
  return IsDefined() && m_position <= other.m_position;
}

bool timecode::operator>=(timecode const & other) const {
  if (!IsDefined() || !other.IsDefined()) {
    return !IsDefined() && !other.IsDefined();
  }
  return m_position >= other.m_position;
}

timecode operator+(std::int64_t units, timecode const & value) {
  return value + units;
}
timecode operator+(std::int32_t fields, timecode const & value) {
  return value + fields;
}
timecode operator+(double seconds, timecode const & value) {
  return value + seconds;
}

timecode tcabs(timecode const & value) {
  return value.IsValid() && value.GetPosition() < 0 ? -value : value;
}

} // namespace VORX::TimeCode
