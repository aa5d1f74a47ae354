// SPDX-License-Identifier: MIT
#include "service/Loop.h"

#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "util/Timer.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using service::Handle;
using service::Loop;
using service::RegistrationError;
using support::Fault;
using support::FrozenClock;
using support::TempDir;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;

namespace {

constexpr util::utime_t kCycle = 20;

int64_t microseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

int64_t milliseconds() { return microseconds() / 1000; }

void work(int64_t duration) {
  const int64_t end = milliseconds() + duration;
  while (milliseconds() < end) continue;
}

// A connected pair of sockets.
class Pair {
 public:
  Pair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_)); }
  ~Pair() {
    close_near();
    close(ends_[1]);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  int near() const { return ends_[0]; }
  int far() const { return ends_[1]; }
  void fill() const { EXPECT_EQ(1, write(ends_[1], "x", 1)); }  // makes the near end readable
  void drain() const {
    char byte = 0;
    EXPECT_EQ(1, read(ends_[0], &byte, 1));
  }
  void close_near() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }

 private:
  int ends_[2] = {-1, -1};
};

// What is ready for reading for ever.
class Ready {
 public:
  Ready() : descriptor_(eventfd(1, EFD_CLOEXEC)) { EXPECT_GE(descriptor_, 0); }
  Ready(Ready&& from) noexcept : descriptor_(std::exchange(from.descriptor_, -1)) {}
  ~Ready() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

// Runs passes until `done` says so, or for ten seconds.
void run_until(Loop& loop, const std::function<bool()>& done) {
  const Handle limit = loop.after(10000, [&] {
    ADD_FAILURE() << "still waiting";
    loop.stop();
  });
  const Handle looking = loop.every(1, [&](uint64_t) {
    if (done()) loop.stop();
  });
  loop.run(kCycle);
}

// What a registration that is refused says.
int refused(const std::function<void()>& registration, const std::string& text) {
  try {
    registration();
  } catch (const RegistrationError& error) {
    EXPECT_THAT(error.what(), HasSubstr(text));
    return error.error_number();
  }
  ADD_FAILURE() << "not refused: " << text;
  return 0;
}

struct sigaction disposition(int number) {
  struct sigaction now = {};
  sigaction(number, nullptr, &now);
  return now;
}

pid_t child_that(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child != 0) return child;
  body();
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

int ended(pid_t child) {
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return status;
}

// The system's time as it may be set: runs on, and sleeping takes none.
class SetClock : public FrozenClock {
 public:
  SetClock() {
    before_reading = [this] { set(1000000000000 + milliseconds() + offset); };
  }

  std::vector<int64_t> slept() const {
    std::vector<int64_t> all;
    for (const int64_t nanoseconds : sleeps) all.push_back(nanoseconds / 1000000);
    return all;
  }

  int64_t offset = 0;
};

struct SubLoop : util::EventLoop {
  void runLoop(util::utime_t slice) override {
    slices.push_back(slice);
    if (round) round();
  }

  std::vector<util::utime_t> slices;
  std::function<void()> round;
};

// A logger whose warnings are collected.
class Warnings {
 public:
  Warnings() {
    log->setUseParentPublisher(false);
    log->setPublisher(new Publisher(messages));
    log->enable(util::WARNING);
  }
  ~Warnings() { log->setPublisher(nullptr); }
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  util::logger* const log = util::logger::getLogger("warnings");
  std::vector<std::string> messages;

 private:
  struct Publisher : util::publisher {
    explicit Publisher(std::vector<std::string>& to) : messages(to) {}
    int publish(util::category&, const char*, const char* format, va_list args) override {
      char text[200];
      vsnprintf(text, sizeof text, format, args);
      messages.push_back(text);
      return 0;
    }
    void flush() override {}

    std::vector<std::string>& messages;
  };
};

}  // namespace

// ---- descriptors ----

TEST(LoopWatch, CallsBackWithTheEventsThatCame) {
  Loop loop;
  const Pair pair;
  std::vector<uint32_t> events;
  const Handle watch = loop.watch(pair.near(), EPOLLIN | EPOLLOUT, [&](uint32_t came) {
    events.push_back(came);
    if (events.size() == 1) pair.fill();
    if (events.size() == 2) shutdown(pair.far(), SHUT_WR);
  });
  run_until(loop, [&] { return events.size() > 3; });
  ASSERT_GE(events.size(), 3U);
  EXPECT_EQ(uint32_t{EPOLLOUT}, events[0]);
  EXPECT_EQ(uint32_t{EPOLLIN | EPOLLOUT}, events[1]);
}

TEST(LoopWatch, CallsBackAtOnce) {
  Loop loop;
  const Pair pair;
  int64_t waited = -1;
  int64_t sent = 0;
  const Handle send = loop.after(20, [&] {
    sent = milliseconds();
    pair.fill();
  });
  const Handle watch = loop.watch(pair.near(), EPOLLIN, [&](uint32_t) {
    waited = milliseconds() - sent;
    pair.drain();
  });
  loop.runLoop(500);
  EXPECT_GE(waited, 0);
  EXPECT_LT(waited, 400);  // not at the end of the pass
}

TEST(LoopWatch, ServesBothEndsInOneProcess) {
  Loop loop;
  const Pair pair;
  int turns = 0;
  const auto answer = [&](int end) {
    char byte = 0;
    EXPECT_EQ(1, read(end, &byte, 1));
    if (++turns == 1000) return loop.stop();
    EXPECT_EQ(1, write(end, &byte, 1));
  };
  const Handle near = loop.watch(pair.near(), EPOLLIN, [&](uint32_t) { answer(pair.near()); });
  const Handle far = loop.watch(pair.far(), EPOLLIN, [&](uint32_t) { answer(pair.far()); });
  pair.fill();
  loop.run(kCycle);
  EXPECT_EQ(1000, turns);
}

