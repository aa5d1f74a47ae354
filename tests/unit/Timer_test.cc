// SPDX-License-Identifier: MIT
#include "util/Timer.h"

#include "tests/support/clock.h"
#include "tests/support/faults.h"

#include <errno.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include <type_traits>

#include <gtest/gtest.h>

using namespace support;
using util::Timer;
using util::utime_t;

namespace {

constexpr int64_t kNow = 1172757909000;

}  // namespace

TEST(Utime, IsUnsignedOf64Bits) {
  EXPECT_TRUE((std::is_same<uint64_t, utime_t>::value));
  EXPECT_EQ(18446744073709551606U, utime_t{10} - utime_t{20});
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"  // what is tested
TEST(TimerNow, IsDeclaredAsReturningAVolatile) {
  EXPECT_TRUE((std::is_same<volatile utime_t(), decltype(Timer::now)>::value));
}
#pragma GCC diagnostic pop

TEST(TimerNow, TruncatesToTheMillisecond) {
  FrozenClock clock;
  clock.microseconds = 1000000000999999;
  EXPECT_EQ(1000000000999U, Timer::now());
}

TEST(TimerNow, IsComputedIn64Bits) {
  if (sizeof(time_t) > 4) {
    const FrozenClock clock(int64_t{4294967296123});
    EXPECT_EQ(4294967296123U, Timer::now());
  }
  const FrozenClock clock(int64_t{2147483647123});  // the last second of a 32-bit time_t
  EXPECT_EQ(2147483647123U, Timer::now());
}

TEST(TimerNow, ReadsTheWallClockOnce) {
  const FrozenClock clock(kNow);
  const Recorder recorder;
  EXPECT_EQ(1172757909000U, Timer::now());
  EXPECT_EQ(std::vector<std::string>{"gettimeofday"}, recorder.calls());
}

TEST(TimerNow, FollowsASteppedClock) {
  FrozenClock clock(kNow);
  clock.set(5);
  EXPECT_EQ(5U, Timer::now());
}

TEST(TimerNow, FollowsTheRealClock) {
  const time_t before = time(nullptr);
  const utime_t now = Timer::now();
  const time_t after = time(nullptr);
  EXPECT_LE(static_cast<utime_t>(before), now / 1000 + 1);  // time() may lag by a tick
  EXPECT_GE(static_cast<utime_t>(after) + 1, now / 1000);
}

TEST(Timer, ExpiresItsDelayAfterNow) {
  const FrozenClock clock(kNow);
  EXPECT_EQ(1172757914000U, Timer(5000).get_expire_time());
}

TEST(Timer, IsConvertedFromADelay) {
  const FrozenClock clock(kNow);
  const Timer timer = 5000;
  EXPECT_EQ(1172757914000U, timer.get_expire_time());
}

TEST(Timer, IsNotExpiredInTheVeryMillisecondOfItsExpiry) {
  FrozenClock clock(kNow);
  const Timer timer(100);
  clock.advance(100);
  EXPECT_FALSE(timer.expired());
  clock.advance(1);
  EXPECT_TRUE(timer.expired());
}

TEST(Timer, ReadsTheClockToTellWhetherItIsExpired) {
  const FrozenClock clock(kNow);
  const Timer timer(100);
  EXPECT_EQ(1, clock.readings);
  EXPECT_FALSE(timer.expired());
  EXPECT_EQ(2, clock.readings);
}

TEST(Timer, IsComparedWithAGivenInstantWithoutTheClock) {
  const FrozenClock clock(kNow);
  const Timer timer(100);
  EXPECT_FALSE(timer.expired(1172757909099));
  EXPECT_FALSE(timer.expired(1172757909100));
  EXPECT_TRUE(timer.expired(1172757909101));
  EXPECT_EQ(1, clock.readings);
}

TEST(Timer, IsArmedAnewByReset) {
  FrozenClock clock(kNow);
  Timer timer(100);
  clock.advance(1000);
  timer.reset(50);
  EXPECT_EQ(1172757910050U, timer.get_expire_time());
}

TEST(Timer, CopiesItsInstant) {
  FrozenClock clock(kNow);
  Timer first(100);
  const Timer constant(200);
  clock.advance(1000);
  const Timer copy(first);
  const Timer copy_of_constant(constant);
  Timer assigned(0);
  assigned = first;
  EXPECT_EQ(1172757909100U, copy.get_expire_time());
  EXPECT_EQ(1172757909200U, copy_of_constant.get_expire_time());
  EXPECT_EQ(1172757909100U, assigned.get_expire_time());
}

TEST(Timer, WrapsOnAnEndlessDelay) {
  FrozenClock clock(int64_t{1000});
  const Timer timer(UINT64_MAX);
  EXPECT_EQ(999U, timer.get_expire_time());
  EXPECT_TRUE(timer.expired());
}

TEST(Timer, ExpiresEarlyWhenTheClockStepsForward) {
  FrozenClock clock(kNow);
  const Timer timer(3600000);
  clock.advance(3600001);
  EXPECT_TRUE(timer.expired());
}

TEST(Timer, ExpiresLateWhenTheClockStepsBack) {
  FrozenClock clock(kNow);
  const Timer timer(10);
  clock.set(kNow - 3600000);
  clock.advance(1000);
  EXPECT_FALSE(timer.expired());
}

TEST(TimerSleep, AsksForSecondsAndNanoseconds) {
  const FrozenClock clock(kNow);
  Timer::sleep(1500);
  EXPECT_EQ(std::vector<int64_t>{1500000000}, clock.sleeps);
  EXPECT_EQ(kNow + 1500, clock.now());
}

TEST(TimerSleep, AsksForNothingOnce) {
  const FrozenClock clock(kNow);
  Timer::sleep(0);
  EXPECT_EQ(std::vector<int64_t>{0}, clock.sleeps);
}

TEST(TimerSleep, ResumesForTheRemainderAfterSignals) {
  FrozenClock clock(kNow);
  clock.interruptions = {700000000, 1};
  Timer::sleep(1000);
  EXPECT_EQ((std::vector<int64_t>{1000000000, 700000000, 1}), clock.sleeps);
}

TEST(TimerSleep, EndsOnAnyOtherFailure) {
  for (const int error : {EINVAL, EFAULT}) {
    SCOPED_TRACE(error);
    const FrozenClock clock(kNow);
    const Fault fault("nanosleep", error, Fault::kEvery);
    Timer::sleep(1000);
    EXPECT_EQ(1, fault.uses());
  }
}

TEST(TimerSleep, EndsOnAnotherFailureAfterASignal) {
  FrozenClock clock(kNow);
  clock.interruptions = {700000000};
  const Fault fault("nanosleep", EINVAL, 2);
  Timer::sleep(1000);
  EXPECT_EQ(2, fault.uses());
}

// A real signal every 10 ms; the kernel's own clock judges.
TEST(TimerSleep, LastsItsTimeInARainOfSignals) {
  struct sigaction ignore = {};
  struct sigaction before = {};
  ignore.sa_handler = [](int) {};  // installed without SA_RESTART
  sigaction(SIGALRM, &ignore, &before);
  itimerval every = {};
  every.it_interval.tv_usec = 10000;
  every.it_value.tv_usec = 10000;
  setitimer(ITIMER_REAL, &every, nullptr);
  timespec start = {};
  timespec end = {};
  clock_gettime(CLOCK_MONOTONIC, &start);
  const Recorder recorder({"nanosleep"});

  Timer::sleep(200);

  clock_gettime(CLOCK_MONOTONIC, &end);
  every = {};
  setitimer(ITIMER_REAL, &every, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE((end.tv_sec - start.tv_sec) * 1000000000 + end.tv_nsec - start.tv_nsec, 200000000);
  EXPECT_GT(recorder.count("nanosleep"), 1);
}
