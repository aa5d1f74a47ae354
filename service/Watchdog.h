// SPDX-License-Identifier: MIT
#pragma once

#include "util/EventLoop.h"
#include "util/export.h"
#include "util/logger.h"
#include "util/types.h"

#include <cstdint>

namespace service {

// Tells the service manager that the daemon is alive, as long as the passes of its loop complete:
//
//   service::Watchdog watchdog;
//   loop.addEvent(&watchdog);
//   service::notify("READY=1");
//   loop.run(1000);
//
// With WatchdogSec=10 in the unit, a daemon that hangs for ten seconds is killed and restarted. The
// cycle of the loop must be shorter than half that time.
class UTIL_EXPORT Watchdog final : public util::EventLoop {
 public:
  // Does nothing if the service manager did not ask this process (WATCHDOG_USEC, WATCHDOG_PID). If
  // a report fails, this is logged as WARNING, and the next pass tries again. The logger is not
  // owned.
  explicit Watchdog(util::logger* log = util::logger::rootLogger());

  // The milliseconds after which the service manager takes the daemon for hung; 0 if it did not
  // ask.
  util::utime_t patience() const { return patience_; }

  void runLoop(util::utime_t timeslice) override;
  const char* name() override;  // "service::Watchdog"

 private:
  util::logger* log_;
  util::utime_t patience_;
  int64_t next_ = 0;
};

}  // namespace service
