// SPDX-License-Identifier: MIT
#include "service/json.h"

#include "tests/support/clock.h"
#include "tests/support/locale.h"
#include "tests/support/program.h"

#include <cmath>
#include <limits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using service::from_json;
using service::json_error;
using service::to_json;
using util::Value;
using util::value_array;
using util::value_struct;

// What went wrong, "" for nothing.
std::string fault(const std::string& text, const service::JsonLimits& limits = {}) {
  try {
    from_json(text, limits);
    return "";
  } catch (const json_error& e) {
    return e.what();
  }
}

// Something of every kind, with texts that parsers stumble over.
Value everything() {
  const std::string odd_key = "key \" \\ \n \x01 </script> \xE2\x80\xA8";
  const value_array reals = {0.1, -0.0, 1e21, 5e-324, 1.7976931348623157e308, 3.0};
  return value_struct{
      {"array",   value_array{1, value_array{}, value_struct{}, Value()}},
      {"bytes",   util::byte_string({0, 255, 16})                       },
      {"date",    util::utime_t{1209650639250}                          },
      {"flags",   value_array{true, false}                              },
      {"integer", std::numeric_limits<int>::min()                       },
      {odd_key,   "\x7F\t\b\f\r/\xF0\x9F\x98\x80"                       },
      {"latin",   "Caf\xE9"                                             },
      {"reals",   reals                                                 },
      {"void",    Value()                                               },
  };
}

// The value with doubles for integers, without a sign at 0: other parsers tell neither apart.
Value with_plain_numbers(const Value& v) {
  switch (v.get_type()) {
    case util::INTEGER: return static_cast<double>(static_cast<const int&>(v));
    case util::DOUBLE: return static_cast<const double&>(v) + 0.0;
    case util::STRUCT: {
      value_struct entries = v;
      for (auto& entry : entries) entry.second = with_plain_numbers(entry.second);
      return entries;
    }
    case util::ARRAY: {
      value_array elements = v;
      for (Value& element : elements) element = with_plain_numbers(element);
      return elements;
    }
    default: return v;
  }
}

}  // namespace

TEST(ToJson, WritesEachKind) {
  EXPECT_EQ("-2147483648", to_json(std::numeric_limits<int>::min()));
  EXPECT_EQ("true", to_json(true));
  EXPECT_EQ("false", to_json(false));
  EXPECT_EQ("\"text\"", to_json("text"));
  EXPECT_EQ("\"AP8Q\"", to_json(util::byte_string({0, 255, 16})));
  EXPECT_EQ("\"\"", to_json(util::byte_string()));
  EXPECT_EQ("null", to_json(Value()));
  EXPECT_EQ("{}", to_json(value_struct()));
  EXPECT_EQ("[]", to_json(value_array()));
  EXPECT_EQ(R"({"a":1,"b":["x",true]})", to_json(value_struct{
                                             {"a", 1                     },
                                             {"b", value_array{"x", true}}
  }));
}

TEST(ToJson, WritesDoublesThatComeBackEqual) {
  EXPECT_EQ("0.1", to_json(0.1));
  EXPECT_EQ("3.0", to_json(3.0));
  EXPECT_EQ("-0.0", to_json(-0.0));
  EXPECT_EQ("1e+21", to_json(1e21));
  EXPECT_EQ("3.141592653589793", to_json(3.141592653589793));
  EXPECT_EQ("5e-324", to_json(5e-324));
}

TEST(ToJson, WritesNullForWhatIsNoFiniteNumber) {
  EXPECT_EQ("null", to_json(std::numeric_limits<double>::infinity()));
  EXPECT_EQ("null", to_json(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ("null", to_json(std::nan("")));
}

TEST(ToJson, WritesInstantsInUtcWithMilliseconds) {
  const support::TimeZone zone("EST5EDT");
  EXPECT_EQ("\"1970-01-01T00:00:00.000Z\"", to_json(util::utime_t{0}));
  EXPECT_EQ("\"2008-05-01T14:03:59.250Z\"", to_json(util::utime_t{1209650639250}));
  EXPECT_EQ("\"2000-02-29T23:59:59.999Z\"", to_json(util::utime_t{951868799999}));
  EXPECT_EQ("\"2100-03-01T00:00:00.000Z\"", to_json(util::utime_t{4107542400000}));
  EXPECT_EQ("\"9999-12-31T23:59:59.000Z\"", to_json(util::utime_t{253402300799000}));
  EXPECT_EQ("\"584556019-04-03T14:25:51.615Z\"",
            to_json(std::numeric_limits<util::utime_t>::max()));
}

TEST(ToJson, EscapesWhatJsonWantsEscaped) {
  EXPECT_EQ(R"("\" \\ \b\f\n\r\t \u0000\u0001\u001F /")",
            to_json(std::string("\" \\ \b\f\n\r\t \0\x01\x1F /", 15)));
  EXPECT_EQ("\"\x7F caf\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x80\xA8\"",
            to_json("\x7F caf\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x80\xA8"));
}

TEST(ToJson, ReplacesWhatIsNotUtf8) {
  EXPECT_EQ("\"Caf\xEF\xBF\xBD\"", to_json("Caf\xE9"));
  EXPECT_EQ("{\"\xEF\xBF\xBD\":1}", to_json(value_struct{
                                        {"\xFF", 1}
  }));
}

TEST(ToJson, KeepsKeysApartThatReplacingMakesEqual) {
  const std::string mark = "\xEF\xBF\xBD";
  EXPECT_EQ("{\"" + mark + "\":1,\"" + mark + mark + "\":2,\"" + mark + mark + mark + "\":3}",
            to_json(value_struct{
                {mark,   1},
                {"\xFE", 2},
                {"\xFF", 3}
  }));
}

TEST(ToJson, IsSafeInsideAScriptElementOnRequest) {
  EXPECT_EQ(R"({"\u003C/b>":"\u003C!-- \u2028\u2029 \u003C/script>"})",
            to_json(
                value_struct{
                    {"</b>", "<!-- \xE2\x80\xA8\xE2\x80\xA9 </script>"}
  },
                service::IN_SCRIPT));
}

TEST(ToJson, IndentsOnRequest) {
  EXPECT_EQ("{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": []\n}",
            to_json(
                value_struct{
                    {"a", value_array{1, value_struct()}},
                    {"b", value_array()                 }
  },
                service::INDENTED));
}

