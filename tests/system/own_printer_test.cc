// SPDX-License-Identifier: MIT
// A program that prints constant values in a way of its own, with either library: its functions are
// taken, wherever it keeps them.
#include "util/Value.h"

#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

using util::Value;

namespace app {

std::ostream& operator<<(std::ostream& os, const Value& v);
std::ostream& operator<<(std::ostream& os, const Value& /*v*/) { return os << "app's"; }

static std::string printed(Value v) {
  std::ostringstream os;
  os << v << " " << std::as_const(v) << " " << Value(5);
  return os.str();
}

}  // namespace app

TEST(OwnPrinter, OfANamespaceIsTakenInIt) { EXPECT_EQ("app's app's app's", app::printed(1)); }

namespace generic {

template <class Character, class Traits>
std::basic_ostream<Character, Traits>& operator<<(std::basic_ostream<Character, Traits>& os,
                                                  const Value& /*v*/) {
  return os << "generic";
}

static std::string printed(const Value& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

}  // namespace generic

TEST(OwnPrinter, MayBeATemplate) { EXPECT_EQ("generic", generic::printed(1)); }

// Before the program declares its own.
TEST(OwnPrinter, IsNotNeeded) {
  std::ostringstream os;
  Value v(1);
  os << v << std::as_const(v) << Value(5);
  EXPECT_EQ("115", os.str());
}

std::ostream& operator<<(std::ostream& os, const Value& v);
std::ostream& operator<<(std::ostream& os, const Value& /*v*/) { return os << "global"; }

TEST(OwnPrinter, OfTheGlobalNamespaceIsTakenForConstantValues) {
  std::ostringstream os;
  Value v(1);
  os << v << " " << std::as_const(v) << " " << Value(5);
  EXPECT_EQ("1 global global", os.str());
}

namespace util {

std::ostream& operator<<(std::ostream& os, const Value& v);
std::ostream& operator<<(std::ostream& os, const Value& /*v*/) { return os << "util's"; }

static std::string printed(Value v) {
  std::ostringstream os;
  os << v << " " << std::as_const(v) << " " << Value(5);
  return os.str();
}

}  // namespace util

TEST(OwnPrinter, OfTheLibrarysNamespaceIsTakenInIt) {
  EXPECT_EQ("util's util's util's", util::printed(1));
}
