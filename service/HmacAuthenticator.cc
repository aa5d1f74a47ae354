// SPDX-License-Identifier: MIT
#include "service/HmacAuthenticator.h"

#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace service {

HmacAuthenticator::HmacAuthenticator(const util::byte_string& secret, const std::string& id)
    : Authenticator(secret, id) {
  if (key.empty()) throw std::invalid_argument("HmacAuthenticator: the key is empty");
}

void HmacAuthenticator::sign(const util::byte_string& data, util::byte_string& sig) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), data.data(), data.size(), digest,
           &size) == nullptr) {
    throw std::runtime_error("HmacAuthenticator: libcrypto cannot sign");
  }
  sig.append(digest, size);
}

bool HmacAuthenticator::verify(const util::byte_string& data, const util::byte_string& sig) {
  util::byte_string expected;
  sign(data, expected);
  return sig.size() == expected.size() &&
         CRYPTO_memcmp(sig.data(), expected.data(), expected.size()) == 0;
}

}  // namespace service
