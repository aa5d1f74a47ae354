// SPDX-License-Identifier: MIT
#include "util/SuperLoop.h"

#include "tests/support/clock.h"
#include "tests/support/faults.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::ElementsAre;
using testing::MatchesRegex;
using util::Event;
using util::EventLoop;
using util::logger;
using util::SuperLoop;
using util::Timer;
using util::utime_t;

namespace {

using Texts = std::vector<std::string>;

constexpr int64_t kNow = 1172757909000;
constexpr char kRunLoop[] = "virtual void util::SuperLoop::runLoop(util::utime_t)";

std::string text(const char* format, const void* argument) {
  char buffer[100];
  snprintf(buffer, sizeof buffer, format, argument);
  return buffer;
}

// Notes the entries of the loop's logger.
class Journal : public util::publisher {
 public:
  Journal(Texts& messages, Texts& labels) : messages_(messages), labels_(labels) {}

  int publish(util::category& c, const char* where, const char* format, va_list args) override {
    char buffer[1000];
    const int size = vsnprintf(buffer, sizeof buffer, format, args);
    messages_.push_back(buffer);
    labels_.push_back(c.name() + " from " + where);
    return size;
  }

 private:
  Texts& messages_;
  Texts& labels_;
};

// A loop under a frozen clock that starts at kNow, whose messages are collected.
class SuperLoopTest : public testing::Test {
 protected:
  SuperLoopTest() : log(logger::getLogger("SuperLoopTest")) {
    log->setUseParentPublisher(false);
    log->setPublisher(new Journal(messages, labels));
    log->clear_components();
    log->enable(util::EVENT_LOOP);
    log->enable(util::DEBUG);
  }

  ~SuperLoopTest() override { log->setPublisher(nullptr); }

  // The messages so far that contain `part`.
  Texts messages_with(const std::string& part) const {
    Texts found;
    for (const std::string& message : messages) {
      if (message.find(part) != std::string::npos) found.push_back(message);
    }
    return found;
  }

  FrozenClock clock{kNow};
  Texts messages;
  Texts labels;  // "<category> from <function>"
  logger* const log;
  SuperLoop loop{log};
};

// A sub-loop that takes `takes` milliseconds a round.
class Work : public EventLoop {
 public:
  explicit Work(FrozenClock& clock, int64_t milliseconds = 0, const char* name = "work")
      : takes(milliseconds), clock_(clock), name_(name) {}

  void runLoop(utime_t timeslice) override {
    slices.push_back(timeslice);
    clock_.advance(takes);
    if (also) also();
  }

  const char* name() override { return name_; }

  int64_t takes;
  std::function<void()> also;
  std::vector<utime_t> slices;

 private:
  FrozenClock& clock_;
  const char* name_;
};

// Puts what it does into a function of the test's.
class Act : public Event {
 public:
  explicit Act(std::function<void(utime_t)>& action) : action_(&action) {}

  void run(utime_t timeslice) override { (*action_)(timeslice); }

 private:
  std::function<void(utime_t)>* action_;
};

class Unnamed : public EventLoop {
 public:
  void runLoop(utime_t) override {}
};

}  // namespace

// ---- the interfaces ----

TEST(EventLoop, IsUnknownByDefault) { EXPECT_STREQ("<<unknown>>", Unnamed().name()); }

TEST(EventLoop, HasNoVirtualDestructor) {
  EXPECT_FALSE(std::has_virtual_destructor<EventLoop>::value);
  EXPECT_FALSE(std::has_virtual_destructor<SuperLoop>::value);
}

TEST(EventLoop, MayThrowWhereTheSuperLoopMayNot) {
  EXPECT_FALSE(noexcept(std::declval<EventLoop&>().runLoop(1)));
  EXPECT_TRUE(noexcept(std::declval<SuperLoop&>().runLoop(1)));
}

TEST(Event, HasNoVirtualDestructor) { EXPECT_FALSE(std::has_virtual_destructor<Event>::value); }

TEST(SuperLoop, IsNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible<SuperLoop>::value);
  EXPECT_FALSE(std::is_copy_assignable<SuperLoop>::value);
}

TEST(SuperLoop, HasTheFifthIdentity) {
  EXPECT_EQ(5U, util::EVENT_LOOP.id());
  EXPECT_EQ(0x20U, util::EVENT_LOOP.mask());
  EXPECT_EQ("EVENT LOOP", util::EVENT_LOOP.name());
  EXPECT_EQ(0x27U, (util::EVENT_LOOP && util::DEBUG).mask());
}

TEST_F(SuperLoopTest, IsIdleAtFirst) {
  EXPECT_STREQ("<<none>>", loop.current_loop());
  EXPECT_STREQ("util::SuperLoop", loop.name());
}

