// SPDX-License-Identifier: MIT
#include "service/Settings.h"

#include "service/FileLock.h"
#include "service/key_path.h"
#include "service/publishers.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

namespace {

using support::Fault;
using support::TempDir;

std::string list_of(int number) {
  return "<plist><dict><key>a</key><integer>" + std::to_string(number) +
         "</integer></dict></plist>";
}

const char* const kBroken = "<plist><dict>";

class SettingsTest : public testing::Test {
 protected:
  SettingsTest() {
    log_->setUseParentPublisher(false);
    log_->enable(util::WARNING);
    log_->setPublisher(new service::FunctionPublisher([this](const service::LogMessage& entry) {
      logged_ += entry.category + ": " + entry.message + "\n";
    }));
  }
  ~SettingsTest() override { log_->setPublisher(static_cast<util::console_publisher*>(nullptr)); }

  service::Settings opened() const { return service::Settings(file_, log_); }
  int a(const service::Settings& settings) const { return service::get(settings.list(), "a", -1); }
  int a_in_file() const {
    util::PropertyList list(file_);
    list.load();
    return service::get(list, "a", -1);
  }

  const TempDir dir_;
  const std::string file_ = dir_.file("p");
  util::logger* const log_ = util::logger::getLogger("settings");
  std::string logged_;
};

}  // namespace

TEST_F(SettingsTest, AreEmptyIfThereIsNoFileYet) {
  service::Settings settings = opened();
  EXPECT_EQ(-1, a(settings));
  settings.change("a", 1);
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ(1, a_in_file());
  EXPECT_EQ("", logged_);
}

TEST_F(SettingsTest, KeepWhatOthersChangeMeanwhile) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  dir_.write("p", list_of(2));
  EXPECT_EQ(1, a(settings));
  settings.change("network/mtu", 1500);
  EXPECT_EQ(2, a(settings));
  EXPECT_EQ(2, a_in_file());
  EXPECT_EQ(1500, service::get(settings.list(), "network/mtu", 0));
}

TEST_F(SettingsTest, TakeUpAChangedFileWhenTold) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  dir_.write("p", list_of(2));
  settings.reload();
  EXPECT_EQ(2, a(settings));
}

TEST_F(SettingsTest, GoOnWithTheBackupOfABrokenFile) {
  dir_.write("p", kBroken);
  dir_.write("p~", list_of(1));
  const service::Settings settings = opened();
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ(1, a_in_file());
  EXPECT_EQ(kBroken, dir_.read("p.replaced"));
  EXPECT_EQ(0U, logged_.find("WARNING: " + file_ + ": load failed: "));
  EXPECT_NE(std::string::npos, logged_.find("; going on with the backup\n"));
}

TEST_F(SettingsTest, GoOnWithTheBackupThoughTheDiskIsFull) {
  dir_.write("p", kBroken);
  dir_.write("p~", list_of(1));
  const Fault full("fsync", ENOSPC);
  const service::Settings settings = opened();
  EXPECT_EQ(1, a(settings));
  EXPECT_NE(std::string::npos,
            logged_.find("p: No space left on device; going on with the settings at hand\n"));
}

TEST_F(SettingsTest, StayAsTheyAreIfNothingCanBeLoaded) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  dir_.write("p", kBroken);
  settings.reload();
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ("WARNING: " + file_ + ": load failed; going on with the settings at hand\n", logged_);
  EXPECT_THROW(settings.change("a", 2), util::malformed_property_list);
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ(kBroken, dir_.read("p"));
}

TEST_F(SettingsTest, DoNotMakeABrokenFileTheBackup) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  dir_.write("p~", list_of(1));
  dir_.write("p", kBroken);
  settings.change("a", 2);
  EXPECT_EQ(2, a_in_file());
  EXPECT_EQ(list_of(1), dir_.read("p~"));
}

TEST_F(SettingsTest, StayAsTheyAreIfAChangeCannotBeSaved) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  const Fault full("fsync", ENOSPC);
  EXPECT_THROW(settings.change("a", 2), util::save_failed);
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ(1, a_in_file());
}

TEST_F(SettingsTest, RefuseAChangeWhileAnotherIsMadeForLong) {
  dir_.write("p", list_of(1));
  service::Settings settings = opened();
  const service::FileLock another(file_);
  EXPECT_THROW(settings.change("a", 2), service::LockFailed);
  EXPECT_EQ(1, a(settings));
  EXPECT_EQ(1, a_in_file());
}
