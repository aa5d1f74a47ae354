// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <new>

namespace util {

// An action done once, some time after it was added to a SuperLoop. Made with plain `new`, of a
// type without an alignment of its own; the loop releases its memory after the run. An event that a
// loop still has, also one that is being run, must not be added again: it would be released twice.
// Nothing checks this. Its copy may be added.
//
// Kept: no destructor of a derived class is called then. An event frees in run() what it holds.
class UTIL_EXPORT Event {
 public:
  // Acts, within about `timeslice` milliseconds. Handles its own errors: an exception that leaves
  // it ends the process.
  virtual void run(utime_t timeslice) = 0;

  // Unsized, so that an event of any size may be deleted as an Event. Always inline, so that
  // compilers see that it belongs to the ordinary `new`, which is why there is none beside it.
  // NOLINTNEXTLINE(misc-new-delete-overloads,cert-dcl54-cpp)
  __attribute__((always_inline)) static void operator delete(void* p) { ::operator delete(p); }
};

}  // namespace util
