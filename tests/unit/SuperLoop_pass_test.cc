// SPDX-License-Identifier: MIT
// A pass: order, slices, sleeping, and a clock that is set meanwhile.
#include "tests/support/faults.h"
#include "tests/unit/SuperLoop_test.h"

#include <errno.h>
#include <time.h>

using support::Fault;
using support::Recorder;

namespace {

constexpr char kRunLoop[] = "virtual void util::SuperLoop::runLoop(util::utime_t)";

}  // namespace

// ---- a pass ----

TEST_F(SuperLoopTest, ReadsLogsAndCallsInAFixedOrder) {
  Work work(clock, 0, "first");
  work.also = [this] { messages.push_back("*round*"); };
  std::function<void(utime_t)> action = [this](utime_t) { messages.push_back("*run*"); };
  loop.addEvent(&work);
  loop.addEvent(new Act(action), 10);
  loop.addEvent(new Act(action), 90000);
  clock.set(kNow + 11);
  messages.clear();
  clock.before_reading = [this] { messages.push_back("*clock*"); };

  loop.runLoop(90);

  EXPECT_THAT(messages, ElementsAre("SuperLoop::runLoop 90",                    //
                                    "*clock*",                                  // start
                                    "SuperLoop event first gets timeslice 30",  //
                                    "*clock*",                                  //
                                    "*round*",                                  //
                                    "*clock*",                                  //
                                    "SuperLoop event done in 0; timeout remaining 90",
                                    "*clock*",  // first event
                                    "event timeout: 1172757909010 now: 1172757909011",
                                    "*clock*",                                      // expired
                                    "SuperLoop trigger event 1 with timeslice 45",  //
                                    "*run*",                                        //
                                    "*clock*",                                      //
                                    "SuperLoop event trigger done in 0; timeout remaining 90",
                                    "*clock*",  // second event
                                    "event timeout: 1172757999000 now: 1172757909011",
                                    "*clock*",  // not expired
                                    "*clock*",  //
                                    "SuperLoop event trigger done in 0; timeout remaining 90",
                                    "*clock*",  // spent
                                    "SuperLoop sleeping for 90"));
}

TEST_F(SuperLoopTest, LogsAPassUnderTheSignatureOfRunLoop) {
  Work work(clock, 200);
  std::function<void(utime_t)> nothing = [](utime_t) {};
  loop.addEvent(&work);
  loop.addEvent(new Act(nothing), 0);
  labels.clear();
  loop.runLoop(100);
  const std::string ours = std::string("EVENT LOOP|DEBUG from ") + kRunLoop;
  const std::string late = std::string("WARNING from ") + kRunLoop;
  EXPECT_THAT(labels, ElementsAre(ours, ours, late, ours, ours, ours, ours));
}

TEST_F(SuperLoopTest, SharesTheBudgetAmongSubLoops) {
  Work first(clock, 10);
  Work second(clock, 10);
  loop.addEvent(&first);
  loop.addEvent(&second);
  loop.runLoop(100);
  EXPECT_THAT(first.slices, ElementsAre(50));
  EXPECT_THAT(second.slices, ElementsAre(90));
  EXPECT_THAT(clock.sleeps, ElementsAre(80000000));
}

TEST_F(SuperLoopTest, RunsSubLoopsInTheOrderOfTheirAddition) {
  Work b(clock, 0, "b");
  Work a(clock, 0, "a");
  loop.addEvent(&b);
  loop.addEvent(&a);
  loop.runLoop(10);
  EXPECT_THAT(messages_with("gets"), ElementsAre("SuperLoop event b gets timeslice 5",
                                                 "SuperLoop event a gets timeslice 10"));
}

TEST_F(SuperLoopTest, RoundsSlicesDown) {
  Work works[] = {Work(clock), Work(clock), Work(clock)};
  for (Work& work : works) loop.addEvent(&work);
  loop.runLoop(101);
  EXPECT_THAT(works[0].slices, ElementsAre(33));
  EXPECT_THAT(works[1].slices, ElementsAre(50));
  EXPECT_THAT(works[2].slices, ElementsAre(101));
}

TEST_F(SuperLoopTest, CountsPendingEventsInTheSlices) {
  Work work(clock);
  std::function<void(utime_t)> nothing = [](utime_t) {};
  loop.addEvent(&work);
  for (int i = 0; i < 3; ++i) loop.addEvent(new Act(nothing), 90000);
  loop.runLoop(100);
  EXPECT_THAT(work.slices, ElementsAre(25));
}

