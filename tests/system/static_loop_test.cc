// SPDX-License-Identifier: MIT
// A loop used before the library's own static objects are there and after they are gone: linked
// with the static library, this program's come first.
#include "util/SuperLoop.h"

#include <stdarg.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

// Never destroyed.
std::vector<std::string>& labels() {
  static auto& all = *new std::vector<std::string>;
  return all;
}

class Labels : public util::publisher {
 public:
  int publish(util::category& c, const char*, const char*, va_list) override {
    labels().push_back(c.name());
    return 0;
  }
};

class Late : public util::EventLoop {
 public:
  void runLoop(util::utime_t) override { util::Timer::sleep(2); }
};

class Daemon {
 public:
  Daemon() : loop_(log()) {
    loop_.addEvent(&late_);
    loop_.runLoop(0);
  }

  // Fails the program where the category is no longer whole.
  ~Daemon() {
    labels().clear();
    loop_.removeEvent(&late_);
    if (labels() != std::vector<std::string>{"EVENT LOOP|DEBUG"}) _exit(1);
  }

 private:
  static util::logger* log() {
    util::logger* const own = util::logger::getLogger("static");
    own->setPublisher(new Labels);
    own->setUseParentPublisher(false);
    own->enable(util::EVENT_LOOP);
    own->enable(util::DEBUG);
    return own;
  }

  Late late_;
  util::SuperLoop loop_;
};

const Daemon daemon;

}  // namespace

TEST(StaticLoop, LogsUnderWholeCategoriesBeforeMain) {
  EXPECT_THAT(labels(), ElementsAre("EVENT LOOP|DEBUG", "EVENT LOOP|DEBUG", "EVENT LOOP|DEBUG",
                                    "WARNING", "EVENT LOOP|DEBUG"));
}
