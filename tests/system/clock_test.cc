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
#include <cstdio>
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
    const int64_t fraction = (clock_ % 1000 + 1000) % 1000;
    const auto seconds = static_cast<time_t>((clock_ - fraction) / 1000);
    return static_cast<uint64_t>(seconds) * 1000 + static_cast<uint64_t>(fraction);
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

// The instants around which clocks go wrong (the first one of 32 bits, the epoch, summer time in
// and out, the ends of 32 bits and of four digits), and one at which they do not.
constexpr int64_t kStarts[] = {
    -2147483647990, -10,           1206838799990,   1224982799990,
    2147483647990,  4294967295990, 253402300799990, 1172757909123,
};

constexpr char kSummerTime[] = "CET-1CEST,M3.5.0,M10.5.0/3";

constexpr int64_t kSteps[] = {1,   -1,   5,     -5,     99,    -99,    100,        -100,
                              101, -101, kHour, -kHour, kYear, -kYear, 10 * kYear, -10 * kYear};

// ---- the calendar, in unsigned arithmetic ----

// Days since 1970, modulo 2^64, of a day of the Gregorian calendar. Years begin in March, so that
// the leap day is their last.
uint64_t days(uint64_t year, uint64_t month, uint64_t day) {
  const uint64_t since_march = (month + 9) % 12;
  const uint64_t y = year - (since_march >= 10 ? 1 : 0);
  return 365 * y + y / 4 - y / 100 + y / 400 + (153 * since_march + 2) / 5 + day - 1 - 719468;
}

bool has_leap_day(uint64_t year) { return days(year, 3, 1) - days(year, 2, 28) == 2; }

uint64_t last_sunday(uint64_t year, uint64_t month) {  // of a month of 31 days
  const uint64_t last = days(year, month, 31);
  return last - (last + 4) % 7;  // 1970 began with a Thursday
}

// Milliseconds since the epoch, modulo 2^64.
utime_t at(uint64_t day, uint64_t second) { return (day * 86400 + second) * 1000; }

constexpr uint64_t kLastYear = kWideTime ? 9999 : 2037;

std::string date_text(uint64_t year, uint64_t month, uint64_t day, const char* time) {
  char text[64];
  snprintf(text, sizeof text, "%04u-%02u-%02uT%sZ", static_cast<unsigned>(year),
           static_cast<unsigned>(month), static_cast<unsigned>(day), time);
  return text;
}

// ---- lists of dates ----

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

// The dates of a list as its file has them.
std::vector<std::string> dates_in(const std::string& text) {
  const std::string open = "<date>";
  std::vector<std::string> dates;
  for (size_t at = text.find(open); at != std::string::npos; at = text.find(open, at)) {
    at += open.size();
    dates.push_back(text.substr(at, text.find('<', at) - at));
  }
  return dates;
}

std::vector<utime_t> dates_of(const std::string& file) {
  PropertyList list(file);
  list.load();
  const util::value_array& dates = list.vectorForKey("dates", false);
  return {dates.begin(), dates.end()};
}

// What becomes of instants that are saved in one zone and loaded in another one.
struct Journey {
  std::vector<std::string> written;
  std::vector<utime_t> loaded;
};

Journey travel(const std::vector<utime_t>& instants, const char* from, const char* to) {
  const TempDir dir;
  {
    const TimeZone zone(from);
    PropertyList list(dir.file("x"));
    list["dates"] = util::value_array(instants.begin(), instants.end());
    list.save();
  }
  const TimeZone zone(to);
  return {dates_in(dir.read("x")), dates_of(dir.file("x"))};
}

}  // namespace

// ---- passes ----

// The clock is stepped at each reading in turn. Every slice, every event and every sleep is that of
// the rules, of this pass and of the next.
TEST(SteppedClock, LeavesALoopToItsRules) {
  const TimeZone zone(kSummerTime);
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
            Model(kScenarios[3], 1172757909123, {0, 0}).two_passes());
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

// Three years day by day, and the days of all years at which calendars go wrong.
TEST(Dates, AreThoseOfTheCalendar) {
  std::vector<utime_t> instants;
  std::vector<std::string> texts;
  const auto add = [&](uint64_t year, uint64_t month, uint64_t day) {
    instants.push_back(at(days(year, month, day), 86399));
    texts.push_back(date_text(year, month, day, "23:59:59"));
  };
  for (uint64_t year = 1970; year <= kLastYear; ++year) {
    add(year, 1, 1);
    add(year, 2, 28);
    if (has_leap_day(year)) add(year, 2, 29);
    add(year, 3, 1);
    add(year, 12, 31);
  }
  for (const uint64_t year : {1970U, 2000U, 2037U}) {
    for (uint64_t month = 1; month <= 12; ++month) {
      for (uint64_t day = 1; day <= 28; ++day) add(year, month, day);
    }
  }
  const Journey journey = travel(instants, "UTC", "UTC");
  EXPECT_EQ(texts, journey.written);
  EXPECT_EQ(instants, journey.loaded);
}

// Only read: an instant before 1970 is a huge unsigned number, which has no date of four digits.
TEST(Dates, BeforeTheEpochAreThoseOfTheCalendar) {
  std::string array;
  std::vector<utime_t> instants;
  for (uint64_t year = 1902; year < 1970; ++year) {
    for (uint64_t month = 1; month <= 12; ++month) {
      instants.push_back(at(days(year, month, 1), 0));
      array += "<date>" + date_text(year, month, 1, "00:00:00") + "</date>";
    }
  }
  const TempDir dir;
  dir.write("x", "<plist><dict><key>dates</key><array>" + array + "</array></dict></plist>");
  EXPECT_EQ(instants, dates_of(dir.file("x")));
}

