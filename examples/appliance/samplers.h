// SPDX-License-Identifier: MIT
#pragma once

#include "log.h"

#include <util/EventLoop.h>
#include <util/ZEB_GPIO.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace appliance {

struct Traffic {
  uint64_t received = 0;  // bytes, or bytes a second
  uint64_t sent = 0;
};

// What the last samples say of this machine; 0 before the first.
struct Machine {
  std::vector<double> load = {0, 0, 0};  // over 1, 5 and 15 minutes
  uint64_t memory_total = 0;             // KiB
  uint64_t memory_available = 0;
  // A second, on the average since the sample before.
  Traffic rate;  // over all interfaces but the loopback
  std::map<std::string, Traffic> rates;
  util::ZEB_GPIO board;  // all lines are low on a machine that is no such board
};

// A sub-loop that takes one sample of the machine a cycle and logs it.
class Sampler : public util::EventLoop {
 public:
  explicit Sampler(const std::string& of) : attempt_("no sample of " + of), name_(of) {}
  virtual ~Sampler() = default;

  void runLoop(util::utime_t timeslice) override;
  const char* name() override { return name_.c_str(); }

  // Logs what was seen since the last time.
  virtual void summarize() = 0;

 private:
  virtual void sample() = 0;  // throws std::exception

  Attempt attempt_;
  const std::string name_;
};

// All that there are; they keep `machine` up to date and watch the free space of `disk`.
std::vector<std::unique_ptr<Sampler>> make_samplers(Machine& machine, const std::string& disk);

}  // namespace appliance
