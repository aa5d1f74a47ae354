// SPDX-License-Identifier: MIT
// When a log goes on in a new file, what becomes of the old ones, and what others do to them.
#include "service/LogFile.h"
#include "tests/support/allocations.h"
#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/trace.h"
#include "tests/support/work.h"
#include "util/logger.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace {

using service::LogFile;
using service::LogFileOptions;
using support::Fault;
using support::FrozenClock;
using support::publish;
using support::TempDir;
using Names = std::vector<std::string>;

constexpr size_t kEntry = 35;  // the size of an entry whose message has three characters
constexpr util::utime_t kDay = 86400000;

std::string entry(const std::string& message, const char* time = "2007-03-01T14:05:09") {
  return time + (" here\nINFO: " + message + "\n");
}

// Entries of 35 bytes each.
std::string entries(int first, int last) {
  std::string text;
  for (int i = first; i <= last; ++i) text += entry(std::to_string(i));
  return text;
}

// How often there is an entry of that message.
int times(const std::string& text, const std::string& message) {
  int count = 0;
  const std::string line = "\nINFO: " + message + "\n";
  for (size_t at = 0; (at = text.find(line, at)) != text.npos; ++at) ++count;
  return count;
}

class LogFileRotation : public testing::Test {
 protected:
  LogFileRotation() { options.rotate_above = 2 * kEntry; }

  std::string path() const { return dir.file("x"); }
  void write(int first, int last) const {
    LogFile log(path(), options);
    for (int i = first; i <= last; ++i) publish(log, "%d", i);
  }
  std::string unpacked(const std::string& name) const {
    const std::string command = "gzip -dc '" + dir.file(name) + "'";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    char bytes[4096];
    for (size_t size = 0; (size = fread(bytes, 1, sizeof bytes, pipe)) > 0;) {
      text.append(bytes, size);
    }
    EXPECT_EQ(0, pclose(pipe));
    return text;
  }
  // All of the log from its oldest file on.
  std::string all() const {
    Names names = dir.list();
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
      return strtol(&a[std::min<size_t>(2, a.size())], nullptr, 10) + (a.size() > 1) >
             strtol(&b[std::min<size_t>(2, b.size())], nullptr, 10) + (b.size() > 1);
    });
    std::string text;
    for (const std::string& name : names) {
      if (name[0] == '.') continue;
      const bool packed = name.size() > 3 && name.substr(name.size() - 3) == ".gz";
      text += packed ? unpacked(name) : dir.read(name);
    }
    return text;
  }
  void set_time(const std::string& name, time_t second) const {
    const timespec both[] = {
        {second, 0},
        {second, 0}
    };
    EXPECT_EQ(0, utimensat(AT_FDCWD, dir.file(name).c_str(), both, 0));
  }
  // Until what gzip makes is in place, which takes an entry in another second.
  void await(LogFile& log, const Names& names) {
    for (int i = 0; i < 5000 && dir.list() != names; ++i) {
      poll(nullptr, 0, 2);  // not by the clock that is stopped
      clock.advance(1000);
      log.flush();
    }
    EXPECT_EQ(names, dir.list());
  }

  const TempDir dir;
  FrozenClock clock{"2007-03-01T14:05:09"};
  LogFileOptions options;
};

}  // namespace

// ---- when ----

TEST_F(LogFileRotation, LetsNoFileGrowPastTheLimit) {
  write(100, 106);
  EXPECT_EQ(Names({"x", "x.0", "x.1", "x.2"}), dir.list());
  EXPECT_EQ(entries(106, 106), dir.read("x"));
  EXPECT_EQ(entries(104, 105), dir.read("x.0"));
  EXPECT_EQ(entries(102, 103), dir.read("x.1"));
  EXPECT_EQ(entries(100, 101), dir.read("x.2"));
}

TEST_F(LogFileRotation, CountsWhatAnEarlierRunHasWritten) {
  write(100, 100);
  write(101, 101);
  write(102, 102);
  EXPECT_EQ(entries(100, 101), dir.read("x.0"));
  EXPECT_EQ(entries(102, 102), dir.read("x"));
}