TEST_F(SuperLoopTest, LogsToTheRootLoggerUnlessToldOtherwise) {
  logger* const root = logger::rootLogger();
  root->set_checkpoint("before", 1);
  SuperLoop().runLoop(0);
  EXPECT_THAT(root->get_checkpoint(), MatchesRegex("SuperLoop\\.cc:[0-9]+"));
}

// ---- adding and removing ----

TEST_F(SuperLoopTest, LogsAnAddedLoop) {
  Work work(clock);
  loop.addEvent(&work);
  EXPECT_THAT(messages, ElementsAre(text("add event loop %p", &work)));
  EXPECT_THAT(labels, ElementsAre("EVENT LOOP|DEBUG from void util::SuperLoop::addEvent("
                                  "util::EventLoop*)"));
}

TEST_F(SuperLoopTest, LogsARemovedLoop) {
  Work work(clock);
  loop.removeEvent(&work);
  EXPECT_THAT(messages, ElementsAre(text("remove event loop %p", &work)));
  EXPECT_THAT(labels, ElementsAre("EVENT LOOP|DEBUG from void util::SuperLoop::removeEvent("
                                  "util::EventLoop*)"));
}

TEST_F(SuperLoopTest, LogsAnAddedEvent) {
  std::function<void(utime_t)> nothing = [](utime_t) {};
  Event* const event = new Act(nothing);
  const Timer when(5000);
  clock.advance(7);
  loop.addEvent(event, when);
  EXPECT_THAT(messages, ElementsAre(text(
                            "add event %p; expires at 1172757914000 (now: 1172757909007)", event)));
  EXPECT_THAT(labels, ElementsAre("EVENT LOOP|DEBUG from void util::SuperLoop::addEvent("
                                  "util::Event*, util::Timer)"));
}

TEST_F(SuperLoopTest, ReadsTheClockForAnAddedEventWhoseMessageIsDroppedToo) {
  std::function<void(utime_t)> nothing = [](utime_t) {};
  const Timer when(5000);
  log->clear_components();
  const int64_t before = clock.readings;
  loop.addEvent(new Act(nothing), when);
  EXPECT_EQ(before + 1, clock.readings);
  EXPECT_THAT(messages, ElementsAre());
}

TEST_F(SuperLoopTest, LeavesACheckpointForEachMessageAlsoWhenDropped) {
  log->clear_components();
  Work work(clock);
  loop.addEvent(&work);
  const std::string adding = log->get_checkpoint();
  loop.removeEvent(&work);
  EXPECT_THAT(adding, MatchesRegex("SuperLoop\\.cc:[0-9]+"));
  EXPECT_THAT(log->get_checkpoint(), MatchesRegex("SuperLoop\\.cc:[0-9]+"));
  EXPECT_NE(adding, log->get_checkpoint());
}

TEST_F(SuperLoopTest, NeedsBothCategoriesForItsMessages) {
  log->clear_components();
  log->enable(util::DEBUG);
  loop.runLoop(0);
  EXPECT_THAT(messages, ElementsAre());
  log->clear_components();
  log->enable(util::EVENT_LOOP);
  loop.runLoop(0);
  EXPECT_THAT(messages, ElementsAre());
}

TEST_F(SuperLoopTest, RunsALoopTwiceThatWasAddedTwice) {
  Work work(clock);
  loop.addEvent(&work);
  loop.addEvent(&work);
  loop.runLoop(100);
  EXPECT_THAT(work.slices, ElementsAre(50, 100));
}

TEST_F(SuperLoopTest, RemovesEveryOccurrence) {
  Work twice(clock);
  Work once(clock);
  loop.addEvent(&twice);
  loop.addEvent(&once);
  loop.addEvent(&twice);
  loop.removeEvent(&twice);
  loop.runLoop(100);
  EXPECT_THAT(twice.slices, ElementsAre());
  EXPECT_THAT(once.slices, ElementsAre(100));
}

TEST_F(SuperLoopTest, IgnoresTheRemovalOfALoopThatIsNotThere) {
  Work there(clock);
  Work elsewhere(clock);
  loop.addEvent(&there);
  loop.removeEvent(&elsewhere);
  loop.runLoop(100);
  EXPECT_THAT(there.slices, ElementsAre(100));
}

TEST_F(SuperLoopTest, AbortsWhenAddedToItselfAfterTheMessage) {
  EXPECT_DEATH(
      {
        logger::rootLogger()->enable(util::EVENT_LOOP);
        logger::rootLogger()->enable(util::DEBUG);
        SuperLoop own;
        own.addEvent(&own);
      },
      "addEvent\\(util::EventLoop\\*\\)\nEVENT LOOP\\|DEBUG: add event loop 0x[0-9a-f]+\n"
      "(.|\n)*this != loop");
}

