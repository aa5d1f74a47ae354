// SPDX-License-Identifier: MIT
// An idle daemon: a loop that does something once a second, for three seconds, between two calls of
// getppid(), by which a tracer finds them. Prints the context switches:
//
//   idle_daemon ours|libuv|libev|libevent
#include "service/Loop.h"

#include <ev.h>
#include <event2/event.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>
#include <uv.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kSeconds = 3;

int seconds = 0;
long before = 0;

long switches() {
  rusage used = {};
  getrusage(RUSAGE_SELF, &used);
  return used.ru_nvcsw;
}

void begin() {
  before = switches();
  getppid();
}

void ours() {
  struct Work : util::EventLoop {
    void runLoop(util::utime_t) override { ++seconds; }
  };
  static service::Loop loop;  // closes its descriptors later, as the peers do
  Work work;
  loop.addEvent(&work);
  begin();
  while (seconds < kSeconds) loop.runLoop(1000);
}

void uv() {
  uv_loop_t* const loop = uv_default_loop();
  uv_timer_t timer;
  uv_timer_init(loop, &timer);
  const auto called = [](uv_timer_t* own) {
    if (++seconds == kSeconds) uv_timer_stop(own);
  };
  uv_timer_start(&timer, called, 1000, 1000);
  begin();
  uv_run(loop, UV_RUN_DEFAULT);
}

void ev() {
  struct ev_loop* const loop = ev_default_loop(0);
  ev_timer timer;
  const auto called = [](struct ev_loop* own, ev_timer* due, int) {
    if (++seconds == kSeconds) ev_timer_stop(own, due);
  };
  ev_timer_init(&timer, called, 1., 1.);
  ev_timer_start(loop, &timer);
  begin();
  ev_run(loop, 0);
}

void libevent() {
  event_base* const base = event_base_new();
  const timeval second = {1, 0};
  const auto called = [](evutil_socket_t, short, void* own) {
    if (++seconds == kSeconds) event_del(static_cast<event*>(own));
  };
  event_add(event_new(base, -1, EV_PERSIST, called, event_self_cbarg()), &second);
  begin();
  event_base_dispatch(base);
}

}  // namespace

int main(int, char** argv) {
  struct {
    const char* name;
    void (*run)();
  } const rows[] = {
      {"ours",     ours    },
      {"libuv",    uv      },
      {"libev",    ev      },
      {"libevent", libevent},
  };
  for (const auto& row : rows) {
    if (argv[1] == nullptr || strcmp(argv[1], row.name) != 0) continue;
    row.run();
    getppid();
    printf("%ld\n", switches() - before);
    return 0;
  }
  return 1;
}
