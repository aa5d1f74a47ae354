// SPDX-License-Identifier: MIT
// An input is the text.
#include "util/escape.h"

#include "fuzz/fuzz.h"
#include "tests/models/texts.h"

#include <algorithm>
#include <string>

namespace {

std::string without(std::string s, char c) {
  s.erase(std::remove(s.begin(), s.end(), c), s.end());
  return s;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  fuzz::require_equal(models::escaped(text), util::escape_string(text), "escaping");
  fuzz::require_equal(models::unescaped(text), util::unescape_string(text), "unescaping");
  const std::string plain = without(text, '%');
  fuzz::require_equal(without(plain, '\\'), util::unescape_string(util::escape_string(plain)),
                      "a text without '%' comes back without its backslashes");
  return 0;
}
