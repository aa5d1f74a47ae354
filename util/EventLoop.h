// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

namespace util {

// Work that is done in rounds, one a pass of the SuperLoop it was added to.
//
// Kept: its destructor is not virtual, loops are never destroyed through this class.
class UTIL_EXPORT EventLoop {
 public:
  // Does one round of work within about `timeslice` milliseconds. Handles its own errors: an
  // exception that leaves it ends the process.
  virtual void runLoop(utime_t timeslice) = 0;

  // For diagnostics; asked for once a pass, stays valid until the round is done. "<<unknown>>"
  // unless overridden.
  virtual const char* name();
};

}  // namespace util
