// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <new>

namespace util {

// An action that runs once, some time after it is added to a SuperLoop. Create it with plain `new`,
// and do not over-align its type: the loop frees its memory after the run. Never add an event that
// a loop still holds, not even while it runs: it would be freed twice, and nothing checks this. A
// copy of it may be added.
//
// Kept: destructors of derived classes are not called. An event releases in run() what it owns.
class UTIL_EXPORT Event {
 public:
  // Performs the action, within about `timeslice` milliseconds. Must handle its own errors: an
  // exception that escapes ends the process.
  virtual void run(utime_t timeslice) = 0;

  // Unsized, so that an event of any size can be deleted as an Event. Always inline, so that
  // compilers see that it matches the ordinary `new`, which is why no operator new is declared
  // here.
  // NOLINTNEXTLINE(misc-new-delete-overloads,cert-dcl54-cpp)
  __attribute__((always_inline)) static void operator delete(void* p) { ::operator delete(p); }
};

}  // namespace util
