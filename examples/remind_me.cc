// SPDX-License-Identifier: MIT
// Says something once, a second from now: remind_me "tea is ready"
#include <util/SuperLoop.h>

#include <cstdio>

class Reminder : public util::Event {
 public:
  Reminder(const char* text, bool& done) : text_(text), done_(done) {}

  void run(util::utime_t) override {
    printf("%s\n", text_);
    done_ = true;
  }

 private:
  const char* text_;
  bool& done_;
};

// Events are run beside sub-loops only, so there has to be one.
class Idle : public util::EventLoop {
 public:
  void runLoop(util::utime_t) override {}
};

int main(int argc, char** argv) {
  bool done = false;
  Idle idle;
  util::SuperLoop loop;
  loop.addEvent(&idle);
  loop.addEvent(new Reminder(argc > 1 ? argv[1] : "time is up", done), 1000);
  while (!done) loop.runLoop(100);
}
