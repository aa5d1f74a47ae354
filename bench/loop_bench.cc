// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/SuperLoop.h"

#include <ev.h>
#include <event2/event.h>
#include <sys/time.h>
#include <uv.h>

#include <asio.hpp>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <utility>

namespace {

constexpr size_t kLoops = 8;
constexpr size_t kEvents = 1000;
constexpr util::utime_t kNever = 1000000;
constexpr util::utime_t kDue = -util::utime_t{1000};  // a second ago

long rounds = 0;  // of all sub-loops and events

struct Trivial : util::EventLoop {
  void runLoop(util::utime_t) override { ++rounds; }
  const char* name() override { return "trivial"; }
};

struct Once final : util::Event {
  void run(util::utime_t) override { ++rounds; }
};

// ---- ours ----

struct Ours {
  explicit Ours(size_t count) : loops(count) {
    util::logger::rootLogger()->clear_components();
    for (Trivial& trivial : loops) loop.addEvent(&trivial);
  }

  std::vector<Trivial> loops;
  util::SuperLoop loop;
};

auto pass_ours() {
  return [own = std::make_shared<Ours>(kLoops)] { own->loop.runLoop(0); };
}

auto walk_ours(size_t events) {
  const auto own = std::make_shared<Ours>(1);
  for (size_t i = 0; i < events; ++i) own->loop.addEvent(new Once, util::Timer(kNever));
  return [own] { own->loop.runLoop(0); };
}

auto fire_ours() {
  return [own = std::make_shared<Ours>(1), due = util::Timer(kDue)] {
    for (size_t i = 0; i < kEvents; ++i) own->loop.addEvent(new Once, due);
    own->loop.runLoop(0);
  };
}

// ---- by hand ----

// A loop with the test of the logger, the checkpoints and the readings of the clock of a pass: two
// for an event, or with `kReadings` 3 as many as ours, which takes another one when it is added.
template <int kReadings>
class ByHand {
 public:
  ~ByHand() {
    for (const auto& entry : events) delete entry.first;
  }

  void pass(util::utime_t timeout) {
    log("SuperLoop.cc:70");
    const util::utime_t start = now();
    util::utime_t remaining = timeout;
    for (util::EventLoop* const loop : loops) {
      log("SuperLoop.cc:74");
      const util::utime_t t0 = now();
      loop->runLoop(remaining);
      const util::utime_t elapsed = now() - t0;
      remaining = elapsed > remaining ? 0 : remaining - elapsed;
      log("SuperLoop.cc:79");
    }
    for (auto at = events.begin(); at != events.end();) {
      const util::utime_t t0 = now();
      log("SuperLoop.cc:83");
      const util::utime_t looked = kReadings == 2 ? t0 : now();
      at = at->second < looked ? fire(at, remaining) : std::next(at);
      remaining -= now() - t0;
      log("SuperLoop.cc:86");
    }
    if (now() - start < timeout) abort();  // no case sleeps
  }

  void add(Once* event, util::utime_t when) {
    if (kReadings == 3) bench::keep(now());
    log("SuperLoop.cc:91");
    events.emplace_back(event, when);
  }

  static util::utime_t now() {
    timeval read = {};
    gettimeofday(&read, nullptr);
    return static_cast<util::utime_t>(read.tv_sec) * 1000 +
           static_cast<util::utime_t>(read.tv_usec) / 1000;
  }

  std::list<util::EventLoop*> loops;

 private:
  using Events = std::list<std::pair<Once*, util::utime_t>>;

  template <size_t kSize>
  void log(const char (&position)[kSize]) {
    if ((enabled & 0x27) == 0x27) abort();
    memcpy(checkpoint, position, kSize);
  }

  typename Events::iterator fire(typename Events::iterator at, util::utime_t remaining) {
    log("SuperLoop.cc:112");
    at->first->run(remaining);
    delete at->first;
    return events.erase(at);
  }

  Events events;
  volatile uint64_t enabled = 0;
  char checkpoint[64] = "";
};

template <int kReadings = 2>
struct HandMade {
  explicit HandMade(size_t count) : loops(count) {
    for (Trivial& trivial : loops) loop.loops.push_back(&trivial);
  }

