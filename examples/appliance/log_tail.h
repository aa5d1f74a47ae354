// SPDX-License-Identifier: MIT
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace appliance {

struct LogEntry {
  std::string time;      // "2007-03-01T14:05:09", local time
  std::string where;     // signature of the function that logged
  std::string category;  // "EVENT LOOP|DEBUG"
  std::string text;      // of any number of lines
};

// The newest entries of a rolling log, newest first, `count` at most. Looks into the last bytes of
// the file and of the one rotated before it only. Empty where there is nothing to read.
std::vector<LogEntry> newest_entries(const std::string& log, size_t count);

}  // namespace appliance
