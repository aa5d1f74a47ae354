// SPDX-License-Identifier: MIT
#include "util/SuperLoop.h"

#include <cassert>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace util {
namespace {

constexpr char kRunLoop[] = "virtual void util::SuperLoop::runLoop(util::utime_t)";
constexpr char kAddLoop[] = "void util::SuperLoop::addEvent(util::EventLoop*)";
constexpr char kRemoveLoop[] = "void util::SuperLoop::removeEvent(util::EventLoop*)";
constexpr char kAddEvent[] = "void util::SuperLoop::addEvent(util::Event*, util::Timer)";

constexpr char kNoLoop[] = "<<none>>";

// Found by name and never destroyed: loops that are static objects of other source files may log
// before this file's copies of the categories are constructed and after they are destroyed.
const category& event_loop_debug() {
  static const category& both =
      *new category(*category::forName("EVENT LOOP") && *category::forName("DEBUG"));
  return both;
}

// Kept: messages print counts as int, so a count of milliseconds that wrapped shows as negative.
int shown(utime_t count) { return static_cast<int>(count); }

unsigned long long instant(utime_t time) { return time; }

// What a plain `delete` of an Event does, without the compilers' warning: it calls no destructor.
// The memory is that of the whole object, wherever the Event lies in it.
void release(Event* event) {
  static_assert(std::is_trivially_destructible<Event>::value, "no destructor is left out");
  Event::operator delete(dynamic_cast<void*>(event));
}

}  // namespace

// Logs as the public function that is running, whichever step it is in. Each use is on one line:
// compilers number the lines of a broken one differently.
#define LOG(where, ...) UTIL_LOG_AS(logger, event_loop_debug(), where, __VA_ARGS__)

// What is left of a pass.
struct SuperLoop::Budget {
  utime_t remaining;
  size_t idx;  // sub-loops and events dealt with
};

SuperLoop::SuperLoop() : SuperLoop(util::logger::rootLogger()) {}

SuperLoop::SuperLoop(util::logger* log) : logger(log), inloop(false), current_loop_name(kNoLoop) {}

SuperLoop::~SuperLoop() {
  for (const auto& entry : events) release(entry.first);
  for (const auto& entry : incoming_events) release(entry.first);
}

void SuperLoop::runLoop(utime_t timeout) noexcept {
  LOG(kRunLoop, "SuperLoop::runLoop %d", shown(timeout));
  inloop = true;
  const utime_t start = Timer::now();
  if (!loops.empty()) {  // Kept: without sub-loops events wait too.
    Budget budget = {timeout, 0};
    run_loops(budget);
    run_events(budget);
  }
  sleep_rest(timeout, start);
  apply_changes();
  inloop = false;
  current_loop_name = kNoLoop;
}

const char* SuperLoop::name() { return "util::SuperLoop"; }

void SuperLoop::addEvent(EventLoop* loop) {
  LOG(kAddLoop, "add event loop %p", static_cast<void*>(loop));
  assert(this != loop);
  (inloop ? incoming_loops : loops).push_back(loop);
}

void SuperLoop::removeEvent(EventLoop* loop) {
  LOG(kRemoveLoop, "remove event loop %p", static_cast<void*>(loop));
  if (inloop) {
    outgoing_loops.push_back(loop);
  } else {
    loops.remove(loop);
  }
}

void SuperLoop::addEvent(Event* event, Timer when) {
  const unsigned long long at = instant(when.get_expire_time());
  const unsigned long long now = instant(Timer::now());
  void* const address = event;
  LOG(kAddEvent, "add event %p; expires at %llu (now: %llu)", address, at, now);
  (inloop ? incoming_events : events).emplace_back(event, when);
}

void SuperLoop::run_loops(Budget& budget) {
  utime_t& remaining = budget.remaining;
  for (EventLoop* const loop : loops) {
    const char* const label = current_loop_name = loop->name();
    const utime_t timeslice = slice(budget);
    LOG(kRunLoop, "SuperLoop event %s gets timeslice %d", label, shown(timeslice));
    const utime_t t0 = Timer::now();
    loop->runLoop(timeslice);
    const utime_t elapsed = Timer::now() - t0;
    if (elapsed > remaining) {
      const int late = shown(elapsed - remaining);
      const category& warning = *category::forName("WARNING");
      UTIL_LOG_AS(logger, warning, kRunLoop, "event loop %s LATE by %d ms!", label, late);
      remaining = 0;
    } else {
      remaining -= elapsed;
    }
    ++budget.idx;
    const int left = shown(remaining);
    LOG(kRunLoop, "SuperLoop event done in %d; timeout remaining %d", shown(elapsed), left);
  }
}

void SuperLoop::run_events(Budget& budget) {
  current_loop_name = "util::SuperLoop::Events";
  for (auto at = events.begin(); at != events.end();) {
    const utime_t expires = at->second.get_expire_time();
    const utime_t t0 = Timer::now();
    LOG(kRunLoop, "event timeout: %llu now: %llu", instant(expires), instant(t0));
    // Kept: not in the very millisecond of its expiry.
    at = at->second.expired() ? run_event(at, budget) : std::next(at);
    const utime_t elapsed = Timer::now() - t0;
    ++budget.idx;
    // Kept: no floor at 0, unlike a sub-loop; an overrun wraps and later slices are huge.
    budget.remaining -= elapsed;
    const int left = shown(budget.remaining);
    LOG(kRunLoop, "SuperLoop event trigger done in %d; timeout remaining %d", shown(elapsed), left);
  }
}

// Returns the entry after.
SuperLoop::TimedEvents::iterator SuperLoop::run_event(TimedEvents::iterator at,
                                                      const Budget& budget) {
  Event* const event = at->first;
  const int place = shown(budget.idx - loops.size() + 1);  // in this pass's walk, from 1
  const utime_t timeslice = slice(budget);
  LOG(kRunLoop, "SuperLoop trigger event %d with timeslice %d", place, shown(timeslice));
  event->run(timeslice);
  const auto next = events.erase(at);
  release(event);
  return next;
}

// An equal share for each one yet to run. Kept: an event that was run is erased and counted too, so
// those after it get more, the last ones all.
utime_t SuperLoop::slice(const Budget& budget) const {
  const size_t total = loops.size() + events.size();
  return budget.idx < total ? budget.remaining / (total - budget.idx) : budget.remaining;
}

void SuperLoop::sleep_rest(utime_t timeout, utime_t start) {
  const utime_t spent = Timer::now() - start;
  if (spent >= timeout) return;
  LOG(kRunLoop, "SuperLoop sleeping for %d", shown(timeout - spent));
  Timer::sleep(timeout - spent);
}

// Kept: additions before removals. What was both added and removed ends up absent, whatever the
// order.
void SuperLoop::apply_changes() {
  current_loop_name = "util::SuperLoop::Erasure";
  loops.splice(loops.end(), incoming_loops);
  for (EventLoop* const loop : outgoing_loops) loops.remove(loop);
  outgoing_loops.clear();
  events.splice(events.end(), incoming_events);
}

}  // namespace util
