// SPDX-License-Identifier: MIT
// Timed events: when they run, with how much time, and how they are released.
#include "tests/unit/SuperLoop_test.h"

#include <stdlib.h>

#include <new>
#include <type_traits>

// ---- timed events ----

TEST_F(SuperLoopTest, GivesEventsWhatIsLeftInGrowingShares) {
  Work work(clock);
  std::vector<utime_t> slices;
  std::function<void(utime_t)> action = [&](utime_t slice) { slices.push_back(slice); };
  loop.addEvent(&work);
  for (int i = 0; i < 3; ++i) loop.addEvent(new Act(action), 0);
  clock.advance(1);
  loop.runLoop(90);
  EXPECT_THAT(work.slices, ElementsAre(22));
  EXPECT_THAT(slices, ElementsAre(30, 90, 90));
  EXPECT_THAT(messages_with("trigger event"),
              ElementsAre("SuperLoop trigger event 1 with timeslice 30",
                          "SuperLoop trigger event 2 with timeslice 90",
                          "SuperLoop trigger event 3 with timeslice 90"));
}

TEST_F(SuperLoopTest, CountsTheEventsThatWaitInTheWalk) {
  Work work(clock);
  std::function<void(utime_t)> nothing = [](utime_t) {};
  loop.addEvent(&work);
  loop.addEvent(new Act(nothing), 90000);
  loop.addEvent(new Act(nothing), 0);
  clock.advance(1);
  loop.runLoop(90);
  EXPECT_THAT(messages_with("trigger event"),
              ElementsAre("SuperLoop trigger event 2 with timeslice 90"));
}

TEST_F(SuperLoopTest, RunsEventsInTheOrderOfTheirAdditionNotOfTheirExpiry) {
  Work work(clock);
  Texts ran;
  std::function<void(utime_t)> later = [&](utime_t) { ran.push_back("later"); };
  std::function<void(utime_t)> sooner = [&](utime_t) { ran.push_back("sooner"); };
  loop.addEvent(&work);
  loop.addEvent(new Act(later), 20);
  loop.addEvent(new Act(sooner), 10);
  clock.advance(100);
  loop.runLoop(0);
  EXPECT_THAT(ran, ElementsAre("later", "sooner"));
}

TEST_F(SuperLoopTest, RunsEventsAddedDuringAPassAfterThoseThatWait) {
  Work work(clock);
  Texts ran;
  std::function<void(utime_t)> waiting = [&](utime_t) { ran.push_back("waiting"); };
  std::function<void(utime_t)> fresh = [&](utime_t) { ran.push_back("fresh"); };
  work.also = [&] {
    for (int i = 0; i < 2; ++i) loop.addEvent(new Act(fresh), 0);
    work.also = nullptr;
  };
  loop.addEvent(&work);
  loop.addEvent(new Act(waiting), 10);
  loop.runLoop(0);
  clock.advance(11);
  loop.runLoop(0);
  EXPECT_THAT(ran, ElementsAre("waiting", "fresh", "fresh"));
}

TEST_F(SuperLoopTest, RunsAnEventOnceAfterItsMillisecond) {
  Work work(clock);
  int runs = 0;
  std::function<void(utime_t)> action = [&](utime_t) { ++runs; };
  loop.addEvent(&work);
  loop.addEvent(new Act(action), 10);
  clock.advance(10);
  loop.runLoop(0);
  EXPECT_EQ(0, runs);
  clock.advance(1);
  loop.runLoop(0);
  EXPECT_EQ(1, runs);
  loop.runLoop(0);
  EXPECT_EQ(1, runs);
}

TEST_F(SuperLoopTest, TestsExpiryAtAReadingOfItsOwn) {
  Work work(clock);
  int runs = 0;
  std::function<void(utime_t)> action = [&](utime_t) { ++runs; };
  loop.addEvent(&work);
  loop.addEvent(new Act(action), 10);
  clock.set(kNow + 6);
  clock.before_reading = [this] { clock.advance(1); };  // t0 is the fourth reading, at 10
  loop.runLoop(0);
  EXPECT_THAT(messages_with("event timeout"),
              ElementsAre("event timeout: 1172757909010 now: 1172757909010"));
  EXPECT_EQ(1, runs);
}

