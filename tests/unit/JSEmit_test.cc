// SPDX-License-Identifier: MIT
#include "util/JSEmit.h"

#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/locale.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace util;
using support::Captured;
using support::CommaLocale;
using support::TempDir;
using support::TimeZone;

namespace {

constexpr int kDepth = 1024;  // As deep as a document may be.

std::string emitted(const Value& v) { return JSEmit().emitValue(v); }

std::string hex(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    char digits[3];
    snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned>(c) & 255);
    text += digits;
  }
  return text;
}

std::string number_seen(double number) {
  uint64_t bits;
  memcpy(&bits, &number, sizeof(bits));
  char text[20];
  snprintf(text, sizeof(text), "n%016llx", static_cast<unsigned long long>(bits));
  return text;
}

double to_six_digits(double number) {
  char text[40];
  snprintf(text, sizeof(text), "%g", number);
  return atof(text);
}

// What an engine should see of `v`, in the words of kEngine.
std::string seen(const Value& v) {
  std::string text;
  switch (v.get_type()) {
    case INTEGER: return number_seen(static_cast<const int&>(v));
    case BOOLEAN: return static_cast<const bool&>(v) ? "t" : "f";
    case DOUBLE: return number_seen(to_six_digits(v));
    case STRING: return "s" + hex(v) + ";";
    case BYTE_STRING:
      for (const unsigned char byte : static_cast<const byte_string&>(v)) text += number_seen(byte);
      return "[" + text + "]";
    case STRUCT:
      for (const auto& entry : static_cast<const value_struct&>(v)) {
        text += hex(entry.first) + ":" + seen(entry.second);
      }
      return "{" + text + "}";
    case ARRAY:
      for (const Value& element : static_cast<const value_array&>(v)) text += seen(element);
      return "[" + text + "]";
    default: return "?";
  }
}

// Evaluates the file whose name it is given, a byte a character, which leaves the results in
// `results`, and prints what each of them is.
constexpr const char* kEngine = R"js(
function seen(x) {
  const bytes = Buffer.alloc(8);
  if (typeof x === 'number') return 'n' + (bytes.writeDoubleBE(x), bytes.toString('hex'));
  if (typeof x === 'boolean') return x ? 't' : 'f';
  if (typeof x === 'string') return 's' + Buffer.from(x, 'latin1').toString('hex') + ';';
  if (Array.isArray(x)) return '[' + x.map(seen).join('') + ']';
  const entry = (key) => Buffer.from(key, 'latin1').toString('hex') + ':' + seen(x[key]);
  return '{' + Object.keys(x).sort().map(entry).join('') + '}';
}
const script = require('fs').readFileSync(process.argv[2], 'latin1');
const results = new Function(script + '\nreturn results;')();
process.stdout.write(results.map((x) => seen(x) + '\n').join(''));
)js";

// The words of kEngine for `script`, or how the engine failed.
std::string evaluated(const std::string& script) {
  const TempDir dir;
  dir.write("engine.js", kEngine);
  dir.write("script.js", script);
  const std::string command =
      "node " + dir.file("engine.js") + " " + dir.file("script.js") + " 2>&1";
  FILE* const engine = popen(command.c_str(), "r");
  if (engine == nullptr) return "no pipe";
  std::string text;
  for (int c = fgetc(engine); c != EOF; c = fgetc(engine)) text += static_cast<char>(c);
  const int status = pclose(engine);
  return status == 0 ? text : "status " + std::to_string(status) + ": " + text;
}