TEST_F(LogFileRotation, GivesAnEntryThatIsLongerThanTheLimitAFileOfItsOwn) {
  const std::string large(1 << 20, 'l');
  LogFile log(path(), options);
  publish(log, "100");
  publish(log, "%s", large.c_str());
  publish(log, "101");
  EXPECT_EQ(entries(100, 100), dir.read("x.1"));
  EXPECT_EQ(entry(large), dir.read("x.0"));
  EXPECT_EQ(entries(101, 101), dir.read("x"));
}

TEST_F(LogFileRotation, BeginsAFileWhenToldUnlessThereIsNothingInTheFile) {
  LogFile log(path(), options);
  EXPECT_FALSE(log.rotate());
  EXPECT_EQ(Names({"x"}), dir.list());
  publish(log, "100");
  EXPECT_FALSE(log.rotate());
  EXPECT_FALSE(log.rotate());
  EXPECT_EQ(Names({"x", "x.0"}), dir.list());
  EXPECT_EQ(entries(100, 100), dir.read("x.0"));
  EXPECT_EQ("", dir.read("x"));
}

TEST_F(LogFileRotation, BeginsAFileWithTheFirstEntryOfADay) {
  options.rotate_daily = true;
  LogFile log(path(), options);
  publish(log, "late");
  clock.advance(kDay);
  log.flush();
  EXPECT_EQ(Names({"x"}), dir.list());
  publish(log, "early");
  EXPECT_EQ(entry("late"), dir.read("x.0"));
  EXPECT_EQ(entry("early", "2007-03-02T14:05:09"), dir.read("x"));
}

TEST_F(LogFileRotation, WritesYesterdaysBufferedEntriesToYesterdaysFile) {
  options.rotate_daily = true;
  options.buffered = true;
  LogFile log(path(), options);
  publish(log, "late");
  clock.advance(kDay);
  publish(log, "early");
  log.flush();
  EXPECT_EQ(entry("late"), dir.read("x.0"));
  EXPECT_EQ(entry("early", "2007-03-02T14:05:09"), dir.read("x"));
}

TEST_F(LogFileRotation, ChangesDaysAtMidnightOfLocalTime) {
  const support::TimeZone zone("XXX+5");
  options.rotate_daily = true;
  FrozenClock night("2007-03-01T23:59:59");
  LogFile log(path(), options);
  publish(log, "late");
  night.advance(1000);
  publish(log, "early");
  EXPECT_EQ(entry("late", "2007-03-01T23:59:59"), dir.read("x.0"));
  EXPECT_EQ(entry("early", "2007-03-02T00:00:00"), dir.read("x"));
}

TEST_F(LogFileRotation, TakesTheDayOfAnEarlierRunFromItsFile) {
  options.rotate_daily = true;
  dir.write("x", "before\n");
  set_time("x", 1172707199);  // the end of the day before
  LogFile log(path(), options);
  publish(log, "now");
  EXPECT_EQ("before\n", dir.read("x.0"));
}

TEST_F(LogFileRotation, BeginsOneFileWhereTheClockGoesBackOverMidnight) {
  options.rotate_daily = true;
  options.rotate_above = 0;
  FrozenClock night("2007-03-01T23:59:59");
  LogFile log(path(), options);
  for (const int64_t step : {1000, 1000, -3000, 1000, 1000, 1000, 1000}) {
    publish(log, "entry");
    night.advance(step);
  }
  EXPECT_EQ(Names({"x", "x.0"}), dir.list());
  EXPECT_EQ(entry("entry", "2007-03-01T23:59:59"), dir.read("x.0"));
}

TEST_F(LogFileRotation, ChangesDaysAgainAfterAClockThatWasYearsAhead) {
  options.rotate_daily = true;
  options.rotate_above = 0;
  clock.advance(30 * 365 * kDay);
  LogFile log(path(), options);
  publish(log, "in 2037");
  clock.set(1172757909000);
  publish(log, "in 2007");
  EXPECT_EQ(Names({"x"}), dir.list());
  clock.advance(kDay);
  publish(log, "the day after");
  EXPECT_EQ(Names({"x", "x.0"}), dir.list());
}

