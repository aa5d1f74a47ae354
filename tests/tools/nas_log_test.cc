// SPDX-License-Identifier: MIT
// nas-log, run as a child on real files.
#include "service/CrashEntry.h"
#include "service/LogFile.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "util/logger.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::Child;
using support::ended;
using support::Outcome;
using support::TempDir;

namespace {

using Words = std::vector<std::string>;

Words command(const Words& arguments) {
  Words all = {TOOL};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

Outcome nas_log(const Words& arguments, const std::string& input = "",
                const std::string& output = "") {
  return support::run(command(arguments), input, output);
}

Outcome nas_log_on_terminal(const Words& arguments) {
  setenv("PAGER", "cat", 1);
  return support::run_on_terminal(command(arguments));
}

// An entry at the given time of 2007-03-01.
std::string entry(const std::string& time, const std::string& message) {
  return "2007-03-01T" + time + " void work()\n" + message + "\n";
}

const std::string kNotice = "rotating log file\n";

// Renames the log and its old files, as a service does, and begins a new one with `text`.
void rotate(const TempDir& dir, const std::string& log, int count, const std::string& text) {
  dir.write(log, dir.read(log) + kNotice);
  const auto old = [&](int number) { return dir.file(log + "." + std::to_string(number)); };
  unlink(old(count - 1).c_str());
  for (int k = count - 1; k > 0; --k) rename(old(k - 1).c_str(), old(k).c_str());
  rename(dir.file(log).c_str(), old(0).c_str());
  dir.write(log, text);
}

void append(const TempDir& dir, const std::string& name, const std::string& text) {
  FILE* const file = fopen(dir.file(name).c_str(), "a");
  ASSERT_NE(nullptr, file);
  EXPECT_EQ(text.size(), fwrite(text.data(), 1, text.size(), file));
  EXPECT_EQ(0, fclose(file));
}

// The log that most tests filter.
const std::string kOne =
    "2007-02-28T23:59:59 void util::SuperLoop::addEvent(util::EventLoop*)\n"
    "EVENT LOOP|DEBUG: add event loop 0x10\n";
const std::string kTwo = "2007-03-01T00:00:00 void sample()\nINFO: load 0.5\n";
const std::string kThree = "2007-03-01T14:05:09 void sample()\nWARNING: load 9.5\n";
const std::string kFour = "2007-03-01T14:06:00 void net()\nEVENT LOOP: eth0 (up)\n";

using NasLog = support::InFolder;
using NasLogFollow = support::InFolder;

}  // namespace

// ---- reading ----

TEST_F(NasLog, ShowsEntriesAsTheyStand) {
  dir.write("x", kOne + kTwo);
  EXPECT_EQ(ended(0, kOne + kTwo), nas_log({dir.file("x")}));
}

TEST_F(NasLog, ShowsNothingOfAnEmptyFile) {
  dir.write("x", "");
  EXPECT_EQ(ended(0), nas_log({dir.file("x")}));
}

TEST_F(NasLog, ReadsRotatedFilesOldestFirst) {
  dir.write("x", entry("05:00:00", "INFO: newest"));
  dir.write("x.0", entry("04:00:00", "INFO: d") + kNotice);
  dir.write("x.1", entry("03:00:00", "INFO: c") + kNotice);
  dir.write("x.2", entry("02:00:00", "INFO: b") + kNotice);
  dir.write("x.10", entry("01:00:00", "INFO: oldest") + kNotice);
  EXPECT_EQ(ended(0, entry("01:00:00", "INFO: oldest") + entry("02:00:00", "INFO: b") +
                         entry("03:00:00", "INFO: c") + entry("04:00:00", "INFO: d") +
                         entry("05:00:00", "INFO: newest")),
            nas_log({dir.file("x")}));
}

TEST_F(NasLog, ReadsRotatedFilesInTheCurrentFolder) {
  dir.write("x", kTwo);
  dir.write("x.0", kOne + kNotice);
  EXPECT_EQ(ended(0, kOne + kTwo),
            support::run({"/bin/sh", "-c", "cd '" + dir.path() + "' && exec '" + TOOL + "' x"}));
}

TEST_F(NasLog, LeavesOutTheClosingLineOnlyAtTheEndOfAFile) {
  dir.write("x.0", entry("01:00:00", "INFO: a\nrotating log file\nb") + kNotice);
  dir.write("x", kNotice);
  EXPECT_EQ(ended(0, entry("01:00:00", "INFO: a\nrotating log file\nb")), nas_log({dir.file("x")}));
}

TEST_F(NasLog, IgnoresNamesThatRotationDoesNotMake) {
  dir.write("x", kOne);
  for (const char* name : {"x.00", "x.1a", "x.", "x.-1", "x.0.gz", "xx.0", "x.99999999999"}) {
    dir.write(name, kTwo);
  }
  EXPECT_EQ(kOne, nas_log({dir.file("x")}).out);
}

TEST_F(NasLog, ReadsTheOldFilesOfAMissingLog) {
  dir.write("x.1", kOne + kNotice);
  EXPECT_EQ(ended(0, kOne), nas_log({dir.file("x")}));
}

TEST_F(NasLog, ReadsAnOldFileNamedBesideItsLogOnce) {
  dir.write("x", kTwo);
  dir.write("x.0", kOne + kNotice);
  EXPECT_EQ(kOne + kTwo, nas_log({dir.file("x"), dir.file("x.0"), dir.file("x")}).out);
}

TEST_F(NasLog, ReadsAnOldFileNamedAlone) {
  dir.write("x", kTwo);
  dir.write("x.0", kOne + kNotice);
  EXPECT_EQ(kOne, nas_log({dir.file("x.0")}).out);
}

TEST_F(NasLog, KeepsTheLinesOfAMessageTogether) {
  const std::string long_one = entry("01:00:00", "INFO: a\n\nb: c\n  d");
  dir.write("x", long_one + entry("02:00:00", "INFO: e"));
  EXPECT_EQ(long_one, nas_log({dir.file("x"), "--grep", "  d"}).out);
}

TEST_F(NasLog, KeepsTheLinesOfAPlaceTogether) {
  const std::string odd = "2007-03-01T01:00:00 void\nwork()\nINFO: a\n";
  dir.write("x", odd + entry("02:00:00", "DEBUG: e"));
  EXPECT_EQ(ended(0, odd), nas_log({dir.file("x"), "--category", "INFO"}));
}

TEST_F(NasLog, DoesNotSplitAMessageAtATimeWithinALine) {
  const std::string whole = entry("01:00:00", "INFO: next at 2007-03-01T02:00:00 on sda");
  dir.write("x", whole + entry("01:00:01", "INFO: b"));
  EXPECT_EQ(ended(0, whole), nas_log({dir.file("x"), "--grep", "next"}));
}

TEST_F(NasLog, ReadsStandardInput) {
  EXPECT_EQ(ended(0, kOne + kTwo), nas_log({"-"}, kOne + kTwo));
}

TEST_F(NasLog, NamesStandardInputInMessages) {
  EXPECT_EQ("nas-log: standard input:1: not a log entry\n", nas_log({"-"}, "odd\n").err);
}

// ---- order ----

TEST_F(NasLog, MergesLogsByTime) {
  dir.write("x.0", entry("01:00:00", "INFO: x1") + kNotice);
  dir.write("x", entry("03:00:00", "INFO: x3") + entry("04:00:00", "INFO: x4"));
  dir.write("y", entry("02:00:00", "INFO: y2") + entry("05:00:00", "INFO: y5"));
  EXPECT_EQ(entry("01:00:00", "INFO: x1") + entry("02:00:00", "INFO: y2") +
                entry("03:00:00", "INFO: x3") + entry("04:00:00", "INFO: x4") +
                entry("05:00:00", "INFO: y5"),
            nas_log({dir.file("x"), dir.file("y")}).out);
}

TEST_F(NasLog, ShowsTheLogNamedFirstFirstAtTheSameTime) {
  dir.write("x", entry("01:00:00", "INFO: x1") + entry("01:00:00", "INFO: x2"));
  dir.write("y", entry("01:00:00", "INFO: y1"));
  EXPECT_EQ(
      entry("01:00:00", "INFO: y1") + entry("01:00:00", "INFO: x1") + entry("01:00:00", "INFO: x2"),
      nas_log({dir.file("y"), dir.file("x")}).out);
}

TEST_F(NasLog, KeepsTheOrderOfALogWhoseClockWasSetBack) {
  dir.write("x", entry("05:00:00", "INFO: a") + entry("01:00:00", "INFO: b"));
  EXPECT_EQ(entry("05:00:00", "INFO: a") + entry("01:00:00", "INFO: b"),
            nas_log({dir.file("x")}).out);
}

TEST_F(NasLog, MergesStandardInputWithAFile) {
  dir.write("x", kTwo);
  EXPECT_EQ(kOne + kTwo + kThree, nas_log({dir.file("x"), "-"}, kOne + kThree).out);
}

TEST_F(NasLog, KeepsDamageBehindTheEntryBeforeItWhenMerging) {
  dir.write("x", entry("01:00:00", "INFO: x1") + "2007-03-01T02:00:00 cut");
  dir.write("y", entry("01:30:00", "INFO: y1") + entry("03:00:00", "INFO: y2"));
  EXPECT_EQ(entry("01:00:00", "INFO: x1") + entry("01:30:00", "INFO: y1") +
                "2007-03-01T02:00:00 cut\n" + entry("03:00:00", "INFO: y2"),
            nas_log({dir.file("x"), dir.file("y")}).out);
}

// ---- filters ----

TEST_F(NasLog, FiltersByCategory) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  const std::tuple<Words, std::string, int> rows[] = {
      {{"INFO"},             kTwo,          0},
      {{"EVENT LOOP"},       kOne + kFour,  0},
      {{"DEBUG"},            kOne,          0},
      {{"EVENT LOOP|DEBUG"}, kOne,          0},
      {{"WARNING", "INFO"},  kTwo + kThree, 0},
      {{"info"},             kTwo,          0},
      {{"LOOP"},             "",            2},
      {{"EVENT"},            "",            2},
      {{""},                 "",            2},
  };
  for (const auto& [names, expected, status] : rows) {
    SCOPED_TRACE(names[0]);
    Words arguments = {dir.file("x")};
    for (const std::string& name : names) arguments.insert(arguments.end(), {"--category", name});
    const Outcome got = nas_log(arguments);
    EXPECT_EQ(expected, got.out);
    EXPECT_EQ(status, got.status);
  }
}

