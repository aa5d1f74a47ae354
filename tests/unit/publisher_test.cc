// SPDX-License-Identifier: MIT
#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "util/logger.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

using namespace util;
using support::Fault;
using support::FrozenClock;
using support::in_child;
using support::Recorder;
using support::TempDir;

static_assert(!std::has_virtual_destructor<publisher>::value, "publisher stays as it is");
static_assert(!std::has_virtual_destructor<syslog_publisher>::value, "no stream, no destructor");
static_assert(std::has_virtual_destructor<file_publisher>::value, "streams get closed");
static_assert(!std::is_copy_constructible<file_publisher>::value, "a stream has one owner");
static_assert(!std::is_copy_constructible<rolling_file_publisher>::value, "a buffer has one owner");

namespace {

using Lines = std::vector<std::string>;

__attribute__((format(printf, 4, 5))) int publish(publisher& to, category& c, const char* where,
                                                  const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = to.publish(c, where, format, args);
  va_end(args);
  return result;
}

// An entry under INFO from "here": 32 characters and the message.
int publish(publisher& to, const std::string& message) {
  return publish(to, INFO, "here", "%s", message.c_str());
}

// The time as text is kept for a second, from test to test too: some have a second of their own.
constexpr char kThen[] = "2007-03-01T14:05:09";

std::string entry(const std::string& message) {
  return "2007-03-01T14:05:09 here\nINFO: " + message + "\n";
}

class FilePublisher : public testing::Test {
 protected:
  FILE* opened() {
    FILE* const stream = fopen(dir.file("x").c_str(), "w");
    if (stream == nullptr) ADD_FAILURE() << "cannot open";
    return stream;
  }

  const TempDir dir;
  const FrozenClock clock{kThen};
};

class RollingFilePublisher : public testing::Test {
 protected:
  std::string path() const { return dir.file("x"); }

  const TempDir dir;
  const FrozenClock clock{kThen};
};

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitizer = false;
#endif

constexpr char kNotice[] = "rotating log file\n";

}  // namespace

// ---- layouts, which publishers of programs in the field were built with ----

namespace {

struct StreamFields {  // the dispatch table, then the fields
  void* table;
  FILE* file;
};

struct RollingFields : StreamFields {
  std::string logname;
  const off_t maxsize;
  off_t logsize;
  const size_t logcount;
  char* buffer;
};

}  // namespace

TEST(PublisherLayout, HasTheListedFieldsOnly) {
  EXPECT_EQ(sizeof(void*), sizeof(publisher));
  EXPECT_EQ(sizeof(void*), sizeof(syslog_publisher));
  EXPECT_EQ(sizeof(StreamFields), sizeof(file_publisher));
  EXPECT_EQ(sizeof(StreamFields), sizeof(console_publisher));
  EXPECT_EQ(sizeof(RollingFields), sizeof(rolling_file_publisher));
}

// ---- file_publisher ----

TEST_F(FilePublisher, WritesTwoLinesAndCountsTheirCharacters) {
  file_publisher log(opened());
  EXPECT_EQ(59, publish(log, WARNING, "void f(int)", "disk %d of %s", 3, "sda set"));
  log.flush();
  EXPECT_EQ("2007-03-01T14:05:09 void f(int)\nWARNING: disk 3 of sda set\n", dir.read("x"));
}

TEST_F(FilePublisher, WritesTheLoopsEntryAsDocumented) {
  file_publisher log(opened());
  category event_loop = *category::forName("EVENT LOOP");
  category both = event_loop && DEBUG;
  publish(log, both, "void util::SuperLoop::addEvent(util::EventLoop*)", "add event loop %p",
          reinterpret_cast<void*>(0xbeef));
  log.flush();
  EXPECT_EQ(
      "2007-03-01T14:05:09 void util::SuperLoop::addEvent(util::EventLoop*)\n"
      "EVENT LOOP|DEBUG: add event loop 0xbeef\n",
      dir.read("x"));
}

