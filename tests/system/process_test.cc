// SPDX-License-Identifier: MIT
// What happens to a process: it forks, it is signalled, its standard streams are closed, it ends.
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "util/PropertyList.h"
#include "util/SuperLoop.h"
#include "util/logger.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

using namespace util;
using support::FrozenClock;
using support::TempDir;

namespace {

std::string entry(const std::string& message) {
  return "2007-03-01T14:05:09 here\nINFO: " + message + "\n";
}

void log_entry(logger* to, const char* message) {
  to->log(INFO, "here", "process_test.cc:1", "%s", message);
}

// Logs into a rolling file of its own, which is closed in the end.
class Log {
 public:
  Log(const std::string& file, off_t limit) {
    to->setUseParentPublisher(false);
    to->enable(INFO);
    to->setPublisher(new rolling_file_publisher(file.c_str(), limit, 3));
  }
  ~Log() { to->setPublisher(nullptr); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void operator()(const char* message) const { log_entry(to, message); }

  logger* const to = logger::getLogger("process_test");
};

// Runs `body` in a fork, which exits in the end; its status, 1 where an expectation failed.
template <class Body>
int forked(Body body) {
  fflush(stdout);  // the test program's own output
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

volatile sig_atomic_t signals = 0;

// SIGALRM twice a millisecond, to a handler that restarts no call.
class Rain {
 public:
  Rain() {
    struct sigaction count = {};
    count.sa_handler = [](int) { signals = signals + 1; };
    sigaction(SIGALRM, &count, &before_);
    signals = 0;
    set_timer(500);
  }
  ~Rain() {
    set_timer(0);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Rain(const Rain&) = delete;
  Rain& operator=(const Rain&) = delete;

 private:
  static void set_timer(suseconds_t microseconds) {
    itimerval every = {};
    every.it_interval.tv_usec = every.it_value.tv_usec = microseconds;
    setitimer(ITIMER_REAL, &every, nullptr);
  }

  struct sigaction before_ = {};
};

constexpr int kManySignals = 200;

int loaded(const std::string& file) {
  PropertyList list(file);
  list.load();
  return list.getProperties().empty() ? -1 : list.intForKey("n");
}

class Process : public testing::Test {
 protected:
  // Logs before, in and after a child that ends like this, with status 7.
  void log_around_child(bool flush, void (*end)()) const {
    const Log log(dir.file("x"), 0);
    log("parent");
    if (flush) log.to->flush();
    EXPECT_EQ(7, forked([&] {
                log("child");
                end();
              }));
    log("after");
  }

  const TempDir dir;
  const FrozenClock clock{"2007-03-01T14:05:09"};
};

}  // namespace

// ---- fork ----

TEST_F(Process, ForkedAfterAFlushHasEachEntryOnce) {
  log_around_child(true, [] { exit(7); });
  EXPECT_EQ(entry("parent") + entry("child") + entry("after"), dir.read("x"));
}

TEST_F(Process, ForkedWithBufferedEntriesLeavesThemToTheParentIfTheChildExecutes) {
  log_around_child(false, [] { execl("/bin/sh", "sh", "-c", "exit 7", nullptr); });
  EXPECT_EQ(entry("parent") + entry("after"), dir.read("x"));
}

TEST_F(Process, ForkedWithBufferedEntriesLeavesThemToTheParentIfTheChildEndsAtOnce) {
  log_around_child(false, [] { _exit(7); });
  EXPECT_EQ(entry("parent") + entry("after"), dir.read("x"));
}

// As with every stream of the C library: the child's copy of the buffer is written too.
TEST_F(Process, ForkedWithBufferedEntriesWritesThemTwiceIfTheChildExits) {
  log_around_child(false, [] { exit(7); });
  EXPECT_EQ(entry("parent") + entry("child") + entry("parent") + entry("after"), dir.read("x"));
}

// The parent's stream goes with the file that the child has moved away; nothing is lost.
TEST_F(Process, ForkedWritesOnWhereverTheChildHasRotatedTheFileTo) {
  const Log log(dir.file("x"), 60);
  log("first");
  log.to->flush();
  EXPECT_EQ(0, forked([&log] { log("child"); }));
  EXPECT_EQ(entry("first") + entry("child") + "rotating log file\n", dir.read("x.0"));
  log("after");
  EXPECT_EQ(entry("first") + entry("child") + "rotating log file\n" + entry("after") +
                "rotating log file\n",
            dir.read("x.1"));
  EXPECT_EQ("", dir.read("x.0"));
  EXPECT_EQ("", dir.read("x"));
}

// ---- the end ----

TEST_F(Process, WritesBufferedEntriesWhenItExits) {
  const int status = forked([this] {
    logger::rootLogger()->enable(INFO);
    logger::rootLogger()->setPublisher(new rolling_file_publisher(dir.file("x").c_str(), 0, 0));
    log_entry(logger::rootLogger(), "text");
    EXPECT_EQ("", dir.read("x"));
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ(entry("text"), dir.read("x"));
}

// ---- standard streams ----

TEST_F(Process, WithoutStandardStreamsLogsSavesAndLoads) {
  for (unsigned int closed = 1; closed < 8; ++closed) {
    SCOPED_TRACE(closed);  // a bit a descriptor
    const TempDir own;
    const int status = forked([&] {
      for (const int descriptor : {0, 1, 2}) {
        if ((closed >> descriptor & 1) != 0) close(descriptor);
      }
      logger::rootLogger()->enable(INFO);
      log_entry(logger::rootLogger(), "to standard error");
      PropertyList list(own.file("list"));
      list["n"] = 1;
      list.save();
      list["n"] = 2;
      list.saveDurably();
      list.dump();
      EXPECT_THROW(list.stringForKey("n"), type_exception);  // tells so on standard error
      EXPECT_EQ(2, loaded(own.file("list")));
      const Log log(own.file("x"), 60);
      log("first");
      log("second");
      log("third");
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ(2, loaded(own.file("list")));
    EXPECT_EQ(entry("first") + entry("second") + "rotating log file\n", own.read("x.0"));
    EXPECT_EQ(entry("third"), own.read("x"));
  }
}

// As with every file of the C library: what is opened next is what standard error was.
TEST_F(Process, WithoutStandardErrorHasItsEntriesInTheFileThatIsOpenedNext) {
  const int status = forked([this] {
    close(2);
    logger::rootLogger()->enable(INFO);
    const Log log(dir.file("x"), 0);
    log_entry(logger::rootLogger(), "to standard error");
    log("text");
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ(entry("to standard error") + entry("text"), dir.read("x"));
}

TEST_F(Process, WithTheStandardNumbersTakenFirstKeepsConsoleEntriesOutOfItsFiles) {
  const int status = forked([this] {
    for (const int descriptor : {0, 1, 2}) close(descriptor);
    while (open("/dev/null", O_RDWR) < 2) continue;
    const int file = open(dir.file("x").c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_LT(2, file);
    logger::rootLogger()->enable(INFO);
    log_entry(logger::rootLogger(), "to standard error");
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ("", dir.read("x"));
}

// The replaced console publisher has closed standard error.
TEST_F(Process, LogsOnOnceTheConsolePublisherWasReplaced) {
  const int status = forked([this] {
    logger* const root = logger::rootLogger();
    root->enable(INFO);
    logger* const named = logger::getLogger("named");
    root->setPublisher(new rolling_file_publisher(dir.file("x").c_str(), 60, 3));
    log_entry(named, "first");
    PropertyList list(dir.file("list"));  // gets the free descriptor, and nobody's entries
    list["n"] = 1;
    list.save();
    log_entry(root, "second");
    log_entry(named, "third");
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ(1, loaded(dir.file("list")));
  EXPECT_EQ(entry("first") + entry("second") + "rotating log file\n", dir.read("x.0"));
  EXPECT_EQ(entry("third"), dir.read("x"));
}

// Both had the stream that the first one has closed.
TEST_F(Process, DropsEntriesOfAConsolePublisherOnceAnotherOneWasReplaced) {
  const int status = forked([this] {
    logger* const root = logger::rootLogger();
    root->enable(INFO);
    logger* const named = logger::getLogger("named");
    named->setPublisher(new console_publisher);
    named->setPublisher(new rolling_file_publisher(dir.file("x").c_str(), 0, 0));
    log_entry(root, "dropped");
    log_entry(named, "text");
    root->flush();
    named->flush();
    EXPECT_EQ(entry("text"), dir.read("x"));
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ(entry("text"), dir.read("x"));
}

TEST_F(Process, DropsEntriesOnceTheConsolePublisherWasTakenAway) {
  const int status = forked([] {
    logger::rootLogger()->enable(INFO);
    logger::rootLogger()->setPublisher(nullptr);
    log_entry(logger::rootLogger(), "dropped");
    logger::rootLogger()->flush();
    EXPECT_EQ("process_test.cc:1", logger::rootLogger()->get_checkpoint());
  });
  EXPECT_EQ(0, status);
}

// ---- signals ----

TEST_F(Process, SavesInARainOfSignals) {
  PropertyList list(dir.file("x"));
  list["text"] = std::string(100000, 'x');
  const Rain rain;
  for (int n = 1; signals < kManySignals; ++n) {
    list["n"] = n;
    if (n % 8 == 0) {
      list.saveDurably();
    } else {
      list.save();
    }
    ASSERT_EQ(n, loaded(dir.file("x")));
  }
}

TEST_F(Process, LogsAndRotatesInARainOfSignals) {
  {
    const Rain rain;
    const Log log(dir.file("x"), 1000);
    while (signals < kManySignals) {
      log("text");
      log.to->flush();
    }
  }
  for (const char* const name : {"x.1", "x.0"}) {
    std::string old;
    while (old.size() <= 1000) old += entry("text");
    EXPECT_EQ(old + "rotating log file\n", dir.read(name));
  }
}

// Nobody reads: each entry that finds the pipe full waits for the next signal and is dropped.
TEST_F(Process, DropsWholeEntriesThatASignalKeepsFromAPipe) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe(ends));
  fcntl(ends[1], F_SETPIPE_SZ, 4096);
  FILE* const stream = fdopen(ends[1], "w");
  setvbuf(stream, nullptr, _IONBF, 0);  // like standard error
  logger* const log = logger::getLogger("pipe");
  log->setUseParentPublisher(false);
  log->enable(INFO);
  log->setPublisher(new file_publisher(stream));
  const std::string message(900, 'x');
  {
    const Rain rain;
    for (int i = 0; i < 200; ++i) log_entry(log, message.c_str());
  }
  const auto read_some = [&ends] {
    std::string text(1 << 20, '\0');
    text.resize(static_cast<size_t>(read(ends[0], text.data(), text.size())));
    return text;
  };
  const std::string before = read_some();
  std::string whole;
  while (whole.size() < before.size()) whole += entry(message);
  EXPECT_EQ(whole, before);
  EXPECT_GT(before.size(), 0U);
  EXPECT_LT(before.size(), 200 * entry(message).size());
  log_entry(log, "after");
  EXPECT_EQ(entry("after"), read_some());
  log->setPublisher(nullptr);
  close(ends[0]);
}

TEST(ProcessOnTheRealClock, SleepsOutItsPassInARainOfSignals) {
  timespec start = {};
  timespec end = {};
  SuperLoop loop;
  {
    const Rain rain;
    clock_gettime(CLOCK_MONOTONIC, &start);
    loop.runLoop(200);
    clock_gettime(CLOCK_MONOTONIC, &end);
  }
  EXPECT_GE(signals, 1);
  EXPECT_GE((end.tv_sec - start.tv_sec) * 1000 + (end.tv_nsec - start.tv_nsec) / 1000000, 198);
}
