// SPDX-License-Identifier: MIT
#include "service/natural_order.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using service::NaturalCaseLess;
using service::NaturalLess;
using Names = std::vector<std::string>;

TEST(NaturalOrder, SortsNumbersByTheirValue) {
  Names names = {"file10", "File3", "file2", "file1"};
  std::sort(names.begin(), names.end(), NaturalLess());
  EXPECT_EQ((Names{"File3", "file1", "file2", "file10"}), names);
  std::sort(names.begin(), names.end(), NaturalCaseLess());
  EXPECT_EQ((Names{"file1", "file2", "File3", "file10"}), names);
}

TEST(NaturalOrder, NeverTakesTwoNamesForOne) {
  EXPECT_EQ(3U, (std::set<std::string, NaturalLess>{"a b", "ab", " ab"}.size()));
  EXPECT_EQ(4U, (std::set<std::string, NaturalCaseLess>{"AB", "ab", "Ab", "a b"}.size()));
  EXPECT_EQ(2U, (std::set<std::string, NaturalLess>{std::string("a\0b", 3), "a"}.size()));
}

// All names of up to four characters that the comparison treats in different ways.
TEST(NaturalOrder, IsAnOrder) {
  Names names = {""};
  for (size_t from = 0; names.size() < 1 + 7 + 49 + 343;) {
    const size_t to = names.size();
    for (; from < to; ++from) {
      for (const char c : {' ', '0', '1', '2', '.', 'a', 'B'}) names.push_back(names[from] + c);
    }
  }
  std::sort(names.begin(), names.end(), NaturalCaseLess());
  for (size_t i = 0; i < names.size(); ++i) {
    for (size_t j = i + 1; j < names.size(); ++j) {
      ASSERT_TRUE(NaturalCaseLess()(names[i], names[j])) << "'" << names[i] << "' '" << names[j];
      ASSERT_FALSE(NaturalCaseLess()(names[j], names[i])) << "'" << names[i] << "' '" << names[j];
    }
  }
}