TEST_F(FilePublisher, WritesANewlineInsideAMessageAsItStands) {
  file_publisher log(opened());
  EXPECT_EQ(37, publish(log, "a\nb\n\n"));
  log.flush();
  EXPECT_EQ(entry("a\nb\n\n"), dir.read("x"));
}

TEST_F(FilePublisher, WritesTextsOfAnyLengthWhole) {
  file_publisher log(opened());
  const std::string where(65536, 'w');
  const std::string message(200000, 'm');
  EXPECT_EQ(20 + 65536 + 7 + 200000 + 1, publish(log, INFO, where.c_str(), "%s", message.c_str()));
  log.flush();
  EXPECT_EQ("2007-03-01T14:05:09 " + where + "\nINFO: " + message + "\n", dir.read("x"));
}

TEST_F(FilePublisher, WritesPercentSignsInNamesAsTheyStand) {
  file_publisher log(opened());
  category percent(0x1, 0, "100 %s %n");
  publish(log, percent, "f(%d)", "%s", "%s%n");
  log.flush();
  EXPECT_EQ("2007-03-01T14:05:09 f(%d)\n100 %s %n: %s%n\n", dir.read("x"));
}

TEST_F(FilePublisher, WritesALongCategoryNameWhole) {
  file_publisher log(opened());
  const std::string name(70000, 'c');
  category long_one(0x1, 0, name.c_str());
  publish(log, long_one, "here", "x");
  log.flush();
  EXPECT_EQ("2007-03-01T14:05:09 here\n" + name + ": x\n", dir.read("x"));
}

TEST_F(FilePublisher, StampsLocalTimeInWholeSeconds) {
  const support::TimeZone zone("CET-1");
  const FrozenClock summer(int64_t{1172757909999});
  file_publisher log(opened());
  publish(log, "x");
  log.flush();
  EXPECT_EQ("2007-03-01T15:05:09 here\nINFO: x\n", dir.read("x"));
}

TEST_F(FilePublisher, ReadsTheClockForEachEntry) {
  FrozenClock moving(kThen);
  file_publisher log(opened());
  publish(log, "x");
  moving.advance(1000);
  publish(log, "y");
  log.flush();
  EXPECT_EQ(entry("x") + "2007-03-01T14:05:10 here\nINFO: y\n", dir.read("x"));
}

TEST_F(FilePublisher, WritesTheEntryWithoutATimeThatCannotBeTold) {
  const FrozenClock fresh("2007-03-01T14:06:01");
  file_publisher log(opened());
  const Fault fault("strftime", EINVAL);
  publish(log, "x");
  log.flush();
  EXPECT_EQ(" here\nINFO: x\n", dir.read("x"));
}

TEST_F(FilePublisher, UsesTheCallsThatClientsReplace) {
  const FrozenClock fresh("2007-03-01T14:06:02");
  file_publisher log(opened());
  const Recorder calls;
  publish(log, "x");
  log.flush();
  EXPECT_EQ((Lines{"time", "localtime_r", "strftime", "fwrite", "fflush"}), calls.calls());
}

TEST_F(FilePublisher, FormatsTheTimeOnceASecond) {
  file_publisher log(opened());
  publish(log, "x");
  file_publisher other(fopen("/dev/null", "w"));
  const Recorder calls;
  publish(log, "y");
  publish(other, "y");
  EXPECT_EQ((Lines{"time", "fwrite", "time", "fwrite"}), calls.calls());
}

TEST_F(FilePublisher, ShowsAnotherZoneWithinTheSecond) {
  file_publisher log(opened());
  publish(log, "x");
  {
    const support::TimeZone zone("EAST-2");
    publish(log, "y");
  }
  publish(log, "z");
  log.flush();
  EXPECT_EQ(entry("x") + "2007-03-01T16:05:09 here\nINFO: y\n" + entry("z"), dir.read("x"));
}

