// SPDX-License-Identifier: MIT
// The example appliance's daemon, run as the program it is.
#include "tests/support/child.h"
#include "tests/support/folder.h"
#include "tests/support/manager.h"
#include "tests/support/program.h"
#include "tests/support/trace.h"
#include "util/PropertyList.h"
#include "util/Timer.h"

#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::TempDir;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using util::value_array;
using util::value_struct;

namespace {

// A configuration that nothing is wrong with, and what else its <shares> may hold.
std::string configuration(const std::string& shares) {
  return "<nas_conf_db><version>3</version><system><hostname>nas</hostname><domain>local</domain>"
         "<webgui><adminpasswd>secret</adminpasswd></webgui></system><shares>" +
         shares + "</shares></nas_conf_db>";
}

std::string share(const std::string& name) {
  return "<share><sharename>" + name +
         "</sharename><sharelocation>internal_share</sharelocation></share>";
}

// A running nasd. Unless told otherwise it finds a configuration in "config" of its folder, logs to
// "log" and keeps its state in "state".
class Nasd {
 public:
  Nasd(const TempDir& dir, const std::vector<std::string>& arguments)
      : dir_(dir), child_(command(dir, arguments)) {}

  void send(int signal) const { child_.signal(signal); }

  // Waits until `text` is in the log on disk.
  void wait_for(const std::string& text) const {
    for (int i = 0; i < 3000 && dir_.read("log").find(text) == std::string::npos; ++i) {
      util::Timer::sleep(10);
    }
    EXPECT_NE(std::string::npos, dir_.read("log").find(text)) << text;
  }

  // Waits for its end: the exit status, or 128 and the number of the signal that killed it.
  int status() { return child_.wait().status; }

  std::string out() const { return child_.out(); }
  std::string err() const { return child_.err(); }
  std::string log() const { return dir_.read("log"); }

 private:
  static std::vector<std::string> command(const TempDir& dir, std::vector<std::string> arguments) {
    if (!dir.exists("config")) dir.write("config", configuration(""));
    arguments.insert(
        arguments.begin(),
        {NASD, "--log", dir.file("log"), "--config", dir.file("config"), "--state",
         dir.file("state"), "--lasting", dir.file("lasting"), "--control", dir.file("control")});
    return arguments;
  }

  const TempDir& dir_;
  support::Child child_;
};

// The state that a nasd has left or is keeping.
class State {
 public:
  explicit State(const TempDir& dir) : list_(dir.file("state")) { list_.load(); }

  std::vector<std::string> shares() { return texts(list_.vectorForKey("shares", true), "name"); }
  std::vector<std::string> warnings() {
    return texts(list_.vectorForKey("warnings", true), "text");
  }
  value_struct& warning(size_t index) { return list_.vectorForKey("warnings", false).at(index); }
  value_array& history(const char* of) { return list_.mapForKey("history", false)[of]; }
  value_struct& volume(size_t index) { return list_.vectorForKey("volumes", false).at(index); }
  value_array& interfaces() { return list_.vectorForKey("interfaces", false); }
  value_struct& means(const char* of) { return list_.mapForKey("history", false)[of]; }
  value_struct& board() { return list_.mapForKey("board", false); }
  std::string text(const char* key) { return list_.stringForKey(key); }

 private:
  static std::vector<std::string> texts(const value_array& values, const char* key) {
    std::vector<std::string> found;
    for (const value_struct& value : values) {
      const auto entry = value.find(key);
      found.push_back(entry == value.end() ? "" : entry->second);
    }
    return found;
  }

  util::PropertyList list_;
};

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

unsigned long long monotonic_microseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000000 +
         static_cast<unsigned long long>(now.tv_nsec) / 1000;
}

// A nasctl that asks the daemon of the folder.
support::Outcome ask(const TempDir& dir, const std::vector<std::string>& request) {
  std::vector<std::string> command = {NASCTL, "--control", dir.file("control")};
  command.insert(command.end(), request.begin(), request.end());
  return support::run(command);
}

using NasdTest = support::InFolder;

}  // namespace

TEST_F(NasdTest, EndsByItselfAfterItsCycles) {
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ("", nasd.out());
  EXPECT_EQ("", nasd.err());
  EXPECT_THAT(nasd.log(), HasSubstr("INFO: ended by itself after 3 cycles\n"));
}

TEST_F(NasdTest, SamplesTheMachineOnceACycle) {
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20", "--enable", "SAMPLE"});
  nasd.status();
  for (const char* kind : {"load", "memory", "traffic", "space", "board"}) {
    EXPECT_EQ(3, count(nasd.log(), std::string("SAMPLE: ") + kind)) << nasd.log();
  }
  EXPECT_THAT(nasd.log(), Not(HasSubstr("no sample")));
}

