// SPDX-License-Identifier: MIT
#include "util/datetime.h"

#include <ctime>

namespace util {

utime_t parse_time(const std::string& str, const char* format) {
  tm broken = {};
  broken.tm_isdst = -1;  // The C library decides, unless the format says.
  // Kept: days up to 31 are accepted in every month; mktime() carries over: 30 February is 2 March.
  const char* const end = strptime(str.c_str(), format, &broken);
  if (end != str.c_str() + str.size()) return 0;
  // Kept: a failure of mktime() is not detected; its -1 gives -1000 as an unsigned number.
  return static_cast<utime_t>(int64_t{mktime(&broken)}) * 1000;
}

std::string unparse_time(utime_t t, const char* format) {
  const auto seconds = static_cast<time_t>(t / 1000);  // Kept: wraps where time_t has 32 bits.
  tm broken = {};
  if (localtime_r(&seconds, &broken) == nullptr) return {};
  char text[256];
  return {text, strftime(text, sizeof(text), format, &broken)};
}

}  // namespace util