TEST_F(SuperLoopTest, NeverRunsEventsWithoutSubLoops) {
  int runs = 0;
  std::function<void(utime_t)> action = [&](utime_t) { ++runs; };
  loop.addEvent(new Act(action), 0);
  clock.advance(1000);
  messages.clear();
  const int64_t before = clock.readings;
  for (int i = 0; i < 3; ++i) loop.runLoop(100);
  EXPECT_EQ(0, runs);
  EXPECT_EQ(before + 6, clock.readings);
  EXPECT_THAT(messages, ElementsAre("SuperLoop::runLoop 100", "SuperLoop sleeping for 100",
                                    "SuperLoop::runLoop 100", "SuperLoop sleeping for 100",
                                    "SuperLoop::runLoop 100", "SuperLoop sleeping for 100"));
}

TEST_F(SuperLoopTest, LetsTheRemainderWrapWhenAnEventOverruns) {
  Work work(clock);
  std::vector<utime_t> slices;
  std::function<void(utime_t)> action = [&](utime_t slice) {
    slices.push_back(slice);
    clock.advance(60);
  };
  loop.addEvent(&work);
  for (int i = 0; i < 2; ++i) loop.addEvent(new Act(action), 0);
  clock.advance(1);
  loop.runLoop(50);
  EXPECT_THAT(slices, ElementsAre(25, 18446744073709551606U));  // 2^64 - 10
  EXPECT_THAT(messages_with("trigger done"),
              ElementsAre("SuperLoop event trigger done in 60; timeout remaining -10",
                          "SuperLoop event trigger done in 60; timeout remaining -70"));
  EXPECT_THAT(messages_with("LATE"), ElementsAre());
}

TEST_F(SuperLoopTest, SharesTheWrappedRemainderAmongWaitingEvents) {
  Work work(clock);
  std::vector<utime_t> slices;
  std::function<void(utime_t)> slow = [&](utime_t) { clock.advance(60); };
  std::function<void(utime_t)> action = [&](utime_t slice) { slices.push_back(slice); };
  loop.addEvent(&work);
  loop.addEvent(new Act(slow), 0);
  loop.addEvent(new Act(action), 0);
  for (int i = 0; i < 2; ++i) loop.addEvent(new Act(action), 90000);
  clock.advance(1);
  loop.runLoop(50);
  EXPECT_THAT(slices, ElementsAre(9223372036854775803U));  // (2^64 - 10) / (4 - 2)
}

TEST_F(SuperLoopTest, ExaminesAnEventAddedByASubLoopInTheNextPass) {
  Work work(clock);
  int runs = 0;
  std::function<void(utime_t)> action = [&](utime_t) { ++runs; };
  work.also = [&] {
    loop.addEvent(new Act(action), 0);
    clock.advance(1);
    work.also = nullptr;
  };
  loop.addEvent(&work);
  loop.runLoop(10);
  EXPECT_EQ(0, runs);
  EXPECT_THAT(messages_with("event timeout"), ElementsAre());
  loop.runLoop(10);
  EXPECT_EQ(1, runs);
}

TEST_F(SuperLoopTest, ExaminesEventsAddedByAnEventInTheNextPass) {
  Work work(clock);
  int runs = 0;
  std::function<void(utime_t)> child = [&](utime_t) { ++runs; };
  std::function<void(utime_t)> parent = [&](utime_t) {
    for (int i = 0; i < 2; ++i) loop.addEvent(new Act(child), 0);
    clock.advance(1);
  };
  loop.addEvent(&work);
  loop.addEvent(new Act(parent), 0);
  clock.advance(1);
  loop.runLoop(10);
  EXPECT_EQ(0, runs);
  loop.runLoop(10);
  EXPECT_EQ(2, runs);
}

