// SPDX-License-Identifier: MIT
// Time as a test sets it.
#pragma once

#include <time.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace support {

// Stops the clock that gettimeofday() and time() read in this thread, until destruction.
// nanosleep() returns at once, moves the clock on by what was asked for and records it.
class FrozenClock {
 public:
  // `local` is local time in the zone of the moment, "2007-03-01T14:05:09".
  explicit FrozenClock(const char* local);
  explicit FrozenClock(int64_t milliseconds = 1000000000000);
  ~FrozenClock();
  FrozenClock(const FrozenClock&) = delete;
  FrozenClock& operator=(const FrozenClock&) = delete;

  int64_t now() const { return microseconds / 1000; }
  int64_t second() const;  // the whole seconds, rounded down
  void set(int64_t milliseconds) { microseconds = milliseconds * 1000; }
  void advance(int64_t milliseconds) { microseconds += milliseconds * 1000; }

  int64_t microseconds;                  // since the epoch
  std::vector<int64_t> sleeps;           // nanoseconds asked for, in order
  int64_t readings = 0;                  // uses of gettimeofday()
  std::function<void()> before_reading;  // may move the clock
  // Nanoseconds left over by sleeps yet to come, first one first: such a sleep is interrupted.
  std::vector<int64_t> interruptions;

 private:
  FrozenClock* outer_;
};

// The innermost frozen clock of this thread, or null.
FrozenClock* frozen_clock();

// Sets TZ until destruction.
class TimeZone {
 public:
  explicit TimeZone(const char* zone);
  ~TimeZone();
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::string old_;
  bool was_set_;
};

}  // namespace support
