// SPDX-License-Identifier: MIT
#pragma once

#include "util/Authenticator.h"
#include "util/export.h"
#include "util/types.h"

#include <string>

namespace service {

// Signs with HMAC-SHA-256; a signature is 32 raw bytes. The secret is given at run time. Use it
// for everything new; util::MD5Authenticator is for peers that support nothing else.
class UTIL_EXPORT HmacAuthenticator : public util::Authenticator {
 public:
  // The secret may have any length but 0; 32 random bytes are a good choice. `id` tells peers which
  // scheme this is. Throws std::invalid_argument if the secret is empty.
  explicit HmacAuthenticator(const util::byte_string& secret,
                             const std::string& id = "HMAC-SHA-256");

  using util::Authenticator::sign;
  // Appends the signature. Throws std::runtime_error if libcrypto fails.
  void sign(const util::byte_string& data, util::byte_string& sig) override;

  // Takes the same time wherever two signatures differ. Throws what sign() throws.
  bool verify(const util::byte_string& data, const util::byte_string& sig) override;
};

}  // namespace service
