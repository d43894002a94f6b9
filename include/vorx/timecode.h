// VORX::TimeCode: broadcast timecode. `timecode` is a position on a time line in fine base units
// with the system (rate and counting rule) it is read in; `TCINFO` is the same position broken
// into days, hours, minutes, seconds and frames; `SZTC` (twelve characters, the system encoded in
// the separators) and `SZUTC` (self-describing, the rate spelled out) are its two text forms.
//
// Systems (index, name, rate): 0 PAL 25, 1 NTSC 30000/1001, 2 NTSC(DF), 3 FILM 24, 4 HDFILM
// 24000/1001, 5 HDFILM(DF), 6 HD50 50, 7 HDNTSC 60000/1001, 8 HDNTSC(DF), 9 PAL(PX) 25/2,
// 10 NTSC(PX) 15, 11 FILM(PX) 12, 12 HD30 30, 13 HD60 60. A second of nominal rate is 1200
// base units. A system word carries the index in bits 0-3 and two flags: 0x10000 undefined (the
// value could not be represented) and 0x20000 unassigned (never given a position; position 0).
//
// Overloads: an `int` argument selects the `std::int32_t` forms, which count FIELDS (half frames)
// of the value's system: `timecode(5, 0)` is five fields of PAL, not five base units. Write base
// units as `std::int64_t` (`INT64_C(5)`), seconds as `double`. A `long long` argument is
// ambiguous on purpose (it would have to be cut or widened silently).
#pragma once

#include <cstdint>

#include <vorx/base.h>
#include <vorx/string.h>

namespace VORX::TimeCode {

// System indexes and flags of a system word.
enum : std::uint32_t {
  TC_PAL = 0,
  TC_NTSC = 1,
  TC_NTSC_DF = 2,
  TC_FILM = 3,
  TC_HDFILM = 4,
  TC_HDFILM_DF = 5,
  TC_HD50 = 6,
  TC_HDNTSC = 7,
  TC_HDNTSC_DF = 8,
  TC_PAL_PX = 9,
  TC_NTSC_PX = 10,
  TC_FILM_PX = 11,
  TC_HD30 = 12,
  TC_HD60 = 13,
  TC_SYSTEMS = 14,         // number of systems
  TC_INDEX_MASK = 0xF,     // bits of the index
  TC_UNDEFINED = 0x10000,  // flag: could not be represented
  TC_UNASSIGNED = 0x20000, // flag: never given a position
};

class timecode;
class SZTC;

// A position broken down into a label: sign-and-magnitude, so that a negative position keeps its
// time-of-day fields as a magnitude and a negative day count (-1 base unit is day -1,
// 00:00:00:00). A plain value; fields are public. With a flag in `nSystem` the other fields mean
// nothing (0 when this library set the flag); conversions of flagged values give 0.
struct VORX_API TCINFO {
  std::uint32_t nFrames = 0;
  std::uint32_t nSeconds = 0;
  std::uint32_t nMinutes = 0;
  std::uint32_t nHours = 0;
  std::int64_t nDays = 0;
  std::uint32_t nSystem = TC_UNASSIGNED;

  // Unassigned.
  TCINFO() = default;
  // The label of a position in base units. Note: a position between frame boundaries reads by
  // dividing what is left of the second, which is the frame it lies in except in three systems:
  // "HDNTSC(DF)" reads every position past the start of a pair as its second frame (position 1
  // reads frame 1); "PAL(PX)" counts the frames of an odd second from the whole second (1200 reads
  // 00:00:01:00, 1296 reads 00:00:01:01); "NTSC(DF)" and "HDFILM(DF)" find the minute before
  // aligning, so the last frame of a minute can read one label on (71930 in "NTSC(DF)" reads
  // 00:00:59:29, not :28).
  TCINFO(std::int64_t position, std::uint32_t system);
  // The label of a count of fields; out of range (see `timecode`) gives the word 0x10000.
  TCINFO(std::int32_t fields, std::uint32_t system);
  // The label of a time in seconds.
  TCINFO(double seconds, std::uint32_t system);
  explicit TCINFO(timecode const & value);
  // A label, validated: minutes and seconds up to 59, frames below the labels per second,
  // |hours| up to 743 (30 days and 23 hours); "PAL(PX)" odd seconds end at frame 11; the
  // dropped labels of the drop-frame systems are refused. Refusal sets 0x10000 with the index
  // (0x30000 when the index was not a valid one). Negative hours give a negative label whose
  // day count is -days-1 (hours -1 is day -1, 01:00:00:00).
  // An unassigned `system` gives all fields 0 without checking the label.
  // Note: an index of 14 or 15 is read as "PAL" for validation and gives an unassigned value.
  TCINFO(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds, std::uint32_t frames,
         std::uint32_t system);
  // Reads the short text form; the fields are taken as they stand, without range checks.
  explicit TCINFO(SZTC const & text);