TEST_F(SuperLoopTest, RunsTheCopyThatAnEventAddsOfItself) {
  class Repeating : public Event {
   public:
    Repeating(SuperLoop& loop, int& runs) : loop_(loop), runs_(runs) {}
    void run(utime_t) override {
      ++runs_;
      loop_.addEvent(new Repeating(*this), 10);
    }

   private:
    SuperLoop& loop_;
    int& runs_;
  };
  Work work(clock);
  int runs = 0;
  loop.addEvent(&work);
  loop.addEvent(new Repeating(loop, runs), 10);
  for (int i = 0; i < 5; ++i) loop.runLoop(11);
  EXPECT_EQ(4, runs);
}

TEST_F(SuperLoopTest, RunsAnEventAddedAgainForAPassInEveryOtherOne) {
  Work work(clock);
  std::vector<int64_t> runs;
  std::function<void(utime_t)> again = [&](utime_t) {
    runs.push_back(clock.now() - kNow);
    loop.addEvent(new Act(again), 100);
  };
  loop.addEvent(&work);
  loop.addEvent(new Act(again), 100);
  for (int i = 0; i < 8; ++i) loop.runLoop(100);
  EXPECT_THAT(runs, ElementsAre(200, 400, 600));
}

// ---- releasing events ----

namespace {

// As large as a size mismatch needs to show under the address sanitizer.
class Large : public Event {
 public:
  ~Large() { ++destroyed; }  // NOLINT: shows that it is not called
  void run(utime_t) override { ++runs; }

  static int destroyed;
  static int runs;
  char load[4096] = {};
};

int Large::destroyed = 0;
int Large::runs = 0;

class Base {
 public:
  virtual int number() { return number_; }

 private:
  int number_ = 5;
};

// Its Event does not lie at its start.
class Second : public Base, public Event {
 public:
  void run(utime_t) override {}
};

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"  // what is tested
TEST(Event, IsDeletedWholeAsAnEventWithoutItsDestructor) {
  Large::destroyed = 0;
  Event* const event = new Large;
  delete event;
  EXPECT_EQ(0, Large::destroyed);
}
#pragma GCC diagnostic pop

TEST_F(SuperLoopTest, ReleasesARunEventWithoutItsDestructor) {
  Large::destroyed = Large::runs = 0;
  Work work(clock);
  loop.addEvent(&work);
  loop.addEvent(new Large, 0);
  clock.advance(1);
  loop.runLoop(0);
  EXPECT_EQ(1, Large::runs);
  EXPECT_EQ(0, Large::destroyed);
}

// Whether it is released is what the leak checker sees.
TEST_F(SuperLoopTest, ReleasesQueuedEventsUnrunWhenItEnds) {
  Large::destroyed = Large::runs = 0;
  {
    SuperLoop ending(log);
    ending.addEvent(new Large, 0);
    ending.addEvent(new Large, 90000);
    clock.advance(1);
  }
  EXPECT_EQ(0, Large::runs);
  EXPECT_EQ(0, Large::destroyed);
}

TEST_F(SuperLoopTest, ReleasesEventsOfEveryShape) {
  Work work(clock);
  loop.addEvent(&work);
  loop.addEvent(new Second, 0);
  loop.addEvent(new (std::nothrow) Large, 0);
  clock.advance(1);
  loop.runLoop(0);
  EXPECT_EQ(2U, messages_with("trigger event").size());
}

// A program that ends within a pass destroys its static objects there.
TEST_F(SuperLoopTest, ReleasesEventsAddedDuringAPassThatIsTheLast) {
  Work work(clock);
  EXPECT_EXIT(
      {
        static SuperLoop last(log);
        last.addEvent(&work);
        work.also = [] {
          for (int i = 0; i < 10; ++i) last.addEvent(new Large, 0);
          exit(0);
        };
        last.runLoop(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(SuperLoopTest, DoesNotOwnSubLoops) {
  Work work(clock);
  {
    SuperLoop ending(log);
    ending.addEvent(&work);
    ending.runLoop(1);
  }
  work.runLoop(2);
  EXPECT_THAT(work.slices, ElementsAre(1, 2));
}
