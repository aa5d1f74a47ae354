// SPDX-License-Identifier: MIT
#pragma once

#include <util/Timer.h>
#include <util/logger.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace appliance {

// What the command line says; all times in milliseconds.
struct Options {
  bool help = false;
  unsigned long cycles = 0;  // 0: until a signal
  util::utime_t cycle = 1000;
  util::utime_t summary = 60000;
  std::string disk = "/";
  std::string config = "nas_conf_db.xml";
  std::string log = "nasd.log";
  std::string state = "state.plist";
  std::string lasting = "lasting.plist";
  std::string control = "nasd.control";
  std::vector<const util::category*> enabled;
};

// The text says what is wrong with the command line.
class bad_option : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

const util::category* category(const std::string& name);  // throws bad_option

Options parse_options(int argc, char** argv);  // throws bad_option

extern const char kUsage[];

}  // namespace appliance
