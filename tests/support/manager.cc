// SPDX-License-Identifier: MIT
#include "tests/support/manager.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

namespace support {

ServiceManager::ServiceManager(const std::string& address)
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un at = {};
  at.sun_family = AF_UNIX;
  memcpy(at.sun_path, address.data(), address.size());
  if (address[0] == '@') at.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
  EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&at), size));
  setenv("NOTIFY_SOCKET", address.c_str(), 1);
}

ServiceManager::~ServiceManager() {
  close(socket_);
  for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
}

void ServiceManager::want_reports(const std::string& microseconds,
                                  const std::string& process) const {
  setenv("WATCHDOG_USEC", microseconds.c_str(), 1);
  if (!process.empty()) setenv("WATCHDOG_PID", process.c_str(), 1);
}

std::string ServiceManager::received() const {
  char text[200];
  const ssize_t size = recv(socket_, text, sizeof text, MSG_DONTWAIT);
  return size < 0 ? "nothing" : std::string(text, static_cast<size_t>(size));
}

std::string ServiceManager::next() const {
  pollfd ready = {socket_, POLLIN, 0};
  poll(&ready, 1, 20000);
  return received();
}

}  // namespace support