TEST_F(NasLog, FiltersByTime) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  const std::pair<Words, std::string> rows[] = {
      {{"--since", "2007-03-01"},                                   kTwo + kThree + kFour       },
      {{"--since", "2007-03-01T14:05:09"},                          kThree + kFour              },
      {{"--since", "2007-03-01T14:05:10"},                          kFour                       },
      {{"--since", "2007-03-01T14:05"},                             kThree + kFour              },
      {{"--until", "2007-02-28"},                                   kOne                        },
      {{"--until", "2007-03-01T00:00:00"},                          kOne + kTwo                 },
      {{"--until", "2007-03-01T14:05"},                             kOne + kTwo + kThree        },
      {{"--until", "2007-03-01"},                                   kOne + kTwo + kThree + kFour},
      {{"--until", "2007-02-27"},                                   ""                          },
      {{"--since", "2007-03-01", "--until", "2007-03-01T14:05:08"}, kTwo                        },
  };
  for (const auto& [bounds, expected] : rows) {
    SCOPED_TRACE(bounds[0] + " " + bounds[1]);
    Words arguments = bounds;
    arguments.push_back(dir.file("x"));
    EXPECT_EQ(expected, nas_log(arguments).out);
  }
}

TEST_F(NasLog, FiltersByText) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  const std::pair<Words, std::string> rows[] = {
      {{"--grep", "load"},                          kTwo + kThree        },
      {{"--grep", "SuperLoop::add"},                kOne                 },
      {{"--grep", "(up)"},                          kFour                },
      {{"--grep", "load ."},                        ""                   },
      {{"--grep", "0x10", "--grep", "eth0"},        kOne + kFour         },
      {{"--regex", "load [0-9]"},                   kTwo + kThree        },
      {{"--regex", "^WARNING: "},                   kThree               },
      {{"--regex", "\\(\\)$"},                      kTwo + kThree + kFour},
      {{"--regex", "^INFO", "--grep", "eth0"},      kTwo + kFour         },
      {{"--grep", "load", "--category", "WARNING"}, kThree               },
      {{"--grep", "load", "--since", "2007-03-02"}, ""                   },
  };
  for (const auto& [options, expected] : rows) {
    SCOPED_TRACE(options[1]);
    Words arguments = options;
    arguments.push_back(dir.file("x"));
    EXPECT_EQ(expected, nas_log(arguments).out);
  }
}

