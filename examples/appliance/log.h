// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include <util/logger.h>

#include <functional>
#include <string>

namespace appliance {

static util::category SAMPLE("SAMPLE");
static util::category SUMMARY("SUMMARY");

// Where everything is logged: a set of rolling files.
util::logger* log();

// Below log(): what it is told goes to the system log as well.
util::logger* alerts();

// Makes them write to the files that the options name. Throws std::system_error where that cannot
// be.
void open_log(const Options& options);

// Lets entries of the category pass or not. INFO, WARNING and SUMMARY always do.
void enable_log(const util::category& category, bool on);

// Something that is tried again and again. That it fails is logged once, and again when it fails
// for another reason; so is that it succeeds again.
class Attempt {
 public:
  explicit Attempt(std::string failing) : failing_(std::move(failing)) {}

  void operator()(const std::function<void()>& work);

 private:
  const std::string failing_;  // what its failure means: "no sample of load"
  std::string reason_;         // of the failure, if it failed the last time
};

}  // namespace appliance
