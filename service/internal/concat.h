// SPDX-License-Identifier: MIT
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace service {

// The pieces, one behind the other. A chain of "+" does the same in several times the code.
std::string concat(std::initializer_list<std::string_view> pieces);

}  // namespace service
