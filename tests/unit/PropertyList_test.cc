// SPDX-License-Identifier: MIT
// The list in memory.
#include "util/PropertyList.h"

#include "tests/support/files.h"

#include <string>

#include <gtest/gtest.h>

using namespace util;
using support::Captured;

namespace {

// What `action` throws of that kind, or "nothing".
template <class Failure, class Action>
std::string thrown(Action action) {
  const Captured errors(stderr);
  try {
    action();
  } catch (const Failure& e) {
    return e.what();
  }
  return "nothing";
}

PropertyList example() {
  PropertyList list("/nonexistent/list");
  list["bool"] = true;
  list["int"] = 42;
  list["double"] = 0.5;
  list["data"] = byte_string{1, 2, 3};
  list["string"] = "text";
  list["date"] = utime_t{1209650639000};
  list["map"] = value_struct{
      {"a", Value(1)}
  };
  list["vector"] = value_array{Value(1), Value(2)};
  return list;
}

}  // namespace

TEST(PropertyListConstructor, TakesThePathInEachSpellingAndLoadsNothing) {
  const support::TempDir dir;
  dir.write("x", "no property list");
  std::string path = dir.file("x");
  const std::string const_path = path;
  EXPECT_TRUE(PropertyList(path).exists());
  EXPECT_TRUE(PropertyList(const_path).exists());
  EXPECT_TRUE(PropertyList(path.c_str()).exists());
  EXPECT_TRUE(PropertyList(path).getProperties().empty());
}

TEST(PropertyListExists, AsksForTheFileAndTheBackup) {
  const support::TempDir dir;
  const PropertyList list(dir.file("x"));
  EXPECT_FALSE(list.exists());
  EXPECT_FALSE(list.backup_exists());
  dir.write("x~", "");
  EXPECT_FALSE(list.exists());
  EXPECT_TRUE(list.backup_exists());
  dir.write("x", "");
  EXPECT_TRUE(list.exists());
}

TEST(Accessors, GiveThePayload) {
  PropertyList list = example();
  EXPECT_TRUE(list.boolForKey("bool"));
  EXPECT_EQ(42, list.intForKey("int"));
  EXPECT_EQ(0.5, list.doubleForKey("double"));
  EXPECT_EQ((byte_string{1, 2, 3}), list.dataForKey("data"));
  EXPECT_EQ("text", list.stringForKey("string"));
  EXPECT_EQ(1209650639000U, list.dateForKey("date"));
  EXPECT_EQ(1, static_cast<int&>(list.mapForKey("map", false).at("a")));
  EXPECT_EQ(2U, list.vectorForKey("vector", false).size());
  EXPECT_EQ(INTEGER, list.valueForKey("int").get_type());
  EXPECT_EQ(8U, list.getProperties().size());
}

TEST(Accessors, TakeKeysInEachSpelling) {
  PropertyList list = example();
  std::string name = "int";
  const std::string const_name = name;
  EXPECT_EQ(42, list.intForKey(name));
  EXPECT_EQ(42, list.intForKey(const_name));
  EXPECT_EQ(42, list.intForKey("int"));
  std::string map = "map";
  const std::string const_map = map;
  EXPECT_EQ(1U, list.mapForKey(map, false).size());
  EXPECT_EQ(1U, list.mapForKey(const_map, false).size());
  EXPECT_EQ(1U, list.mapForKey("map", false).size());
}

TEST(Accessors, ReferToTheEntry) {
  PropertyList list = example();
  list.boolForKey("bool") = false;
  list.intForKey("int") = 7;
  list.doubleForKey("double") = 1.5;
  list.stringForKey("string") += "!";
  list.dataForKey("data").clear();
  list.mapForKey("map", false)["b"] = 2;
  list.vectorForKey("vector", false).clear();
  list.valueForKey("date") = 5;
  EXPECT_FALSE(list.boolForKey("bool"));
  EXPECT_EQ(7, list.intForKey("int"));
  EXPECT_EQ(1.5, list.doubleForKey("double"));
  EXPECT_EQ("text!", list.stringForKey("string"));
  EXPECT_TRUE(list.dataForKey("data").empty());
  EXPECT_EQ(2U, list.mapForKey("map", false).size());
  EXPECT_TRUE(list.vectorForKey("vector", false).empty());
  EXPECT_EQ(5, list.intForKey("date"));
}

TEST(Accessors, ThrowUnknownKeyWithTheKeyAsText) {
  PropertyList list("/nonexistent/list");
  EXPECT_EQ("a key", thrown<unknown_key>([&] { list.boolForKey("a key"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.intForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.doubleForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.dataForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.stringForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.dateForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.valueForKey("k"); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.mapForKey("k", false); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.mapForKey(std::string("k"), false); }));
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.vectorForKey("k", false); }));
  EXPECT_TRUE(list.getProperties().empty());
}

