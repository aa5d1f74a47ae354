// SPDX-License-Identifier: MIT
#include "util/escape.h"

#include "tests/models/texts.h"

#include <functional>
#include <string>

#include <gtest/gtest.h>

using util::escape_string;
using util::unescape_string;
using namespace std::string_literals;

namespace {

struct Row {
  std::string from;
  std::string to;
};

// Every text of at most `length` characters of `alphabet`.
void for_all_texts(const std::string& alphabet, size_t length,
                   const std::function<void(const std::string&)>& check,
                   const std::string& start = "") {
  check(start);
  if (length == 0) return;
  for (const char c : alphabet) for_all_texts(alphabet, length - 1, check, start + c);
}

const std::string kAlphabet = "%25ACE37x.:\\\0\xFF"s;

}  // namespace

// ---- escaping ----

TEST(EscapeString, ReplacesEachReservedCharacter) {
  const Row rows[] = {
      {"a:b",        "a%3Ab"                   },
      {"\"",         "%22"                     },
      {"*",          "%2A"                     },
      {":",          "%3A"                     },
      {"<",          "%3C"                     },
      {">",          "%3E"                     },
      {"?",          "%3F"                     },
      {"\\",         "%5C"                     },
      {"|",          "%7C"                     },
      {"\"*:<>?\\|", "%22%2A%3A%3C%3E%3F%5C%7C"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.from);
    EXPECT_EQ(row.to, escape_string(row.from));
  }
}

TEST(EscapeString, ReplacesADotOnlyAtTheEnd) {
  EXPECT_EQ("x%2E", escape_string("x."));
  EXPECT_EQ("x.y", escape_string("x.y"));
  EXPECT_EQ("%2E", escape_string("."));
  EXPECT_EQ(".%2E", escape_string(".."));
  EXPECT_EQ(".\0"s, escape_string(".\0"s));
}

TEST(EscapeString, ReplacesAPercentThatIntroducesNothing) {
  EXPECT_EQ("%25ab", escape_string("%ab"));
  EXPECT_EQ("100%25x%", escape_string("100%x%"));
  EXPECT_EQ("%25%25ab", escape_string("%%ab"));
  EXPECT_EQ("%25%3A", escape_string("%%3A"));
  EXPECT_EQ("%253a", escape_string("%3a"));
}

TEST(EscapeString, CopiesAPercentWithLessThanTwoCharactersBehindIt) {
  EXPECT_EQ("a%", escape_string("a%"));
  EXPECT_EQ("%a", escape_string("%a"));
  EXPECT_EQ("%%", escape_string("%%"));
  EXPECT_EQ("%3", escape_string("%3"));
}

TEST(EscapeString, ReplacesAPercentThatIsTheWholeText) { EXPECT_EQ("%25", escape_string("%")); }

TEST(EscapeString, LeavesTheNineSequencesAlone) {
  const std::string all = "%22%25%2A%3A%3C%3E%3F%5C%7C";
  EXPECT_EQ(all, escape_string(all));
  EXPECT_EQ("%3A", escape_string("%3A"));
}

TEST(EscapeString, EscapesAnEscapedDotAgain) {
  EXPECT_EQ("%252E", escape_string("%2E"));
  EXPECT_EQ("x%252Ey", escape_string("x%2Ey"));
}

TEST(EscapeString, CopiesAllOtherBytes) {
  std::string all;
  for (int c = 0; c < 256; ++c) {
    if ("\"%*:<>?\\|"s.find(static_cast<char>(c)) == std::string::npos) {
      all += static_cast<char>(c);
    }
  }
  EXPECT_EQ(247U, all.size());
  EXPECT_EQ(all, escape_string(all));
}

TEST(EscapeString, TakesAnEmptyText) { EXPECT_EQ("", escape_string("")); }

TEST(EscapeString, LeavesItsArgumentAlone) {
  const std::string s = "a:b";
  escape_string(s);
  EXPECT_EQ("a:b", s);
}

TEST(EscapeString, GrowsALongTextThreefold) {
  std::string expected;
  for (int i = 0; i < 100000; ++i) expected += "%3A";
  EXPECT_EQ(expected, escape_string(std::string(100000, ':')));
}