TEST_F(LogFileRotation, BeginsAFileOnEachDayOfAYear) {
  options.rotate_daily = true;
  options.rotate_above = 0;
  options.old_files = 7;
  LogFile log(path(), options);
  for (int day = 0; day < 365; ++day) {
    publish(log, "morning %d", day);
    publish(log, "evening %d", day);
    clock.advance(kDay);
  }
  EXPECT_EQ(8U, dir.list().size());
  EXPECT_EQ(
      entry("morning 357", "2008-02-21T14:05:09") + entry("evening 357", "2008-02-21T14:05:09"),
      dir.read("x.6"));
  EXPECT_EQ(
      entry("morning 364", "2008-02-28T14:05:09") + entry("evening 364", "2008-02-28T14:05:09"),
      dir.read("x"));
}

// ---- what is kept ----

TEST_F(LogFileRotation, RemovesTheOldestBeyondTheNumber) {
  options.old_files = 2;
  write(100, 108);
  EXPECT_EQ(Names({"x", "x.0", "x.1"}), dir.list());
  EXPECT_EQ(entries(104, 108), all());
}

TEST_F(LogFileRotation, RemovesAllBeyondANumberThatWasMadeSmaller) {
  write(100, 108);
  options.old_files = 1;
  write(109, 110);
  EXPECT_EQ(Names({"x", "x.0"}), dir.list());
  EXPECT_EQ(entries(108, 110), all());
}

TEST_F(LogFileRotation, KeepsTheTotalSizeOfAllFiles) {
  options.old_files = 100;
  options.total_size = 7 * kEntry;  // room for two old files of two entries, and the present one
  write(100, 110);
  EXPECT_EQ(Names({"x", "x.0", "x.1"}), dir.list());
  EXPECT_EQ(entries(106, 110), all());
}

TEST_F(LogFileRotation, GivesANewFileModeAndOwner) {
  options.mode = 0604;
  write(100, 102);
  for (const char* const name : {"x", "x.0"}) {
    struct stat file = {};
    EXPECT_EQ(0, stat(dir.file(name).c_str(), &file));
    EXPECT_EQ(0604U, file.st_mode & 07777);
  }
}

TEST_F(LogFileRotation, LeavesOtherFilesAlone) {
  const Names others = {"x.01", "x.0x", "x.", "x.gz", "x.new", "y.0", "x.99999999999999999999"};
  for (const std::string& name : others) dir.write(name, name);
  options.old_files = 1;
  write(100, 110);
  for (const std::string& name : others) EXPECT_EQ(name, dir.read(name));
  EXPECT_EQ(others.size() + 2, dir.list().size());
}

TEST_F(LogFileRotation, FillsTheGapThatAKillHasLeft) {
  write(100, 106);
  ASSERT_EQ(0, rename(dir.file("x.1").c_str(), dir.file("x.3").c_str()));
  ASSERT_EQ(0, rename(dir.file("x.2").c_str(), dir.file("x.4").c_str()));
  write(107, 108);
  EXPECT_EQ(Names({"x", "x.0", "x.1", "x.3", "x.4"}), dir.list());
  write(109, 110);
  EXPECT_EQ(Names({"x", "x.0", "x.1", "x.2", "x.3"}), dir.list());
  EXPECT_EQ(entries(102, 110), all());
}

// ---- compressed ----

TEST_F(LogFileRotation, CompressesAllButTheNewestOldFile) {
  options.compress = true;
  LogFile log(path(), options);
  for (int i = 100; i <= 106; ++i) publish(log, "%d", i);
  await(log, {"x", "x.0", "x.1.gz", "x.2.gz"});
  EXPECT_EQ(entries(100, 106), all());
}

TEST_F(LogFileRotation, GivesACompressedFileWhatTheOldOneHad) {
  options.mode = 0604;
  write(100, 104);
  set_time("x.1", 1172707199);
  options.compress = true;
  LogFile log(path(), options);
  await(log, {"x", "x.0", "x.1.gz"});
  struct stat file = {};
  EXPECT_EQ(0, stat(dir.file("x.1.gz").c_str(), &file));
  EXPECT_EQ(0604U, file.st_mode & 07777);
  EXPECT_EQ(1172707199, file.st_mtime);
}

