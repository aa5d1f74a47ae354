// SPDX-License-Identifier: MIT
#include "util/Value.h"

#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <errno.h>

#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace util;
using support::Captured;
using support::Fault;
using support::TimeZone;

namespace {

constexpr int kDepth = 1024;  // As deep as a document may be.
constexpr Type kInvalid = static_cast<Type>(9);

struct Kind {
  const char* name;
  Type type;
  Value value;
};

std::vector<Kind> kinds() {
  return {
      {"INTEGER",     INTEGER,     Value(5)                     },
      {"BOOLEAN",     BOOLEAN,     Value(true)                  },
      {"DOUBLE",      DOUBLE,      Value(0.5)                   },
      {"STRING",      STRING,      Value("text")                },
      {"DATE_TIME",   DATE_TIME,   Value(utime_t{5000})         },
      {"BYTE_STRING", BYTE_STRING, Value(byte_string{1, 2})     },
      {"STRUCT",      STRUCT,      Value(value_struct{{"a", 1}})},
      {"ARRAY",       ARRAY,       Value(value_array{1, 2})     },
      {"VOID",        VOID,        Value()                      },
  };
}

// Fills every member: an instant, four characters, three bytes, two entries, one element.
void crowd(Value& v, Type type) {
  v.set_type(DATE_TIME);
  static_cast<utime_t&>(v) = 0x500000001;
  v.set_type(STRING);
  static_cast<std::string&>(v) = "text";
  v.set_type(BYTE_STRING);
  static_cast<byte_string&>(v) = {1, 2, 3};
  v.set_type(STRUCT);
  static_cast<value_struct&>(v) = {
      {"a", 1},
      {"b", 2}
  };
  v.set_type(ARRAY);
  static_cast<value_array&>(v) = {Value(1)};
  v.set_type(type);
}

// The sizes() of a copy of what crowd() fills.
constexpr std::pair<Type, const char*> kCopied[] = {
    {INTEGER,     "0000"},
    {BOOLEAN,     "0000"},
    {DOUBLE,      "0000"},
    {STRING,      "4000"},
    {DATE_TIME,   "0000"},
    {BYTE_STRING, "0300"},
    {STRUCT,      "0020"},
    {ARRAY,       "0001"},
    {VOID,        "0000"},
    {kInvalid,    "0000"},
};

template <class Payload>
Payload& as(Value& v, Type type) {
  v.set_type(type);
  return static_cast<Payload&>(v);
}

// The sizes of the text, the bytes, the map and the array of `v`, whatever its kind.
std::string sizes(Value& v) {
  const Type type = v.get_type();
  std::ostringstream os;
  os << as<std::string>(v, STRING).size() << as<byte_string>(v, BYTE_STRING).size()
     << as<value_struct>(v, STRUCT).size() << as<value_array>(v, ARRAY).size();
  v.set_type(type);
  return os.str();
}

std::string printed(const Value& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

// The text of the type_exception that `read` throws.
template <class Read>
std::string mismatch(Read read) {
  try {
    read();
  } catch (const type_exception& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

// Stands in for std::cerr's buffer and turns off its own flushing after each insertion.
class SyncCounter : private std::stringbuf {
 public:
  SyncCounter() : flags_(std::cerr.flags()), buffer_(std::cerr.rdbuf(this)) {
    std::cerr << std::nounitbuf;
  }
  ~SyncCounter() override {
    std::cerr.rdbuf(buffer_);
    std::cerr.flags(flags_);
  }
  SyncCounter(const SyncCounter&) = delete;
  SyncCounter& operator=(const SyncCounter&) = delete;

  int syncs() const { return syncs_; }

 private:
  int sync() override {
    ++syncs_;
    return 0;
  }

  std::ios::fmtflags flags_;
  std::streambuf* buffer_;
  int syncs_ = 0;
};

using Check = std::string (*)(Value&);

// By Type: reads as that kind, as a constant and as a variable.
template <class Payload>
std::string read_as(Value& v) {
  const Value& constant = v;
  const std::string text = mismatch([&] { static_cast<void>(static_cast<Payload&>(v)); });
  const std::string again =
      mismatch([&] { static_cast<void>(static_cast<const Payload&>(constant)); });
  return text == again ? text : text + " but constant " + again;
}

constexpr Check kChecks[] = {read_as<int>,          read_as<bool>,       read_as<double>,
                             read_as<std::string>,  read_as<utime_t>,    read_as<byte_string>,
                             read_as<value_struct>, read_as<value_array>};

}  // namespace

// ---- kinds ----

TEST(Type, HasFixedNumbers) {
  static_assert(std::is_same<std::underlying_type_t<Type>, int>::value, "32 bits, signed");
  EXPECT_EQ(0, INTEGER);
  EXPECT_EQ(1, BOOLEAN);
  EXPECT_EQ(2, DOUBLE);
  EXPECT_EQ(3, STRING);
  EXPECT_EQ(4, DATE_TIME);
  EXPECT_EQ(5, BYTE_STRING);
  EXPECT_EQ(6, STRUCT);
  EXPECT_EQ(7, ARRAY);
  EXPECT_EQ(8, VOID);
}

TEST(Value, IsVoidByDefault) {
  EXPECT_EQ(VOID, Value().get_type());
  EXPECT_EQ("*VOID*", printed(Value()));
}

TEST(Value, TakesTheKindOfItsArgument) {
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    EXPECT_EQ(kind.type, kind.value.get_type());
  }
}

TEST(Value, TakesConstantsAndVariables) {
  std::string text = "text";
  byte_string bytes = {1};
  value_struct entries;
  value_array elements;
  Value v = 5;
  EXPECT_EQ(STRING, Value(text).get_type());
  EXPECT_EQ(STRING, Value(std::as_const(text)).get_type());
  EXPECT_EQ(BYTE_STRING, Value(bytes).get_type());
  EXPECT_EQ(BYTE_STRING, Value(std::as_const(bytes)).get_type());
  EXPECT_EQ(STRUCT, Value(entries).get_type());
  EXPECT_EQ(STRUCT, Value(std::as_const(entries)).get_type());
  EXPECT_EQ(ARRAY, Value(elements).get_type());
  EXPECT_EQ(ARRAY, Value(std::as_const(elements)).get_type());
  EXPECT_EQ(INTEGER, Value(v).get_type());
  EXPECT_EQ(INTEGER, Value(std::as_const(v)).get_type());
  EXPECT_EQ("text", text);
}

TEST(Value, TakesALiteralForAText) {
  const Value v = "text";
  EXPECT_EQ(STRING, v.get_type());
  EXPECT_EQ("text", printed(v));
}

#if __SIZEOF_SIZE_T__ == 8  // elsewhere this does not compile
TEST(Value, TakesASizeForAnInstantWhereBothAreOneType) {
  if (!std::is_same<size_t, utime_t>::value) GTEST_SKIP() << "other types on this machine";
  Value value(std::string("text").size());
  EXPECT_EQ(util::DATE_TIME, value.get_type());
}
#endif

TEST(Value, LeavesTheOtherMembersEmpty) {
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string expected[] = {"0000", "0000", "0000", "4000", "0000",
                                    "0200", "0010", "0002", "0000"};
    Value v = kind.value;
    EXPECT_EQ(expected[kind.type], sizes(v));
  }
}

TEST(Value, SetTypeTouchesNoPayload) {
  Value v("text");
  v.set_type(INTEGER);
  EXPECT_EQ(INTEGER, v.get_type());
  v.set_type(STRING);
  EXPECT_EQ("text", static_cast<std::string&>(v));
}

// ---- conversions ----

TEST(Value, ConvertsInTheUsualWays) {
  Value number(5), flag(true), real(0.5), text("text"),
      date(utime_t{
          7
  }),
      raw(byte_string{1}), entries(value_struct{{"a", 1}}), elements(value_array{1});
  const int i = number;
  const bool b = flag;
  const double d = real;
  const std::string s = text;
  const std::string direct(text);
  const utime_t t = date;
  const byte_string bytes = raw;
  const value_struct map = entries;
  const value_array array = elements;
  value_struct assigned;
  assigned = entries;
  EXPECT_EQ(5, i);
  EXPECT_TRUE(b);
  EXPECT_EQ(0.5, d);
  EXPECT_EQ("text", s);
  EXPECT_EQ("text", direct);
  EXPECT_EQ(7U, t);
  EXPECT_EQ(1U, bytes.size());
  EXPECT_EQ(1U, map.size());
  EXPECT_EQ(1U, array.size());
  EXPECT_EQ(1U, assigned.size());
  EXPECT_TRUE(flag ? true : false);
}

TEST(Value, ConvertsConstants) {
  const Value number(5), text("text"),
      entries(value_struct{
          {"a", 1}
  });
  const int i = number;
  const std::string& s = text;
  const std::string copy = text;
  EXPECT_EQ(5, i);
  EXPECT_EQ("text", s);
  EXPECT_EQ("text", copy);
  EXPECT_EQ(1U, static_cast<const value_struct&>(entries).count("a"));
}

TEST(Value, IsChangedThroughItsConversions) {
  Value v(value_struct{});
  static_cast<value_struct&>(v)["list"] = value_array{1, "x", true};
  Value& list = static_cast<value_struct&>(v)["list"];
  int& first = static_cast<value_array&>(list)[0];
  first = 7;
  EXPECT_EQ("(\"list\" = (7, x, true))", printed(v));
}

TEST(TypeAssert, AcceptsTheKindItExpects) {
  const Captured error(stderr);
  for (Kind& kind : kinds()) {
    if (kind.type == VOID) continue;
    SCOPED_TRACE(kind.name);
    EXPECT_EQ("<nothing thrown>", kChecks[kind.type](kind.value));
  }
}

TEST(TypeAssert, NamesBothKinds) {
  const Captured error(stderr);
  for (Kind& kind : kinds()) {
    for (const Kind& expected : kinds()) {
      if (expected.type == VOID || expected.type == kind.type) continue;
      EXPECT_EQ(std::string(kind.name) + " is not " + expected.name,
                kChecks[expected.type](kind.value));
    }
  }
}

TEST(TypeAssert, NamesAVoidVoid) {
  const Captured error(stderr);
  Value v;
  EXPECT_EQ("VOID is not INTEGER", read_as<int>(v));
}

TEST(TypeAssert, NamesATagOutsideTheKinds) {
  const Captured error(stderr);
  Value v(5);
  for (const Type type : {kInvalid, static_cast<Type>(-1), static_cast<Type>(2147483647)}) {
    v.set_type(type);
    EXPECT_EQ("<<invalid type>> is not INTEGER", read_as<int>(v));
  }
}

TEST(TypeAssert, WritesTheLineToStandardErrorFirst) {
  Captured error(stderr);
  Value v("text");
  EXPECT_THROW(static_cast<void>(static_cast<int&>(v)), type_exception);
  EXPECT_EQ("STRING is not INTEGER\n", error.text());
}

TEST(TypeAssert, FlushesStandardError) {
  const SyncCounter counter;
  Value v("text");
  EXPECT_THROW(static_cast<void>(static_cast<int&>(v)), type_exception);
  EXPECT_EQ(1, counter.syncs());
}

TEST(TypeAssert, LeavesTheValueAsItWas) {
  const Captured error(stderr);
  Value v("text");
  EXPECT_THROW(static_cast<void>(static_cast<bool&>(v)), type_exception);
  EXPECT_EQ("text", static_cast<std::string&>(v));
}

TEST(TypeException, HoldsItsText) {
  const type_exception e(std::string("text"));
  const std::exception& base = e;
  EXPECT_STREQ("text", base.what());
}

// ---- copies and moves ----

TEST(Value, CopiesTheNamedMemberOnly) {
  for (const auto& row : kCopied) {
    SCOPED_TRACE(row.first);
    Value v;
    crowd(v, row.first);
    Value copy(v);
    EXPECT_EQ(row.first, copy.get_type());
    EXPECT_EQ(row.second, sizes(copy));
    EXPECT_EQ("4321", sizes(v));
  }
}

TEST(Value, MovesLikeItCopies) {
  for (const auto& row : kCopied) {
    SCOPED_TRACE(row.first);
    Value v;
    crowd(v, row.first);
    Value moved(std::move(v));
    EXPECT_EQ(row.first, moved.get_type());
    EXPECT_EQ(row.second, sizes(moved));
  }
}

TEST(Value, CopiesAndMovesScalars) {
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string expected = printed(kind.value);
    Value copy(kind.value);
    EXPECT_EQ(expected, printed(copy));
    const Value moved(std::move(copy));
    EXPECT_EQ(expected, printed(moved));
  }
}