TEST_F(FilePublisher, FormatsTheTimeAgainWhereItCouldNotBeTold) {
  const FrozenClock fresh("2007-03-01T14:06:03");
  file_publisher log(opened());
  {
    const Fault fault("strftime", EINVAL);
    publish(log, "x");
  }
  publish(log, "y");
  log.flush();
  EXPECT_EQ(" here\nINFO: x\n2007-03-01T14:06:03 here\nINFO: y\n", dir.read("x"));
}

TEST_F(FilePublisher, WritesAnEntryAtOnceToAnUnbufferedStream) {
  int ends[2] = {};
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
  FILE* const stream = fdopen(ends[0], "w");
  ASSERT_NE(nullptr, stream);
  setvbuf(stream, nullptr, _IONBF, 0);
  file_publisher log(stream);
  publish(log, "x");
  char record[1024] = "";
  EXPECT_EQ(33, read(ends[1], record, sizeof record));
  EXPECT_EQ(entry("x"), record);
  close(ends[1]);
}

TEST_F(FilePublisher, WritesEntriesOfEachSizeAroundItsOwnRoomWhole) {
  file_publisher log(opened());
  std::string all;
  for (size_t size = 1020; size <= 1028; ++size) {
    SCOPED_TRACE(size);
    const std::string message(size - 32, 'm');  // beside 32 other characters
    EXPECT_EQ(static_cast<int>(size), publish(log, message));
    EXPECT_EQ(static_cast<int>(size), publish(log, INFO, message.c_str(), "here"));
    all += entry(message) + "2007-03-01T14:05:09 " + message + "\nINFO: here\n";
  }
  log.flush();
  EXPECT_EQ(all, dir.read("x"));
}

TEST_F(FilePublisher, ReturnsMinusOneWhereTheStreamTakesNothing) {
  FILE* const stream = fopen("/dev/full", "w");
  ASSERT_NE(nullptr, stream);
  setvbuf(stream, nullptr, _IONBF, 0);
  file_publisher log(stream);
  EXPECT_EQ(-1, publish(log, "x"));
  EXPECT_EQ(-1, publish(log, std::string(2000, 'x')));
}

TEST_F(FilePublisher, AddsUpTheResultsOfFailedCallsToo) {
  file_publisher log(opened());
  const Fault fault("fprintf", EIO);
  EXPECT_EQ(-1 + 2000 + 1, publish(log, std::string(2000, 'x')));
}

TEST_F(FilePublisher, FlushPushesOut) {
  file_publisher log(opened());
  publish(log, "x");
  EXPECT_EQ("", dir.read("x"));
  log.flush();
  EXPECT_EQ(entry("x"), dir.read("x"));
}

TEST_F(FilePublisher, ClosesItsStream) {
  const int before = support::open_descriptors();
  {
    file_publisher log(opened());
    publish(log, "x");
    EXPECT_EQ(before + 1, support::open_descriptors());
  }
  EXPECT_EQ(before, support::open_descriptors());
  EXPECT_EQ(entry("x"), dir.read("x"));
}

TEST_F(FilePublisher, DropsEntriesWithoutAStream) {
  file_publisher log(nullptr);
  const Recorder calls;
  EXPECT_EQ(0, publish(log, "x"));
  log.flush();
  EXPECT_EQ(Lines{}, calls.calls());
}

TEST_F(FilePublisher, SurvivesAFullDisk) {
  file_publisher log(fopen("/dev/full", "w"));
  const std::string big(100000, 'x');
  for (int i = 0; i < 10; ++i) publish(log, big);
  log.flush();
}

// ---- console_publisher ----

TEST(ConsolePublisher, WritesToStandardError) {
  in_child([] {
    support::Captured error(stderr);
    const FrozenClock clock(kThen);
    console_publisher log;
    publish(log, "x");
    EXPECT_EQ(entry("x"), error.text());
    log.flush();
  });
}

