#include <gtest/gtest.h>
#include <vorx/core.h>
#include <vorx/develop.h>

using namespace VORX::Develop;

TEST(Clocks, RoundHalfUpAndMoveForwardTogether) {
  struct Row {
    std::uint64_t nanos, micros, millis;
  } const rows[] = {
      {499999, 500, 0}, {500000, 500, 1}, {UINT64_MAX, 18446744073709552, 18446744073710}};
  for (Row const & row : rows) {
    EXPECT_EQ(_nanoToMicro(row.nanos), row.micros) << row.nanos;
    EXPECT_EQ(_nanoToMilli(row.nanos), row.millis) << row.nanos;
  }
  std::uint64_t const first = _now_nano();
  EXPECT_GE(_now_micro(), first / 1000);
  EXPECT_GE(_now_milli(), first / 1000000);
  // The wall clock is after 2020-01-01 and before 2100-01-01.
  EXPECT_GT(VORX::Core::OS::GetTimeNow(), 1577836800000ull);
  EXPECT_LT(VORX::Core::OS::GetTimeNow(), 4102444800000ull);
}
