// SPDX-License-Identifier: MIT
// Files on disk: what load() reads, what save() does and leaves behind.
#include "tests/support/faults.h"
#include "tests/support/folder.h"
#include "util/PropertyList.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ticpp.h>

using namespace util;
using support::Fault;
using support::Recorder;
using support::SizeLimit;
using support::TempDir;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string kOne = "<plist><dict><key>n</key><integer>1</integer></dict></plist>";

std::string list_text(int number) {
  return "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n<plist version=\"1.0\">\n"
         "    <dict>\n        <key>n</key>\n        <integer>" +
         std::to_string(number) + "</integer>\n    </dict>\n</plist>\n";
}

// The number that a fresh load of the file finds, -1 where there is none.
int loaded(const std::string& file) {
  PropertyList list(file);
  list.load();
  return list.getProperties().empty() ? -1 : list.intForKey("n");
}

PropertyList list_of(const std::string& file, int number) {
  PropertyList list(file);
  list["n"] = number;
  return list;
}

// What `action` throws of that kind, or "nothing".
template <class Failure, class Action>
std::string thrown(Action action) {
  try {
    action();
  } catch (const Failure& e) {
    return e.what();
  }
  return "nothing";
}

ino_t inode(const std::string& file) {
  struct stat status = {};
  EXPECT_EQ(0, lstat(file.c_str(), &status)) << file;
  return status.st_ino;
}

// A list whose load of `text` has to fail; tells how, its file left out, and that nothing changed.
std::string load_failure(const std::string& text) {
  const TempDir dir;
  dir.write("x", text);
  PropertyList list = list_of(dir.file("x"), 7);
  const std::string what = thrown<malformed_property_list>([&] { list.load(); });
  EXPECT_EQ(7, list.intForKey("n"));
  EXPECT_EQ(1U, list.getProperties().size());
  const std::string start = dir.file("x") + ": ";
  return what.compare(0, start.size(), start) == 0 ? what.substr(start.size()) : what;
}

using Load = support::InFolder;
using Save = support::InFolder;

}  // namespace

// ---- load ----

TEST_F(Load, ReplacesTheList) {
  dir.write("x", kOne);
  PropertyList list(dir.file("x"));
  list["other"] = true;
  list.load();
  EXPECT_EQ(1, list.intForKey("n"));
  EXPECT_EQ(1U, list.getProperties().size());
}

TEST_F(Load, ChangesNothingWithoutFileAndBackup) {
  PropertyList list = list_of(dir.file("x"), 7);
  list.load();
  EXPECT_EQ(7, list.intForKey("n"));
  EXPECT_THAT(dir.list(), IsEmpty());
}

TEST_F(Load, ReadsTheBackupOnlyWithoutTheFile) {
  dir.write("x~", kOne);
  EXPECT_EQ(1, loaded(dir.file("x")));
  dir.write("x", list_text(2));
  EXPECT_EQ(2, loaded(dir.file("x")));
}

TEST_F(Load, ReadsTheBackupWhateverHidesTheFile) {
  dir.write("x", list_text(2));
  dir.write("x~", kOne);
  for (const int error : support::kErrors) {
    const Fault fault("stat", error);
    EXPECT_EQ(1, loaded(dir.file("x")));
  }
}

TEST_F(Load, ChangesNothingWhateverHidesFileAndBackup) {
  dir.write("x", list_text(2));
  dir.write("x~", kOne);
  for (const int error : support::kErrors) {
    const Fault fault("stat", error, Fault::kEvery);
    PropertyList list = list_of(dir.file("x"), 7);
    list.load();
    EXPECT_EQ(7, list.intForKey("n"));
  }
}

TEST_F(Load, NamesTheFileThoughTheBackupWasRead) {
  dir.write("x~", "no list");
  EXPECT_EQ(dir.file("x") + ": load failed",
            thrown<malformed_property_list>([&] { loaded(dir.file("x")); }));
  dir.write("x~", "<plist><dict><string>a</string></dict></plist>");
  EXPECT_EQ(dir.file("x") + ": expecting 'key'",
            thrown<malformed_property_list>([&] { loaded(dir.file("x")); }));
}

