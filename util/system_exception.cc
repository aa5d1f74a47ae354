// SPDX-License-Identifier: MIT
#include "util/system_exception.h"

#include <cerrno>
#include <cstring>

namespace util {

system_exception::system_exception() : err(errno) {}

system_exception::system_exception(int error) : err(error) {}

const char* system_exception::what() const noexcept { return strerror(err); }

}  // namespace util
