// SPDX-License-Identifier: MIT
#include "tests/support/child.h"

#include <stdlib.h>

#include <iostream>

#include <gtest/gtest.h>

namespace support {
namespace {

[[noreturn]] void run_and_exit(const std::function<void()>& body) {
  body();
  const testing::TestResult& result =
      *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); ++i) {
    const testing::TestPartResult& part = result.GetTestPartResult(i);
    std::cerr << part.file_name() << ":" << part.line_number() << ": " << part.message() << "\n";
  }
  exit(result.Failed() ? 1 : 0);
}

}  // namespace

void in_child(const std::function<void()>& body) {
  EXPECT_EXIT(run_and_exit(body), testing::ExitedWithCode(0), "");
}

}  // namespace support