TEST_F(Load, DoesNotTurnToTheBackupOfABrokenFile) {
  dir.write("x~", kOne);
  dir.write("x", "no list");
  EXPECT_EQ(dir.file("x") + ": load failed",
            thrown<malformed_property_list>([&] { loaded(dir.file("x")); }));
}

TEST_F(Load, TakesTheFirstPlistAndItsFirstDict) {
  dir.write("x", "<!-- c --><other/><plist><array/>" + kOne.substr(7, kOne.size() - 15) +
                     "<dict/></plist><plist/>");
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(Load, RefusesAWrongRoot) {
  EXPECT_EQ("load failed", load_failure("<list><dict/></list>"));
  EXPECT_EQ("load failed", load_failure("<dict/>"));
  EXPECT_EQ("load failed", load_failure("<plist><array/></plist>"));
  EXPECT_EQ("load failed", load_failure("<plist/>"));
  EXPECT_EQ("load failed", load_failure(""));
  EXPECT_EQ("load failed", load_failure("bplist00"));
  EXPECT_EQ("load failed", load_failure(std::string("<plist>\0</plist>", 16)));
}

TEST_F(Load, RefusesAListCutAtAnyByte) {
  const std::string whole =
      "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n<plist version=\"1.0\">"
      "<dict><key>a</key><array><string>\xC3\xA4 &lt;&#x0A;</string><true /></array><key>b</key>"
      "<date>2008-05-01T14:03:59Z</date><key>c</key><data>AQID</data></dict></plist>";
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    ASSERT_EQ("load failed", load_failure(whole.substr(0, size)));
  }
  dir.write("x", whole);
  PropertyList list(dir.file("x"));
  list.load();
  EXPECT_EQ(3U, list.getProperties().size());
}