TEST_F(SuperLoopTest, AbortsWhenAnEventIsAddedTwice) {
  std::function<void(utime_t)> nothing = [](utime_t) {};
  Event* const event = new Act(nothing);
  loop.addEvent(event, 1000);
  EXPECT_DEATH(loop.addEvent(event, 1000), "event->queued");
  SuperLoop other(log);
  EXPECT_DEATH(other.addEvent(event, 1000), "event->queued");
}

TEST_F(SuperLoopTest, TakesAnEventThatAQueuedOneWasAssignedTo) {
  std::function<void(utime_t)> nothing = [](utime_t) {};
  auto* const queued = new Act(nothing);
  auto* const assigned = new Act(nothing);
  loop.addEvent(queued, 1000);
  *assigned = *queued;
  loop.addEvent(assigned, 1000);
  *queued = Act(nothing);
  EXPECT_DEATH(loop.addEvent(queued, 1000), "event->queued");
}

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

TEST_F(SuperLoopTest, AbortsWhenAnEventAddsItself) {
  Work work(clock);
  Event* self = nullptr;
  std::function<void(utime_t)> again = [&](utime_t) { loop.addEvent(self, 10); };
  self = new Act(again);
  loop.addEvent(&work);
  loop.addEvent(self, 0);
  clock.advance(1);
  EXPECT_DEATH(loop.runLoop(10), "event->queued");
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

// ---- changes during a pass ----

TEST_F(SuperLoopTest, FinishesThePassWithALoopThatRemovesItself) {
  Work leaving(clock);
  Work staying(clock);
  leaving.also = [&] { loop.removeEvent(&leaving); };
  loop.addEvent(&leaving);
  loop.addEvent(&staying);
  loop.runLoop(100);
  EXPECT_THAT(staying.slices, ElementsAre(100));
  loop.runLoop(100);
  EXPECT_THAT(leaving.slices, ElementsAre(50));
  EXPECT_THAT(staying.slices, ElementsAre(100, 100));
}

TEST_F(SuperLoopTest, StillRunsALoopThatIsRemovedBeforeItsTurn) {
  Work remover(clock);
  Work later(clock);
  remover.also = [&] { loop.removeEvent(&later); };
  loop.addEvent(&remover);
  loop.addEvent(&later);
  loop.runLoop(100);
  EXPECT_THAT(later.slices, ElementsAre(100));
  loop.runLoop(100);
  EXPECT_EQ(1U, later.slices.size());
}

TEST_F(SuperLoopTest, RemovesALoopThatHasHadItsTurn) {
  Work earlier(clock);
  Work remover(clock);
  remover.also = [&] { loop.removeEvent(&earlier); };
  loop.addEvent(&earlier);
  loop.addEvent(&remover);
  loop.runLoop(100);
  loop.runLoop(100);
  EXPECT_EQ(1U, earlier.slices.size());
}

TEST_F(SuperLoopTest, RemovesEveryOccurrenceDuringAPass) {
  Work twice(clock);
  loop.addEvent(&twice);
  loop.addEvent(&twice);
  twice.also = [&] { loop.removeEvent(&twice); };
  loop.runLoop(100);
  loop.runLoop(100);
  EXPECT_EQ(2U, twice.slices.size());
}

TEST_F(SuperLoopTest, RunsALoopAgainThatIsAddedAfterItsRemovalDuringAPass) {
  Work leaving(clock);
  Work staying(clock);
  leaving.also = [&] {
    loop.removeEvent(&leaving);
    leaving.also = nullptr;
  };
  loop.addEvent(&leaving);
  loop.addEvent(&staying);
  loop.runLoop(100);
  loop.addEvent(&leaving);
  for (int i = 0; i < 3; ++i) loop.runLoop(100);
  EXPECT_EQ(4U, leaving.slices.size());
}

TEST_F(SuperLoopTest, DefersChangesFromItsFirstReadingOfTheClockOn) {
  Work work(clock);
  Work added(clock);
  loop.addEvent(&work);
  bool first = true;
  clock.before_reading = [&] {
    if (first) loop.addEvent(&added);
    first = false;
  };
  loop.runLoop(100);
  EXPECT_THAT(added.slices, ElementsAre());
  loop.runLoop(100);
  EXPECT_THAT(added.slices, ElementsAre(100));
}

TEST_F(SuperLoopTest, RunsALoopAddedDuringAPassFromTheNextOneOn) {
  Work adder(clock);
  Work added(clock);
  adder.also = [&] {
    loop.addEvent(&added);
    adder.also = nullptr;
  };
  loop.addEvent(&adder);
  loop.runLoop(100);
  EXPECT_THAT(adder.slices, ElementsAre(100));
  EXPECT_THAT(added.slices, ElementsAre());
  loop.runLoop(100);
  EXPECT_THAT(added.slices, ElementsAre(100));
}

TEST_F(SuperLoopTest, LacksALoopThatWasAddedAndRemovedDuringOnePass) {
  Work both(clock);
  Work busy(clock);
  busy.also = [&] {
    loop.removeEvent(&both);
    loop.addEvent(&both);
    busy.also = nullptr;
  };
  loop.addEvent(&busy);
  loop.runLoop(100);
  loop.runLoop(100);
  EXPECT_THAT(both.slices, ElementsAre());
}

TEST_F(SuperLoopTest, AppliesTheChangesThatAnEventMakes) {
  Work old(clock);
  Work fresh(clock);
  std::function<void(utime_t)> swap = [&](utime_t) {
    loop.removeEvent(&old);
    loop.addEvent(&fresh);
  };
  loop.addEvent(&old);
  loop.addEvent(new Act(swap), 0);
  clock.advance(1);
  loop.runLoop(100);
  loop.runLoop(100);
  EXPECT_EQ(1U, old.slices.size());
  EXPECT_THAT(fresh.slices, ElementsAre(100));
}

TEST_F(SuperLoopTest, AppendsWhatWasAddedDuringAPassInItsOrder) {
  Work adder(clock, 0, "adder");
  Work b(clock, 0, "b");
  Work a(clock, 0, "a");
  adder.also = [&] {
    loop.addEvent(&b);
    loop.addEvent(&a);
    adder.also = nullptr;
  };
  loop.addEvent(&adder);
  loop.runLoop(9);
  messages.clear();
  loop.runLoop(9);
  EXPECT_THAT(messages_with("gets"), ElementsAre("SuperLoop event adder gets timeslice 3",
                                                 "SuperLoop event b gets timeslice 4",
                                                 "SuperLoop event a gets timeslice 9"));
}

TEST_F(SuperLoopTest, AppliesChangesAtOnceBetweenPasses) {
  Work work(clock);
  loop.addEvent(&work);
  loop.runLoop(1);
  loop.removeEvent(&work);
  loop.runLoop(1);
  loop.addEvent(&work);
  loop.runLoop(1);
  EXPECT_EQ(2U, work.slices.size());
}

// ---- nested loops ----

TEST_F(SuperLoopTest, RunsANestedLoopWithinItsSlice) {
  SuperLoop inner(log);
  Work deep(clock, 10);
  Work after(clock);
  inner.addEvent(&deep);
  loop.addEvent(&inner);
  loop.addEvent(&after);
  messages.clear();
  loop.runLoop(100);
  EXPECT_THAT(deep.slices, ElementsAre(50));
  EXPECT_THAT(after.slices, ElementsAre(50));  // The nested loop sleeps away its slice.
  EXPECT_THAT(clock.sleeps, ElementsAre(40000000, 50000000));
  EXPECT_EQ("SuperLoop event util::SuperLoop gets timeslice 50", messages.at(1));
}

TEST_F(SuperLoopTest, AddsToTheOuterLoopFromWithinANestedOne) {
  SuperLoop inner(log);
  Work deep(clock);
  Work added(clock);
  deep.also = [&] {
    EXPECT_STREQ("util::SuperLoop", loop.current_loop());
    EXPECT_STREQ("work", inner.current_loop());
    loop.addEvent(&added);
    deep.also = nullptr;
  };
  inner.addEvent(&deep);
  loop.addEvent(&inner);
  loop.runLoop(100);
  EXPECT_THAT(added.slices, ElementsAre());
  loop.runLoop(100);
  EXPECT_EQ(1U, added.slices.size());
}

TEST_F(SuperLoopTest, NestsTwoLevelsDeep) {
  SuperLoop middle(log);
  SuperLoop inner(log);
  Work deep(clock);
  inner.addEvent(&deep);
  middle.addEvent(&inner);
  loop.addEvent(&middle);
  loop.runLoop(80);
  EXPECT_THAT(deep.slices, ElementsAre(80));
  EXPECT_EQ(kNow + 80, clock.now());
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

// ---- errors of clients ----

TEST_F(SuperLoopTest, EndsTheProcessOnAnExceptionOfASubLoop) {
  Work work(clock);
  work.also = [] { throw std::runtime_error("not handled"); };
  loop.addEvent(&work);
  EXPECT_EXIT(
      {
        std::set_terminate([] { _exit(7); });
        loop.runLoop(1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(SuperLoopTest, EndsTheProcessOnAnExceptionOfAnEvent) {
  Work work(clock);
  std::function<void(utime_t)> action = [](utime_t) { throw std::runtime_error("not handled"); };
  loop.addEvent(&work);
  loop.addEvent(new Act(action), 0);
  clock.advance(1);
  EXPECT_EXIT(
      {
        std::set_terminate([] { _exit(7); });
        loop.runLoop(1);
      },
      testing::ExitedWithCode(7), "");
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
