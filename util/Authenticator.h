// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// Signs messages with a secret key and checks such signatures. A scheme derives from it; a class
// that overrides sign() needs `using Authenticator::sign;` for the form that returns a text.
//
// Destroy a scheme through its own class: this one's destructor is not virtual. One object may be
// used from several threads at once.
class UTIL_EXPORT Authenticator {
 public:
  // `id` names the scheme to the peers.
  Authenticator(const byte_string& key, const std::string& id);
  ~Authenticator() = default;  // Kept: not virtual, the dispatch table has two entries only.

  const std::string& id() const { return _id; }

  // Appends the signature of `data` to `sig`.
  virtual void sign(const byte_string& data, byte_string& sig) = 0;

  // Whether `sig` is exactly the signature of `data`.
  virtual bool verify(const byte_string& data, const byte_string& sig) = 0;

  // The signature of `data` in lower-case hexadecimal digits, two a byte.
  std::string sign(const byte_string& data);

 protected:
  byte_string key;  // mixed into every signature

 private:
  const std::string _id;
};

}  // namespace util
