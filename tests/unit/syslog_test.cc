// SPDX-License-Identifier: MIT
// The system log publisher and a real system log daemon, which listens in a mount namespace of its
// own: neither sees the machine's /dev/log.
#include "tests/support/child.h"
#include "tests/support/files.h"
#include "util/logger.h"

#include <signal.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

using namespace util;

namespace {

// Waits until `done`, ten seconds at most.
bool eventually(const std::function<bool()>& done) {
  for (int i = 0; i < 1000; ++i) {
    if (done()) return true;
    usleep(10000);
  }
  return false;
}

// A daemon that writes what /dev/log receives to `file`. Only for a child process: its /dev is
// replaced.
class Daemon {
 public:
  explicit Daemon(const support::TempDir& dir) {
    EXPECT_EQ(0, mkdir(dir.file("dev").c_str(), 0755));
    support::replace_dev(dir.file("dev"));
    const std::string file = dir.file("messages");
    pid_ = fork();
    if (pid_ == 0) {
      execlp("busybox", "busybox", "syslogd", "-n", "-O", file.c_str(), nullptr);
      _exit(127);
    }
    EXPECT_TRUE(eventually([&dir] { return dir.exists("dev/log"); }));
  }
  ~Daemon() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

 private:
  pid_t pid_;
};

__attribute__((format(printf, 3, 4))) void publish(category& c, const char* where,
                                                   const char* format, ...) {
  va_list args;
  va_start(args, format);
  syslog_publisher().publish(c, where, format, args);
  va_end(args);
}

}  // namespace

TEST(SystemLog, ReceivesEntriesFromThePublisher) {
  if (!support::namespaces_work())
    GTEST_SKIP() << "no mount namespaces here: the daemon cannot be started";
  support::in_child([] {
    const support::TempDir dir;
    const Daemon daemon(dir);
    openlog("nasd", 0, LOG_DAEMON);
    publish(WARNING, "void f()", "disk %d%%", 3);
    publish(INFO, "void g()", "%s end", std::string(2000, 'x').c_str());
    publish(INFO, "void h()", "last");
    const auto holds = [&dir](const std::string& text) {
      return dir.read("messages").find(text) != std::string::npos;
    };
    EXPECT_TRUE(eventually([&holds] { return holds("daemon.info nasd: last\n"); }));
    EXPECT_TRUE(holds(" void f() WARNING: \n")) << dir.read("messages");
    EXPECT_TRUE(holds("daemon.info nasd: disk 3%\n"));
    EXPECT_TRUE(holds("daemon.info nasd: " + std::string(900, 'x')));  // the daemon cuts as well
    EXPECT_FALSE(holds(std::string(1024, 'x')));
    EXPECT_FALSE(holds(" end"));
  });
}