  std::uint32_t hh() const { return nHours; }
  std::uint32_t mm() const { return nMinutes; }
  std::uint32_t ss() const { return nSeconds; }
  std::uint32_t ff() const { return nFrames; }
  std::int64_t dd() const { return nDays; }
  std::uint32_t sys() const { return nSystem; }
  // True when no flag is set.
  bool IsDefined() const { return nSystem < 16; }

  // The position in base units; 0 when a flag is set. Labels far outside a day (fields not
  // checked) saturate at +/-9223372036854775807.
  operator std::int64_t() const;
  // The position divided by the field length (truncating), saturated to 32 bits; 0 for flags.
  operator std::int32_t() const;
  // Keeps the time of day: days become 0, or -1 for a negative label. Flagged values unchanged.
  void Clip();
  // Writes the non-null outputs: hours including the days (for a negative value those of
  // |days + 1|, saturated to 32 bits), minutes, seconds, frames, sign (-1 negative, else 1).
  // `system` is always written. False, and nothing else written, when a flag is set.
  bool GetInfo(std::uint32_t * hours, std::uint32_t * minutes, std::uint32_t * seconds,
               std::uint32_t * frames, std::int32_t * sign, std::uint32_t * system) const;
};

// A position on a time line: a signed 64-bit count of base units and the system word it is read
// in. A small value (no heap); copies are independent; one object must not be changed by two
// threads at once. Failures never throw or log: they are carried in the system word as 0x10000
// (undefined) or 0x20000 (unassigned). Every operation that receives a system word normalises it
// first (an index of 14 or 15 becomes 0 with 0x20000).
class VORX_API timecode {
public:
  // Unassigned: position 0, word 0x20000.
  timecode() = default;
  // Raw base units. An unassigned system gives position 0.
  timecode(std::int64_t position, std::uint32_t system);
  // A count of fields (`int` arguments land here). A magnitude above 2147483647 divided by the
  // field length gives the word exactly 0x10000 and position 0.
  timecode(std::int32_t fields, std::uint32_t system);
  // Seconds, rounded half away from zero to base units; beyond the 64-bit range the position
  // saturates at +/-9223372036854775807; a NaN gives the word 0x10000 with the index.
  timecode(double seconds, std::uint32_t system);
  // A label, validated as by `TCINFO` (an invalid label gives 0x10000 with the index).
  timecode(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds, std::uint32_t frames,
           std::uint32_t system);
  // From the broken-down form, without range checks (see `TCINFO::operator std::int64_t`).
  explicit timecode(TCINFO const & info);
  // From the short text form, free text accepted (see `SZTC(qefWChar const *)`).
  explicit timecode(qefWChar const * text);

  // Unassigned: position 0, word 0x20000; or the given system's index with 0x20000.
  void Unassign() { *this = timecode(); }
  void Unassign(std::uint32_t system);

  // The position as stored (also for flagged values).
  std::int64_t GetPosition() const { return m_position; }
  // The whole system word.
  std::uint32_t GetSystem() const { return m_system; }
  // The word without the index bits.
  std::uint32_t GetFlags() const { return m_system & ~static_cast<std::uint32_t>(TC_INDEX_MASK); }
  bool IsDefined() const { return (m_system & TC_UNDEFINED) == 0; }
  bool IsAssigned() const { return (m_system & TC_UNASSIGNED) == 0; }
  // True when no flag is set.
  bool IsValid() const { return m_system < 16; }

