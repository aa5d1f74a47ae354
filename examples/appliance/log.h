// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include <util/logger.h>

namespace appliance {

static util::category SAMPLE("SAMPLE");
static util::category SUMMARY("SUMMARY");

// Where everything is logged: a set of rolling files.
util::logger* log();

// Below log(): what it is told goes to the system log as well.
util::logger* alerts();

// Makes them write to the files that the options name. Throws std::runtime_error where that cannot
// be.
void open_log(const Options& options);

// Has every entry on disk.
void close_log();

}  // namespace appliance
