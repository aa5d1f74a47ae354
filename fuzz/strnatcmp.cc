// SPDX-License-Identifier: MIT
// An input is three texts, with NULs between them.
#include "util/strnatcmp.h"

#include "fuzz/fuzz.h"
#include "tests/models/texts.h"

#include <array>

namespace {

using Order = int (*)(const char*, const char*);

using Texts = std::array<std::string, 3>;

void check(Order order, bool folded, const Texts& texts) {
  int results[3][3];
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      results[i][j] = order(texts[i].c_str(), texts[j].c_str());
      fuzz::require_equal(std::to_string(models::natural_order(texts[i], texts[j], folded)),
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
