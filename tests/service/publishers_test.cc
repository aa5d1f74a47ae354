// SPDX-License-Identifier: MIT
#include "service/publishers.h"

#include "service/LogFile.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/work.h"
#include "util/logger.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using service::FunctionPublisher;
using service::LogFile;
using service::LogMessage;
using service::RecentEntries;
using service::RepeatLimit;
using service::SystemLog;
using service::Tee;
using service::VisibleText;
using support::FrozenClock;
using support::publish;
using support::SyslogCapture;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

util::category NET("NET");

__attribute__((format(printf, 4, 5))) int publish_as(util::publisher& to, util::category& c,
                                                     const char* where, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int size = to.publish(c, where, format, args);
  va_end(args);
  return size;
}

class Publishers : public testing::Test {
 protected:
  // The newest entries as "<category>: <message>".
  Lines lines() const {
    Lines all;
    for (const LogMessage& entry : recent->entries()) {
      all.push_back(entry.category + ": " + entry.message);
    }
    return all;
  }

  FrozenClock clock{"2007-03-01T14:05:09"};
  const std::shared_ptr<RecentEntries> recent = std::make_shared<RecentEntries>(100);
};

}  // namespace

// ---- Tee ----

TEST_F(Publishers, TeeHandsEachEntryToBoth) {
  const support::TempDir dir;
  service::LogFileOptions options;
  options.buffered = true;
  Tee tee(std::make_shared<LogFile>(dir.file("x"), options), recent);
  EXPECT_EQ(44, publish_as(tee, util::INFO, "here", "%d of %s", 3, "clients"));
  EXPECT_EQ("", dir.read("x"));
  tee.flush();
  EXPECT_EQ("2007-03-01T14:05:09 here\nINFO: 3 of clients\n", dir.read("x"));
  EXPECT_EQ(Lines({"INFO: 3 of clients"}), lines());
}

TEST_F(Publishers, EndWithTheLoggerAndKeepWhatOthersHave) {
  util::logger* const log = util::logger::getLogger("publishers_test");
  log->enable(util::INFO);
  log->setUseParentPublisher(false);
  const support::TempDir dir;
  const int before = support::open_descriptors();
  log->setPublisher(
      new VisibleText(std::make_shared<Tee>(std::make_shared<LogFile>(dir.file("x")), recent)));
  UTIL_LOG_AS(log, util::INFO, "here", "a\nb");
  EXPECT_EQ(before + 1, support::open_descriptors());
  log->setPublisher(nullptr);
  EXPECT_EQ(before, support::open_descriptors());
  EXPECT_EQ(Lines({"INFO: a\\x0Ab"}), lines());
  EXPECT_EQ("2007-03-01T14:05:09 here\nINFO: a\\x0Ab\n", dir.read("x"));
}

// ---- SystemLog ----

TEST_F(Publishers, SystemLogSendsOneRecordOfThePriorityOfItsLevel) {
  const SyslogCapture capture;
  SystemLog log;
  util::category net_debug = NET && util::DEBUG;
  util::category* const categories[] = {&util::WARNING, &util::INFO, &util::DEBUG, &NET,
                                        &net_debug};
  for (util::category* const one : categories)
    publish_as(log, *one, "void f(int)", "%d clients", 3);
  EXPECT_THAT(
      capture.records(),
      ElementsAre("<4> WARNING: 3 clients (void f(int))", "<6> INFO: 3 clients (void f(int))",
                  "<7> DEBUG: 3 clients (void f(int))", "<6> NET: 3 clients (void f(int))",
                  "<7> NET|DEBUG: 3 clients (void f(int))"));
}

TEST_F(Publishers, SystemLogSplitsALongEntryBetweenCharactersAndCutsNothing) {
  const SyslogCapture capture;
  SystemLog log(64);
  std::string message;
  for (int i = 0; i < 20; ++i) message += "äöü%";
  publish_as(log, util::INFO, "here", "%s", message.c_str());
  std::string text;
  for (size_t i = 0; i < capture.records().size(); ++i) {
    const std::string& record = capture.records()[i];
    const std::string head = "<6> INFO [" + std::to_string(i + 1) + "/" +
                             std::to_string(capture.records().size()) + "]: ";
    ASSERT_EQ(head, record.substr(0, head.size()));
    EXPECT_GE(64U + 4, record.size());
    EXPECT_NE('\x80', record[head.size()] & '\xC0');
    text += record.substr(head.size());
  }
  EXPECT_EQ(message + " (here)", text);
}

TEST_F(Publishers, SystemLogSendsAMebibyteThatIsNotText) {
  const SyslogCapture capture;
  SystemLog log;
  const std::string message(1 << 20, '\xFF');
  publish_as(log, util::INFO, "here", "%s", message.c_str());
  size_t size = 0;
  for (const std::string& record : capture.records()) {
    EXPECT_GE(960U + 4, record.size());
    size += record.size() - record.find("]: ") - 3;
  }
  EXPECT_EQ(message.size() + 7, size);
}

// ---- RepeatLimit ----

