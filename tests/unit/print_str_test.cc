// SPDX-License-Identifier: MIT
#include "util/print_str.h"

#include <string>

#include <gtest/gtest.h>

using util::print_str;

TEST(PrintStr, LeavesAPlainWord) { EXPECT_EQ("abc", print_str("abc")); }

TEST(PrintStr, QuotesTheEmptyText) { EXPECT_EQ("\"\"", print_str("")); }

TEST(PrintStr, QuotesABlank) { EXPECT_EQ("\"a b\"", print_str("a b")); }

TEST(PrintStr, QuotesATabUnescaped) { EXPECT_EQ("\"a\tb\"", print_str("a\tb")); }

TEST(PrintStr, KeepsALineFeedRaw) { EXPECT_EQ("\"a\nb\"", print_str("a\nb")); }

TEST(PrintStr, KeepsACarriageReturnRaw) { EXPECT_EQ("\"a\rb\"", print_str("a\rb")); }

TEST(PrintStr, EscapesDoubleQuotes) { EXPECT_EQ("\"say \\\"hi\\\"\"", print_str("say \"hi\"")); }

TEST(PrintStr, LeavesABackslashAlone) { EXPECT_EQ("a\\b", print_str("a\\b")); }

TEST(PrintStr, DoublesABackslashInQuotes) { EXPECT_EQ("\"a\\\\ b\"", print_str("a\\ b")); }

TEST(PrintStr, DoublesEachOfABackslashRunOnce) {
  EXPECT_EQ("\" \\\\\\\\\\\\\"", print_str(" \\\\\\"));
}

TEST(PrintStr, EscapesABackslashBeforeAQuote) { EXPECT_EQ("\"\\\\\\\"\"", print_str("\\\"")); }

TEST(PrintStr, LeavesOtherControlAndHighBytes) {
  const std::string text("\0\v\f\x01\x80\xFF'", 7);
  EXPECT_EQ(text, print_str(text));
}

TEST(PrintStr, KeepsANulInQuotes) {
  EXPECT_EQ(std::string("\"\0 \"", 4), print_str(std::string("\0 ", 2)));
}