TEST_F(LogFileRotation, KeepsTheFileWhereGzipIsMissingOrFails) {
  const std::string path_before = getenv("PATH");
  options.compress = true;
  for (const char* const gzip : {"", "#!/bin/sh\nhead -c 10\nexit 1\n", "#!/bin/sh\nexit 0\n"}) {
    SCOPED_TRACE(gzip);
    clock.set(1172757909000);
    const TempDir bin;
    if (*gzip != '\0') bin.write("gzip", gzip);
    chmod(bin.file("gzip").c_str(), 0755);
    setenv("PATH", (bin.path() + ":/nonexistent").c_str(), 1);
    LogFile log(path(), options);
    for (int i = 100; i <= 104; ++i) publish(log, "%d", i);
    await(log, {"x", "x.0", "x.1"});
    setenv("PATH", path_before.c_str(), 1);
    EXPECT_EQ(entries(100, 104), all());
    for (const std::string& name : dir.list()) unlink(dir.file(name).c_str());
  }
}

TEST_F(LogFileRotation, RotatesOnWhileGzipHangs) {
  const std::string path_before = getenv("PATH");
  const TempDir bin;
  bin.write("gzip",
            "#!/bin/sh\n/bin/sleep 0.3\n/bin/cat >/dev/null\nexec /bin/gzip -c </dev/null\n");
  chmod(bin.file("gzip").c_str(), 0755);
  setenv("PATH", bin.path().c_str(), 1);
  options.compress = true;
  options.old_files = 100;
  const auto start = std::chrono::steady_clock::now();
  LogFile log(path(), options);
  for (int i = 100; i <= 140; ++i) publish(log, "%d", i);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
  setenv("PATH", path_before.c_str(), 1);
  EXPECT_EQ(entries(100, 140), all());
  // What it makes of a file is refused, since it is not that file.
  for (int i = 0; i < 500 && dir.list()[0][0] == '.'; ++i) {
    poll(nullptr, 0, 10);
    clock.advance(1000);
    log.flush();
  }
  EXPECT_EQ("x", dir.list()[0]);
  EXPECT_EQ(entries(100, 140), all());
}

TEST_F(LogFileRotation, LeavesNoChildAndNoDescriptorToTheDaemon) {
  options.compress = true;
  LogFile log(path(), options);
  const int before = support::open_descriptors();
  for (int i = 100; i <= 104; ++i) publish(log, "%d", i);
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
  EXPECT_EQ(ECHILD, errno);
  EXPECT_EQ(before, support::open_descriptors());
  await(log, {"x", "x.0", "x.1.gz"});
}

TEST_F(LogFileRotation, TakesOverOrRemovesWhatWasInTheMakingWhenItWasKilled) {
  write(100, 104);
  dir.write(".x.new", "torn");
  dir.write(".x.4711.part", "torn");
  dir.write(".x.4712.gz", "of a file that is gone");
  dir.write("x.1.gz", "torn");
  options.compress = true;
  LogFile log(path(), options);
  publish(log, "105");
  publish(log, "106");
  await(log, {"x", "x.0", "x.1.gz", "x.2.gz"});
  EXPECT_EQ(entries(100, 106), all());
}

// ---- what others do ----

TEST_F(LogFileRotation, ReopensAfterAnotherProgramHasMovedTheFile) {
  LogFile log(path(), options);
  publish(log, "100");
  ASSERT_EQ(0, rename(path().c_str(), dir.file("moved").c_str()));
  publish(log, "101");
  EXPECT_FALSE(log.reopen());
  publish(log, "102");
  EXPECT_EQ(entries(100, 101), dir.read("moved"));
  EXPECT_EQ(entries(102, 102), dir.read("x"));
}

TEST_F(LogFileRotation, StaysWithItsFileWhereItCannotReopen) {
  LogFile log(path(), options);
  const Fault fault("open", EMFILE);
  EXPECT_EQ(std::errc::too_many_files_open, log.reopen());
  publish(log, "100");
  EXPECT_EQ(entries(100, 100), dir.read("x"));
}

