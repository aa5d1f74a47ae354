// SPDX-License-Identifier: MIT
#pragma once

#include "configuration.h"
#include "history.h"
#include "options.h"
#include "samplers.h"
#include "warnings.h"

#include <time.h>
#include <util/EventLoop.h>
#include <util/PropertyList.h>

#include <functional>
#include <map>
#include <string>

namespace appliance {

// Keeps the state: a sub-loop that each cycle puts together what there is to know and saves it.
class Keeper : public util::EventLoop {
 public:
  // Takes up history and warnings from the state's file, if there is one. What is given stays the
  // caller's and outlives the keeper.
  Keeper(const Options& options, const Configuration& configuration, const Machine& machine);

  void runLoop(util::utime_t timeslice) override;
  const char* name() override { return "keeper"; }

 private:
  void restore();
  void take_acknowledgements();
  void update_warnings(time_t now);
  void add_to_history(time_t now);
  void save(time_t now);
  void attempt(const char* what, const std::function<void()>& work);

  const Options& options_;
  const Configuration& configuration_;
  const Machine& machine_;
  util::PropertyList state_;
  History history_;
  Warnings warnings_;
  std::map<std::string, std::string> failures_;  // what fails at present, and how
};

}  // namespace appliance
