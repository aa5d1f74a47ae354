// SPDX-License-Identifier: MIT
// Names as people sort them, "file2" before "file10", for std::sort and as the order of maps:
//
//   std::sort(names.begin(), names.end(), service::NaturalLess());
#pragma once

#include "util/export.h"

#include <string>

namespace service {

// strnatcmp() and, where that finds no difference, the bytes: no two different names are equal, so
// a set loses none and a sorted list is the same each time.
struct UTIL_EXPORT NaturalLess {
  bool operator()(const std::string& a, const std::string& b) const;
};

// The same with strnatcasecmp(), which takes upper and lower case for equal at first.
struct UTIL_EXPORT NaturalCaseLess {
  bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace service
