// SPDX-License-Identifier: MIT
#pragma once

#include "util/Value.h"

#include <iosfwd>

namespace util {

// Prints as Value::print() does, without a value around the entries.
void print_struct(std::ostream& os, const value_struct& entries);

}  // namespace util
