// SPDX-License-Identifier: MIT
#include <util/SuperLoop.h>

#include <cstdio>

// Done once, some time after it was added; the loop releases it.
struct Stop : util::Event {
  explicit Stop(bool* flag) : running(flag) {}

  void run(util::utime_t) override {
    std::puts("time is up");
    *running = false;
  }

  bool* running;
};

// One round a pass. It may change the loop that runs it: this takes effect at the end of the pass.
struct Worker : util::EventLoop {
  explicit Worker(util::SuperLoop* in, bool* flag) : loop(in), running(flag) {}

  void runLoop(util::utime_t slice) override {
    if (++rounds > 3) return;
    std::printf("round %d, %llu ms for it\n", rounds, static_cast<unsigned long long>(slice));
    if (rounds == 3) loop->addEvent(new Stop(running), util::Timer(50));
  }

  const char* name() override { return "worker"; }

  util::SuperLoop* loop;
  bool* running;
  int rounds = 0;
};

int main() {
  bool running = true;
  util::SuperLoop loop;
  Worker worker(&loop, &running);
  loop.addEvent(&worker);
  while (running) loop.runLoop(20);
}
