// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

namespace util {

// An instant of expiry, copied by value; also the library's clock and sleep function. All times are
// in milliseconds.
//
// Kept: the clock is the wall clock. Setting the system time makes timers expire early or late.
class UTIL_EXPORT Timer {
 public:
  // Expires `delay` from now.
  Timer(utime_t delay) : expires(now() + delay) {}

// Compilers warn that the qualifier has no effect. It is part of the function's type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wdeprecated-volatile"
#elif __GNUC__ >= 10
#pragma GCC diagnostic ignored "-Wvolatile"
#endif
  // The time since the epoch, truncated to the millisecond.
  static volatile utime_t now();
#pragma GCC diagnostic pop

  // Blocks the thread. Signals do not shorten the sleep; if the system refuses to sleep, it ends
  // early without an error.
  static void sleep(utime_t ms);

  // True after the instant of expiry, but not during that very millisecond, so an event that is
  // added again for the length of a pass runs in every other pass.
  bool expired() const { return expired(now()); }
  bool expired(utime_t instant) const { return expires < instant; }

  utime_t get_expire_time() const { return expires; }  // since the epoch

  // Expires `delay` from now instead.
  void reset(utime_t delay) { expires = now() + delay; }

 private:
  utime_t expires;
};

}  // namespace util
