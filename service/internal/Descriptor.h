// SPDX-License-Identifier: MIT
#pragma once

#include "util/system_exception.h"

#include <unistd.h>

#include <utility>

namespace service {

// Owns a file descriptor.
class Descriptor {
 public:
  // What a system call returned; throws util::system_exception if that is an error.
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw util::system_exception();
  }
  Descriptor(Descriptor&& from) noexcept : number_(std::exchange(from.number_, -1)) {}
  Descriptor& operator=(Descriptor&& from) noexcept {
    std::swap(number_, from.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace service
