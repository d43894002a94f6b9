// Timecode and rationals: position <-> label per system, both text forms written and read, and
// rational addition and multiplication. Each iteration handles one value of a table of 1024.
#include <vorx/math.h>
#include <vorx/timecode.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

using VORX::Math::CRational;
using namespace VORX::TimeCode;

constexpr std::size_t kValues = 1024;

// Frame-aligned positions spread over one day of the system.
std::vector<std::int64_t> Positions(std::uint32_t system) {
  std::mt19937_64 rng(system + 1);
  std::int64_t const frame = timecode::GetFrameBU(system);
  std::int64_t const frames = INT64_C(86400) * 1200 / frame - 1;
  std::vector<std::int64_t> positions(kValues);
  for (auto & p : positions) {
    p = static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(frames)) * frame;
  }
  return positions;
}

void SetLabel(benchmark::State & state) {
  char name[16] = {};
  qefWChar const * system = timecode::GetSystemString(static_cast<std::uint32_t>(state.range(0)));
  for (std::size_t i = 0; system[i] != 0 && i + 1 < sizeof name; ++i) {
    name[i] = static_cast<char>(system[i]);
  }
  state.SetLabel(name);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_TC_PositionToLabel(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  auto const positions = Positions(system);
  std::size_t i = 0;
  for (auto _ : state) {
    TCINFO const info(positions[i++ % kValues], system);
    benchmark::DoNotOptimize(info);
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_PositionToLabel)->DenseRange(0, 13);

void BM_TC_LabelToPosition(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  std::vector<TCINFO> labels;
  for (std::int64_t p : Positions(system)) {
    labels.emplace_back(p, system);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<std::int64_t>(labels[i++ % kValues]));
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_LabelToPosition)->DenseRange(0, 13);

void BM_TC_ShortFormWrite(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  auto const positions = Positions(system);
  std::size_t i = 0;
  for (auto _ : state) {
    SZTC const text(positions[i++ % kValues], system);
    benchmark::DoNotOptimize(text);
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_ShortFormWrite)->Arg(TC_PAL)->Arg(TC_NTSC_DF)->Arg(TC_HDNTSC_DF);

void BM_TC_ShortFormRead(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  std::vector<SZTC> texts;
  for (std::int64_t p : Positions(system)) {
    texts.emplace_back(p, system);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<std::int64_t>(texts[i++ % kValues]));
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_ShortFormRead)->Arg(TC_PAL)->Arg(TC_NTSC_DF)->Arg(TC_HDNTSC_DF);

void BM_TC_FreeTextRead(benchmark::State & state) {
  for (auto _ : state) {
    timecode const value(u"1:00:00.00");
    benchmark::DoNotOptimize(value);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_TC_FreeTextRead);

void BM_TC_LongFormWrite(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  std::vector<timecode> values;
  for (std::int64_t p : Positions(system)) {
    values.emplace_back(p, system);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    SZUTC const text(values[i++ % kValues]);
    benchmark::DoNotOptimize(text);
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_LongFormWrite)->Arg(TC_PAL)->Arg(TC_NTSC_DF);

void BM_TC_LongFormRead(benchmark::State & state) {
  auto const system = static_cast<std::uint32_t>(state.range(0));
  std::vector<SZUTC> texts;
  for (std::int64_t p : Positions(system)) {
    texts.emplace_back(timecode(p, system));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<timecode>(texts[i++ % kValues]));
  }
  SetLabel(state);
}
BENCHMARK(BM_TC_LongFormRead)->Arg(TC_PAL)->Arg(TC_NTSC_DF);

std::vector<CRational> Rationals() {
  std::mt19937 rng(7);
  std::vector<CRational> values;
  for (std::size_t i = 0; i < kValues; ++i) {
    values.emplace_back(static_cast<std::int32_t>(rng() % 60001) - 30000,
                        static_cast<std::int32_t>(rng() % 1001) + 1);
  }
  return values;
}

void BM_Rational_Add(benchmark::State & state) {
  auto const values = Rationals();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(values[i % kValues] + values[(i + 1) % kValues]);
    ++i;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_Rational_Add);

void BM_Rational_Multiply(benchmark::State & state) {
  auto const values = Rationals();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(values[i % kValues] * values[(i + 1) % kValues]);
    ++i;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_Rational_Multiply);

void BM_Rational_BestApproximation(benchmark::State & state) {
  for (auto _ : state) {
    CRational value;
    benchmark::DoNotOptimize(value.fassign(29.97002997, 1001));
    benchmark::DoNotOptimize(value);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_Rational_BestApproximation);

} // namespace
