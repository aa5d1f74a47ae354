// SPDX-License-Identifier: MIT
// The main program of every suite. No test sees the time zone of the machine.
#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 1);
  tzset();
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  testing::InitGoogleTest(&argc, argv);  // the command line may choose otherwise
  return RUN_ALL_TESTS();
}
