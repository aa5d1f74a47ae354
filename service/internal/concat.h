// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace service {

// The pieces, one behind the other. A chain of "+" does the same in several times the code.
std::string concat(std::initializer_list<std::string_view> pieces);

// The same as std::to_string(), which is compiled in line at each place.
std::string decimal(int number);
std::string decimal(size_t number);

}  // namespace service
