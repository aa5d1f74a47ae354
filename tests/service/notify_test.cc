// SPDX-License-Identifier: MIT
#include "service/notify.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "util/system_exception.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

using support::ServiceManager;
using support::TempDir;

namespace {

// The error that notify() throws, or 0.
int failure() {
  try {
    service::notify("READY=1");
    return 0;
  } catch (const util::system_exception& e) {
    return e.error_number();
  }
}

}  // namespace

TEST(Notify, DoesNothingWithoutAServiceManager) {
  unsetenv("NOTIFY_SOCKET");
  EXPECT_FALSE(service::notify("READY=1"));
  setenv("NOTIFY_SOCKET", "", 1);
  EXPECT_FALSE(service::notify("READY=1"));
  unsetenv("NOTIFY_SOCKET");
}

TEST(Notify, SendsTheStateAsItStands) {
  const TempDir dir;
  const ServiceManager manager(dir.file("socket"));
  EXPECT_TRUE(service::notify("READY=1\nSTATUS=3 clients"));
  EXPECT_EQ("READY=1\nSTATUS=3 clients", manager.received());
}

TEST(Notify, ReachesAnAbstractAddress) {
  const ServiceManager manager("@nasutil-notify-test-" + std::to_string(getpid()));
  EXPECT_TRUE(service::notify("STOPPING=1"));
  EXPECT_EQ("STOPPING=1", manager.received());
}

TEST(Notify, SaysWhenNobodyListens) {
  const TempDir dir;
  setenv("NOTIFY_SOCKET", dir.file("missing").c_str(), 1);
  EXPECT_EQ(ENOENT, failure());
  unsetenv("NOTIFY_SOCKET");
}

TEST(Notify, RefusesAnAddressThatIsTooLong) {
  setenv("NOTIFY_SOCKET", std::string(200, 'x').c_str(), 1);
  EXPECT_EQ(ENAMETOOLONG, failure());
  unsetenv("NOTIFY_SOCKET");
}

TEST(Notify, DoesNotWaitForAManagerThatReadsNothing) {
  const TempDir dir;
  const ServiceManager manager(dir.file("socket"));
  int error = 0;
  for (int messages = 0; error == 0 && messages < 100000; ++messages) error = failure();
  EXPECT_EQ(EAGAIN, error);
  manager.received();
  EXPECT_EQ(0, failure()) << "there is room again";
}
