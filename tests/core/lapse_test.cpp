// The stopwatch: unnamed ones stay silent, named ones log their time once, lapses grow.
#include <gtest/gtest.h>
#include <vorx/develop.h>

#include <regex>
#include <string>

#include "support/diagnostics_capture.h"

using namespace VORX::Develop;
using VORX::String::CPPoolString;

// The milliseconds of a category "NAME - 12.34ms"; -1 when it does not have that form.
static double Milliseconds(std::u16string const & category, std::string const & name) {
  std::string const text = vorx::test::Narrow(category);
  std::smatch number;
  bool const ok = std::regex_match(text, number, std::regex(name + " - ([0-9]+\\.[0-9]{2})ms"));
  return ok ? std::stod(number[1]) : -1;
}

TEST(HFLapse, NamedWatchesLogOnceLapsesGrowAndCountsReadTheStateWord) {
  vorx::test::LogCapture log;
  { CHFLapse const silent(CPPoolString::pempty); }
  { CHFLapse const load(u"load %d"); }
  CHFLapse watch(u"steps");
  watch.Lapse(u"one");
  watch.Stop(u"%d files, %ls", 3, u"done");
  CHFLapse unnamed(CPPoolString::pnull); // stopped, it logs under "CHFLapse"
  unnamed.Start();
  unnamed.Stop(u"first");
  unnamed.Stop(u"again");
  // After Stop() the state word is twice the elapsed time, and count_micro() says so.
  CHFLapse counted(u"count");
  counted.Stop(u"stopped");
  auto const lines = log.Lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0].level, qefDL_Info);
  EXPECT_EQ(lines[0].file + ":" + std::to_string(lines[0].line) + " " +
                vorx::test::Narrow(lines[0].message),
            "<null>:0 Total");
  EXPECT_GE(Milliseconds(lines[0].category, "load %d"), 0.0);
  double const one = Milliseconds(lines[1].category, "steps");
  EXPECT_GE(one, 0.0);
  EXPECT_LE(one, Milliseconds(lines[2].category, "steps"));
  EXPECT_EQ(lines[2].message, u"3 files, done");
  EXPECT_GE(Milliseconds(lines[3].category, "CHFLapse"), 0.0);
  EXPECT_EQ(lines[3].category, lines[4].category) << "another stop repeats the time";
  double const reportedMs = Milliseconds(lines[5].category, "count");
  double const countedMs = static_cast<double>(counted.count_micro()) / 1000.0;
  EXPECT_NEAR(countedMs / 2, reportedMs, 0.006);
  EXPECT_NEAR(counted.count_double() * 1e3, countedMs, 0.001);
}