TEST(EscapeString, FollowsTheRulesForEveryShortText) {
  for_all_texts(kAlphabet, 4, [](const std::string& s) {
    ASSERT_EQ(models::escaped(s), escape_string(s)) << testing::PrintToString(s);
  });
}

// ---- unescaping ----

TEST(UnescapeString, ReplacesEachSequence) {
  const Row rows[] = {
      {"a%3Ab%7Cc", "a:b|c"},
      {"%22",       "\""   },
      {"%25",       "%"    },
      {"%2A",       "*"    },
      {"%3A",       ":"    },
      {"%3C",       "<"    },
      {"%3E",       ">"    },
      {"%3F",       "?"    },
      {"%7C",       "|"    },
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.from);
    EXPECT_EQ(row.to, unescape_string(row.from));
  }
}

TEST(UnescapeString, DropsAnEscapedBackslash) {
  EXPECT_EQ("", unescape_string("%5C"));
  EXPECT_EQ("ab", unescape_string("a%5Cb"));
}

TEST(UnescapeString, ReplacesADotOnlyAtTheEnd) {
  EXPECT_EQ("x.", unescape_string("x%2E"));
  EXPECT_EQ(".", unescape_string("%2E"));
  EXPECT_EQ("%2Ex", unescape_string("%2Ex"));
  EXPECT_EQ("%2E.", unescape_string("%2E%2E"));
  EXPECT_EQ("%2E\0"s, unescape_string("%2E\0"s));
}

TEST(UnescapeString, CopiesWhatIsNoSequence) {
  for (const std::string text : {"%", "%3", "%Z", "%ZZ", "%3B", "%3a", "%2F", "%5D", "%7D", "%2",
                                 "%5", "%7", "%9", "%C3", "a%", "plain"}) {
    EXPECT_EQ(text, unescape_string(text));
  }
}

TEST(UnescapeString, TakesAPercentBehindAPercentAsANewStart) {
  EXPECT_EQ("%%", unescape_string("%%"));
  EXPECT_EQ("%:", unescape_string("%%3A"));
  EXPECT_EQ("%%%", unescape_string("%%%"));
}

TEST(UnescapeString, LosesTheCharacterBetweenTwoPercents) {
  EXPECT_EQ("%%:", unescape_string("%3%3A"));
  EXPECT_EQ("%%\"", unescape_string("%A%22"));
  EXPECT_EQ("%%%", unescape_string("%A%"));
  EXPECT_EQ("%%%", unescape_string("%\0%"s));
}

TEST(UnescapeString, TakesARealNulForAMissingCharacter) {
  const Row rows[] = {
      {"%\0"s,       "%"       },
      {"%\0a"s,      "%"       },
      {"%\0ab"s,     "%b"      },
      {"%3\0"s,      "%3"      },
      {"%3\0a"s,     "%3a"     },
      {"%Z\0a"s,     "%Za"     },
      {"a\0b%3A\0"s, "a\0b:\0"s},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.from));
    EXPECT_EQ(row.to, unescape_string(row.from));
  }
}

TEST(UnescapeString, TakesAnEmptyText) { EXPECT_EQ("", unescape_string("")); }

TEST(UnescapeString, LeavesItsArgumentAlone) {
  const std::string s = "%3A";
  unescape_string(s);
  EXPECT_EQ("%3A", s);
}

TEST(UnescapeString, FollowsTheRulesForEveryShortText) {
  for_all_texts(kAlphabet, 4, [](const std::string& s) {
    ASSERT_EQ(models::unescaped(s), unescape_string(s)) << testing::PrintToString(s);
  });
}

// ---- the pair ----

TEST(Escaping, TwiceIsOnceButForAFinalDot) {
  EXPECT_EQ("a%3Ab%5C%22", escape_string(escape_string("a:b\\\"")));
  EXPECT_EQ("x%252E", escape_string(escape_string("x.")));
}

TEST(Escaping, BringsBackNamesWithoutBackslashAndPercent) {
  for_all_texts(".:*\"<>?|x\xC3", 4,
                [](const std::string& s) { ASSERT_EQ(s, unescape_string(escape_string(s))) << s; });
}
