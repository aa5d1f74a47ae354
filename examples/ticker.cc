// SPDX-License-Identifier: MIT
// Two sub-loops share the cycles of a loop: each is told how much time it may spend.
#include <util/SuperLoop.h>

#include <cstdio>

class Ticker : public util::EventLoop {
 public:
  explicit Ticker(const char* name) : name_(name) {}

  void runLoop(util::utime_t timeslice) override {
    printf("%s may take %d ms\n", name_, static_cast<int>(timeslice));
  }

  const char* name() override { return name_; }

 private:
  const char* name_;
};

int main() {
  Ticker tick("tick");
  Ticker tock("tock");
  util::SuperLoop loop;
  loop.addEvent(&tick);
  loop.addEvent(&tock);
  for (int i = 0; i < 3; ++i) loop.runLoop(200);
}
