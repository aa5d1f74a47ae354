// SPDX-License-Identifier: MIT
#include "service/FileLock.h"

#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using service::FileLock;

std::string failure(const std::string& file, util::utime_t patience) {
  try {
    const FileLock lock(file, patience);
    return "locked";
  } catch (const service::LockFailed& e) {
    return e.what();
  }
}

using FileLockTest = support::InFolder;

}  // namespace

TEST_F(FileLockTest, LeavesNothingBehind) {
  {
    const FileLock lock(dir.file("p"));
    EXPECT_EQ(std::vector<std::string>{"p.lock"}, dir.list());
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST_F(FileLockTest, TakesALockThatAKilledProcessLeftBehind) {
  dir.write("p.lock", "");
  EXPECT_EQ("locked", failure(dir.file("p"), 0));
  EXPECT_TRUE(dir.list().empty());
}

TEST_F(FileLockTest, WaitsNoLongerThanItsPatience) {
  const FileLock lock(dir.file("p"));
  const support::FrozenClock clock;
  EXPECT_EQ(dir.file("p") + ": another process has been changing it for too long (it holds " +
                dir.file("p") + ".lock)",
            failure(dir.file("p"), 50));
  EXPECT_EQ(std::vector<int64_t>(5, 10000000), clock.sleeps);
  EXPECT_TRUE(dir.exists("p.lock"));
}

TEST_F(FileLockTest, LocksNoOtherFile) {
  const FileLock lock(dir.file("p"));
  EXPECT_EQ("locked", failure(dir.file("q"), 0));
}

TEST_F(FileLockTest, ExcludesAllOthers) {
  dir.write("count", "0");
  const auto count = [this] {
    for (int i = 0; i < 20; ++i) {
      const FileLock lock(dir.file("count"), 60000);
      dir.write("count", std::to_string(std::stoi(dir.read("count")) + 1));
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(count);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ("80", dir.read("count"));
}

TEST_F(FileLockTest, TriesAgainWhenTheHolderRemovesTheNameMeanwhile) {
  support::Recorder calls({"open", "stat"});
  bool removed = false;
  calls.before = [&](const std::string& call) {
    if (removed || call.compare(0, 4, "stat") != 0) return;
    removed = true;
    unlink(dir.file("p.lock").c_str());
  };
  EXPECT_EQ("locked", failure(dir.file("p"), 0));
  EXPECT_EQ(2, calls.count("open"));
}

TEST_F(FileLockTest, IsReadableByAll) {
  const mode_t old = umask(022);
  const FileLock lock(dir.file("p"));
  umask(old);
  struct stat status = {};
  ASSERT_EQ(0, stat(dir.file("p.lock").c_str(), &status));
  EXPECT_EQ(0644U, status.st_mode & 07777);
}

TEST_F(FileLockTest, FollowsNoSymbolicLink) {
  dir.write("precious", "");
  ASSERT_EQ(0, symlink(dir.file("precious").c_str(), dir.file("p.lock").c_str()));
  EXPECT_EQ(dir.file("p") + ": cannot lock it: Too many levels of symbolic links",
            failure(dir.file("p"), 0));
}

TEST_F(FileLockTest, SaysWhyItCannotBeHad) {
  const int before = support::open_descriptors();
  EXPECT_EQ(dir.file("none/p") + ": cannot lock it: No such file or directory",
            failure(dir.file("none/p"), 0));
  const support::Fault fault("open", EROFS);
  EXPECT_EQ(dir.file("p") + ": cannot lock it: Read-only file system", failure(dir.file("p"), 0));
  EXPECT_EQ(before, support::open_descriptors());
}
