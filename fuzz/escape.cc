// SPDX-License-Identifier: MIT
// An input is the text.
#include "util/escape.h"

#include "fuzz/fuzz.h"

#include <algorithm>
#include <map>

namespace {

const std::map<std::string, char> kSequences = {
    {"22", '"' },
    {"25", '%' },
    {"2A", '*' },
    {"3A", ':' },
    {"3C", '<' },
    {"3E", '>' },
    {"3F", '?' },
    {"5C", '\\'},
    {"7C", '|' },
};

std::string escaped(const std::string& s) {
  std::string to;
  for (size_t i = 0; i < s.size(); ++i) {
    const bool two_follow = s.size() == 1 || i + 2 < s.size();
    if (s[i] == '.' && i + 1 == s.size()) {
      to += "%2E";
    } else if (s[i] == '%') {
      to += two_follow && kSequences.count(s.substr(i + 1, 2)) == 0 ? "%25" : "%";
    } else {
      const auto found =
          std::find_if(kSequences.begin(), kSequences.end(),
                       [&](const auto& sequence) { return sequence.second == s[i]; });
      to += found == kSequences.end() ? std::string(1, s[i]) : "%" + found->first;
    }
  }
  return to;
}

// What stands for '%', c1 and c2, none of the two a '%'; 0 for one that is missing.
std::string replaced(char c1, char c2, bool at_end) {
  if (c1 == '\0') return "%";
  if (c2 == '\0') return {'%', c1};
  const std::string pair = {c1, c2};
  if (pair == "5C") return "";
  if (pair == "2E" && at_end) return ".";
  const auto found = kSequences.find(pair);
  return found == kSequences.end() ? "%" + pair : std::string(1, found->second);
}

std::string unescaped(const std::string& s) {
  const auto at = [&s](size_t i) { return i < s.size() ? s[i] : '\0'; };
  std::string to;
  for (size_t i = 0; i < s.size();) {
    if (s[i] != '%') {
      to += s[i++];
    } else if (at(i + 1) == '%') {
      to += "%";
      i += 1;
    } else if (at(i + 2) == '%') {
      to += "%%";
      i += 2;
    } else {
      to += replaced(at(i + 1), at(i + 2), i + 3 == s.size());
      i += 3;
    }
  }
  return to;
}

std::string without(std::string s, char c) {
  s.erase(std::remove(s.begin(), s.end(), c), s.end());
  return s;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  fuzz::require_equal(escaped(text), util::escape_string(text), "escaping");
  fuzz::require_equal(unescaped(text), util::unescape_string(text), "unescaping");
  const std::string plain = without(text, '%');
  fuzz::require_equal(without(plain, '\\'), util::unescape_string(util::escape_string(plain)),
                      "a text without '%' comes back without its backslashes");
  return 0;
}
