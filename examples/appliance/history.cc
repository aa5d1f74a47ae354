// SPDX-License-Identifier: MIT
#include "history.h"

#include "texts.h"

#include <cmath>
#include <fstream>
#include <string>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

// What differs from one start of the machine to the next. Never empty, which could not be loaded.
std::string boot() {
  std::string id = "unknown";
  std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
  return id;
}

}  // namespace

void History::add(const Point& point) {
  for (Series* series : {&cycles_, &hour_, &day_}) series->add(point);
}

value_struct History::value(time_t now, double uptime) const {
  value_struct value = cycles_.value(now, uptime);
  value["boot"] = boot();
  value["hour"] = hour_.value(now, uptime);
  value["day"] = day_.value(now, uptime);
  return value;
}

void History::restore(const value_struct& value, time_t now, double uptime) {
  const std::string& written_in = value.at("boot");
  const bool this_start = written_in == boot();
  cycles_.restore(value, this_start, now, uptime);
  hour_.restore(value.at("hour"), this_start, now, uptime);
  day_.restore(value.at("day"), this_start, now, uptime);
}

void History::Series::add(const Point& point) {
  sum.load += point.load;
  sum.received += point.received;
  sum.sent += point.sent;
  ++summed;
  if (!points.empty() && point.uptime < points.back().uptime + interval) return;
  const double count = summed;
  points.push_back({point.uptime, sum.load / count, sum.received / count, sum.sent / count});
  sum = {};
  summed = 0;
  if (points.size() > most) points.pop_front();
}

value_struct History::Series::value(time_t now, double uptime) const {
  value_array time, since_start, load, received, sent;
  for (const Point& point : points) {
    time.push_back(utc_text(now - std::lround(uptime - point.uptime)));
    since_start.push_back(static_cast<int>(std::floor(point.uptime)));
    load.push_back(point.load);
    received.push_back(point.received);
    sent.push_back(point.sent);
  }
  return {
      {"time",     time       },
      {"uptime",   since_start},
      {"load",     load       },
      {"received", received   },
      {"sent",     sent       }
  };
}

void History::Series::restore(const value_struct& value, bool this_start, time_t now,
                              double uptime) {
  const value_array& time = value.at("time");
  const value_array& since_start = value.at("uptime");
  const value_array& load = value.at("load");
  const value_array& received = value.at("received");
  const value_array& sent = value.at("sent");
  points.clear();
  for (size_t i = 0; i < time.size(); ++i) {
    const int& seconds = since_start.at(i);
    const auto by_clock = static_cast<double>(utc_time(time.at(i)) - now) + uptime;
    const double at = this_start ? seconds : by_clock;
    if (at > (this_start ? uptime : 0)) continue;
    points.push_back({at, load.at(i), received.at(i), sent.at(i)});
  }
}

double uptime() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace appliance
