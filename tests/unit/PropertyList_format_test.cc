// SPDX-License-Identifier: MIT
// What a list looks like in its file, and what is read from one.
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/locale.h"
#include "util/PropertyList.h"

#include <errno.h>
#include <sys/wait.h>

#include <exception>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ticpp.h>

using namespace util;
using support::Fault;
using support::TempDir;
using support::TimeZone;
using testing::HasSubstr;

namespace {

constexpr char kHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
    "<plist version=\"1.0\">\n";

// The value "v" of a list whose dict holds this text.
class Read {
 public:
  explicit Read(const std::string& element) : Read("<key>v</key>" + element, 0) {}

  static Read whole(const std::string& dict) { return {dict, 0}; }

  Value value;
  value_struct properties;

 private:
  Read(const std::string& dict, int /*tag*/) {
    const TempDir dir;
    dir.write("x", kHead + ("<dict>" + dict + "</dict></plist>"));
    PropertyList list(dir.file("x"));
    list.load();
    properties = list.getProperties();
    if (properties.count("v") != 0) value = list.valueForKey("v");
  }
};

template <class T>
T read(const std::string& element) {
  return static_cast<const T&>(Read(element).value);
}

// The failure of loading a dict with this text, its file left out.
std::string failure(const std::string& dict) {
  const TempDir dir;
  dir.write("x", kHead + ("<dict>" + dict + "</dict></plist>"));
  PropertyList list(dir.file("x"));
  try {
    list.load();
  } catch (const malformed_property_list& e) {
    const std::string what = e.what();
    const std::string start = dir.file("x") + ": ";
    return what.compare(0, start.size(), start) == 0 ? what.substr(start.size()) : what;
  }
  return "none";
}

// The element that a value is written as.
std::string written(const Value& value) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list.setValueForKey("v", value);
  list.save();
  const std::string text = dir.read("x");
  const std::string before = std::string(kHead) + "    <dict>\n        <key>v</key>\n        ";
  const std::string behind = "\n    </dict>\n</plist>\n";
  EXPECT_EQ(before, text.substr(0, before.size()));
  return text.substr(before.size(), text.size() - before.size() - behind.size());
}

std::string output_of(const std::string& command) {
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  std::string text;
  for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) text += static_cast<char>(c);
  const int status = pclose(pipe);
  return text + "(exit " + std::to_string(WEXITSTATUS(status)) + ")";
}

// A Value holding `inner` in `depth` arrays.
Value nested(int depth, Value inner) {
  for (int i = 0; i < depth; ++i) {
    value_array around;
    around.push_back(std::move(inner));
    inner = Value(std::move(around));
  }
  return inner;
}

}  // namespace

// ---- writing ----

TEST(Encode, WritesTheWholeDocument) {
  const TempDir dir;
  const TimeZone zone("UTC");
  PropertyList list(dir.file("x"));
  list["tags"] = value_array{Value("a"), Value("b")};
  list["name"] = "disk 1";
  list["size"] = 42;
  list["ratio"] = 0.5;
  list["enabled"] = true;
  list["created"] = utime_t{1209650639000};
  list["blob"] = byte_string{1, 2, 3};
  list.save();
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
      "<plist version=\"1.0\">\n"
      "    <dict>\n"
      "        <key>blob</key>\n"
      "        <data>AQID</data>\n"
      "        <key>created</key>\n"
      "        <date>2008-05-01T14:03:59Z</date>\n"
      "        <key>enabled</key>\n"
      "        <true />\n"
      "        <key>name</key>\n"
      "        <string>disk 1</string>\n"
      "        <key>ratio</key>\n"
      "        <real>0.5</real>\n"
      "        <key>size</key>\n"
      "        <integer>42</integer>\n"
      "        <key>tags</key>\n"
      "        <array>\n"
      "            <string>a</string>\n"
      "            <string>b</string>\n"
      "        </array>\n"
      "    </dict>\n"
      "</plist>\n",
      dir.read("x"));
}

