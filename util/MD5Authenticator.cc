// SPDX-License-Identifier: MIT
#include "util/MD5Authenticator.h"

#include "settings.h"

#include <iterator>

#define OPENSSL_SUPPRESS_DEPRECATED  // Kept: MD5 by its own functions, which peers rely on.
#include <openssl/md5.h>

namespace util {

MD5Authenticator::MD5Authenticator()
    : Authenticator(byte_string(std::begin(kMd5Key), std::end(kMd5Key) - 1), kMd5Id) {}

void MD5Authenticator::sign(const byte_string& data, byte_string& sig) {
  MD5_CTX context;
  MD5_Init(&context);
  MD5_Update(&context, data.data(), data.size());
  MD5_Update(&context, key.data(), key.size());
  const size_t old_size = sig.size();
  sig.resize(old_size + MD5_DIGEST_LENGTH);
  MD5_Final(&sig[old_size], &context);
}

bool MD5Authenticator::verify(const byte_string& data, const byte_string& sig) {
  byte_string expected;
  sign(data, expected);
  return sig == expected;
}

}  // namespace util
