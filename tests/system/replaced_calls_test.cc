// SPDX-License-Identifier: MIT
// What the library asks of the C library goes by names that a program may define itself, whichever
// form of the library it is linked with.
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/network.h"
#include "tests/support/work.h"
#include "util/NetworkInterface.h"
#include "util/PropertyList.h"
#include "util/Timer.h"
#include "util/ZEB_GPIO.h"
#include "util/datetime.h"
#include "util/logger.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

using namespace support;

namespace {

void log_and_rotate(const TempDir& dir) {
  util::rolling_file_publisher log(dir.file("x").c_str(), 10, 2);
  publish(log, "more than ten bytes");
  publish(log, "%2000s", "written piece by piece");
  log.flush();
}

void log_to_system(const TempDir&) {
  const FrozenClock clock;  // a second whose text no entry has made yet
  const SyslogCapture captured;
  util::syslog_publisher log;
  publish(log, "text");
}

void save_and_load(const TempDir& dir) {
  util::PropertyList list(dir.file("x"));
  list["date"] = util::utime_t{1000};
  list.save();
  list.save();
  list.load();
}

void save_durably(const TempDir& dir) {
  util::PropertyList list(dir.file("x"));
  list["n"] = 1;
  list.saveDurably();
  list.saveDurably();
}

void read_pins(const TempDir& dir) {
  const Redirect redirect("/proc/resource_dump", dir.file("dump"));
  util::ZEB_GPIO().refresh();
}

void list_interfaces(const TempDir&) {
  FakeInterfaces fake{
      {"eth0", "10.0.0.1"},
  };
  fake.hardware = {
      {"eth0", "\x01\x02\x03\x04\x05\x06"}
  };
  EXPECT_EQ(1U, util::NetworkInterface::get_interfaces().size());
}

void sleep(const TempDir&) {
  const FrozenClock clock;
  EXPECT_EQ(1000000000000U, util::Timer::now());
  util::Timer::sleep(1);
}

void tell_time(const TempDir&) { util::unparse_time(util::parse_time("2007", "%Y"), "%Y"); }

// The names of the calls that an action makes, sorted.
std::string calls_of(void (*action)(const TempDir&)) {
  const TempDir dir;
  const Recorder recorder;
  action(dir);
  std::set<std::string> names;
  for (const std::string& entry : recorder.calls()) names.insert(entry.substr(0, entry.find(' ')));
  std::string all;
  for (const std::string& name : names) all += (all.empty() ? "" : " ") + name;
  return all;
}

}  // namespace

TEST(ReplacedCalls, AreUsedByEachPartOfTheLibrary) {
  EXPECT_EQ(
      "fclose fflush fopen fprintf fputc fwrite localtime_r rename setvbuf stat strftime time "
      "unlink "
      "vfprintf",
      calls_of(log_and_rotate));
  EXPECT_EQ("localtime_r strftime syslog time", calls_of(log_to_system));
  EXPECT_EQ(
      "fclose ferror fflush fopen fprintf fputc fread fstat fwrite link localtime_r mktime stat "
      "strftime "
      "strptime unlink",
      calls_of(save_and_load));
  EXPECT_EQ("close fchmod fchown fsync link open rename stat unlink write", calls_of(save_durably));
  EXPECT_EQ("fclose fopen fprintf fscanf", calls_of(read_pins));
  EXPECT_EQ("close freeifaddrs getifaddrs ioctl socket", calls_of(list_interfaces));
  EXPECT_EQ("gettimeofday nanosleep", calls_of(sleep));
  EXPECT_EQ("localtime_r mktime strftime strptime", calls_of(tell_time));
}