// Saved and loaded at each switch of all years. What is in the hour that comes twice may come back
// as its twin: the file does not tell them apart.
TEST(Dates, FollowTheSwitchesOfDaylightSaving) {
  const struct {
    uint64_t month;
    uint64_t second;  // of the day, in UTC; clocks switch at 3600
    const char* time;
    bool twice;
  } rows[] = {
      {3,  3599, "01:59:59", false},
      {3,  3600, "03:00:00", false},
      {3,  7199, "03:59:59", false},
      {10, 0,    "02:00:00", true },
      {10, 3599, "02:59:59", true },
      {10, 3600, "02:00:00", true },
      {10, 7199, "02:59:59", true },
      {10, 7200, "03:00:00", false},
  };
  std::vector<utime_t> instants;
  std::vector<std::string> texts;
  std::vector<bool> twice;
  for (uint64_t year = 1971; year <= kLastYear; ++year) {
    for (const auto& row : rows) {
      const uint64_t sunday = last_sunday(year, row.month);
      instants.push_back(at(sunday, row.second));
      const uint64_t day = sunday - days(year, row.month, 1) + 1;
      texts.push_back(date_text(year, row.month, day, row.time));
      twice.push_back(row.twice);
    }
  }
  const Journey journey = travel(instants, kSummerTime, kSummerTime);
  EXPECT_EQ(texts, journey.written);
  ASSERT_EQ(instants.size(), journey.loaded.size());
  for (size_t i = 0; i < instants.size(); ++i) {
    const utime_t away = journey.loaded[i] - instants[i];
    const bool is_twin = away == utime_t{kHour} || away == utime_t{0} - utime_t{kHour};
    EXPECT_TRUE(away == 0 || (twice[i] && is_twin)) << texts[i] << " is " << away << " away";
  }
}

// Saved in each zone and loaded in each: the wall clock stays, the instant moves.
TEST(Dates, MoveByTheDifferenceOfTheZones) {
  const struct {
    const char* zone;
    int winter;  // minutes east
    int summer;
  } zones[] = {
      {"UTC",                              0,    0   },
      {"CET-1CEST,M3.5.0,M10.5.0/3",       60,   120 },
      {"IST-5:30",                         330,  330 },
      {"EST5EDT,M3.2.0,M11.1.0",           -300, -240},
      {"LHST-10:30LHDT-11,M10.1.0,M4.1.0", 660,  630 }, // south of the equator
  };
  const auto ms = [](int minutes) { return static_cast<utime_t>(minutes) * 60000; };
  for (const auto& from : zones) {
    for (const auto& to : zones) {
      SCOPED_TRACE(std::string(from.zone) + ", " + to.zone);
      const utime_t winter = at(days(2037, 1, 15), 43200);
      const utime_t summer = at(days(2008, 7, 15), 43200);
      EXPECT_EQ((std::vector<utime_t>{winter + ms(from.winter) - ms(to.winter),
                                      summer + ms(from.summer) - ms(to.summer)}),
                travel({winter, summer}, from.zone, to.zone).loaded);
    }
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

class Stamps : public testing::Test {
 protected:
  // The time of an entry that is published now.
  std::string stamp() {
    publish("");
    log.flush();
    const std::string text = dir.read("x");
    const size_t end = text.rfind(" here\n");
    const size_t start = text.rfind('\n', end) + 1;
    return text.substr(start, end - start);
  }

 private:
  void publish(const char* format, ...) {
    va_list args;
    va_start(args, format);
    log.publish(util::INFO, "here", format, args);
    va_end(args);
  }

  const TempDir dir;
  util::rolling_file_publisher log{dir.file("x").c_str(), 0, 0};
};

TEST_F(Stamps, GoFrom1901BeyondTheYear9999) {
  const struct {
    int64_t instant;
    const char* wide;
    const char* narrow;  // where time_t has 32 bits
  } rows[] = {
      {-2147483648000,  "1901-12-13T20:45:52",  "1901-12-13T20:45:52"},
      {-1,              "1969-12-31T23:59:59",  "1969-12-31T23:59:59"},
      {2147483648000,   "2038-01-19T03:14:08",  "1901-12-13T20:45:52"},
      {4294967296000,   "2106-02-07T06:28:16",  "1970-01-01T00:00:00"},
      {253402300800000, "10000-01-01T00:00:00", "1969-12-23T02:12:16"},
  };
  for (const auto& row : rows) {
    const FrozenClock clock(row.instant);
    EXPECT_EQ(kWideTime ? row.wide : row.narrow, stamp());
  }
}

TEST_F(Stamps, FollowTheSwitchesOfDaylightSaving) {
  const TimeZone zone(kSummerTime);
  FrozenClock clock(int64_t{1206838799000});
  EXPECT_EQ("2008-03-30T01:59:59", stamp());
  clock.advance(1000);
  EXPECT_EQ("2008-03-30T03:00:00", stamp());
  clock.set(1224982799000);
  EXPECT_EQ("2008-10-26T02:59:59", stamp());
  clock.advance(1000);
  EXPECT_EQ("2008-10-26T02:00:00", stamp());
}

TEST_F(Stamps, FollowAClockThatIsSetBack) {
  FrozenClock clock("2007-03-01T14:05:09");
  EXPECT_EQ("2007-03-01T14:05:09", stamp());
  clock.advance(-kHour);
  EXPECT_EQ("2007-03-01T13:05:09", stamp());
}

TEST_F(Stamps, AreOfTheZoneOfTheMoment) {
  const FrozenClock clock("2007-03-01T14:05:09");
  EXPECT_EQ("2007-03-01T14:05:09", stamp());
  const TimeZone zone(kSummerTime);
  EXPECT_EQ("2007-03-01T15:05:09", stamp());
}