TEST_F(SuperLoopTest, WarnsOfASubLoopThatOverrunsTheWholeBudget) {
  Work work(clock, 150);
  Work after(clock);
  loop.addEvent(&work);
  loop.addEvent(&after);
  loop.runLoop(100);
  EXPECT_THAT(messages_with("LATE"), ElementsAre("event loop work LATE by 50 ms!"));
  EXPECT_THAT(messages_with("done in"),
              ElementsAre("SuperLoop event done in 150; timeout remaining 0",
                          "SuperLoop event done in 0; timeout remaining 0"));
  EXPECT_THAT(after.slices, ElementsAre(0));
  EXPECT_THAT(clock.sleeps, ElementsAre());
}

TEST_F(SuperLoopTest, WarnsWithWarningEnabledAlone) {
  log->clear_components();
  log->enable(util::WARNING);
  Work work(clock, 150);
  loop.addEvent(&work);
  loop.runLoop(100);
  EXPECT_THAT(messages, ElementsAre("event loop work LATE by 50 ms!"));
}

TEST_F(SuperLoopTest, DoesNotWarnOfASubLoopThatUsesUpExactlyTheBudget) {
  Work work(clock, 100);
  loop.addEvent(&work);
  loop.runLoop(100);
  EXPECT_THAT(messages_with("LATE"), ElementsAre());
  EXPECT_THAT(messages_with("done in"),
              ElementsAre("SuperLoop event done in 100; timeout remaining 0"));
  EXPECT_THAT(clock.sleeps, ElementsAre());
}

TEST_F(SuperLoopTest, DoesNotWarnOfASubLoopThatOverrunsItsSliceOnly) {
  Work greedy(clock, 99);
  Work modest(clock, 1);
  loop.addEvent(&greedy);
  loop.addEvent(&modest);
  loop.runLoop(100);
  EXPECT_THAT(messages_with("LATE"), ElementsAre());
  EXPECT_THAT(modest.slices, ElementsAre(1));
}

TEST_F(SuperLoopTest, AsksForANameOnceARound) {
  class Named : public Unnamed {
   public:
    const char* name() override { return ++asked, "named"; }
    int asked = 0;
  };
  Named named;
  loop.addEvent(&named);
  loop.runLoop(1);
  EXPECT_EQ(1, named.asked);
}

TEST_F(SuperLoopTest, SaysWhatItIsDoing) {
  Texts seen;
  const auto look = [&] { seen.push_back(loop.current_loop()); };
  Work work(clock, 0, "at work");
  work.also = look;
  std::function<void(utime_t)> action = [&](utime_t) { look(); };
  loop.addEvent(&work);
  loop.addEvent(new Act(action), 0);
  clock.advance(1);
  loop.runLoop(0);
  look();
  EXPECT_THAT(seen, ElementsAre("at work", "util::SuperLoop::Events", "<<none>>"));
}

TEST_F(SuperLoopTest, IsStillInsideItsPassWhileItSleeps) {
  Work work(clock);
  Texts seen;
  Recorder recorder({"nanosleep"});
  recorder.before = [&](const std::string&) { seen.push_back(loop.current_loop()); };
  loop.runLoop(10);
  loop.addEvent(&work);
  loop.runLoop(10);
  EXPECT_THAT(seen, ElementsAre("<<none>>", "util::SuperLoop::Events"));
}

TEST_F(SuperLoopTest, PrintsCountsAsIntegers) {
  Work work(clock);
  loop.addEvent(&work);
  messages.clear();
  clock.before_reading = [this] { clock.advance(1); };  // so that it need not sleep for so long
  work.also = [this] { clock.advance(int64_t{4294967296}); };
  loop.runLoop(4294967295);
  EXPECT_EQ("SuperLoop::runLoop -1", messages.at(0));
  EXPECT_EQ("SuperLoop event work gets timeslice -1", messages.at(1));
}

// ---- sleeping ----

TEST_F(SuperLoopTest, SleepsTheWholeBudgetWhenThereIsNothingToDo) {
  loop.runLoop(1500);
  EXPECT_THAT(clock.sleeps, ElementsAre(1500000000));
}