TEST(Encode, WritesAnEmptyList) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list.save();
  EXPECT_EQ(std::string(kHead) + "    <dict />\n</plist>\n", dir.read("x"));
}

TEST(Encode, WritesEachKind) {
  EXPECT_EQ("<integer>-2147483648</integer>", written(std::numeric_limits<int>::min()));
  EXPECT_EQ("<true />", written(true));
  EXPECT_EQ("<false />", written(false));
  EXPECT_EQ("<string>a&lt;b&gt;&amp;&quot;&apos;</string>", written("a<b>&\"'"));
  EXPECT_EQ("<string></string>", written(""));
  EXPECT_EQ("<data></data>", written(byte_string()));
  EXPECT_EQ("<dict />", written(value_struct()));
  EXPECT_EQ("<array />", written(value_array()));
}

TEST(Encode, WritesRealsWithSixSignificantDigits) {
  EXPECT_EQ("<real>1e+06</real>", written(1000000.0));
  EXPECT_EQ("<real>3.14159</real>", written(3.14159265));
  EXPECT_EQ("<real>999999</real>", written(999999.0));
  EXPECT_EQ("<real>0.0001</real>", written(0.0001));
  EXPECT_EQ("<real>1e-05</real>", written(0.00001));
  EXPECT_EQ("<real>-2</real>", written(-2.0));
}

TEST(Encode, WritesDataWithoutLineBreaks) {
  EXPECT_EQ("<data>" + std::string(4000, 'A') + "</data>", written(byte_string(3000, 0)));
}

TEST(Encode, DropsMilliseconds) {
  const TimeZone zone("UTC");
  EXPECT_EQ("<date>1970-01-01T00:00:01Z</date>", written(utime_t{1000}));
  EXPECT_EQ("<date>1970-01-01T00:00:01Z</date>", written(utime_t{1500}));
  EXPECT_EQ("<date>1970-01-01T00:00:01Z</date>", written(utime_t{1999}));
}

TEST(Encode, WritesDatesAsLocalTimeWithAFixedZ) {
  const TimeZone zone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ("<date>2008-01-01T07:00:00Z</date>", written(utime_t{1199188800000}));
  EXPECT_EQ("<date>2008-07-01T08:00:00Z</date>", written(utime_t{1214913600000}));
}

TEST(Encode, RefusesVoidsAndUnknownTags) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  const auto refusal = [&](const Value& value) {
    list.setValueForKey("v", value);
    try {
      list.save();
    } catch (const malformed_property_list& e) {
      return std::string(e.what());
    }
    return std::string("saved");
  };
  EXPECT_EQ(dir.file("x") + ": can't encode void", refusal(Value()));
  EXPECT_EQ(dir.file("x") + ": can't encode void", refusal(value_array{Value()}));
  EXPECT_EQ(dir.file("x") + ": can't encode void", refusal(nested(10, Value())));
  Value odd;
  odd.set_type(static_cast<Type>(9));
  EXPECT_EQ(dir.file("x") + ": can't encode value type", refusal(odd));
  odd.set_type(static_cast<Type>(-1));
  EXPECT_EQ(dir.file("x") + ": can't encode value type", refusal(odd));
  EXPECT_TRUE(dir.list().empty());
  EXPECT_EQ(1U, list.getProperties().size());
}

TEST(Encode, RefusesADateWithoutLocalTime) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["v"] = utime_t{1000};
  for (const char* call : {"localtime_r", "strftime"}) {
    const Fault fault(call, EOVERFLOW);
    EXPECT_THROW(list.save(), malformed_property_list);
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST(Encode, KeepsTheListWhateverHappens) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["a"] = "text";
  list["z"];
  EXPECT_THROW(list.save(), malformed_property_list);
  EXPECT_EQ("text", list.stringForKey("a"));
  list["z"] = 1;
  list.save();
  EXPECT_EQ("text", list.stringForKey("a"));
}

// ---- reading ----

