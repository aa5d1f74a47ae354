// SPDX-License-Identifier: MIT
#include "service/LogFile.h"

#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/work.h"
#include "util/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using service::LogFile;
using service::LogFileOptions;
using support::Fault;
using support::FrozenClock;
using support::publish;
using support::Recorder;
using support::TempDir;
using Names = std::vector<std::string>;

std::string entry(const std::string& message, const char* time = "2007-03-01T14:05:09") {
  return time + (" here\nINFO: " + message + "\n");
}

class LogFileTest : public testing::Test {
 protected:
  std::string path() const { return dir.file("x"); }
  mode_t mode() const {
    struct stat file = {};
    EXPECT_EQ(0, stat(path().c_str(), &file));
    return file.st_mode & 07777;
  }
  // What opening says.
  std::string refused(const LogFileOptions& options = {}) const {
    try {
      const LogFile log(path(), options);
      return "opened";
    } catch (const std::system_error& e) {
      return e.what();
    }
  }

  const TempDir dir;
  FrozenClock clock{"2007-03-01T14:05:09"};
};

// Runs `body` in a forked child to its end.
void forked(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
}

}  // namespace

// ---- writing ----

TEST_F(LogFileTest, HasEachEntryInTheFileAtOnceByOneWrite) {
  LogFile log(path());
  Names made;
  {
    const Recorder calls;
    publish(log, "disk %d", 3);
    made = calls.calls();
  }
  EXPECT_EQ(Names({"time", "write"}), made);
  EXPECT_EQ(entry("disk 3"), dir.read("x"));
}

TEST_F(LogFileTest, ReturnsTheLengthOfTheEntry) {
  LogFile log(path());
  va_list none = {};
  EXPECT_EQ(36, log.publish(util::INFO, "here", "four", none));
}

TEST_F(LogFileTest, AppendsToWhatIsThere) {
  dir.write("x", "before\n");
  LogFile log(path());
  publish(log, "after");
  EXPECT_EQ("before\n" + entry("after"), dir.read("x"));
}

TEST_F(LogFileTest, WritesAnEntryOfAMebibyteWholeAndSmallOnesAfterIt) {
  const std::string megabyte(1 << 20, 'm');
  LogFileOptions options;
  options.rotate_above = 0;
  for (const bool buffered : {false, true}) {
    SCOPED_TRACE(buffered);
    options.buffered = buffered;
    {
      LogFile log(path(), options);
      publish(log, "before");
      publish(log, "%s", megabyte.c_str());
      publish(log, "%s", megabyte.c_str());
      publish(log, "after");
    }
    EXPECT_EQ(entry("before") + entry(megabyte) + entry(megabyte) + entry("after"), dir.read("x"));
    unlink(path().c_str());
  }
}

TEST_F(LogFileTest, WritesEntriesOfEachLengthAroundTheBuffers) {
  LogFileOptions options;
  options.rotate_above = 0;
  options.buffered = true;
  std::string expected;
  {
    LogFile log(path(), options);
    for (size_t size = (64 << 10) - 40; size < (64 << 10) + 10; ++size) {
      const std::string message(size, 'x');
      publish(log, "%s", message.c_str());
      publish(log, "between");
      expected += entry(message) + entry("between");
    }
  }
  EXPECT_EQ(expected, dir.read("x"));
}

TEST_F(LogFileTest, FormatsMessagesAsPrintfDoes) {
  LogFile log(path());
  const char* const none = getenv("a name that no variable has");
  publish(log, "%s%s%d and %d, %u", "text", "", INT_MIN, 0, UINT_MAX);
  publish(log, "%d %%, %5d, %-3s|, %lld, %.2f", 7, 7, "a", LLONG_MAX, 0.5);
  publish(log, "%s: %s", "none", none);
  EXPECT_EQ(entry("text-2147483648 and 0, 4294967295") +
                entry("7 %,     7, a  |, 9223372036854775807, 0.50") + entry("none: (null)"),
            dir.read("x"));
}

TEST_F(LogFileTest, WritesTheFormatOfAMessageThatCannotBeFormatted) {
  LogFile log(path());
  const wchar_t bad[] = {0x110000, 0};
  publish(log, "name %ls", bad);
  EXPECT_EQ(entry("name %ls"), dir.read("x"));
}

TEST_F(LogFileTest, HasBufferedEntriesWaitForFlush) {
  LogFileOptions options;
  options.buffered = true;
  LogFile log(path(), options);
  publish(log, "one");
  publish(log, "two");
  EXPECT_EQ("", dir.read("x"));
  const Recorder calls({"write"});
  log.flush();
  EXPECT_EQ(entry("one") + entry("two"), dir.read("x"));
  EXPECT_EQ(1, calls.count("write"));
}

