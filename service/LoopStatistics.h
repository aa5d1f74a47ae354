// SPDX-License-Identifier: MIT
#pragma once

#include "util/EventLoop.h"
#include "util/Value.h"
#include "util/export.h"
#include "util/types.h"

#include <cstdint>

namespace service {

// Measures a sub-loop: added to a loop in its place, it runs and times it.
//
//   service::LoopStatistics measured(sampler);
//   loop.addEvent(&measured);
//   std::cout << measured.value();
//
// The times are milliseconds of the monotonic clock, with a fraction.
class UTIL_EXPORT LoopStatistics final : public util::EventLoop {
 public:
  explicit LoopStatistics(util::EventLoop& loop) : loop_(loop) {}  // not owned
  LoopStatistics(const LoopStatistics&) = delete;
  LoopStatistics& operator=(const LoopStatistics&) = delete;
  ~LoopStatistics() = default;

  uint64_t runs() const { return runs_; }
  uint64_t late() const { return late_; }  // rounds that took longer than the slice they were given
  double last() const { return last_; }
  double longest() const { return longest_; }
  double total() const { return total_; }

  // For logs and the page: ("late" = 0, "last" = 0.2, "longest" = 1.5, "name" = sampler,
  // "runs" = 60, "total" = 14.8). All numbers are of kind DOUBLE, in which counts stay exact.
  util::Value value() const;

  void runLoop(util::utime_t timeslice) override;
  const char* name() override;  // that of the sub-loop

 private:
  util::EventLoop& loop_;
  uint64_t runs_ = 0;
  uint64_t late_ = 0;
  double last_ = 0;
  double longest_ = 0;
  double total_ = 0;
};

}  // namespace service
