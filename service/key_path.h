// SPDX-License-Identifier: MIT
// Values anywhere inside a property list, by a path such as "network/servers[2]/name": keys of
// dictionaries, separated by "/", each followed by the indices of array elements, if any, counted
// from 0. A "/", "[" or "\" that belongs to a key has a "\" before it.
//
//   const int mtu = service::get(settings, "network/mtu", 1500);
//   service::set(settings, "network/servers[0]/name", "ntp.example.org");
#pragma once

#include "util/PropertyList.h"
#include "util/Value.h"
#include "util/export.h"
#include "util/types.h"

#include <stdexcept>
#include <string>

namespace service {

// A text is not a path; every function below throws this. what() is "'<path>': <reason>".
class UTIL_EXPORT MalformedPath : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// A value cannot be stored where its path leads. what() is "<path>: <reason>".
class UTIL_EXPORT PathMismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The value there, or null if there is none. The pointer is valid as long as the entry.
UTIL_EXPORT const util::Value* find(const util::PropertyList& list, const std::string& path);
UTIL_EXPORT util::Value* find(util::PropertyList& list, const std::string& path);

// The value there, or the fallback if there is none or it is of a different kind from the fallback.
// An integer is not a double.
UTIL_EXPORT int get(const util::PropertyList& list, const std::string& path, int fallback);
UTIL_EXPORT bool get(const util::PropertyList& list, const std::string& path, bool fallback);
UTIL_EXPORT double get(const util::PropertyList& list, const std::string& path, double fallback);
UTIL_EXPORT util::utime_t get(const util::PropertyList& list, const std::string& path,
                              util::utime_t fallback);
UTIL_EXPORT std::string get(const util::PropertyList& list, const std::string& path,
                            const char* fallback);
UTIL_EXPORT std::string get(const util::PropertyList& list, const std::string& path,
                            const std::string& fallback);
UTIL_EXPORT util::byte_string get(const util::PropertyList& list, const std::string& path,
                                  const util::byte_string& fallback);

// Stores the value there, replacing an old one. Missing dictionaries and arrays on the way are
// created, and the index after the last element of an array appends one. Throws PathMismatch, and
// changes nothing, if something on the way is neither, or if an index is further beyond the end.
UTIL_EXPORT void set(util::PropertyList& list, const std::string& path, util::Value value);

// Removes the value there; the elements after it in an array move up. False if there is none.
UTIL_EXPORT bool erase(util::PropertyList& list, const std::string& path);

}  // namespace service
