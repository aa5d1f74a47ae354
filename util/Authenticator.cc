// SPDX-License-Identifier: MIT
#include "util/Authenticator.h"

namespace util {

Authenticator::Authenticator(const byte_string& secret, const std::string& id)
    : key(secret), _id(id) {}

std::string Authenticator::sign(const byte_string& data) {
  byte_string sig;
  sign(data, sig);
  std::string text;
  text.reserve(2 * sig.size());
  for (const unsigned byte : sig) {
    text += "0123456789abcdef"[byte / 16];
    text += "0123456789abcdef"[byte % 16];
  }
  return text;
}

}  // namespace util