TEST(LoopWatch, ChangesTheEventsWaitedFor) {
  Loop loop;
  const Pair pair;
  std::vector<uint32_t> events;
  Handle watch;
  watch = loop.watch(pair.near(), EPOLLOUT, [&](uint32_t came) {
    events.push_back(came);
    if (events.size() == 1) watch.change(EPOLLIN);
  });
  loop.runLoop(kCycle);
  EXPECT_THAT(events, ElementsAre(EPOLLOUT));
  pair.fill();
  loop.runLoop(kCycle);
  EXPECT_EQ(uint32_t{EPOLLIN}, events.back());
}

TEST(LoopWatch, RefusesToChangeWhatIsNotWatched) {
  Loop loop;
  const Pair pair;
  Handle nothing;
  EXPECT_THROW(nothing.change(EPOLLIN), std::logic_error);
  Handle timer = loop.after(1, [] {});
  EXPECT_THROW(timer.change(EPOLLIN), std::logic_error);
  Handle watch = loop.watch(pair.near(), EPOLLIN, [](uint32_t) {});
  const int closed = dup(pair.near());
  Handle gone = loop.watch(closed, EPOLLIN, [](uint32_t) {});
  close(closed);
  EXPECT_EQ(EBADF, refused([&] { gone.change(EPOLLOUT); }, "Bad file descriptor"));
}

TEST(LoopWatch, RefusesWhatCannotBeWatched) {
  Loop loop;
  const TempDir dir;
  dir.write("file", "text");
  const int file = open(dir.file("file").c_str(), O_RDONLY);
  const Pair pair;
  const auto watch = [&](int descriptor) { loop.watch(descriptor, EPOLLIN, [](uint32_t) {}); };
  EXPECT_EQ(EPERM, refused([&] { watch(file); },
                           "descriptor " + std::to_string(file) +
                               " cannot be watched: regular files and folders are always ready"));
  close(file);
  EXPECT_EQ(EBADF, refused([&] { watch(-1); }, "descriptor -1 cannot be watched: Bad file"));
  EXPECT_EQ(EBADF, refused([&] { watch(2000000000); }, "Bad file descriptor"));
  const Handle first = loop.watch(pair.near(), EPOLLIN, [](uint32_t) {});
  EXPECT_EQ(EEXIST, refused([&] { watch(pair.near()); }, "it is watched already"));
  const Fault fault("epoll_ctl", ENOSPC);
  EXPECT_EQ(ENOSPC, refused([&] { watch(pair.far()); }, "No space left"));
}

TEST(LoopWatch, MayBeCancelledByItsOwnCallback) {
  Loop loop;
  const Ready ready;
  int calls = 0;
  Handle watch;
  watch = loop.watch(ready.descriptor(), EPOLLIN, [&calls, &watch](uint32_t) {
    watch.cancel();
    ++calls;  // what was captured is still there
  });
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
  EXPECT_FALSE(watch);
}

TEST(LoopWatch, MayBeCancelledByTheCallbackOfAnother) {
  Loop loop;
  const Ready ready[2];
  Handle watches[2];
  int calls = 0;
  for (int i = 0; i < 2; ++i) {
    watches[i] = loop.watch(ready[i].descriptor(), EPOLLIN, [&, i](uint32_t) {
      ++calls;
      watches[1 - i].cancel();
      watches[i].change(0);
    });
  }
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
}

TEST(LoopWatch, MayAllBeCancelledByTheCallbackOfOne) {
  Loop loop;
  const std::vector<Ready> ready(100);
  std::vector<Handle> watches;
  int calls = 0;
  for (const Ready& one : ready) {
    watches.push_back(loop.watch(one.descriptor(), EPOLLIN, [&](uint32_t) {
      ++calls;
      watches.clear();
    }));
  }
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
}

TEST(LoopWatch, MayBeAddedByACallback) {
  Loop loop;
  const std::vector<Ready> ready(100);
  std::vector<Handle> watches;
  const std::function<void(uint32_t)> add = [&](uint32_t) {
    watches.back().change(0);
    if (watches.size() == ready.size()) return loop.stop();
    watches.push_back(loop.watch(ready[watches.size()].descriptor(), EPOLLIN, add));
  };
  watches.push_back(loop.watch(ready[0].descriptor(), EPOLLIN, add));
  loop.run(kCycle);
  EXPECT_EQ(100U, watches.size());
}

TEST(LoopWatch, EndsTheProcessIfACallbackThrows) {
  EXPECT_DEATH(
      {
        Loop loop;
        const Ready ready;
        const Handle watch = loop.watch(ready.descriptor(), EPOLLIN,
                                        [](uint32_t) { throw std::runtime_error("escaped"); });
        loop.runLoop(kCycle);
      },
      "escaped");
}

TEST(LoopWatch, ForgetsAClosedDescriptorWhoseNumberIsWatchedAgain) {
  Loop loop;
  int old_calls = 0;
  int new_calls = 0;
  const int number = eventfd(1, 0);
  Handle old = loop.watch(number, EPOLLIN, [&](uint32_t) { ++old_calls; });
  close(number);
  ASSERT_EQ(number, eventfd(1, 0));
  const Handle fresh = loop.watch(number, EPOLLIN, [&](uint32_t) { ++new_calls; });
  EXPECT_FALSE(old);
  old.cancel();  // takes nothing from the new one
  loop.runLoop(kCycle);
  EXPECT_EQ(0, old_calls);
  EXPECT_GT(new_calls, 0);
  close(number);
}