TEST_F(SuperLoopTest, DoesNotSleepWithoutABudget) {
  Work work(clock);
  loop.addEvent(&work);
  loop.runLoop(0);
  EXPECT_THAT(work.slices, ElementsAre(0));
  EXPECT_THAT(clock.sleeps, ElementsAre());
  EXPECT_THAT(messages_with("sleeping"), ElementsAre());
}

TEST_F(SuperLoopTest, SleepsForTheRemainderAfterSignals) {
  clock.interruptions = {60000000, 20000000};
  loop.runLoop(100);
  EXPECT_THAT(clock.sleeps, ElementsAre(100000000, 60000000, 20000000));
  EXPECT_EQ(kNow + 100, clock.now());
  EXPECT_THAT(messages_with("sleeping"), ElementsAre("SuperLoop sleeping for 100"));
}

TEST_F(SuperLoopTest, GoesOnWhenTheSystemRefusesToSleep) {
  Work work(clock);
  loop.addEvent(&work);
  const Fault fault("nanosleep", EINVAL, Fault::kEvery);
  loop.runLoop(100);
  loop.runLoop(100);
  EXPECT_EQ(2, fault.uses());
  EXPECT_EQ(2U, work.slices.size());
}

TEST_F(SuperLoopTest, DoesNotCatchUpInTheNextPass) {
  Work work(clock, 150);
  loop.addEvent(&work);
  loop.runLoop(100);
  work.takes = 0;
  loop.runLoop(100);
  EXPECT_THAT(work.slices, ElementsAre(100, 100));
  EXPECT_THAT(clock.sleeps, ElementsAre(100000000));
}

TEST_F(SuperLoopTest, MeasuresItsSleepFromTheStartNotFromTheBudgetLeft) {
  Work work(clock);
  std::function<void(utime_t)> slow = [this](utime_t) { clock.advance(30); };
  loop.addEvent(&work);
  loop.addEvent(new Act(slow), 0);
  clock.advance(1);
  clock.before_reading = [this] { clock.advance(1); };
  loop.runLoop(100);
  // Readings: start, two a sub-loop, three an event, spent; six milliseconds between first and
  // last.
  EXPECT_THAT(clock.sleeps, ElementsAre(64000000));
}

// ---- a clock that is set during a pass ----

TEST_F(SuperLoopTest, TakesAForwardStepForElapsedTime) {
  Work work(clock, 3600000);
  loop.addEvent(&work);
  loop.runLoop(100);
  EXPECT_THAT(messages_with("LATE"), ElementsAre("event loop work LATE by 3599900 ms!"));
  EXPECT_THAT(clock.sleeps, ElementsAre());
}

TEST_F(SuperLoopTest, TakesABackwardStepInASubLoopForAnEndlessRound) {
  Work work(clock, -10);
  loop.addEvent(&work);
  messages.clear();
  loop.runLoop(100);
  EXPECT_THAT(messages,
              ElementsAre("SuperLoop::runLoop 100", "SuperLoop event work gets timeslice 100",
                          "event loop work LATE by -110 ms!",
                          "SuperLoop event done in -10; timeout remaining 0"));
  EXPECT_THAT(clock.sleeps, ElementsAre());
}

TEST_F(SuperLoopTest, GainsTimeByABackwardStepInAnEvent) {
  Work work(clock, 20);
  std::function<void(utime_t)> step = [this](utime_t) { clock.advance(-10); };
  loop.addEvent(&work);
  loop.addEvent(new Act(step), 0);
  clock.advance(1);
  loop.runLoop(100);
  EXPECT_THAT(messages_with("trigger done"),
              ElementsAre("SuperLoop event trigger done in -10; timeout remaining 90"));
  EXPECT_THAT(clock.sleeps, ElementsAre(90000000));
}

// ---- the real clock ----

TEST(SuperLoopOnTheRealClock, LastsItsTimeout) {
  SuperLoop loop;
  timespec start = {};
  timespec end = {};
  clock_gettime(CLOCK_MONOTONIC, &start);
  loop.runLoop(50);
  clock_gettime(CLOCK_MONOTONIC, &end);
  const int64_t lasted = (end.tv_sec - start.tv_sec) * 1000000000 + end.tv_nsec - start.tv_nsec;
  EXPECT_GE(lasted, 49000000);  // the start is truncated to a millisecond
}
