// SPDX-License-Identifier: MIT
// What the suites of the loop share: a loop whose messages are noted, a sub-loop, an event.
#pragma once

#include "tests/support/clock.h"
#include "util/SuperLoop.h"

#include <stdarg.h>
#include <stdio.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::FrozenClock;
using testing::ElementsAre;
using util::Event;
using util::EventLoop;
using util::logger;
using util::SuperLoop;
using util::Timer;
using util::utime_t;

using Texts = std::vector<std::string>;

constexpr int64_t kNow = 1172757909000;

// Notes the entries of the loop's logger.
class Journal : public util::publisher {
 public:
  Journal(Texts& messages, Texts& labels) : messages_(messages), labels_(labels) {}

  int publish(util::category& c, const char* where, const char* format, va_list args) override {
    char buffer[1000];
    const int size = vsnprintf(buffer, sizeof buffer, format, args);
    messages_.push_back(buffer);
    labels_.push_back(c.name() + " from " + where);
    return size;
  }

 private:
  Texts& messages_;
  Texts& labels_;
};

// A loop under a frozen clock that starts at kNow, whose messages are collected.
class SuperLoopTest : public testing::Test {
 protected:
  SuperLoopTest() : log(logger::getLogger("SuperLoopTest")) {
    log->setUseParentPublisher(false);
    log->setPublisher(new Journal(messages, labels));
    log->clear_components();
    log->enable(util::EVENT_LOOP);
    log->enable(util::DEBUG);
  }

  ~SuperLoopTest() override { log->setPublisher(nullptr); }

  // The messages so far that contain `part`.
  Texts messages_with(const std::string& part) const {
    Texts found;
    for (const std::string& message : messages) {
      if (message.find(part) != std::string::npos) found.push_back(message);
    }
    return found;
  }

  FrozenClock clock{kNow};
  Texts messages;
  Texts labels;  // "<category> from <function>"
  logger* const log;
  SuperLoop loop{log};
};

// A sub-loop that takes `takes` milliseconds a round.
class Work : public EventLoop {
 public:
  explicit Work(FrozenClock& clock, int64_t milliseconds = 0, const char* name = "work")
      : takes(milliseconds), clock_(clock), name_(name) {}

  void runLoop(utime_t timeslice) override {
    slices.push_back(timeslice);
    clock_.advance(takes);
    if (also) also();
  }

  const char* name() override { return name_; }

  int64_t takes;
  std::function<void()> also;
  std::vector<utime_t> slices;

 private:
  FrozenClock& clock_;
  const char* name_;
};

// Puts what it does into a function of the test's.
class Act : public Event {
 public:
  explicit Act(std::function<void(utime_t)>& action) : action_(&action) {}

  void run(utime_t timeslice) override { (*action_)(timeslice); }

 private:
  std::function<void(utime_t)>* action_;
};

class Unnamed : public EventLoop {
 public:
  void runLoop(utime_t) override {}
};