  // Conversions; each gives 0 when a flag is set.
  operator std::int64_t() const;
  // The position in fields, rounded half away from zero, saturated to 32 bits.
  operator std::int32_t() const;
  // Seconds (position times `BULen`).
  operator double() const;
  // The position counted in fields or frames of `system`. `mode` -1 truncates toward zero, 1
  // rounds away from zero, anything else to nearest (half away from zero). 0 when this value has
  // a flag or `system` has anything but a valid index.
  std::int64_t Fields(std::uint32_t system, int mode) const;
  std::int64_t Frames(std::uint32_t system, int mode) const;

  // Table values of this value's system.
  // 0.0 for a word whose index is above 13.
  double Framerate() const;
  // "" for a word whose index is above 13.
  qefWChar const * GetSystemString() const;
  // Tests the index bits only (so flags do not matter); true for 2, 5, 8 and 9.
  bool IsDFSystem() const;
  // Always true.
  bool GetFrameRateScale(std::uint32_t & rate, std::uint32_t & scale) const;
  double BULen() const { return BULen(m_system); }
  std::int64_t GetFrameBU() const { return GetFrameBU(m_system); }
  std::int64_t GetFieldBU() const { return GetFieldBU(m_system); }

  // Alignment to frames. `Align` rounds to the nearest frame (ties away from zero), `Trunc`
  // toward minus infinity except that a position within one frame below zero becomes 0 (-5 in
  // "PAL" becomes 0, -53 becomes -96), `Roof` subtracts the truncating remainder and adds one
  // frame (-5 in "PAL" becomes 48). The ...ToSystem forms first set the system (keeping the
  // flags of the old word). Leaving the 64-bit range sets 0x10000. `Align` leaves undefined
  // values as they are and gives unassigned ones position 0; `Trunc`/`Roof` only change the
  // index of flagged values.
  timecode & Align();
  timecode & AlignToSystem(std::uint32_t system);
  timecode & SetSystemAligned(std::uint32_t system) { return AlignToSystem(system); }
  timecode & Trunc();
  timecode & TruncToSystem(std::uint32_t system);
  timecode & Roof();
  timecode & RoofToSystem(std::uint32_t system);
  // True when the value is valid and on a frame boundary of its (or the given) system; false for
  // any flag and for a given word with bits beyond the index.
  bool AssertAligned() const;
  bool AssertAlignedToSystem(std::uint32_t system) const;
  // Keeps the time of day: the label with days 0 (or -1 for negative positions), recomposed.
  // Note: so a position between frame boundaries becomes the position of its label.
  timecode & Clip();
  // `Clip`, then one day added to a negative result: a position in [0, one day). Flagged values
  // are unchanged.
  timecode & Wrap();
  // position * num / den, truncating; with `round` den/2 is added first (subtracted for a
  // negative product). den 0 gives 0x10000 and position 0. Note: a result above 2147483647 sets
  // 0x10000 and keeps the position (the limit of a 32-bit count; the lower end is not checked).
  // Flagged values are unchanged.
  timecode & Scale(std::int64_t num, std::int64_t den, bool round);
  // Adds n times the `GetMaxTC` quantity (the day length times the field length, in base
  // units); undefined (0x10000 ored in) for systems where that is undefined or on overflow.
  timecode & Slip(int n);
  // Moves to `system` keeping the position: aligned to the nearest frame of the new system,
  // then for `direction` -1 one frame back when that passed the old position, for 1 one frame on
  // when it fell short (so -1 gives the frame containing the position, 1 the first frame not
  // before it). Flagged values are unchanged.
  timecode & MapTo(std::uint32_t system, int direction);
  // To the system of twice the frame rate in the same family (PAL(PX)->PAL->HD50,
  // NTSC(PX)->HD30->HD60, FILM(PX)->FILM, NTSC->HDNTSC, NTSC(DF)->HDNTSC(DF)) with `MapTo`
  // and `direction`; systems without such a partner are unchanged.
  timecode & Upconvert(int direction);
  // The reverse of `Upconvert` (HD50->PAL->PAL(PX), HD60->HD30->NTSC(PX), FILM->FILM(PX),
  // HDNTSC->NTSC, HDNTSC(DF)->NTSC(DF)), aligning with `MapTo` and `direction`.
  timecode & Downconvert(int direction);
  // Keeps the label rather than the position: days, hours, minutes and seconds stay, the frame
  // label is scaled to the new labels per second (truncating), and a label the new system drops
  // moves on to the first label it keeps (00:01:00;00 becomes 00:01:00;02). Flagged values are
  // unchanged.
  timecode & XlateToSystem(std::uint32_t system);
  // Rounds to the nearest point origin + k * step (ties away from the origin), keeping the
  // system. A flagged or non-positive `step`, or a flagged `origin`, gives 0x10000. Flagged
  // values are unchanged.
  timecode & RoundTo(timecode const & step, timecode const & origin);
  // Moves the value from the time line of `from` to that of `to`: adds to - from. A flagged
  // `from` or `to` ors 0x10000 in. Flagged values are unchanged.
  timecode & Bias(timecode const & from, timecode const & to);

