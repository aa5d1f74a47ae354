// SPDX-License-Identifier: MIT
#include "service/bytes.h"

namespace service {

std::string mac_to_str(const util::byte_string& address) {
  std::string text;
  for (const unsigned byte : address) {
    if (!text.empty()) text += ':';
    text += "0123456789abcdef"[byte / 16];
    text += "0123456789abcdef"[byte % 16];
  }
  return text;
}

}  // namespace service
