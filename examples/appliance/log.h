// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include <util/logger.h>

namespace nasd {

static util::category SAMPLE("SAMPLE");
static util::category SUMMARY("SUMMARY");

// Where everything is logged.
util::logger* log();

// Makes it write to the files that the options name. Throws std::runtime_error where that cannot
// be.
void open_log(const Options& options);

// Has every entry on disk.
void close_log();

}  // namespace nasd
