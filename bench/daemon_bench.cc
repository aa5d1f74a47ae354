// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "service/Loop.h"

#include <ev.h>
#include <event2/event.h>
#include <malloc.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <uv.h>

#include <memory>
#include <thread>

namespace {

constexpr size_t kOthers = 10000;
constexpr size_t kTimers = 100000;
constexpr size_t kRounds = 1000;  // in which callbacks register
constexpr size_t kRegistrations = 1000;

// libev's EV_READ, which libevent's macro of that name hides.
constexpr int kEvRead = 1;

size_t calls = 0;

// ---- a byte answered ----

// Descriptors on which nothing ever happens.
const std::vector<int>& others() {
  static const std::vector<int> all = [] {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<int> made(kOthers);
    for (int& one : made) bench::require((one = eventfd(0, 0)) >= 0, "descriptors");
    return made;
  }();
  return all;
}

void answer(int end) {
  char byte = 0;
  bench::require(read(end, &byte, 1) == 1 && write(end, &byte, 1) == 1, "an answer");
}

void serve_ours(int end, size_t count) {
  util::logger::rootLogger()->clear_components();
  service::Loop loop;
  std::vector<service::Handle> watches;
  for (size_t i = 0; i < count; ++i) {
    watches.push_back(loop.watch(others()[i], EPOLLIN, [](uint32_t) { ++calls; }));
  }
  watches.push_back(loop.watch(end, EPOLLIN, [end](uint32_t) { answer(end); }));
  loop.run(1000);
}

void serve_uv(int end, size_t count) {
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_poll_t> polls(count + 1);
  for (size_t i = 0; i < count; ++i) {
    uv_poll_init(&loop, &polls[i], others()[i]);
    uv_poll_start(&polls[i], UV_READABLE, [](uv_poll_t*, int, int) { ++calls; });
  }
  uv_poll_init(&loop, &polls[count], end);
  polls[count].data = &end;
  uv_poll_start(&polls[count], UV_READABLE,
                [](uv_poll_t* poll, int, int) { answer(*static_cast<int*>(poll->data)); });
  uv_run(&loop, UV_RUN_DEFAULT);
}

void serve_ev(int end, size_t count) {
  struct ev_loop* const loop = ev_loop_new(EVFLAG_AUTO);
  std::vector<ev_io> watchers(count + 1);
  for (size_t i = 0; i < count; ++i) {
    const auto called = [](struct ev_loop*, ev_io*, int) { ++calls; };
    ev_io_init(&watchers[i], called, others()[i], kEvRead);
    ev_io_start(loop, &watchers[i]);
  }
  const auto called = [](struct ev_loop*, ev_io* watcher, int) { answer(watcher->fd); };
  ev_io_init(&watchers[count], called, end, kEvRead);
  ev_io_start(loop, &watchers[count]);
  ev_run(loop, 0);
}

void serve_event(int end, size_t count) {
  event_base* const base = event_base_new();
  const auto watch = [base](int descriptor, event_callback_fn called) {
    event_add(event_new(base, descriptor, EV_READ | EV_PERSIST, called, nullptr), nullptr);
  };
  for (size_t i = 0; i < count; ++i) {
    watch(others()[i], [](evutil_socket_t, short, void*) { ++calls; });
  }
  watch(end, [](evutil_socket_t descriptor, short, void*) { answer(descriptor); });
  event_base_dispatch(base);
}

// The loop has a thread of its own, to the end of the process.
auto ask(void (*serve)(int, size_t), size_t count) {
  int ends[2] = {};
  bench::require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "sockets");
  others();
  std::thread(serve, ends[1], count).detach();
  return [end = ends[0]] {
    char byte = 0;
    bench::require(write(end, "x", 1) == 1 && read(end, &byte, 1) == 1, "a question");
  };
}

// ---- timers ----

// The i-th of so many: some milliseconds, in disorder.
unsigned delay(size_t i) { return static_cast<unsigned>(i * 7919 % 8); }

auto timers_ours() {
  return [loop = std::make_shared<service::Loop>()] {
    std::vector<service::Handle> timers(kTimers);
    for (size_t i = 0; i < kTimers; ++i) timers[i] = loop->after(delay(i), [] { ++calls; });
    for (size_t i = 0; i < kTimers; i += 2) timers[i].cancel();
    for (calls = 0; calls < kTimers / 2;) loop->runLoop(1);
  };
}

struct Uv {
  Uv() { uv_loop_init(&loop); }
  ~Uv() {
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
  }
  Uv(const Uv&) = delete;
  Uv& operator=(const Uv&) = delete;

  uv_loop_t loop;
};

