// SPDX-License-Identifier: MIT
#pragma once

#include "util/internal/owners.h"

namespace service {

// A descriptor, or none: -1, as a failed system call returns it.
class OpenFile : public util::Descriptor {
 public:
  OpenFile() = default;
  explicit OpenFile(int number) : Descriptor(number < 0 ? Descriptor() : Descriptor(number)) {}

  explicit operator bool() const { return number() >= 0; }
};

}  // namespace service