TEST_F(LogFileTest, WritesBufferedEntriesAtExit) {
  forked([this] {
    LogFileOptions options;
    options.buffered = true;
    auto* const log = new LogFile(path(), options);  // as a logger's, which are never destroyed
    publish(*log, "last");
    exit(0);
  });
  EXPECT_EQ(entry("last"), dir.read("x"));
}

TEST_F(LogFileTest, SyncsWhatItHasWritten) {
  LogFileOptions options;
  options.buffered = true;
  LogFile log(path(), options);
  publish(log, "kept");
  const Recorder calls({"write", "syncfs", "fdatasync"});
  EXPECT_FALSE(log.sync());
  publish(log, "kept, too");
  EXPECT_FALSE(log.sync());
  EXPECT_EQ(Names({"write", "syncfs", "write", "fdatasync"}), calls.calls());
  const Fault fault("fdatasync", EIO);
  EXPECT_EQ(std::errc::io_error, log.sync());
}

// ---- opening ----

TEST_F(LogFileTest, ThrowsWhereTheFileCannotBeOpened) {
  EXPECT_THROW(LogFile(dir.file("missing/x")), std::system_error);
  const Fault fault("open", EMFILE);
  EXPECT_EQ(path() + ": Too many open files", refused());
}

TEST_F(LogFileTest, TellsThatTheFileCannotBeOpenedAndTriesAgainWithEachEntry) {
  std::error_code error;
  LogFile log(dir.file("folder/x"), LogFileOptions(), error);
  EXPECT_EQ(std::errc::no_such_file_or_directory, error);
  publish(log, "waits");
  EXPECT_EQ(std::errc::no_such_file_or_directory, log.error());
  ASSERT_EQ(0, mkdir(dir.file("folder").c_str(), 0755));
  publish(log, "comes");
  EXPECT_FALSE(log.error());
  EXPECT_EQ(0U, log.lost());
  EXPECT_EQ(entry("waits") + entry("comes"), dir.read("folder/x"));
}

TEST_F(LogFileTest, RefusesASymbolicLinkAFolderAPipeAndADevice) {
  ASSERT_EQ(0, symlink("elsewhere", path().c_str()));
  EXPECT_EQ(path() + ": Too many levels of symbolic links", refused());
  EXPECT_FALSE(dir.exists("elsewhere"));
  unlink(path().c_str());
  ASSERT_EQ(0, mkdir(path().c_str(), 0755));
  EXPECT_EQ(path() + ": Is a directory", refused());
  rmdir(path().c_str());
  ASSERT_EQ(0, mkfifo(path().c_str(), 0644));
  const Recorder calls({"open"});
  EXPECT_EQ(path() + ": Invalid argument", refused());
  EXPECT_THROW(LogFile("/dev/null"), std::system_error);
  EXPECT_EQ(0, calls.count("open"));
}

TEST_F(LogFileTest, SetsTheModeWhateverTheUmaskSays) {
  const mode_t before = umask(077);
  { const LogFile log(path()); }
  EXPECT_EQ(0640U, mode());
  LogFileOptions options;
  options.mode = 0664;
  { const LogFile log(path(), options); }
  EXPECT_EQ(0664U, mode());
  umask(before);
}

TEST_F(LogFileTest, SetsTheOwnerOrSaysThatItCannot) {
  LogFileOptions options;
  options.owner = getuid() + 1;
  const Fault fault("fchown", EPERM);
  EXPECT_EQ(path() + ": Operation not permitted", refused(options));
  EXPECT_TRUE(fault.fired());
  options.owner = getuid();
  options.group = getgid();
  EXPECT_EQ("opened", refused(options));
}

TEST_F(LogFileTest, ClosesTheFileOnExec) {
  const int before = support::open_descriptors();
  const LogFile log(path());
  for (int i = 0; i < 64; ++i) {
    struct stat one = {};
    struct stat other = {};
    if (fstat(i, &one) != 0 || stat(path().c_str(), &other) != 0 || one.st_ino != other.st_ino)
      continue;
    EXPECT_EQ(FD_CLOEXEC, fcntl(i, F_GETFD));
    EXPECT_EQ(before + 1, support::open_descriptors());
    return;
  }
  ADD_FAILURE() << "the file is not open";
}

