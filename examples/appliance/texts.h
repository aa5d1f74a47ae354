// SPDX-License-Identifier: MIT
// How the state's texts are made.
#pragma once

#include <time.h>
#include <util/Value.h>

#include <string>

namespace appliance {

// Times in the state are text in UTC, "2026-05-01T14:03:59Z": a property list's dates are local
// time, which is ambiguous once a year, its numbers too short, and script text has no dates at all.
std::string utc_text(time_t instant);
time_t utc_time(const std::string& text);  // 0 for anything else

// Somebody's text as it may be shown, logged and saved: on one line, in valid UTF-8, and without
// the blanks that a property list would not give back.
std::string clean(const std::string& text);

// Stores a text, cleaned, but only where there is something to see in it: an empty one could not be
// loaded again.
void put(util::value_struct& to, const std::string& key, const std::string& text);

}  // namespace appliance