TEST(LoopWatch, SendsNoEventToTheSuccessorOfADescriptorThatWasReadyToo) {
  Loop loop;
  const Ready first;
  int number = eventfd(1, 0);
  int stale = 0;
  Handle watches[2];
  Handle fresh;
  const auto replace = [&] {  // closes the other one, which is ready, and takes its number
    watches[1].cancel();
    close(number);
    ASSERT_EQ(number, eventfd(0, 0));
    fresh = loop.watch(number, EPOLLIN, [&](uint32_t) { ++stale; });
  };
  watches[0] = loop.watch(first.descriptor(), EPOLLIN, [&](uint32_t) {
    watches[0].change(0);
    replace();
  });
  watches[1] = loop.watch(number, EPOLLIN, [](uint32_t) {});
  loop.runLoop(kCycle);
  EXPECT_TRUE(fresh);
  EXPECT_EQ(0, stale);
  close(number);
}

TEST(LoopWatch, DoesNotSpinForADescriptorThatWasClosedWhileACopyIsOpen) {
  Loop loop;
  Pair pair;
  const int number = pair.near();
  const int copy = dup(number);
  int old_calls = 0;
  int new_calls = 0;
  const Handle old = loop.watch(number, EPOLLIN, [&](uint32_t) { ++old_calls; });
  pair.close_near();
  ASSERT_EQ(number, eventfd(0, 0));
  const Handle fresh = loop.watch(number, EPOLLIN, [&](uint32_t) { ++new_calls; });
  pair.fill();  // the copy is readable now, for ever
  const Fault waits("epoll_wait", 0, Fault::kEvery);
  loop.runLoop(100);
  EXPECT_LT(waits.uses(), 10);
  EXPECT_EQ(0, old_calls);
  EXPECT_EQ(0, new_calls);
  eventfd_write(number, 1);
  loop.runLoop(kCycle);
  EXPECT_GT(new_calls, 0);
  close(number);
  close(copy);
}

TEST(LoopWatch, TakesANumberThatComesBackWithACopyOfWhatWasClosed) {
  Loop loop;
  Pair pair;
  const int number = pair.near();
  const int copy = dup(number);
  Handle old = loop.watch(number, EPOLLIN, [](uint32_t) {});
  pair.close_near();
  old.cancel();
  ASSERT_EQ(number, dup2(copy, number));
  int calls = 0;
  const Handle fresh = loop.watch(number, EPOLLIN, [&](uint32_t) { ++calls; });
  pair.fill();
  loop.runLoop(kCycle);
  EXPECT_GT(calls, 0);
  close(number);
  close(copy);
}

TEST(LoopWatch, ServesTenThousandReadyDescriptorsInTurn) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit raised = {std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 11000)),
                         limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &raised);
  ASSERT_GE(raised.rlim_cur, 10100U) << "this system has not enough descriptors for a process";
  Loop loop;
  const std::vector<Ready> ready(10000);
  std::vector<Handle> watches;
  std::vector<int> calls(ready.size());
  int total = 0;
  int before_the_timer = -1;
  Handle timer;
  for (size_t i = 0; i < ready.size(); ++i) {
    watches.push_back(loop.watch(ready[i].descriptor(), EPOLLIN, [&, i](uint32_t) {
      ++calls[i];
      if (++total == 100) timer = loop.after(0, [&] { before_the_timer = total; });
      if (total == 35000) loop.stop();
    }));
  }
  loop.run(10);
  EXPECT_GE(total, 35000);
  const auto most = std::minmax_element(calls.begin(), calls.end());
  EXPECT_LE(*most.second - *most.first, 1);
  EXPECT_EQ(100, before_the_timer);  // timers do not wait for those that are ready
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(LoopWatch, KeepsAnEdgeThatAPassHasNoTimeFor) {
  Loop loop;
  const std::vector<Ready> ready(10);
  std::vector<Handle> watches;
  int calls = 0;
  for (const Ready& one : ready) {
    watches.push_back(loop.watch(one.descriptor(), EPOLLIN | EPOLLET, [&](uint32_t) {
      ++calls;
      work(10);
    }));
  }
  loop.runLoop(kCycle);
  EXPECT_LT(calls, 5);  // the pass is over by then
  run_until(loop, [&] { return calls == 10; });
}

// ---- timers ----

TEST(LoopTimer, CallsBackOnceAndNotEarly) {
  Loop loop;
  const int64_t start = microseconds();
  int64_t waited = 0;
  int calls = 0;
  const Handle timer = loop.after(15, [&] {
    ++calls;
    waited = microseconds() - start;
  });
  EXPECT_TRUE(timer);
  for (int i = 0; i < 5; ++i) loop.runLoop(10);
  EXPECT_EQ(1, calls);
  EXPECT_GE(waited, 15000);
  EXPECT_FALSE(timer);
}

TEST(LoopTimer, KeepsTheOrderOfThoseDueTogether) {
  Loop loop;
  std::vector<int> order;
  std::vector<Handle> timers;
  for (const int delay : {9, 3, 6, 1, 8, 2, 7, 4, 5, 0}) {
    timers.push_back(
        loop.after(static_cast<util::utime_t>(delay), [&order, delay] { order.push_back(delay); }));
  }
  timers.erase(timers.begin() + 1);  // 3
  timers.erase(timers.begin() + 4);  // 2
  work(10);
  loop.runLoop(kCycle);
  EXPECT_THAT(order, ElementsAre(0, 1, 4, 5, 6, 7, 8, 9));
}

