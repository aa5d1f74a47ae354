// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

namespace util {

// Work that is done in rounds, one in each pass of the SuperLoop it was added to.
//
// Kept: the destructor is not virtual; loops are never destroyed through this class.
class UTIL_EXPORT EventLoop {
 public:
  // Does one round of work within about `timeslice` milliseconds. Must handle its own errors: an
  // exception that escapes ends the process.
  virtual void runLoop(utime_t timeslice) = 0;

  // A name for diagnostics, "<<unknown>>" unless overridden. Requested once per pass; must stay
  // valid until the round is done.
  virtual const char* name();
};

}  // namespace util
