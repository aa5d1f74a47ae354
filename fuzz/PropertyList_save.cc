// SPDX-License-Identifier: MIT
// An input is how to save, a byte, how many entries there are, a byte, and the entries.
#include "fuzz/lists.h"
#include "fuzz/values.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const bool durably = input.byte() % 2 == 1;
  const uint8_t count = input.byte();
  const util::value_struct list = fuzz::built_struct(input, count);
  durably ? fuzz::check_saving_durably(list) : fuzz::check_saving(list);
  return 0;
}
