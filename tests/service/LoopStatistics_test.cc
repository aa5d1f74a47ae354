// SPDX-License-Identifier: MIT
#include "service/LoopStatistics.h"

#include "util/SuperLoop.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using service::LoopStatistics;

namespace {

struct Sleeper : util::EventLoop {
  void runLoop(util::utime_t slice) override {
    slices.push_back(slice);
    std::this_thread::sleep_for(std::chrono::milliseconds(duration));
  }
  const char* name() override { return "sleeper"; }

  int duration = 0;
  std::vector<util::utime_t> slices;
};

}  // namespace

TEST(LoopStatistics, CountsRoundsAndMeasuresThem) {
  Sleeper sleeper;
  LoopStatistics measured(sleeper);
  sleeper.duration = 30;
  measured.runLoop(10000);
  const double longest = measured.last();
  EXPECT_GE(longest, 30);
  sleeper.duration = 0;
  measured.runLoop(20000);
  EXPECT_EQ(2U, measured.runs());
  EXPECT_EQ(0U, measured.late());
  EXPECT_EQ(longest, measured.longest());
  EXPECT_EQ(longest + measured.last(), measured.total());
  EXPECT_EQ((std::vector<util::utime_t>{10000, 20000}), sleeper.slices);
}

TEST(LoopStatistics, CountsRoundsThatTookLongerThanTheirSlice) {
  Sleeper sleeper;
  LoopStatistics measured(sleeper);
  sleeper.duration = 5;
  for (const util::utime_t slice : {4U, 10000U, 0U}) measured.runLoop(slice);
  EXPECT_EQ(2U, measured.late());
}

TEST(LoopStatistics, StandsInForTheSubLoop) {
  Sleeper sleeper;
  LoopStatistics measured(sleeper);
  util::SuperLoop loop;
  loop.addEvent(&measured);
  loop.runLoop(1);
  EXPECT_EQ(1U, measured.runs());
  EXPECT_STREQ("sleeper", measured.name());
}

TEST(LoopStatistics, IsAValueForLogsAndThePage) {
  Sleeper sleeper;
  LoopStatistics measured(sleeper);
  measured.runLoop(10000);
  measured.runLoop(10000);
  const util::Value value = measured.value();
  const util::value_struct& entries = value;
  EXPECT_EQ(6U, entries.size());
  EXPECT_EQ("sleeper", static_cast<const std::string&>(entries.at("name")));
  EXPECT_EQ(2.0, static_cast<const double&>(entries.at("runs")));
  EXPECT_EQ(0.0, static_cast<const double&>(entries.at("late")));
  EXPECT_EQ(measured.last(), static_cast<const double&>(entries.at("last")));
  EXPECT_EQ(measured.longest(), static_cast<const double&>(entries.at("longest")));
  EXPECT_EQ(measured.total(), static_cast<const double&>(entries.at("total")));
}