TEST_F(LogFileRotation, FindsOutWithinASecondThatTheFileWasMoved) {
  LogFile log(path(), options);
  publish(log, "100");
  ASSERT_EQ(0, rename(path().c_str(), dir.file("moved").c_str()));
  publish(log, "101");
  clock.advance(1000);
  publish(log, "102");
  EXPECT_EQ(entries(100, 101), dir.read("moved"));
  EXPECT_EQ(entry("102", "2007-03-01T14:05:10"), dir.read("x"));
  EXPECT_EQ(0U, log.lost());
}

TEST_F(LogFileRotation, CountsWhatItWroteToARemovedFile) {
  options.rotate_above = 0;
  LogFile log(path(), options);
  publish(log, "100");
  clock.advance(1000);
  log.flush();
  ASSERT_EQ(0, unlink(path().c_str()));
  publish(log, "101");
  publish(log, "102");
  clock.advance(1000);
  publish(log, "103");
  EXPECT_EQ(2U, log.lost());
  EXPECT_EQ(
      "2007-03-01T14:05:11 service::LogFile\n"
      "WARNING: 2 entries lost since 2007-03-01T14:05:11: No such file or directory\n" +
          entry("103", "2007-03-01T14:05:11"),
      dir.read("x"));
}

TEST_F(LogFileRotation, WaitsForAFolderThatWasRemoved) {
  options.rotate_above = 0;
  ASSERT_EQ(0, mkdir(dir.file("folder").c_str(), 0755));
  LogFile log(dir.file("folder/x"), options);
  publish(log, "100");
  std::filesystem::remove_all(dir.file("folder"));
  clock.advance(1000);
  publish(log, "waits");
  EXPECT_EQ(std::errc::no_such_file_or_directory, log.error());
  ASSERT_EQ(0, mkdir(dir.file("folder").c_str(), 0755));
  publish(log, "comes");
  EXPECT_FALSE(log.error());
  EXPECT_EQ(
      "2007-03-01T14:05:10 service::LogFile\n"
      "WARNING: 1 entry lost since 2007-03-01T14:05:10: No such file or directory\n" +
          entry("waits", "2007-03-01T14:05:10") + entry("comes", "2007-03-01T14:05:10"),
      dir.read("folder/x"));
}

TEST_F(LogFileRotation, StaysWithItsFileInAFolderThatTakesNoOther) {
  LogFile log(path(), options);
  for (const char* const call : {"open", "rename", "opendir", "flock", "unlink"}) {
    SCOPED_TRACE(call);
    const Fault read_only(call, EROFS, Fault::kEvery);
    for (int i = 100; i <= 104; ++i) publish(log, "%d", i);
    clock.advance(1000);
  }
  EXPECT_EQ(0U, log.lost());
  const std::string text = all();
  for (int i = 100; i <= 104; ++i) EXPECT_EQ(5, times(text, std::to_string(i))) << i;
}

TEST_F(LogFileRotation, FollowsAFolderThatWasReplacedByALink) {
  ASSERT_EQ(0, mkdir(dir.file("old").c_str(), 0755));
  LogFile log(dir.file("old/x"), options);
  publish(log, "100");
  ASSERT_EQ(0, rename(dir.file("old").c_str(), dir.file("new").c_str()));
  ASSERT_EQ(0, symlink("new", dir.file("old").c_str()));
  clock.advance(1000);
  publish(log, "101");
  EXPECT_EQ(entries(100, 100) + entry("101", "2007-03-01T14:05:10"), dir.read("new/x"));
}

TEST_F(LogFileRotation, DoesNotFollowALinkInThePlaceOfItsFile) {
  dir.write("target", "target\n");
  LogFile log(path(), options);
  publish(log, "100");
  ASSERT_EQ(0, rename(path().c_str(), dir.file("moved").c_str()));
  ASSERT_EQ(0, symlink("target", path().c_str()));
  clock.advance(1000);
  publish(log, "101");
  EXPECT_EQ("target\n", dir.read("target"));
  EXPECT_EQ(entries(100, 100) + entry("101", "2007-03-01T14:05:10"), dir.read("moved"));
  EXPECT_EQ(std::errc::too_many_symbolic_link_levels, log.reopen());
}

