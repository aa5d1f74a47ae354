// SPDX-License-Identifier: MIT
// A daemon that ends before its first pass.
#include "util/SuperLoop.h"

int main() {
  util::SuperLoop loop;
  return loop.current_loop() == nullptr ? 1 : 0;
}