TEST(Value, AssignsEveryMember) {
  for (const Type type : {INTEGER, STRING, STRUCT, VOID, kInvalid}) {
    SCOPED_TRACE(type);
    Value v;
    crowd(v, type);
    Value copy = "other";
    Value& result = copy = v;
    EXPECT_EQ(&copy, &result);
    EXPECT_EQ(type, copy.get_type());
    EXPECT_EQ("4321", sizes(copy));
    EXPECT_EQ("4321", sizes(v));
    EXPECT_EQ(0x500000001U, as<utime_t>(copy, DATE_TIME));
  }
}

TEST(Value, MoveAssignsLikeItAssigns) {
  for (const Type type : {INTEGER, STRING, STRUCT, VOID, kInvalid}) {
    SCOPED_TRACE(type);
    Value v;
    crowd(v, type);
    Value moved = "other";
    Value& result = moved = std::move(v);
    EXPECT_EQ(&moved, &result);
    EXPECT_EQ(type, moved.get_type());
    EXPECT_EQ("4321", sizes(moved));
    EXPECT_EQ(0x500000001U, as<utime_t>(moved, DATE_TIME));
  }
}

TEST(Value, AssignmentEmptiesWhatTheSourceHasNot) {
  Value copied, moved;
  crowd(copied, STRUCT);
  crowd(moved, STRUCT);
  const Value five(5);
  copied = five;
  moved = Value(5);
  EXPECT_EQ("0000", sizes(copied));
  EXPECT_EQ("0000", sizes(moved));
}

