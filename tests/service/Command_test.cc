// SPDX-License-Identifier: MIT
#include "service/Command.h"

#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using service::Command;
using service::Handle;
using service::Loop;
using service::Process;
using support::TempDir;

constexpr util::utime_t kCycle = 20;

Command shell(const std::string& script) { return Command({"/bin/sh", "-c", script}); }

// Passes of the loop until `done`, for 20 seconds at most.
void run_until(Loop& loop, const std::function<bool()>& done) {
  for (int pass = 0; pass < 1000 && !done(); ++pass) loop.runLoop(kCycle);
  EXPECT_TRUE(done());
}

Command::Result result_of(const Command& command) {
  Loop loop;
  Command::Result found = {};
  bool ended = false;
  const Process process = command.start(loop, [&](const Command::Result& result) {
    found = result;
    ended = true;
  });
  run_until(loop, [&] { return ended; });
  EXPECT_EQ(0, process.id());
  return found;
}

bool has_children() { return waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT) == 0; }

bool runs(pid_t process) {
  const std::string status = support::read_file("/proc/" + std::to_string(process) + "/stat");
  return status != "<missing>" && status.find(") Z ") == std::string::npos;
}

bool ends(pid_t process) {
  for (int i = 0; i < 20000 && runs(process); ++i) usleep(1000);
  return !runs(process);
}

}  // namespace

TEST(Command, GivesTheStatusAndWhatWasWritten) {
  const Command::Result result = result_of(shell("echo one; echo two >&2; exit 3"));
  EXPECT_EQ(3, WEXITSTATUS(result.status));
  EXPECT_EQ("one\n", result.output);
  EXPECT_EQ("two\n", result.errors);
  EXPECT_FALSE(result.cut);
  EXPECT_FALSE(result.succeeded());
  EXPECT_EQ("ended with status 3", result.end());
  EXPECT_FALSE(has_children());
}

TEST(Command, NamesTheSignalThatEndedIt) {
  EXPECT_EQ("was ended by signal 11 (Segmentation fault)", result_of(shell("kill -SEGV $$")).end());
}

TEST(Command, FindsTheProgramInThePathAndPassesArgumentsAsTheyAre) {
  const Command::Result result =
      result_of(Command({"printf", "<%s>", "two words", "$HOME", "*", "", "\"'\\;\n"}));
  EXPECT_EQ("<two words><$HOME><*><><\"'\\;\n>", result.output);
  EXPECT_TRUE(result.succeeded());
}

TEST(Command, GivesEnvironmentFolderAndInput) {
  const TempDir dir;
  setenv("NASUTIL_TEST", "inherited", 1);
  Command command = shell("echo $NASUTIL_TEST $COLOUR ${HOME-none}; pwd; cat");
  unsetenv("NASUTIL_TEST");
  command.environment["COLOUR"] = "blue";
  command.environment.erase("HOME");
  command.folder = dir.path();
  command.input = std::string("in\0put", 6);
  EXPECT_EQ("inherited blue none\n" + dir.path() + "\n" + command.input, result_of(command).output);
}

TEST(Command, ReadsNothingFromStandardInputWithoutOne) {
  EXPECT_EQ("", result_of(Command({"cat"})).output);
}

TEST(Command, NeedNotReadItsInput) {
  Command command({"true"});
  command.input = std::string(10 << 20, 'x');
  EXPECT_TRUE(result_of(command).succeeded());
}

TEST(Command, HandsOnLinesAsTheyCome) {
  Command command = shell("printf 'a\\n\\nb'; sleep 0.05; printf 'c\\nlast'; echo oops >&2");
  std::vector<std::string> lines;
  command.on_output = [&](const std::string& line) { lines.push_back(line); };
  const Command::Result result = result_of(command);
  EXPECT_EQ((std::vector<std::string>{"a", "", "bc", "last"}), lines);
  EXPECT_EQ("", result.output);
  EXPECT_EQ("oops\n", result.errors);
}

