// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace service {

// Owns a file descriptor, or none: -1, what a system call that failed has returned. Closing leaves
// errno as it is.
class OpenFile {
 public:
  explicit OpenFile(int number = -1) : number_(number) {}
  OpenFile(OpenFile&& from) noexcept : number_(std::exchange(from.number_, -1)) {}
  OpenFile& operator=(OpenFile&& from) noexcept {
    std::swap(number_, from.number_);
    return *this;
  }
  ~OpenFile() {
    const int error = errno;
    if (number_ >= 0) close(number_);
    errno = error;
  }

  explicit operator bool() const { return number_ >= 0; }
  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace service
