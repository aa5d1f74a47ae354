// SPDX-License-Identifier: MIT
#include "service/share_path.h"

#include "util/escape.h"

#include <stdexcept>
#include <string_view>

namespace service {

std::string share_path(util::NASShare share) {
  constexpr std::string_view kNeverInNames("/\0", 2);
  if (share.name.empty()) throw std::invalid_argument("a share has no name");
  if (share.name.find_first_of(kNeverInNames) != std::string::npos) {
    throw std::invalid_argument("a share's name holds a slash or a NUL byte");
  }
  share.name = util::escape_string(share.name);
  return share.root_path();
}

}  // namespace service
