// SPDX-License-Identifier: MIT
#include "service/internal/concat.h"

namespace service {

std::string concat(std::initializer_list<std::string_view> pieces) {
  std::string all;
  for (const std::string_view piece : pieces) all += piece;
  return all;
}

std::string decimal(int number) { return std::to_string(number); }

std::string decimal(size_t number) { return std::to_string(number); }

}  // namespace service
