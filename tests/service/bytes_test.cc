// SPDX-License-Identifier: MIT
#include "service/bytes.h"

#include <string>

#include <gtest/gtest.h>

TEST(Bytes, AreTheSameInBothTypes) {
  const std::string text(
      "\0\xFF"
      "a",
      3);
  EXPECT_EQ(util::byte_string({0, 255, 'a'}), service::to_bytes(text));
  EXPECT_EQ(text, service::to_text(service::to_bytes(text)));
}

TEST(MacToStr, WritesTwoDigitsAByte) {
  EXPECT_EQ("00:1a:2b:3c:4d:ff", service::mac_to_str({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFF}));
  EXPECT_EQ("0a", service::mac_to_str({0x0A}));
  EXPECT_EQ("", service::mac_to_str({}));
}
