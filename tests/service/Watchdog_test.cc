// SPDX-License-Identifier: MIT
#include "service/Watchdog.h"

#include "tests/support/files.h"
#include "util/SuperLoop.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

using service::Watchdog;
using support::TempDir;

namespace {

// Plays the service manager, which asks for reports.
class WatchdogTest : public testing::Test {
 protected:
  WatchdogTest() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un at = {};
    at.sun_family = AF_UNIX;
    strncpy(at.sun_path, dir_.file("manager").c_str(), sizeof at.sun_path - 1);
    EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&at), sizeof at));
    setenv("NOTIFY_SOCKET", at.sun_path, 1);
  }
  ~WatchdogTest() override {
    close(socket_);
    for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
      unsetenv(name);
  }

  void ask(const std::string& microseconds, const std::string& process = "") {
    setenv("WATCHDOG_USEC", microseconds.c_str(), 1);
    if (!process.empty()) setenv("WATCHDOG_PID", process.c_str(), 1);
  }

  std::string received() {
    std::string all;
    char text[100];
    for (;;) {
      const ssize_t size = recv(socket_, text, sizeof text, MSG_DONTWAIT);
      if (size < 0) return all;
      all += std::string(text, static_cast<size_t>(size)) + "\n";
    }
  }

  const TempDir dir_;
  const int socket_;
};

}  // namespace

TEST_F(WatchdogTest, ReportsAsPassesComplete) {
  ask("40000");
  Watchdog watchdog;
  EXPECT_EQ(40U, watchdog.patience());
  util::SuperLoop loop;
  loop.addEvent(&watchdog);
  for (int pass = 0; pass < 3; ++pass) {
    loop.runLoop(25);
    EXPECT_EQ("WATCHDOG=1\n", received());
  }
}

TEST_F(WatchdogTest, ReportsTwiceInTheTimeAndNotInEachPass) {
  ask("3600000000");
  Watchdog watchdog;
  for (int pass = 0; pass < 1000; ++pass) watchdog.runLoop(1);
  EXPECT_EQ("WATCHDOG=1\n", received());
}

TEST_F(WatchdogTest, ReportsIfThisVeryProcessIsAsked) {
  ask("1000000", std::to_string(getpid()));
  EXPECT_EQ(1000U, Watchdog().patience());
}

TEST_F(WatchdogTest, DoesNothingUnlessItIsAsked) {
  EXPECT_EQ(0U, Watchdog().patience());
  ask("1000000", std::to_string(getppid()));
  Watchdog watchdog;
  EXPECT_EQ(0U, watchdog.patience());
  watchdog.runLoop(1);
  EXPECT_EQ("", received());
}

TEST_F(WatchdogTest, DoesNothingIfItIsAskedForWhatIsNoTime) {
  for (const char* const text :
       {"", "0", "-1", " 5000000", "5000000s", "99999999999999999999999"}) {
    ask(text);
    EXPECT_EQ(0U, Watchdog().patience()) << text;
  }
}

TEST_F(WatchdogTest, TriesAgainInTheNextPassIfItCannotReport) {
  ask("3600000000");
  const std::string manager = getenv("NOTIFY_SOCKET");
  setenv("NOTIFY_SOCKET", dir_.file("missing").c_str(), 1);
  util::logger* const log = util::logger::getLogger("watchdog");
  log->setUseParentPublisher(false);
  log->setPublisher(nullptr);
  Watchdog watchdog(log);
  watchdog.runLoop(1);
  setenv("NOTIFY_SOCKET", manager.c_str(), 1);
  watchdog.runLoop(1);
  EXPECT_EQ("WATCHDOG=1\n", received());
}
