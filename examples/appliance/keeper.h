// SPDX-License-Identifier: MIT
#pragma once

#include "configuration.h"
#include "history.h"
#include "log.h"
#include "options.h"
#include "samplers.h"
#include "warnings.h"

#include <time.h>
#include <util/EventLoop.h>
#include <util/PropertyList.h>

#include <string>

namespace appliance {

// Keeps the state: a sub-loop that each cycle puts together what there is to know. All of it goes
// to a file for the page; the warnings, when they change, to another one that lasts.
class Keeper : public util::EventLoop {
 public:
  // Takes up history and warnings from these files, if they are there. What is given stays the
  // caller's and outlives the keeper.
  Keeper(const Options& options, const Configuration& configuration, const Machine& machine);

  void runLoop(util::utime_t timeslice) override;
  const char* name() override { return "keeper"; }

  // Has the files hold what there is to know now.
  void save();

  // Returns the text of the warning; throws std::invalid_argument where there is none.
  std::string acknowledge(const std::string& id);

  const Warnings& warnings() const { return warnings_; }

 private:
  void restore_history();
  void restore_warnings();
  void update_warnings(time_t now);
  void add_to_history();
  void save_state(time_t now);
  void save_warnings();

  const Options& options_;
  const Configuration& configuration_;
  const Machine& machine_;
  util::PropertyList state_;
  util::PropertyList lasting_;
  History history_;
  Warnings warnings_;
  bool unsaved_ = false;  // whether they have changed since they were saved
  Attempt restoring_history_{"starting without a history"};
  Attempt restoring_warnings_{"starting without warnings"};
  Attempt saving_state_{"state not saved"};
  Attempt saving_warnings_{"warnings not saved"};
};

}  // namespace appliance
