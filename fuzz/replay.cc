// SPDX-License-Identifier: MIT
// Runs a target over the files of a folder, without a fuzzer: replay_<target> <folder>.
#include "fuzz/fuzz.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    const std::string name = entry.path().string();
    printf("%s\n", name.c_str());
    fflush(stdout);  // The last name printed is the one to blame.
    std::ifstream file(name, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++count;
  }
  printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
