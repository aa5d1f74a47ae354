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

// Stores a text, but only where there is something to see in it: an empty one could not be loaded
// again.
void put(util::value_struct& to, const std::string& key, const std::string& text);

}  // namespace appliance