TEST_F(NasLog, SearchesBehindNulBytes) {
  const std::string odd = entry("01:00:00", std::string("INFO: a\0b", 9));
  dir.write("x", odd);
  EXPECT_EQ(odd, nas_log({dir.file("x"), "--grep", "b"}).out);
  EXPECT_EQ(odd, nas_log({dir.file("x"), "--regex", "b$"}).out);
}

// ---- damage ----

TEST_F(NasLog, ShowsAndReportsDamage) {
  const std::string file = dir.file("x");
  const std::string early = "2007-03-01T01:00:00 void";
  const std::string good = entry("02:00:00", "INFO: good");
  const std::string late = good + "2007-03-01T03:00:00 void";
  const char* const cut = "entry is cut off";
  const char* const none = "not a log entry";
  const std::tuple<std::string, std::string, int, std::string> rows[] = {
      {"garbage\nmore\n",                         good, 1, none},
      {late,                                      "",   3, cut },
      {late + " f()\n",                           "",   3, cut },
      {late + " f()\nINF",                        "",   3, cut },
      {late + " f()\nINFO: a",                    "",   3, cut },
      {early + " f()\n",                          good, 1, cut },
      {early,                                     good, 1, cut },
      {early + " f()\nDEB",                       good, 1, cut },
      {late + " f()\nINFO: a\nb",                 good, 3, cut },
      {"2007-03-0",                               good, 1, none},
      {"2007-13-01T01:00:00 void f()\nINFO: a\n", "",   1, none},
      {"\n",                                      "",   1, none},
  };
  for (const auto& [damaged, rest, line, fault] : rows) {
    SCOPED_TRACE(damaged);
    dir.write("x", damaged + rest);
    const std::string line_feed = damaged.back() == '\n' ? "" : "\n";
    EXPECT_EQ(ended(1, damaged + line_feed + rest,
                    "nas-log: " + file + ":" + std::to_string(line) + ": " + fault + "\n"),
              nas_log({file}));
  }
}

TEST_F(NasLog, FindsTheEntryBehindABlockOfNulBytes) {
  const std::string nul(5000, '\0');
  dir.write("x", entry("01:00:00", "INFO: a") + nul + entry("02:00:00", "WARNING: b"));
  EXPECT_EQ(ended(1, entry("02:00:00", "WARNING: b"),
                  "nas-log: " + dir.file("x") + ":1: entry is cut off\n"),
            nas_log({dir.file("x"), "--since", "2007-03-01T02:00"}));
}

TEST_F(NasLog, NamesTheRotatedFileThatIsDamaged) {
  dir.write("x", kTwo);
  dir.write("x.0", kOne + "2007-03-01T00:00:00 cut");
  EXPECT_EQ("nas-log: " + dir.file("x.0") + ":3: entry is cut off\n", nas_log({dir.file("x")}).err);
}

TEST_F(NasLog, CountsDamageAsOfEveryCategory) {
  dir.write("x", "garbage\n" + kTwo);
  EXPECT_EQ(ended(1, "garbage\n", "nas-log: " + dir.file("x") + ":1: not a log entry\n"),
            nas_log({dir.file("x"), "--category", "WARNING"}));
}

TEST_F(NasLog, ReportsDamageThatItDoesNotShow) {
  dir.write("x", kOne + "2007-03-01T00:00:00 cut");
  EXPECT_EQ(ended(1, kOne, "nas-log: " + dir.file("x") + ":3: entry is cut off\n"),
            nas_log({dir.file("x"), "--until", "2007-02-28"}));
}

TEST_F(NasLog, KeepsEveryByte) {
  std::string message = "INFO: ";
  for (int byte = 0; byte < 256; ++byte) message += static_cast<char>(byte);
  dir.write("x", entry("01:00:00", message));
  EXPECT_EQ(ended(0, entry("01:00:00", message)), nas_log({dir.file("x")}));
}

// Pieces of entries and other bytes in any order; line ends are added where an entry is cut off.
TEST_F(NasLog, LosesNothingOfAnyFile) {
  const Words pieces = {"2007-03-01T14:05:09 void f()\n",
                        "2007-03-01T14:05:09 ",
                        "INFO: text\n",
                        "INFO: ",
                        "\n",
                        "rotating log file\n",
                        "T",
                        "2007-03-01",
                        std::string("\0\xFF\r", 3),
                        "2007-13-01T14:05:09 x\n",
                        "text "};
  const auto without_line_ends = [](std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
  };
  std::minstd_rand random(1);
  for (int sample = 0; sample < 300; ++sample) {
    std::string text;
    for (auto count = random() % 30; count > 0; --count) text += pieces[random() % pieces.size()];
    text += "end\n";
    SCOPED_TRACE(text);
    dir.write("x", text);
    const Outcome got = nas_log({dir.file("x")});
    EXPECT_EQ(without_line_ends(text), without_line_ends(got.out));
    EXPECT_EQ(got.err.empty() ? 0 : 1, got.status);
  }
}

