// SPDX-License-Identifier: MIT
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "util/SuperLoop.h"

#include <gtest/gtest.h>

using support::allocations;
using util::Event;
using util::EventLoop;
using util::logger;
using util::SuperLoop;
using util::utime_t;

namespace {

class Idle : public EventLoop {
 public:
  void runLoop(utime_t) override {}
};

class Never : public Event {
 public:
  void run(utime_t) override {}
};

// Allocations of ten passes over three sub-loops and four waiting events, after a first pass.
long allocations_of_ten_passes(logger* log) {
  Idle idle[3];
  SuperLoop loop(log);
  for (Idle& one : idle) loop.addEvent(&one);
  for (int i = 0; i < 4; ++i) loop.addEvent(new Never, 3600000);
  loop.runLoop(0);
  const long before = allocations();
  for (int i = 0; i < 10; ++i) loop.runLoop(0);
  return allocations() - before;
}

}  // namespace

TEST(SuperLoopAllocations, AreNoneWhenMessagesAreDropped) {
  logger* const log = logger::getLogger("dropping");
  EXPECT_EQ(0, allocations_of_ten_passes(log));
}

TEST(SuperLoopAllocations, AreNoneWithCheckpointingHalted) {
  logger* const log = logger::getLogger("halted");
  log->halt_checkpointing();
  EXPECT_EQ(0, allocations_of_ten_passes(log));
}

TEST(SuperLoopAllocations, AreNoneWhenMessagesAreWritten) {
  const support::TempDir dir;
  logger* const log = logger::getLogger("writing");
  log->setPublisher(new util::rolling_file_publisher(dir.file("log").c_str(), 0, 0));
  log->setUseParentPublisher(false);
  log->enable(util::EVENT_LOOP);
  log->enable(util::DEBUG);
  EXPECT_EQ(0, allocations_of_ten_passes(log));
  log->flush();
  EXPECT_NE(std::string::npos, dir.read("log").find("EVENT LOOP|DEBUG: SuperLoop event"));
}

TEST(SuperLoopAllocations, AreOneListNodeForAnAddedLoopOrEvent) {
  SuperLoop loop(logger::getLogger("dropping"));
  Idle idle;
  loop.addEvent(&idle);  // The first messages make their category and room for the checkpoint.
  loop.addEvent(new Never, 1000);
  Event* const event = new Never;
  long before = allocations();
  loop.addEvent(&idle);
  EXPECT_EQ(before + 1, allocations());
  before = allocations();
  loop.addEvent(event, 1000);
  EXPECT_EQ(before + 1, allocations());
}

// Only there is anything of the loop's given back that was added or removed during a pass.
TEST(SuperLoopAllocations, AreGivenBackDuringErasure) {
  class Leaving : public EventLoop {
   public:
    explicit Leaving(SuperLoop& loop) : loop_(loop) {}
    void runLoop(utime_t) override { loop_.removeEvent(this); }

   private:
    SuperLoop& loop_;
  };
  static SuperLoop loop(logger::getLogger("dropping"));
  static const char* seen = nullptr;
  Leaving leaving(loop);
  loop.addEvent(&leaving);
  support::before_release = [] { seen = loop.current_loop(); };
  loop.runLoop(0);
  support::before_release = nullptr;
  EXPECT_STREQ("util::SuperLoop::Erasure", seen);
}
