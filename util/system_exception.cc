// SPDX-License-Identifier: MIT
#include "util/system_exception.h"

#include <errno.h>
#include <string.h>

namespace util {

system_exception::system_exception() : err(errno) {}

system_exception::system_exception(int error) : err(error) {}

system_exception::~system_exception() = default;

const char* system_exception::what() const noexcept { return strerror(err); }

}  // namespace util
