// SPDX-License-Identifier: MIT
#pragma once

#include "util/Authenticator.h"
#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// Signs with the MD5 digest of the message followed by the key: 16 raw bytes.
//
// Kept: neither HMAC nor a comparison in constant time; peers in the field expect this form.
class UTIL_EXPORT MD5Authenticator : public Authenticator {
 public:
  // The key and the scheme's name are set when the library is built (NASUTIL_MD5_KEY,
  // NASUTIL_MD5_ID). Not inline, so that the secret stays out of the programs that use the library.
  MD5Authenticator();

  using Authenticator::sign;
  void sign(const byte_string& data, byte_string& sig) override;

  // Compares `sig` with the signature that the virtual sign() makes of `data`.
  bool verify(const byte_string& data, const byte_string& sig) override;
};

}  // namespace util
