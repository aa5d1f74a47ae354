// SPDX-License-Identifier: MIT
#include "service/Loop.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

using service::Handle;
using service::Loop;

TEST(Loop, RunsUntilItIsStopped) {
  Loop loop;
  int rounds = 0;
  const Handle ticks = loop.every(2, [&](uint64_t) {
    if (++rounds >= 5) loop.stop();
  });
  loop.run(20);
  EXPECT_GE(rounds, 5);
}

TEST(Loop, IsStoppedByASignal) {
  Loop loop;
  loop.stop_on({SIGTERM});
  const Handle once = loop.after(3, [&] { raise(SIGTERM); });
  loop.run(20);
}

TEST(Loop, TellsTheStatusOfAChild) {
  Loop loop;
  const pid_t child = fork();
  if (child == 0) _exit(7);
  int status = 0;
  const Handle end = loop.on_exit(child, [&](int ended) {
    status = ended;
    loop.stop();
  });
  loop.run(20);
  EXPECT_EQ(7, WEXITSTATUS(status));
}
