// SPDX-License-Identifier: MIT
// The loop's interface: what is added, removed, nested, and what goes wrong.
#include "tests/unit/SuperLoop_test.h"

#include <unistd.h>

#include <exception>
#include <stdexcept>
#include <type_traits>

using testing::MatchesRegex;

namespace {

std::string text(const char* format, const void* argument) {
  char buffer[100];
  snprintf(buffer, sizeof buffer, format, argument);
  return buffer;
}

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

TEST(Event, HasNoDataMember) { EXPECT_EQ(sizeof(void*), sizeof(Event)); }

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