TEST(ToJson, WritesNumbersTheSameInEveryLocale) {
  const support::CommaLocale locale;
  EXPECT_EQ("[1000000,0.5]", to_json(value_array{1000000, 0.5}));
  EXPECT_EQ(0.5, static_cast<double>(from_json("0.5")));
}

TEST(FromJson, ReadsEachKind) {
  EXPECT_EQ(-12, static_cast<int>(from_json(" -12\n")));
  EXPECT_TRUE(static_cast<bool>(from_json("true")));
  EXPECT_EQ(1.5, static_cast<double>(from_json("15e-1")));
  EXPECT_EQ("a\n\xF0\x9F\x98\x80", static_cast<std::string>(from_json(R"("a\n\uD83D\uDE00")")));
  EXPECT_EQ(std::string("\0", 1), static_cast<std::string>(from_json(R"("\u0000")")));
  EXPECT_EQ(util::VOID, from_json("null").get_type());
  std::ostringstream text;
  text << from_json(R"({"a": {"b": [1, [true], {}]}, "": []})");
  EXPECT_EQ("(\"\" = (), \"a\" = (\"b\" = (1, (true), ())))", text.str());
}

TEST(FromJson, TakesIntegersThatDoNotFitAsDoublesUpTo2To53) {
  EXPECT_EQ(util::INTEGER, from_json("2147483647").get_type());
  EXPECT_EQ(2147483648.0, static_cast<double>(from_json("2147483648")));
  EXPECT_EQ(-9007199254740992.0, static_cast<double>(from_json("-9007199254740992")));
  EXPECT_EQ("1:1: the integer is beyond 2^53, a double might lose digits of it",
            fault("9007199254740993"));
  EXPECT_EQ(1e300, static_cast<double>(from_json("1e300")));
  EXPECT_EQ(util::DOUBLE, from_json("1.0").get_type());
}

TEST(FromJson, ReadsTheNearestDouble) {
  for (const double number : {0.1, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308,
                              123456789012345.67, 9007199254740993.0 / 3}) {
    EXPECT_EQ(number, static_cast<double>(from_json(to_json(number))));
  }
  EXPECT_EQ(0.30000000000000004, static_cast<double>(from_json("0.3000000000000000444089")));
}