TEST(Value, IsItselfAfterSelfAssignment) {
  Value v;
  crowd(v, STRUCT);
  Value& same = v;
  v = same;
  EXPECT_EQ("4321", sizes(v));
  v = std::move(same);
  EXPECT_EQ("4321", sizes(v));
  EXPECT_EQ("(\"a\" = 1, \"b\" = 2)", printed(v));
}

TEST(Value, TakesAnEntryOfItsOwn) {
  Value v(value_struct{
      {"a", value_struct{{"b", "text longer than the short form"}}}
  });
  v = static_cast<value_struct&>(v)["a"];
  EXPECT_EQ("(\"b\" = text longer than the short form)", printed(v));
  v = std::move(static_cast<value_struct&>(v)["b"]);
  EXPECT_EQ("text longer than the short form", printed(v));
  EXPECT_EQ("31000", std::to_string(static_cast<std::string&>(v).size()) + sizes(v).substr(2));
}

TEST(Value, TakesAnElementOfItsOwn) {
  Value v(value_array{
      value_array{1, value_array{2, 3}},
      4
  });
  v = static_cast<value_array&>(v)[0];
  EXPECT_EQ("(1, (2, 3))", printed(v));
  v = std::move(static_cast<value_array&>(v)[1]);
  EXPECT_EQ("(2, 3)", printed(v));
}

