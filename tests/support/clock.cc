// SPDX-License-Identifier: MIT
#include "tests/support/clock.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace support {
namespace {

thread_local FrozenClock* innermost = nullptr;

int64_t local_microseconds(const char* local) {
  struct tm broken = {};
  broken.tm_isdst = -1;
  const char* const end = strptime(local, "%Y-%m-%dT%H:%M:%S", &broken);
  if (end == nullptr || *end != '\0') throw std::invalid_argument(local);
  return int64_t{mktime(&broken)} * 1000000;
}

}  // namespace

FrozenClock::FrozenClock(const char* local)
    : microseconds(local_microseconds(local)), outer_(std::exchange(innermost, this)) {}

FrozenClock::FrozenClock(int64_t milliseconds)
    : microseconds(milliseconds * 1000), outer_(std::exchange(innermost, this)) {}

FrozenClock::~FrozenClock() { innermost = outer_; }

int64_t FrozenClock::second() const {
  return microseconds / 1000000 - (microseconds % 1000000 < 0 ? 1 : 0);
}

FrozenClock* frozen_clock() { return innermost; }

TimeZone::TimeZone(const char* zone) : was_set_(getenv("TZ") != nullptr) {
  if (was_set_) old_ = getenv("TZ");
  setenv("TZ", zone, 1);
  tzset();
}

TimeZone::~TimeZone() {
  if (was_set_) {
    setenv("TZ", old_.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

}  // namespace support
