// SPDX-License-Identifier: MIT
// The driver of a single-threaded daemon:
//
//   util::SuperLoop loop;
//   loop.addEvent(&server);                         // a util::EventLoop: one round a pass
//   loop.addEvent(new Reminder, util::Timer(5000)); // a util::Event: once, in five seconds
//   while (running) loop.runLoop(1000);             // passes of a second
#pragma once

#include "util/Event.h"
#include "util/EventLoop.h"
#include "util/Timer.h"
#include "util/export.h"
#include "util/logger.h"
#include "util/types.h"

#include <list>
#include <utility>

namespace util {

// What the loop logs is of category EVENT_LOOP && DEBUG; late sub-loops are logged as WARNING.
static category EVENT_LOOP("EVENT LOOP");

// Shares the time of each pass among sub-loops and fires timed events. A loop may be a sub-loop of
// another one.
//
// Sub-loops are not owned and stay valid while they are in the loop. Events are owned from the
// moment they are added; those still queued at the end are released without being run.
//
// Sub-loops and events may add and remove on the loop that runs them: this takes effect at the end
// of the pass. Nothing locks; all happens on one thread.
class UTIL_EXPORT SuperLoop : public EventLoop {
 public:
  SuperLoop();                            // logs to the root logger
  explicit SuperLoop(util::logger* log);  // not owned
  SuperLoop(const SuperLoop&) = delete;
  SuperLoop& operator=(const SuperLoop&) = delete;
  ~SuperLoop();

  // One pass: a round of each sub-loop, every expired event, sleep until `timeout` milliseconds
  // have passed since its start, then what was added and removed meanwhile. An exception that
  // escapes a sub-loop or an event ends the process.
  //
  // Kept: without a sub-loop no event is run. Each sub-loop and event is given an equal share of
  // what its forerunners left of `timeout`; a sub-loop that uses up more than all of it is late,
  // events may overrun unnoticed.
  void runLoop(utime_t timeout) noexcept override;

  const char* name() override;  // "util::SuperLoop"

  // A loop added twice runs twice a pass. Aborts where it is this loop itself.
  void addEvent(EventLoop* loop);

  // All its occurrences. Does nothing where it is not there. A loop added and removed during one
  // pass is absent afterwards, whatever the order. Within a pass it may still have its round.
  void removeEvent(EventLoop* loop);

  // Runs `event` in the first pass that finds `when` expired, then releases it. It cannot be taken
  // back, nor added again while a loop has it. If this throws, the event stays the caller's.
  void addEvent(Event* event, Timer when);

  // What runs now, for diagnostics: the sub-loop's name, "util::SuperLoop::Events",
  // "util::SuperLoop::Erasure" or "<<none>>".
  const char* current_loop() const { return current_loop_name; }

 private:
  using TimedEvents = std::list<std::pair<Event*, Timer>>;
  struct Budget;

  void run_loops(Budget& budget);
  void run_events(Budget& budget);
  TimedEvents::iterator run_event(TimedEvents::iterator at, const Budget& budget);
  void sleep_rest(utime_t timeout, utime_t start);
  void apply_changes();
  utime_t slice(const Budget& budget) const;

  util::logger* logger;
  std::list<EventLoop*> loops;
  TimedEvents events;  // in the order in which they were added
  bool inloop;
  std::list<EventLoop*> incoming_loops;
  std::list<EventLoop*> outgoing_loops;
  TimedEvents incoming_events;
  const char* current_loop_name;
};

}  // namespace util