TEST(Decode, ReadsEachKind) {
  EXPECT_EQ(42, read<int>("<integer>42</integer>"));
  EXPECT_TRUE(read<bool>("<true/>"));
  EXPECT_TRUE(read<bool>("<true></true>"));
  EXPECT_FALSE(read<bool>("<false/>"));
  EXPECT_EQ(0.5, read<double>("<real>0.5</real>"));
  EXPECT_EQ("a <b>", read<std::string>("<string>a &lt;b&gt;</string>"));
  EXPECT_EQ((byte_string{1, 2, 3}), read<byte_string>("<data>AQID</data>"));
  EXPECT_TRUE(read<value_struct>("<dict/>").empty());
  EXPECT_TRUE(read<value_array>("<array></array>").empty());
  EXPECT_EQ(2U, read<value_array>("<array><true/><integer>1</integer></array>").size());
}

TEST(Decode, ReadsNestedValues) {
  const auto outer = read<value_struct>(
      "<dict><key>a</key><array><dict><key>b</key><string>c</string></dict></array></dict>");
  const value_array& items = outer.at("a");
  const value_struct& inner = items.at(0);
  EXPECT_EQ("c", static_cast<const std::string&>(inner.at("b")));
}

TEST(Decode, TakesTheLastValueOfAKey) {
  const Read list = Read::whole(
      "<key>v</key><integer>1</integer><key>a</key><true/><key>v</key><integer>2</integer>");
  EXPECT_EQ(2, static_cast<const int&>(list.value));
  EXPECT_EQ(2U, list.properties.size());
}

TEST(Decode, ReadsKeysInAnyOrder) {
  EXPECT_EQ(
      3U,
      Read::whole("<key>c</key><true/><key>a</key><true/><key>b</key><true/>").properties.size());
}

TEST(Decode, RefusesAWrongDict) {
  EXPECT_EQ("expecting 'key'", failure("<string>a</string>"));
  EXPECT_EQ("expecting 'key'", failure("<key>a</key><true/><true/>"));
  EXPECT_EQ("expecting 'key'", failure("<Key>a</Key><true/>"));
  const char kLone[] = "expecting a key name, followed by a value element";
  EXPECT_EQ(kLone, failure("<key>a</key>"));
  EXPECT_EQ(kLone, failure("<key>a</key><true/><key>b</key>"));
  EXPECT_EQ(kLone, failure("<key></key><true/>"));
  EXPECT_EQ(kLone, failure("<key/><true/>"));
  EXPECT_EQ(kLone, failure("<key> </key><true/>"));
  EXPECT_EQ(kLone, failure("<key><b/></key><true/>"));
}

TEST(Decode, ReadsNumbersFromTheStartOfTheText) {
  EXPECT_EQ(12, read<int>("<integer>12abc</integer>"));
  EXPECT_EQ(3, read<int>("<integer>3.9</integer>"));
  EXPECT_EQ(7, read<int>("<integer> 7 </integer>"));
  EXPECT_EQ(1.5, read<double>("<real>1.5x</real>"));
}

