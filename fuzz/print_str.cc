// SPDX-License-Identifier: MIT
// An input is the text.
#include "util/print_str.h"

#include "fuzz/fuzz.h"

namespace {

std::string with_backslashes(std::string s, char before) {
  for (size_t at = s.find(before); at != std::string::npos; at = s.find(before, at + 2)) {
    s.insert(at, "\\");
  }
  return s;
}

std::string printed(const std::string& s) {
  if (!s.empty() && s.find_first_of(" \t\n\r\"") == std::string::npos) return s;
  return '"' + with_backslashes(with_backslashes(s, '\\'), '"') + '"';
}

std::string read_back(const std::string& s) {
  if (s[0] != '"') return s;
  std::string to;
  for (size_t i = 1; i + 1 < s.size(); ++i) {
    if (s[i] == '\\') ++i;
    to += s[i];
  }
  return to;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  const std::string actual = util::print_str(text);
  fuzz::require_equal(printed(text), actual, "printing");
  fuzz::require_equal(text, read_back(actual), "printing and reading back");
  return 0;
}
