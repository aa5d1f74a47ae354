// SPDX-License-Identifier: MIT
#pragma once

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
  struct Warning {
    std::string id;  // never used again, whatever becomes of the clock and of the files
    std::string text;
    std::string since;
    bool acknowledged;
  };
  struct Changes {
    std::vector<std::string> come;
    std::vector<std::string> gone;
  };

  // `causes` are all that there are now.
  Changes update(const std::vector<std::string>& causes, time_t now);

  // Returns the text of the warning; throws std::invalid_argument where there is none.
  std::string acknowledge(const std::string& id);

  const std::vector<Warning>& all() const { return warnings_; }

  // As in the state.
  util::value_array value() const;
  void restore(const util::value_array& value);

 private:
  std::vector<Warning> warnings_;
};

}  // namespace appliance