TEST(Accessors, ThrowTypeExceptionForAnotherKind) {
  PropertyList list = example();
  EXPECT_EQ("INTEGER is not BOOLEAN", thrown<type_exception>([&] { list.boolForKey("int"); }));
  EXPECT_EQ("STRING is not INTEGER", thrown<type_exception>([&] { list.intForKey("string"); }));
  EXPECT_EQ("INTEGER is not DOUBLE", thrown<type_exception>([&] { list.doubleForKey("int"); }));
  EXPECT_EQ("STRING is not BYTE_STRING",
            thrown<type_exception>([&] { list.dataForKey("string"); }));
  EXPECT_EQ("STRUCT is not STRING", thrown<type_exception>([&] { list.stringForKey("map"); }));
  EXPECT_EQ("INTEGER is not DATE_TIME", thrown<type_exception>([&] { list.dateForKey("int"); }));
}

TEST(MapForKey, ThrowsForAnotherKindWhateverTheFlag) {
  PropertyList list = example();
  for (const bool create : {false, true}) {
    EXPECT_EQ("ARRAY is not STRUCT",
              thrown<type_exception>([&] { list.mapForKey("vector", create); }));
    EXPECT_EQ("STRUCT is not ARRAY",
              thrown<type_exception>([&] { list.vectorForKey("map", create); }));
  }
  list["void"];
  EXPECT_EQ("VOID is not STRUCT", thrown<type_exception>([&] { list.mapForKey("void", true); }));
}

TEST(MapForKey, CreatesAnEmptyEntryWhereAsked) {
  PropertyList list("/nonexistent/list");
  EXPECT_TRUE(list.mapForKey("m", true).empty());
  EXPECT_TRUE(list.mapForKey(std::string("n"), true).empty());
  EXPECT_TRUE(list.vectorForKey("v", true).empty());
  EXPECT_EQ(STRUCT, list.valueForKey("m").get_type());
  EXPECT_EQ(STRUCT, list.valueForKey("n").get_type());
  EXPECT_EQ(ARRAY, list.valueForKey("v").get_type());
  list.mapForKey("m", true)["kept"] = 1;
  EXPECT_EQ(1U, list.mapForKey("m", true).size());
}

TEST(SetValueForKey, StoresACopyInPlaceOfTheOldOne) {
  PropertyList list("/nonexistent/list");
  Value value("one");
  list.setValueForKey("k", value);
  static_cast<std::string&>(value) = "changed";
  EXPECT_EQ("one", list.stringForKey("k"));
  list.setValueForKey("k", 5);
  EXPECT_EQ(5, list.intForKey("k"));
}

TEST(SetValueForKey, TakesAPartOfWhatItReplaces) {
  PropertyList list("/nonexistent/list");
  list["k"] = value_struct{
      {"inner", Value("text")}
  };
  list.setValueForKey("k", list.mapForKey("k", false).at("inner"));
  EXPECT_EQ("text", list.stringForKey("k"));
  list.setValueForKey("k", list.valueForKey("k"));
  EXPECT_EQ("text", list.stringForKey("k"));
}

TEST(SetValueForKey, CopiesOnlyWhatTheKindNames) {
  PropertyList list("/nonexistent/list");
  Value value("left behind");
  value.set_type(INTEGER);
  list.setValueForKey("k", value);
  list.valueForKey("k").set_type(STRING);
  EXPECT_EQ("", list.stringForKey("k"));
}

TEST(Subscript, MakesAVoidEntry) {
  PropertyList list("/nonexistent/list");
  EXPECT_EQ(VOID, list["k"].get_type());
  EXPECT_EQ(1U, list.getProperties().size());
}

TEST(ConstList, IsReadable) {
  const PropertyList list = example();
  EXPECT_FALSE(list.exists());
  EXPECT_FALSE(list.backup_exists());
  EXPECT_EQ(8U, list.getProperties().size());
  EXPECT_EQ(1209650639000U, list.dateForKey("date"));
  EXPECT_EQ(INTEGER, list.valueForKey("int").get_type());
  EXPECT_EQ("k", thrown<unknown_key>([&] { list.valueForKey("k"); }));
}

TEST(Dump, PrintsTheListAndANewline) {
  PropertyList list("/nonexistent/list");
  Captured out(stdout);
  list.dump();
  EXPECT_EQ("()\n", out.text());
  list["a"] = 1;
  list["b"] = value_array{Value("x"), Value(true)};
  list.dump();
  EXPECT_EQ("()\n(\"a\" = 1, \"b\" = (x, true))\n", out.text());
}

TEST(Failures, HoldTheirTexts) {
  EXPECT_STREQ("k", unknown_key("k").what());
  EXPECT_STREQ("k", unknown_key(std::string("k")).what());
  std::string file = "/etc/app.plist";
  EXPECT_STREQ("/etc/app.plist: no", save_failed(file, "no").what());
  EXPECT_STREQ("/etc/app.plist: expected integer",
               malformed_property_list(file, "expected integer").what());
  EXPECT_THROW(throw save_failed(file, ""), std::exception);
  EXPECT_THROW(throw malformed_property_list(file, ""), std::exception);
  EXPECT_THROW(throw unknown_key(""), std::exception);
}
