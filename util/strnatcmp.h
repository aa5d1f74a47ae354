// SPDX-License-Identifier: MIT
// Natural order of texts: runs of digits compare by value ("file2" before "file10"), white space is
// ignored wherever it stands. What is white space and how letters fold is up to the current locale.
//
// Digits: of two runs without a leading zero the longer one is greater. Where either starts with a
// zero they compare digit by digit from the left, like decimals: "1.002" before "1.01", "01" before
// "1". Other bytes compare unsigned. Both orders are strict weak orders, fit for sorting.
//
// The result is -1, 0 or 1. Both texts end at a NUL and must not be null: that aborts. Linear in
// the length of the texts, no allocation.
#pragma once

#include "util/export.h"

using nat_char = char;

extern "C" {

UTIL_EXPORT int strnatcmp(const nat_char* a, const nat_char* b);

// Letters that differ in case only are equal.
UTIL_EXPORT int strnatcasecmp(const nat_char* a, const nat_char* b);

}  // extern "C"
