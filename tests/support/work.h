// SPDX-License-Identifier: MIT
// Small work for a publisher and for a loop.
#pragma once

#include "util/SuperLoop.h"
#include "util/logger.h"

#include <stdarg.h>

namespace support {

__attribute__((format(printf, 2, 3))) inline void publish(util::publisher& to, const char* format,
                                                          ...) {
  va_list args;
  va_start(args, format);
  to.publish(util::INFO, "here", format, args);
  va_end(args);
}

// Counts its runs.
class Happen : public util::Event {
 public:
  explicit Happen(int& times) : times_(&times) {}

  void run(util::utime_t) override { ++*times_; }

 private:
  int* times_;
};

}  // namespace support
