// SPDX-License-Identifier: MIT
#include "util/base64.h"

#include "tests/models/texts.h"
#include "tests/support/real.h"

#include <ctype.h>

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

using util::b64_decode;
using util::b64_encode;
using util::byte_string;

namespace {

byte_string bytes(const std::string& text) { return byte_string(text.begin(), text.end()); }

std::string encoded(const std::string& in, int tw = 0) {
  std::string out;
  EXPECT_EQ(0, b64_encode(bytes(in), out, tw));
  return out;
}

struct Decoded {
  int result;
  std::string bytes;
};

Decoded decoded(const std::string& in) {
  byte_string out;
  const int result = b64_decode(in, out);
  return {result, std::string(out.begin(), out.end())};
}

struct Row {
  std::string text;
  int result;
  std::string bytes;
};

void expect_rows(const std::initializer_list<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.text));
    const Decoded got = decoded(row.text);
    EXPECT_EQ(row.result, got.result);
    EXPECT_EQ(row.bytes, got.bytes);
  }
}

// What the classification was asked with.
int lowest_argument = 0;
int highest_argument = 0;
bool no_break_space_counts = false;

}  // namespace

#pragma GCC visibility push(default)  // seen by the library under test
extern "C" int isspace(int c) noexcept {
  lowest_argument = std::min(lowest_argument, c);
  highest_argument = std::max(highest_argument, c);
  return (c == 0xA0 && no_break_space_counts) || REAL(isspace)(c);
}
#pragma GCC visibility pop

TEST(B64Encode, AppendsNothingForNothing) {
  std::string out = "kept";
  EXPECT_EQ(0, b64_encode(byte_string(), out, 0));
  EXPECT_EQ("kept", out);
  EXPECT_EQ(0, b64_encode(byte_string(), out, 1));
  EXPECT_EQ("kept", out);
}

TEST(B64Encode, PadsToFourCharacters) {
  EXPECT_EQ("AA==", encoded(std::string(1, '\0')));
  EXPECT_EQ("AAA=", encoded(std::string(2, '\0')));
  EXPECT_EQ("AAAA", encoded(std::string(3, '\0')));
}

TEST(B64Encode, GivesTheRfcVectors) {
  EXPECT_EQ("Zg==", encoded("f"));
  EXPECT_EQ("Zm8=", encoded("fo"));
  EXPECT_EQ("Zm9v", encoded("foo"));
  EXPECT_EQ("Zm9vYg==", encoded("foob"));
  EXPECT_EQ("Zm9vYmE=", encoded("fooba"));
  EXPECT_EQ("Zm9vYmFy", encoded("foobar"));
}

TEST(B64Encode, UsesTheWholeAlphabet) {
  std::string in;
  for (unsigned i = 0; i < 64; i += 4) {
    const unsigned group = i << 18 | (i + 1) << 12 | (i + 2) << 6 | (i + 3);
    for (const unsigned shift : {16U, 8U, 0U}) in += static_cast<char>(group >> shift & 255);
  }
  EXPECT_EQ("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", encoded(in));
}

TEST(B64Encode, Appends) {
  std::string out = "front ";
  b64_encode(bytes("ABC"), out, 0);
  EXPECT_EQ("front QUJD", out);
}

TEST(B64Encode, CountsFromTheCallWhatWasInFront) {
  std::string out = "front";
  b64_encode(bytes("ABCDEF"), out, 4);
  EXPECT_EQ("frontQUJD\nREVG\n", out);
}

TEST(B64Encode, EndsWithALineFeedAfterAWholeLine) { EXPECT_EQ("QUJD\n", encoded("ABC", 4)); }

TEST(B64Encode, CountsPaddingTowardTheWidth) {
  EXPECT_EQ("QQ==\n", encoded("A", 4));
  EXPECT_EQ("QQ=\n=", encoded("A", 3));
  EXPECT_EQ("QUI\n=", encoded("AB", 3));
}

TEST(B64Encode, WrapsAtAnyWidth) {
  EXPECT_EQ("Q\nQ\n=\n=\n", encoded("A", 1));
  EXPECT_EQ("QU\nJD\nRA\n==\n", encoded("ABCD", 2));
  EXPECT_EQ("QUJDR\nEU=", encoded("ABCDE", 5));
  EXPECT_EQ("QUJDREV\nG", encoded("ABCDEF", 7));
  EXPECT_EQ("QUJD", encoded("ABC", 5));
  EXPECT_EQ("QUJD", encoded("ABC", 2147483647));
}

TEST(B64Encode, DoesNotWrapAtZeroOrBelow) {
  EXPECT_EQ("QUJDREVG", encoded("ABCDEF", 0));
  EXPECT_EQ("QUJDREVG", encoded("ABCDEF", -1));
  EXPECT_EQ("QUJDREVG", encoded("ABCDEF", -2147483647 - 1));
}

TEST(B64Decode, TakesWhiteSpaceAnywhere) {
  expect_rows({
      {"QUJD",            0, "ABC"},
      {"QU JD",           0, "ABC"},
      {"QU\nJD",          0, "ABC"},
      {" Q\tU\nJ\vD\f\r", 0, "ABC"},
      {" \t\n\v\f\r",     0, ""   }
  });
}

TEST(B64Decode, AsksTheCLibraryWhatIsWhiteSpace) {
  no_break_space_counts = true;  // as in some locales
  EXPECT_EQ("ABC", decoded("QU\xA0JD").bytes);
  no_break_space_counts = false;
  EXPECT_EQ("A", decoded("QU\xA0JD").bytes);
}