TEST_F(NasLog, KeepsLongLinesWhole) {
  for (const size_t size : {65535U, 65536U, 65537U, 3000000U}) {
    SCOPED_TRACE(size);
    const std::string text = "2007-03-01T01:00:00 " + std::string(size, 'w') +
                             "\nINFO: " + std::string(size, 'm') + "\n" + kTwo;
    dir.write("x", text);
    const Outcome got = nas_log({dir.file("x")});
    EXPECT_TRUE(text == got.out);
    EXPECT_EQ(0, got.status);
  }
}

TEST_F(NasLog, ShowsAnEndlessLineInParts) {
  const std::string line(40000000, 'x');
  dir.write("x", entry("01:00:00", "INFO: a") + line + "\n");
  const Outcome got = nas_log({dir.file("x")});
  std::string out = got.out;
  out.erase(std::remove(out.begin(), out.end(), '\n'), out.end());
  EXPECT_TRUE("2007-03-01T01:00:00 void work()INFO: a" + line == out);
  EXPECT_EQ("nas-log: " + dir.file("x") + ":1: entry is cut off\n",
            got.err.substr(0, got.err.find('\n') + 1));
  EXPECT_EQ(1, got.status);
}

TEST_F(NasLog, NeedsNoMoreMemoryForALargerLog) {
  setenv("ASAN_OPTIONS", "quarantine_size_mb=1", 1);  // else it keeps what was freed
  std::string part;
  for (int i = 0; i < 10000; ++i) part += entry("01:00:00", "INFO: an entry of a usual size");
  dir.write("small", part);
  dir.write("large", "");
  for (size_t size = 0; size < (size_t{64} << 20); size += part.size()) append(dir, "large", part);
  const Outcome small = nas_log({dir.file("small")}, "", "/dev/null");
  const Outcome large = nas_log({dir.file("large")}, "", "/dev/null");
  EXPECT_EQ(0, large.status);
  EXPECT_LT(large.peak, small.peak + (4 << 10));
}

// ---- what cannot be read or written ----

TEST_F(NasLog, ReportsAMissingFileAndGoesOn) {
  dir.write("x", kOne);
  EXPECT_EQ(ended(1, kOne, "nas-log: " + dir.file("none") + ": No such file or directory\n"),
            nas_log({dir.file("none"), dir.file("x")}));
}

TEST_F(NasLog, ReportsAFolder) {
  EXPECT_EQ(ended(1, "", "nas-log: " + dir.path() + ": Is a directory\n"), nas_log({dir.path()}));
}

TEST_F(NasLog, ReportsAFullDisk) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += kOne;
  for (const std::string& log : {kOne, text}) {
    dir.write("x", log);
    EXPECT_EQ(ended(1, "", "nas-log: standard output: No space left on device\n"),
              nas_log({dir.file("x")}, "", "/dev/full"));
  }
}

TEST_F(NasLog, ReportsAFullDiskForItsTextsToo) {
  for (const char* option : {"--help", "--version"}) {
    EXPECT_EQ(1, nas_log({option}, "", "/dev/full").status);
  }
}

TEST_F(NasLog, ReportsAnOutputThatIsClosed) {
  EXPECT_EQ(ended(1, "", "nas-log: standard output: Bad file descriptor\n"),
            support::run({"/bin/sh", "-c", std::string("exec '") + TOOL + "' --help >&-"}));
}

TEST_F(NasLog, StopsFollowingWhenTheDiskIsFull) {
  dir.write("x", kOne + kTwo);
  EXPECT_EQ(ended(1, "", "nas-log: standard output: No space left on device\n"),
            nas_log({"--follow", dir.file("x")}, "", "/dev/full"));
}

// ---- terminals ----

TEST_F(NasLog, UsesColoursOnATerminal) {
  dir.write("x", kTwo + kThree);
  unsetenv("NO_COLOR");
  setenv("TERM", "xterm", 1);
  EXPECT_EQ(
      "\033[2m2007-03-01T00:00:00 void sample()\033[0m\r\n\033[1mINFO\033[0m: load 0.5\r\n"
      "\033[2m2007-03-01T14:05:09 void sample()\033[0m\r\n\033[1;33mWARNING\033[0m: load 9.5\r\n",
      nas_log_on_terminal({dir.file("x")}).out);
}

TEST_F(NasLog, UsesNoColoursWhereTheyAreRefused) {
  dir.write("x", kTwo);
  const std::string plain = "2007-03-01T00:00:00 void sample()\r\nINFO: load 0.5\r\n";
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(plain, nas_log_on_terminal({dir.file("x")}).out);
  setenv("NO_COLOR", "", 1);
  setenv("TERM", "dumb", 1);
  EXPECT_EQ(plain, nas_log_on_terminal({dir.file("x")}).out);
  unsetenv("NO_COLOR");
  unsetenv("TERM");
}

