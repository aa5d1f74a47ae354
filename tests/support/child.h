// SPDX-License-Identifier: MIT
// A child process for what would disturb the other tests.
#pragma once

#include <stdlib.h>

#include <functional>

#include <gtest/gtest.h>

namespace support {

// Runs `body` in a fresh process, where it may close streams and change what is process-wide. An
// expectation that fails there fails the calling test.
inline void in_child(const std::function<void()>& body) {
  EXPECT_EXIT((body(), exit(testing::Test::HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

}  // namespace support
