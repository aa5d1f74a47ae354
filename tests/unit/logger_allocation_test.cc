// SPDX-License-Identifier: MIT
// What a message costs in memory. The combined category's name is too long for a string to hold
// without allocating.
#include "tests/support/allocations.h"
#include "util/logger.h"

#include <string>

#include <gtest/gtest.h>

using namespace util;
using support::allocations;

namespace {

const category event_loop("EVENT LOOP");
const category loop_debug = event_loop && DEBUG;

class LoggerAllocation : public testing::Test {
 protected:
  LoggerAllocation() {
    log.setUseParentPublisher(false);
    log.set_checkpoint("a source file with a long name.cc", 1000000);
  }
  ~LoggerAllocation() override { log.setPublisher(nullptr); }

  logger& log = *logger::getLogger("allocation");
};

}  // namespace

TEST_F(LoggerAllocation, IsCounted) {
  const long before = allocations();
  const std::string long_name = loop_debug.name();
  EXPECT_EQ(before + 1, allocations());
}

TEST_F(LoggerAllocation, NoneForANameThatIsRead) {
  const long before = allocations();
  EXPECT_STREQ("EVENT LOOP|DEBUG", loop_debug.name_text());
  EXPECT_EQ(before, allocations());
}

TEST_F(LoggerAllocation, NoneForADroppedMessage) {
  const long before = allocations();
  for (int i = 0; i < 100; ++i) {
    UTIL_LOG(&log, loop_debug, "message %d", i);
    log.log(loop_debug, "f()", "SuperLoop.cc:99", "message %d", i);
  }
  EXPECT_EQ(before, allocations());
  EXPECT_EQ("SuperLoop.cc:99", log.get_checkpoint());
}

TEST_F(LoggerAllocation, NoneForAPublishedMessage) {
  FILE* const sink = fopen("/dev/null", "w");
  ASSERT_NE(nullptr, sink);
  log.setPublisher(new file_publisher(sink));
  log.enable(loop_debug);
  const long before = allocations();
  for (int i = 0; i < 100; ++i) {
    UTIL_LOG(&log, loop_debug, "message %d", i);
    log.log(loop_debug, "f()", "SuperLoop.cc:99", "message %d", i);
  }
  EXPECT_EQ(before, allocations());
}

TEST_F(LoggerAllocation, NoneWithCheckpointingHalted) {
  log.halt_checkpointing();
  const long before = allocations();
  UTIL_LOG(&log, loop_debug, "message");
  EXPECT_EQ(before, allocations());
  log.resume_checkpointing();
}

TEST_F(LoggerAllocation, FailureWhileCreatingALoggerLeavesNothingBehind) {
  logger* const parent = logger::getLogger("parent");
  for (long nth = 1; nth <= 10; ++nth) {
    const support::AllocationFault fault(nth);
    try {
      parent->childLogger("a child with a name that needs memory");
      break;
    } catch (const std::bad_alloc&) {
      ASSERT_TRUE(fault.fired());
    }
  }
  logger* const child = parent->childLogger("a child with a name that needs memory");
  ASSERT_NE(nullptr, child);
  EXPECT_EQ(child, parent->childLogger("a child with a name that needs memory"));
}
