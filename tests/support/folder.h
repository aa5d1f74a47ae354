// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/files.h"

#include <gtest/gtest.h>

namespace support {

// A test that has a folder of its own.
class InFolder : public ::testing::Test {
 protected:
  const TempDir dir;
};

}  // namespace support