class RandomTrees {
 public:
  Value tree(int depth) {
    switch (below(depth > 0 ? 7 : 5)) {
      case 0: return static_cast<int>(random_());
      case 1: return below(2) == 0;
      case 2: return ldexp_of(static_cast<double>(random_()));
      case 3: return text();
      case 4: return bytes();
      case 5: return entries(depth);
      default: return elements(depth);
    }
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  double ldexp_of(double number) {
    for (unsigned i = below(200); i > 0; --i) number *= 0.125;
    return below(2) == 0 ? number : -number;
  }

  std::string text() {
    std::string s(below(12), '\0');
    for (char& c : s) c = below(3) == 0 ? "\r\n'\\\"\0"[below(6)] : static_cast<char>(below(256));
    return s;
  }

  byte_string bytes() {
    const std::string s = text();
    return {s.begin(), s.end()};
  }

  value_struct entries(int depth) {
    value_struct made;
    for (unsigned i = below(5); i > 0; --i) made[text()] = tree(depth - 1);
    return made;
  }

  value_array elements(int depth) {
    value_array made;
    for (unsigned i = below(5); i > 0; --i) made.push_back(tree(depth - 1));
    return made;
  }

  std::mt19937 random_{7};
};

}  // namespace

TEST(EmitValue, WritesIntegers) {
  EXPECT_EQ("0", emitted(0));
  EXPECT_EQ("2147483647", emitted(2147483647));
  EXPECT_EQ("-2147483648", emitted(-2147483647 - 1));
}

TEST(EmitValue, WritesBooleans) {
  EXPECT_EQ("true", emitted(true));
  EXPECT_EQ("false", emitted(false));
}

TEST(EmitValue, WritesDoublesWithSixSignificantDigits) {
  const std::pair<double, const char*> rows[] = {
      {0.1,                    "0.1"         },
      {1234567.0,              "1.23457e+06" },
      {999999.0,               "999999"      },
      {999999.5,               "1e+06"       },
      {100000.0,               "100000"      },
      {0.0001,                 "0.0001"      },
      {0.00001,                "1e-05"       },
      {3.14159265,             "3.14159"     },
      {2.50,                   "2.5"         },
      {5.0,                    "5"           },
      {0.0,                    "0"           },
      {-0.0,                   "-0"          },
      {-1.5,                   "-1.5"        },
      {1e300,                  "1e+300"      },
      {5e-324,                 "4.94066e-324"},
      {1e100,                  "1e+100"      },
      {0.5000006,              "0.500001"    },
      {123456.5,               "123456"      },
      {1.7976931348623157e308, "1.79769e+308"}
  };
  for (const auto& row : rows) EXPECT_EQ(row.second, emitted(row.first));
}

// Neighbours of every boundary and tie of six digits, and numbers of all sizes.
TEST(EmitValue, RoundsDoublesLikeTheCLibrary) {
  std::mt19937_64 random(3);
  const auto expect_same = [](double number) {
    char text[40];
    snprintf(text, sizeof(text), "%g", number);
    ASSERT_EQ(text, emitted(number));
  };
  for (int exponent = -8; exponent < 12; ++exponent) {
    for (int i = 0; i < 2000; ++i) {
      const double half = static_cast<double>(random() % 2000000) / 2;  // 123456.5 and its like
      const double number = half * std::pow(10, exponent - 5);
      for (const double signed_number : {number, -number}) {
        expect_same(signed_number);
        expect_same(std::nextafter(signed_number, 0));
        expect_same(std::nextafter(signed_number, 2 * signed_number));
      }
    }
    for (const double edge : {1.0, 9.999995, 9.9999949, 9.99999, 9.9999951, 1.000005}) {
      expect_same(edge * std::pow(10, exponent));
      expect_same(std::nextafter(edge * std::pow(10, exponent), 0));
    }
  }
  for (int i = 0; i < 50000; ++i) {
    const uint64_t bits = random();
    double number;
    memcpy(&number, &bits, sizeof(number));
    expect_same(number);
    expect_same(std::ldexp(static_cast<double>(random() % 100000), static_cast<int>(i % 40) - 20));
  }
}

TEST(EmitValue, WritesWhatIsNoNumberAsAStreamDoes) {
  const double infinite = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ("inf", emitted(infinite));
  EXPECT_EQ("-inf", emitted(-infinite));
  EXPECT_EQ("nan", emitted(nan));
  EXPECT_EQ("-nan", emitted(-nan));
}