template <class Kind>
void close_uv(Kind* handle) {
  uv_close(reinterpret_cast<uv_handle_t*>(handle),
           [](uv_handle_t* closed) { delete reinterpret_cast<Kind*>(closed); });
}

uv_timer_t* timer_uv(uv_loop_t* loop, unsigned milliseconds) {
  auto* const timer = new uv_timer_t;
  uv_timer_init(loop, timer);
  uv_timer_start(
      timer,
      [](uv_timer_t* fired) {
        ++calls;
        close_uv(fired);
      },
      milliseconds, 0);
  return timer;
}

auto timers_uv() {
  return [own = std::make_shared<Uv>()] {
    std::vector<uv_timer_t*> timers(kTimers);
    uv_update_time(&own->loop);
    for (size_t i = 0; i < kTimers; ++i) timers[i] = timer_uv(&own->loop, delay(i));
    for (size_t i = 0; i < kTimers; i += 2) close_uv(timers[i]);
    calls = 0;
    uv_run(&own->loop, UV_RUN_DEFAULT);
  };
}

using Ev = std::unique_ptr<struct ev_loop, void (*)(struct ev_loop*)>;

auto new_ev() { return std::make_shared<Ev>(ev_loop_new(EVFLAG_AUTO), ev_loop_destroy); }

ev_timer* timer_ev(struct ev_loop* loop, unsigned milliseconds) {
  auto* const timer = new ev_timer;
  const auto fired = [](struct ev_loop*, ev_timer* own, int) {
    ++calls;
    delete own;
  };
  ev_timer_init(timer, fired, milliseconds / 1000., 0.);
  ev_timer_start(loop, timer);
  return timer;
}

void drop_ev(struct ev_loop* loop, ev_timer* timer) {
  ev_timer_stop(loop, timer);
  delete timer;
}

auto timers_ev() {
  return [own = new_ev()] {
    std::vector<ev_timer*> timers(kTimers);
    ev_now_update(own->get());
    for (size_t i = 0; i < kTimers; ++i) timers[i] = timer_ev(own->get(), delay(i));
    for (size_t i = 0; i < kTimers; i += 2) drop_ev(own->get(), timers[i]);
    calls = 0;
    ev_run(own->get(), 0);
  };
}

using Base = std::unique_ptr<event_base, void (*)(event_base*)>;

auto new_base() { return std::make_shared<Base>(event_base_new(), event_base_free); }

event* timer_event(event_base* base, unsigned milliseconds) {
  event* const timer = evtimer_new(
      base,
      [](evutil_socket_t, short, void* own) {
        ++calls;
        event_free(static_cast<event*>(own));
      },
      event_self_cbarg());
  const timeval when = {0, static_cast<suseconds_t>(milliseconds) * 1000};
  event_add(timer, &when);
  return timer;
}

auto timers_event() {
  return [own = new_base()] {
    std::vector<event*> timers(kTimers);
    for (size_t i = 0; i < kTimers; ++i) timers[i] = timer_event(own->get(), delay(i));
    for (size_t i = 0; i < kTimers; i += 2) event_free(timers[i]);
    calls = 0;
    event_base_dispatch(own->get());
  };
}

// ---- registrations made and dropped inside callbacks ----

// `round` is a callback that does kRegistrations.
template <class Round>
void rounds_ours(service::Loop& loop, Round round) {
  for (size_t i = 0; i < kRounds; ++i) {
    const service::Handle due = loop.after(0, round);
    loop.runLoop(0);
  }
}

auto register_timers_ours() {
  return [loop = std::make_shared<service::Loop>()] {
    const size_t before = mallinfo2().uordblks;
    rounds_ours(*loop, [&] {
      for (size_t i = 0; i < kRegistrations; ++i) loop->after(1000, [] {});
      calls += kRegistrations;
    });
    bench::require(mallinfo2().uordblks < before + 10000, "memory");
  };
}

template <class Work>
void callback_uv(uv_loop_t* loop, Work& work) {
  uv_timer_t timer;
  uv_timer_init(loop, &timer);
  timer.data = &work;
  uv_timer_start(
      &timer,
      [](uv_timer_t* fired) {
        (*static_cast<Work*>(fired->data))();
        uv_close(reinterpret_cast<uv_handle_t*>(fired), nullptr);
      },
      0, 0);
  uv_run(loop, UV_RUN_DEFAULT);
}

auto register_timers_uv() {
  return [own = std::make_shared<Uv>()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) close_uv(timer_uv(&own->loop, 1000));
      calls += kRegistrations;
    };
    for (size_t i = 0; i < kRounds; ++i) callback_uv(&own->loop, work);
  };
}