// A loss of power fills files up with zeros.
TEST_F(Load, ReadsAListWithZerosBehindIt) {
  list_of(dir.file("x"), 1).saveDurably();
  dir.write("x", dir.read("x") + std::string(4096, '\0') + "<plist>");
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(Load, RefusesTwentyThousandLevels) {
  std::string deep = "<plist><dict><key>a</key>";
  for (int i = 0; i < 20000; ++i) deep += "<array>";
  for (int i = 0; i < 20000; ++i) deep += "</array>";
  EXPECT_EQ("load failed", load_failure(deep + "</dict></plist>"));
}

TEST_F(Load, SurvivesOddBytes) {
  std::mt19937 random(3);
  const std::string good = list_text(5);
  for (int round = 0; round < 2000; ++round) {
    std::string text = good;
    for (int i = 0; i <= round % 4; ++i) {
      text[random() % text.size()] = static_cast<char>(random() % 256);
    }
    unlink(dir.file("x").c_str());  // disks are slow to empty a file and fill it again
    dir.write("x", text);
    PropertyList list = list_of(dir.file("x"), 7);
    const std::string what = thrown<malformed_property_list>([&] { list.load(); });
    if (what != "nothing") {
      ASSERT_THAT(what, StartsWith(dir.file("x") + ": "));
      ASSERT_EQ(7, list.intForKey("n"));
    }
  }
}

TEST_F(Load, RefusesAFileThatCannotBeRead) {
  dir.write("x", kOne);
  const int before = support::open_descriptors();
  {
    const Fault fault("fopen", EACCES);
    EXPECT_EQ(dir.file("x") + ": load failed",
              thrown<malformed_property_list>([&] { loaded(dir.file("x")); }));
  }
  EXPECT_EQ(dir.path() + ": load failed",
            thrown<malformed_property_list>([&] { loaded(dir.path()); }));
  EXPECT_EQ(before, support::open_descriptors());
}

// ---- save ----

TEST_F(Save, OnAFreshPathCreatesFileAndTemporaryAndNoBackup) {
  list_of(dir.file("x"), 1).save();
  EXPECT_THAT(dir.list(), ElementsAre("x", "x.tmp"));
  EXPECT_EQ(list_text(1), dir.read("x"));
  EXPECT_EQ(inode(dir.file("x")), inode(dir.file("x.tmp")));
}

TEST_F(Save, KeepsThePreviousVersionAsTheBackup) {
  dir.write("x", list_text(1));
  dir.write("x~", "older");
  list_of(dir.file("x"), 2).save();
  EXPECT_EQ(list_text(2), dir.read("x"));
  EXPECT_EQ(list_text(1), dir.read("x~"));
}

TEST_F(Save, RewritesTheBackupFromTheSecondTimeOn) {
  list_of(dir.file("x"), 1).save();
  list_of(dir.file("x"), 2).save();
  EXPECT_THAT(dir.list(), ElementsAre("x", "x.tmp", "x~"));
  EXPECT_EQ(list_text(2), dir.read("x~"));
  EXPECT_EQ(inode(dir.file("x")), inode(dir.file("x~")));
  EXPECT_EQ(inode(dir.file("x")), inode(dir.file("x.tmp")));
}

TEST_F(Save, MakesItsCallsInOrder) {
  const std::string x = dir.file("x");
  PropertyList list = list_of(x, 1);
  const std::vector<std::string> watched = {"unlink", "stat", "link", "rename", "fopen"};
  {
    const Recorder fresh(watched);
    list.save();
    EXPECT_THAT(fresh.calls(), ElementsAre("unlink " + x + "~", "stat " + x,
                                           "fopen " + x + ".tmp w", "link " + x + ".tmp " + x));
  }
  const Recorder again(watched);
  list.save();
  EXPECT_THAT(again.calls(),
              ElementsAre("unlink " + x + "~", "stat " + x, "link " + x + " " + x + "~",
                          "fopen " + x + ".tmp w", "unlink " + x, "link " + x + ".tmp " + x));
}

TEST_F(Save, IgnoresABackupThatCannotBeRemoved) {
  const Fault fault("unlink", EACCES, 1);
  list_of(dir.file("x"), 1).save();
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(Save, FailsWhereTheBackupCannotBeLinked) {
  dir.write("x", list_text(1));
  dir.write("x~", "older");
  const Fault fault("link", EACCES, 1);
  EXPECT_EQ(dir.file("x") + ": Permission denied",
            thrown<save_failed>([&] { list_of(dir.file("x"), 2).save(); }));
  EXPECT_THAT(dir.list(), ElementsAre("x"));
  EXPECT_EQ(list_text(1), dir.read("x"));
}

TEST_F(Save, LetsTheLibrarysFailureThroughWhereTheTemporaryCannotBeWritten) {
  dir.write("x", list_text(1));
  for (const char* call : {"fopen", "fflush", "fclose"}) {
    SCOPED_TRACE(call);
    const Fault fault(call, ENOSPC, 1);
    PropertyList list = list_of(dir.file("x"), 2);
    EXPECT_EQ("Couldn't save " + dir.file("x.tmp") + ": No space left on device",
              thrown<ticpp::Exception>([&] { list.save(); }));
    EXPECT_EQ(list_text(1), dir.read("x"));
    EXPECT_EQ(list_text(1), dir.read("x~"));
    EXPECT_EQ(inode(dir.file("x")), inode(dir.file("x~")));
  }
}

TEST_F(Save, FailsWhereTheOldFileCannotBeRemoved) {
  dir.write("x", list_text(1));
  const Fault fault("unlink", EROFS, 2);
  EXPECT_EQ(dir.file("x") + ": Read-only file system",
            thrown<save_failed>([&] { list_of(dir.file("x"), 2).save(); }));
  EXPECT_EQ(list_text(1), dir.read("x"));
  EXPECT_EQ(list_text(1), dir.read("x~"));
  EXPECT_EQ(list_text(2), dir.read("x.tmp"));
}

TEST_F(Save, FailsWhereTheNewFileCannotBeLinkedAndLoadsTheBackupThen) {
  dir.write("x", list_text(1));
  const Fault fault("link", EDQUOT, 2);
  EXPECT_EQ(dir.file("x") + ": Disk quota exceeded",
            thrown<save_failed>([&] { list_of(dir.file("x"), 2).save(); }));
  EXPECT_THAT(dir.list(), ElementsAre("x.tmp", "x~"));
  EXPECT_EQ(list_text(2), dir.read("x.tmp"));
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(Save, OfAFreshPathFailsWhereTheNewFileCannotBeLinked) {
  const Fault fault("link", EIO, 1);
  EXPECT_EQ(dir.file("x") + ": Input/output error",
            thrown<save_failed>([&] { list_of(dir.file("x"), 2).save(); }));
  EXPECT_THAT(dir.list(), ElementsAre("x.tmp"));
}

TEST_F(Save, TouchesNoFileForWhatCannotBeEncoded) {
  dir.write("x", list_text(1));
  dir.write("x~", "older");
  PropertyList list = list_of(dir.file("x"), 2);
  list.vectorForKey("z", true).push_back(value_struct());
  static_cast<value_struct&>(list.vectorForKey("z", true)[0])["deep"];
  const Recorder recorder({"unlink", "stat", "link", "rename", "fopen", "open"});
  EXPECT_EQ(dir.file("x") + ": can't encode void",
            thrown<malformed_property_list>([&] { list.save(); }));
  EXPECT_THAT(recorder.calls(), IsEmpty());
  EXPECT_EQ(list_text(1), dir.read("x"));
  EXPECT_EQ("older", dir.read("x~"));
}

TEST_F(Save, OnAFullDiskLeavesFileAndBackup) {
  dir.write("x", list_text(1));
  ASSERT_EQ(0, symlink("/dev/full", dir.file("x.tmp").c_str()));
  EXPECT_EQ("Couldn't save " + dir.file("x.tmp") + ": No space left on device",
            thrown<ticpp::Exception>([&] { list_of(dir.file("x"), 2).save(); }));
  EXPECT_EQ(1, loaded(dir.file("x")));
  EXPECT_EQ(list_text(1), dir.read("x~"));
}

TEST_F(Save, PastTheSizeLimitFails) {
  dir.write("x", list_text(1));
  PropertyList list = list_of(dir.file("x"), 2);
  list["big"] = std::string(100000, 'x');
  {
    const SizeLimit limit(1000);
    EXPECT_EQ("Couldn't save " + dir.file("x.tmp") + ": File too large",
              thrown<ticpp::Exception>([&] { list.save(); }));
  }
  EXPECT_EQ(1, loaded(dir.file("x")));
}

TEST_F(Save, LosesFileAndBackupWhereTheSecondWriteFails) {
  list_of(dir.file("x"), 1).save();
  {
    const SizeLimit limit(20);
    EXPECT_THROW(list_of(dir.file("x"), 2).save(), ticpp::Exception);
  }
  EXPECT_EQ(list_text(2).substr(0, 20), dir.read("x"));
  EXPECT_EQ(list_text(2).substr(0, 20), dir.read("x~"));
}

TEST_F(Save, InAMissingFolderFails) {
  EXPECT_EQ("Couldn't save " + dir.file("no/x.tmp") + ": No such file or directory",
            thrown<ticpp::Exception>([&] { list_of(dir.file("no/x"), 2).save(); }));
}

TEST_F(Save, OverAFolderFails) {
  ASSERT_EQ(0, mkdir(dir.file("x").c_str(), 0700));
  EXPECT_EQ(dir.file("x") + ": Operation not permitted",
            thrown<save_failed>([&] { list_of(dir.file("x"), 2).save(); }));
}

TEST_F(Save, LeavesNoDescriptorOpen) {
  const int before = support::open_descriptors();
  list_of(dir.file("x"), 1).save();
  EXPECT_EQ(1, loaded(dir.file("x")));
  EXPECT_EQ(before, support::open_descriptors());
}
