// SPDX-License-Identifier: MIT
#include "fuzz/fuzz.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("TZ", "UTC", 1);
  tzset();
  return 0;
}

namespace fuzz {
namespace {

void print(const char* of, const std::string& text) {
  fprintf(stderr, "  %s (%zu bytes): ", of, text.size());
  for (const char c : text) {
    const bool plain = c >= ' ' && c <= '~' && c != '\\';
    fprintf(stderr, plain ? "%c" : "\\x%02x", static_cast<unsigned char>(c));
  }
  fputc('\n', stderr);
}

}  // namespace

std::string Input::take(size_t size) {
  const std::string taken = text_.substr(at_, size);
  at_ += taken.size();
  return taken;
}

std::string Input::line(char end) {
  const size_t found = std::min(text_.find(end, at_), text_.size());
  std::string taken = take(found - at_);
  at_ = std::min(found + 1, text_.size());
  return taken;
}

bool matches(const std::string& text, const std::string& pattern) {
  static std::map<std::string, std::regex> known;
  return std::regex_match(text, known.try_emplace(pattern, pattern).first->second);
}

void require(bool holds, const char* promise) {
  if (holds) return;
  fprintf(stderr, "broken: %s\n", promise);
  abort();
}

void require_equal(const std::string& expected, const std::string& actual, const char* of) {
  if (expected == actual) return;
  print("expected", expected);
  print("actual", actual);
  require(false, of);
}

}  // namespace fuzz
