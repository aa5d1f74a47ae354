// SPDX-License-Identifier: MIT
#pragma once

#include "util/system_exception.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace service {

// Throws std::system_error with the present errno; `what` says what failed: "cannot open /run/x".
[[noreturn]] inline void throw_errno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Owns a file descriptor. Closing leaves errno as it was.
class Descriptor {
 public:
  Descriptor() = default;  // of nothing
  // What a system call returned; throws util::system_exception if that is an error.
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw util::system_exception();
  }
  // The same; throws std::system_error, whose text begins with `what`.
  Descriptor(int number, const std::string& what) : number_(number) {
    if (number < 0) throw_errno(what);
  }
  Descriptor(Descriptor&& from) noexcept : number_(std::exchange(from.number_, -1)) {}
  Descriptor& operator=(Descriptor&& from) noexcept {
    std::swap(number_, from.number_);
    return *this;
  }
  ~Descriptor() {
    const int error = errno;
    if (number_ >= 0) close(number_);
    errno = error;
  }

  int number() const { return number_; }

 private:
  int number_ = -1;
};

}  // namespace service