template <class Work>
void callback_ev(struct ev_loop* loop, Work& work) {
  ev_timer timer;
  const auto fired = [](struct ev_loop*, ev_timer* own, int) {
    (*static_cast<Work*>(own->data))();
  };
  ev_timer_init(&timer, fired, 0., 0.);
  timer.data = &work;
  ev_timer_start(loop, &timer);
  ev_run(loop, 0);
}

auto register_timers_ev() {
  return [own = new_ev()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) drop_ev(own->get(), timer_ev(own->get(), 1000));
      calls += kRegistrations;
    };
    for (size_t i = 0; i < kRounds; ++i) callback_ev(own->get(), work);
  };
}

template <class Work>
void callback_event(event_base* base, Work& work) {
  const timeval now = {0, 0};
  event_base_once(
      base, -1, EV_TIMEOUT,
      [](evutil_socket_t, short, void* called) { (*static_cast<Work*>(called))(); }, &work, &now);
  event_base_dispatch(base);
}

auto register_timers_event() {
  return [own = new_base()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) event_free(timer_event(own->get(), 1000));
      calls += kRegistrations;
    };
    for (size_t i = 0; i < kRounds; ++i) callback_event(own->get(), work);
  };
}

// The same with 1,000 descriptors.
auto register_watches_ours() {
  return [loop = std::make_shared<service::Loop>()] {
    const service::Handle due = loop->after(0, [&] {
      for (size_t i = 0; i < kRegistrations; ++i)
        loop->watch(others()[i], EPOLLIN, [](uint32_t) {});
      calls += kRegistrations;
    });
    loop->runLoop(0);
  };
}

auto register_watches_uv() {
  return [own = std::make_shared<Uv>()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) {
        auto* const poll = new uv_poll_t;
        uv_poll_init(&own->loop, poll, others()[i]);
        uv_poll_start(poll, UV_READABLE, [](uv_poll_t*, int, int) {});
        close_uv(poll);
      }
      calls += kRegistrations;
    };
    callback_uv(&own->loop, work);
  };
}

auto register_watches_ev() {
  return [own = new_ev()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) {
        auto* const io = new ev_io;
        const auto called = [](struct ev_loop*, ev_io*, int) {};
        ev_io_init(io, called, others()[i], kEvRead);
        ev_io_start(own->get(), io);
        ev_io_stop(own->get(), io);
        delete io;
      }
      calls += kRegistrations;
    };
    callback_ev(own->get(), work);
  };
}

auto register_watches_event() {
  return [own = new_base()] {
    auto work = [&] {
      for (size_t i = 0; i < kRegistrations; ++i) {
        event* const watch = event_new(
            own->get(), others()[i], EV_READ, [](evutil_socket_t, short, void*) {}, nullptr);
        event_add(watch, nullptr);
        event_free(watch);
      }
      calls += kRegistrations;
    };
    callback_event(own->get(), work);
  };
}

// Adds a case whose unit has to leave that many calls.
template <class Make>
void add(const std::string& work, const std::string& who, size_t expected, Make make) {
  auto unit = make();
  calls = 0;
  unit();
  bench::require(calls == expected, work + ": calls of " + who);
  bench::add(work, who, make);
}

}  // namespace

void bench::add_cases() {
  for (const size_t count : {size_t{0}, size_t{100}, kOthers}) {
    const std::string answers = "a byte answered, " + std::to_string(count) + " other descriptors";
    bench::add(answers, "ours", [=] { return ask(serve_ours, count); });
    bench::add(answers, "libuv", [=] { return ask(serve_uv, count); });
    bench::add(answers, "libev", [=] { return ask(serve_ev, count); });
    bench::add(answers, "libevent", [=] { return ask(serve_event, count); });
  }

  const std::string timers = "100000 timers made, half cancelled, half fired";
  ::add(timers, "ours", kTimers / 2, timers_ours);
  ::add(timers, "libuv", kTimers / 2, timers_uv);
  ::add(timers, "libev", kTimers / 2, timers_ev);
  ::add(timers, "libevent", kTimers / 2, timers_event);

  const std::string registered = "1000000 timers made and dropped in callbacks";
  ::add(registered, "ours", kRounds * kRegistrations, register_timers_ours);
  ::add(registered, "libuv", kRounds * kRegistrations, register_timers_uv);
  ::add(registered, "libev", kRounds * kRegistrations, register_timers_ev);
  ::add(registered, "libevent", kRounds * kRegistrations, register_timers_event);

  const std::string watched = "1000 descriptors watched and dropped in a callback";
  ::add(watched, "ours", kRegistrations, register_watches_ours);
  ::add(watched, "libuv", kRegistrations, register_watches_uv);
  ::add(watched, "libev", kRegistrations, register_watches_ev);
  ::add(watched, "libevent", kRegistrations, register_watches_event);
}
