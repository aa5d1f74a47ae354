// SPDX-License-Identifier: MIT
#include "util/print_str.h"

namespace util {

std::string print_str(const std::string& s) {
  // Kept: a backslash alone calls for no quotes, and without them stays single.
  if (!s.empty() && s.find_first_of(" \t\n\r\"") == std::string::npos) return s;
  std::string quoted = "\"";
  for (const char c : s) {  // Kept: line breaks are written raw, never as "\n".
    if (c == '\\' || c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

}  // namespace util
