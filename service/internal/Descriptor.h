// SPDX-License-Identifier: MIT
#pragma once

#include "util/internal/owners.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace service {

using util::Descriptor;

// Throws std::system_error with the present errno; `what` says what failed: "cannot open /run/x".
[[noreturn]] inline void throw_errno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace service