TEST(Decode, RefusesWhatIsNoNumber) {
  for (const char* text : {"abc", "99999999999", "-99999999999", "", "<b/>", "x1"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ("expected integer",
              failure("<key>v</key><integer>" + std::string(text) + "</integer>"));
  }
  for (const char* text : {"abc", "nan", "inf", "1e999", "", "<b/>"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ("expected real", failure("<key>v</key><real>" + std::string(text) + "</real>"));
  }
}

TEST(Decode, RefusesAFilledBoolean) {
  EXPECT_EQ("malformed boolean", failure("<key>v</key><true>x</true>"));
  EXPECT_EQ("malformed boolean", failure("<key>v</key><false><b/></false>"));
  EXPECT_EQ("malformed boolean", failure("<key>v</key><true><!-- c --></true>"));
}

TEST(Decode, RefusesAWrongDate) {
  EXPECT_EQ("malformed date", failure("<key>v</key><date>2008-13-45</date>"));
  EXPECT_EQ("malformed date", failure("<key>v</key><date>2008-05-01T14:03:59</date>"));
  EXPECT_EQ("malformed date", failure("<key>v</key><date>x</date>"));
  EXPECT_EQ("expecting date", failure("<key>v</key><date></date>"));
  EXPECT_EQ("expecting date", failure("<key>v</key><date><b/></date>"));
}

TEST(Decode, ReadsTheStartOfADate) {
  EXPECT_EQ(1000U, read<utime_t>("<date>1970-01-01T00:00:01Zulu</date>"));
}

TEST(Decode, ReadsWhateverDataGives) {
  EXPECT_TRUE(read<byte_string>("<data>%%%%</data>").empty());
  EXPECT_EQ((byte_string{'A', 'B', 'C'}), read<byte_string>("<data>QU JD\n*</data>"));
  EXPECT_EQ("expecting data", failure("<key>v</key><data></data>"));
  EXPECT_EQ("expecting data", failure("<key>v</key><data/>"));
}

TEST(Decode, RefusesUnknownElements) {
  EXPECT_EQ("unknown element", failure("<key>v</key><set/>"));
  EXPECT_EQ("unknown element", failure("<key>v</key><String>a</String>"));
  EXPECT_EQ("unknown element", failure("<key>v</key><array><key>a</key></array>"));
  EXPECT_EQ("unknown element", failure("<key>v</key><plist/>"));
}

TEST(Decode, TurnsAStringWithoutTextIntoAFailedLoad) {
  EXPECT_EQ("load failed", failure("<key>v</key><string></string>"));
  EXPECT_EQ("load failed", failure("<key>v</key><string/>"));
  EXPECT_EQ("load failed", failure("<key>v</key><array><string> </string></array>"));
}

TEST(Decode, CondensesBlanksAsTheParserDoes) {
  EXPECT_EQ("a b", read<std::string>("<string>\n  a \n\t b  </string>"));
  EXPECT_EQ(" a\n", read<std::string>("<string>&#x20;a&#x0A;</string>"));
}

TEST(Decode, SkipsCommentsBetweenElements) {
  EXPECT_EQ(1, read<int>("<!-- a --><integer>1</integer><!-- b -->"));
}

// ---- dates ----

TEST(Dates, ComeBackInZonesWithAndWithoutDaylightSaving) {
  for (const char* name : {"UTC", "IST-5:30", "CET-1CEST,M3.5.0,M10.5.0/3",
                           "EST5EDT,M3.2.0,M11.1.0", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
    SCOPED_TRACE(name);
    const TimeZone zone(name);
    for (const utime_t instant :
         {utime_t{0}, utime_t{1000}, utime_t{1199188800000}, utime_t{1214913600000},
          utime_t{2147483648000}, utime_t{4102444800000}, utime_t{253402200000000}}) {
      if (sizeof(time_t) == 4 && instant > 2147483647000) continue;  // past its last second
      EXPECT_EQ(instant, read<utime_t>(written(instant)));
    }
  }
}

TEST(Dates, CrossTheSwitchToDaylightSaving) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");  // 2008-03-30 01:00 UTC
  EXPECT_EQ("<date>2008-03-30T01:59:59Z</date>", written(utime_t{1206838799000}));
  EXPECT_EQ("<date>2008-03-30T03:00:00Z</date>", written(utime_t{1206838800000}));
  EXPECT_EQ(1206838799000U, read<utime_t>("<date>2008-03-30T01:59:59Z</date>"));
  EXPECT_EQ(1206838800000U, read<utime_t>("<date>2008-03-30T03:00:00Z</date>"));
}

TEST(Dates, CrossTheSwitchFromDaylightSaving) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");  // 2008-10-26 01:00 UTC
  EXPECT_EQ("<date>2008-10-26T02:59:59Z</date>", written(utime_t{1224982799000}));
  EXPECT_EQ("<date>2008-10-26T02:00:00Z</date>", written(utime_t{1224982800000}));
  EXPECT_EQ(1224979199000U, read<utime_t>("<date>2008-10-26T01:59:59Z</date>"));
  EXPECT_EQ(1224986400000U, read<utime_t>("<date>2008-10-26T03:00:00Z</date>"));
}

TEST(Dates, BeforeTheEpochAreSignExtended) {
  const TimeZone zone("UTC");
  EXPECT_EQ(static_cast<utime_t>(-86400000LL), read<utime_t>("<date>1969-12-31T00:00:00Z</date>"));
  const bool representable = sizeof(time_t) > 4;  // with 32 bits time begins in December 1901
  EXPECT_EQ(static_cast<utime_t>(representable ? -2208988800000LL : -1000LL),
            read<utime_t>("<date>1900-01-01T00:00:00Z</date>"));
}

TEST(Dates, KeepTheFailureValueOfMktime) {
  const Fault fault("mktime", EOVERFLOW, Fault::kEvery);
  EXPECT_EQ(18446744073709550616U, read<utime_t>("<date>2008-05-01T14:03:59Z</date>"));
  EXPECT_TRUE(fault.fired());
}

// ---- locale ----

TEST(Numbers, AreWrittenAndReadIndependentOfTheLocale) {
  const support::CommaLocale locale;
  EXPECT_EQ("<real>1234.5</real>", written(1234.5));
  EXPECT_EQ("<integer>1234567</integer>", written(1234567));
  EXPECT_EQ(1234.5, read<double>("<real>1234.5</real>"));
  EXPECT_EQ(1.25, read<double>("<real>+1.25 </real>"));
  EXPECT_EQ(1, read<int>("<integer>1.234</integer>"));
  EXPECT_EQ(1234567, read<int>("<integer>1234567</integer>"));
}

// ---- depth ----

TEST(Depth, TheDeepestListIsSavedAndLoaded) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["v"] = nested(1021, 5);
  list.save();
  list.load();
  EXPECT_EQ(ARRAY, list.valueForKey("v").get_type());
  list["v"] = nested(1021, value_array());  // an empty array is as deep as a number
  list.save();
  list.load();
}

