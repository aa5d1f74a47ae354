// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

#include <exception>

namespace util {

// A failed system call.
class UTIL_EXPORT system_exception : public std::exception {
 public:
  system_exception();  // takes the current errno
  system_exception(int error);
  ~system_exception() override = default;

  // The system's text for the error. Not copied: the next call that asks for a text may change it.
  const char* what() const noexcept override;

  int error_number() const { return err; }

 private:
  int err;
};

}  // namespace util
