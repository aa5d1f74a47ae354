// SPDX-License-Identifier: MIT
#pragma once

#include "log.h"

#include <util/EventLoop.h>
#include <util/ZEB_GPIO.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace appliance {

// A sub-loop that takes one sample of the machine a cycle, logs it and keeps the last one; before
// the first it is 0.
class Sampler : public util::EventLoop {
 public:
  explicit Sampler(const std::string& of) : attempt_("no sample of " + of), name_(of) {}

  void runLoop(util::utime_t timeslice) override;
  const char* name() override { return name_.c_str(); }

  // Logs what was seen since the last time.
  virtual void summarize() = 0;

 private:
  virtual void sample() = 0;  // throws std::exception

  Attempt attempt_;
  const std::string name_;
};

class LoadSampler : public Sampler {
 public:
  LoadSampler() : Sampler("load") {}

  void summarize() override;

  const std::vector<double>& load() const { return load_; }  // over 1, 5 and 15 minutes

 private:
  void sample() override;

  std::vector<double> load_ = {0, 0, 0};
  std::optional<double> highest_;
};

class MemorySampler : public Sampler {
 public:
  MemorySampler() : Sampler("memory") {}

  void summarize() override;

  uint64_t total() const { return total_; }  // KiB
  uint64_t available() const { return available_; }

 private:
  void sample() override;

  uint64_t total_ = 0;
  uint64_t available_ = 0;
  std::optional<uint64_t> least_available_;
};

// Bytes.
struct Traffic {
  uint64_t received = 0;
  uint64_t sent = 0;

  Traffic& operator+=(const Traffic& more);
};

class TrafficSampler : public Sampler {
 public:
  TrafficSampler() : Sampler("traffic") {}

  void summarize() override;

  // A second, on the average since the sample before: over all interfaces but the loopback, or
  // over one of them.
  Traffic rate() const { return rate_; }
  Traffic rate(const std::string& interface) const;

 private:
  using ByInterface = std::map<std::string, Traffic>;

  void sample() override;

  ByInterface counters_;
  double counted_at_ = 0;  // the uptime
  ByInterface rates_;
  Traffic rate_;
  std::optional<Traffic> since_summary_;
};

class SpaceSampler : public Sampler {
 public:
  explicit SpaceSampler(std::string path) : Sampler("space"), path_(std::move(path)) {}

  void summarize() override;

 private:
  void sample() override;

  std::string path_;
  std::optional<uint64_t> least_free_;  // MiB
};

// The board's status pins; all low on a machine that is no such board.
class BoardSampler : public Sampler {
 public:
  BoardSampler() : Sampler("board") {}

  void summarize() override {}

  const util::ZEB_GPIO& pins() const { return pins_; }

 private:
  void sample() override;

  util::ZEB_GPIO pins_;
};

// All that is sampled.
struct Machine {
  explicit Machine(const std::string& disk) : space(disk) {}

  std::vector<Sampler*> samplers() { return {&load, &memory, &traffic, &space, &board}; }

  LoadSampler load;
  MemorySampler memory;
  TrafficSampler traffic;
  SpaceSampler space;
  BoardSampler board;
};

}  // namespace appliance
