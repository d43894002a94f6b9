// The 16-bit formatter against glibc's swprintf (32-bit wchar_t) and snprintf on the formats the
// library writes most: the log-line prefix and a typical message.
#include <vorx/string.h>

#include <cstdio>
#include <cwchar>

#include <benchmark/benchmark.h>

namespace {

void BM_FormatLogPrefix_Vorx(benchmark::State & state) {
  char16_t buffer[512];
  for (auto _ : state) {
    int const n =
        VORX::String::_snwprintf(buffer, 512, u"%8.3f [%ls] [%ls] [] {[file:%hs] [line:%d]} ",
                                 12.345, u"ERROR  ", u"VORX.default", "memory.cpp", 123);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatLogPrefix_Vorx);

void BM_FormatLogPrefix_GlibcSwprintf(benchmark::State & state) {
  wchar_t buffer[512];
  for (auto _ : state) {
    int const n = std::swprintf(buffer, 512, L"%8.3f [%ls] [%ls] [] {[file:%s] [line:%d]} ", 12.345,
                                L"ERROR  ", L"VORX.default", "memory.cpp", 123);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatLogPrefix_GlibcSwprintf);

void BM_FormatLogPrefix_GlibcSnprintf(benchmark::State & state) {
  char buffer[512];
  for (auto _ : state) {
    int const n = std::snprintf(buffer, 512, "%8.3f [%s] [%s] [] {[file:%s] [line:%d]} ", 12.345,
                                "ERROR  ", "VORX.default", "memory.cpp", 123);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatLogPrefix_GlibcSnprintf);

// A message with strings and integers only (no floating conversion).
void BM_FormatMessage_Vorx(benchmark::State & state) {
  char16_t buffer[2048];
  for (auto _ : state) {
    int const n = VORX::String::_snwprintf(
        buffer, 2048, u"Opened %ls (%hs): %d elements, %I64u bytes, flags %#010x, at %p",
        u"/media/project/reel 12.xml", "UTF-8", 4711, 123456789012ull, 0x1234u,
        static_cast<void *>(&state));
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatMessage_Vorx);

void BM_FormatMessage_GlibcSwprintf(benchmark::State & state) {
  wchar_t buffer[2048];
  for (auto _ : state) {
    int const n = std::swprintf(buffer, 2048,
                                L"Opened %ls (%s): %d elements, %llu bytes, flags %#010x, at %p",
                                L"/media/project/reel 12.xml", "UTF-8", 4711, 123456789012ull,
                                0x1234u, static_cast<void *>(&state));
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatMessage_GlibcSwprintf);

void BM_FormatMessage_GlibcSnprintf(benchmark::State & state) {
  char buffer[2048];
  for (auto _ : state) {
    int const n =
        std::snprintf(buffer, 2048, "Opened %s (%s): %d elements, %llu bytes, flags %#010x, at %p",
                      "/media/project/reel 12.xml", "UTF-8", 4711, 123456789012ull, 0x1234u,
                      static_cast<void *>(&state));
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatMessage_GlibcSnprintf);

} // namespace
