// SPDX-License-Identifier: MIT
#include "history.h"

#include <algorithm>

namespace appliance {

using util::value_array;
using util::value_struct;

void History::add(const Point& point) {
  points_.push_back(point);
  if (points_.size() > kPoints) points_.pop_front();
}

value_struct History::value() const {
  value_array time, load, received, sent;
  for (const Point& point : points_) {
    time.push_back(point.time);
    load.push_back(point.load);
    received.push_back(point.received);
    sent.push_back(point.sent);
  }
  return {
      {"time",     time    },
      {"load",     load    },
      {"received", received},
      {"sent",     sent    }
  };
}

void History::restore(const value_struct& value) {
  const value_array& time = value.at("time");
  const value_array& load = value.at("load");
  const value_array& received = value.at("received");
  const value_array& sent = value.at("sent");
  points_.clear();
  for (size_t i = 0; i < time.size(); ++i) {
    add({time.at(i), load.at(i), received.at(i), sent.at(i)});
  }
}

}  // namespace appliance