TEST(ConsolePublisher, ClosesStandardErrorWhenDestroyed) {
  in_child([] {
    { const console_publisher log; }
    EXPECT_EQ(-1, fcntl(2, F_GETFD));
    EXPECT_EQ(EBADF, errno);
  });
}

// ---- syslog_publisher ----

TEST(SyslogPublisher, SendsTwoRecordsAtInfoWhateverTheCategory) {
  const FrozenClock clock(kThen);
  const support::SyslogCapture log;
  syslog_publisher publisher;
  EXPECT_EQ(20 + 3 + 1 + 9 + 6, publish(publisher, WARNING, "f()", "disk %d", 3));
  publish(publisher, DEBUG, "g()", "x");
  EXPECT_EQ((Lines{"<6> 2007-03-01T14:05:09 f()\nWARNING: ", "<6> disk 3",
                   "<6> 2007-03-01T14:05:09 g()\nDEBUG: ", "<6> x"}),
            log.records());
}

TEST(SyslogPublisher, CutsEachRecordAt1023Characters) {
  const FrozenClock clock(kThen);
  const support::SyslogCapture log;
  syslog_publisher publisher;
  const std::string where(65536, 'w');
  const std::string message(70000, 'm');
  EXPECT_EQ(20 + 65536 + 1 + 6 + 70000,
            publish(publisher, INFO, where.c_str(), "%s", message.c_str()));
  EXPECT_EQ(
      (Lines{"<6> 2007-03-01T14:05:09 " + std::string(1003, 'w'), "<6> " + std::string(1023, 'm')}),
      log.records());
}

TEST(SyslogPublisher, SendsPercentSignsAsTheyStand) {
  const FrozenClock clock(kThen);
  const support::SyslogCapture log;
  syslog_publisher publisher;
  category percent(0x1, 0, "100%n");
  publish(publisher, percent, "f()", "%s", "%s%n");
  EXPECT_EQ((Lines{"<6> 2007-03-01T14:05:09 f()\n100%n: ", "<6> %s%n"}), log.records());
}

TEST(SyslogPublisher, HasNothingToFlush) {
  const Recorder calls;
  syslog_publisher().flush();
  EXPECT_EQ(Lines{}, calls.calls());
}

// ---- rolling_file_publisher: the file ----

TEST_F(RollingFilePublisher, CreatesTheFile) {
  const rolling_file_publisher log(path().c_str(), 0, 3);
  EXPECT_EQ("", dir.read("x"));
}

TEST_F(RollingFilePublisher, AppendsToAnExistingFileAndCountsItsSize) {
  dir.write("x", "1234567890");
  rolling_file_publisher log(path().c_str(), 90, 2);
  EXPECT_EQ(41, publish(log, "123456789"));
  publish(log, "23456789");  // 10 + 41 + 40
  EXPECT_EQ("1234567890" + entry("123456789") + entry("23456789") + kNotice, dir.read("x.0"));
}

TEST_F(RollingFilePublisher, BuffersHalfAMebibyte) {
  rolling_file_publisher log(path().c_str(), 0, 3);
  const std::string fitting(0x80000 - 32, 'x');
  EXPECT_EQ(0x80000, publish(log, fitting));
  EXPECT_EQ("", dir.read("x"));
  publish(log, "y");
  EXPECT_EQ(0x80000U, dir.read("x").size());
  log.flush();
  EXPECT_TRUE(entry(fitting) + entry("y") == dir.read("x"));
}

TEST_F(RollingFilePublisher, KeepsEntriesInTheBufferUntilFlushed) {
  rolling_file_publisher log(path().c_str(), 0, 3);
  for (int i = 0; i < 1000; ++i) publish(log, std::string(400, 'x'));
  EXPECT_EQ("", dir.read("x"));
  log.flush();
  EXPECT_EQ(432000U, dir.read("x").size());
}

