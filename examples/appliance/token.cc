// SPDX-License-Identifier: MIT
#include "token.h"

#include <service/bytes.h>
#include <util/MD5Authenticator.h>
#include <util/base64.h>

#include <charconv>

namespace appliance {
namespace {

using util::byte_string;

// Cuts off and returns what stands behind the last ':'; the whole text where there is none.
std::string take_last(std::string& text) {
  const size_t colon = text.rfind(':');
  std::string last = text.substr(colon + 1);
  text.resize(colon == text.npos ? 0 : colon);
  return last;
}

std::optional<time_t> seconds(const std::string& digits) {
  time_t value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [rest, error] = std::from_chars(digits.data(), end, value);
  if (error != std::errc() || rest != end) return std::nullopt;
  return value;
}

}  // namespace

std::string issue_token(const std::string& what, time_t now) {
  std::string token = what + ":" + std::to_string(now);
  byte_string signature;
  util::MD5Authenticator().sign(service::to_bytes(token), signature);
  token += ":";
  util::b64_encode(signature, token, 0);
  return token;
}

std::optional<std::string> permitted_by(const std::string& token, time_t now) {
  std::string text = token;
  byte_string signature;
  if (util::b64_decode(take_last(text), signature) != 0 ||
      !util::MD5Authenticator().verify(service::to_bytes(text), signature)) {
    return std::nullopt;
  }
  const std::optional<time_t> issued = seconds(take_last(text));
  if (!issued || *issued > now || now - *issued > kTokenLife) return std::nullopt;
  return text;
}

}  // namespace appliance
