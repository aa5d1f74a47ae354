// SPDX-License-Identifier: MIT
#pragma once

#include <time.h>
#include <util/Value.h>

#include <deque>

namespace appliance {

// What the page's graphs show: the last cycles, and the means of the last hour and the last day.
//
// Points are kept by the time since the machine was started, which nobody sets. What the clock says
// is worked out when the history is asked for: once the clock has been set right, so are all
// points.
class History {
 public:
  struct Point {
    double uptime;  // seconds; negative before this start of the machine
    double load;
    double received;  // bytes a second, over all interfaces
    double sent;
  };

  void add(const Point& point);

  // As in the state, where the time is `now` and the machine has been running for `uptime`.
  util::value_struct value(time_t now, double uptime) const;

  // Points from before this start of the machine come by the clock; those that it puts behind the
  // start or in the future are left out: it was not right then, or is not now.
  void restore(const util::value_struct& value, time_t now, double uptime);

 private:
  // The means of so many seconds each, or all points.
  struct Series {
    void add(const Point& point);
    util::value_struct value(time_t now, double uptime) const;
    void restore(const util::value_struct& value, bool this_start, time_t now, double uptime);

    double interval;
    size_t most;
    std::deque<Point> points = {};
    Point sum = {};
    int summed = 0;
  };

  Series cycles_{0, 150};
  Series hour_{30, 120};
  Series day_{600, 144};
};

// Seconds since the machine was started, time asleep included.
double uptime();

}  // namespace appliance
