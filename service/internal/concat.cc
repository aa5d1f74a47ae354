// SPDX-License-Identifier: MIT
#include "service/internal/concat.h"

namespace service {

std::string concat(std::initializer_list<std::string_view> pieces) {
  std::string all;
  for (const std::string_view piece : pieces) all += piece;
  return all;
}

}  // namespace service
