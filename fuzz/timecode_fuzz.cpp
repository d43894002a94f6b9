// Fuzzes the timecode text readers with arbitrary text and the conversions and operations with
// arbitrary positions and system words: nothing may crash, trap or overflow.
#include <vorx/timecode.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace VORX::TimeCode;

namespace {

template <typename T> T Take(std::uint8_t const *& data, std::size_t & size) {
  T value{};
  std::size_t const n = size < sizeof(T) ? size : sizeof(T);
  std::memcpy(&value, data, n);
  data += n;
  size -= n;
  return value;
}

// A short form must read back to the value it was written from, whenever it is a plain label.
void CheckShortForm(timecode const & value) {
  SZTC const text(value);
  TCINFO const info(text);
  if (value.IsValid() && info.IsDefined() && value.AssertAligned() &&
      static_cast<std::int64_t>(info) != value.GetPosition()) {
    __builtin_trap();
  }
  (void)SZUTC(value);
  (void)static_cast<timecode>(SZUTC(value));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  // The whole input as text, both widths, to every reader.
  std::vector<qefWChar> wide(size / 2 + 1, 0);
  std::memcpy(wide.data(), data, size / 2 * 2);
  std::vector<char> narrow(data, data + size);
  narrow.push_back(0);
  SZTC const shortWide(wide.data());
  SZTC const shortNarrow(narrow.data());
  (void)static_cast<std::int64_t>(shortWide);
  (void)static_cast<std::int32_t>(shortNarrow);
  timecode const fromText(wide.data());
  CheckShortForm(fromText);
  SZUTC const longWide(wide.data());
  SZUTC const longNarrow(narrow.data());
  (void)static_cast<timecode>(longWide);
  (void)static_cast<timecode>(longNarrow);

  // The same bytes as numbers and system words.
  std::int64_t const position = Take<std::int64_t>(data, size);
  std::int64_t const other = Take<std::int64_t>(data, size);
  std::uint32_t const system = Take<std::uint32_t>(data, size);
  std::uint32_t const system2 = Take<std::uint32_t>(data, size);
  std::int32_t const small = Take<std::int32_t>(data, size);
  std::uint32_t const m = Take<std::uint32_t>(data, size);
  std::uint32_t const s = Take<std::uint32_t>(data, size);
  std::uint32_t const f = Take<std::uint32_t>(data, size);
  double seconds = 0;
  std::memcpy(&seconds, &other, sizeof seconds);

  timecode value(position, system);
  timecode const second(other, system2);
  CheckShortForm(value);
  CheckShortForm(timecode(small, system));
  CheckShortForm(timecode(seconds, system));
  CheckShortForm(timecode(small, m, s, f, system));
  TCINFO const info(position, system);
  (void)static_cast<std::int64_t>(info);
  (void)static_cast<std::int32_t>(info);
  std::uint32_t h = 0;
  std::int32_t sign = 0;
  (void)info.GetInfo(&h, nullptr, nullptr, nullptr, &sign, nullptr);
  TCINFO raw;
  raw.nHours = m;
  raw.nMinutes = s;
  raw.nSeconds = f;
  raw.nFrames = system2;
  raw.nDays = other;
  raw.nSystem = system & 0xF;
  (void)static_cast<std::int64_t>(raw);
  (void)SZTC(raw);

  (void)static_cast<std::int32_t>(value);
  (void)static_cast<double>(value);
  (void)value.Fields(system2, small);
  (void)value.Frames(system2, small);
  (void)value.Aligned();
  (void)value.AlignedToSystem(system2);
  (void)value.TruncedToSystem(system2);
  (void)value.RoofedToSystem(system2);
  (void)value.Clipped();
  (void)value.Wrapped();
  (void)value.Scaled(other, small, (m & 1) != 0);
  (void)value.Slipped(small);
  (void)value.MappedTo(system2, small);
  (void)value.Upconverted(small);
  (void)value.Downconverted(small);
  (void)value.XlatedToSystem(system2);
  (void)value.RoundedTo(second, timecode(small, system));
  (void)value.Biased(second, timecode(small, system2));
  (void)(value + second);
  (void)(value - second);
  (void)(value + other);
  (void)(value - other);
  (void)(value + small);
  (void)(value - small);
  (void)(value + seconds);
  (void)(value - seconds);
  (void)(value * small);
  (void)(value / small);
  (void)(value * seconds);
  (void)(value / seconds);
  (void)(value / second);
  (void)(-value);
  (void)tcabs(value);
  (void)(value < second);
  (void)(value >= other);
  (void)(value == small);
  (void)(value <= seconds);
  value += second;
  value -= other;
  value++;
  (void)timecode::GetBestTCSystem(seconds);
  (void)timecode::GetTCSystemOf(m, s);
  (void)timecode::GetMaxTC(system);
  (void)timecode::GetMaxFrame(system);
  return 0;
}
