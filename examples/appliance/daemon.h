// SPDX-License-Identifier: MIT
#pragma once

#include "configuration.h"
#include "keeper.h"
#include "options.h"
#include "samplers.h"

#include <util/SuperLoop.h>

#include <csignal>

namespace appliance {

// Samples, keeps the state and summarizes until it is told to stop.
class Daemon {
 public:
  // Throws what reading the configuration throws.
  explicit Daemon(const Options& options);

  // Returns once `ending` is the number of a signal or the cycles are done, with a last summary
  // logged. Reads the configuration again where it finds `reloading` set, and clears it.
  void run(const volatile std::sig_atomic_t& ending, volatile std::sig_atomic_t& reloading);

  // Logs the summary of all samplers; repeats itself.
  void summarize();

 private:
  const Options options_;
  Configuration configuration_;
  Machine machine_;
  Keeper keeper_;
  util::SuperLoop loop_;
};

}  // namespace appliance
