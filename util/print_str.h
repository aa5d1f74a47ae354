// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

#include <string>

namespace util {

// `s` for display: as it is where it is one plain word, else in double quotes with a backslash
// before each backslash and double quote. Blanks and line breaks stay raw.
UTIL_EXPORT std::string print_str(const std::string& s);

}  // namespace util