TEST_F(LogFileTest, RefusesOptionsThatContradictEachOther) {
  const struct {
    const char* text;
    off_t rotate_above, total_size;
    size_t old_files;
  } rows[] = {
      {"service::LogFile: a size is negative",                                   -1, 0,   4},
      {"service::LogFile: a size is negative",                                   10, -1,  4},
      {"service::LogFile: old_files is 0",                                       10, 0,   0},
      {"service::LogFile: total_size has no room for two files of rotate_above", 10, 19,  4},
      {"service::LogFile: total_size has no room for two files of rotate_above", 0,  100, 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    LogFileOptions options;
    options.rotate_above = row.rotate_above;
    options.total_size = row.total_size;
    options.old_files = row.old_files;
    EXPECT_THAT([&] { const LogFile log(path(), options); },
                testing::ThrowsMessage<std::invalid_argument>(row.text));
  }
  EXPECT_FALSE(dir.exists("x"));
}

// ---- failing ----

TEST_F(LogFileTest, HasEntriesWaitWhileTheDiskTakesNone) {
  LogFile log(path());
  {
    const Fault full("write", ENOSPC, Fault::kEvery);
    va_list none = {};
    EXPECT_EQ(-1, log.publish(util::INFO, "here", "one", none));
    EXPECT_EQ(std::errc::no_space_on_device, log.error());
    publish(log, "two");
  }
  publish(log, "three");
  EXPECT_FALSE(log.error());
  EXPECT_EQ(0U, log.lost());
  EXPECT_EQ(entry("one") + entry("two") + entry("three"), dir.read("x"));
}

TEST_F(LogFileTest, TriesAgainWithEachBufferedEntryToo) {
  LogFileOptions options;
  options.buffered = true;
  LogFile log(path(), options);
  publish(log, "one");
  {
    const Fault full("write", ENOSPC, Fault::kEvery);
    log.flush();
    va_list none = {};
    EXPECT_EQ(-1, log.publish(util::INFO, "here", "two", none));
  }
  publish(log, "three");
  EXPECT_FALSE(log.error());
  EXPECT_EQ(entry("one") + entry("two"), dir.read("x"));
}

TEST_F(LogFileTest, CountsTheEntriesThatFindNoRoomToWait) {
  LogFile log(path());
  const std::string half(40 << 10, 'h');
  {
    const Fault full("write", ENOSPC, Fault::kEvery);
    publish(log, "%s", half.c_str());
    clock.advance(60000);
    for (int i = 0; i < 3; ++i) publish(log, "%s", half.c_str());
    EXPECT_EQ(3U, log.lost());
    clock.advance(60000);
    publish(log, "%s", half.c_str());
  }
  publish(log, "room");
  EXPECT_EQ(entry(half) +
                "2007-03-01T14:07:09 service::LogFile\n"
                "WARNING: 4 entries lost since 2007-03-01T14:06:09: No space left on device\n" +
                entry("room", "2007-03-01T14:07:09"),
            dir.read("x"));
  EXPECT_EQ(4U, log.lost());
}

TEST_F(LogFileTest, FlushWritesWhatWaitedWhenThereIsRoomAgain) {
  LogFile log(path());
  {
    const Fault full("write", EDQUOT, Fault::kEvery);
    publish(log, "one");
    log.flush();
  }
  log.flush();
  EXPECT_EQ(entry("one"), dir.read("x"));
}

TEST_F(LogFileTest, GoesOnWhereAWriteIsInterrupted) {
  LogFile log(path());
  const Fault interrupted("write", EINTR);
  publish(log, "one");
  EXPECT_TRUE(interrupted.fired());
  EXPECT_EQ(entry("one"), dir.read("x"));
}

// ---- children ----

TEST_F(LogFileTest, LeavesWhatWaitsToTheParent) {
  LogFileOptions options;
  options.buffered = true;
  LogFile log(path(), options);
  publish(log, "parent");
  forked([&log] {
    publish(log, "child");
    log.flush();
  });
  log.flush();
  EXPECT_EQ(entry("child") + entry("parent"), dir.read("x"));
}

TEST_F(LogFileTest, LeavesWhatIsLostToTheParent) {
  LogFile log(path());
  {
    const Fault full("write", ENOSPC, Fault::kEvery);
    publish(log, "%s", std::string(70000, 'x').c_str());
    publish(log, "%s", std::string(70000, 'x').c_str());
  }
  EXPECT_EQ(1U, log.lost());
  forked([&log] { publish(log, "child"); });
  EXPECT_EQ(entry("child"), dir.read("x"));
}

TEST_F(LogFileTest, GoesOnInADaemonWhoseParentHasEnded) {
  LogFileOptions options;
  options.rotate_above = 100;
  LogFile log(path(), options);
  publish(log, "parent");
  forked([&log] {
    for (int i = 0; i < 4; ++i) publish(log, "child %d", i);
  });
  EXPECT_EQ(Names({"x", "x.0", "x.1"}), dir.list());
  EXPECT_EQ(entry("parent") + entry("child 0"), dir.read("x.1"));
}
