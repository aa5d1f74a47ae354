// SPDX-License-Identifier: MIT
#pragma once

#include <util/EventLoop.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nasd {

// A sub-loop that takes one sample of the machine a cycle and logs it.
class Sampler : public util::EventLoop {
 public:
  // Logs a sample that cannot be taken as WARNING.
  void runLoop(util::utime_t timeslice) override;

  // Logs what was seen since the last time.
  virtual void summarize() = 0;

 private:
  virtual void sample() = 0;  // throws std::exception
};

class LoadSampler : public Sampler {
 public:
  const char* name() override { return "load"; }
  void summarize() override;

 private:
  void sample() override;

  std::optional<double> highest_;
};

class MemorySampler : public Sampler {
 public:
  const char* name() override { return "memory"; }
  void summarize() override;

 private:
  void sample() override;

  std::optional<uint64_t> least_available_;  // KiB
};

// Bytes of all network interfaces but the loopback.
struct Traffic {
  uint64_t received = 0;
  uint64_t sent = 0;
};

class TrafficSampler : public Sampler {
 public:
  const char* name() override { return "traffic"; }
  void summarize() override;

 private:
  void sample() override;

  std::optional<Traffic> last_;
  std::optional<Traffic> since_summary_;
};

class SpaceSampler : public Sampler {
 public:
  explicit SpaceSampler(std::string path);

  const char* name() override { return "space"; }
  void summarize() override;

 private:
  void sample() override;

  std::string path_;
  std::optional<uint64_t> least_free_;  // MiB
};

}  // namespace nasd