TEST(Command, CutsWhatIsTooLong) {
  Command command = shell("head -c 3000000 /dev/zero | tr '\\0' x; printf '%s\\n' 123 12345 >&2");
  command.limit = 4;
  std::vector<std::string> lines;
  command.on_errors = [&](const std::string& line) { lines.push_back(line); };
  const Command::Result result = result_of(command);
  EXPECT_EQ("xxxx", result.output);
  EXPECT_EQ((std::vector<std::string>{"123", "1234"}), lines);
  EXPECT_TRUE(result.cut);
  EXPECT_TRUE(result.succeeded());
}

TEST(Command, TellsItToEndWhenTheTimeIsUp) {
  Command command = shell("trap 'echo ending; exit 0' TERM; while :; do sleep 0.01; done");
  command.time_limit = 100;
  command.grace = 20000;
  const Command::Result result = result_of(command);
  EXPECT_EQ("ending\n", result.output);
  EXPECT_EQ(0, result.status);
  EXPECT_TRUE(result.timed_out);
  EXPECT_FALSE(result.succeeded());
  EXPECT_EQ("took too long", result.end());
}

TEST(Command, KillsWhatDoesNotEndAndItsWholeGroup) {
  Command command = shell("trap '' TERM; sleep 100 & echo $!; while :; do sleep 100; done");
  command.time_limit = 100;
  command.grace = 50;
  const Command::Result result = result_of(command);
  EXPECT_EQ(SIGKILL, WTERMSIG(result.status));
  EXPECT_TRUE(ends(std::stoi(result.output)));
}

TEST(Command, KillsWhatIsLeftOfTheGroupThatWasToldToEnd) {
  Command command = shell("(trap '' TERM; while :; do sleep 100; done) & echo $!; wait");
  command.time_limit = 100;
  command.grace = 20000;
  const Command::Result result = result_of(command);
  EXPECT_EQ(SIGTERM, WTERMSIG(result.status));
  EXPECT_TRUE(ends(std::stoi(result.output)));
}

TEST(Command, DoesNotWaitForWhatTheProgramLeavesRunning) {
  const Command::Result result = result_of(shell("sleep 100 & echo $!"));
  const pid_t left = std::stoi(result.output);
  EXPECT_TRUE(runs(left));
  kill(left, SIGKILL);
}

TEST(Command, EndsThoughWhatItLeavesGoesOnWriting) {
  Command command = shell("(exec 2>&-; while echo noise; do :; done) & echo $! >&2");
  command.limit = 100;
  const Command::Result result = result_of(command);
  kill(std::stoi(result.errors), SIGKILL);
  EXPECT_TRUE(result.succeeded());
}

TEST(Command, GoesOnAfterClosingItsOutputs) {
  Command command = shell("exec >&- 2>&-; sleep 0.05; exit 4");
  EXPECT_EQ(4, WEXITSTATUS(result_of(command).status));
}

TEST(Command, IsKilledWithItsProcess) {
  Loop loop;
  int calls = 0;
  const auto captured = std::make_shared<int>();
  Process process =
      Command({"sleep", "100"}).start(loop, [&calls, captured](const Command::Result&) {
        ++calls;
      });
  const pid_t id = process.id();
  EXPECT_TRUE(runs(id));
  process = Process();
  EXPECT_EQ(1, captured.use_count());
  run_until(loop, [] { return !has_children(); });
  EXPECT_EQ(0, calls);
}

TEST(Command, MayGoInsideItsOwnCallbacks) {
  Loop loop;
  Process process;
  std::string lines;
  Command command = shell("echo a; echo b; sleep 100");
  command.on_output = [&](const std::string& line) {
    lines += line;
    process = Process();
  };
  process = command.start(loop, [&](const Command::Result&) { lines += "done"; });
  run_until(loop, [] { return !has_children(); });
  EXPECT_EQ("a", lines);

  process = Command({"true"}).start(loop, [&](const Command::Result& result) {
    process = Process();
    lines += result.end();
  });
  run_until(loop, [&] { return lines != "a"; });
  EXPECT_EQ("aended with status 0", lines);
}