TEST(Value, BecomesAnElementOfItself) {
  Value v(value_array{1, 2});
  static_cast<value_array&>(v)[0] = v;
  EXPECT_EQ("((1, 2), 2)", printed(v));
}

TEST(Value, CopiesItsSubtree) {
  const Value v(value_struct{
      {"a", value_array{1}}
  });
  Value copy(v);
  static_cast<value_array&>(static_cast<value_struct&>(copy)["a"])[0] = 2;
  EXPECT_EQ("(\"a\" = (1))", printed(v));
  EXPECT_EQ("(\"a\" = (2))", printed(copy));
}

TEST(Value, MovesWithoutExceptions) {
  EXPECT_TRUE(std::is_nothrow_move_constructible<Value>::value);
  EXPECT_TRUE(std::is_nothrow_move_assignable<Value>::value);
  EXPECT_TRUE(std::is_nothrow_destructible<Value>::value);
}

TEST(Value, IsFitForUseAfterAMove) {
  Value v(value_struct{
      {"a", 1}
  });
  const Value moved(std::move(v));
  v = "text";
  EXPECT_EQ("text", printed(v));
}

TEST(Value, SwapsWhole) {
  Value a = "text", b = value_array{1};
  std::swap(a, b);
  EXPECT_EQ("(1)", printed(a));
  EXPECT_EQ("text", printed(b));
}

