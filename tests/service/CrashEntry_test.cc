// SPDX-License-Identifier: MIT
#include "service/CrashEntry.h"

#include "service/LogFile.h"
#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/work.h"
#include "util/SuperLoop.h"
#include "util/logger.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <regex>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

// Defined in programs that a sanitizer watches: it handles some of the signals.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace {

using service::CrashEntry;
using service::LogFile;
using service::LogFileOptions;
using support::publish;
using support::TempDir;

bool is_sanitized() { return __sanitizer_get_current_allocated_bytes != nullptr; }

// The status of a child that does this.
int status_of(const std::function<void()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    action();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return status;
}

void expect_killed_by(int signal, int status) {
  EXPECT_NE(0, status);
  if (is_sanitized()) return;
  EXPECT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(signal, WTERMSIG(status));
}

// What went wrong here: a page that is not mapped any more.
char* gone() {
  void* const page =
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  munmap(page, 4096);
  return static_cast<char*>(page);
}

void segmentation_fault() { *const_cast<volatile char*>(gone()) = 1; }

volatile char* deep = nullptr;

__attribute__((noinline)) int overflow(int depth) {
  volatile char frame[4096];
  frame[0] = static_cast<char>(depth);
  deep = frame;
  return depth < 0 ? frame[0] : overflow(depth + 1) + frame[0];
}

struct Server : util::EventLoop {
  explicit Server(std::function<void()> given) : work(std::move(given)) {}
  void runLoop(util::utime_t) override { work(); }
  const char* name() override { return "net::Server"; }

  std::function<void()> work;
};

class CrashEntryTest : public testing::Test {
 protected:
  std::string path() const { return dir.file("x"); }
  // The log, with what differs each time replaced.
  std::string log() const {
    std::string text = dir.read("x");
    text = std::regex_replace(text, std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d"), "NOW");
    text = std::regex_replace(text, std::regex("process \\d+"), "process N");
    return std::regex_replace(text, std::regex("0x[0-9a-f]+"), "0xN");
  }
  static std::string crash(const std::string& what) {
    return "NOW service::CrashEntry\nWARNING: process N got " + what + "\n";
  }

  const TempDir dir;
};

}  // namespace