TEST(FromJson, SaysWhereAFaultIs) {
  EXPECT_EQ("1:1: The document is empty.", fault(""));
  EXPECT_EQ("2:8: Missing a comma or '}' after an object member.", fault("{\n\"a\": 1 2}"));
  const auto where = [](const std::string& text) {
    const std::string whole = fault(text);
    return whole.substr(0, whole.find(' '));
  };
  EXPECT_EQ("1:2:", where("[}"));
  EXPECT_EQ("3:1:", where("[\n1\nx]"));
  EXPECT_EQ("1:3:", where("1 2"));
  EXPECT_EQ("1:3:", where("\"a"));
  for (const char* const text :
       {"[\"\n\"]", "[\"\xFF\"]", "[\"\xC3\"]", "[\"\xC3", "{\"\xED\xA0\x80\": \"\\x\"}"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ("1:3:", where(text));
  }
  EXPECT_EQ("1:3: Invalid encoding in string.", fault("[\"\xFF\"]"));
}

TEST(FromJson, RefusesWhatIsNotJson) {
  for (const char* const text :
       {"[1,]",    "{\"a\":1,}",  "{a:1}",    "'a'",          "NaN",     "Infinity", "-",
        "01",      "1.",          ".5",       "+1",           "1e",      "tru",      "\"\t\"",
        "\"\\x\"", "\"\\uD800\"", "\"\xFF\"", "\"\xC0\xAF\"", "// x\n1", "[1] x",    "1e999"}) {
    SCOPED_TRACE(text);
    EXPECT_NE("", fault(text));
  }
  EXPECT_EQ("1:2: a NUL byte in the text", fault(std::string("1\0 ", 3)));
}

TEST(FromJson, RefusesATextThatIsCutOff) {
  const std::string text = R"({"a\n\u20AC": [-1.5e+3, true, null, "\uD83D\uDE00"], "b": {}})"
                           "\n";
  EXPECT_EQ("", fault(text));
  for (size_t size = 0; size + 2 < text.size(); ++size) {
    EXPECT_NE("", fault(text.substr(0, size))) << size;
  }
}

TEST(FromJson, ReadsEveryEscape) {
  EXPECT_EQ("\" \\ / \b\f\n\r\t A \xC3\xA9 \xE2\x82\xAC \xEF\xBF\xBF \xF4\x8F\xBF\xBF",
            static_cast<std::string>(
                from_json(R"("\" \\ \/ \b\f\n\r\t \u0041 \u00e9 \u20AC \uffff \uDBFF\uDFFF")")));
  EXPECT_EQ("1:3: Incorrect hex digit after \\u escape in string.", fault(R"(" \u-123")"));
  EXPECT_EQ("1:3: Invalid escape character in string.", fault(R"(" \U0041")"));
}

TEST(FromJson, RefusesHalfASurrogatePair) {
  EXPECT_EQ("1:3: The surrogate pair in string is invalid.", fault(R"(["\uD83D"])"));
  EXPECT_EQ("1:3: The surrogate pair in string is invalid.", fault(R"(["\uD83D\u0041"])"));
  EXPECT_EQ("1:10: the second half of a surrogate pair stands alone", fault(R"(["\uDE00"])"));
  EXPECT_EQ("1:10: the second half of a surrogate pair stands alone", fault(R"({"\uDE00": 1})"));
  EXPECT_EQ("\xF0\x9F\x98\x80 \xED\x9F\xBF",
            static_cast<const std::string&>(from_json(R"("\uD83D\uDE00 \uD7FF")")));
}

TEST(FromJson, RefusesAKeyThatStandsTwice) {
  EXPECT_EQ("2:4: the key \"a\" stands in the object twice", fault("{\"a\":1,\n\"a\":2}"));
  EXPECT_EQ("", fault("[{\"a\":1},{\"a\":2}]"));
}

TEST(FromJson, KeepsToItsLimits) {
  service::JsonLimits limits;
  limits.depth = 2;
  EXPECT_EQ("", fault("[[1]]", limits));
  EXPECT_EQ("1:4: nested deeper than 2", fault("[[[", limits));
  limits.size = 3;
  EXPECT_EQ("", fault("[1]", limits));
  EXPECT_EQ("1:1: the text is larger than 3 bytes", fault("[1] ", limits));
  limits = {};
  limits.depth = 1000000;
  limits.size = 10000000;
  EXPECT_EQ("1:10002: nested deeper than 10000", fault(std::string(1000000, '['), limits));
  EXPECT_EQ("", fault(std::string(10000, '[') + std::string(10000, ']'), limits));
}

TEST(Json, ComesBackEqual) {
  const Value tree = value_struct{
      {"",       value_array{1, -1, 0.1, 1e300, 3.0, true, false, Value()}                    },
      {"nested", value_struct{{"\xC3\xA9", "\n\"\\ </x>"}, {"e", value_array{value_struct()}}}},
  };
  for (const unsigned style : {0U, 1U, 2U, 3U}) {
    std::ostringstream before;
    std::ostringstream after;
    before << tree;
    after << from_json(to_json(tree, style));
    EXPECT_EQ(before.str(), after.str());
    EXPECT_EQ(to_json(tree), to_json(from_json(to_json(tree, style))));
  }
}

// Parsers that are not ours take each form, and find the same in it.
struct Parser {
  const char* name;
  const char* command;  // reads JSON and writes it
};

class OtherParsers : public testing::TestWithParam<Parser> {};

TEST_P(OtherParsers, FindTheSameInIt) {
  const std::string expected = to_json(with_plain_numbers(from_json(to_json(everything()))));
  for (const unsigned style : {0U, 1U, 2U, 3U}) {
    const auto told =
        support::run({"/bin/sh", "-c", GetParam().command}, to_json(everything(), style));
    EXPECT_EQ("", told.err);
    EXPECT_EQ(expected, to_json(with_plain_numbers(from_json(told.out)))) << told.out;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Json, OtherParsers,
    testing::Values(
        Parser{"python",
               "python3 -c 'import json, sys; json.dump(json.load(sys.stdin), sys.stdout)'"},
        Parser{"nodejs",
               "node -e 'const text = require(\"fs\").readFileSync(0, \"utf8\");"
               " console.log(JSON.stringify(JSON.parse(text)))'"},
        Parser{"jq", "jq -c ."}),
    [](const testing::TestParamInfo<Parser>& parser) { return parser.param.name; });
