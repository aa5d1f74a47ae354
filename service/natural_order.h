// SPDX-License-Identifier: MIT
// Names as people sort them, "file2" before "file10", for std::sort and as the order of maps:
//
//   std::sort(names.begin(), names.end(), service::NaturalLess());
#pragma once

#include "util/export.h"

#include <string>

namespace service {

// Compares by strnatcmp() and, if that finds no difference, by bytes. No two different names are
// equal, so a set loses none, and a sorted list is the same each time.
struct UTIL_EXPORT NaturalLess {
  bool operator()(const std::string& a, const std::string& b) const;
};

// The same with strnatcasecmp(): case decides only between names that are otherwise equal.
struct UTIL_EXPORT NaturalCaseLess {
  bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace service
