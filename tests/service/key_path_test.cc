// SPDX-License-Identifier: MIT
#include "service/key_path.h"

#include <sstream>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

util::PropertyList sample() {
  util::PropertyList list("unused");
  list["dhcp"] = true;
  list["name"] = "nas";
  list["network"] = util::value_struct{
      {"mtu",     1500                                                             },
      {"servers", util::value_array{util::value_struct{{"name", "first"}}, "plain"}},
  };
  return list;
}

std::string text(const util::Value& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string text(const util::PropertyList& list) { return text(util::Value(list.getProperties())); }

std::string found(const std::string& path) {
  const util::PropertyList list = sample();
  const util::Value* const value = service::find(list, path);
  return value == nullptr ? "nothing" : text(*value);
}

}  // namespace

TEST(KeyPath, LeadsToValues) {
  EXPECT_EQ("nas", found("name"));
  EXPECT_EQ("1500", found("network/mtu"));
  EXPECT_EQ("first", found("network/servers[0]/name"));
  EXPECT_EQ("plain", found("network/servers[1]"));
}

TEST(KeyPath, FindsNothingWhereAnEntryIsMissingOrOfAnotherKind) {
  for (const char* path : {"x", "x/y", "network/x", "network/servers[2]", "name/x", "name[0]",
                           "network[0]", "network/servers/x", "network/servers[1]/name"}) {
    EXPECT_EQ("nothing", found(path)) << path;
  }
}

TEST(KeyPath, TakesKeysWithItsOwnCharacters) {
  util::PropertyList list("unused");
  list["a/b"] = util::value_struct{
      {"[0]\\", 5}
  };
  EXPECT_EQ(5, service::get(list, R"(a\/b/\[0]\\)", 0));
}

TEST(KeyPath, ChangesWhatItFinds) {
  util::PropertyList list = sample();
  *service::find(list, "network/mtu") = 9000;
  EXPECT_EQ(9000, service::get(list, "network/mtu", 0));
}

TEST(KeyPath, SaysWhyATextIsNotAPath) {
  const struct {
    const char* path;
    const char* message;
  } rows[] = {
      {"",                        "'': a key is empty"                                 },
      {"a//b",                    "'a//b': a key is empty"                             },
      {"a/",                      "'a/': a key is empty"                               },
      {"[0]",                     "'[0]': a key is empty"                              },
      {"a[x]",                    "'a[x]': expected a number and \"]\" behind a \"[\"" },
      {"a[-1]",                   "'a[-1]': expected a number and \"]\" behind a \"[\""},
      {"a[1",                     "'a[1': expected a number and \"]\" behind a \"[\""  },
      {"a[99999999999999999999]",
       "'a[99999999999999999999]': expected a number and \"]\" behind a \"[\""         },
      {"a[1]b",                   "'a[1]b': expected \"/\" or \"[\" behind a \"]\""    },
      {"a\\",                     "'a\\': ends with a \"\\\""                          },
  };
  util::PropertyList list = sample();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_THAT([&] { service::find(list, row.path); },
                testing::ThrowsMessage<service::MalformedPath>(row.message));
    EXPECT_THROW(service::set(list, row.path, 1), service::MalformedPath);
    EXPECT_THROW(service::erase(list, row.path), service::MalformedPath);
  }
}

TEST(KeyPath, GetsEachKindOrTheFallback) {
  util::PropertyList list("unused");
  list["i"] = 1;
  list["b"] = true;
  list["d"] = 0.5;
  list["s"] = "text";
  list["t"] = util::utime_t{1000};
  list["x"] = util::byte_string{1, 2};
  EXPECT_EQ(1, service::get(list, "i", 7));
  EXPECT_TRUE(service::get(list, "b", false));
  EXPECT_EQ(0.5, service::get(list, "d", 7.0));
  EXPECT_EQ("text", service::get(list, "s", "fallback"));
  EXPECT_EQ("text", service::get(list, "s", std::string("fallback")));
  EXPECT_EQ(util::utime_t{1000}, service::get(list, "t", util::utime_t{7}));
  EXPECT_EQ((util::byte_string{1, 2}), service::get(list, "x", util::byte_string{}));

  EXPECT_EQ(7, service::get(list, "none", 7));
  EXPECT_EQ(7, service::get(list, "d", 7));
  EXPECT_TRUE(service::get(list, "i", true));
  EXPECT_EQ(7.0, service::get(list, "i", 7.0));
  EXPECT_EQ("fallback", service::get(list, "x", "fallback"));
  EXPECT_EQ(util::utime_t{7}, service::get(list, "i", util::utime_t{7}));
  EXPECT_EQ(util::byte_string{3}, service::get(list, "s", util::byte_string{3}));
}