TEST_F(RollingFilePublisher, WritesBufferedEntriesWhenDestroyed) {
  {
    rolling_file_publisher log(path().c_str(), 0, 3);
    publish(log, "x");
  }
  EXPECT_EQ(entry("x"), dir.read("x"));
}

TEST_F(RollingFilePublisher, WritesBufferedEntriesWhenDestroyedThoughFlushingFails) {
  const std::string message(300000, 'x');
  const Fault fault("fflush", ENOSPC, Fault::kEvery);
  {
    rolling_file_publisher log(path().c_str(), 0, 3);
    publish(log, message);
    log.flush();
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ("", dir.read("x"));
  }
  EXPECT_TRUE(entry(message) == dir.read("x"));
}

TEST_F(RollingFilePublisher, ClosesItsFileOnce) {
  const int before = support::open_descriptors();
  const Recorder calls({"fclose"});
  { const rolling_file_publisher log(path().c_str(), 0, 3); }
  EXPECT_EQ(1, calls.count("fclose"));
  EXPECT_EQ(before, support::open_descriptors());
}

TEST_F(RollingFilePublisher, WritesTextsOfAnyLengthWhole) {
  rolling_file_publisher log(path().c_str(), 0, 3);
  const std::string message(3000000, 'x');
  publish(log, message);
  log.flush();
  EXPECT_EQ(entry(message), dir.read("x"));
}

TEST_F(RollingFilePublisher, KeepsItsOwnCopyOfTheName) {
  std::string name = path();
  rolling_file_publisher log(name.c_str(), 10, 2);
  name.assign(name.size(), '!');
  publish(log, "long enough");
  EXPECT_EQ((Lines{"x", "x.0"}), dir.list());
}

// ---- rolling_file_publisher: rotation ----

TEST_F(RollingFilePublisher, NeverRotatesWithALimitOfZeroOrLess) {
  for (const off_t limit : {0, -1, -1000000}) {
    rolling_file_publisher log(path().c_str(), limit, 3);
    for (int i = 0; i < 100; ++i) publish(log, "x");
  }
  EXPECT_EQ(Lines{"x"}, dir.list());
  EXPECT_EQ(300U * 33, dir.read("x").size());
}

TEST_F(RollingFilePublisher, WritesTheCrossingEntryToTheOldFile) {
  rolling_file_publisher log(path().c_str(), 10, 3);
  publish(log, "more than ten bytes");
  EXPECT_EQ(entry("more than ten bytes") + kNotice, dir.read("x.0"));
  EXPECT_EQ("", dir.read("x"));
}

TEST_F(RollingFilePublisher, RotatesOnlyAboveTheLimit) {
  rolling_file_publisher log(path().c_str(), 66, 3);
  publish(log, "1");
  publish(log, "2");  // 66: not above
  EXPECT_EQ(Lines{"x"}, dir.list());
  publish(log, "3");
  EXPECT_EQ(entry("1") + entry("2") + entry("3") + kNotice, dir.read("x.0"));
}

TEST_F(RollingFilePublisher, CountsFromZeroAfterARotation) {
  rolling_file_publisher log(path().c_str(), 40, 3);
  publish(log, "1");
  publish(log, "2");  // 66: rotates
  publish(log, "3");  // 33
  EXPECT_FALSE(dir.exists("x.1"));
  publish(log, "4");
  EXPECT_EQ(entry("3") + entry("4") + kNotice, dir.read("x.0"));
  EXPECT_EQ(entry("1") + entry("2") + kNotice, dir.read("x.1"));
}

