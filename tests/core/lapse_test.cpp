// The stopwatch: unnamed ones stay silent, named ones log their time once, lapses grow.
#include <gtest/gtest.h>
#include <vorx/develop.h>

#include <cstdlib>
#include <string>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using VORX::String::CPPoolString;

namespace {

// The milliseconds of a category "NAME - 12.34ms", after checking its form; -1 when it does not
// have that form.
double Milliseconds(std::u16string const & category, std::u16string const & name) {
  std::u16string const prefix = name + u" - ";
  if (category.compare(0, prefix.size(), prefix) != 0 || category.size() < prefix.size() + 6 ||
      category.compare(category.size() - 2, 2, u"ms") != 0 ||
      category[category.size() - 5] != u'.') {
    return -1;
  }
  std::string const number =
      vorx::test::Narrow(category.substr(prefix.size(), category.size() - prefix.size() - 2));
  return std::strtod(number.c_str(), nullptr);
}

} // namespace

TEST(HFLapse, UnnamedIsSilentAndNamedLogsOnceWhenStoppedOrDestroyed) {
  vorx::test::LogCapture log;
  {
    CHFLapse const empty(CPPoolString::pempty);
    CHFLapse const null(CPPoolString::pnull);
    EXPECT_EQ(empty.count_micro(), 0u);
    EXPECT_EQ(null.count_double(), 0.0);
  }
  EXPECT_TRUE(log.Lines().empty());
  { CHFLapse const load(u"load %d"); }
  {
    CHFLapse watch(u"parse");
    watch.Stop(u"%d files, %ls", 3, u"done");
  }
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u) << "a stopped watch logs nothing more when destroyed";
  EXPECT_EQ(lines[0].level, qefDL_Info);
  EXPECT_GE(Milliseconds(lines[0].category, u"load %d"), 0.0)
      << vorx::test::Narrow(lines[0].category);
  EXPECT_EQ(lines[0].file, "<null>");
  EXPECT_EQ(lines[0].line, 0);
  EXPECT_EQ(lines[0].message, u"Total");
  EXPECT_GE(Milliseconds(lines[1].category, u"parse"), 0.0);
  EXPECT_EQ(lines[1].message, u"3 files, done");
}

TEST(HFLapse, LapsesCountFromTheFirstStartAndAnotherStopRepeatsTheTime) {
  vorx::test::LogCapture log;
  CHFLapse watch(u"steps");
  watch.Lapse(u"one");
  watch.Lapse(u"two");
  watch.Stop(u"end");
  CHFLapse unnamed(CPPoolString::pnull); // stopped, it logs under "CHFLapse"
  unnamed.Start();
  unnamed.Stop(u"first");
  unnamed.Stop(u"again");
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 5u);
  double const one = Milliseconds(lines[0].category, u"steps");
  double const two = Milliseconds(lines[1].category, u"steps");
  EXPECT_GE(one, 0.0);
  EXPECT_LE(one, two);
  EXPECT_LE(two, Milliseconds(lines[2].category, u"steps"));
  EXPECT_EQ(lines[1].message, u"two");
  EXPECT_GE(Milliseconds(lines[3].category, u"CHFLapse"), 0.0);
  EXPECT_EQ(lines[3].category, lines[4].category);
}

// After Stop() the state word is twice the elapsed time, and count_micro() says so.
TEST(HFLapse, CountsReadTheStateWordAsItStands) {
  vorx::test::LogCapture log;
  CHFLapse watch(u"count");
  watch.Stop(u"stopped");
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  double const reportedMs = Milliseconds(lines[0].category, u"count");
  double const countedMs = static_cast<double>(watch.count_micro()) / 1000.0;
  EXPECT_NEAR(countedMs / 2, reportedMs, 0.006);
  EXPECT_NEAR(watch.count_double() * 1e3, countedMs, 0.001);
  // While running, the lapse forms grow from the start in their own units.
  watch.Start();
  std::uint64_t const first = watch.lapse_nano();
  EXPECT_GE(watch.lapse_nano(), first);
  EXPECT_LE(watch.lapse_micro(), watch.lapse_nano() / 1000 + 1);
  EXPECT_LE(watch.lapse_milli(), watch.lapse_nano() / 1000000 + 1);
  watch.Stop();
}