TEST_F(NasdTest, SummarizesAtItsEnd) {
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  nasd.status();
  for (const char* kind : {"load", "memory", "traffic", "space"}) {
    EXPECT_EQ(1, count(nasd.log(), std::string("SUMMARY: ") + kind)) << nasd.log();
  }
}

TEST_F(NasdTest, SummarizesNowAndThen) {
  Nasd nasd(dir, {"--cycles", "5", "--cycle", "20", "--summary", "1"});
  nasd.status();
  EXPECT_GE(count(nasd.log(), "SUMMARY: memory"), 3) << nasd.log();
}

TEST_F(NasdTest, CompletesItsLogAtOnceAfterASignal) {
  for (const int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    const TempDir fresh;
    Nasd nasd(fresh, {"--cycle", "10000"});
    nasd.wait_for("started");
    nasd.send(signal);
    const util::utime_t sent = util::Timer::now();
    nasd.wait_for("INFO: ended by signal " + std::to_string(signal) + " after ");
    EXPECT_LT(util::Timer::now() - sent, 5000U) << "well before the end of the cycle";
    EXPECT_EQ(1, count(nasd.log(), "SUMMARY: space"));
    EXPECT_EQ('\n', nasd.log().back());
  }
}

TEST_F(NasdTest, EndsWithStatus0AfterASignal) {
  Nasd nasd(dir, {"--cycle", "50"});
  nasd.wait_for("started");
  nasd.send(SIGTERM);
  EXPECT_EQ(0, nasd.status());
}

TEST_F(NasdTest, TellsTheServiceManagerWhatItDoes) {
  const support::ServiceManager manager(dir.file("manager"));
  Nasd nasd(dir, {"--cycle", "20"});
  EXPECT_EQ("READY=1", manager.next());
  EXPECT_TRUE(dir.exists("state")) << "what the page shows";
  EXPECT_EQ(0, ask(dir, {"status"}).status);

  const unsigned long long before = monotonic_microseconds();
  nasd.send(SIGHUP);
  const std::string reloading = "RELOADING=1\nMONOTONIC_USEC=";
  const std::string told = manager.next();
  ASSERT_THAT(told, StartsWith(reloading));
  const unsigned long long at = std::stoull(told.substr(reloading.size()));
  EXPECT_LE(before, at);
  EXPECT_LE(at, monotonic_microseconds());
  EXPECT_EQ("READY=1", manager.next());

  nasd.send(SIGTERM);
  EXPECT_EQ("STOPPING=1", manager.next());
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ("nothing", manager.received());
}

TEST_F(NasdTest, TellsTheServiceManagerThatItIsAlive) {
  const support::ServiceManager manager(dir.file("manager"));
  manager.want_reports("100000");
  const Nasd nasd(dir, {"--cycle", "20"});
  EXPECT_EQ("READY=1", manager.next());
  for (int report = 0; report < 3; ++report) EXPECT_EQ("WATCHDOG=1", manager.next());
}

