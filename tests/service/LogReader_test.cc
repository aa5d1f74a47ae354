// SPDX-License-Identifier: MIT
// Entries as pages show them. How a file is taken apart is tested with nas-log, which shows all.
#include "service/LogReader.h"

#include "tests/support/files.h"

#include <fcntl.h>

#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using service::LogEntry;
using service::LogReader;
using support::TempDir;

TEST(LogEntry, HasParts) {
  const TempDir dir;
  dir.write("x", "2007-03-01T14:05:01 void work(int)\nINFO: two: \nlines\n");
  LogReader reader("x", open(dir.file("x").c_str(), O_RDONLY));
  LogEntry got;
  ASSERT_FALSE(reader.next(got));
  ASSERT_TRUE(reader.rest(got));
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

TEST(LogReader, ThrowsOnceForWhatCannotBeRead) {
  const TempDir dir;
  LogReader reader("x.log", open(dir.path().c_str(), O_RDONLY));
  LogEntry got;
  EXPECT_THAT([&] { reader.next(got); },
              testing::ThrowsMessage<std::system_error>("x.log: Is a directory"));
  EXPECT_FALSE(reader.next(got));
  EXPECT_FALSE(reader.rest(got));
}