TEST(B64Decode, ClassifiesNoNegativeBytes) {
  lowest_argument = highest_argument = 0;
  EXPECT_EQ(-1, decoded("\xFF").result);
  EXPECT_EQ(-3, decoded("QQ=\xFF").result);
  EXPECT_EQ(0, lowest_argument);
  EXPECT_EQ(255, highest_argument);
}

TEST(B64Decode, DropsAnUnfinishedGroup) {
  expect_rows({
      {"QUI",   0, "AB" },
      {"QQ",    0, "A"  },
      {"Q",     0, ""   },
      {"",      0, ""   },
      {"QUJDQ", 0, "ABC"}
  });
}

TEST(B64Decode, TakesPadding) {
  expect_rows({
      {"QQ==",      0, "A" },
      {"QQ= =",     0, "A" },
      {"QQ=\n \t=", 0, "A" },
      {"QUI=",      0, "AB"}
  });
}

TEST(B64Decode, MissesTheSecondPaddingCharacter) {
  expect_rows({
      {"QQ=",   -3, "A"},
      {"QQ=x",  -3, "A"},
      {"QQ=  ", -3, "A"},
      {"QQ=Q=", -3, "A"}
  });
}

TEST(B64Decode, RefusesPaddingWhereNoByteEnds) {
  expect_rows({
      {"=",      -2, ""   },
      {"Q=",     -2, ""   },
      {"QUJD=",  -2, "ABC"},
      {"QUJDQ=", -2, "ABC"}
  });
}

TEST(B64Decode, DoesNotLookBehindThePadding) {
  expect_rows({
      {"QUJ=garbage", 0, "AB"},
      {"QUI= *",      0, "AB"},
      {"QQ==*",       0, "A" },
      {"QQ===",       0, "A" },
      {"QQ==QUJD",    0, "A" }
  });
}

TEST(B64Decode, RefusesABadCharacter) {
  expect_rows({
      {"QU*D",         -1, "A"    },
      {"*",            -1, ""     },
      {"QUJD*QUJD",    -1, "ABC"  },
      {"QUJDQUJ-",     -1, "ABCAB"},
      {"QUJD\x1FQUJD", -1, "ABC"  }
  });
}

TEST(B64Decode, RefusesEveryByteOutsideTheAlphabet) {
  const std::string fine =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/= \t\n\v\f\r";
  for (int c = 1; c < 256; ++c) {
    const char character = static_cast<char>(c);
    if (fine.find(character) != std::string::npos) continue;
    SCOPED_TRACE(c);
    EXPECT_EQ(-1, decoded(std::string(1, character)).result);
    EXPECT_EQ(-1, decoded("QUJDQUJ" + std::string(1, character)).result);
  }
}

TEST(B64Decode, RefusesBytesOf128AndAbove) {
  expect_rows({
      {"\x80",    -1, ""  },
      {"QU\xA0J", -1, "A" },
      {"QUJ\xFF", -1, "AB"}
  });
}

// In a group of its own "A" is 0, so what is left is what the NUL contributes.
TEST(B64Decode, TakesANulForADigitOf64) {
  const std::string nul(1, '\0');
  expect_rows({
      {nul + "AAA",      0, std::string("\0\0\0",      3)},
      {"A" + nul + "AA", 0, std::string("\x04\0\0",    3)},
      {"AA" + nul + "A", 0, std::string("\0\x10\0",    3)},
      {"AAA" + nul,      0, std::string("\0\0\x40",    3)},
      {"QUJDAAA" + nul,  0, std::string("ABC\0\0\x40", 6)}
  });
}

TEST(B64Decode, Appends) {
  byte_string out = bytes("front ");
  EXPECT_EQ(0, b64_decode("QUJD", out));
  EXPECT_EQ(bytes("front ABC"), out);
  EXPECT_EQ(-1, b64_decode("QUJ*", out));
  EXPECT_EQ(bytes("front ABCAB"), out);
}

TEST(B64Decode, ReadsEveryValueOfEveryDigit) {
  std::string in;
  for (int i = 0; i < 256 * 3; ++i) in += static_cast<char>(i * 7 + i / 256);
  EXPECT_EQ(in, decoded(encoded(in)).bytes);
}

TEST(Base64, ComesBackEqualAtEveryLengthAndWidth) {
  std::mt19937 random(1);
  for (size_t length = 0; length < 70; ++length) {
    std::string in(length, '\0');
    for (char& c : in) c = static_cast<char>(random() & 255);
    for (const int tw : {0, 1, 3, 4, 5, 64, 76}) {
      const std::string text = encoded(in, tw);
      SCOPED_TRACE(text);
      const Decoded got = decoded(text);
      EXPECT_EQ(0, got.result);
      EXPECT_EQ(in, got.bytes);
    }
  }
}

TEST(B64Decode, FollowsTheRulesForRandomTexts) {
  std::mt19937 random(20070301);
  const std::string alphabet =
      "ABQZaz09+/ABQZaz09+/ABQZaz09+/ABQZaz09+/ \n==*\xFF" + std::string(1, '\0');
  for (int i = 0; i < 200000; ++i) {
    std::string in(random() % 14, '\0');
    for (char& c : in) c = alphabet[random() % alphabet.size()];
    std::string expected;
    const int result = models::base64_decoded(in, expected);
    const Decoded got = decoded(in);
    ASSERT_EQ(result, got.result) << testing::PrintToString(in);
    ASSERT_EQ(expected, got.bytes) << testing::PrintToString(in);
  }
}