TEST(EmitValue, WritesNumbersTheSameInEveryLocale) {
  const Value v(value_array{1234567, 1234.5, byte_string{200}, 1e7});
  const CommaLocale locale;
  char c_library[20];
  snprintf(c_library, sizeof(c_library), "%.1f", 1234.5);
  ASSERT_STREQ("1234,5", c_library);
  std::ostringstream stream;
  stream << 1234.5;
  ASSERT_EQ("1.234,5", stream.str());
  EXPECT_EQ("[ 1234567, 1234.5, [ 200 ], 1e+07 ]", emitted(v));
}

TEST(EmitValue, QuotesAText) {
  EXPECT_EQ("''", emitted(""));
  EXPECT_EQ("'text'", emitted("text"));
}

TEST(EmitValue, EscapesFourBytes) {
  EXPECT_EQ("'a\\'b\\\\c\\n'", emitted("a'b\\c\n"));
  EXPECT_EQ("'\\r\\n\\'\\\\'", emitted("\r\n'\\"));
}

TEST(EmitValue, LeavesADoubleQuote) { EXPECT_EQ("'say \"hi\"'", emitted("say \"hi\"")); }

TEST(EmitValue, LeavesEveryOtherByte) {
  std::string text;
  for (int c = 0; c < 256; ++c) {
    if (c != '\r' && c != '\n' && c != '\'' && c != '\\') text += static_cast<char>(c);
  }
  EXPECT_EQ("'" + text + "'", emitted(text));
}

TEST(EmitValue, WritesLongTexts) {
  for (const size_t length : {2047U, 2048U, 2049U, 4095U, 4096U, 4097U, 100000U}) {
    SCOPED_TRACE(length);
    std::string escaped;
    for (size_t i = 0; i < length; ++i) escaped += "\\n";
    EXPECT_EQ("'" + escaped + "'", emitted(std::string(length, '\n')));
    const std::string plain(length, 'x');
    EXPECT_EQ("[ '" + plain + "', '" + plain + "' ]", emitted(value_array{plain, plain}));
  }
}

TEST(EmitValue, WritesInstantsBare) {
  EXPECT_EQ("2008-05-01T14:03:59UTC", emitted(utime_t{1209650639999}));
}

TEST(EmitValue, WritesInstantsAsLocalTimeWithTheNameOfTheZone) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ("[ 2008-05-01T16:03:59CEST, 2008-01-01T12:00:00CET ]",
            emitted(value_array{utime_t{1209650639000}, utime_t{1199185200000}}));
}

TEST(EmitValue, WritesBytesAsNumbers) {
  EXPECT_EQ("[ 0, 255 ]", emitted(byte_string{0, 255}));
  EXPECT_EQ("[ 128 ]", emitted(byte_string{128}));
}

TEST(EmitValue, WritesEmptyContainersWithTwoBlanks) {
  EXPECT_EQ("{  }", emitted(value_struct()));
  EXPECT_EQ("[  ]", emitted(value_array()));
  EXPECT_EQ("[  ]", emitted(byte_string()));
}

TEST(EmitValue, WritesMapsInTheOrderOfTheirKeys) {
  EXPECT_EQ("{ 'n' : 5, 's' : 'it\\'s' }", emitted(value_struct{
                                               {"s", "it's"},
                                               {"n", 5     }
  }));
}

TEST(EmitValue, QuotesKeysLikeTexts) {
  EXPECT_EQ("{ '' : 1, 'a\\'\\\\\\n' : 2 }", emitted(value_struct{
                                                 {"a'\\\n", 2},
                                                 {"",       1}
  }));
}

TEST(EmitValue, WritesArrays) { EXPECT_EQ("[ 1, 'x', true ]", emitted(value_array{1, "x", true})); }

TEST(EmitValue, Nests) {
  EXPECT_EQ("{ 'a' : [ {  }, [ 1, [  ] ] ], 'b' : { 'c' : 0.5 } }",
            emitted(value_struct{
                {"a", value_array{value_struct(), value_array{1, value_array()}}},
                {"b", value_struct{{"c", 0.5}}                                  }
  }));
}