TEST_F(RollingFilePublisher, ShiftsTheOldFilesAndDropsTheOldest) {
  dir.write("x", "current\n");
  dir.write("x.0", "zero");
  dir.write("x.1", "one");
  dir.write("x.2", "two");
  dir.write("x.3", "beyond");
  rolling_file_publisher log(path().c_str(), 10, 3);
  publish(log, "crossing");
  EXPECT_EQ("current\n" + entry("crossing") + kNotice, dir.read("x.0"));
  EXPECT_EQ("zero", dir.read("x.1"));
  EXPECT_EQ("one", dir.read("x.2"));
  EXPECT_EQ("beyond", dir.read("x.3"));
  EXPECT_EQ("", dir.read("x"));
  EXPECT_EQ((Lines{"x", "x.0", "x.1", "x.2", "x.3"}), dir.list());
}

TEST_F(RollingFilePublisher, KeepsAsManyOldFilesAsAskedFor) {
  rolling_file_publisher log(path().c_str(), 1, 2);
  for (const char* const message : {"1", "2", "3", "4"}) publish(log, message);
  EXPECT_EQ((Lines{"x", "x.0", "x.1"}), dir.list());
  EXPECT_EQ(entry("4") + kNotice, dir.read("x.0"));
  EXPECT_EQ(entry("3") + kNotice, dir.read("x.1"));
}

TEST_F(RollingFilePublisher, RotatesByTheseCallsInThisOrder) {
  rolling_file_publisher log(path().c_str(), 10, 3);
  const Recorder calls({"fflush", "fclose", "unlink", "rename", "stat", "fopen", "setvbuf"});
  publish(log, "crossing");
  const std::string x = path();
  EXPECT_EQ((Lines{"fflush", "fclose", "unlink " + x + ".2", "rename " + x + ".1 " + x + ".2",
                   "rename " + x + ".0 " + x + ".1", "rename " + x + " " + x + ".0",
                   "fopen " + x + " w", "setvbuf"}),
            calls.calls());
}

TEST_F(RollingFilePublisher, FlushesTheNoticeBeforeItCloses) {
  rolling_file_publisher log(path().c_str(), 10, 3);
  std::string closing;
  Recorder calls({"fclose"});
  calls.before = [&](const std::string&) { closing = dir.read("x"); };
  publish(log, "crossing");
  EXPECT_EQ(entry("crossing") + kNotice, closing);
}

TEST_F(RollingFilePublisher, EmptiesTheFileInPlaceWithFewerThanTwoOldFiles) {
  for (const size_t count : {0U, 1U}) {
    SCOPED_TRACE(count);
    dir.write("x.0", "untouched");
    rolling_file_publisher log(path().c_str(), 10, count);
    const Recorder calls({"fflush", "fclose", "unlink", "rename", "stat", "fopen", "setvbuf"});
    publish(log, "crossing");
    EXPECT_EQ((Lines{"fclose", "fopen " + path() + " w", "setvbuf"}), calls.calls());
    EXPECT_EQ("", dir.read("x"));
    EXPECT_EQ("untouched", dir.read("x.0"));
    EXPECT_EQ((Lines{"x", "x.0"}), dir.list());
    publish(log, "again");
    EXPECT_EQ("", dir.read("x"));
  }
}

TEST_F(RollingFilePublisher, ShiftsAcrossAGap) {
  dir.write("x.1", "one");
  rolling_file_publisher log(path().c_str(), 10, 5);
  publish(log, "crossing");
  EXPECT_EQ("one", dir.read("x.2"));
  EXPECT_FALSE(dir.exists("x.1"));
}

TEST_F(RollingFilePublisher, ShiftsFewFilesUnderAnyNumberOfPlaces) {
  for (const size_t count : {size_t{100}, size_t{1001}, size_t{1000000}, size_t{INT32_MAX} + 1,
                             size_t{UINT32_MAX}, SIZE_MAX}) {
    SCOPED_TRACE(count);
    const TempDir few;
    few.write("x", "current\n");
    few.write("x.0", "zero");
    few.write("x.1", "one");
    rolling_file_publisher log(few.file("x").c_str(), 10, count);
    publish(log, "crossing");
    EXPECT_EQ("current\n" + entry("crossing") + kNotice, few.read("x.0"));
    EXPECT_EQ("zero", few.read("x.1"));
    EXPECT_EQ("one", few.read("x.2"));
    EXPECT_EQ((Lines{"x", "x.0", "x.1", "x.2"}), few.list());
  }
}