TEST(LoopTimer, FindsThePlaceOfEachOfMany) {
  struct Called {
    size_t number;
    util::utime_t delay;
  };
  Loop loop;
  std::vector<Handle> timers;
  std::vector<Called> called;
  unsigned random = 1;
  const auto below = [&random](size_t limit) {
    random = random * 1103515245 + 12345;
    return random / 65536 % limit;
  };
  for (size_t i = 0; i < 1000; ++i) {
    const util::utime_t delay = below(5);
    timers.push_back(loop.after(delay, [&called, i, delay] { called.push_back({i, delay}); }));
    if (below(3) == 0) timers[below(timers.size())].cancel();
  }
  run_until(loop, [&] {
    return std::none_of(timers.begin(), timers.end(), [](const Handle& timer) { return !!timer; });
  });
  EXPECT_GT(called.size(), 500U);
  for (auto late = called.begin(); late != called.end(); ++late) {
    for (auto early = called.begin(); early != late; ++early) {
      ASSERT_FALSE(late->number < early->number && late->delay <= early->delay);
    }
  }
}

TEST(LoopTimer, NeverCallsBackAfterAnEndlessDelay) {
  Loop loop;
  int calls = 0;
  const Handle once = loop.after(~util::utime_t{0}, [&] { ++calls; });
  const Handle ticks = loop.every(~util::utime_t{0}, [&](uint64_t) { ++calls; });
  loop.runLoop(kCycle);
  EXPECT_EQ(0, calls);
}

TEST(LoopTimer, MayStartItselfAgainAtOnceWithoutStarvingDescriptors) {
  Loop loop;
  const Ready ready;
  int reads = 0;
  Handle timer;
  const std::function<void()> again = [&] { timer = loop.after(0, again); };
  again();
  const Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [&](uint32_t) {
    if (++reads == 100) loop.stop();
  });
  loop.run(kCycle);
  EXPECT_GE(reads, 100);
}

TEST(LoopTimer, CountsTheTicksThatItMissedAndDoesNotDrift) {
  Loop loop;
  const int64_t start = milliseconds();
  int64_t ticks = 0;
  int64_t missed = 0;
  int64_t elapsed = 0;
  int calls = 0;
  const Handle timer = loop.every(10, [&](uint64_t left_out) {
    elapsed = milliseconds() - start;
    ticks += 1 + static_cast<int64_t>(left_out);
    missed += static_cast<int64_t>(left_out);
    work(13);
    if (++calls == 30) loop.stop();
  });
  loop.run(kCycle);
  EXPECT_GE(missed, 6);
  EXPECT_GE(elapsed, ticks * 10);
  EXPECT_LT(elapsed, ticks * 10 + 60);  // if each tick counted from the last one, 90 more
}

TEST(LoopTimer, MayBeCancelledInsideAnyCallback) {
  Loop loop;
  int calls = 0;
  Handle own;
  Handle other;
  own = loop.every(1, [&](uint64_t) {
    ++calls;
    own.cancel();
    other.cancel();
  });
  other = loop.after(1, [&] { ++calls; });
  work(5);
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
}

TEST(LoopTimer, RefusesAnIntervalOfNothing) {
  Loop loop;
  EXPECT_THROW(loop.every(0, [](uint64_t) {}), std::invalid_argument);
}

TEST(LoopTimer, IsNotMovedBySettingTheClock) {
  constexpr int64_t kDay = 86400000;
  for (const int64_t step : {kDay, -kDay, int64_t{-50}, int64_t{50}}) {
    SCOPED_TRACE(step);
    SetClock clock;
    Loop loop;
    const int64_t start = milliseconds();
    int64_t waited = 0;
    const Handle set = loop.after(20, [&] { clock.offset = step; });
    const Handle timer = loop.after(140, [&] {
      waited = milliseconds() - start;
      loop.stop();
    });
    loop.run(100);
    EXPECT_GE(waited, 140);
    EXPECT_LT(waited, 1000);
    EXPECT_THAT(clock.slept(), Each(Le(13)));  // the rest is waited for, where timers are served
  }
}

// ---- handles ----

TEST(LoopHandle, EndsTheRegistrationWhenItGoes) {
  Loop loop;
  int calls = 0;
  {
    const Handle timer = loop.after(0, [&] { ++calls; });
  }
  loop.after(0, [&] { ++calls; });
  loop.runLoop(kCycle);
  EXPECT_EQ(0, calls);
}

TEST(LoopHandle, IsMovedWithItsRegistration) {
  Loop loop;
  int calls = 0;
  Handle first = loop.after(0, [&] { ++calls; });
  Handle second = std::move(first);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(second);
  Handle& same = second;
  second = std::move(same);
  EXPECT_TRUE(second);
  second = loop.after(0, [&] { calls += 10; });  // which ends the one before
  loop.runLoop(kCycle);
  EXPECT_EQ(10, calls);
}

TEST(LoopHandle, MayOutliveTheLoop) {
  const Pair pair;
  Handle handles[4];
  const auto captured = std::make_shared<int>(0);
  {
    Loop loop;
    handles[0] = loop.watch(pair.near(), EPOLLIN, [captured](uint32_t) {});
    handles[1] = loop.every(1000, [captured](uint64_t) {});
    handles[2] = loop.on_signal(SIGUSR1, [captured] {});
    handles[3] = loop.after(1000, [captured] {});
    EXPECT_EQ(5, captured.use_count());
  }
  EXPECT_EQ(1, captured.use_count());
  for (Handle& handle : handles) {
    EXPECT_FALSE(handle);
    handle.cancel();
  }
}

TEST(LoopHandle, DestroysWhatWasCaptured) {
  Loop loop;
  const Ready ready;
  const auto captured = std::make_shared<int>(0);
  Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [captured](uint32_t) {});
  const Handle timer = loop.after(0, [captured] {});
  EXPECT_EQ(3, captured.use_count());
  loop.runLoop(kCycle);
  EXPECT_EQ(2, captured.use_count());  // the timer is done
  watch.cancel();
  EXPECT_EQ(1, captured.use_count());
}

