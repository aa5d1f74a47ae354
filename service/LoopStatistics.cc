// SPDX-License-Identifier: MIT
#include "service/LoopStatistics.h"

#include <algorithm>
#include <chrono>

namespace service {

util::Value LoopStatistics::value() const {
  return util::value_struct{
      {"name",    loop_.name()              },
      {"runs",    static_cast<double>(runs_)},
      {"late",    static_cast<double>(late_)},
      {"last",    last_                     },
      {"longest", longest_                  },
      {"total",   total_                    },
  };
}

void LoopStatistics::runLoop(util::utime_t timeslice) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  loop_.runLoop(timeslice);
  last_ = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  longest_ = std::max(longest_, last_);
  total_ += last_;
  ++runs_;
  if (last_ > static_cast<double>(timeslice)) ++late_;
}

const char* LoopStatistics::name() { return loop_.name(); }

}  // namespace service