TEST_F(NasdTest, RunsOnWithoutItsServiceManager) {
  const support::ServiceManager manager(dir.file("manager"));
  unlink(dir.file("manager").c_str());
  Nasd nasd(dir, {"--cycles", "2", "--cycle", "20"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ(1, count(nasd.log(), "WARNING: service manager not told: No such file or directory\n"))
      << nasd.log();
}

TEST_F(NasdTest, LogsASampleThatCannotBeTaken) {
  Nasd nasd(dir,
            {"--cycles", "1", "--cycle", "20", "--disk", "/nonexistent", "--enable", "SAMPLE"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_THAT(nasd.log(), AllOf(HasSubstr("WARNING: no sample of space: No such file or directory"),
                                HasSubstr("SAMPLE: load"), Not(HasSubstr("SUMMARY: space"))));
}

TEST_F(NasdTest, LogsCategoriesThatAreEnabledByName) {
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20", "--enable", "EVENT LOOP", "--enable", "DEBUG"});
  nasd.status();
  EXPECT_THAT(nasd.log(), Not(HasSubstr("SAMPLE")));
  EXPECT_THAT(nasd.log(), HasSubstr("EVENT LOOP|DEBUG: SuperLoop event memory gets timeslice"));
}

TEST_F(NasdTest, AppendsToTheLogOfAnEarlierRun) {
  dir.write("log", "earlier\n");
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20"});
  nasd.status();
  EXPECT_EQ("earlier\n", nasd.log().substr(0, 8));
}

TEST_F(NasdTest, PrintsItsUsage) {
  Nasd nasd(dir, {"--help"});
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ("", nasd.err());
  for (const char* option : {"--config", "--state", "--lasting", "--control", "--log", "--enable",
                             "--cycle", "--cycles", "--summary", "--disk", "--help"}) {
    EXPECT_THAT(nasd.out(), HasSubstr(std::string("  ") + option + " "));
  }
  EXPECT_FALSE(dir.exists("log"));
}

TEST_F(NasdTest, RefusesAWrongCommandLine) {
  const std::string cycles = "--cycles takes a number from 1 to 1000000000, not ";
  const std::string huge = "99999999999999999999";
  const std::string known = "DEBUG, EVENT LOOP, INFO, MEMORY, SAMPLE, SUMMARY, TIMING, WARNING";
  const struct {
    std::vector<std::string> arguments;
    std::string message;
  } rows[] = {
      {{"--nonsense"},           "no option --nonsense"                                           },
      {{"-x"},                   "no option -x"                                                   },
      {{"stray"},                "no option stray"                                                },
      {{"--cycles"},             "--cycles takes an argument"                                     },
      {{"--cycles", ""},         cycles + "''"                                                    },
      {{"--cycles", "0"},        cycles + "'0'"                                                   },
      {{"--cycles", "-1"},       cycles + "'-1'"                                                  },
      {{"--cycles", "3x"},       cycles + "'3x'"                                                  },
      {{"--cycle", "10001"},     "--cycle takes a number from 1 to 10000, not '10001'"            },
      {{"--enable", "NONSENSE"}, "no category 'NONSENSE' among " + known                          },
      {{"--summary", huge},      "--summary takes a number from 1 to 86400000, not '" + huge + "'"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const TempDir fresh;
    Nasd nasd(fresh, row.arguments);
    EXPECT_EQ(2, nasd.status());
    EXPECT_EQ("nasd: " + row.message + "; --help lists the options\n", nasd.err());
    EXPECT_FALSE(fresh.exists("log"));
  }
}

TEST_F(NasdTest, RefusesALogThatItCannotWrite) {
  Nasd nasd(dir, {"--log", "/nonexistent/log"});
  EXPECT_EQ(1, nasd.status());
  EXPECT_EQ("nasd: /nonexistent/log: No such file or directory\n", nasd.err());
}

TEST_F(NasdTest, RefusesAConfigurationThatItCannotRead) {
  dir.write("config", "<nas_conf_db>");
  Nasd nasd(dir, {});
  EXPECT_EQ(1, nasd.status());
  EXPECT_THAT(nasd.err(), StartsWith("nasd: "));
  EXPECT_THAT(nasd.err(), HasSubstr(dir.file("config")));
}

TEST_F(NasdTest, LogsASummaryOfItsConfiguration) {
  dir.write("config", configuration(share("a") + share("b")));
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20"});
  nasd.status();
  EXPECT_THAT(nasd.log(),
              HasSubstr(dir.file("config") +
                        ": nas.local, 0 disks, 0 interfaces, 0 mounts, 2 shares, 0 users\n"));
  EXPECT_THAT(nasd.log(), Not(HasSubstr("secret")));
}

TEST_F(NasdTest, ReadsItsConfigurationAgainAfterSighup) {
  Nasd nasd(dir, {"--cycle", "20"});
  nasd.wait_for("0 shares");
  dir.write("config", configuration(share("file 10") + share("file 2")));
  nasd.send(SIGHUP);
  nasd.wait_for("2 shares");
  nasd.send(SIGTERM);
  EXPECT_EQ(0, nasd.status());
  EXPECT_THAT(State(dir).shares(), ElementsAre("file 2", "file 10"));
}

TEST_F(NasdTest, KeepsTheOldConfigurationWhereTheNewOneIsBad) {
  dir.write("config", configuration(share("music")));
  Nasd nasd(dir, {"--cycle", "20"});
  nasd.wait_for("1 shares");
  dir.write("config", "<nas_conf_db><version>3</version></nas_conf_db>");
  nasd.send(SIGHUP);
  nasd.wait_for("WARNING: The new configuration is not in use: ");
  EXPECT_THAT(nasd.log(), HasSubstr("WARNING: " + dir.file("config") + ": not in use: "));
  nasd.send(SIGTERM);
  EXPECT_EQ(0, nasd.status());
  State state(dir);
  EXPECT_THAT(state.shares(), ElementsAre("music"));
  EXPECT_THAT(state.warnings(), ElementsAre(StartsWith("The new configuration is not in use: ")));
}

TEST_F(NasdTest, WarnsNoLongerOnceTheConfigurationIsGood) {
  Nasd nasd(dir, {"--cycle", "20"});
  nasd.wait_for("0 shares");
  dir.write("config", "");
  nasd.send(SIGHUP);
  nasd.wait_for("The new configuration is not in use: ");
  dir.write("config", configuration(share("music")));
  nasd.send(SIGHUP);
  nasd.wait_for("INFO: no longer: The new configuration is not in use: ");
  nasd.send(SIGTERM);
  EXPECT_EQ(0, nasd.status());
  EXPECT_THAT(State(dir).warnings(), IsEmpty());
}

TEST_F(NasdTest, WarnsOfWhatIsWrongWithTheConfiguration) {
  dir.write("config",
            "<nas_conf_db><version>3</version><system><hdparams><disk><device>../sda</device>"
            "<inactivityperiod>0</inactivityperiod><lastselftest>0</lastselftest></disk></hdparams>"
            "</system><mounts><mount><device>/dev/sdx1</device>"
            "<mountpoint>/nonexistent</mountpoint></mount></mounts><shares><share>"
            "<sharename>100%s</sharename></share></shares></nas_conf_db>");
  Nasd nasd(dir, {"--cycles", "2", "--cycle", "20"});
  nasd.status();
  EXPECT_THAT(State(dir).warnings(), ElementsAre("The web interface has no administration password",
                                                 "Disk ../sda is not in this machine",
                                                 "There is no folder /nonexistent for /dev/sdx1",
                                                 "Share 100%s has no location"));
  EXPECT_EQ(1, count(nasd.log(), "WARNING: Share 100%s has no location\n")) << nasd.log();
}

TEST_F(NasdTest, TakesUpItsHistoryAndWarningsAfterARestart) {
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  Nasd(dir, {"--cycles", "3", "--cycle", "20"}).status();
  const std::string id = State(dir).warning(0)["id"];
  EXPECT_EQ(3U, State(dir).history("load").size());

  Nasd nasd(dir, {"--cycles", "2", "--cycle", "20"});
  nasd.status();
  State state(dir);
  for (const char* of : {"time", "load", "received", "sent"}) {
    EXPECT_EQ(5U, state.history(of).size()) << of;
  }
  EXPECT_EQ(id, std::string(state.warning(0)["id"]));
  EXPECT_EQ(1, count(nasd.log(), "WARNING: Share lost has no location"));
}

TEST_F(NasdTest, KeepsTheNewestPointsOfItsHistory) {
  Nasd(dir, {"--cycles", "160", "--cycle", "1"}).status();
  EXPECT_EQ(150U, State(dir).history("load").size());
}

TEST_F(NasdTest, StartsWithoutAHistoryWhereItsStateIsDamaged) {
  for (const char* damaged :
       {"<plist><dict><key>a", "<plist><dict><key>a</key><true/></dict></plist>"}) {
    SCOPED_TRACE(damaged);
    const TempDir fresh;
    fresh.write("state", damaged);
    Nasd nasd(fresh, {"--cycles", "2", "--cycle", "20"});
    EXPECT_EQ(0, nasd.status());
    EXPECT_THAT(nasd.log(), HasSubstr("WARNING: starting without a history: "));
    EXPECT_EQ(2U, State(fresh).history("load").size());
  }
}

TEST_F(NasdTest, KeepsAcknowledgementsWhateverBecomesOfTheState) {
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  {
    Nasd nasd(dir, {"--cycle", "20"});
    nasd.wait_for("WARNING: Share lost");
    while (State(dir).warnings().empty()) util::Timer::sleep(10);
    const support::Outcome asked = ask(dir, {"acknowledge", State(dir).warning(0)["id"]});
    EXPECT_EQ("acknowledged: Share lost has no location\n", asked.out);
    nasd.send(SIGKILL);
    EXPECT_EQ(128 + SIGKILL, nasd.status());
  }
  unlink(dir.file("state").c_str());
  Nasd nasd(dir, {"--cycles", "3", "--cycle", "20"});
  nasd.status();
  EXPECT_TRUE(State(dir).warning(0)["acknowledged"]);
  EXPECT_EQ(1, count(nasd.log(), "INFO: acknowledged: Share lost has no location\n"));
}

TEST_F(NasdTest, NeverUsesANumberOfAWarningAgain) {
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  std::set<std::string> ids;
  for (int i = 0; i < 3; ++i) {  // within a second, and each without what was kept
    Nasd(dir, {"--cycles", "1", "--cycle", "1"}).status();
    ids.insert(State(dir).warning(0)["id"]);
    for (const char* file : {"state", "lasting", "lasting~"}) unlink(dir.file(file).c_str());
  }
  EXPECT_EQ(3U, ids.size());
}

TEST_F(NasdTest, LogsAFailureOnceAndThatItIsOver) {
  Nasd nasd(dir, {"--cycle", "20", "--state", dir.file("missing/state"), "--disk",
                  dir.file("missing"), "--enable", "SAMPLE"});
  while (count(nasd.log(), "SAMPLE: load") < 5) util::Timer::sleep(10);
  ASSERT_EQ(0, mkdir(dir.file("missing").c_str(), 0755));
  nasd.wait_for("INFO: no longer: state not saved\n");
  nasd.wait_for("INFO: no longer: no sample of space\n");
  nasd.send(SIGTERM);
  EXPECT_EQ(0, nasd.status());
  EXPECT_EQ(1, count(nasd.log(), "WARNING: state not saved: "));
  EXPECT_EQ(1, count(nasd.log(), "WARNING: no sample of space: No such file or directory\n"));
}

TEST_F(NasdTest, StateWithAShareWithoutANameCanBeLoadedAgain) {
  dir.write("config", configuration("<share/>"));
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  EXPECT_THAT(State(dir).shares(), ElementsAre(""));
}

TEST_F(NasdTest, LeavesNothingBesideItsFiles) {
  Nasd(dir, {"--cycles", "3", "--cycle", "20"}).status();
  EXPECT_THAT(dir.list(), ElementsAre("config", "lock", "log", "state"));
}

TEST_F(NasdTest, MakesTextsValidThatAreNot) {
  dir.write("config", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
                          configuration(share("Caf\xe9") + "<share><sharename>lost \xe2\x82" +
                                        "</sharename></share>"));
  Nasd(dir, {"--cycles", "2", "--cycle", "20"}).status();
  EXPECT_THAT(State(dir).shares(), ElementsAre("Caf\uFFFD", "lost \uFFFD"));
  EXPECT_THAT(State(dir).warnings(), ElementsAre("Share lost \uFFFD has no location"));
}

TEST_F(NasdTest, LogsNamesOnTheLineOfTheirEntry) {
  dir.write("config", configuration("<share><sharename>a&#10;2030-01-01T00:00:00 forged&#10;INFO: b"
                                    "</sharename></share>"));
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20"});
  nasd.status();
  EXPECT_THAT(nasd.log(),
              HasSubstr("WARNING: Share a 2030-01-01T00:00:00 forged INFO: b has no location\n"));
}

TEST_F(NasdTest, KeepsAWarningOverARestartThoughItsTextHasBlanksAtItsEnds) {
  dir.write("config", configuration("<share><sharename> a&#9;&#32; b </sharename></share>"));
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  const std::string id = State(dir).warning(0)["id"];
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  EXPECT_EQ(id, std::string(State(dir).warning(0)["id"]));
}

TEST_F(NasdTest, WritesWhatLastsOnlyWhenItChanges) {
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  const auto calls = support::file_calls([&] {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // it cannot look into what is traced
    execl(NASD, NASD, "--log", dir.file("log").c_str(), "--config", dir.file("config").c_str(),
          "--state", dir.file("state").c_str(), "--lasting", dir.file("lasting").c_str(),
          "--control", dir.file("control").c_str(), "--cycle", "10", "--cycles", "20", nullptr);
  });
  const auto named = [&](const std::string& name) {
    return std::count_if(calls.begin(), calls.end(), [&](const support::FileCall& call) {
      return call.kind == support::FileCall::kRename && call.to == dir.file(name);
    });
  };
  const auto syncs = std::count_if(calls.begin(), calls.end(), [](const support::FileCall& call) {
    return call.kind == support::FileCall::kSync;
  });
  EXPECT_EQ(21, named("state")) << "each cycle and at the end";
  EXPECT_EQ(1, named("lasting"));
  EXPECT_LE(syncs, 3) << "those of one durable save";
}

TEST_F(NasdTest, RemovesWhatAKilledOneLeft) {
  dir.write("lasting.4711.1", "half");
  dir.write("lasting.old", "somebody's");
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  EXPECT_FALSE(dir.exists("lasting.4711.1"));
  EXPECT_TRUE(dir.exists("lasting.old"));
}

TEST_F(NasdTest, TakesTheBackupOfDamagedWarnings) {
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  const std::string id = State(dir).warning(0)["id"];
  ASSERT_EQ(0, rename(dir.file("lasting").c_str(), dir.file("lasting~").c_str()));
  dir.write("lasting", "<plist>");
  Nasd nasd(dir, {"--cycles", "1", "--cycle", "20"});
  nasd.status();
  EXPECT_EQ(id, std::string(State(dir).warning(0)["id"]));
  EXPECT_THAT(nasd.log(), HasSubstr("WARNING: taking the backup: "));
}

TEST_F(NasdTest, OpensARemovedLogAnew) {
  Nasd nasd(dir, {"--cycle", "20", "--summary", "100"});
  nasd.wait_for("SUMMARY");
  unlink(dir.file("log").c_str());
  nasd.wait_for("SUMMARY");
}

TEST_F(NasdTest, LogsWhyItDoesNotStart) {
  dir.write("config", "<nas_conf_db>");
  Nasd nasd(dir, {});
  EXPECT_EQ(1, nasd.status());
  EXPECT_THAT(nasd.log(), HasSubstr("WARNING: cannot run: "));
  EXPECT_THAT(nasd.log(), HasSubstr(dir.file("config")));
}

TEST_F(NasdTest, RefusesWhatIsNotARegularFile) {
  for (const char* name : {"config", "state", "lasting"}) {
    ASSERT_EQ(0, mkfifo(dir.file(name).c_str(), 0600));
  }
  Nasd first(dir, {"--cycles", "1"});
  EXPECT_EQ(1, first.status());
  EXPECT_EQ("nasd: " + dir.file("config") + ": not a regular file\n", first.err());
  unlink(dir.file("config").c_str());
  Nasd second(dir, {"--cycles", "1", "--cycle", "20"});
  EXPECT_EQ(0, second.status());
  EXPECT_THAT(second.log(), AllOf(HasSubstr("starting without a history: " + dir.file("state")),
                                  HasSubstr("starting without warnings: " + dir.file("lasting"))));
}

TEST_F(NasdTest, IsTheOnlyOneForItsFolder) {
  Nasd first(dir, {"--cycle", "20"});
  first.wait_for("started");
  Nasd second(dir, {"--cycle", "20"});
  EXPECT_EQ(1, second.status());
  EXPECT_THAT(second.err(), HasSubstr(dir.path() + " is in use by process "));
}

TEST_F(NasdTest, SaysThatAVolumeIsNotMounted) {
  dir.write("config",
            "<nas_conf_db><version>3</version><system><webgui><adminpasswd>secret"
            "</adminpasswd></webgui></system><mounts><mount><device>/dev/sdx1</device>"
            "<mountpoint>" +
                dir.path() + "</mountpoint></mount></mounts></nas_conf_db>");
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  State state(dir);
  EXPECT_THAT(state.warnings(), ElementsAre("/dev/sdx1 is not mounted on " + dir.path()));
  EXPECT_FALSE(state.volume(0)["mounted"]);
  EXPECT_EQ(0U, state.volume(0).count("total"));
}

TEST_F(NasdTest, SaysWhetherAnInterfaceIsUp) {
  if (!support::namespaces_work()) GTEST_SKIP() << "no namespaces here";
  support::in_child([] {
    ASSERT_EQ(0, unshare(geteuid() == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER));
    const TempDir fresh;
    Nasd(fresh, {"--cycles", "1", "--cycle", "20"}).status();
    State state(fresh);
    for (value_struct& each : state.interfaces()) EXPECT_FALSE(each["up"]);
  });
}

namespace {

// The kernel's register file, which asks for each read anew. Only for a child process, in whose
// /proc there is little else.
class Board {
 public:
  Board(const TempDir& dir, const std::string& lines) : folder_(dir.file("proc")) {
    EXPECT_EQ(0, mkdir(folder_.c_str(), 0700));
    support::mount_memory(folder_, "size=64k");
    EXPECT_EQ(0, mkfifo((folder_ + "/resource_dump").c_str(), 0600));
    // The daemon's address sanitizer takes sound code for faulty if it cannot see its own stack.
    // The leak sanitizer looks processes up by number, which it cannot here.
    const std::string all = folder_ + "/all";
    EXPECT_EQ(0, mkdir(all.c_str(), 0700));
    EXPECT_EQ(0, mount("/proc", all.c_str(), nullptr, MS_BIND | MS_REC, nullptr));
    EXPECT_EQ(0, symlink("all/self", (folder_ + "/self").c_str()));
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    EXPECT_EQ(0, mount(folder_.c_str(), "/proc", nullptr, MS_BIND | MS_REC, nullptr));
    std::thread([lines] {
      const char* const file = "/proc/resource_dump";
      for (;;) {
        std::string request;
        std::getline(std::ifstream(file), request);
        std::ofstream(file) << (request == "register  r 00010110" ? lines : "");
      }
    }).detach();
  }
  ~Board() {
    umount2("/proc", MNT_DETACH);
    umount2(folder_.c_str(), MNT_DETACH);
  }
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

 private:
  const std::string folder_;
};

}  // namespace

TEST(Nasd, WarnsOfWhatTheBoardSays) {
  if (!support::namespaces_work()) GTEST_SKIP() << "no mount namespaces here: there is no board";
  const auto disk = [](const std::string& name) {
    return "<disk><device>" + name +
           "</device><inactivityperiod>0</inactivityperiod><lastselftest>0</lastselftest></disk>";
  };
  std::string document = configuration("");
  document.replace(document.find("</system>"), 0,
                   "<hdparams>" + disk("sda") + disk("sdb") + "</hdparams>");
  const struct {
    const char* lines;
    const char* temperature;
    std::vector<std::string> warnings;
  } rows[] = {
      {"800010",  "normal",  {}                                                                             },
      {"1800010", "raised",  {"The board is getting warm"}                                                  },
      {"3800000",
       "too high",           {"The board is too hot", "The board has 1 of the 2 drives that are configured"}},
      {"2800010", "unknown", {"The board's temperature lines contradict each other"}                        },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines);
    support::in_child([&] {
      const TempDir dir;
      dir.write("config", document);
      const Board board(dir, row.lines);
      Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
      State state(dir);
      EXPECT_EQ(row.temperature, std::string(state.board()["temperature"]));
      std::vector<std::string> warnings = state.warnings();
      for (const char* missing : {"a", "b"}) {  // this machine need not have them
        const std::string text = std::string("Disk sd") + missing + " is not in this machine";
        warnings.erase(std::remove(warnings.begin(), warnings.end(), text), warnings.end());
      }
      EXPECT_EQ(row.warnings, warnings);
    });
  }
}

TEST(Nasd, SaysNothingOfABoardThatIsNotThere) {
  if (access("/proc/resource_dump", F_OK) == 0) GTEST_SKIP() << "this is such a board";
  const TempDir dir;
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  EXPECT_THROW(State(dir).board(), util::unknown_key);
}

// The clock of a board without a battery begins in 1970 and is set soon after.
TEST_F(NasdTest, MovesItsHistoryWithTheClock) {
  Nasd(dir, {"--cycles", "3", "--cycle", "20"}).status();
  util::PropertyList list(dir.file("state"));
  list.load();
  value_array& times = list.mapForKey("history", false)["time"];
  for (std::string& time : times) time = "1970-01-01T00:00:07Z";
  list.save();
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  State state(dir);
  ASSERT_EQ(4U, state.history("time").size());
  const std::string year = state.text("written").substr(0, 4);
  for (const std::string& time : state.history("time")) EXPECT_THAT(time, StartsWith(year));
}

TEST_F(NasdTest, LeavesOutWhatAClockSaidThatWasAheadBeforeTheMachineWasStarted) {
  Nasd(dir, {"--cycles", "3", "--cycle", "20"}).status();
  util::PropertyList list(dir.file("state"));
  list.load();
  list.mapForKey("history", false)["boot"] = "another";
  list.mapForKey("history", false)["time"] =
      value_array{"2001-01-01T00:00:00Z", "2036-01-01T00:00:00Z", "2036-01-01T00:00:01Z"};
  list.save();
  Nasd(dir, {"--cycles", "1", "--cycle", "20"}).status();
  State state(dir);
  ASSERT_EQ(2U, state.history("time").size());
  EXPECT_THAT(std::string(state.history("time")[0]), StartsWith("2001-01-01T00:00:0"));
}

TEST_F(NasdTest, KeepsMeansOfAnHourAndADay) {
  Nasd(dir, {"--cycles", "3", "--cycle", "20"}).status();
  State state(dir);
  for (const char* of : {"hour", "day"}) {
    value_struct& means = state.means(of);
    for (const char* each : {"time", "uptime", "load", "received", "sent"}) {
      EXPECT_EQ(1U, static_cast<value_array&>(means.at(each)).size()) << of << " " << each;
    }
  }
}

// ---- nasctl ----

TEST(Nasctl, AsksTheDaemon) {
  const TempDir dir;
  dir.write("config", configuration("<share><sharename>lost</sharename></share>"));
  Nasd nasd(dir, {"--cycle", "20"});
  nasd.wait_for("WARNING: Share lost");
  EXPECT_THAT(ask(dir, {"status"}).out, StartsWith("nas.local\nup "));
  EXPECT_THAT(ask(dir, {"warnings"}).out, EndsWith("  Share lost has no location\n"));
  EXPECT_EQ("SAMPLE is off\n", ask(dir, {"log-level", "SAMPLE"}).out);
  EXPECT_EQ("SAMPLE is on\n", ask(dir, {"log-level", "SAMPLE", "on"}).out);
  nasd.wait_for("SAMPLE: load");
  EXPECT_THAT(ask(dir, {"log-level"}).out,
              HasSubstr("DEBUG is off\nEVENT LOOP is off\nINFO is on\n"));
  EXPECT_EQ("the new configuration is in use\n", ask(dir, {"reload"}).out);
  EXPECT_EQ("stopping\n", ask(dir, {"stop"}).out);
  EXPECT_EQ(0, nasd.status());
  EXPECT_THAT(nasd.log(), HasSubstr("INFO: ended by request of process "));
}

TEST(Nasctl, SaysWhatIsRefused) {
  const TempDir dir;
  Nasd nasd(dir, {"--cycle", "20"});
  nasd.wait_for("started");
  dir.write("config", "");
  const struct {
    std::vector<std::string> request;
    const char* text;
  } rows[] = {
      {{"acknowledge", "17"},         "nasctl: there is no such warning any more\n"},
      {{"dance"},                     "nasctl: no such request: dance\n"           },
      {{"status", "now"},             "nasctl: no such request: status now\n"      },
      {{"log-level", "SAMPLE", "up"}, "nasctl: a category is on or off, not 'up'\n"},
      {{"log-level", "NONE", "on"},   "nasctl: no category 'NONE' among "          },
      {{"reload"},                    "nasctl: the old configuration stays: "      },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const support::Outcome asked = ask(dir, row.request);
    EXPECT_EQ(1, asked.status);
    EXPECT_THAT(asked.err, StartsWith(row.text));
  }
}

TEST(Nasctl, SaysThatNobodyAnswers) {
  const TempDir dir;
  const support::Outcome asked = ask(dir, {"status"});
  EXPECT_EQ(3, asked.status);
  EXPECT_EQ("nasctl: " + dir.file("control") + ": nobody answers: No such file or directory\n",
            asked.err);
}

// "--config", "--state", ... by their names alone, or the words that begin a line, "status", ...
std::set<std::string> listed(const std::string& usage, const std::string& begin) {
  std::set<std::string> names;
  for (size_t at = 0; (at = usage.find("\n  " + begin, at)) != std::string::npos; ++at) {
    const size_t start = at + 3 + begin.size();
    const size_t end = usage.find_first_of(" \n", start);
    if (end > start) names.insert(usage.substr(start, end - start));
  }
  return names;
}

TEST(Nasd, HasAManualOfEveryOption) {
  const std::string manual = support::read_file(MANUALS "/nasd.8");
  const std::set<std::string> options = listed(support::run({NASD, "--help"}).out, "--");
  EXPECT_EQ(11U, options.size());
  for (const std::string& option : options) {
    EXPECT_THAT(manual, HasSubstr(".It Fl -" + option + (option == "help" ? "\n" : " Ar ")));
  }
}

TEST(Nasctl, HasAManualOfEveryRequest) {
  const std::string manual = support::read_file(MANUALS "/nasctl.1");
  const std::set<std::string> requests = listed(support::run({NASCTL, "--help"}).out, "");
  EXPECT_EQ(6U, requests.size());
  for (const std::string& request : requests) {
    EXPECT_THAT(manual, HasSubstr(".It Cm " + request));
  }
}

TEST(Nasctl, PrintsItsUsage) {
  EXPECT_THAT(support::run({NASCTL, "--help"}).out, StartsWith("usage: nasctl "));
  EXPECT_EQ(2, support::run({NASCTL}).status);
  EXPECT_EQ(2, support::run({NASCTL, "--nonsense"}).status);
}

namespace {

// Listens where programs send what is for the system log. Only for a child process: its /dev is
// replaced.
class SystemLog {
 public:
  explicit SystemLog(const TempDir& dir) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    EXPECT_EQ(0, mkdir(dir.file("dev").c_str(), 0755));
    support::replace_dev(dir.file("dev"));
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    EXPECT_EQ(0, bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }
  ~SystemLog() { close(socket_); }
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;

  // All that has come, one record a line.
  std::string records() const {
    std::string all;
    char record[2048];
    ssize_t size = 0;
    while ((size = read(socket_, record, sizeof record)) > 0) {
      all.append(record, static_cast<size_t>(size)) += "\n";
    }
    return all;
  }

 private:
  int socket_;
};

}  // namespace

TEST_F(NasdTest, SendsWarningsToTheSystemLogAndToItsOwn) {
  if (!support::namespaces_work()) GTEST_SKIP() << "no mount namespaces here: nothing can listen";
  support::in_child([] {
    const TempDir fresh;
    const SystemLog system_log(fresh);
    fresh.write("config", configuration("<share><sharename>lost</sharename></share>"));
    Nasd nasd(fresh, {"--cycles", "2", "--cycle", "20"});
    nasd.status();
    const std::string records = system_log.records();
    EXPECT_EQ(1, count(records, "]: Share lost has no location\n")) << records;
    EXPECT_EQ(0, count(records, "INFO")) << records;
    EXPECT_EQ(1, count(nasd.log(), "WARNING: Share lost has no location\n"));
  });
}