TEST(Value, NestsDeeply) {
  Value v = 5;
  for (int level = 0; level < kDepth; ++level) {
    value_array outer;
    outer.push_back(std::move(v));
    v = std::move(outer);
  }
  const Value copy(v);
  EXPECT_EQ(std::string(kDepth, '(') + "5" + std::string(kDepth, ')'), printed(copy));
}

// ---- printing ----

TEST(PrintValue, PrintsANestedValue) {
  const Value v(value_struct{
      {"a", 1                     },
      {"b", value_array{"x", true}}
  });
  EXPECT_EQ("(\"a\" = 1, \"b\" = (x, true))", printed(v));
}

TEST(PrintValue, PrintsEachKind) {
  EXPECT_EQ("-5", printed(-5));
  EXPECT_EQ("true", printed(true));
  EXPECT_EQ("false", printed(false));
  EXPECT_EQ("0.5", printed(0.5));
  EXPECT_EQ("a \"b\"\n", printed("a \"b\"\n"));
  EXPECT_EQ("1970-01-01T00:00:05Z", printed(utime_t{5999}));
  EXPECT_EQ("01:2", printed(byte_string{1, 2}));
  EXPECT_EQ("*VOID*", printed(Value()));
}

TEST(PrintValue, PrintsEmptyContainers) {
  EXPECT_EQ("()", printed(value_struct()));
  EXPECT_EQ("()", printed(value_array()));
}

TEST(PrintValue, PrintsNothingForATagOutsideTheKinds) {
  Value v(5);
  for (const Type type : {kInvalid, static_cast<Type>(-1)}) {
    v.set_type(type);
    EXPECT_EQ("", printed(v));
    EXPECT_EQ("(1, )", printed(value_array{1, v}));
  }
}

TEST(PrintValue, QuotesKeysRaw) {
  EXPECT_EQ("(\"\" = 1, \"a\"b\" = 2)", printed(value_struct{
                                            {"a\"b", 2},
                                            {"",     1}
  }));
}

TEST(PrintValue, SortsKeysByByte) {
  EXPECT_EQ("(\"B\" = 1, \"a\" = 2, \"\xC3\xA4\" = 3)", printed(value_struct{
                                                            {"\xC3\xA4", 3},
                                                            {"a",        2},
                                                            {"B",        1}
  }));
}

TEST(PrintValue, FollowsTheFormatOfTheStream) {
  std::ostringstream os;
  os << std::hex << std::showbase << std::setprecision(2) << Value(value_array{255, 3.14159});
  EXPECT_EQ("(0xff, 3.1)", os.str());
}

TEST(PrintValue, GivesThePendingWidthToItsFirstPart) {
  std::ostringstream os;
  os << std::setw(4) << Value(5) << std::setw(4) << Value(value_array{1, 2}) << std::setw(6)
     << Value(true);
  EXPECT_EQ("   5   (1, 2)  true", os.str());
}