TEST_F(NasLog, EscapesForATerminalOnly) {
  const std::string nul_and_delete("\0\x7F", 2);
  const std::pair<std::string, std::string> rows[] = {
      {"\033[31mred\a",                           "\\x1B[31mred\\x07"                      },
      {nul_and_delete,                            "\\x00\\x7F"                             },
      {"a\tb\nc",                                 "a\tb\r\nc"                              },
      {"a\rb",                                    "a\\x0Db"                                },
      {"gr\xC3\xBC\xE2\x82\xAC \xF0\x9F\x98\x80", "gr\xC3\xBC\xE2\x82\xAC \xF0\x9F\x98\x80"},
      {"\x9B\xC2\x9B",                            "\\x9B\\xC2\\x9B"                        },
      {"\xC0\xAF\xE0\x80\xAF",                    "\\xC0\\xAF\\xE0\\x80\\xAF"              },
      {"\xED\xA0\x80\xFF",                        "\\xED\\xA0\\x80\\xFF"                   },
      {"\xE2\x82",                                "\\xE2\\x82"                             },
  };
  setenv("NO_COLOR", "1", 1);
  for (const auto& [message, shown] : rows) {
    SCOPED_TRACE(shown);
    const std::string text = entry("01:00:00", "INFO: " + message);
    dir.write("x", text);
    EXPECT_EQ("2007-03-01T01:00:00 void work()\r\nINFO: " + shown + "\r\n",
              nas_log_on_terminal({dir.file("x")}).out);
    EXPECT_EQ(text, nas_log({dir.file("x")}).out);
  }
  unsetenv("NO_COLOR");
}

// ---- use ----

TEST_F(NasLog, RefusesWrongUse) {
  const std::pair<Words, std::string> rows[] = {
      {{},                                "nas-log: no FILE is named\n"                          },
      {{"--since", "tomorrow", "x"},
       "nas-log: 'tomorrow' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, "
       "-90m\n"                                                                                  },
      {{"--since", "2007-13-01", "x"},
       "nas-log: '2007-13-01' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, "
       "-90m\n"                                                                                  },
      {{"--since", "2008-02-30", "x"},
       "nas-log: '2008-02-30' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, "
       "-90m\n"                                                                                  },
      {{"--since", "-1y", "x"},
       "nas-log: '-1y' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, -90m\n"  },
      {{"--since", "24:00", "x"},
       "nas-log: '24:00' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, -90m\n"},
      {{"--until", "2007-03-01T14", "x"},
       "nas-log: '2007-03-01T14' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, "
       "-90m\n"                                                                                  },
      {{"--until", "", "x"},
       "nas-log: '' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, -90m\n"     },
      {{"-n", "many", "x"},               "nas-log: 'many' is not a number of entries\n"         },
      {{"-f", "--categories", "x"},       "nas-log: a log that grows cannot be counted\n"        },
      {{"--regex", "(", "x"},             "nas-log: '(': Unmatched ( or \\(\n"                   },
      {{"--follow", "-"},                 "nas-log: standard input cannot be followed\n"         },
      {{"--color", "x"},                  "nas-log: '--color' is not an option\n"                },
      {{"x", "--grep"},                   "nas-log: '--grep' needs an argument\n"                },
  };
  for (const auto& [arguments, message] : rows) {
    SCOPED_TRACE(message);
    EXPECT_EQ(ended(2, "", message + "Try 'nas-log --help'.\n"), nas_log(arguments));
  }
}

TEST_F(NasLog, ShowsItsVersion) {
  EXPECT_EQ(ended(0, "nas-log (nasutil) " NASUTIL_VERSION "\n"), nas_log({"--version"}));
}

