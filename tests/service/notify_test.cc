// SPDX-License-Identifier: MIT
#include "service/notify.h"

#include "tests/support/files.h"
#include "util/system_exception.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

using support::TempDir;

// What a service manager listens on. An address that begins with '@' is an abstract one.
class Manager {
 public:
  explicit Manager(const std::string& address) : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un at = {};
    at.sun_family = AF_UNIX;
    memcpy(at.sun_path, address.data(), address.size());
    if (address[0] == '@') at.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&at), size));
    setenv("NOTIFY_SOCKET", address.c_str(), 1);
  }
  ~Manager() {
    close(socket_);
    unsetenv("NOTIFY_SOCKET");
  }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  std::string received() const {
    char text[100];
    const ssize_t size = recv(socket_, text, sizeof text, MSG_DONTWAIT);
    return size < 0 ? "nothing" : std::string(text, static_cast<size_t>(size));
  }

 private:
  const int socket_;
};

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
  const Manager manager(dir.file("socket"));
  EXPECT_TRUE(service::notify("READY=1\nSTATUS=3 clients"));
  EXPECT_EQ("READY=1\nSTATUS=3 clients", manager.received());
}

TEST(Notify, ReachesAnAbstractAddress) {
  const Manager manager("@nasutil-notify-test-" + std::to_string(getpid()));
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
  const Manager manager(dir.file("socket"));
  int error = 0;
  for (int messages = 0; error == 0 && messages < 100000; ++messages) error = failure();
  EXPECT_EQ(EAGAIN, error);
  manager.received();
  EXPECT_EQ(0, failure()) << "there is room again";
}
