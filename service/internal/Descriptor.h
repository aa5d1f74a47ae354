// SPDX-License-Identifier: MIT
#pragma once

#include "util/internal/owners.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace service {

using util::Descriptor;

// Both throw std::system_error; `what` says what failed: "cannot open /run/x".
[[noreturn]] inline void throw_error(int error, const std::string& what) {
  throw std::system_error({error, std::generic_category()}, what);
}
[[noreturn]] inline void throw_errno(const std::string& what) { throw_error(errno, what); }

}  // namespace service