TEST(LoopHandle, MayBeHeldByItsOwnCallback) {
  int calls = 0;
  const auto captured = std::make_shared<int>(0);
  Loop loop;
  const auto own = std::make_shared<Handle>();
  *own = loop.after(0, [own, captured, &calls] { ++calls; });
  const auto never = std::make_shared<Handle>();
  *never = loop.after(1000000, [never, captured] {});
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
  EXPECT_EQ(2, captured.use_count());
}

TEST(LoopHandle, KeepsWhatARunningCallbackCapturedUntilItReturns) {
  Loop loop;
  const auto captured = std::make_shared<int>(0);
  const int number = eventfd(1, 0);
  Handle once;
  Handle ticks;
  Handle watch;
  Handle fresh;
  once = loop.after(0, [&, captured] {
    once.cancel();
    ++*captured;
  });
  ticks = loop.every(1, [&, captured](uint64_t) {
    ticks.cancel();
    ++*captured;
  });
  watch = loop.watch(number, EPOLLIN, [&, captured](uint32_t) {
    close(number);
    EXPECT_EQ(number, eventfd(0, 0));
    fresh = loop.watch(number, EPOLLIN, [](uint32_t) {});  // which ends this one
    EXPECT_FALSE(watch);
    ++*captured;
  });
  work(3);
  loop.runLoop(kCycle);
  EXPECT_EQ(3, *captured);
  EXPECT_EQ(1, captured.use_count());
  fresh.cancel();
  close(number);
}

TEST(LoopHandle, RefusesEmptyCallbacks) {
  Loop loop;
  const Pair pair;
  EXPECT_THROW(loop.after(1, nullptr), std::invalid_argument);
  EXPECT_THROW(loop.every(1, nullptr), std::invalid_argument);
  EXPECT_THROW(loop.watch(pair.near(), EPOLLIN, nullptr), std::invalid_argument);
  EXPECT_THROW(loop.on_signal(SIGUSR1, nullptr), std::invalid_argument);
  EXPECT_THROW(loop.on_exit(1, nullptr), std::invalid_argument);
}

// ---- signals ----

TEST(LoopSignal, CallsBackOnTheThreadOfTheLoop) {
  Loop loop;
  std::thread::id thread;
  const Handle signal = loop.on_signal(SIGUSR1, [&] { thread = std::this_thread::get_id(); });
  std::thread([] { raise(SIGUSR1); }).join();
  loop.runLoop(kCycle);
  EXPECT_EQ(std::this_thread::get_id(), thread);
}

TEST(LoopSignal, LosesNoneBeforeTheFirstPassAndBetweenTwo) {
  Loop loop;
  int calls = 0;
  const Handle signal = loop.on_signal(SIGUSR1, [&] { ++calls; });
  raise(SIGUSR1);
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
  raise(SIGUSR1);
  loop.runLoop(kCycle);
  EXPECT_EQ(2, calls);
}

TEST(LoopSignal, CallsBackOnceForThoseThatCameWhileTheLoopWasBusy) {
  Loop loop;
  int raised = 0;
  std::vector<int> seen;
  const Handle signal = loop.on_signal(SIGUSR1, [&] { seen.push_back(raised); });
  const Handle busy = loop.after(0, [&] {
    for (; raised < 100000; ++raised) raise(SIGUSR1);
  });
  run_until(loop, [&] { return !seen.empty(); });
  EXPECT_THAT(seen, ElementsAre(100000));
}

TEST(LoopSignal, EndsThePassOfADaemon) {
  Loop loop;
  loop.stop_on({SIGTERM, SIGINT});
  const Handle end = loop.after(5, [] { raise(SIGINT); });
  loop.run(kCycle);
  const Handle again = loop.after(5, [] { raise(SIGTERM); });
  loop.run(kCycle);
}

TEST(LoopSignal, ReachesEachThatAskedForIt) {
  Loop first;
  Loop second;
  std::string calls;
  Handle handles[3];
  handles[0] = first.on_signal(SIGUSR1, [&] {
    calls += 'a';
    handles[1].cancel();
  });
  handles[1] = first.on_signal(SIGUSR1, [&] { calls += 'b'; });
  handles[2] = second.on_signal(SIGUSR1, [&] { calls += 'c'; });
  raise(SIGUSR1);
  second.runLoop(kCycle);
  first.runLoop(kCycle);
  EXPECT_EQ("ca", calls);
}

