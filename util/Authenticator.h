// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// Signs messages with a secret key and verifies signatures. Each scheme is a derived class; one
// that overrides sign() needs `using Authenticator::sign;` to keep the form that returns a string.
//
// Destroy a scheme through its own class, because this destructor is not virtual. One object may be
// used from several threads at once.
class UTIL_EXPORT Authenticator {
 public:
  // `id` tells peers which scheme this is.
  Authenticator(const byte_string& secret, const std::string& id);
  ~Authenticator() = default;  // Kept: not virtual, the dispatch table has two entries only.

  const std::string& id() const { return _id; }

  // Appends the signature of `data` to `sig`.
  virtual void sign(const byte_string& data, byte_string& sig) = 0;

  // Whether `sig` is exactly the signature of `data`.
  virtual bool verify(const byte_string& data, const byte_string& sig) = 0;

  // The signature of `data` in lower-case hexadecimal, two digits per byte.
  std::string sign(const byte_string& data);

 protected:
  byte_string key;  // mixed into every signature

 private:
  const std::string _id;
};

}  // namespace util