TEST(Depth, CountsLevelsAndNotValues) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["v"] = value_array(3000, Value(value_array(2, Value(1))));
  list.save();
  list.load();
  EXPECT_EQ(3000U, list.vectorForKey("v", false).size());
  EXPECT_TRUE(list.problems().empty());
}

TEST(Depth, OneMoreIsRefusedBeforeAFileIsTouched) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["v"] = nested(1022, 5);
  EXPECT_THROW(list.save(), ticpp::Exception);
  EXPECT_THROW(list.saveDurably(), save_failed);
  list["v"] = nested(9000, 5);
  EXPECT_THROW(list.save(), ticpp::Exception);
  EXPECT_TRUE(dir.list().empty());
  EXPECT_EQ(1U, list.getProperties().size());
}

// ---- reasons ----

// The reason nested in the failure of loading a dict with this text.
std::string reason(const std::string& dict) {
  const TempDir dir;
  dir.write("x", kHead + ("<dict>\n" + dict + "</dict></plist>"));
  PropertyList list(dir.file("x"));
  try {
    list.load();
  } catch (const malformed_property_list& failure) {
    try {
      std::rethrow_if_nested(failure);
    } catch (const std::exception& nested) {
      return nested.what();
    }
  }
  return "none";
}

TEST(Reasons, AreNestedWithTheirPlace) {
  const struct {
    const char* dict;
    const char* reason;
  } rows[] = {
      {"<string/>",                        "element string, row 4, column 1"},
      {"<key>a</key><foo/>",               "element foo, row 4, column 13"  },
      {"<key>a</key>",                     "element key, row 4, column 1"   },
      {"<key/><true/>",
       "Text does not exists in the current element "
       "(/plist/dict/key, row 4, column 1)"                                 },
      {"<key>a</key><integer>x</integer>",
       "Could not convert \"x\" to target type "
       "(/plist/dict/integer, row 4, column 13)"                            },
      {"<key>a</key><true>x</true>",       "element true, row 4, column 13" },
      {"<key>a</key><date>x</date>",       "element date, row 4, column 13" },
      {"<key>a</key><string/>",
       "Text does not exists in the current element "
       "(/plist/dict/string, row 4, column 13)"                             },
  };
  for (const auto& row : rows) EXPECT_EQ(row.reason, reason(row.dict)) << row.dict;
  EXPECT_THAT(reason("<key>"), HasSubstr("Error reading end tag. (row 4, column 6)"));
}