TEST(Command, StartsAnotherInsideItsCallback) {
  Loop loop;
  Process process;
  int left = 3;
  const std::function<void(const Command::Result&)> again = [&](const Command::Result&) {
    if (--left > 0) process = Command({"true"}).start(loop, again);
  };
  process = Command({"true"}).start(loop, again);
  run_until(loop, [&] { return left == 0; });
}

TEST(Command, MayOutliveTheLoop) {
  Process process;
  {
    Loop loop;
    process = Command({"sleep", "100"}).start(loop, nullptr);
  }
  const pid_t id = process.id();
  process = Process();
  EXPECT_EQ(id, waitpid(id, nullptr, 0));
}

TEST(Command, RunsManyAtOnce) {
  Loop loop;
  std::vector<Process> all;
  int ended = 0;
  for (int i = 0; i < 50; ++i) {
    all.push_back(shell("echo " + std::to_string(i)).start(loop, [&, i](const auto& result) {
      EXPECT_EQ(std::to_string(i) + "\n", result.output);
      ++ended;
    }));
  }
  run_until(loop, [&] { return ended == 50; });
}

TEST(Command, GetsNoDescriptorNoSignalMaskAndNoIgnoredSignal) {
  const int leak = fcntl(STDIN_FILENO, F_DUPFD, 50);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  const sighandler_t handler = signal(SIGPIPE, SIG_IGN);
  const Command::Result result =
      result_of(shell("test -e /proc/self/fd/" + std::to_string(leak) +
                      " && echo leaked; grep -E 'SigBlk|SigIgn' /proc/self/status"));
  signal(SIGPIPE, handler);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  close(leak);
  unsigned long long mask = 1;
  unsigned long long ignored = ~0ULL;  // of the C library's own signals, nothing is known
  EXPECT_EQ(2, sscanf(result.output.c_str(), "SigBlk: %llx SigIgn: %llx", &mask, &ignored));
  EXPECT_EQ(0U, mask);
  EXPECT_EQ(0U, ignored & (1ULL << (SIGPIPE - 1)));
}

TEST(Command, RunsInADaemonThatHasClosedItsStandardStreams) {
  const pid_t child = fork();
  if (child == 0) {
    for (const int stream : {0, 1, 2}) close(stream);
    Command command = shell("cat; echo err >&2");
    command.input = "in";
    const Command::Result result = result_of(command);
    _exit(result.output == "in" && result.errors == "err\n" ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(0, status);
}

TEST(Command, SaysWhatCannotBeRun) {
  Loop loop;
  const TempDir dir;
  EXPECT_THAT([&] { Command({"/missing/program"}).start(loop, nullptr); },
              testing::ThrowsMessage<std::system_error>(
                  "cannot run /missing/program: No such file or directory"));
  EXPECT_THAT(
      [&] {
        Command command({"true"});
        command.folder = dir.file("missing");
        command.start(loop, nullptr);
      },
      testing::ThrowsMessage<std::system_error>("cannot run true in " + dir.file("missing") +
                                                ": No such file or directory"));
  EXPECT_THROW(Command({}).start(loop, nullptr), std::invalid_argument);
  EXPECT_FALSE(has_children());
}

TEST(Command, LeavesNothingBehindWhenACallFails) {
  Loop loop;
  const Handle other = loop.on_signal(SIGCHLD, [] {});
  Command command({"sleep", "100"});
  const int before = support::open_descriptors();
  const struct {
    const char* call;
    int uses;
  } kCalls[] = {
      {"open",         1},
      {"pipe2",        2},
      {"fcntl",        2},
      {"epoll_ctl",    2},
      {"posix_spawnp", 1},
      {"waitid",       1}
  };
  for (const auto& each : kCalls) {
    for (int nth = 1; nth <= each.uses; ++nth) {
      SCOPED_TRACE(each.call);
      const support::Fault fault(each.call, ENOMEM, nth);
      EXPECT_THROW(command.start(loop, nullptr), std::exception);
      EXPECT_TRUE(fault.fired());
    }
  }
  command.input = "some";
  const support::Fault fault("memfd_create", ENOMEM);
  EXPECT_THROW(command.start(loop, nullptr), std::system_error);
  EXPECT_EQ(before, support::open_descriptors());
  EXPECT_FALSE(has_children());
}
