// SPDX-License-Identifier: MIT
// Entries as pages show them. How a file is taken apart is tested with nas-log, which shows all.
#include "service/LogReader.h"

#include "tests/support/files.h"

#include <fcntl.h>

#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using service::LogEntry;
using service::LogReader;
using support::TempDir;

namespace {

std::string entry(int number, const std::string& text) {
  return "2007-03-01T14:05:0" + std::to_string(number) + " void work(int)\nINFO: " + text + "\n";
}

std::vector<std::string> messages(const std::vector<LogEntry>& entries) {
  std::vector<std::string> texts;
  for (const LogEntry& one : entries) texts.push_back(one.message());
  return texts;
}

using Texts = std::vector<std::string>;

}  // namespace

TEST(LogEntry, HasParts) {
  const TempDir dir;
  dir.write("x", entry(1, "two: \nlines"));
  const LogEntry got = service::newest_log_entries(dir.file("x"), 1).at(0);
  EXPECT_EQ("2007-03-01T14:05:01", got.time);
  EXPECT_EQ("void work(int)", got.where());
  EXPECT_EQ("INFO", got.category);
  EXPECT_EQ("two: \nlines", got.message());
  EXPECT_EQ("", got.fault);
}

TEST(LogEntry, OfOtherTextHasAMessageOnly) {
  const LogEntry got = {"line: 1\n", "", "", ""};
  EXPECT_EQ("", got.where());
  EXPECT_EQ("line: 1", got.message());
}

TEST(NewestLogEntries, ComeFirstAndGoOnInTheRotatedFile) {
  const TempDir dir;
  dir.write("x.0", entry(1, "a") + entry(2, "b") + "rotating log file\n");
  dir.write("x", entry(3, "c"));
  EXPECT_EQ((Texts{"c", "b", "a"}), messages(service::newest_log_entries(dir.file("x"), 9)));
  EXPECT_EQ((Texts{"c", "b"}), messages(service::newest_log_entries(dir.file("x"), 2)));
}

TEST(NewestLogEntries, AreWhole) {
  const TempDir dir;
  dir.write("x", entry(1, std::string(70000, 'x')) + entry(2, "b"));
  EXPECT_EQ((Texts{"b"}), messages(service::newest_log_entries(dir.file("x"), 9)));
}

TEST(NewestLogEntries, AreNoneWhereThereIsNoLog) {
  EXPECT_TRUE(service::newest_log_entries("/nonexistent/x", 9).empty());
}

TEST(LogReader, ThrowsOnceForWhatCannotBeRead) {
  const TempDir dir;
  LogReader reader("x.log", open(dir.path().c_str(), O_RDONLY));
  LogEntry got;
  EXPECT_THAT([&] { reader.next(got); },
              testing::ThrowsMessage<std::system_error>("x.log: Is a directory"));
  EXPECT_FALSE(reader.next(got));
  EXPECT_FALSE(reader.rest(got));
}
