// SPDX-License-Identifier: MIT
// Time far away, and time that is stepped at any moment.
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "util/PropertyList.h"
#include "util/SuperLoop.h"
#include "util/logger.h"

#include <stdarg.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using support::FrozenClock;
using support::TempDir;
using support::TimeZone;
using util::PropertyList;
using util::utime_t;

namespace {

constexpr bool kWideTime = sizeof(time_t) > 4;

// What a pass deals with, in milliseconds.
struct Scenario {
  const char* name;
  utime_t timeout;
  std::vector<int64_t> loops;  // how long each takes
  struct Due {
    int64_t in;  // from the start on
    int64_t takes;
  };
  std::vector<Due> events;
};

const Scenario kScenarios[] = {
    {"nothing to do",    100, {},           {{-1, 0}}                    },
    {"loops",            100, {10, 0, 30},  {}                           },
    {"an overrun",       100, {10, 250, 5}, {{-1, 3}}                    },
    {"loops and events", 100, {10, 20},     {{-5, 7}, {60000, 1}, {0, 2}}},
    {"events that wait", 50,  {1},          {{3, 1}, {20, 1}, {70, 100}} },
    {"no time",          0,   {1},          {{-1, 1}}                    },
};

// At reading `at` of a pass, from 1 on, the clock is moved by that much.
struct Step {
  int at;
  int64_t by;
};

// What happens in two passes: "loop 1: 33", "event 0: 80", "sleep 40".
using Story = std::vector<std::string>;

std::string told(const char* what, size_t which, utime_t time) {
  return std::string(what) + " " + std::to_string(which) + ": " + std::to_string(time);
}

// ---- the rules, in unsigned arithmetic ----

class Model {
 public:
  Model(const Scenario& scenario, int64_t start, Step step)
      : scenario_(scenario), clock_(start), step_(step) {
    for (size_t i = 0; i < scenario.events.size(); ++i) events_.push_back(i);
    for (const Scenario::Due& due : scenario.events)
      expiry_.push_back(shown() + static_cast<uint64_t>(due.in));
  }

  Story two_passes() {
    pass();
    pass();
    return story_;
  }

 private:
  uint64_t read() {
    if (++readings_ == step_.at) clock_ += step_.by;
    return shown();
  }

  uint64_t shown() const {
    const auto seconds = static_cast<time_t>(clock_ / 1000);
    return static_cast<uint64_t>(seconds) * 1000 + static_cast<uint64_t>(clock_ % 1000);
  }

  uint64_t share(uint64_t done) const {
    const uint64_t all = scenario_.loops.size() + events_.size();
    return done < all ? left_ / (all - done) : left_;
  }

  void pass() {
    const uint64_t start = read();
    left_ = scenario_.timeout;
    if (!scenario_.loops.empty()) walk();
    const uint64_t spent = read() - start;
    if (spent >= scenario_.timeout) return;
    story_.push_back(told("sleep", 0, scenario_.timeout - spent));
    clock_ += static_cast<int64_t>(scenario_.timeout - spent);
  }

  void walk() {
    uint64_t done = 0;
    for (size_t i = 0; i < scenario_.loops.size(); ++i, ++done) {
      story_.push_back(told("loop", i, share(done)));
      const uint64_t before = read();
      clock_ += scenario_.loops[i];
      left_ -= std::min(read() - before, left_);
    }
    const std::list<size_t> waiting = events_;
    for (const size_t i : waiting) {
      const uint64_t before = read();
      if (read() > expiry_[i]) {
        story_.push_back(told("event", i, share(done)));
        clock_ += scenario_.events[i].takes;
        events_.remove(i);
      }
      left_ -= read() - before;
      ++done;
    }
  }

  const Scenario& scenario_;
  int64_t clock_;
  Step step_;
  int readings_ = 0;
  uint64_t left_ = 0;
  std::vector<uint64_t> expiry_;
  std::list<size_t> events_;
  Story story_;
};

// ---- the loop itself ----

class Work final : public util::EventLoop {
 public:
  Work(FrozenClock& clock, Story& story, size_t which, int64_t takes)
      : clock_(clock), story_(story), which_(which), takes_(takes) {}

