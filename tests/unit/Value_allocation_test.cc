// SPDX-License-Identifier: MIT
// What values cost, and what is left where memory runs out.
#include "tests/support/allocations.h"
#include "util/Value.h"

#include <new>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

using namespace util;
using support::AllocationFault;
using support::allocations;

namespace {

const std::string kLong(100, 'x');

value_struct tree() {
  return {
      {"list", value_array{1, kLong, byte_string(100, 1)}},
      {"map",  value_struct{{kLong, 2}}                  }
  };
}

std::string printed(const Value& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

}  // namespace

TEST(ValueAllocations, AMoveMakesNone) {
  Value source(tree());
  Value target("text");
  const long before = allocations();
  Value moved(std::move(source));
  target = std::move(moved);
  Value from_text(std::move(static_cast<value_struct&>(target)["map"]));
  EXPECT_EQ(before, allocations());
}

TEST(ValueAllocations, AScalarMakesNone) {
  const long before = allocations();
  const Value number(5), flag(true), real(0.5), date(utime_t{5}), nothing, text("short");
  const Value copy(number);
  EXPECT_EQ(before, allocations());
}

TEST(ValueAllocations, TakingOverAContainerMakesNone) {
  value_struct entries = tree();
  std::string text = kLong;
  const long before = allocations();
  const Value v(std::move(entries)), t(std::move(text));
  EXPECT_EQ(before, allocations());
}

TEST(ValueAllocations, AFailedAssignmentChangesNothing) {
  const Value source(tree());
  const std::string old = printed(value_array{kLong, 5});
  bool done = false;
  long nth = 1;
  for (; !done; ++nth) {
    Value target(value_array{kLong, 5});
    try {
      const AllocationFault fault(nth);
      target = source;
      done = true;
    } catch (const std::bad_alloc&) {
      ASSERT_EQ(old, printed(target));
    }
  }
  EXPECT_GT(nth, 5);
}

TEST(ValueAllocations, AFailedCopyLeaksNothing) {  // As the leak sanitizer sees.
  const Value source(tree());
  bool done = false;
  for (long nth = 1; !done; ++nth) {
    try {
      const AllocationFault fault(nth);
      const Value copy(source);
      done = true;
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
  EXPECT_TRUE(done);
}