  // Copying forms.
  timecode Aligned() const { return timecode(*this).Align(); }
  timecode AlignedToSystem(std::uint32_t system) const {
    return timecode(*this).AlignToSystem(system);
  }
  timecode Trunced() const { return timecode(*this).Trunc(); }
  timecode TruncedToSystem(std::uint32_t system) const {
    return timecode(*this).TruncToSystem(system);
  }
  timecode Roofed() const { return timecode(*this).Roof(); }
  timecode RoofedToSystem(std::uint32_t system) const {
    return timecode(*this).RoofToSystem(system);
  }
  timecode Clipped() const { return timecode(*this).Clip(); }
  timecode Wrapped() const { return timecode(*this).Wrap(); }
  timecode Scaled(std::int64_t num, std::int64_t den, bool round) const {
    return timecode(*this).Scale(num, den, round);
  }
  timecode Slipped(int n) const { return timecode(*this).Slip(n); }
  timecode MappedTo(std::uint32_t system, int direction) const {
    return timecode(*this).MapTo(system, direction);
  }
  timecode Upconverted(int direction) const { return timecode(*this).Upconvert(direction); }
  timecode Downconverted(int direction) const { return timecode(*this).Downconvert(direction); }
  timecode XlatedToSystem(std::uint32_t system) const {
    return timecode(*this).XlateToSystem(system);
  }
  timecode RoundedTo(timecode const & step, timecode const & origin) const {
    return timecode(*this).RoundTo(step, origin);
  }
  timecode Biased(timecode const & from, timecode const & to) const {
    return timecode(*this).Bias(from, to);
  }

  // Static forms, the value first.
  static timecode Aligned(timecode const & value) { return value.Aligned(); }
  static timecode AlignedToSystem(timecode const & value, std::uint32_t system) {
    return value.AlignedToSystem(system);
  }
  static timecode Trunced(timecode const & value) { return value.Trunced(); }
  static timecode Roofed(timecode const & value) { return value.Roofed(); }
  static timecode Clipped(timecode const & value) { return value.Clipped(); }
  static timecode Wrapped(timecode const & value) { return value.Wrapped(); }
  static timecode Slipped(timecode const & value, int n) { return value.Slipped(n); }
  static timecode MappedTo(timecode const & value, std::uint32_t system, int direction) {
    return value.MappedTo(system, direction);
  }
  static timecode Upconverted(timecode const & value, int direction) {
    return value.Upconverted(direction);
  }
  static timecode Downconverted(timecode const & value, int direction) {
    return value.Downconverted(direction);
  }
  static timecode XlatedToSystem(timecode const & value, std::uint32_t system) {
    return value.XlatedToSystem(system);
  }
  static timecode RoundedTo(timecode const & value, timecode const & step,
                            timecode const & origin) {
    return value.RoundedTo(step, origin);
  }

