// SPDX-License-Identifier: MIT
#pragma once

#include <time.h>
#include <util/Value.h>

#include <deque>

namespace appliance {

// What the page's graphs show: one point a cycle, the last kPoints of them.
class History {
 public:
  static constexpr size_t kPoints = 150;

  struct Point {
    std::string time;  // UTC
    double load;
    double received;  // bytes a second, over all interfaces
    double sent;
  };

  void add(const Point& point);

  // As in the state.
  util::value_struct value() const;
  void restore(const util::value_struct& value);

 private:
  std::deque<Point> points_;
};

}  // namespace appliance
