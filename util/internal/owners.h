// SPDX-License-Identifier: MIT
// Owners for what the C library hands out.
#pragma once

#include "util/system_exception.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace util {

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Owns a file descriptor. Its destruction leaves errno as it was.
class Descriptor {
 public:
  Descriptor() = default;  // of nothing
  // What a system call returned; throws system_exception if that is an error.
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw system_exception();
  }
  // The same; throws std::system_error, whose text begins with `what`.
  Descriptor(int number, const std::string& what) : number_(number) {
    if (number < 0) throw std::system_error({errno, std::generic_category()}, what);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& from) noexcept : number_(std::exchange(from.number_, -1)) {}
  Descriptor& operator=(Descriptor&& from) noexcept {
    std::swap(number_, from.number_);
    return *this;
  }
  ~Descriptor() {
    const int error = errno;
    if (number_ >= 0) ::close(number_);
    errno = error;
  }

  int number() const { return number_; }

  // Throws system_exception, which may report that an earlier write failed.
  void close() {
    if (::close(std::exchange(number_, -1)) < 0) throw system_exception();
  }

 private:
  int number_ = -1;
};

}  // namespace util
