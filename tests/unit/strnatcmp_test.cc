// SPDX-License-Identifier: MIT
#include "util/strnatcmp.h"

#include "tests/models/texts.h"
#include "tests/support/files.h"
#include "tests/support/real.h"

#include <ctype.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
  std::string a;
  std::string b;
  int expected;
};

void expect_rows(int (*compare)(const nat_char*, const nat_char*), const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.a) + " and " + testing::PrintToString(row.b));
    EXPECT_EQ(row.expected, compare(row.a.c_str(), row.b.c_str()));
    EXPECT_EQ(-row.expected, compare(row.b.c_str(), row.a.c_str()));
  }
}

std::vector<std::string> all_texts(const std::string& alphabet, size_t length) {
  std::vector<std::string> texts = {""};
  for (size_t first = 0; length > 0; --length) {
    const size_t end = texts.size();
    for (; first < end; ++first) {
      for (const char c : alphabet) texts.push_back(texts[first] + c);
    }
  }
  return texts;
}

// Turns on a locale of eight-bit characters with other rules for 'i', made on the spot.
class TurkishLocale {
 public:
  TurkishLocale() {
    const std::string command = "localedef -i tr_TR -f ISO-8859-9 " + dir_.file("tr_TR.ISO-8859-9");
    if (system((command + " >/dev/null 2>&1").c_str()) != 0) return;
    setenv("LOCPATH", dir_.path().c_str(), 1);
    on_ = setlocale(LC_CTYPE, "tr_TR.ISO-8859-9") != nullptr;
  }
  ~TurkishLocale() {
    setlocale(LC_CTYPE, "C");
    unsetenv("LOCPATH");
  }
  TurkishLocale(const TurkishLocale&) = delete;
  TurkishLocale& operator=(const TurkishLocale&) = delete;

  bool on() const { return on_; }

 private:
  support::TempDir dir_;
  bool on_ = false;
};

// What the classification was asked with.
int lowest_argument = 0;
int highest_argument = 0;

int noted(int argument) {
  lowest_argument = std::min(lowest_argument, argument);
  highest_argument = std::max(highest_argument, argument);
  return argument;
}

}  // namespace

#pragma GCC visibility push(default)  // seen by the library under test
extern "C" int isdigit(int c) noexcept { return REAL(isdigit)(noted(c)); }
extern "C" int isspace(int c) noexcept { return REAL(isspace)(noted(c)); }
extern "C" int toupper(int c) noexcept { return REAL(toupper)(noted(c)); }
#pragma GCC visibility pop

TEST(Strnatcmp, ComparesRunsOfDigitsByValue) {
  expect_rows(strnatcmp, {
                             {"file2", "file10", -1},
                             {"x100",  "x99",    1 },
                             {"x19",   "x21",    -1},
                             {"x219",  "x221",   -1},
                             {"9",     "10a",    -1},
                             {"1a2",   "1a10",   -1},
  });
}

TEST(Strnatcmp, ComparesRunsWithALeadingZeroFromTheLeft) {
  expect_rows(strnatcmp, {
                             {"a1b",   "a01b", 1 },
                             {"1.002", "1.01", -1},
                             {"0",     "00",   -1},
                             {"01",    "010",  -1},
                             {"02",    "010",  1 },
                             {"09",    "1",    -1},
                             {"0",     "0a",   -1},
  });
}

TEST(Strnatcmp, LetsAZeroInsideARunCountAsADigit) {
  expect_rows(strnatcmp, {
                             {"100", "20",  1 },
                             {"101", "110", -1},
                             {"10",  "10",  0 },
                             {"200", "200", 0 },
  });
}

TEST(Strnatcmp, IgnoresWhiteSpaceEverywhere) {
  expect_rows(strnatcmp, {
                             {" abc",         "abc  ", 0 },
                             {"a  b",         "ab",    0 },
                             {"\t\n\v\f\r a", "a",     0 },
                             {"   ",          "",      0 },
                             {"a \t1",        "a1",    0 },
                             {"1 2",          "12",    -1},
                             {"1 2",          "1 10",  -1},
                             {"a b",          "a  c",  -1},
  });
}

TEST(Strnatcmp, TellsUpperFromLowerCase) {
  expect_rows(strnatcmp, {
                             {"abc", "abc", 0},
                             {"abc", "ABC", 1},
                             {"a",   "B",   1},
                             {"a",   "_",   1},
  });
}

TEST(Strnatcasecmp, FoldsToUpperCase) {
  expect_rows(strnatcasecmp, {
                                 {"abc",    "ABC",    0 },
                                 {"a",      "B",      -1},
                                 {"a",      "_",      -1},
                                 {"A",      "_",      -1},
                                 {"File 2", "fILE10", -1},
                                 {"x 01",   "X01",    0 },
  });
}

TEST(Strnatcmp, SetsAnEmptyTextFirst) {
  expect_rows(strnatcmp, {
                             {"",  "a",  -1},
                             {"",  "",   0 },
                             {"",  "0",  -1},
                             {"a", "ab", -1},
  });
}

TEST(Strnatcmp, ComparesBytesUnsigned) {
  const std::vector<Row> rows = {
      {"\xC3\xA9", "z",    1 },
      {"\xFF",     "\x01", 1 },
      {"\x80",     "\x7F", 1 },
      {"\xC3",     "9",    1 },
      {"\xC3",     "\xC4", -1},
  };
  expect_rows(strnatcmp, rows);
  expect_rows(strnatcasecmp, rows);
}