  // The system table. Words whose index is above 13 read index 0 unless stated.
  // Index >= 14 becomes 0 with 0x20000; other bits are kept.
  static std::uint32_t NormalizeSystem(std::uint32_t system);
  // The name ("PAL", "NTSC(DF)", ...), after normalisation.
  static qefWChar const * GetSystemString(std::uint32_t system);
  // Frames per second (29.97002997... for "NTSC").
  static double FramerateOf(std::uint32_t system);
  // Rate and scale (30000 and 1001 for "NTSC"). Always true.
  static bool GetFrameRateScaleOf(std::uint32_t system, std::uint32_t & rate,
                                  std::uint32_t & scale);
  // Seconds per base unit: 1/1200, or 1.001/1200 for the 1000/1001 rates.
  static double BULen(std::uint32_t system);
  static std::int64_t GetFrameBU(std::uint32_t system);
  static std::int64_t GetFieldBU(std::uint32_t system);
  // Copies up to 14 indexes in ascending order of rate (11, 9, 10, 4, 5, 3, 0, 1, 2, 12, 6, 7,
  // 8, 13); lowers `count` to 14 when it was larger.
  static void GetFramerateTCList(std::uint32_t * list, std::uint32_t & count);
  // Tests the whole word: true only for exactly 2, 5, 8 and 9. Note: 9 ("PAL(PX)") is not
  // counted with dropped labels, but its long text form carries "/D" all the same.
  static bool IsDFSystem(std::uint32_t system);
  // 1->2, 4->5, 7->8; any other word gives 0x20000.
  static std::uint32_t GetDFSystem(std::uint32_t system);
  // 2->1, 5->4, 8->7; any other word gives 0x20000.
  static std::uint32_t GetNDFSystem(std::uint32_t system);
  // The largest and smallest frame-aligned positions.
  static timecode GetMaxFrame(std::uint32_t system);
  static timecode GetMinFrame(std::uint32_t system);
  // The field length times the day length, in base units (2071526400 for "NTSC(DF)"); undefined
  // (word 0x10000) where that exceeds 2147483647: "PAL", "FILM", "HDFILM", "HDFILM(DF)" and the
  // "(PX)" systems.
  static timecode GetMaxTC(std::uint32_t system);
  // The nearest system to a frame rate: 13 from 60.0 on, 11 up to 12.5; otherwise the nearer of
  // the two neighbours in rate order, answered as `GetNDFSystem` of it. Note: so only rates
  // nearest to a drop-frame system answer an index (1, 4 or 7); 25.0 answers 0x20000.
  static std::uint32_t GetBestTCSystem(double fps);
  // The first of systems 0-12 with exactly this rate and scale, else `GetBestTCSystem`.
  static std::uint32_t GetTCSystemOf(std::uint32_t rate, std::uint32_t scale);

  // Addition. timecode: an unassigned left side gives the other operand; otherwise positions add
  // and the result keeps this system; Note: an undefined right side makes `+` give the word
  // exactly 0x10000 (the sum kept) while `+=` keeps its own position and ors 0x10000 in.
  // Leaving the 64-bit range gives 0x10000 ored in and position 0.
  timecode operator+(timecode const & other) const;
  timecode & operator+=(timecode const & other);
  // Base units, as `timecode(position + units, system)`.
  timecode operator+(std::int64_t units) const;
  // Note: adds without any check, also to a flagged value (the 64-bit sum wraps).
  timecode & operator+=(std::int64_t units);
  // Fields of this system; an undefined or unassigned left side adds nothing; an out-of-range
  // count gives the word exactly 0x10000.
  timecode operator+(std::int32_t fields) const;
  timecode & operator+=(std::int32_t fields) { return *this = *this + fields; }
  // Seconds of this system, then as timecode + timecode.
  timecode operator+(double seconds) const;
  timecode & operator+=(double seconds) { return *this = *this + seconds; }

  // Subtraction, mirroring addition: an unassigned left side gives the other operand negated;
  // `-` with an undefined right side gives the word exactly 0x10000, `-=` ors it in.
  timecode operator-(timecode const & other) const;
  timecode & operator-=(timecode const & other);
  timecode operator-(std::int64_t units) const;
  // Note: subtracts without any check, as `+=` adds (the 64-bit difference wraps).
  timecode & operator-=(std::int64_t units);
  timecode operator-(std::int32_t fields) const;
  timecode & operator-=(std::int32_t fields) { return *this = *this - fields; }
  timecode operator-(double seconds) const;
  timecode & operator-=(double seconds) { return *this = *this - seconds; }

