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

// What differs from one start of the machine to the next.
std::string boot() {
  std::string id;
  std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
  return id;
}

}  // namespace

void History::add(const Point& point) {
  points_.push_back(point);
  if (points_.size() > kPoints) points_.pop_front();
}

value_struct History::value(time_t now, double uptime) const {
  value_array time, since_start, load, received, sent;
  for (const Point& point : points_) {
    time.push_back(utc_text(now - std::lround(uptime - point.uptime)));
    since_start.push_back(static_cast<int>(std::floor(point.uptime)));
    load.push_back(point.load);
    received.push_back(point.received);
    sent.push_back(point.sent);
  }
  return {
      {"boot",     boot()     },
      {"time",     time       },
      {"uptime",   since_start},
      {"load",     load       },
      {"received", received   },
      {"sent",     sent       }
  };
}

void History::restore(const value_struct& value, time_t now, double uptime) {
  const value_array& time = value.at("time");
  const value_array& since_start = value.at("uptime");
  const value_array& load = value.at("load");
  const value_array& received = value.at("received");
  const value_array& sent = value.at("sent");
  const std::string& written_in = value.at("boot");
  const bool this_start = written_in == boot();
  points_.clear();
  for (size_t i = 0; i < time.size(); ++i) {
    const int& seconds = since_start.at(i);
    const auto by_clock = static_cast<double>(utc_time(time.at(i)) - now) + uptime;
    const double at = this_start ? seconds : by_clock;
    if (at > (this_start ? uptime : 0)) continue;
    add({at, load.at(i), received.at(i), sent.at(i)});
  }
}

double uptime() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace appliance
