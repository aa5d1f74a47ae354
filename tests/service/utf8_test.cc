// SPDX-License-Identifier: MIT
#include "service/utf8.h"

#include <string>

#include <gtest/gtest.h>

using service::is_utf8;
using service::utf8_piece;
using service::valid_utf8;

TEST(Utf8, KnowsEveryLength) {
  EXPECT_TRUE(is_utf8(""));
  EXPECT_TRUE(is_utf8(std::string("a\0b", 3)));
  EXPECT_TRUE(is_utf8("\x7F \xC2\x80 \xDF\xBF"));
  EXPECT_TRUE(is_utf8("\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF"));
  EXPECT_TRUE(is_utf8("\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"));
}

TEST(Utf8, RefusesWhatIsNotACharacter) {
  for (const char* const text :
       {"\x80", "\xBF", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82",
        "\xF0\x9F\x98", "caf\xE9"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(is_utf8(text));
  }
}

TEST(Utf8, ReplacesEachSequenceOnce) {
  EXPECT_EQ("Caf\xEF\xBF\xBD", valid_utf8("Caf\xE9"));
  EXPECT_EQ("\xEF\xBF\xBDx", valid_utf8("\xE2\x82x"));  // cut inside a character
  EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", valid_utf8("\xFF\xFE"));
  EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", valid_utf8("\xED\xA0\x80"));  // a surrogate
  EXPECT_EQ("caf\xC3\xA9", valid_utf8("caf\xC3\xA9"));
}

TEST(Utf8, NeverLooksBehindTheEnd) {
  const std::string euro = "\xE2\x82\xAC";
  const auto cut = utf8_piece(euro.data(), euro.data() + 2);
  EXPECT_FALSE(cut.valid);
  EXPECT_EQ(2U, cut.size);
}