  // Multiplication and division of the position; the result is rounded half away from zero.
  // Flagged values are unchanged; division by 0, a NaN, or leaving the 64-bit range gives
  // 0x10000 ored in and position 0.
  timecode operator*(int factor) const;
  timecode & operator*=(int factor) { return *this = *this * factor; }
  timecode operator*(double factor) const;
  timecode & operator*=(double factor) { return *this = *this * factor; }
  timecode operator/(int divisor) const;
  timecode & operator/=(int divisor) { return *this = *this / divisor; }
  timecode operator/(double divisor) const;
  timecode & operator/=(double divisor) { return *this = *this / divisor; }
  // The ratio of the positions; 0.0 when either side has a flag or the divisor is 0.
  double operator/(timecode const & divisor) const;

  // Adds one frame unless a flag is set; returns this value itself. Note: the postfix form
  // returns a reference to the changed value, not the old value.
  timecode & operator++(int);
  // The position negated for a valid value (-9223372036854775808 gives 0x10000); flagged values
  // are returned unchanged.
  timecode operator-() const;
  // True when the position is 0 or the value is unassigned.
  bool operator!() const { return m_position == 0 || !IsAssigned(); }

  // Comparison. Note, on purpose and kept as it stands: `==` is true for any two undefined
  // values, else positions and whole words must match; `!=` compares positions and words only,
  // so two undefined values at different positions are both == and !=. `<` and `<=` are true
  // whenever the right side is undefined and false when only the left one is; `>` is true when
  // only the left side is undefined and false when the right one is; `>=` is true when both are
  // undefined and false when either alone is. Between defined values only positions count.
  bool operator==(timecode const & other) const;
  bool operator!=(timecode const & other) const;
  bool operator<(timecode const & other) const;
  bool operator>(timecode const & other) const;
  bool operator<=(timecode const & other) const;
  bool operator>=(timecode const & other) const;
  // With numbers: the number becomes a value of this value's system index (base units, fields
  // or seconds, as in addition) and the rules above apply.
  bool operator==(std::int64_t units) const { return *this == _like(units); }
  bool operator!=(std::int64_t units) const { return *this != _like(units); }
  bool operator<(std::int64_t units) const { return *this < _like(units); }
  bool operator>(std::int64_t units) const { return *this > _like(units); }
  bool operator<=(std::int64_t units) const { return *this <= _like(units); }
  bool operator>=(std::int64_t units) const { return *this >= _like(units); }
  bool operator==(std::int32_t fields) const { return *this == _like(fields); }
  bool operator!=(std::int32_t fields) const { return *this != _like(fields); }
  bool operator<(std::int32_t fields) const { return *this < _like(fields); }
  bool operator>(std::int32_t fields) const { return *this > _like(fields); }
  bool operator<=(std::int32_t fields) const { return *this <= _like(fields); }
  bool operator>=(std::int32_t fields) const { return *this >= _like(fields); }
  bool operator==(double seconds) const { return *this == _like(seconds); }
  bool operator!=(double seconds) const { return *this != _like(seconds); }
  bool operator<(double seconds) const { return *this < _like(seconds); }
  bool operator>(double seconds) const { return *this > _like(seconds); }
  bool operator<=(double seconds) const { return *this <= _like(seconds); }
  bool operator>=(double seconds) const { return *this >= _like(seconds); }

private:
  timecode _like(std::int64_t units) const { return timecode(units, m_system & TC_INDEX_MASK); }
  timecode _like(std::int32_t fields) const { return timecode(fields, m_system & TC_INDEX_MASK); }
  timecode _like(double seconds) const { return timecode(seconds, m_system & TC_INDEX_MASK); }
  timecode & _step(std::int64_t units);

  std::int64_t m_position = 0;
  std::uint32_t m_system = TC_UNASSIGNED;
};

// The number, as the member form with the operands swapped.
VORX_API timecode operator+(std::int64_t units, timecode const & value);
VORX_API timecode operator+(std::int32_t fields, timecode const & value);
VORX_API timecode operator+(double seconds, timecode const & value);
// The magnitude of a valid value; flagged values unchanged (see unary minus).
VORX_API timecode tcabs(timecode const & value);

// The short text form: twelve wide characters, the sign or marker, then hh, mm, ss and ff with
// the system encoded in the three separators (PAL ":::", NTSC "::.", NTSC(DF) ".:.", ...).
// A plain value holding its buffer; never empty: " --:--:--:--" is unassigned, "*##:##:##:##"
// undefined, "<##:##:##:##" and ">##:##:##:##" beyond the day of zero.
class VORX_API SZTC {
public:
  static constexpr int kLength = 12;