// ---- other readers and writers ----

TEST(OtherReaders, ReadWhatIsWritten) {
  const TempDir dir;
  const TimeZone zone("UTC");
  PropertyList list(dir.file("x.plist"));
  list["text"] = "a <b> & \"c\" \xC3\xA4";
  list["int"] = -42;
  list["real"] = 0.25;
  list["on"] = true;
  list["off"] = false;
  list["data"] = byte_string{0, 1, 254, 255};
  list["date"] = utime_t{1209650639000};
  list.vectorForKey("list", true) = {Value(1), Value(value_struct()), Value(value_array())};
  static_cast<value_struct&>(list.vectorForKey("list", true)[1])["k"] = "v";
  list.save();
  EXPECT_EQ("(exit 0)", output_of("xmllint --noout " + dir.file("x.plist")));

  const std::string binary = dir.file("binary");
  const std::string copy = dir.file("copy.plist");
  EXPECT_EQ("(exit 0)", output_of("plistutil -f bin -i " + dir.file("x.plist") + " -o " + binary));
  EXPECT_EQ("bplist00", support::read_file(binary).substr(0, 8));
  EXPECT_EQ("(exit 0)", output_of("plistutil -f xml -i " + binary + " -o " + copy));
  EXPECT_THAT(support::read_file(copy), HasSubstr("<!DOCTYPE plist PUBLIC"));
  EXPECT_THAT(support::read_file(copy), HasSubstr("<date>2008-05-01T14:03:59Z</date>"));

  PropertyList again(copy);
  again.load();
  EXPECT_EQ("a <b> & \"c\" \xC3\xA4", again.stringForKey("text"));
  EXPECT_EQ(-42, again.intForKey("int"));
  EXPECT_EQ(0.25, again.doubleForKey("real"));
  EXPECT_TRUE(again.boolForKey("on"));
  EXPECT_FALSE(again.boolForKey("off"));
  EXPECT_EQ((byte_string{0, 1, 254, 255}), again.dataForKey("data"));
  EXPECT_EQ(1209650639000U, again.dateForKey("date"));
  const value_array& items = again.vectorForKey("list", false);
  ASSERT_EQ(3U, items.size());
  EXPECT_EQ(1, static_cast<const int&>(items[0]));
  EXPECT_EQ("v",
            static_cast<const std::string&>(static_cast<const value_struct&>(items[1]).at("k")));
  EXPECT_TRUE(static_cast<const value_array&>(items[2]).empty());
}

TEST(OtherWriters, LongDataIsReadThoughItIsWrapped) {
  const TempDir dir;
  PropertyList list(dir.file("x.plist"));
  byte_string bytes;
  for (int i = 0; i < 1000; ++i) bytes += static_cast<unsigned char>(i);
  list["data"] = bytes;
  list.save();
  const std::string binary = dir.file("binary");
  EXPECT_EQ("(exit 0)", output_of("plistutil -f bin -i " + dir.file("x.plist") + " -o " + binary));
  EXPECT_EQ("(exit 0)", output_of("plistutil -f xml -i " + binary + " -o " + dir.file("y.plist")));
  PropertyList again(dir.file("y.plist"));
  again.load();
  EXPECT_EQ(bytes, again.dataForKey("data"));
}
