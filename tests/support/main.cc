// SPDX-License-Identifier: MIT
// The main program of every suite. No test sees the time zone of the machine.
#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 1);
  tzset();
  testing::InitGoogleTest(&argc, argv);
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  return RUN_ALL_TESTS();
}
