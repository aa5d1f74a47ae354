// SPDX-License-Identifier: MIT
#include "util/Timer.h"

#include <sys/time.h>

#include <cerrno>
#include <ctime>

namespace util {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"
volatile utime_t Timer::now() {
  timeval read = {};
  gettimeofday(&read, nullptr);
  return static_cast<utime_t>(read.tv_sec) * 1000 + static_cast<utime_t>(read.tv_usec) / 1000;
}
#pragma GCC diagnostic pop

void Timer::sleep(utime_t ms) {
  const timespec request = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000 * 1000000)};
  timespec rest = {};
  int result = nanosleep(&request, &rest);
  while (result == -1 && errno == EINTR) result = nanosleep(&rest, &rest);
}

}  // namespace util
