// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

#include <string>

namespace util {

// `s` for display: unchanged if it is one plain word, otherwise in double quotes with a backslash
// before each backslash and double quote. Blanks and line breaks are not escaped.
UTIL_EXPORT std::string print_str(const std::string& s);

}  // namespace util