TEST(LoopSignal, PutsTheEarlierHandlerBackWithTheLast) {
  struct sigaction mine = {};
  mine.sa_handler = [](int) {};
  mine.sa_flags = SA_NODEFER;
  struct sigaction before = {};
  sigaction(SIGUSR1, &mine, &before);
  {
    Loop loop;
    const Handle first = loop.on_signal(SIGUSR1, [] {});
    {
      const Handle second = loop.on_signal(SIGUSR1, [] {});
    }
    EXPECT_NE(mine.sa_handler, disposition(SIGUSR1).sa_handler);
  }
  EXPECT_EQ(mine.sa_handler, disposition(SIGUSR1).sa_handler);
  EXPECT_TRUE(disposition(SIGUSR1).sa_flags & SA_NODEFER);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(LoopSignal, LeavesAHandlerThatWasPutInItsPlace) {
  struct sigaction other = {};
  other.sa_handler = [](int) {};
  Loop loop;
  Handle signal = loop.on_signal(SIGUSR1, [] {});
  struct sigaction ours = {};
  sigaction(SIGUSR1, &other, &ours);
  signal.cancel();
  EXPECT_EQ(other.sa_handler, disposition(SIGUSR1).sa_handler);
  signal = loop.on_signal(SIGUSR1, [] {});
  signal.cancel();
  EXPECT_EQ(other.sa_handler, disposition(SIGUSR1).sa_handler);
  other.sa_handler = SIG_DFL;
  sigaction(SIGUSR1, &other, nullptr);
}

TEST(LoopSignal, ForgetsWhatCameForAnEarlierRegistration) {
  Loop loop;
  int calls = 0;
  Handle signal = loop.on_signal(SIGUSR1, [] {});
  raise(SIGUSR1);
  signal.cancel();
  signal = loop.on_signal(SIGUSR1, [&] { ++calls; });
  loop.runLoop(kCycle);
  EXPECT_EQ(0, calls);
}

TEST(LoopSignal, ChangesNoMask) {
  Loop loop;
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  const Handle signal = loop.on_signal(SIGUSR1, [] {});
  const auto unchanged = [&] {
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    for (int number = 1; number < NSIG; ++number) {
      EXPECT_EQ(sigismember(&before, number), sigismember(&now, number)) << number;
    }
  };
  unchanged();
  std::thread(unchanged).join();
  EXPECT_EQ(0, ended(child_that(unchanged)));
  unchanged();
}

TEST(LoopSignal, DoesNotReachForkedProcesses) {
  Loop loop;
  int calls = 0;
  const Handle signal = loop.on_signal(SIGTERM, [&] { ++calls; });
  EXPECT_EQ(0, ended(child_that([] { EXPECT_EQ(SIG_DFL, disposition(SIGTERM).sa_handler); })));
  EXPECT_EQ(SIGTERM, WTERMSIG(ended(child_that([] { raise(SIGTERM); }))));
  loop.runLoop(kCycle);
  EXPECT_EQ(0, calls);
  raise(SIGTERM);
  loop.runLoop(kCycle);
  EXPECT_EQ(1, calls);
}

TEST(LoopSignal, DoesNotReachPrograms) {
  Loop loop;
  const Handle signal = loop.on_signal(SIGTERM, [] {});
  const int status =
      ended(child_that([] { execl("/bin/sh", "sh", "-c", "kill -TERM $$; exit 3", nullptr); }));
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGTERM, WTERMSIG(status));
}

TEST(LoopSignal, RefusesWhatCannotBeHandled) {
  Loop loop;
  for (const int number : {-1, 0, SIGKILL, SIGSTOP, SIGSEGV, 65, 1000}) {
    EXPECT_EQ(EINVAL, refused([&] { loop.on_signal(number, [] {}); },
                              "signal " + std::to_string(number) + " cannot be handled"));
  }
}

TEST(LoopSignal, DoesNotShortenWhatIsWaitedFor) {
  struct sigaction noting = {};
  noting.sa_handler = [](int) {};  // without SA_RESTART
  struct sigaction before = {};
  sigaction(SIGALRM, &noting, &before);
  const itimerval often = {
      {0, 1000},
      {0, 1000}
  };
  setitimer(ITIMER_REAL, &often, nullptr);
  Loop loop;
  const util::utime_t first_pass = util::Timer::now();  // by which passes are measured
  const int64_t start = milliseconds();
  int64_t waited = 0;
  const Handle timer = loop.after(50, [&] {
    waited = milliseconds() - start;
    loop.stop();
  });
  loop.run(30);
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(waited, 50);
  EXPECT_GE(util::Timer::now() - first_pass, 60U);  // two whole passes
}

// ---- children ----

TEST(LoopChild, TellsTheStatusOnce) {
  Loop loop;
  std::vector<int> codes;
  const Handle exit = loop.on_exit(child_that([] { _exit(7); }),
                                   [&](int status) { codes.push_back(WEXITSTATUS(status)); });
  run_until(loop, [&] { return !codes.empty(); });
  loop.runLoop(kCycle);
  EXPECT_THAT(codes, ElementsAre(7));
  EXPECT_FALSE(exit);
}

TEST(LoopChild, TellsTheSignalThatEndedIt) {
  Loop loop;
  int status = 0;
  const pid_t child = child_that([] { pause(); });
  const Handle exit = loop.on_exit(child, [&](int ending) { status = ending; });
  const Handle kill_it = loop.after(5, [&] { kill(child, SIGKILL); });
  run_until(loop, [&] { return status != 0; });
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

TEST(LoopChild, MayHaveEndedBeforeItIsWatched) {
  Loop loop;
  const pid_t child = child_that([] { _exit(3); });
  siginfo_t info = {};
  ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT));
  int status = -1;
  const Handle exit = loop.on_exit(child, [&](int ending) { status = ending; });
  loop.runLoop(kCycle);
  EXPECT_EQ(3, WEXITSTATUS(status));
}

TEST(LoopChild, LeavesTheChildrenOfOthersAlone) {
  Loop loop;
  const pid_t other = child_that([] { _exit(4); });
  bool done = false;
  const Handle exit = loop.on_exit(child_that([] { _exit(0); }), [&](int) { done = true; });
  run_until(loop, [&] { return done; });
  EXPECT_EQ(4, WEXITSTATUS(ended(other)));
}

TEST(LoopChild, TellsWhenSomeoneElseHasTheStatus) {
  Loop loop;
  const pid_t child = child_that([] { _exit(4); });
  int status = 0;
  const Handle exit = loop.on_exit(child, [&](int ending) { status = ending; });
  EXPECT_EQ(4, WEXITSTATUS(ended(child)));
  loop.runLoop(kCycle);
  EXPECT_EQ(-1, status);
}

