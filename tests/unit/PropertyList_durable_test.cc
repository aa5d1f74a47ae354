// SPDX-License-Identifier: MIT
// saveDurably(): the old list or the new one, whatever happens.
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/folder.h"
#include "tests/support/histories.h"
#include "tests/support/trees.h"
#include "util/PropertyList.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using namespace util;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

std::string failure(PropertyList& list) {
  try {
    list.saveDurably();
  } catch (const save_failed& e) {
    return e.what();
  }
  return "none";
}

value_struct reloaded(const std::string& file) {
  PropertyList list(file);
  list.load();
  return list.getProperties();
}

struct stat status_of(const std::string& file) {
  struct stat status = {};
  EXPECT_EQ(0, lstat(file.c_str(), &status)) << file;
  return status;
}

using SaveDurably = support::InFolder;

}  // namespace

TEST_F(SaveDurably, OnAFreshPathCreatesTheFileAlone) {
  list_of(dir.file("x"), 1).saveDurably();
  EXPECT_THAT(dir.list(), ElementsAre("x"));
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(SaveDurably, WritesWhatSaveWrites) {
  list_of(dir.file("x"), 1).saveDurably();
  list_of(dir.file("y"), 1).save();
  EXPECT_EQ(dir.read("y"), dir.read("x"));
}

TEST_F(SaveDurably, MakesThePreviousVersionTheBackup) {
  list_of(dir.file("x"), 1).saveDurably();
  list_of(dir.file("x"), 2).saveDurably();
  list_of(dir.file("x"), 3).saveDurably();
  EXPECT_THAT(dir.list(), ElementsAre("x", "x~"));
  EXPECT_EQ(3, loaded(dir.file("x")));
  ASSERT_EQ(0, unlink(dir.file("x").c_str()));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(SaveDurably, MakesTheBackupAFileOfItsOwn) {
  saved_twice(dir.file("x"));
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_THAT(dir.list(), ElementsAre("x", "x~"));
  EXPECT_EQ(1U, status_of(dir.file("x")).st_nlink);
  EXPECT_EQ(1U, status_of(dir.file("x~")).st_nlink);
  EXPECT_NE(status_of(dir.file("x")).st_ino, status_of(dir.file("x~")).st_ino);
}

TEST_F(SaveDurably, AndSaveTakeTurns) {
  list_of(dir.file("x"), 1).save();
  list_of(dir.file("x"), 2).saveDurably();
  list_of(dir.file("x"), 3).save();
  EXPECT_EQ(3, loaded(dir.file("x")));
  ASSERT_EQ(0, unlink(dir.file("x").c_str()));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(SaveDurably, KeepsABackupThatIsAllThereIs) {
  only_backup(dir.file("x"));
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_EQ(2, loaded(dir.file("x")));
  ASSERT_EQ(0, unlink(dir.file("x").c_str()));
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(SaveDurably, KeepsModeAndOwner) {
  const std::string x = dir.file("x");
  const bool root = geteuid() == 0;
  const uid_t owner = root ? 1234 : geteuid();
  const gid_t group = root ? 4321 : getegid();
  list_of(x, 1).save();
  ASSERT_EQ(0, chown(x.c_str(), owner, group));
  for (const mode_t mode : {0600U, 0644U, 0440U, 06750U}) {
    ASSERT_EQ(0, chmod(x.c_str(), mode));
    list_of(x, 2).saveDurably();
    EXPECT_EQ(mode, status_of(x).st_mode & 07777);
    EXPECT_EQ(owner, status_of(x).st_uid);
    EXPECT_EQ(group, status_of(x).st_gid);
  }
}

TEST_F(SaveDurably, TakesModeAndOwnerOfABackupThatIsAllThereIs) {
  const uid_t owner = geteuid() == 0 ? 1234 : geteuid();
  only_backup(dir.file("x"));
  ASSERT_EQ(0, chown(dir.file("x~").c_str(), owner, getegid()));
  ASSERT_EQ(0, chmod(dir.file("x~").c_str(), 0600));
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_EQ(0600U, status_of(dir.file("x")).st_mode & 07777);
  EXPECT_EQ(owner, status_of(dir.file("x")).st_uid);
}

TEST_F(SaveDurably, GivesANewFileTheModeOfAnyNewFile) {
  const mode_t old = umask(027);
  list_of(dir.file("x"), 1).saveDurably();
  umask(old);
  EXPECT_EQ(0640U, status_of(dir.file("x")).st_mode & 07777);
}

TEST_F(SaveDurably, LetsNobodyReadTheNewFileEarly) {
  list_of(dir.file("x"), 1).saveDurably();
  ASSERT_EQ(0, chmod(dir.file("x").c_str(), 0600));
  Recorder recorder({"fchown"});
  int seen = 0;
  recorder.before = [&](const std::string&) {
    for (const std::string& name : dir.list()) {
      EXPECT_EQ(0600U, status_of(dir.file(name)).st_mode & 07777) << name;
      ++seen;
    }
  };
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_EQ(2, seen);
}

TEST_F(SaveDurably, SyncsTheFileBeforeItIsSeenAndTheFolderAfter) {
  const std::string x = dir.file("x");
  list_of(x, 1).saveDurably();
  const Recorder recorder({"open", "write", "fchown", "fchmod", "fsync", "link", "rename"});
  list_of(x, 2).saveDurably();
  const std::string own = x + "." + std::to_string(getpid());
  EXPECT_THAT(recorder.calls(),
              ElementsAre("open " + dir.path(), "open " + own + ".0", "write", "fchown", "fchmod",
                          "fsync", "link " + x + " " + own + ".1",
                          "rename " + own + ".1 " + x + "~", "rename " + own + ".0 " + x, "fsync"));
}

TEST_F(SaveDurably, LeavesFilesAloneThatHaveItsNames) {
  const std::string own = "x." + std::to_string(getpid());
  dir.write(own + ".0", "not ours");
  ASSERT_EQ(0, symlink("/nonexistent/target", dir.file(own + ".1").c_str()));
  list_of(dir.file("x"), 1).saveDurably();
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_THAT(dir.list(), ElementsAre("x", own + ".0", own + ".1", "x~"));
  EXPECT_EQ("not ours", dir.read(own + ".0"));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(SaveDurably, GivesUpWhereEveryNameIsTaken) {
  const Fault fault("open", EEXIST, 2);
  PropertyList list = list_of(dir.file("x"), 1);
  EXPECT_EQ("none", failure(list));  // the next name is free
  const Fault always("link", EEXIST, Fault::kEvery);
  EXPECT_EQ(dir.file("x") + ": File exists", failure(list));
}

TEST_F(SaveDurably, WorksInTheCurrentFolder) {
  const auto old = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  list_of("x", 1).saveDurably();
  list_of("x", 2).saveDurably();
  std::filesystem::current_path(old);
  EXPECT_THAT(dir.list(), ElementsAre("x", "x~"));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(SaveDurably, KnowsTheTopmostFolder) {
  const Recorder recorder({"open"});
  const Fault fault("open", EROFS);
  PropertyList list("/x");
  EXPECT_EQ("/x: Read-only file system", failure(list));
  EXPECT_THAT(recorder.calls(), ElementsAre("open /"));
}

TEST_F(SaveDurably, MakesASymbolicLinkTheBackup) {
  list_of(dir.file("real"), 1).saveDurably();
  ASSERT_EQ(0, symlink("real", dir.file("x").c_str()));
  list_of(dir.file("x"), 2).saveDurably();
  EXPECT_TRUE(S_ISREG(status_of(dir.file("x")).st_mode));
  EXPECT_TRUE(S_ISLNK(status_of(dir.file("x~")).st_mode));
  EXPECT_EQ(1, loaded(dir.file("real")));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(SaveDurably, TouchesNoFileForWhatCannotBeEncoded) {
  list_of(dir.file("x"), 1).saveDurably();
  PropertyList list = list_of(dir.file("x"), 2);
  list["z"];
  const Recorder recorder;
  EXPECT_EQ(dir.file("x") + ": z: a void cannot be saved", failure(list));
  EXPECT_TRUE(recorder.calls().empty());
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(SaveDurably, RefusesTheFirstThatNoFormGivesBack) {
  const char kSection[] =
      "only a CDATA section could keep this text, and cannot hold \"]]>\", a carriage return or a "
      "NUL byte";
  Value no_type;
  no_type.set_type(static_cast<Type>(9));
  const std::string blank_and_nul(" \0", 2);
  const value_struct in_a_key = {
      {" \r", 1 },
      {"b",   {}}
  };
  const struct {
    Value value;
    std::string reason;
  } rows[] = {
      {Value(),                  "a void cannot be saved"                         },
      {no_type,                  "a value of no type cannot be saved"             },
      {HUGE_VAL,                 "only finite numbers can be loaded"              },
      {std::nan(""),             "only finite numbers can be loaded"              },
      {utime_t{253402387200000}, "the local time is not read back as this instant"},
      {" ]]>",                   kSection                                         },
      {"\r",                     kSection                                         },
      {blank_and_nul,            kSection                                         },
      {in_a_key,                 "\r"                                             },
  };
  for (const auto& row : rows) {
    PropertyList list(dir.file("x"));
    list["a"] = value_array{0, row.value};
    list["b"];
    std::string expected = dir.file("x") + ": a[1]: " + row.reason;
    if (row.reason == "\r") expected = dir.file("x") + ": a[1]/ \r: the key: " + kSection;
    EXPECT_EQ(expected, failure(list));
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST_F(SaveDurably, RefusesWhatIsTooDeepAndWritesTheDeepest) {
  Value value = 5;
  for (int i = 0; i < 1021; ++i) value = value_array{value};
  PropertyList list(dir.file("x"));
  list["v"] = value;
  list.saveDurably();
  EXPECT_TRUE(same(list.getProperties(), reloaded(dir.file("x"))));
  list["v"] = value_array{value};
  EXPECT_THAT(failure(list), EndsWith("[0]: values nested deeper than 1023 cannot be saved"));
}

TEST_F(SaveDurably, WritesWhatSaveWouldLoseInAnotherForm) {
  PropertyList list(dir.file("x"));
  list[""] = "";
  list["  "] = " a";
  list["data"] = byte_string();
  list["real"] = 3.14159265;
  list["tabs"] = "a\t b";
  list.saveDurably();
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
      "<plist version=\"1.0\">\n"
      "    <dict>\n"
      "        <key><![CDATA[]]></key>\n"
      "        <string><![CDATA[]]></string>\n"
      "        <key><![CDATA[  ]]></key>\n"
      "        <string><![CDATA[ a]]></string>\n"
      "        <key>data</key>\n"
      "        <data><![CDATA[]]></data>\n"
      "        <key>real</key>\n"
      "        <real>3.14159265</real>\n"
      "        <key>tabs</key>\n"
      "        <string>a&#x09; b</string>\n"
      "    </dict>\n"
      "</plist>\n",
      dir.read("x"));
  EXPECT_TRUE(same(list.getProperties(), reloaded(dir.file("x"))));
}

TEST_F(SaveDurably, GivesEachTextBack) {
  for (const std::string& text :
       {std::string("\n"), std::string(" \t "), std::string("a  b"), std::string("<a> &amp; ]]"),
        std::string("a]]>b"), std::string("a\rb"), std::string("a\0b", 3), std::string("x\xE2\x82"),
        std::string(" x\xE2\x82"), std::string("x\xC3<"), std::string("\xEF\xBB\xBFx"),
        std::string("\xFF\x80"), std::string("&#x41; &lt;"), std::string("  ]]"),
        std::string("<![CDATA[  ")}) {
    SCOPED_TRACE(text);
    PropertyList list(dir.file("x"));
    list[text] = text;
    list.saveDurably();
    EXPECT_TRUE(same(list.getProperties(), reloaded(dir.file("x")))) << dir.read("x");
  }
}

TEST_F(SaveDurably, GivesEachNumberBack) {
  value_array numbers;
  for (const double number :
       {0.1, -0.0, 1e6, 123456.0, 1234567.0, 1.0 / 3, 5e-324, DBL_MAX, 1e22}) {
    numbers.emplace_back(number);
  }
  PropertyList list(dir.file("x"));
  list["v"] = numbers;
  list.saveDurably();
  EXPECT_TRUE(same(list.getProperties(), reloaded(dir.file("x"))));
  EXPECT_THAT(dir.read("x"),
              testing::HasSubstr("<real>1e+06</real>\n            <real>123456</real>"));
}

TEST_F(SaveDurably, GivesLongDataBack) {
  PropertyList list(dir.file("x"));
  for (const size_t size : {1U, 3071U, 3072U, 3073U, 100000U}) {
    list[std::to_string(size)] = byte_string(size, static_cast<unsigned char>(size));
  }
  list.saveDurably();
  EXPECT_TRUE(same(list.getProperties(), reloaded(dir.file("x"))));
}

TEST_F(SaveDurably, GivesBackWhateverItAcceptsAndWritesTheRestAsSaveDoes) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const Unsynced quick;
  int accepted = 0;
  int refused = 0;
  for (unsigned seed = 0; seed < 2500; ++seed) {
    SCOPED_TRACE(seed);
    for (const char* const name : {"x", "x~", "y", "y~", "y.tmp"}) unlink(dir.file(name).c_str());
    PropertyList list(dir.file("x"));
    list.getProperties() = Gardener(seed).dict(3);
    const std::string what = failure(list);
    ++(what == "none" ? accepted : refused);
    if (what != "none") {
      ASSERT_EQ(0U, what.find(dir.file("x") + ": ")) << what;
      ASSERT_TRUE(dir.list().empty());
      ASSERT_FALSE(list.problems().empty());
      continue;
    }
    ASSERT_TRUE(same(as_filed(list.getProperties()), reloaded(dir.file("x")))) << dir.read("x");
    if (!list.problems().empty()) continue;
    PropertyList plain(dir.file("y"));
    plain.getProperties() = list.getProperties();
    plain.save();
    ASSERT_EQ(dir.read("y"), dir.read("x"));
  }
  EXPECT_GT(accepted, 1000);
  EXPECT_GT(refused, 200);
}

TEST_F(SaveDurably, RemovesWhatKilledSavesHaveLeft) {
  const pid_t gone = fork();
  if (gone == 0) _exit(0);
  ASSERT_EQ(gone, waitpid(gone, nullptr, 0));
  const std::string dead = "." + std::to_string(gone);
  const std::string alive = "." + std::to_string(getppid());
  for (const std::string& name : {"x" + dead + ".0", "x" + dead + ".12"}) dir.write(name, "left");
  const std::vector<std::string> others = {
      "x" + alive + ".0",  "x" + dead,         "x" + dead + ".", "x" + dead + ".0a",
      "x" + dead + ".0.0", "xx" + dead + ".0", "x.-5.0"};
  for (const std::string& name : others) dir.write(name, "not ours");
  list_of(dir.file("x"), 1).saveDurably();
  std::vector<std::string> expected = others;
  expected.emplace_back("x");
  EXPECT_THAT(dir.list(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(SaveDurably, FailsOverAFolderAndInAMissingOne) {
  ASSERT_EQ(0, mkdir(dir.file("x").c_str(), 0700));
  PropertyList over = list_of(dir.file("x"), 1);
  EXPECT_EQ(dir.file("x") + ": Operation not permitted", failure(over));
  PropertyList missing = list_of(dir.file("no/x"), 1);
  EXPECT_EQ(dir.file("no/x") + ": No such file or directory", failure(missing));
  EXPECT_THAT(dir.list(), ElementsAre("x"));
}

TEST_F(SaveDurably, PastTheSizeLimitLeavesTheOldList) {
  list_of(dir.file("x"), 1).save();
  PropertyList list = list_of(dir.file("x"), 2);
  {
    const SizeLimit limit(1000);
    EXPECT_EQ(dir.file("x") + ": File too large", failure(list));
  }
  EXPECT_THAT(dir.list(), ElementsAre("x", "x.tmp"));
  EXPECT_EQ(1, loaded(dir.file("x")));
}

// Saves list 2 after that history while the `nth` use of `call` fails. What is thrown, or "none",
// or an empty text where there is no such use.
std::string saved_with_fault(const History& history, const char* call, int error, int nth) {
  SCOPED_TRACE(std::string(history.name) + ", " + call + " " + std::to_string(nth) + ": " +
               strerror(error));
  const TempDir dir;
  const std::string x = dir.file("x");
  history.make(x);
  PropertyList list = list_of(x, 2);
  const int descriptors = open_descriptors();
  bool fired = false;
  std::string what;
  const Unsynced quick;
  {
    const Fault fault(call, error, nth);
    what = failure(list);
    fired = fault.fired();
  }
  EXPECT_EQ(descriptors, open_descriptors());
  const int found = loaded(x);
  if (what == "none") {
    EXPECT_EQ(2, found);
  } else {
    EXPECT_EQ(x + ": " + strerror(error), what);
    EXPECT_TRUE(found == history.found || found == 2) << found;
  }
  for (const std::string& name : dir.list()) {
    if (std::string(call) == "unlink") break;  // what cannot be removed stays
    EXPECT_TRUE(name == "x" || name == "x~" || name == "x.tmp") << name;
  }
  return fired ? what : "";
}

constexpr const char* kCalls[] = {"stat",  "open",  "write",  "fchown", "fchmod",
                                  "fsync", "close", "unlink", "link",   "rename"};

// Each use of each call fails in turn.
TEST_F(SaveDurably, WithAnyCallFailingLeavesTheOldListOrTheNew) {
  for (const History& history : kHistories) {
    for (const char* call : kCalls) {
      int nth = 1;
      while (!saved_with_fault(history, call, EIO, nth).empty()) ++nth;
    }
  }
}

TEST_F(SaveDurably, NamesTheFileAndTheReasonOfEachFailure) {
  for (const char* call : kCalls) {
    for (const int error : kErrors) {
      EXPECT_THAT(saved_with_fault({"saved once", saved_once, 1}, call, error, 1),
                  EndsWith(std::string(": ") + strerror(error)));
    }
  }
}
