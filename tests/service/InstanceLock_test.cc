// SPDX-License-Identifier: MIT
#include "service/InstanceLock.h"

#include "tests/support/faults.h"
#include "tests/support/folder.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using service::AlreadyRunning;
using service::InstanceLock;
using support::TempDir;

// A child that does `body`, says so and waits. Killed on destruction.
class Other {
 public:
  explicit Other(const std::function<void()>& body) {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    pid_ = fork();
    if (pid_ == 0) {
      body();
      if (write(ends[1], "x", 1) == 1) pause();
      _exit(1);
    }
    close(ends[1]);
    char done = 0;
    EXPECT_EQ(1, read(ends[0], &done, 1));
    close(ends[0]);
  }
  ~Other() { crash(); }
  Other(const Other&) = delete;
  Other& operator=(const Other&) = delete;

  void crash() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    pid_ = 0;
  }

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
};

// What the attempt to lock the folder says, or an empty text.
std::string refusal(const std::string& folder) {
  try {
    const InstanceLock lock(folder);
    return "";
  } catch (const AlreadyRunning& e) {
    return e.what();
  }
}

int error_of(const std::string& folder) {
  try {
    const InstanceLock lock(folder);
    return 0;
  } catch (const std::system_error& e) {
    return e.code().value();
  }
}

// Whether a forked child finds the folder locked, once it has done `before`.
bool locked_for_others(
    const std::string& folder, const std::function<void()>& before = [] {}) {
  const pid_t child = fork();
  if (child == 0) {
    before();
    _exit(refusal(folder).empty() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status != 0;
}

// Holds the lock of the folder for as long as it lives.
std::function<void()> holding(const std::string& folder) {
  return [folder] { static const InstanceLock lock(folder); };
}

using InstanceLockTest = support::InFolder;

}  // namespace

TEST_F(InstanceLockTest, NamesTheProcessThatHoldsIt) {
  const Other other(holding(dir.path()));
  EXPECT_THAT([&] { const InstanceLock lock(dir.path()); },
              testing::Throws<AlreadyRunning>(testing::AllOf(
                  testing::Property(&AlreadyRunning::process, other.pid()),
                  testing::Property(&AlreadyRunning::what,
                                    testing::StrEq(dir.path() + " is in use by process " +
                                                   std::to_string(other.pid()))))));
}

TEST_F(InstanceLockTest, EndsWithTheProcessHoweverItEnds) {
  Other other(holding(dir.path()));
  other.crash();
  EXPECT_EQ("", refusal(dir.path()));
}

TEST_F(InstanceLockTest, EndsWithTheObject) {
  { const InstanceLock lock(dir.path()); }
  EXPECT_EQ("", refusal(dir.path()));
  EXPECT_EQ("", dir.read("lock"));
}

TEST_F(InstanceLockTest, IsRefusedASecondTimeInOneProcessAndStillHeld) {
  const InstanceLock lock(dir.path());
  EXPECT_EQ(dir.path() + " is in use by process " + std::to_string(getpid()), refusal(dir.path()));
  EXPECT_TRUE(locked_for_others(dir.path()));
}

TEST_F(InstanceLockTest, IsHeldByAnyNumberOfFolders) {
  const TempDir one;
  const TempDir two;
  const InstanceLock first(one.path());
  const InstanceLock second(two.path());
  EXPECT_TRUE(locked_for_others(one.path()));
  EXPECT_TRUE(locked_for_others(two.path()));
}

TEST_F(InstanceLockTest, IsNotHeldByAForkedChildThatOutlivesItsParent) {
  int alive[2];
  ASSERT_EQ(0, pipe(alive));
  {
    Other other([&] {
      static const InstanceLock lock(dir.path());
      if (fork() == 0) {
        close(alive[1]);
        char none = 0;
        _exit(read(alive[0], &none, 1) == 0 ? 0 : 1);
      }
    });
    other.crash();
  }
  EXPECT_EQ("", refusal(dir.path()));
  close(alive[0]);
  close(alive[1]);
}

TEST_F(InstanceLockTest, IsStillHeldWhenAForkedChildHasDestroyedItsCopy) {
  auto lock = std::make_unique<InstanceLock>(dir.path());
  EXPECT_TRUE(locked_for_others(dir.path(), [&] { lock.reset(); }));
  EXPECT_TRUE(locked_for_others(dir.path()));
}

TEST_F(InstanceLockTest, SaysWhichFileCannotBeOpened) {
  const std::string missing = dir.file("missing");
  EXPECT_THAT([&] { const InstanceLock lock(missing); },
              testing::ThrowsMessage<std::system_error>("cannot open " + missing +
                                                        "/lock: No such file or directory"));
}

TEST_F(InstanceLockTest, DoesNotFollowALink) {
  ASSERT_EQ(0, symlink("elsewhere", dir.file("lock").c_str()));
  EXPECT_EQ(ELOOP, error_of(dir.path()));
  EXPECT_FALSE(dir.exists("elsewhere"));
}

TEST_F(InstanceLockTest, LeaksNothingWhenACallFails) {
  const int before = support::open_descriptors();
  for (const char* call : {"open", "fstat", "fcntl"}) {
    SCOPED_TRACE(call);
    const support::Fault fault(call, ENOLCK);
    EXPECT_EQ(ENOLCK, error_of(dir.path()));
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(before, support::open_descriptors());
  EXPECT_EQ("", refusal(dir.path()));
}

TEST_F(InstanceLockTest, IsTakenWhenTheHolderEndsWhileItIsAskedFor) {
  Other other(holding(dir.path()));
  support::Recorder recorder({"fcntl"});
  int calls = 0;
  recorder.before = [&](const std::string&) {
    if (++calls == 2) other.crash();  // between being refused and asking who holds the lock
  };
  EXPECT_EQ("", refusal(dir.path()));
  EXPECT_EQ(3, calls);
}
