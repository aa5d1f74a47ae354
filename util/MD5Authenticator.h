// SPDX-License-Identifier: MIT
#pragma once

#include "util/Authenticator.h"
#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// Signs with MD5 over the message and, behind it, the key: 16 raw bytes.
//
// Kept: neither HMAC nor a comparison in constant time; the peers in the field know this form.
class UTIL_EXPORT MD5Authenticator : public Authenticator {
 public:
  // Key and scheme name are settings of the library's build (NASUTIL_MD5_KEY, NASUTIL_MD5_ID).
  // Not inline: the secret stays out of the programs that use the library.
  MD5Authenticator();

  using Authenticator::sign;
  void sign(const byte_string& data, byte_string& sig) override;

  // Compares with what the virtual sign() makes of `data`.
  bool verify(const byte_string& data, const byte_string& sig) override;
};

}  // namespace util