  std::vector<Trivial> loops;
  ByHand<kReadings> loop;
};

auto pass_by_hand() {
  return [own = std::make_shared<HandMade<>>(kLoops)] { own->loop.pass(0); };
}

template <int kReadings>
auto walk_by_hand(size_t events) {
  const auto own = std::make_shared<HandMade<kReadings>>(1);
  const util::utime_t when = own->loop.now() + kNever;
  for (size_t i = 0; i < events; ++i) own->loop.add(new Once, when);
  return [own] { own->loop.pass(0); };
}

template <int kReadings>
auto fire_by_hand() {
  return [own = std::make_shared<HandMade<kReadings>>(1), due = util::Timer::now() + kDue] {
    for (size_t i = 0; i < kEvents; ++i) own->loop.add(new Once, due);
    own->loop.pass(0);
  };
}

// ---- libuv ----

struct Uv {
  Uv() { uv_loop_init(&loop); }
  ~Uv() {
    for (uv_idle_t& handle : idle) uv_close(reinterpret_cast<uv_handle_t*>(&handle), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
  }
  Uv(const Uv&) = delete;
  Uv& operator=(const Uv&) = delete;

  uv_loop_t loop;
  std::vector<uv_idle_t> idle;
};

auto pass_uv() {
  const auto own = std::make_shared<Uv>();
  own->idle.resize(kLoops);
  for (uv_idle_t& handle : own->idle) {
    uv_idle_init(&own->loop, &handle);
    uv_idle_start(&handle, [](uv_idle_t*) { ++rounds; });
  }
  return [own] { uv_run(&own->loop, UV_RUN_NOWAIT); };
}

void fired_uv(uv_timer_t* timer) {
  ++rounds;
  uv_close(reinterpret_cast<uv_handle_t*>(timer),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
}

auto fire_uv() {
  return [own = std::make_shared<Uv>()] {
    for (size_t i = 0; i < kEvents; ++i) {
      auto* const timer = new uv_timer_t;
      uv_timer_init(&own->loop, timer);
      uv_timer_start(timer, fired_uv, 0, 0);
    }
    uv_run(&own->loop, UV_RUN_NOWAIT);
  };
}

// ---- libev ----

using Ev = std::unique_ptr<struct ev_loop, void (*)(struct ev_loop*)>;

auto new_ev() { return std::make_shared<Ev>(ev_loop_new(EVFLAG_AUTO), ev_loop_destroy); }

auto pass_ev() {
  const auto own = new_ev();
  const auto idle = std::make_shared<std::vector<ev_idle>>(kLoops);
  for (ev_idle& watcher : *idle) {
    ev_idle_init(&watcher, [](struct ev_loop*, ev_idle*, int) { ++rounds; });
    ev_idle_start(own->get(), &watcher);
  }
  return [own, idle] { ev_run(own->get(), EVRUN_NOWAIT); };
}

void fired_ev(struct ev_loop*, ev_timer* timer, int) {
  ++rounds;
  delete timer;
}

auto fire_ev() {
  return [own = new_ev()] {
    for (size_t i = 0; i < kEvents; ++i) {
      auto* const timer = new ev_timer;
      ev_timer_init(timer, fired_ev, 0., 0.);
      ev_timer_start(own->get(), timer);
    }
    ev_run(own->get(), EVRUN_NOWAIT);
  };
}

// ---- libevent ----

struct LibEvent {
  LibEvent() : base(event_base_new()) {
    for (size_t i = 0; i < kLoops; ++i) {
      events.push_back(event_new(
          base, -1, 0, [](evutil_socket_t, short, void*) { ++rounds; }, nullptr));
    }
  }
  ~LibEvent() {
    for (event* const one : events) event_free(one);
    event_base_free(base);
  }
  LibEvent(const LibEvent&) = delete;
  LibEvent& operator=(const LibEvent&) = delete;

  event_base* base;
  std::vector<event*> events;
};

auto pass_event() {
  return [own = std::make_shared<LibEvent>()] {
    for (event* const one : own->events) event_active(one, EV_TIMEOUT, 0);
    event_base_loop(own->base, EVLOOP_NONBLOCK);
  };
}

// ---- Asio ----

auto pass_asio() {
  return [context = std::make_shared<asio::io_context>(1)] {
    for (size_t i = 0; i < kLoops; ++i) asio::post(*context, [] { ++rounds; });
    context->restart();
    context->poll();
  };
}

// Adds a case whose unit has to do `expected` rounds.
template <class Make>
void add(const std::string& work, const std::string& who, size_t expected, Make make) {
  auto unit = make();
  rounds = 0;
  unit();
  bench::require(rounds == static_cast<long>(expected), work + ": rounds of " + who);
  bench::add(work, who, make);
}

}  // namespace

void bench::add_cases() {
  const std::string pass = "a pass, 8 sub-loops";
  ::add(pass, "ours", kLoops, pass_ours);
  ::add(pass, "libuv", kLoops, pass_uv);
  ::add(pass, "libev", kLoops, pass_ev);
  ::add(pass, "libevent", kLoops, pass_event);
  ::add(pass, "Asio", kLoops, pass_asio);
  ::add(pass, "floor", kLoops, pass_by_hand);

  for (const size_t events : {10U, 1000U, 100000U}) {
    const std::string walk = "a pass, " + std::to_string(events) + " pending events";
    ::add(walk, "ours", 1, [=] { return walk_ours(events); });
    ::add(walk, "floor", 1, [=] { return walk_by_hand<2>(events); });
    ::add(walk, "floor, 3 readings", 1, [=] { return walk_by_hand<3>(events); });
  }

  const std::string fire = "1000 due events";
  ::add(fire, "ours", kEvents + 1, fire_ours);
  ::add(fire, "libuv", kEvents, fire_uv);
  ::add(fire, "libev", kEvents, fire_ev);
  ::add(fire, "floor", kEvents + 1, fire_by_hand<2>);
  ::add(fire, "floor, 4 readings", kEvents + 1, fire_by_hand<3>);
}