  void runLoop(utime_t slice) override {
    story_.push_back(told("loop", which_, slice));
    clock_.advance(takes_);
  }

 private:
  FrozenClock& clock_;
  Story& story_;
  size_t which_;
  int64_t takes_;
};

class Happening : public util::Event {
 public:
  Happening(FrozenClock& clock, Story& story, size_t which, int64_t takes)
      : clock_(&clock), story_(&story), which_(which), takes_(takes) {}

  void run(utime_t slice) override {
    story_->push_back(told("event", which_, slice));
    clock_->advance(takes_);
  }

 private:
  FrozenClock* clock_;
  Story* story_;
  size_t which_;
  int64_t takes_;
};

Story two_passes(const Scenario& scenario, int64_t start, Step step, int& readings) {
  FrozenClock clock(start);
  Story story;
  util::SuperLoop loop;
  std::list<Work> works;
  for (size_t i = 0; i < scenario.loops.size(); ++i)
    loop.addEvent(&works.emplace_back(clock, story, i, scenario.loops[i]));
  for (size_t i = 0; i < scenario.events.size(); ++i) {
    const Scenario::Due& due = scenario.events[i];
    loop.addEvent(new Happening(clock, story, i, due.takes),
                  util::Timer(static_cast<utime_t>(due.in)));
  }
  readings = 0;
  clock.before_reading = [&] {
    if (++readings == step.at) clock.advance(step.by);
  };
  for (int pass = 0; pass < 2; ++pass) {
    loop.runLoop(scenario.timeout);
    for (const int64_t asked : clock.sleeps)
      story.push_back(told("sleep", 0, static_cast<utime_t>(asked / 1000000)));
    clock.sleeps.clear();
  }
  clock.before_reading = nullptr;
  return story;
}

constexpr int64_t kHour = 3600000;
constexpr int64_t kYear = 8766 * kHour;

// The instants around which clocks go wrong, and one at which they do not.
constexpr int64_t kStarts[] = {
    11 * kYear, 1172757909123, 2147483647990, 4294967295990, 253402300799990,
};

constexpr int64_t kSteps[] = {1,   -1,   5,     -5,     99,    -99,    100,        -100,
                              101, -101, kHour, -kHour, kYear, -kYear, 10 * kYear, -10 * kYear};

// Loads and tells the text of a list that holds one date, or its failure.
std::string reload(const TempDir& dir, utime_t* to) {
  PropertyList list(dir.file("x"));
  try {
    list.load();
  } catch (const util::malformed_property_list& e) {
    return std::string(e.what()).substr(dir.file("x").size());
  }
  *to = list.dateForKey("date");
  return "loaded";
}

std::string list_text(const std::string& date) {
  return "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n<plist version=\"1.0\">\n"
         "    <dict>\n        <key>date</key>\n        <date>" +
         date + "</date>\n    </dict>\n</plist>\n";
}

}  // namespace

// ---- passes ----

// The clock is stepped at each reading in turn. Every slice, every event and every sleep is that of
// the rules, of this pass and of the next.
TEST(SteppedClock, LeavesALoopToItsRules) {
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    for (const int64_t start : kStarts) {
      SCOPED_TRACE(start);
      for (const int64_t by : kSteps) {
        int readings = 1;
        for (int at = 0; at <= readings; ++at) {  // 0: no step
          const Step step = {at, by};
          ASSERT_EQ(Model(scenario, start, step).two_passes(),
                    two_passes(scenario, start, step, readings))
              << "step by " << by << " at reading " << at;
        }
      }
    }
  }
}

// The model itself, once by hand.
TEST(SteppedClock, IsWhatTheModelSays) {
  EXPECT_EQ((Story{"loop 0: 20", "loop 1: 22", "event 0: 23", "event 2: 63", "sleep 0: 61",
                   "loop 0: 33", "loop 1: 45", "sleep 0: 70"}),
            Model(kScenarios[3], kStarts[1], {0, 0}).two_passes());
}

// ---- dates ----