TEST_F(RollingFilePublisher, DropsTheOldestOfManyFilesToo) {
  constexpr int kLast = 1200;
  for (int i = 0; i <= kLast; ++i) dir.write("x." + std::to_string(i), std::to_string(i));
  rolling_file_publisher log(path().c_str(), 10, kLast + 1);
  publish(log, "crossing");
  EXPECT_EQ(entry("crossing") + kNotice, dir.read("x.0"));
  EXPECT_EQ("0", dir.read("x.1"));
  EXPECT_EQ("1199", dir.read("x.1200"));
  EXPECT_EQ(size_t{kLast} + 2, dir.list().size());
}

TEST_F(RollingFilePublisher, TakesPercentSignsInItsNameAsTheyStand) {
  rolling_file_publisher log(dir.file("100%d %s").c_str(), 10, 2);
  publish(log, "crossing");
  publish(log, "crossing");
  EXPECT_EQ((Lines{"100%d %s", "100%d %s.0", "100%d %s.1"}), dir.list());
}

TEST_F(RollingFilePublisher, OutlivesRotationsWithAFullBuffer) {
  rolling_file_publisher log(path().c_str(), 1000000, 3);
  const std::string message(400000, 'x');
  for (int i = 0; i < 12; ++i) publish(log, message);
  const std::string full = entry(message) + entry(message) + entry(message) + kNotice;
  EXPECT_TRUE(full == dir.read("x.0"));
  EXPECT_TRUE(full == dir.read("x.1"));
  EXPECT_TRUE(full == dir.read("x.2"));
  EXPECT_EQ("", dir.read("x"));
}

// ---- rolling_file_publisher: trouble ----

TEST_F(RollingFilePublisher, DropsEntriesUntilItsFolderExists) {
  const std::string folder = dir.file("later");
  rolling_file_publisher log((folder + "/x").c_str(), 10, 3);
  EXPECT_EQ(0, publish(log, "dropped"));
  log.flush();
  EXPECT_EQ(Lines{}, dir.list());
  ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
  EXPECT_EQ(36, publish(log, "kept"));
  EXPECT_EQ(entry("kept") + kNotice, dir.read("later/x.0"));
}

TEST_F(RollingFilePublisher, TriesToOpenTheFileOnceAnEntry) {
  const Fault fault("fopen", EMFILE, Fault::kEvery);
  rolling_file_publisher log(path().c_str(), 10, 3);
  EXPECT_EQ(0, publish(log, "dropped"));
  EXPECT_EQ(0, publish(log, "dropped"));
  EXPECT_EQ(3, fault.uses());
}

TEST_F(RollingFilePublisher, SurvivesAFolderThatDisappears) {
  const std::string folder = dir.file("shortly");
  ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
  rolling_file_publisher log((folder + "/x").c_str(), 10, 3);
  std::filesystem::remove_all(folder);
  EXPECT_EQ(36, publish(log, "lost"));  // with the file; there is no folder to rotate in
  EXPECT_EQ(0, publish(log, "dropped"));
  EXPECT_EQ(Lines{}, dir.list());
  ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
  publish(log, "kept");
  EXPECT_EQ(entry("kept") + kNotice, dir.read("shortly/x.0"));
}

