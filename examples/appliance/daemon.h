// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"
#include "samplers.h"

#include <util/SuperLoop.h>

#include <csignal>

namespace nasd {

// Samples and summarizes until it is told to stop.
class Daemon {
 public:
  explicit Daemon(const Options& options);

  // Returns once `signal` is set or the cycles are done, with a last summary logged.
  void run(const volatile std::sig_atomic_t& signal);

  // Logs the summary of all samplers and has it on disk; repeats itself.
  void summarize();

 private:
  const Options options_;
  LoadSampler load_;
  MemorySampler memory_;
  TrafficSampler traffic_;
  SpaceSampler space_;
  Sampler* const samplers_[4];
  util::SuperLoop loop_;
};

}  // namespace nasd