TEST(Dates, BelongToTheZoneOfTheMoment) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["date"] = utime_t{1172757909000};
  {
    const TimeZone zone("CET-1");
    list.save();
  }
  EXPECT_EQ(list_text("2007-03-01T15:05:09Z"), dir.read("x"));
  const TimeZone zone("IST-5:30");
  utime_t loaded = 0;
  EXPECT_EQ("loaded", reload(dir, &loaded));
  EXPECT_EQ(1172741709000U, loaded);  // the same wall clock, four and a half hours earlier
}

TEST(Dates, AreReadFromAllCenturiesOfFourDigits) {
  constexpr utime_t kNone = 18446744073709550616U;  // where time_t does not reach
  const struct {
    const char* text;
    utime_t instant;
    bool narrow;  // has a time_t of 32 bits
  } rows[] = {
      {"1901-12-13T20:45:52Z", static_cast<utime_t>(-2147483648000), true },
      {"1901-12-13T20:45:51Z", static_cast<utime_t>(-2147483649000), false},
      {"1969-12-31T23:59:58Z", static_cast<utime_t>(-2000),          true },
      {"2038-01-19T03:14:07Z", 2147483647000,                        true },
      {"2038-01-19T03:14:08Z", 2147483648000,                        false},
      {"2106-02-07T06:28:15Z", 4294967295000,                        false},
      {"2106-02-07T06:28:16Z", 4294967296000,                        false},
      {"9999-12-31T23:59:59Z", 253402300799000,                      false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const TempDir dir;
    dir.write("x", list_text(row.text));
    utime_t loaded = 0;
    EXPECT_EQ("loaded", reload(dir, &loaded));
    EXPECT_EQ(kWideTime || row.narrow ? row.instant : kNone, loaded);
  }
}

TEST(Dates, OfFiveDigitsAreRefused) {
  const TempDir dir;
  dir.write("x", list_text("10000-01-01T00:00:00Z"));
  utime_t loaded = 0;
  EXPECT_EQ(": malformed date", reload(dir, &loaded));
}

TEST(Dates, AreWrittenAsTheCLibraryTellsThem) {
  const struct {
    utime_t instant;
    const char* wide;
    const char* narrow;  // where time_t has 32 bits
  } rows[] = {
      {2147483647999,   "2038-01-19T03:14:07Z",  "2038-01-19T03:14:07Z"},
      {2147483648000,   "2038-01-19T03:14:08Z",  "1901-12-13T20:45:52Z"},
      {4294967296000,   "2106-02-07T06:28:16Z",  "1970-01-01T00:00:00Z"},
      {253402300799000, "9999-12-31T23:59:59Z",  "1969-12-23T02:12:15Z"},
      {253402300800000, "10000-01-01T00:00:00Z", "1969-12-23T02:12:16Z"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wide);
    const TempDir dir;
    PropertyList list(dir.file("x"));
    list["date"] = row.instant;
    list.save();
    EXPECT_EQ(list_text(kWideTime ? row.wide : row.narrow), dir.read("x"));
  }
}

// ---- log entries ----

TEST(Stamps, GoOnAfterTheYear9999) {
  const struct {
    int64_t instant;
    const char* wide;
    const char* narrow;
  } rows[] = {
      {2147483648000,   "2038-01-19T03:14:08",  "1901-12-13T20:45:52"},
      {4294967296000,   "2106-02-07T06:28:16",  "1970-01-01T00:00:00"},
      {253402300800000, "10000-01-01T00:00:00", "1969-12-23T02:12:16"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wide);
    const TempDir dir;
    const FrozenClock clock(row.instant);
    const auto publish = [](util::publisher& to, const char* format, ...) {
      va_list args;
      va_start(args, format);
      to.publish(util::INFO, "here", format, args);
      va_end(args);
    };
    {
      util::rolling_file_publisher log(dir.file("x").c_str(), 0, 0);
      publish(log, "text");
    }
    EXPECT_EQ(std::string(kWideTime ? row.wide : row.narrow) + " here\nINFO: text\n",
              dir.read("x"));
  }
}