TEST_F(RollingFilePublisher, OpensAgainAfterAReopenFailedInARotation) {
  rolling_file_publisher log(path().c_str(), 40, 3);
  publish(log, "1");
  {
    const Fault fault("fopen", EMFILE);
    publish(log, "2");
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(entry("1") + entry("2") + kNotice, dir.read("x.0"));
  EXPECT_FALSE(dir.exists("x"));
  EXPECT_EQ(33, publish(log, "3"));
  log.flush();
  EXPECT_EQ(entry("3"), dir.read("x"));
}

TEST_F(RollingFilePublisher, AppendsAndCountsWhenItOpensAgain) {
  rolling_file_publisher log(path().c_str(), 40, 1);
  publish(log, "1");
  const Fault fault("fopen", EMFILE, Fault::kEvery);
  publish(log, "2");  // rotates; the file cannot be emptied
  EXPECT_EQ(0, publish(log, "dropped"));
  {
    const Fault passing("fopen", 0, Fault::kEvery);
    const Recorder calls({"fopen"});
    EXPECT_EQ(33, publish(log, "3"));  // to the 66 bytes that are there: rotates again
    EXPECT_EQ((Lines{"fopen " + path() + " a", "fopen " + path() + " w"}), calls.calls());
  }
  EXPECT_EQ("", dir.read("x"));
}

TEST_F(RollingFilePublisher, CountsFromZeroWhereTheSizeCannotBeRead) {
  dir.write("x", std::string(100, 'x'));
  const Fault fault("stat", EACCES);
  rolling_file_publisher log(path().c_str(), 40, 3);
  publish(log, "1");
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(Lines{"x"}, dir.list());
}

TEST_F(RollingFilePublisher, RotatesAlthoughRenamingFails) {
  rolling_file_publisher log(path().c_str(), 10, 2);
  const Fault fault("rename", EACCES, Fault::kEvery);
  EXPECT_EQ(36, publish(log, "lost"));  // Kept: the file is emptied although it was not moved.
  EXPECT_EQ(2, fault.uses());
  EXPECT_EQ("", dir.read("x"));
}

TEST_F(RollingFilePublisher, SurvivesAFullDisk) {
  ASSERT_EQ(0, symlink("/dev/full", path().c_str()));
  rolling_file_publisher log(path().c_str(), 2000000, 2);
  const std::string message(300000, 'x');
  for (int i = 0; i < 100 && !dir.exists("x.0"); ++i) publish(log, message);
  EXPECT_EQ((Lines{"x", "x.0"}), dir.list());
  EXPECT_TRUE(std::filesystem::is_symlink(dir.file("x.0")));
  ASSERT_FALSE(std::filesystem::is_symlink(dir.file("x")));
  publish(log, "kept");  // the link moved away: there is room again
  log.flush();
  EXPECT_EQ(entry("kept"), dir.read("x"));
}

TEST_F(RollingFilePublisher, WritesWithoutABufferOfItsOwnWhereItCannotBeSet) {
  const Fault fault("setvbuf", EINVAL, Fault::kEvery);
  {
    rolling_file_publisher log(path().c_str(), 40, 2);
    publish(log, "1");
    publish(log, "2");
    publish(log, "3");
  }
  EXPECT_EQ(2, fault.uses());
  EXPECT_EQ(entry("1") + entry("2") + kNotice, dir.read("x.0"));
  EXPECT_EQ(entry("3"), dir.read("x"));
}

TEST_F(RollingFilePublisher, WritesWithoutABufferOfItsOwnWhereMemoryIsShort) {
  if (kAddressSanitizer) GTEST_SKIP() << "the address sanitizer ends the process instead";
  in_child([] {
    const TempDir here;
    const FrozenClock then(kThen);
    rlimit free_limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_AS, &free_limit));
    const rlimit tight = {1, free_limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &tight));
    void* volatile const refused = malloc(0x80000);
    {
      rolling_file_publisher log(here.file("x").c_str(), 40, 2);
      publish(log, "1");
      publish(log, "2");
      publish(log, "3");
    }
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &free_limit));
    EXPECT_EQ(nullptr, refused);
    EXPECT_EQ(entry("1") + entry("2") + kNotice, here.read("x.0"));
    EXPECT_EQ(entry("3"), here.read("x"));
  });
}