TEST_F(NasLog, ShowsHelp) {
  const Outcome got = nas_log({"--help"});
  EXPECT_EQ("usage: nas-log [OPTION]... FILE...\n", got.out.substr(0, got.out.find('\n') + 1));
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST_F(NasLog, HelpAndManualNameEveryOption) {
  const std::string help = nas_log({"--help"}).out;
  const std::string manual = support::read_file(MANUAL);
  for (const char* option :
       {"category", "exclude", "since", "until", "grep", "regex", "last", "follow", "oneline",
        "json", "categories", "no-pager", "help", "version"}) {
    EXPECT_NE(std::string::npos, help.find("--" + std::string(option))) << option;
    EXPECT_NE(std::string::npos, manual.find("Fl -" + std::string(option))) << option;
  }
}

// ---- following ----

TEST_F(NasLogFollow, ShowsWhatIsAppended) {
  dir.write("x", kOne);
  Child child(command({"--follow", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  append(dir, "x", kTwo + kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(ended(0, kOne + kTwo + kThree), child.end());
}

TEST_F(NasLogFollow, EndsOnInterruptToo) {
  dir.write("x", kOne);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  child.signal(SIGINT);
  EXPECT_EQ(0, child.wait().status);
}

TEST_F(NasLogFollow, WaitsForTheRestOfAnEntry) {
  dir.write("x", "");
  Child child(command({"-f", dir.file("x")}));
  append(dir, "x", kOne + kTwo.substr(0, 22));
  ASSERT_TRUE(child.out_ends_with(kOne));
  append(dir, "x", kTwo.substr(22, 15));
  append(dir, "x", kTwo.substr(37));
  ASSERT_TRUE(child.out_ends_with(kTwo));
  EXPECT_EQ(ended(0, kOne + kTwo), child.end());
}

TEST_F(NasLogFollow, ShowsALateRestOfAMessage) {
  dir.write("x", entry("01:00:00", "INFO: a"));
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with("INFO: a\n"));
  append(dir, "x", "b\n" + entry("02:00:00", "INFO: c"));
  ASSERT_TRUE(child.out_ends_with("INFO: c\n"));
  EXPECT_EQ(ended(0, entry("01:00:00", "INFO: a\nb") + entry("02:00:00", "INFO: c")), child.end());
}

TEST_F(NasLogFollow, ShowsWhatIsUnfinishedWhenItEnds) {
  dir.write("x", kOne + "2007-03-01T00:00:00 vo");
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  EXPECT_EQ(ended(0, kOne + "2007-03-01T00:00:00 vo\n"), child.end());
}

TEST_F(NasLogFollow, GoesOnInTheNewFile) {
  dir.write("x", kOne);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  append(dir, "x", kTwo);
  rotate(dir, "x", 3, kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  append(dir, "x", kFour);
  ASSERT_TRUE(child.out_ends_with(kFour));
  EXPECT_EQ(ended(0, kOne + kTwo + kThree + kFour), child.end());
}

TEST_F(NasLogFollow, ReadsAllFilesOfSeveralRotations) {
  dir.write("x.0", entry("00:30:00", "INFO: old") + kNotice);
  dir.write("x", entry("01:00:00", "INFO: 1"));
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with("INFO: 1\n"));
  child.pause();
  append(dir, "x", entry("02:00:00", "INFO: 2"));
  rotate(dir, "x", 9, entry("03:00:00", "INFO: 3"));
  rotate(dir, "x", 9, entry("04:00:00", "INFO: 4"));
  rotate(dir, "x", 9, entry("05:00:00", "INFO: 5"));
  child.resume();
  ASSERT_TRUE(child.out_ends_with("INFO: 5\n"));
  EXPECT_EQ(entry("00:30:00", "INFO: old") + entry("01:00:00", "INFO: 1") +
                entry("02:00:00", "INFO: 2") + entry("03:00:00", "INFO: 3") +
                entry("04:00:00", "INFO: 4") + entry("05:00:00", "INFO: 5"),
            child.end().out);
}

TEST_F(NasLogFollow, ReadsItsFileToTheEndAfterItWasDeleted) {
  dir.write("x", entry("01:00:00", "INFO: 1"));
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with("INFO: 1\n"));
  child.pause();
  append(dir, "x", entry("02:00:00", "INFO: 2"));
  for (int i = 3; i < 7; ++i) {
    rotate(dir, "x", 2, entry("0" + std::to_string(i) + ":00:00", "INFO: " + std::to_string(i)));
  }
  child.resume();
  ASSERT_TRUE(child.out_ends_with("INFO: 6\n"));
  EXPECT_EQ(entry("01:00:00", "INFO: 1") + entry("02:00:00", "INFO: 2") +
                entry("04:00:00", "INFO: 4") + entry("05:00:00", "INFO: 5") +
                entry("06:00:00", "INFO: 6"),
            child.end().out);
}

TEST_F(NasLogFollow, DoesNotRepeatOldFilesWhenTheLogIsDeleted) {
  dir.write("x.1", entry("01:00:00", "INFO: 1") + kNotice);
  dir.write("x.0", entry("02:00:00", "INFO: 2") + kNotice);
  dir.write("x", entry("03:00:00", "INFO: 3"));
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with("INFO: 3\n"));
  child.pause();
  unlink(dir.file("x").c_str());
  dir.write("x", entry("04:00:00", "INFO: 4"));
  child.resume();
  ASSERT_TRUE(child.out_ends_with("INFO: 4\n"));
  EXPECT_EQ(entry("01:00:00", "INFO: 1") + entry("02:00:00", "INFO: 2") +
                entry("03:00:00", "INFO: 3") + entry("04:00:00", "INFO: 4"),
            child.end().out);
}

TEST_F(NasLogFollow, GoesOnInAFileThatWasEmptied) {
  dir.write("x", kOne + kTwo);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kTwo));
  dir.write("x", kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(ended(0, kOne + kTwo + kThree), child.end());
}

TEST_F(NasLogFollow, NoticesAnEmptiedFileThatHasOutgrownTheOldOne) {
  dir.write("x", kTwo);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kTwo));
  child.pause();
  dir.write("x", kThree + kFour + kThree + kFour);
  child.resume();
  ASSERT_TRUE(child.out_ends_with(kThree + kFour + kThree + kFour));
  EXPECT_EQ(ended(0, kTwo + kThree + kFour + kThree + kFour), child.end());
}

