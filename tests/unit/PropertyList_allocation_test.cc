// SPDX-License-Identifier: MIT
// Nothing is lost, and nothing leaks, when memory runs out (leaks show under the leak checker).
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "util/PropertyList.h"

#include <new>

#include <gtest/gtest.h>
#include <ticpp.h>

using namespace util;
using support::AllocationFault;
using support::allocations;
using support::TempDir;

TEST(SaveOutOfMemory, KeepsTheListAndTheFile) {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["a"] = value_array{Value("some text that is too long for a short string"), Value(1)};
  list.saveDurably();
  list["b"] = value_struct{
      {"c", Value(utime_t{1000})       },
      {"d", Value(byte_string{1, 2, 3})}
  };
  bool fired = true;
  for (long nth = 1; fired; ++nth) {
    SCOPED_TRACE(nth);
    {
      const AllocationFault fault(nth);
      try {
        list.saveDurably();
      } catch (const std::bad_alloc&) {
      }
      fired = fault.fired();
    }
    EXPECT_EQ(2U, list.getProperties().size());
    PropertyList again(dir.file("x"));
    again.load();
    EXPECT_EQ(1U, again.getProperties().count("a"));
    for (const std::string& name : dir.list()) EXPECT_TRUE(name == "x" || name == "x~") << name;
  }
}

TEST(LookUp, AllocatesNothingForAnElementThatWasLookedUpBefore) {
  const TempDir dir;
  dir.write("x", "<r><first>1</first><second>2</second></r>");
  ticpp::Document document;
  document.LoadFile(dir.file("x"));
  const auto walk = [&document] {
    const ticpp::Element* const root = document.FirstChildElement("r");
    const ticpp::Element* const first = root->FirstChildElement("first");
    int number = 0;
    first->NextSiblingElement("second")->GetText(&number);
    return first->NextSiblingElement("third", false) == nullptr ? number : 0;
  };
  EXPECT_EQ(2, walk());
  const long before = allocations();
  EXPECT_EQ(2, walk());
  EXPECT_EQ(before, allocations());
}
