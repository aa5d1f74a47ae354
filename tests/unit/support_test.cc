// SPDX-License-Identifier: MIT
// The replaced C library calls themselves.
#include "tests/support/allocations.h"
#include "tests/support/clock.h"
#include "tests/support/disk.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace support;

TEST(FrozenClock, StopsBothClocks) {
  const FrozenClock clock("2007-03-01T14:05:09");
  timeval now = {};
  EXPECT_EQ(0, gettimeofday(&now, nullptr));
  EXPECT_EQ(1172757909, now.tv_sec);
  EXPECT_EQ(1172757909, time(nullptr));
}

TEST(FrozenClock, CountsSecondsDownBeforeTheEpoch) {
  const FrozenClock clock(int64_t{-1});
  timeval now = {};
  EXPECT_EQ(0, gettimeofday(&now, nullptr));
  EXPECT_EQ(-1, now.tv_sec);
  EXPECT_EQ(999000, now.tv_usec);
  EXPECT_EQ(-1, time(nullptr));
}

TEST(FrozenClock, SleepsAtOnceAndMovesOn) {
  const FrozenClock clock(int64_t{5000});
  timespec request = {1, 500000000};
  EXPECT_EQ(0, nanosleep(&request, nullptr));
  EXPECT_EQ(6500, clock.now());
  EXPECT_EQ(std::vector<int64_t>{1500000000}, clock.sleeps);
}

TEST(FrozenClock, InterruptsASleep) {
  FrozenClock clock(int64_t{5000});
  clock.interruptions = {400000000};
  timespec request = {1, 0};
  timespec left = {};
  EXPECT_EQ(-1, nanosleep(&request, &left));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(400000000, left.tv_nsec);
  EXPECT_EQ(5600, clock.now());
}

TEST(Fault, FailsTheNamedUseOnly) {
  const Fault fault("unlink", EROFS, 2);
  EXPECT_EQ(-1, unlink("/nonexistent/a"));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, unlink("/nonexistent/a"));
  EXPECT_EQ(EROFS, errno);
  EXPECT_EQ(2, fault.uses());
}

TEST(Recorder, ListsCallsWithTheirPaths) {
  const Recorder recorder({"unlink", "link"});
  unlink("/nonexistent/a");
  EXPECT_EQ(-1, link("/nonexistent/a", "/nonexistent/b"));
  EXPECT_EQ(
      (std::vector<std::string>{"unlink /nonexistent/a", "link /nonexistent/a /nonexistent/b"}),
      recorder.calls());
}

TEST(Redirect, OpensTheOtherFile) {
  const TempDir dir;
  dir.write("there", "text");
  const Redirect redirect("/nonexistent/here", dir.file("there"));
  FILE* const file = fopen("/nonexistent/here", "r");
  ASSERT_NE(nullptr, file);
  EXPECT_EQ('t', fgetc(file));
  fclose(file);
}

TEST(Fault, OfReadingIsToldByTheStream) {
  const TempDir dir;
  dir.write("x", "text");
  FILE* const file = fopen(dir.file("x").c_str(), "r");
  ASSERT_NE(nullptr, file);
  char byte = 0;
  EXPECT_EQ(1U, fread(&byte, 1, 1, file));
  EXPECT_EQ(0, ferror(file));
  const Fault fault("fread", EIO);
  EXPECT_EQ(0U, fread(&byte, 1, 1, file));
  EXPECT_NE(0, ferror(file));
  fclose(file);
}

// ---- the disk ----

namespace {

using Left = std::set<Disk::Files>;

// What may be left of an empty folder after these calls and a power failure.
Left left_after(const std::vector<FileCall>& calls) {
  const TempDir dir;
  Disk disk(dir.path(), 4);
  for (FileCall call : calls) {
    call.path = dir.path() + call.path;
    call.to = dir.path() + call.to;
    disk.apply(call);
  }
  Left left;
  EachWay ways;
  do left.insert(disk.left(std::ref(ways)));
  while (ways.next());
  return left;
}

const FileCall kOpenX = {FileCall::kOpen, "/x", "", 3, O_TRUNC, ""};
const FileCall kWriteFive = {FileCall::kWrite, "", "", 3, 0, "12345"};
const FileCall kSyncX = {FileCall::kSync, "", "", 3, 0, ""};
const FileCall kOpenFolder = {FileCall::kOpen, "", "", 4, 0, ""};
const FileCall kSyncFolder = {FileCall::kSync, "", "", 4, 0, ""};
const FileCall kRenameXToY = {FileCall::kRename, "/x", "/y", 0, 0, ""};

}  // namespace

TEST(Disk, LosesNamesThatAreNotSynced) {
  EXPECT_EQ((Left{{}, {{"x", "12345"}}}), left_after({kOpenX, kWriteFive, kSyncX}));
}

TEST(Disk, LosesBytesThatAreNotSynced) {
  const std::string zeros(5, '\0');
  EXPECT_EQ((Left{
                {{"x", ""}},
                {{"x", "12"}},
                {{"x", "1234"}},
                {{"x", "12345"}},
                {{"x", "1234" + zeros.substr(4)}},
                {{"x", "12" + zeros.substr(3)}},
                {{"x", "12" + zeros.substr(2)}},
                {{"x", "12" + zeros.substr(3) + "5"}},
                {{"x", zeros}},
                {{"x", zeros.substr(1)}},
                {{"x", zeros.substr(1) + "5"}},
            }),
            left_after({kOpenX, kOpenFolder, kSyncFolder, kWriteFive}));
}

TEST(Disk, KeepsWhatIsSynced) {
  EXPECT_EQ((Left{{{"x", "12345"}}}),
            left_after({kOpenX, kOpenFolder, kWriteFive, kSyncX, kSyncFolder}));
}

TEST(Disk, MayKeepHalfARename) {
  EXPECT_EQ((Left{
                {        },
                {{"x", ""}},
                {{"x", ""}, {"y", ""}},
                {{"y", ""}        }
  }),
            left_after({kOpenX, kSyncX, kOpenFolder, kSyncFolder, kRenameXToY}));
}

TEST(SyslogCapture, CatchesTheFormattedText) {
  const SyslogCapture log;
  syslog(LOG_INFO, "%s %d", "text", 5);
  EXPECT_EQ(std::vector<std::string>{"<6> text 5"}, log.records());
}

TEST(Captured, CatchesStandardError) {
  Captured captured(stderr);
  fputs("text", stderr);
  EXPECT_EQ("text", captured.text());
}

TEST(Allocations, AreCounted) {
  const long before = allocations();
  ::operator delete(::operator new(5));
  EXPECT_EQ(before + 1, allocations());
}

TEST(AllocationFault, ThrowsAtTheNamedUse) {
  const AllocationFault fault(2);
  ::operator delete(::operator new(5));
  EXPECT_THROW(::operator delete(::operator new(5)), std::bad_alloc);
  EXPECT_TRUE(fault.fired());
}

TEST(TimeZone, IsPutBack) {
  {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(-3600, timezone);
  }
  EXPECT_EQ(0, timezone);
}