TEST(PrintValue, PadsTheFirstByteOnly) {
  EXPECT_EQ("0a:b", printed(byte_string{0x0A, 0x0B}));
  EXPECT_EQ("01:ff:0", printed(byte_string{0x01, 0xFF, 0x00}));
  EXPECT_EQ("80", printed(byte_string{0x80}));
}

TEST(PrintValue, LeavesTheStreamInHexadecimalAfterBytes) {
  std::ostringstream os;
  os << Value(byte_string{0x01, 0xFF, 0x00}) << ' ' << 255 << ' ' << std::setw(4) << 10;
  EXPECT_EQ("01:ff:0 ff 000a", os.str());
}

TEST(PrintValue, LeavesWidthAndFillPendingAfterNoBytes) {
  std::ostringstream os;
  os << Value(byte_string());
  EXPECT_EQ("", os.str());
  EXPECT_EQ(2, os.width());
  EXPECT_EQ('0', os.fill());
  os << 5 << ' ' << 10;
  EXPECT_EQ("05 10", os.str());
}

TEST(PrintValue, PadsWhatFollowsNoBytesInAnArray) {
  EXPECT_EQ("(0)", printed(value_array{byte_string()}));
  EXPECT_EQ("(, 5)", printed(value_array{byte_string(), 5}));
  EXPECT_EQ("(\"a\" = 0)", printed(value_struct{
                               {"a", byte_string()}
  }));
}

TEST(PrintValue, PrintsLaterNumbersOfATreeInHexadecimal) {
  EXPECT_EQ("(255, 01, ff)", printed(value_array{255, byte_string{1}, 255}));
}

TEST(PrintValue, PrintsInstantsAsLocalTimeWithAFixedZ) {
  const Value winter(utime_t{1199185200999}), summer(utime_t{1214906400000});
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ("2008-01-01T12:00:00Z", printed(winter));
  EXPECT_EQ("2008-07-01T12:00:00Z", printed(summer));
}

TEST(PrintValue, PrintsNothingForAnInstantWithoutLocalTime) {
  const Fault fault("localtime_r", EOVERFLOW);
  EXPECT_EQ("", printed(utime_t{5000}));
}

TEST(PrintValue, ReturnsTheStream) {
  std::ostringstream os;
  Value v(5);
  EXPECT_EQ(&os, &(os << v));
  EXPECT_EQ(&os, &(os << std::as_const(v)));
}

TEST(PrintValue, IsAMemberToo) {
  std::ostringstream os;
  Value(5).print(os);
  EXPECT_EQ("5", os.str());
}

TEST(PrintValue, IsAFunctionOfTheGlobalNamespace) {
  std::ostream& (*const print)(std::ostream&, util::Value&) = &::operator<<;
  std::ostringstream os;
  Value v(5);
  print(os, v);
  EXPECT_EQ("5", os.str());
}

// Each of these namespaces hides the global operators behind one of its own.
namespace util {
struct LocalRecord {};
static std::ostream& operator<<(std::ostream& os, const LocalRecord&) { return os << "record"; }
static void print_inside(std::ostream& os, Value& v) {
  os << v << std::as_const(v) << LocalRecord();
}
}  // namespace util

namespace app {
struct Record {};
static std::ostream& operator<<(std::ostream& os, const Record&) { return os << "record"; }
static void print_inside(std::ostream& os, util::Value& v) {
  os << v << std::as_const(v) << Record();
}
}  // namespace app

TEST(PrintValue, IsReachedFromInsideTheLibrary) {
  std::ostringstream os;
  Value v("x");
  util::print_inside(os, v);
  EXPECT_EQ("xxrecord", os.str());
}

TEST(PrintValue, IsReachedFromAnyNamespace) {
  std::ostringstream os;
  Value v("x");
  app::print_inside(os, v);
  EXPECT_EQ("xxrecord", os.str());
}