// ---- two of them ----

TEST_F(LogFileRotation, KeepsAllEntriesOfTwoPublishersOfOnePath) {
  options.old_files = 1000;
  LogFile one(path(), options);
  LogFile other(path(), options);
  for (int i = 100; i < 200; ++i) {
    publish(i % 3 == 0 ? other : one, "%d", i);
    if (i % 7 == 0) clock.advance(1000);
  }
  const std::string text = all();
  for (int i = 100; i < 200; ++i) {
    EXPECT_EQ(1, times(text, std::to_string(i))) << i;
  }
  EXPECT_EQ(0U, one.lost() + other.lost());
}

// ---- killed ----

// One time before each of the system calls of a rotation, with what it finds made anew.
TEST_F(LogFileRotation, KilledAnywhereLosesNothingButTheEntryAtHand) {
  options.old_files = 3;
  bool ended = false;
  int kills = 0;
  for (; !ended; ++kills) {
    SCOPED_TRACE(kills);
    for (const std::string& name : dir.list()) unlink(dir.file(name).c_str());
    write(100, 107);  // all files are full
    ended = !support::killed_before(kills + 1, [this] { write(108, 108); });
    write(109, 110);
    const std::string text = all();
    const bool is_there = times(text, "108") == 1;  // and needs a second rotation
    EXPECT_EQ(is_there ? entries(104, 110) : entries(102, 107) + entries(109, 110), text);
    write(111, 118);
    EXPECT_EQ(Names({"x", "x.0", "x.1", "x.2"}), dir.list());
  }
  EXPECT_LT(8, kills);
}

// ---- failing calls ----

// Each use of each of them, one time after the other, while the log is opened, written, rotated and
// compressed.
TEST_F(LogFileRotation, LosesNothingUncountedWhereACallFails) {
  options.compress = true;
  options.old_files = 10;
  for (const char* const call : {"open", "fstat", "lstat", "write", "close", "rename", "unlink",
                                 "flock", "opendir", "fchmod", "fork", "time", "strftime"}) {
    for (const int error : {EIO, EINTR}) {
      bool fired = true;
      for (int nth = 1; fired && nth < 40; ++nth) {
        SCOPED_TRACE(call + std::string(" ") + std::to_string(nth) + ": " + strerror(error));
        for (const std::string& name : dir.list()) unlink(dir.file(name).c_str());
        std::error_code opened;
        const Fault fault(call, error, nth);
        LogFile log(path(), options, opened);
        for (int i = 100; i <= 106; ++i) {
          publish(log, "%d", i);
          clock.advance(1000);
        }
        fired = fault.fired();
        log.flush();
        EXPECT_FALSE(log.error());
        const std::string text = all();
        uint64_t there = 0;
        for (int i = 100; i <= 106; ++i) {
          const int count = times(text, std::to_string(i));
          EXPECT_GE(1, count) << i;
          there += static_cast<uint64_t>(count);
        }
        EXPECT_EQ(7U, there + log.lost());
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

// Each use of operator new, one time after the other, while entries need a larger buffer and the
// log is rotated and compressed.
TEST_F(LogFileRotation, LosesNothingUncountedWhereMemoryRunsOut) {
  options.compress = true;
  options.old_files = 10;
  const std::string large(70000, 'l');
  bool fired = true;
  int uses = 0;
  for (; fired; ++uses) {
    SCOPED_TRACE(uses);
    for (const std::string& name : dir.list()) unlink(dir.file(name).c_str());
    LogFile log(path(), options);
    {
      const support::AllocationFault fault(uses + 1);
      for (int i = 100; i <= 103; ++i) {
        publish(log, "%d", i);
        clock.advance(1000);
      }
      publish(log, "%s", large.c_str());
      fired = fault.fired();
    }
    publish(log, "104");
    const std::string text = all();
    for (int i = 100; i <= 104; ++i) EXPECT_EQ(1, times(text, std::to_string(i))) << i;
    EXPECT_EQ(1U, static_cast<unsigned>(times(text, large)) + log.lost());
    EXPECT_FALSE(log.error());
  }
  EXPECT_LT(50, uses);
}