TEST(Strnatcmp, TakesEveryByte) {
  for (int one = 1; one < 256; ++one) {
    for (int other = 1; other < 256; ++other) {
      const std::string a(1, static_cast<char>(one));
      const std::string b(1, static_cast<char>(other));
      ASSERT_EQ(models::natural_order(a, b, false), strnatcmp(a.c_str(), b.c_str()))
          << one << " " << other;
      ASSERT_EQ(models::natural_order(a, b, true), strnatcasecmp(a.c_str(), b.c_str()))
          << one << " " << other;
    }
  }
}

TEST(Strnatcmp, ClassifiesNoNegativeBytes) {
  lowest_argument = highest_argument = 0;
  strnatcmp("\xC3", "\xFF");
  strnatcasecmp("\xFF", "\xC3");
  EXPECT_EQ(0, lowest_argument);
  EXPECT_EQ(255, highest_argument);
}

TEST(Strnatcmp, ReturnsOneWhateverTheDistance) {
  EXPECT_EQ(1, strnatcmp("z", "A"));
  EXPECT_EQ(-1, strnatcmp("A", "z"));
  EXPECT_EQ(1, strnatcmp("9", "1"));
  EXPECT_EQ(1, strnatcmp("12345", "1"));
}

TEST(Strnatcmp, GoesOnBehindEqualRuns) {
  expect_rows(strnatcmp, {
                             {"123",    "123",    0 },
                             {"123a",   "123b",   -1},
                             {"001x2",  "001x10", -1},
                             {"12 3",   "12 04",  1 },
                             {"12  34", "12 34",  0 },
  });
}

TEST(Strnatcmp, FollowsTheRulesForEveryPairOfShortTexts) {
  for (const auto& texts : {all_texts("019aA _\xC3", 3), all_texts("02 a", 5)}) {
    for (const std::string& a : texts) {
      for (const std::string& b : texts) {
        ASSERT_EQ(models::natural_order(a, b, false), strnatcmp(a.c_str(), b.c_str()))
            << a << "/" << b;
        ASSERT_EQ(models::natural_order(a, b, true), strnatcasecmp(a.c_str(), b.c_str()))
            << a << "/" << b;
      }
    }
  }
}

// Every text gets a rank by sorting; each pair must compare as the ranks do. That is symmetry and
// transitivity at once. Texts, not places, are ranked: equal ones share a rank.
TEST(Strnatcmp, OrdersConsistently) {
  for (const auto compare : {strnatcmp, strnatcasecmp}) {
    std::vector<std::string> texts = all_texts("019aA _", 3);
    std::stable_sort(texts.begin(), texts.end(), [&](const std::string& a, const std::string& b) {
      return compare(a.c_str(), b.c_str()) < 0;
    });
    std::vector<int> ranks = {0};
    for (size_t i = 1; i < texts.size(); ++i) {
      ranks.push_back(ranks.back() - compare(texts[i - 1].c_str(), texts[i].c_str()));
    }
    for (size_t i = 0; i < texts.size(); ++i) {
      for (size_t j = 0; j < texts.size(); ++j) {
        ASSERT_EQ((ranks[i] > ranks[j]) - (ranks[i] < ranks[j]),
                  compare(texts[i].c_str(), texts[j].c_str()))
            << texts[i] << "/" << texts[j];
      }
    }
  }
}

// Comparing the run again at each digit would take 5 * 10^11 steps: far beyond the time limit.
TEST(Strnatcmp, ComparesEqualRunsOfAMillionDigitsInLinearTime) {
  for (const char digit : {'0', '7'}) {
    const std::string run(1000000, digit);
    EXPECT_EQ(0, strnatcmp(run.c_str(), std::string(run).c_str()));
    EXPECT_EQ(-1, strnatcmp((run + "a").c_str(), (run + "b").c_str()));
    EXPECT_EQ(1, strnatcasecmp((run + "1").c_str(), run.c_str()));
  }
}

TEST(Strnatcmp, ReadsNothingBehindTheEnd) {
  const std::vector<std::string> texts = {"", " ", "1", "0", "a ", "12", "a1"};
  for (const std::string& a : texts) {
    for (const std::string& b : texts) {
      // Blocks of just the right size: the address sanitizer guards their ends.
      char* const a_copy = strdup(a.c_str());
      char* const b_copy = strdup(b.c_str());
      EXPECT_EQ(models::natural_order(a, b, false), strnatcmp(a_copy, b_copy));
      free(a_copy);
      free(b_copy);
    }
  }
}

TEST(Strnatcasecmp, FoldsAsTheCurrentLocaleDoes) {
  EXPECT_EQ(0, strnatcasecmp("i", "I"));
  EXPECT_EQ(1, strnatcasecmp("\xFD", "I"));
  const TurkishLocale locale;
  ASSERT_TRUE(locale.on()) << "localedef cannot make tr_TR.ISO-8859-9 (package locales)";
  EXPECT_EQ(1, strnatcasecmp("i", "I"));
  EXPECT_EQ(0, strnatcasecmp("i", "\xDD"));     // dotted
  EXPECT_EQ(0, strnatcasecmp("\xFD", "I"));     // dotless
  EXPECT_EQ(0, strnatcasecmp("\xE9", "\xC9"));  // e with acute accent
  EXPECT_EQ(1, strnatcmp("\xE9", "\xC9"));
}

TEST(StrnatcmpDeathTest, RefusesNull) {
  const char* const message =
      "int strnatcmp0\\(const nat_char\\*, const nat_char\\*, int\\): Assertion `a && b' failed";
  EXPECT_DEATH(strnatcmp(nullptr, "a"), message);
  EXPECT_DEATH(strnatcmp("a", nullptr), message);
  EXPECT_DEATH(strnatcasecmp(nullptr, nullptr), message);
}
