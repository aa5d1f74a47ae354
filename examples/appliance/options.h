// SPDX-License-Identifier: MIT
#pragma once

#include <util/Timer.h>

#include <stdexcept>
#include <string>

namespace nasd {

// What the command line says; all times in milliseconds.
struct Options {
  bool help = false;
  bool verbose = false;
  unsigned long cycles = 0;  // 0: until a signal
  util::utime_t cycle = 1000;
  util::utime_t summary = 5000;
  std::string disk = "/";
  std::string log = "nasd.log";
};

// The text says what is wrong with the command line.
class bad_option : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Options parse_options(int argc, char** argv);  // throws bad_option

extern const char kUsage[];

}  // namespace nasd
