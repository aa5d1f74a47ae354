// SPDX-License-Identifier: MIT
// The echo daemon of the examples, as its clients and its service manager see it.
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "util/PropertyList.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

using support::Child;
using support::TempDir;

namespace {

// On a port that nobody else has.
class EchoTest : public testing::Test {
 protected:
  EchoTest() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, bind(probe, reinterpret_cast<const sockaddr*>(&at_), sizeof at_));
    socklen_t size = sizeof at_;
    EXPECT_EQ(0, getsockname(probe, reinterpret_cast<sockaddr*>(&at_), &size));
    close(probe);
  }

  std::string start() const {
    return "cd " + dir_.path() + " && exec " ECHO " " + std::to_string(ntohs(at_.sin_port));
  }

  // A connection to the daemon, once it has started.
  int connected() const {
    for (int attempt = 0; attempt < 1000; ++attempt) {
      const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (connect(client, reinterpret_cast<const sockaddr*>(&at_), sizeof at_) == 0) return client;
      close(client);
      usleep(10000);
    }
    ADD_FAILURE() << "nobody listens";
    return -1;
  }

  static std::string answer(int client, const std::string& text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), write(client, text.data(), text.size()));
    std::string all;
    char part[100];
    while (all.size() < text.size()) {
      const ssize_t size = read(client, part, sizeof part);
      if (size <= 0) break;
      all.append(part, static_cast<size_t>(size));
    }
    return all;
  }

  int clients() const {
    util::PropertyList kept(dir_.file("echo.plist"));
    kept.load();
    return kept.intForKey("clients");
  }

  const TempDir dir_;
  sockaddr_in at_ = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
};

}  // namespace

TEST_F(EchoTest, AnswersAndKeepsCountOfItsClients) {
  for (const int before : {0, 2}) {
    Child daemon({"/bin/sh", "-c", start()});
    const int first = connected();
    const int second = connected();
    EXPECT_EQ("hello", answer(second, "hello"));
    EXPECT_EQ("world", answer(first, "world"));
    close(first);
    EXPECT_EQ("again", answer(second, "again"));
    daemon.signal(SIGTERM);
    EXPECT_EQ(0, daemon.wait().status);
    EXPECT_EQ(before + 2, clients());
    close(second);
  }
}