  // " --:--:--:--".
  SZTC();
  SZTC(std::int64_t position, std::uint32_t system);
  SZTC(std::int32_t fields, std::uint32_t system);
  SZTC(double seconds, std::uint32_t system);
  explicit SZTC(timecode const & value);
  SZTC(std::int32_t hours, std::uint32_t minutes, std::uint32_t seconds, std::uint32_t frames,
       std::uint32_t system);
  // Writes a label; a label with a field above 99 gives the undefined picture.
  explicit SZTC(TCINFO const & info);
  // Brings typed text into the twelve-character form:
  // - blanks around the text are ignored; a leading "-" is the sign, a leading "+" is dropped;
  //   a leading "*", "<" or ">", or any "#", gives "*##:##:##:##"; null or blank text gives
  //   " --:--:--:--";
  // - groups of digits or "-" are separated by ":", ".", ",", ";" or blanks; with fewer than
  //   four groups the given ones are the last (frames last: "1:2" is 00:00:01:02) and the
  //   missing separators are ":"; one group of three to eight digits is split into pairs from
  //   the right ("1000" is 00:00:10:00, separators ":::");
  // - a group of one digit gets a leading 0, an empty group is 00, a group of dashes stays
  //   dashes (a digit group with "-" reads "-" as 0);
  // - anything else (a letter, a group of more than two digits, more than four groups) gives
  //   "*##:##:##:##".
  // A text that is already in the twelve-character form (a blank or "-", then four fields of two
  // digits or "-" with ":", ".", "," or ";" between them) is kept unchanged, so " --:02:03:04"
  // reads as 00:02:03:04 and " 1-:00:00:00" as 10:00:00:00.
  // Note: separators keep this library's meaning; "01:00:00;00" is "HD30", not drop-frame.
  explicit SZTC(qefWChar const * text);
  // The same for 8-bit text (ASCII; other bytes make it undefined).
  explicit SZTC(char const * text);

  // The position / field count read back through `TCINFO`; 0 for unreadable text.
  operator std::int64_t() const;
  operator std::int32_t() const;
  // The twelve characters, terminated.
  qefWChar const * c_str() const { return m_text; }
  // The text in the library's wide and UTF-8 string buffers (one heap block each); an empty
  // buffer when it cannot be allocated.
  operator VORX::String::CQEFWChar() const;
  operator VORX::String::CUTF8Char() const;

private:
  void _write(TCINFO const & info);
  qefWChar m_text[kLength + 1];
};

// The long, self-describing text form: "hh:mm:ss:ff{marker}{rate/scale}Hz", with "/D" appended
// for the systems whose `IsDFSystem` holds (2, 5, 8 and 9); the marker is a blank inside the day
// of zero, "+" beyond it and "-" before it (the label then shows the time of day). A plain value
// holding its buffer.
// Note: "PAL(PX)" is written with "{25/2}Hz/D" and reads back as unassigned, on purpose.
class VORX_API SZUTC {
public:
  static constexpr int kCapacity = 32;

  // The long form of an unassigned "PAL" value: "--:--:--:-- {25/1}Hz".
  SZUTC();
  explicit SZUTC(timecode const & value);
  // Keeps a text that the seven-field read of `operator timecode` takes (re-written in the long
  // form when it is longer than the buffer). Otherwise reads only the rate, after "{" up to
  // "}Hz" with an optional "/D", and stores the long form of an unassigned value of that system
  // ("--:--:--:-- {30000/1001}Hz/D"); unreadable text stores "--:--:--:-- {25/1}Hz".
  // Note: `operator timecode` of such an unassigned form gives the plain unassigned value.
  explicit SZUTC(qefWChar const * text);
  explicit SZUTC(char const * text);

  // Reads "%u:%u:%u:%u%c{%u/%u}Hz": fewer than seven fields or an unknown rate give the
  // unassigned value (word 0x20000); "/D" at the end selects the drop-frame partner (or
  // unassigned where there is none); the label is validated; marker "+" slips by one
  // `GetMaxTC`, "-" by minus one.
  operator timecode() const;
  qefWChar const * c_str() const { return m_text; }

private:
  qefWChar m_text[kCapacity];
};

} // namespace VORX::TimeCode
