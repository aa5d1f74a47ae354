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

// The loop logs under EVENT_LOOP && DEBUG, and late sub-loops under WARNING.
static category EVENT_LOOP("EVENT LOOP");

// Divides the time of each pass among sub-loops and runs timed events. A loop may be a sub-loop of
// another one.
//
// Sub-loops are not owned and must stay valid while they are in the loop. Events are owned from the
// moment they are added; those still queued when the loop is destroyed are freed without being run.
//
// Sub-loops and events may add to and remove from the loop that runs them; this takes effect at the
// end of the pass. Nothing is locked: a loop belongs to one thread.
class UTIL_EXPORT SuperLoop : public EventLoop {
 public:
  SuperLoop();                            // logs to the root logger
  explicit SuperLoop(util::logger* log);  // not owned
  SuperLoop(const SuperLoop&) = delete;
  SuperLoop& operator=(const SuperLoop&) = delete;
  ~SuperLoop();

  // Makes one pass: runs a round of each sub-loop and every expired event, sleeps until `timeout`
  // milliseconds have passed since its start, then adds and removes what was asked for meanwhile.
  // An exception that escapes a sub-loop or an event ends the process.
  //
  // Kept: without a sub-loop no event is run. Each sub-loop and event is given an equal share of
  // what those before it left of `timeout`. The share is advisory: a sub-loop that takes more than
  // all that was left is late, and events may overrun unnoticed.
  void runLoop(utime_t timeout) noexcept override;

  const char* name() override;  // "util::SuperLoop"

  // A loop that is added twice runs twice per pass. Aborts if `loop` is this loop itself.
  void addEvent(EventLoop* loop);

  // Removes all occurrences of `loop`, if there are any. A loop that is added and removed during
  // one pass is absent afterwards, whatever the order. It may still have its round in that pass.
  void removeEvent(EventLoop* loop);

  // Runs `event` in the first pass that finds `when` expired, then frees it. It cannot be removed,
  // and must not be added again while a loop holds it. If this throws, the caller still owns the
  // event.
  void addEvent(Event* event, Timer when);

  // What is running, for diagnostics: the sub-loop's name, "util::SuperLoop::Events",
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