TEST(LoopChild, IsFoundInTheNextPassIfSomeoneElseHandlesItsSignal) {
  Loop loop;
  const pid_t child = child_that([] { pause(); });
  int status = 0;
  const Handle exit = loop.on_exit(child, [&](int ending) { status = ending; });
  struct sigaction other = {};
  other.sa_handler = SIG_DFL;
  struct sigaction ours = {};
  sigaction(SIGCHLD, &other, &ours);
  loop.runLoop(kCycle);
  kill(child, SIGKILL);
  run_until(loop, [&] { return status != 0; });
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

TEST(LoopChild, LeavesTheSignalWhenNoneIsAwaited) {
  Loop loop;
  const pid_t child = child_that([] { pause(); });
  {
    const Handle exit = loop.on_exit(child, [](int) {});
    EXPECT_NE(SIG_DFL, disposition(SIGCHLD).sa_handler);
  }
  EXPECT_EQ(SIG_DFL, disposition(SIGCHLD).sa_handler);
  kill(child, SIGKILL);
  EXPECT_EQ(SIGKILL, WTERMSIG(ended(child)));
}

TEST(LoopChild, EndsManyAtOnce) {
  Loop loop;
  std::vector<Handle> exits;
  int sum = 0;
  size_t ends = 0;
  for (int i = 0; i < 50; ++i) {
    exits.push_back(loop.on_exit(child_that([i] { _exit(i); }), [&](int status) {
      sum += WEXITSTATUS(status);
      ++ends;
    }));
  }
  run_until(loop, [&] { return ends == exits.size(); });
  EXPECT_EQ(1225, sum);
}

TEST(LoopChild, MayBeReplacedInItsCallback) {
  Loop loop;
  int started = 0;
  Handle exit;
  const std::function<void()> start = [&] {
    if (++started > 5) return loop.stop();
    exit = loop.on_exit(child_that([] { _exit(0); }), [&](int) { start(); });
  };
  start();
  loop.run(kCycle);
  EXPECT_EQ(6, started);
}

TEST(LoopChild, RefusesWhatIsNoChildOrAwaited) {
  Loop loop;
  EXPECT_EQ(ECHILD,
            refused([&] { loop.on_exit(getpid(), [](int) {}); },
                    "process " + std::to_string(getpid()) + " cannot be awaited: No child"));
  EXPECT_NE(0, refused([&] { loop.on_exit(0, [](int) {}); }, "process 0 cannot be awaited"));
  EXPECT_NE(0, refused([&] { loop.on_exit(-1, [](int) {}); }, "process -1 cannot be awaited"));
  const pid_t child = child_that([] { pause(); });
  const Handle exit = loop.on_exit(child, [](int) {});
  EXPECT_EQ(EEXIST, refused([&] { loop.on_exit(child, [](int) {}); }, "it is awaited already"));
  kill(child, SIGKILL);
  ended(child);
}

// ---- a process that was forked off ----

TEST(LoopFork, LeavesTheLoopItComesFromAlone) {
  Loop loop;
  const Pair pair;
  std::string calls;
  Handle watch = loop.watch(pair.near(), EPOLLIN, [&](uint32_t) {
    calls += 'w';
    pair.drain();
  });
  Handle signal = loop.on_signal(SIGUSR1, [&] { calls += 's'; });
  EXPECT_EQ(0, ended(child_that([&] {
              watch.cancel();
              signal.cancel();
            })));
  pair.fill();
  raise(SIGUSR1);
  loop.runLoop(kCycle);
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ("sw", calls);
}

TEST(LoopFork, MayUseItsCopyOfTheLoop) {
  Loop loop;
  const Pair pair;
  std::string calls;
  const Handle watch = loop.watch(pair.near(), EPOLLIN, [&](uint32_t) {
    calls += 'w';
    pair.drain();
  });
  const Handle timer = loop.after(1, [&] { calls += 't'; });
  const Handle signal = loop.on_signal(SIGUSR1, [&] { calls += 's'; });
  const pid_t sibling = child_that([] { pause(); });
  const Handle exit = loop.on_exit(sibling, [&](int) { calls += 'x'; });
  EXPECT_EQ(0, ended(child_that([&] {
              loop.runLoop(kCycle);
              EXPECT_FALSE(exit);
              pair.fill();
              raise(SIGUSR1);
              loop.runLoop(kCycle);
              std::sort(calls.begin(), calls.end());
              EXPECT_EQ("stw", calls);
            })));
  EXPECT_EQ("", calls);
  loop.runLoop(kCycle);
  EXPECT_EQ("t", calls);
  EXPECT_TRUE(exit);
  kill(sibling, SIGKILL);
  run_until(loop, [&] { return calls == "tx"; });
}

// ---- passes ----

TEST(LoopPass, GivesSubLoopsTheirSlicesBeforeItWaits) {
  const FrozenClock clock;
  Loop loop;
  util::SuperLoop& known_as = loop;
  SubLoop between;
  SubLoop inside;
  SubLoop last;
  between.round = [&] {
    if (between.slices.size() == 1) known_as.addEvent(&inside);
    if (between.slices.size() == 3) known_as.removeEvent(&inside);
  };
  known_as.addEvent(&between);
  loop.runLoop(30);
  loop.runLoop(30);
  known_as.addEvent(&last);
  loop.runLoop(30);
  loop.runLoop(30);
  EXPECT_THAT(between.slices, ElementsAre(15, 10, 7, 10));
  EXPECT_THAT(inside.slices, ElementsAre(15, 10));
  EXPECT_THAT(last.slices, ElementsAre(15, 15));
}

TEST(LoopPass, RunsEventsWithoutASubLoop) {
  struct Noting : util::Event {
    explicit Noting(bool& to) : done(to) {}
    void run(util::utime_t) override { done = true; }
    bool& done;
  };
  Loop loop;
  bool done = false;
  loop.addEvent(new Noting(done), util::Timer(0));
  run_until(loop, [&] { return done; });
}

TEST(LoopPass, LastsAsLongAsItIsTold) {
  Loop loop;
  const int64_t start = milliseconds();
  loop.runLoop(50);
  EXPECT_GE(milliseconds() - start, 49);
}

TEST(LoopPass, KeepsToItsSliceInAnotherLoop) {
  const FrozenClock clock;  // for slices that do not depend on the machine
  util::SuperLoop outer;
  Loop inner;
  SubLoop after;
  const Pair pair;
  int calls = 0;
  const Handle watch = inner.watch(pair.near(), EPOLLIN, [&](uint32_t) {
    ++calls;
    pair.drain();
  });
  outer.addEvent(&inner);
  outer.addEvent(&after);
  pair.fill();
  outer.runLoop(100);
  EXPECT_EQ(1, calls);
  EXPECT_EQ("service::Loop", std::string(inner.name()));
  EXPECT_THAT(after.slices, ElementsAre(50));  // the inner loop has slept its 50
}

TEST(LoopPass, ServesWithACycleOfNothing) {
  Loop loop;
  const Ready ready;
  std::string calls;
  const Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [&](uint32_t) { calls += 'w'; });
  const Handle timer = loop.after(0, [&] { calls += 't'; });
  const Handle signal = loop.on_signal(SIGUSR1, [&] { calls += 's'; });
  raise(SIGUSR1);
  loop.runLoop(0);
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ("stw", calls);
  const Handle stop = loop.after(1, [&] { loop.stop(); });
  loop.run(0);
}