TEST_F(Publishers, RepeatLimitHoldsBackFurtherEntriesOfOnePositionAndTellsHowMany) {
  RepeatLimit log(recent, 2, 60);
  for (int i = 0; i < 5; ++i) {
    publish_as(log, util::INFO, "accept", "client %d", i);
    publish_as(log, NET, "accept", "client %d", i);
    publish_as(log, util::INFO, "serve", "once %d", i % 1);
  }
  EXPECT_EQ(Lines({"INFO: client 0", "NET: client 0", "INFO: once 0", "INFO: client 1",
                   "NET: client 1", "INFO: once 0"}),
            lines());
  clock.advance(60000);
  publish_as(log, util::INFO, "other", "later");
  EXPECT_EQ(10U, lines().size());
  EXPECT_EQ("INFO: 3 more held back since 2007-03-01T14:05:09: client %d", lines()[6]);
  EXPECT_EQ("accept", recent->entries()[6].where);
  EXPECT_EQ("NET: 3 more held back since 2007-03-01T14:05:09: client %d", lines()[7]);
  EXPECT_EQ("INFO: 3 more held back since 2007-03-01T14:05:09: once %d", lines()[8]);
  EXPECT_EQ("INFO: later", lines()[9]);
}

TEST_F(Publishers, RepeatLimitLetsEntriesPassAgainAfterItsTime) {
  RepeatLimit log(recent, 1, 60);
  for (int i = 0; i < 4; ++i) {
    publish(log, "entry %d", i);
    clock.advance(30000);
  }
  log.flush();
  EXPECT_EQ(Lines({"INFO: entry 0", "INFO: 1 more held back since 2007-03-01T14:05:09: entry %d",
                   "INFO: entry 2", "INFO: 1 more held back since 2007-03-01T14:06:09: entry %d"}),
            lines());
}

TEST_F(Publishers, RepeatLimitTellsAtItsEndAndWhereTheClockGoesBack) {
  {
    RepeatLimit log(recent, 1, 60);
    publish(log, "entry");
    publish(log, "entry");
    clock.advance(-3600000);
    publish(log, "entry");
    publish(log, "entry");
  }
  EXPECT_EQ(Lines({"INFO: entry", "INFO: 1 more held back since 2007-03-01T14:05:09: entry",
                   "INFO: entry", "INFO: 1 more held back since 2007-03-01T13:05:09: entry"}),
            lines());
}

TEST_F(Publishers, RepeatLimitHoldsNothingBackBeyondAThousandPositions) {
  RepeatLimit log(std::make_shared<RecentEntries>(0), 1, 60);
  for (int i = 0; i < 1000; ++i) publish_as(log, util::INFO, std::to_string(i).c_str(), "entry");
  EXPECT_EQ(0, publish_as(log, util::INFO, "7", "entry"));
  for (int i = 0; i < 3; ++i) EXPECT_LT(0, publish_as(log, util::INFO, "new", "entry"));
}

// ---- VisibleText ----

TEST_F(Publishers, VisibleTextShowsControlBytesAndWhatIsNotUtf8) {
  const std::pair<const char*, const char*> rows[] = {
      {"plain, \xC3\xA4, tab\t",          "plain, \xC3\xA4, tab\t"                },
      {"a\nb\r\x1B[31m\x7F\x01",          "a\\x0Ab\\x0D\\x1B[31m\\x7F\\x01"       },
      {"\x80 \xC0\xAF \xED\xA0\x80 \xC3", "\\x80 \\xC0\\xAF \\xED\\xA0\\x80 \\xC3"},
      {"\xC2\x9B"
       "31m \xC2\xA0",             "\\xC2\\x9B"
       "31m \xC2\xA0"                                },
      {"100 %d %s",                       "100 %d %s"                             },
  };
  VisibleText log(recent);
  for (const auto& [text, visible] : rows) {
    SCOPED_TRACE(visible);
    publish_as(log, util::INFO, text, "%s", text);
    EXPECT_EQ(visible, recent->entries().back().message);
    EXPECT_EQ(visible, recent->entries().back().where);
  }
}

// ---- RecentEntries ----

TEST_F(Publishers, RecentEntriesKeepsTheNewestAsValues) {
  RecentEntries log(2);
  for (int i = 0; i < 3; ++i) publish_as(log, NET, "here", "entry %d", i);
  const util::Value value = log.value();
  const util::value_array& all = value;
  ASSERT_EQ(2U, all.size());
  const util::value_struct& entry = all[1];
  EXPECT_EQ("entry 2", static_cast<const std::string&>(entry.at("message")));
  EXPECT_EQ("NET", static_cast<const std::string&>(entry.at("category")));
  EXPECT_EQ("here", static_cast<const std::string&>(entry.at("where")));
  EXPECT_EQ(1172757909000U, static_cast<util::utime_t>(entry.at("time")));
}

TEST_F(Publishers, RecentEntriesCutsWhatIsLong) {
  RecentEntries log(10);
  const std::string message = "x" + std::string(5000, '\xC3');
  std::string umlauts = "x";
  for (int i = 0; i < 5000; ++i) umlauts += "ä";
  publish_as(log, NET, umlauts.c_str(), "%s", message.c_str());
  EXPECT_EQ(4096U, log.entries()[0].message.size());
  EXPECT_EQ(umlauts.substr(0, 4093) + "...", log.entries()[0].where);
}

// ---- FunctionPublisher ----

TEST_F(Publishers, FunctionPublisherCallsItsFunctionButNotWithWhatThatLogs) {
  Lines seen;
  util::publisher* self = nullptr;
  FunctionPublisher log([&](const LogMessage& entry) {
    seen.push_back(entry.where + "|" + entry.category + "|" + entry.message);
    publish(*self, "from within");
  });
  self = &log;
  publish_as(log, NET, "here", "%s", std::string(2000, 'x').c_str());
  publish(log, "again");
  EXPECT_EQ(Lines({"here|NET|" + std::string(2000, 'x'), "here|INFO|again"}), seen);
}