TEST(KeyPath, AFallbackMakesNothing) {
  util::PropertyList list("unused");
  service::get(list, "a/b[0]", 1);
  EXPECT_TRUE(list.getProperties().empty());
}

TEST(KeyPath, SetsMakingWhatIsMissing) {
  const std::pair<const char*, const char*> rows[] = {
      {"new",          R"(("d" = ("a" = 1), "l" = (1, 2), "new" = 7))"        },
      {"d",            R"(("d" = 7, "l" = (1, 2)))"                           },
      {"d/a",          R"(("d" = ("a" = 7), "l" = (1, 2)))"                   },
      {"d/b/c",        R"(("d" = ("a" = 1, "b" = ("c" = 7)), "l" = (1, 2)))"  },
      {"l[1]",         R"(("d" = ("a" = 1), "l" = (1, 7)))"                   },
      {"l[2]",         R"(("d" = ("a" = 1), "l" = (1, 2, 7)))"                },
      {"l[2]/x[0][0]", R"(("d" = ("a" = 1), "l" = (1, 2, ("x" = ((7))))))"    },
      {"n[0]/a",       R"(("d" = ("a" = 1), "l" = (1, 2), "n" = (("a" = 7))))"},
  };
  for (const auto& [path, expected] : rows) {
    util::PropertyList list("unused");
    list["d"] = util::value_struct{
        {"a", 1}
    };
    list["l"] = util::value_array{1, 2};
    service::set(list, path, 7);
    EXPECT_EQ(expected, text(list)) << path;
  }
}

TEST(KeyPath, TakesNothingForWhatIsMissing) {
  util::PropertyList list("unused");
  list["a"];
  service::set(list, "a/b", 1);
  EXPECT_EQ(R"(("a" = ("b" = 1)))", text(list));
}

TEST(KeyPath, SetsAPartOfTheListItself) {
  util::PropertyList list = sample();
  service::set(list, "network", *service::find(list, "network/servers[0]"));
  EXPECT_EQ(R"(("dhcp" = true, "name" = nas, "network" = ("name" = first)))", text(list));
}

TEST(KeyPath, ChangesNothingWhereAValueDoesNotFit) {
  const struct {
    const char* path;
    const char* message;
  } rows[] = {
      {"name/a",                "name/a: name is not a dictionary"                              },
      {"name[0]",               "name[0]: name is not an array"                                 },
      {"network[0]",            "network[0]: network is not an array"                           },
      {"network/mtu/a/b",       "network/mtu/a: network/mtu is not a dictionary"                },
      {"network/servers/a",     "network/servers/a: network/servers is not a dictionary"        },
      {"network/servers[3]",    "network/servers[3]: the next element of network/servers is [2]"},
      {"network/servers[2][1]",
       "network/servers[2][1]: the next element of network/servers[2] is [0]"                   },
      {"new/deep[5]",           "new/deep[5]: the next element of new/deep is [0]"              },
  };
  util::PropertyList list = sample();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_THAT([&] { service::set(list, row.path, 1); },
                testing::ThrowsMessage<service::PathMismatch>(row.message));
  }
  EXPECT_EQ(text(sample()), text(list));
}

TEST(KeyPath, Erases) {
  util::PropertyList list = sample();
  EXPECT_TRUE(service::erase(list, "network/servers[0]"));
  EXPECT_TRUE(service::erase(list, "network/mtu"));
  EXPECT_TRUE(service::erase(list, "name"));
  EXPECT_EQ(R"(("dhcp" = true, "network" = ("servers" = (plain))))", text(list));
}

TEST(KeyPath, ErasesNothingThatIsNotThere) {
  util::PropertyList list = sample();
  for (const char* path : {"x", "x/y", "network/x", "network/servers[2]", "name/x", "name[0]"}) {
    EXPECT_FALSE(service::erase(list, path)) << path;
  }
  EXPECT_EQ(text(sample()), text(list));
}
