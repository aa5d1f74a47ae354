// SPDX-License-Identifier: MIT
// A program built without run-time type information, which embedded builds often leave out.
#include "util/SuperLoop.h"
#include "util/logger.h"

#include <stdio.h>

#include <string>

#include <gtest/gtest.h>

#ifdef __GXX_RTTI
#error "build this file with -fno-rtti"
#endif

using namespace util;

namespace {

int destroyed = 0;

struct Noticing {
  ~Noticing() { ++destroyed; }

  std::string text = std::string(100, 'x');  // leaks if it is not destroyed
};

class Numbers : public publisher {
 public:
  int publish(category&, const char*, const char*, va_list) override { return ++counts_[0]; }

 private:
  int counts_[50] = {};
};

class OwnClass : public publisher {
 public:
  int publish(category&, const char*, const char*, va_list) override { return 0; }

 private:
  Noticing noticing_;
};

class Stream : public file_publisher {
 public:
  explicit Stream(FILE* stream) : file_publisher(stream) {}

 private:
  Noticing noticing_;
};

class Rolling : public rolling_file_publisher {
 public:
  Rolling() : rolling_file_publisher("/dev/null", 0, 0) {}

 private:
  Noticing noticing_;
};

// Its publisher does not begin where the object begins.
class Second : public Noticing, public Stream {
 public:
  Second() : Stream(nullptr) {}
};

class NoRtti : public testing::Test {
 protected:
  NoRtti() : log(*logger::getLogger("no_rtti")) {
    log.setUseParentPublisher(false);
    log.enable(INFO);
    destroyed = 0;
  }

  // Through the plain base, so that the library has to find out what it is.
  void publish_through(publisher* p) {
    log.setPublisher(p);
    UTIL_LOG(&log, INFO, "x");
    log.setPublisher(nullptr);
  }

  logger& log;
};

}  // namespace

TEST_F(NoRtti, ReleasesAPublisherWithoutADestructorThroughThePlainBase) {
  publish_through(new Numbers);
  publish_through(new syslog_publisher);
}

TEST_F(NoRtti, DestroysStreamPublishersCompletelyThroughThePlainBase) {
  publish_through(new Stream(fopen("/dev/null", "w")));
  EXPECT_EQ(1, destroyed);
  publish_through(new Rolling);
  EXPECT_EQ(2, destroyed);
  publish_through(new Second);
  EXPECT_EQ(4, destroyed);
}

TEST_F(NoRtti, DestroysAPublisherCompletelyThroughItsOwnClass) {
  log.setPublisher(new OwnClass);
  log.setPublisher(nullptr);
  EXPECT_EQ(1, destroyed);
}

TEST_F(NoRtti, RunsAndReleasesAnEvent) {
  class Once : public Event {
   public:
    explicit Once(int& runs) : runs_(runs) {}
    void run(utime_t) override { ++runs_; }

   private:
    int& runs_;
  };
  class Idle : public EventLoop {
   public:
    void runLoop(utime_t) override {}
  };
  Idle idle;
  int runs = 0;
  SuperLoop loop(&log);
  loop.addEvent(&idle);
  loop.addEvent(new Once(runs), 0);
  loop.addEvent(new Once(runs), 90000);
  loop.runLoop(2);
  loop.runLoop(0);
  EXPECT_EQ(1, runs);
}
