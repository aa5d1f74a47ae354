// SPDX-License-Identifier: MIT
#include "service/Watchdog.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "util/SuperLoop.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

using service::Watchdog;
using support::TempDir;

namespace {

class WatchdogTest : public testing::Test {
 protected:
  const TempDir dir_;
  const support::ServiceManager manager_{dir_.file("manager")};
};

}  // namespace

TEST_F(WatchdogTest, ReportsAsPassesComplete) {
  manager_.want_reports("40000");
  Watchdog watchdog;
  EXPECT_EQ(40U, watchdog.patience());
  util::SuperLoop loop;
  loop.addEvent(&watchdog);
  for (int pass = 0; pass < 3; ++pass) {
    loop.runLoop(25);
    EXPECT_EQ("WATCHDOG=1", manager_.received());
    EXPECT_EQ("nothing", manager_.received());
  }
}

TEST_F(WatchdogTest, ReportsTwiceInTheTimeAndNotInEachPass) {
  manager_.want_reports("3600000000");
  Watchdog watchdog;
  for (int pass = 0; pass < 1000; ++pass) watchdog.runLoop(1);
  EXPECT_EQ("WATCHDOG=1", manager_.received());
  EXPECT_EQ("nothing", manager_.received());
}

TEST_F(WatchdogTest, ReportsIfThisVeryProcessIsAsked) {
  manager_.want_reports("1000000", std::to_string(getpid()));
  EXPECT_EQ(1000U, Watchdog().patience());
}

TEST_F(WatchdogTest, DoesNothingUnlessItIsAsked) {
  EXPECT_EQ(0U, Watchdog().patience());
  manager_.want_reports("1000000", std::to_string(getppid()));
  Watchdog watchdog;
  EXPECT_EQ(0U, watchdog.patience());
  watchdog.runLoop(1);
  EXPECT_EQ("nothing", manager_.received());
}

TEST_F(WatchdogTest, DoesNothingIfItIsAskedForWhatIsNoTime) {
  for (const char* const text :
       {"", "0", "-1", " 5000000", "5000000s", "99999999999999999999999"}) {
    manager_.want_reports(text);
    EXPECT_EQ(0U, Watchdog().patience()) << text;
  }
}

TEST_F(WatchdogTest, TriesAgainInTheNextPassIfItCannotReport) {
  manager_.want_reports("3600000000");
  const std::string manager = getenv("NOTIFY_SOCKET");
  setenv("NOTIFY_SOCKET", dir_.file("missing").c_str(), 1);
  util::logger* const log = util::logger::getLogger("watchdog");
  log->setUseParentPublisher(false);
  log->setPublisher(nullptr);
  Watchdog watchdog(log);
  watchdog.runLoop(1);
  setenv("NOTIFY_SOCKET", manager.c_str(), 1);
  watchdog.runLoop(1);
  EXPECT_EQ("WATCHDOG=1", manager_.received());
  EXPECT_EQ("nothing", manager_.received());
}
