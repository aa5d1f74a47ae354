// SPDX-License-Identifier: MIT
// The calendar in UTC, written once more, slow and plain: what the targets compare the library
// with.
#pragma once

#include <cstdint>
#include <string>

namespace fuzz {

struct Moment {
  int64_t year;
  int64_t month;  // 1 to 12
  int64_t day;    // 1 to 31
  int64_t hour;
  int64_t minute;
  int64_t second;
};

// Not before the year 1570.
Moment moment_of(int64_t seconds);

// Days, hours and so on may be too large and carry over.
int64_t seconds_of(const Moment& moment);

// "2008-05-01T14:03:59". Where time_t has 32 bits the seconds wrap.
std::string date_text(uint64_t milliseconds);

// Reads "%Y-%m-%dT%TZ" from the start of `text`, leniently as the C library does: white space
// before the numbers, one digit instead of two. Returns how many characters were read, 0 for a
// mismatch. The seconds are -1 for a date that time_t cannot hold.
size_t read_date(const std::string& text, int64_t& seconds);

}  // namespace fuzz
