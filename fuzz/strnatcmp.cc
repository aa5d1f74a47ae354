// SPDX-License-Identifier: MIT
// An input is three texts, with NULs between them.
#include "util/strnatcmp.h"

#include "fuzz/fuzz.h"

#include <array>

namespace {

using Order = int (*)(const char*, const char*);

bool is_digit(int c) { return c >= '0' && c <= '9'; }
bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Behind the end a text is all NULs.
int at(const std::string& text, size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

std::string digits(const std::string& text, size_t from) {
  size_t end = from;
  while (is_digit(at(text, end))) ++end;
  return text.substr(from, end - from);
}

int sign(int difference) { return difference < 0 ? -1 : difference > 0 ? 1 : 0; }

int compare_runs(const std::string& a, const std::string& b) {
  const bool fraction = a[0] == '0' || b[0] == '0';
  if (fraction || a.size() == b.size()) return sign(a.compare(b));
  return a.size() < b.size() ? -1 : 1;
}

int fold(int c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }

int compare(const std::string& a, const std::string& b, bool folded) {
  for (size_t ai = 0, bi = 0;; ++ai, ++bi) {
    while (is_space(at(a, ai))) ++ai;
    while (is_space(at(b, bi))) ++bi;
    int ca = at(a, ai);
    int cb = at(b, bi);
    if (is_digit(ca) && is_digit(cb)) {
      const int result = compare_runs(digits(a, ai), digits(b, bi));
      if (result != 0) return result;
    }
    if (ca == 0 && cb == 0) return 0;
    if (folded) ca = fold(ca);
    if (folded) cb = fold(cb);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
}

using Texts = std::array<std::string, 3>;

void check(Order order, bool folded, const Texts& texts) {
  int results[3][3];
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      results[i][j] = order(texts[i].c_str(), texts[j].c_str());
      fuzz::require_equal(std::to_string(compare(texts[i], texts[j], folded)),
                          std::to_string(results[i][j]), "the order");
    }
  }
  for (size_t i = 0; i < 3; ++i) {
    fuzz::require(results[i][i] == 0, "a text equals itself");
    for (size_t j = 0; j < 3; ++j) {
      fuzz::require(results[i][j] == -results[j][i], "the order is antisymmetric");
      for (size_t k = 0; k < 3; ++k) {
        if (results[i][j] <= 0 && results[j][k] <= 0) {
          const bool equal = results[i][j] == 0 && results[j][k] == 0;
          fuzz::require(results[i][k] == (equal ? 0 : -1), "the order is transitive");
        }
      }
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  Texts texts;
  for (std::string& text : texts) text = input.line('\0');
  check(strnatcmp, false, texts);
  check(strnatcasecmp, true, texts);
  return 0;
}
