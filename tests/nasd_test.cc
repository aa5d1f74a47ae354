// SPDX-License-Identifier: MIT
// The example appliance's daemon, run as the program it is.
#include "tests/support/files.h"
#include "util/Timer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::TempDir;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

// A running nasd; what it prints goes to the files "out" and "err" of its folder, and unless told
// otherwise its log to "log".
class Nasd {
 public:
  Nasd(const TempDir& dir, std::vector<std::string> arguments) : dir_(dir) {
    arguments.insert(arguments.begin(), {NASD, "--log", dir.file("log")});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string out = dir.file("out");
    const std::string err = dir.file("err");
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
    if (posix_spawn(&pid_, NASD, &actions, nullptr, argv.data(), environ) != 0) {
      throw std::runtime_error("cannot run " NASD);
    }
    posix_spawn_file_actions_destroy(&actions);
  }

  ~Nasd() {
    if (pid_ == 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  Nasd(const Nasd&) = delete;
  Nasd& operator=(const Nasd&) = delete;

  void send(int signal) const { kill(pid_, signal); }

  // Waits until `text` is in the log on disk.
  void wait_for(const std::string& text) const {
    while (dir_.read("log").find(text) == std::string::npos) util::Timer::sleep(10);
  }

  // Waits for its end: the exit status, or 1000 and the number of the signal that killed it.
  int status() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }

  std::string out() const { return dir_.read("out"); }
  std::string err() const { return dir_.read("err"); }
  std::string log() const { return dir_.read("log"); }

 private:
  const TempDir& dir_;
  pid_t pid_ = 0;
};

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

// The instants after "now: " in the loop's entries about waiting events, one a pass.
std::vector<util::utime_t> passes(const std::string& log) {
  std::vector<util::utime_t> instants;
  const std::string mark = " now: ";
  for (size_t at = log.find("event timeout: "); at != std::string::npos;
       at = log.find("event timeout: ", at + 1)) {
    instants.push_back(std::stoull(log.substr(log.find(mark, at) + mark.size())));
  }
  return instants;
}

}  // namespace

TEST(Nasd, EndsByItselfAfterItsCycles) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ("", nasd.out());
  EXPECT_EQ("", nasd.err());
  EXPECT_THAT(nasd.log(), EndsWith("INFO: ended after 3 cycles\n"));
}

TEST(Nasd, SamplesTheMachineOnceACycle) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  nasd.status();
  for (const char* kind : {"load", "memory", "traffic", "space"}) {
    EXPECT_EQ(3, count(nasd.log(), std::string("SAMPLE: ") + kind)) << nasd.log();
  }
  EXPECT_THAT(nasd.log(), Not(HasSubstr("WARNING")));
}

TEST(Nasd, SummarizesAtItsEnd) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  nasd.status();
  for (const char* kind : {"load", "memory", "traffic", "space"}) {
    EXPECT_EQ(1, count(nasd.log(), std::string("SUMMARY: ") + kind)) << nasd.log();
  }
}

TEST(Nasd, SummarizesNowAndThen) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "5", "--cycle", "20", "--summary", "1"});
  nasd.status();
  EXPECT_GE(count(nasd.log(), "SUMMARY: memory"), 3) << nasd.log();
}

TEST(Nasd, EndsWithinACycleAfterASignalWithAllEntriesOnDisk) {
  for (const int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    const TempDir dir;
    Nasd nasd(dir, {"--verbose", "--cycle", "50", "--summary", "100"});
    nasd.wait_for("SUMMARY: space");
    nasd.send(signal);
    const util::utime_t sent = util::Timer::now();
    EXPECT_EQ(0, nasd.status());
    const std::string log = nasd.log();
    const auto all = passes(log);
    ASSERT_GE(all.size(), 2U);
    // The pass that was about to begin may still have begun.
    EXPECT_LE(std::count_if(all.begin(), all.end(), [sent](auto at) { return at > sent; }), 1);
    EXPECT_EQ(count(log, "DEBUG: SuperLoop::runLoop 50\n"), count(log, "SAMPLE: space"));
    EXPECT_THAT(log, HasSubstr("INFO: ended by signal " + std::to_string(signal) + " after "));
    EXPECT_EQ('\n', log.back());
  }
}

TEST(Nasd, LogsASampleThatCannotBeTaken) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20", "--disk", "/nonexistent"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_THAT(nasd.log(), AllOf(HasSubstr("WARNING: no sample of space: No such file or directory"),
                                HasSubstr("SAMPLE: load"), Not(HasSubstr("SUMMARY: space"))));
}

TEST(Nasd, LogsTheLoopWhenVerbose) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20", "--verbose"});
  nasd.status();
  EXPECT_THAT(nasd.log(), HasSubstr("EVENT LOOP|DEBUG: SuperLoop event memory gets timeslice"));
}

TEST(Nasd, AppendsToTheLogOfAnEarlierRun) {
  const TempDir dir;
  dir.write("log", "earlier\n");
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20"});
  nasd.status();
  EXPECT_EQ("earlier\n", nasd.log().substr(0, 8));
}

TEST(Nasd, PrintsItsUsage) {
  const TempDir dir;
  Nasd nasd(dir, {"--help"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ("", nasd.err());
  for (const char* option :
       {"--log", "--cycle", "--cycles", "--summary", "--disk", "--verbose", "--help"}) {
    EXPECT_THAT(nasd.out(), HasSubstr(std::string("  ") + option + " "));
  }
  EXPECT_FALSE(dir.exists("log"));
}

TEST(Nasd, RefusesAWrongCommandLine) {
  const struct {
    std::vector<std::string> arguments;
    const char* message;
  } rows[] = {
      {{"--nonsense"},                        "no option --nonsense"                                     },
      {{"-x"},                                "no option -x"                                             },
      {{"stray"},                             "no option stray"                                          },
      {{"--cycles"},                          "--cycles takes an argument"                               },
      {{"--cycles", ""},                      "--cycles takes a number from 1 to 1000000000, not ''"     },
      {{"--cycles", "0"},                     "--cycles takes a number from 1 to 1000000000, not '0'"    },
      {{"--cycles", "-1"},                    "--cycles takes a number from 1 to 1000000000, not '-1'"   },
      {{"--cycles", "3x"},                    "--cycles takes a number from 1 to 1000000000, not '3x'"   },
      {{"--cycle", "86400001"},               "--cycle takes a number from 1 to 86400000, not '86400001'"},
      {{"--summary", "99999999999999999999"},
       "--summary takes a number from 1 to 86400000, not '99999999999999999999'"                         },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const TempDir dir;
    Nasd nasd(dir, row.arguments);
    EXPECT_EQ(2, nasd.status());
    EXPECT_EQ("nasd: " + std::string(row.message) + "; --help lists the options\n", nasd.err());
    EXPECT_FALSE(dir.exists("log"));
  }
}

TEST(Nasd, RefusesALogThatItCannotWrite) {
  const TempDir dir;
  Nasd nasd(dir, {"--log", "/nonexistent/log"});
  EXPECT_EQ(1, nasd.status());
  EXPECT_EQ("nasd: cannot write /nonexistent/log: No such file or directory\n", nasd.err());
}
