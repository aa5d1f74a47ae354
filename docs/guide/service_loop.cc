// SPDX-License-Identifier: MIT
#include <service/Loop.h>
#include <service/LoopStatistics.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

// A sub-loop, as for any SuperLoop: one round a pass.
struct Sampler : util::EventLoop {
  void runLoop(util::utime_t) override { ++samples; }
  const char* name() override { return "sampler"; }

  int samples = 0;
};

int main() {
  service::Loop loop;
  loop.stop_on({SIGTERM, SIGINT});

  Sampler sampler;
  service::LoopStatistics measured(sampler);
  loop.addEvent(&measured);

  int ends[2];
  if (pipe(ends) < 0) throw util::system_exception();

  // Each handle owns what it stands for: this one lets go of the child that the reader starts.
  service::Handle child;
  const service::Handle reader = loop.watch(ends[0], EPOLLIN, [&](uint32_t) {
    char text[100];
    const ssize_t size = read(ends[0], text, sizeof text);
    std::printf("read: %.*s\n", static_cast<int>(size), text);
    const pid_t process = fork();
    if (process == 0) _exit(3);
    child = loop.on_exit(process, [](int status) {
      std::printf("the child has ended with %d\n", WEXITSTATUS(status));
      raise(SIGHUP);
    });
  });
  const service::Handle reload = loop.on_signal(SIGHUP, [] {
    std::puts("reloaded");
    raise(SIGTERM);  // which ends run() with the pass
  });
  const service::Handle once = loop.after(20, [&] {
    if (write(ends[1], "hello", 5) < 0) throw util::system_exception();
  });
  int ticks = 0;
  service::Handle ticking;
  ticking = loop.every(5, [&](uint64_t) {
    if (++ticks == 3) ticking.cancel();
  });

  loop.run(100);
  std::printf("%d ticks, samples: %s\n", ticks, measured.runs() > 0 ? "some" : "none");
}