TEST(EmitValue, RefusesAVoidAnywhere) {
  Captured error(stderr);
  for (const Value& v : {
           Value(), Value(value_array{Value()}
            ), Value(value_struct{ {"a", Value()}      }
            ),
           Value(value_array{ 1,       value_struct{{"a", value_array{"x", Value()}}}}
            )
  }) {
    EXPECT_THAT([&] { emitted(v); },
                testing::ThrowsMessage<type_exception>("cannot encode void values"));
    EXPECT_THROW(JSEmit().emitFunction("f", v), type_exception);
  }
  EXPECT_EQ("", error.text());
}

TEST(EmitValue, WritesNothingForATagOutsideTheKinds) {
  Value v(5);
  v.set_type(static_cast<Type>(9));
  EXPECT_EQ("", emitted(v));
}

TEST(EmitValue, LeavesTheValueAsItWas) {
  Value v(value_struct{
      {"a", value_array{1}}
  });
  JSEmit().emitValue(v);
  EXPECT_EQ("{ 'a' : [ 1 ] }", JSEmit().emitValue(v));
  EXPECT_EQ(STRUCT, v.get_type());
}

TEST(EmitValue, NestsDeeply) {
  Value v = 5;
  std::string expected = "5";
  for (int level = 0; level < kDepth; ++level) {
    value_array outer;
    outer.push_back(std::move(v));
    v = std::move(outer);
  }
  std::string opening, closing;
  for (int level = 0; level < kDepth; ++level) {
    opening += "[ ";
    closing += " ]";
  }
  EXPECT_EQ(opening + "5" + closing, emitted(v));
}

TEST(EmitFunction, WritesFourLinesWithoutALastLineFeed) {
  Value v = 3;
  EXPECT_EQ("function getStatus()\n{\n  return 3;\n}", JSEmit().emitFunction("getStatus", v));
}

TEST(EmitFunction, TakesAnyName) {
  EXPECT_EQ("function ()\n{\n  return 3;\n}", JSEmit().emitFunction("", 3));
  EXPECT_EQ("function a'\n()\n{\n  return 3;\n}", JSEmit().emitFunction("a'\n", 3));
}

TEST(ScriptEngine, SeesWhatTheValueHolds) {
  const Value v(value_struct{
      {"bytes", byte_string{0, 255}                                       },
      {"list",  value_array{1, -0.5, true, "it's \"so\"\\\r\n\t"}         },
      {"map",   value_struct{{"", value_struct()}, {"a'b", value_array()}}},
      {"text",  "gr\xC3\xBC\xC3\x9F \x01\x7F\xFF"                         }
  });
  EXPECT_EQ(seen(v) + "\n", evaluated("const results = [ " + emitted(v) + " ];"));
}

TEST(ScriptEngine, SeesWhatRandomTreesHold) {
  RandomTrees random;
  std::string script, expected, calls;
  for (int i = 0; i < 300; ++i) {
    const Value v = random.tree(5);
    const std::string name = "f" + std::to_string(i);
    script += JSEmit().emitFunction(name, v) + "\n";
    calls += name + "(), ";
    expected += seen(v) + "\n";
  }
  EXPECT_EQ(expected, evaluated(script + "const results = [ " + calls + "];"));
}

TEST(ScriptEngine, SeesNoEntryUnderProto) {
  const Value v(value_struct{
      {"__proto__", 5},
      {"a",         1}
  });
  EXPECT_EQ("{ '__proto__' : 5, 'a' : 1 }", emitted(v));
  EXPECT_EQ("{61:n3ff0000000000000}\n", evaluated("const results = [ " + emitted(v) + " ];"));
}

TEST(ScriptEngine, RefusesBareInstants) {
  EXPECT_NE(std::string::npos,
            evaluated("const results = [ " + emitted(utime_t{5000}) + " ];").find("SyntaxError"));
}