TEST(LoopPass, ServesWhenItIsOverdueAndIsNotBlamedForThat) {
  FrozenClock clock;
  const Warnings warnings;
  Loop loop(warnings.log);
  const auto busy = [&clock](int64_t duration) {
    work(duration);
    clock.advance(duration);
  };
  SubLoop slow;
  slow.round = [&] { busy(15); };
  loop.addEvent(&slow);
  const Ready ready;
  int calls = 0;
  const Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [&](uint32_t) {
    ++calls;
    busy(2);
  });
  for (int i = 0; i < 3; ++i) loop.runLoop(10);
  EXPECT_EQ(3, calls);
  EXPECT_THAT(warnings.messages, ElementsAre("event loop <<unknown>> LATE by 5 ms!",
                                             "event loop <<unknown>> LATE by 5 ms!",
                                             "event loop <<unknown>> LATE by 5 ms!"));
}

TEST(LoopPass, ReturnsAtOnceIfItWasStoppedBefore) {
  Loop loop;
  SubLoop work;
  loop.addEvent(&work);
  loop.stop();
  loop.run(kCycle);
  EXPECT_THAT(work.slices, IsEmpty());
  work.round = [&] { loop.stop(); };
  loop.run(kCycle);
  EXPECT_EQ(1U, work.slices.size());
}

TEST(LoopPass, CannotBeRunInsideAnother) {
  EXPECT_DEATH(
      {
        Loop loop;
        const Handle timer = loop.after(0, [&] { loop.runLoop(0); });
        loop.runLoop(kCycle);
      },
      "inside");
}

// ---- failing system calls ----

TEST(LoopFailure, IsToldByTheConstructor) {
  for (const char* const call : {"epoll_create1", "epoll_ctl", "eventfd"}) {
    SCOPED_TRACE(call);
    const int before = support::open_descriptors();
    const Fault fault(call, EMFILE);
    EXPECT_THAT([&] { const Loop loop; }, testing::Throws<util::system_exception>(testing::Property(
                                              &util::system_exception::error_number, EMFILE)));
    EXPECT_EQ(before, support::open_descriptors());
  }
}

TEST(LoopFailure, LeavesTimersAndSpinsNotIfWaitingFails) {
  Loop loop;
  const Ready ready;
  int ticks = 0;
  int reads = 0;
  const Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [&](uint32_t) { ++reads; });
  const Handle timer = loop.every(1, [&](uint64_t) { ++ticks; });
  {
    const Fault fault("epoll_wait", EIO, Fault::kEvery);
    for (int i = 0; i < 3; ++i) loop.runLoop(kCycle);
    EXPECT_LE(fault.uses(), 6);
    EXPECT_GE(ticks, 2);
    EXPECT_EQ(0, reads);
  }
  loop.runLoop(kCycle);
  EXPECT_GT(reads, 0);
}

TEST(LoopFailure, ServesOnWhileTheEpollSetCannotBeMadeAnew) {
  const Warnings warnings;
  Loop loop(warnings.log);
  const Ready ready;
  int reads = 0;
  const Handle watch = loop.watch(ready.descriptor(), EPOLLIN, [&](uint32_t) { ++reads; });
  const Fault scarce("epoll_create1", EMFILE, Fault::kEvery);
  {
    const Fault fault("epoll_wait", EIO);
    loop.runLoop(kCycle);
  }
  EXPECT_EQ(0, reads);
  loop.runLoop(kCycle);
  EXPECT_EQ(1, reads);
  EXPECT_THAT(warnings.messages,
              ElementsAre("the epoll set cannot be made anew: Too many open files"));
}

TEST(LoopFailure, GoesOnAfterAnInterruptedWait) {
  Loop loop;
  const Fault fault("epoll_wait", EINTR);
  int calls = 0;
  const Handle timer = loop.after(10, [&] { ++calls; });
  loop.runLoop(50);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(1, calls);
}

TEST(LoopFailure, LeavesNoDescriptorBehind) {
  const int before = support::open_descriptors();
  {
    Loop loop;
    const Handle signal = loop.on_signal(SIGUSR1, [] {});
    loop.runLoop(0);
  }
  EXPECT_EQ(before, support::open_descriptors());
}
