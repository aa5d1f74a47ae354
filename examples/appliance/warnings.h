// SPDX-License-Identifier: MIT
#pragma once

#include "acknowledgements.h"

#include <time.h>
#include <util/Value.h>

#include <string>
#include <vector>

namespace appliance {

// What is wrong at present. A warning stands from the cycle in which its cause is first seen to the
// one in which it is gone, also over a restart; a cause that comes back is a new warning, which has
// not been acknowledged.
class Warnings {
 public:
  struct Changes {
    std::vector<std::string> come;
    std::vector<std::string> gone;
  };

  // `causes` are all that there are now.
  Changes update(const std::vector<std::string>& causes, time_t now);

  // Returns the texts of those that were not acknowledged before.
  std::vector<std::string> acknowledge(const Ids& ids);

  // As in the state.
  util::value_array value() const;
  void restore(const util::value_array& value);

 private:
  struct Warning {
    std::string id;
    std::string text;
    std::string since;
    bool acknowledged;
  };

  bool stands(const std::string& text) const;

  std::vector<Warning> warnings_;
  int count_ = 0;  // of the warnings that this process made
};

}  // namespace appliance
