// SPDX-License-Identifier: MIT
// Names of values inside a property list.
#pragma once

#include "util/Value.h"

#include <stddef.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

// Leads from the list to a value in it: "network/servers[2]/name". In a key the characters "/", "["
// and "\" have a "\" before them.
class KeyPath {
 public:
  // The text is no path.
  struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  // It does not fit the list.
  struct Mismatch : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  // Throws Malformed.
  explicit KeyPath(const std::string& text);

  // The value there. Dictionaries and arrays on the way that do not exist are made, and so is the
  // entry itself; the number behind the last one of an array appends. Throws Mismatch where
  // something on the way is neither a dictionary nor an array.
  util::Value& find_or_make(util::value_struct& list) const;

 private:
  struct Step {
    std::string key;
    bool is_number;
    size_t number;
  };

  std::vector<Step> steps_;
};

}  // namespace tools
