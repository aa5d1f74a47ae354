// SPDX-License-Identifier: MIT
// Values anywhere inside a property list, by a path such as "network/servers[2]/name": keys of
// dictionaries, separated by "/", and behind a key the numbers of elements of arrays, which count
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

// A text is not a path; every function below throws it. Its text is "'<path>': <reason>".
class UTIL_EXPORT MalformedPath : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// A value cannot be stored where its path leads. Its text is "<path>: <reason>".
class UTIL_EXPORT PathMismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The value there, or null if there is none. It lasts as long as its entry.
UTIL_EXPORT const util::Value* find(const util::PropertyList& list, const std::string& path);
UTIL_EXPORT util::Value* find(util::PropertyList& list, const std::string& path);

// The value there, or the fallback if there is none or it is of another kind than the fallback. An
// integer is not a double.
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

// Stores the value there, in place of an old one. Missing dictionaries and arrays on the way are
// made, and the number behind the last element of an array appends one. Throws PathMismatch, and
// changes nothing, where something on the way is neither, and for a number further behind.
UTIL_EXPORT void set(util::PropertyList& list, const std::string& path, util::Value value);

// Removes the value there; the elements behind it in an array move up. False if there is none.
UTIL_EXPORT bool erase(util::PropertyList& list, const std::string& path);

}  // namespace service