TEST_F(NasLogFollow, WaitsWhileTheLogIsMissing) {
  dir.write("x", kOne);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  rename(dir.file("x").c_str(), dir.file("x.0").c_str());
  append(dir, "x.0", kTwo);
  ASSERT_TRUE(child.out_ends_with(kTwo));
  dir.write("x", kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(ended(0, kOne + kTwo + kThree), child.end());
}

TEST_F(NasLogFollow, FollowsSeveralLogs) {
  dir.write("x", kOne);
  dir.write("y", kTwo);
  Child child(command({"-f", dir.file("x"), dir.file("y")}));
  ASSERT_TRUE(child.out_ends_with(kTwo));
  append(dir, "y", kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  append(dir, "x", kFour);
  ASSERT_TRUE(child.out_ends_with(kFour));
  EXPECT_EQ(kOne + kTwo + kThree + kFour, child.end().out);
}

TEST_F(NasLogFollow, Filters) {
  dir.write("x", kOne + kTwo);
  Child child(command({"-f", "--category", "DEBUG", "--category", "WARNING", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  append(dir, "x", kThree + kFour);
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(kOne + kThree, child.end().out);
}

TEST_F(NasLogFollow, ReportsDamageAsItAppears) {
  dir.write("x", kOne);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  append(dir, "x", "2007-03-01T00:00:00 cu" + kThree);
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(ended(1, kOne + "2007-03-01T00:00:00 cu\n" + kThree,
                  "nas-log: " + dir.file("x") + ":3: entry is cut off\n"),
            child.end());
}

// What the library writes, faster than the follower looks.
TEST_F(NasLogFollow, KeepsUpWithARotatingPublisher) {
  util::category info("INFO");
  util::logger* const log = util::logger::getLogger("NasLogFollow");
  log->enable(info);
  log->setUseParentPublisher(false);
  log->auto_flush(true);
  log->setPublisher(new util::rolling_file_publisher(dir.file("x").c_str(), 5000, 100));
  log->logp(info, "void start()", "", 0, "first");
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with("first\n"));
  for (int i = 1; i < 5000; ++i) log->logp(info, "void work()", "", 0, "entry\n%d", i);
  ASSERT_TRUE(child.out_ends_with("INFO: entry\n4999\n"));
  const Outcome got = child.end();
  log->setPublisher(nullptr);
  int expected = 1;
  for (size_t at = got.out.find("entry\n"); at != got.out.npos;
       at = got.out.find("entry\n", at + 1)) {
    ASSERT_EQ(expected++, std::stoi(got.out.substr(at + 6)));
  }
  EXPECT_EQ(5000, expected);
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
  EXPECT_TRUE(dir.exists("x.20"));  // it was rotated meanwhile
}

TEST_F(NasLogFollow, WaitsForALogThatIsNotThereYet) {
  Child child(command({"-f", dir.file("x")}));
  while (child.err().find("waiting") == std::string::npos) usleep(1000);
  dir.write("x", kOne);
  ASSERT_TRUE(child.out_ends_with(kOne));
  EXPECT_EQ(
      ended(0, kOne, "nas-log: " + dir.file("x") + ": No such file or directory; waiting for it\n"),
      child.end());
}

TEST_F(NasLogFollow, BeginsWithTheLastEntries) {
  dir.write("x", kOne + kTwo + kThree + kFour);  // the last one may still grow
  Child child(command({"-f", "-n", "2", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kFour));
  append(dir, "x", kTwo);
  ASSERT_TRUE(child.out_ends_with(kTwo));
  EXPECT_EQ(kTwo + kThree + kFour + kTwo, child.end().out);
}

// ---- compressed files ----

std::string compressed(const TempDir& dir, const std::string& name) {
  EXPECT_EQ(0, support::run({"/bin/sh", "-c", "exec gzip '" + dir.file(name) + "'"}).status);
  return dir.file(name + ".gz");
}

TEST_F(NasLog, ReadsCompressedOldFiles) {
  dir.write("x", kThree);
  dir.write("x.0", kTwo);
  dir.write("x.1", kOne);
  compressed(dir, "x.1");
  EXPECT_EQ(ended(0, kOne + kTwo + kThree), nas_log({dir.file("x"), dir.file("x.1.gz")}));
  EXPECT_EQ(kOne, nas_log({dir.file("x.1.gz")}).out);
}

TEST_F(NasLog, IgnoresACompressedFileBesideTheWholeOne) {
  dir.write("x", kThree);
  dir.write("x.1", kOne);
  dir.write("x.1.gz", "not yet complete");
  EXPECT_EQ(ended(0, kOne + kThree), nas_log({dir.file("x")}));
}

TEST_F(NasLog, ReportsACompressedFileThatIsDamaged) {
  dir.write("x", kThree);
  dir.write("x.0.gz", "damaged");
  const Outcome got = nas_log({dir.file("x")});
  EXPECT_EQ(kThree, got.out);
  EXPECT_NE(std::string::npos,
            got.err.find("nas-log: " + dir.file("x.0.gz") + ": gzip could not read all of it\n"))
      << got.err;
  EXPECT_EQ(1, got.status);
}

// Whatever gzip is at meanwhile.
TEST_F(NasLog, ReadsAllThatALogFileLeaves) {
  util::category info("INFO");
  util::logger* const log = util::logger::getLogger("NasLogOfALogFile");
  log->enable(info);
  log->setUseParentPublisher(false);
  service::LogFileOptions options;
  options.rotate_above = 2000;
  options.old_files = 100;
  options.compress = true;
  log->setPublisher(new service::LogFile(dir.file("x"), options));
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    log->logp(info, "void work()", "", 0, "entry %d of many", i);
    expected += "entry " + std::to_string(i) + " of many\n";
    if (i % 60 != 59) continue;
    std::string shown;
    std::istringstream lines(nas_log({"-1", dir.file("x")}).out);
    for (std::string line; std::getline(lines, line);) shown += line.substr(26) + "\n";
    EXPECT_EQ(expected, shown);
  }
  log->setPublisher(nullptr);
}

TEST_F(NasLog, ShowsTheLastEntryOfAProgramThatCrashed) {
  const pid_t program = fork();
  if (program == 0) {
    auto* const file = new service::LogFile(dir.file("x"));
    util::logger::rootLogger()->setPublisher(file);
    util::logger::rootLogger()->enable(util::WARNING);
    const service::CrashEntry crash(*file);
    UTIL_LOG(util::logger::rootLogger(), util::WARNING, "before");
    raise(SIGBUS);
    _exit(0);
  }
  waitpid(program, nullptr, 0);
  const std::string id = std::to_string(program);
  const Outcome got = nas_log({"-1", dir.file("x")});
  EXPECT_THAT(got.out, testing::ContainsRegex("WARNING: before\n[-:T0-9]* WARNING: process " + id +
                                              " got SIGBUS, after nas_log_test.cc:[0-9]*\n$"));
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST_F(NasLogFollow, DoesNotRepeatWhatWasCompressedMeanwhile) {
  dir.write("x", kOne);
  Child child(command({"-f", dir.file("x")}));
  ASSERT_TRUE(child.out_ends_with(kOne));
  child.pause();
  rotate(dir, "x", 3, kTwo);
  rotate(dir, "x", 3, kThree);
  compressed(dir, "x.1");
  child.resume();
  ASSERT_TRUE(child.out_ends_with(kThree));
  EXPECT_EQ(ended(0, kOne + kTwo + kThree), child.end());
}

// ---- what is selected, and how it is shown ----

TEST_F(NasLog, ShowsTheLastEntries) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  EXPECT_EQ(kThree + kFour, nas_log({"-n", "2", dir.file("x")}).out);
  EXPECT_EQ(kTwo, nas_log({"-n", "1", "--grep", "0.5", dir.file("x")}).out);
  EXPECT_EQ(kOne + kTwo + kThree + kFour, nas_log({"--last", "9", dir.file("x")}).out);
  EXPECT_EQ("", nas_log({"-n0", dir.file("x")}).out);
}

TEST_F(NasLog, LeavesOutACategory) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  EXPECT_EQ(kTwo + kThree, nas_log({"--exclude", "event loop", dir.file("x")}).out);
  EXPECT_EQ(kFour, nas_log({"--category", "Event Loop", "--exclude", "DEBUG", dir.file("x")}).out);
}

TEST_F(NasLog, NamesTheCategoriesForOneThatIsUnknown) {
  dir.write("x", kOne + kTwo);
  for (const char* option : {"--category", "--exclude"}) {
    const Outcome got = nas_log({option, "WARNUNG", dir.file("x")});
    EXPECT_EQ(
        "nas-log: no entry is of category 'WARNUNG'; there are: DEBUG, EVENT LOOP, INFO\n"
        "Try 'nas-log --help'.\n",
        got.err);
    EXPECT_EQ(2, got.status);
  }
  EXPECT_EQ(0, nas_log({"--category", "WARNING", dir.file("x")}).status);  // the library's own
  dir.write("empty", "");
  EXPECT_EQ(0, nas_log({"--category", "NET", dir.file("empty")}).status);
}

TEST_F(NasLog, ListsTheCategories) {
  dir.write("x", kOne + kTwo + kThree + kFour);
  EXPECT_EQ("       1  DEBUG\n       2  EVENT LOOP\n       1  INFO\n       1  WARNING\n",
            nas_log({"--categories", dir.file("x")}).out);
}

TEST_F(NasLog, ShowsOneLineAnEntry) {
  dir.write("x", kOne + entry("01:00:00", "INFO: two\nlines") + "2007-03-01T02:00:00 cut");
  EXPECT_EQ(ended(1,
                  "2007-02-28T23:59:59 EVENT LOOP|DEBUG: add event loop 0x10\n"
                  "2007-03-01T01:00:00 INFO: two\\nlines\n"
                  "2007-03-01T02:00:00 2007-03-01T02:00:00 cut\n",
                  "nas-log: " + dir.file("x") + ":6: entry is cut off\n"),
            nas_log({"-1", dir.file("x")}));
}

TEST_F(NasLog, ShowsOneObjectALine) {
  dir.write("x", "cut\n" + entry("01:00:00", "INFO: \"two\"\nlines\xFF"));
  const Outcome got =
      support::run({"/bin/sh", "-c",
                    "'" TOOL "' --json '" + dir.file("x") +
                        "' 2>/dev/null | python3 -c '"
                        "import json, sys\n"
                        "for line in sys.stdin: print(sorted(json.loads(line).items()))'"});
  EXPECT_EQ("[('category', ''), ('fault', '" + dir.file("x") +
                ":1: not a log entry'), ('message', 'cut'), ('time', ''), ('where', '')]\n"
                "[('category', 'INFO'), ('message', '\"two\"\\nlines\xEF\xBF\xBD'), "
                "('time', '2007-03-01T01:00:00'), ('where', 'void work()')]\n",
            got.out)
      << got.err;
}

// An entry of now, give or take `seconds`.
std::string entry_at(time_t seconds) {
  const time_t at = time(nullptr) + seconds;
  tm local = {};
  char text[32];
  strftime(text, sizeof text, "%FT%T", localtime_r(&at, &local));
  return std::string(text) + " void now()\nINFO: " + std::to_string(seconds) + "\n";
}

TEST_F(NasLog, TakesTimesBesideThePresent) {
  const std::string old = entry_at(-3 * 86400);
  const std::string young = entry_at(-60);
  dir.write("x", old + young);
  for (const char* since : {"-1h", "-100m", "-3000s", "-2d"}) {
    EXPECT_EQ(young, nas_log({"--since", since, dir.file("x")}).out) << since;
  }
  EXPECT_EQ(old + young, nas_log({"--since", "-4d", dir.file("x")}).out);
  EXPECT_EQ(old, nas_log({"--until", "-1h", dir.file("x")}).out);
  const std::string now = entry_at(0);
  dir.write("x", old + now);
  EXPECT_EQ(now, nas_log({"--since", "today", dir.file("x")}).out);
  EXPECT_EQ(now, nas_log({"--since", now.substr(11, 5), dir.file("x")}).out);
  EXPECT_EQ(now,
            nas_log({"--since", now.substr(0, 10) + " " + now.substr(11, 8), dir.file("x")}).out);
  EXPECT_EQ(old + now, nas_log({"--until", "today", dir.file("x")}).out);
}

TEST_F(NasLog, ShowsATerminalPageByPage) {
  dir.write("x", kTwo);
  setenv("NO_COLOR", "1", 1);
  setenv("PAGER", "sed 's/^/> /'", 1);
  EXPECT_EQ("> 2007-03-01T00:00:00 void sample()\r\n> INFO: load 0.5\r\n",
            support::run_on_terminal(command({dir.file("x")})).out);
  EXPECT_EQ("2007-03-01T00:00:00 void sample()\r\nINFO: load 0.5\r\n",
            support::run_on_terminal(command({"--no-pager", dir.file("x")})).out);
  EXPECT_EQ(kTwo, nas_log({dir.file("x")}).out);
  unsetenv("PAGER");
  unsetenv("NO_COLOR");
}

TEST_F(NasLog, RefusesAFifo) {
  EXPECT_EQ(
      ended(1, "", "nas-log: " + dir.file("x") + ": is a FIFO, not a file\n"),
      support::run({"/bin/sh", "-c",
                    "mkfifo '" + dir.file("x") + "'; exec '" TOOL "' '" + dir.file("x") + "'"}));
}

TEST_F(NasLog, DoesNotWaitForAFifoInThePlaceOfAnOldFile) {
  dir.write("x", kOne);
  EXPECT_EQ(ended(0, kOne), support::run({"/bin/sh", "-c",
                                          "mkfifo '" + dir.file("x.0") + "'; exec '" TOOL "' '" +
                                              dir.file("x") + "'"}));
}
