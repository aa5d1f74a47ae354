// SPDX-License-Identifier: MIT
// The daemon's log, searched backwards over all its files.
#pragma once

#include <stddef.h>
#include <util/Value.h>

#include <string>

namespace appliance {

// Which entries are wanted; an empty text wants all.
struct LogQuery {
  std::string category;
  std::string text;      // anywhere in the entry; the case of A to Z does not matter
  std::string since;     // "2026-05-01T14:03" or "2026-05-01T14:03:59", by the log's own clock
  std::string until;     // a minute is the whole of it
  std::string position;  // where to go on, as an answer said it
};

// Whether a query may have it as its bound, or as its position.
bool is_bound(const std::string& text);
bool is_position(const std::string& text);

// What a search may cost.
struct LogLimits {
  size_t entries = 100;
  size_t bytes = size_t{8} << 20;     // of uncompressed text that are searched,
  size_t window = size_t{1} << 20;    // of these at a time,
  size_t answer = size_t{256} << 10;  // and of the entries that are found
  util::utime_t time = 2000;          // milliseconds
};

// A struct of "entries" (array of structs: id, time, where, category, text; the newest first),
// "categories" (array: those that were met), "faults" (array: which files could not be searched,
// and why) and "position" (string: where to go on; left out where nothing is older).
//
// A position stays good when files are rotated or compressed, and so does an entry's id.
util::value_struct search_log(const std::string& log, const LogQuery& query,
                              const LogLimits& limits);

}  // namespace appliance
