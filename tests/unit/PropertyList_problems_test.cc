// SPDX-License-Identifier: MIT
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/trees.h"
#include "util/PropertyList.h"

#include <unistd.h>

#include <cmath>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace util;
using support::Gardener;
using support::same;
using support::TempDir;
using support::TimeZone;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> problems_of(const Value& value) {
  PropertyList list("/nonexistent/list");
  list.setValueForKey("v", value);
  return list.problems();
}

bool comes_back(PropertyList list, const std::string& file) {
  // Disks are slow to empty a file and fill it again.
  for (const char* suffix : {"", "~", ".tmp"}) unlink((file + suffix).c_str());
  try {
    PropertyList saved(file);
    saved.getProperties() = list.getProperties();
    saved.save();
    PropertyList again(file);
    again.load();
    return same(list.getProperties(), again.getProperties());
  } catch (const std::exception&) {
    return false;
  }
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace

TEST(Problems, AreNoneForWhatComesBack) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  PropertyList list("/nonexistent/list");
  EXPECT_THAT(list.problems(), IsEmpty());
  list["a"] = -5;
  list["b"] = true;
  list["c"] = 0.1;
  list["d"] = "a b\n c\t<&>\"' \xC3\xA4\x01&#x41;";
  list["e"] = utime_t{1209650639000};
  list["f"] = byte_string{0};
  list["g"] = value_struct();
  list["h"] = value_array();
  EXPECT_THAT(list.problems(), IsEmpty());
}

TEST(Problems, NameThePathInTheListsOrder) {
  PropertyList list("/nonexistent/list");
  list["network"] = value_struct{
      {"servers", Value(value_array{Value("ok"), Value(value_struct{{"name", Value("")}})})},
      {"port",    Value(0.1234567)                                                         }
  };
  list["a"];
  EXPECT_THAT(
      list.problems(),
      ElementsAre("a: a void cannot be saved", "network/port: digits beyond six are dropped",
                  "network/servers[1]/name: an empty text cannot be loaded"));
}

TEST(Problems, OfTexts) {
  const char kBlanks[] = "v: blanks are condensed";
  EXPECT_THAT(problems_of(""), ElementsAre("v: an empty text cannot be loaded"));
  EXPECT_THAT(problems_of("  "), ElementsAre("v: a text of blanks cannot be loaded"));
  EXPECT_THAT(problems_of("\n\t"), ElementsAre("v: a text of blanks cannot be loaded"));
  EXPECT_THAT(problems_of(" a"), ElementsAre(kBlanks));
  EXPECT_THAT(problems_of("a "), ElementsAre(kBlanks));
  EXPECT_THAT(problems_of("a  b"), ElementsAre(kBlanks));
  EXPECT_THAT(problems_of("\xEF\xBB\xBF"
                          "a"),
              ElementsAre("v: a byte order mark at the start is dropped"));
  EXPECT_THAT(problems_of("a\xC3"),
              ElementsAre("v: a text that ends inside a character cannot be saved"));
  EXPECT_THAT(problems_of("a\xC3&b"), ElementsAre("v: markup inside a character is not read back"));
}

TEST(Problems, OfKeys) {
  PropertyList list("/nonexistent/list");
  list[""] = 1;
  list["a  b"] = 1;
  EXPECT_THAT(list.problems(), ElementsAre(": the key: an empty text cannot be loaded",
                                           "a  b: the key: blanks are condensed"));
}

TEST(Problems, OfNumbers) {
  EXPECT_THAT(problems_of(1234567.0), ElementsAre("v: digits beyond six are dropped"));
  EXPECT_THAT(problems_of(HUGE_VAL), ElementsAre("v: only finite numbers can be loaded"));
  EXPECT_THAT(problems_of(std::nan("")), ElementsAre("v: only finite numbers can be loaded"));
  EXPECT_THAT(problems_of(1e300), IsEmpty());
  EXPECT_THAT(problems_of(-0.0), IsEmpty());
}

TEST(Problems, OfDates) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const char kOther[] = "v: the local time is not read back as this instant";
  EXPECT_THAT(problems_of(utime_t{1500}), ElementsAre("v: milliseconds are dropped"));
  EXPECT_THAT(problems_of(utime_t{0}), IsEmpty());
  EXPECT_THAT(problems_of(static_cast<utime_t>(-86400000LL)), ElementsAre(kOther));
  EXPECT_THAT(problems_of(utime_t{253402300800000}), ElementsAre(kOther));  // the year 10000
}

TEST(Problems, OfDatesWhoseLocalTimeComesTwice) {
  const char kTwice[] = "v: the local time comes twice";
  {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");  // from 02:00 to 03:00
    EXPECT_THAT(problems_of(utime_t{1224979199000}), IsEmpty());
    EXPECT_THAT(problems_of(utime_t{1224979200000}), ElementsAre(kTwice));
    EXPECT_THAT(problems_of(utime_t{1224986399000}), ElementsAre(kTwice));
    EXPECT_THAT(problems_of(utime_t{1224986400000}), IsEmpty());
    EXPECT_THAT(problems_of(utime_t{1206838800000}), IsEmpty());  // an hour is left out
  }
  const TimeZone zone("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0");  // half an hour
  EXPECT_THAT(problems_of(utime_t{1207405800000}), ElementsAre(kTwice));
  EXPECT_THAT(problems_of(utime_t{1207409400000}), IsEmpty());
}

TEST(Problems, OfDataAndKinds) {
  EXPECT_THAT(problems_of(byte_string()), ElementsAre("v: empty data cannot be loaded"));
  EXPECT_THAT(problems_of(Value()), ElementsAre("v: a void cannot be saved"));
  Value odd;
  odd.set_type(static_cast<Type>(9));
  EXPECT_THAT(problems_of(odd), ElementsAre("v: a value of no type cannot be saved"));
}

TEST(Problems, OfDepth) {
  Value value = 5;
  const auto deepen = [&value](int levels) {
    for (int i = 0; i < levels; ++i) {
      value_array around;
      around.push_back(std::move(value));
      value = Value(std::move(around));
    }
  };
  deepen(1021);
  EXPECT_THAT(problems_of(value), IsEmpty());
  deepen(500);
  const std::vector<std::string> found = problems_of(value);
  ASSERT_EQ(1U, found.size());
  EXPECT_THAT(found[0], testing::EndsWith("[0]: values nested deeper than 1023 cannot be saved"));
}

TEST(Problems, AreFoundExactlyWhereTheListDoesNotComeBack) {
  const TempDir dir;
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  int good = 0;
  int bad = 0;
  for (unsigned seed = 0; seed < 2500; ++seed) {
    PropertyList list(dir.file("x"));
    list.getProperties() = Gardener(seed).dict(3);
    const std::vector<std::string> problems = list.problems();
    const bool equal = comes_back(list, dir.file("x"));
    ASSERT_EQ(equal, problems.empty()) << "seed " << seed << "\n"
                                       << joined(problems) << dir.read("x");
    ++(equal ? good : bad);
  }
  EXPECT_GT(good, 500);
  EXPECT_GT(bad, 500);
}
