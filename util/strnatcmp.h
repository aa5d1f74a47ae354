// SPDX-License-Identifier: MIT
// Natural order of texts: runs of digits compare by value ("file2" before "file10"), white space is
// ignored everywhere. The current locale decides what is white space and how letters fold.
//
// Digits: of two runs without a leading zero, the longer one is greater. If either starts with a
// zero, they compare digit by digit from the left, like decimals: "1.002" before "1.01", "01"
// before "1". Other bytes compare unsigned. Both orders are strict weak orders, fit for sorting.
//
// The result is -1, 0 or 1. Both texts end at a NUL; a null pointer aborts. Takes time linear in
// the length of the texts and allocates nothing.
#pragma once

#include "util/export.h"

using nat_char = char;

extern "C" {

UTIL_EXPORT int strnatcmp(const nat_char* a, const nat_char* b);

// Letters that differ only in case are equal.
UTIL_EXPORT int strnatcasecmp(const nat_char* a, const nat_char* b);

}  // extern "C"
