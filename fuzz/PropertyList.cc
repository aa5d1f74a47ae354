// SPDX-License-Identifier: MIT
// An input is the document.
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::check_loading(std::string(data, data + size));
  return 0;
}