TEST_F(CrashEntryTest, NamesEachSignalAndEndsByIt) {
  const struct {
    int signal;
    const char* name;
  } rows[] = {
      {SIGSEGV, "SIGSEGV"},
      {SIGBUS,  "SIGBUS" },
      {SIGFPE,  "SIGFPE" },
      {SIGILL,  "SIGILL" },
      {SIGABRT, "SIGABRT"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    unlink(path().c_str());
    const int status = status_of([&] {
      LogFile file(path());
      const CrashEntry entry(file);
      raise(row.signal);
    });
    expect_killed_by(row.signal, status);
    EXPECT_EQ(crash(row.name + std::string(", after no logging call")), log());
  }
}

TEST_F(CrashEntryTest, HasTheEntriesSoFarTheFaultTheCheckpointAndTheLoop) {
  const int status = status_of([this] {
    LogFileOptions options;
    options.buffered = true;
    LogFile& file = *new LogFile(path(), options);
    util::logger* const logger = util::logger::getLogger("crash");
    logger->setUseParentPublisher(false);
    logger->setPublisher(&file);
    logger->enable(util::INFO);
    util::SuperLoop loop;
    const CrashEntry entry(file, *logger, &loop);
    Server server([logger] {
      logger->log(util::INFO, "here", "server.cc:41", "last words");
      segmentation_fault();
    });
    loop.addEvent(&server);
    loop.runLoop(0);
  });
  expect_killed_by(SIGSEGV, status);
  EXPECT_EQ(
      "NOW here\nINFO: last words\n" + crash("SIGSEGV at 0xN, after server.cc:41 in net::Server"),
      log());
}

TEST_F(CrashEntryTest, TellsAnAbort) {
  const int status = status_of([this] {
    LogFile file(path());
    const CrashEntry entry(file);
    abort();
  });
  expect_killed_by(SIGABRT, status);
  EXPECT_EQ(crash("SIGABRT, after no logging call"), log());
}

TEST_F(CrashEntryTest, TellsWhoSentTheSignal) {
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t child = fork();
  if (child == 0) {
    LogFile file(path());
    const CrashEntry entry(file);
    EXPECT_EQ(1, write(ready[1], "x", 1));
    for (;;) pause();
  }
  char byte = 0;
  EXPECT_EQ(1, read(ready[0], &byte, 1));
  kill(child, SIGABRT);
  int status = 0;
  waitpid(child, &status, 0);
  expect_killed_by(SIGABRT, status);
  EXPECT_EQ(crash("SIGABRT from process N, after no logging call"), log());
  for (const int end : ready) close(end);
}

TEST_F(CrashEntryTest, RunsTheHandlerBeforeWithTheSignalAsItWas) {
  static void* address = nullptr;
  for (const bool sent : {false, true}) {
    SCOPED_TRACE(sent);
    const int status = status_of([this, sent] {
      struct sigaction before = {};
      before.sa_flags = SA_SIGINFO;
      before.sa_sigaction = [](int, siginfo_t* info, void*) {
        if (info->si_code == SI_QUEUE) _exit(info->si_value.sival_int);
        _exit(info->si_addr == address ? 42 : 1);
      };
      sigaction(SIGSEGV, &before, nullptr);
      LogFile file(path());
      const CrashEntry entry(file);
      if (sent) {
        sigqueue(getpid(), SIGSEGV, sigval{43});
      } else {
        address = gone();
        *static_cast<volatile char*>(address) = 1;
      }
    });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(sent ? 43 : 42, WEXITSTATUS(status));
  }
  EXPECT_EQ(
      crash("SIGSEGV at 0xN, after no logging call") + crash("SIGSEGV, after no logging call"),
      log());
}

TEST_F(CrashEntryTest, LeavesASignalAloneThatIsIgnored) {
  const int status = status_of([this] {
    signal(SIGABRT, SIG_IGN);
    LogFile file(path());
    const CrashEntry entry(file);
    raise(SIGABRT);
    raise(SIGABRT);
  });
  EXPECT_EQ(0, status);
  EXPECT_EQ("", log());
}

TEST_F(CrashEntryTest, KeepsWholeEntriesWhereItCrashesInsidePublish) {
  for (const bool buffered : {false, true}) {
    SCOPED_TRACE(buffered);
    unlink(path().c_str());
    const int status = status_of([this, buffered] {
      LogFileOptions options;
      options.buffered = buffered;
      LogFile file(path(), options);
      const CrashEntry entry(file);
      publish(file, "whole");
      publish(file, "half %s", gone());
    });
    expect_killed_by(SIGSEGV, status);
    EXPECT_EQ("NOW here\nINFO: whole\n" + crash("SIGSEGV at 0xN, after no logging call"), log());
  }
}

TEST_F(CrashEntryTest, TellsAnOverflowOfTheStack) {
  const int status = status_of([this] {
    LogFile file(path());
    const CrashEntry entry(file);
    overflow(0);
  });
  expect_killed_by(SIGSEGV, status);
  EXPECT_EQ(crash("SIGSEGV at 0xN, after no logging call"), log());
}

TEST_F(CrashEntryTest, EndsAsEverWhereTheDiskIsFull) {
  const int status = status_of([this] {
    LogFile file(path());
    publish(file, "whole");
    const CrashEntry entry(file);
    const support::SizeLimit full(25);
    publish(file, "waits");
    raise(SIGSEGV);
  });
  expect_killed_by(SIGSEGV, status);
  EXPECT_EQ("NOW here\nINFO: whole\n", log());
}

TEST_F(CrashEntryTest, WritesNothingOnceItIsGoneOrWhereTheFileIsNotOpen) {
  const int status = status_of([this] {
    std::error_code error;
    LogFile file(dir.file("missing/x"), LogFileOptions(), error);
    const CrashEntry entry(file);
    raise(SIGSEGV);
  });
  expect_killed_by(SIGSEGV, status);
  struct sigaction before = {};
  sigaction(SIGSEGV, nullptr, &before);
  {
    LogFile file(path());
    const CrashEntry entry(file);
    EXPECT_THROW(CrashEntry another(file), std::logic_error);
  }
  struct sigaction after = {};
  sigaction(SIGSEGV, nullptr, &after);
  EXPECT_EQ(before.sa_handler, after.sa_handler);
}

TEST_F(CrashEntryTest, WritesTheTimeAsEntriesHaveIt) {
  const struct {
    const char* zone;
    const char* time;  // local
  } rows[] = {
      {"UTC",    "1970-01-01T00:00:00"},
      {"UTC",    "2000-02-29T23:59:59"},
      {"UTC",    "2001-01-01T00:00:00"},
      {"XXX-14", "2026-12-31T23:59:59"},
      {"XXX+11", "2024-02-28T12:34:56"},
      {"UTC",    "2100-03-01T00:00:00"},
      {"UTC",    "1969-12-31T23:59:59"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.time);
    if (sizeof(time_t) == 4 && *row.time == '2' && row.time[1] == '1') continue;
    unlink(path().c_str());
    const support::TimeZone zone(row.zone);
    const support::FrozenClock clock(row.time);
    LogFile file(path());
    file.publish_in_handler("here", "text");
    EXPECT_EQ(row.time + std::string(" here\nWARNING: text\n"), dir.read("x"));
  }
}
