// SPDX-License-Identifier: MIT
#include "service/recovery.h"

#include "service/key_path.h"
#include "tests/support/disk.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/trace.h"

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using service::Recovery;
using support::TempDir;

using Names = std::vector<std::string>;

std::string list_of(int number) {
  return "<plist><dict><key>a</key><integer>" + std::to_string(number) +
         "</integer></dict></plist>";
}

const std::string kBroken = "<plist><dict>";

struct Folder : TempDir {
  std::string list_file() const { return file("p"); }
  ino_t inode(const std::string& name) const {
    struct stat status = {};
    return stat(file(name).c_str(), &status) == 0 ? status.st_ino : 0;
  }
};

// What it throws.
template <class Operation>
std::string failure(Operation operation) {
  try {
    operation();
    return "nothing";
  } catch (const util::malformed_property_list& e) {
    return e.what();
  } catch (const util::save_failed& e) {
    return e.what();
  }
}

}  // namespace

TEST(Recover, LoadsTheFile) {
  const Folder folder;
  folder.write("p", list_of(1));
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  const Recovery got = service::recover(list);
  EXPECT_EQ(Recovery::Source::file, got.source);
  EXPECT_EQ("", got.reason);
  EXPECT_EQ(1, list.intForKey("a"));
}

TEST(Recover, LoadsTheBackupOfAMissingFile) {
  const Folder folder;
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  const Recovery got = service::recover(list);
  EXPECT_EQ(Recovery::Source::backup, got.source);
  EXPECT_EQ(folder.list_file() + ": No such file or directory", got.reason);
  EXPECT_EQ(2, list.intForKey("a"));
}

TEST(Recover, LoadsTheBackupOfABrokenFile) {
  const Folder folder;
  const std::string broken = "<plist>\n<dict><key>a</key><integer>x</integer></dict></plist>";
  folder.write("p", broken);
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  const Recovery got = service::recover(list);
  EXPECT_EQ(Recovery::Source::backup, got.source);
  EXPECT_EQ(folder.list_file() + ": expected integer: ",
            got.reason.substr(0, folder.list_file().size() + 20));
  EXPECT_NE(std::string::npos, got.reason.find("row 2, column 19")) << got.reason;
  EXPECT_EQ(2, list.intForKey("a"));
  EXPECT_EQ(broken, folder.read("p"));
}

TEST(Recover, LeavesTheListWhereThereIsNothing) {
  const Folder folder;
  util::PropertyList list(folder.list_file());
  list["a"] = 5;
  const Recovery got = service::recover(list);
  EXPECT_EQ(Recovery::Source::none, got.source);
  EXPECT_EQ("", got.reason);
  EXPECT_EQ(5, list.intForKey("a"));
}

TEST(Recover, ThrowsForTheFileWhereNeitherLoads) {
  const struct {
    std::string file, backup;
  } rows[] = {
      {kBroken, kBroken},
      {kBroken, ""     },
      {"",      kBroken},
  };
  for (const auto& row : rows) {
    const Folder folder;
    if (!row.file.empty()) folder.write("p", row.file);
    if (!row.backup.empty()) folder.write("p~", row.backup);
    util::PropertyList list(folder.list_file());
    list["a"] = 5;
    EXPECT_EQ(folder.list_file() + ": load failed", failure([&] { service::recover(list); }));
    EXPECT_EQ(5, list.intForKey("a"));
  }
}

TEST(Restore, MakesTheBackupTheFileAndKeepsWhatItReplaces) {
  const Folder folder;
  folder.write("p", kBroken);
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  service::restore(list);
  EXPECT_EQ(2, list.intForKey("a"));
  EXPECT_EQ((Names{"p", "p.replaced", "p~"}), folder.list());
  EXPECT_EQ(list_of(2), folder.read("p"));
  EXPECT_EQ(list_of(2), folder.read("p~"));
  EXPECT_EQ(kBroken, folder.read("p.replaced"));
}

TEST(Restore, NeedsNoFile) {
  const Folder folder;
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  service::restore(list);
  EXPECT_EQ((Names{"p", "p~"}), folder.list());
  EXPECT_EQ(list_of(2), folder.read("p"));
}

TEST(Restore, ChangesNothingTheSecondTime) {
  const Folder folder;
  folder.write("p", list_of(1));
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  service::restore(list);
  service::restore(list);
  EXPECT_EQ(list_of(1), folder.read("p.replaced"));
  EXPECT_EQ(folder.inode("p"), folder.inode("p~"));
}

TEST(Restore, IsFollowedByDurableSaves) {
  const Folder folder;
  folder.write("p", kBroken);
  folder.write("p~", list_of(2));
  util::PropertyList list(folder.list_file());
  service::restore(list);
  list["a"] = 3;
  list.saveDurably();
  EXPECT_EQ(list_of(2), folder.read("p~"));
  util::PropertyList loaded(folder.list_file());
  loaded.load();
  EXPECT_EQ(3, loaded.intForKey("a"));
}

TEST(Restore, LeavesAllAsItIsWithoutAGoodBackup) {
  const Folder folder;
  folder.write("p", list_of(1));
  util::PropertyList list(folder.list_file());
  EXPECT_EQ(folder.list_file() + ": there is no backup", failure([&] { service::restore(list); }));
  folder.write("p~", kBroken);
  EXPECT_EQ(folder.list_file() + "~: load failed", failure([&] { service::restore(list); }));
  EXPECT_EQ((Names{"p", "p~"}), folder.list());
  EXPECT_TRUE(list.getProperties().empty());
}

TEST(Restore, LosesNothingWhicheverCallFails) {
  for (const char* call : {"open", "fsync", "rename", "link"}) {
    const Folder folder;
    folder.write("p", kBroken);
    folder.write("p~", list_of(2));
    util::PropertyList list(folder.list_file());
    {
      const support::Fault fault(call, EIO);
      EXPECT_EQ(folder.list_file() + ": Input/output error",
                failure([&] { service::restore(list); }))
          << call;
    }
    EXPECT_TRUE(list.getProperties().empty());
    EXPECT_EQ(list_of(2), folder.read("p~"));
    EXPECT_EQ(Recovery::Source::backup, service::recover(list).source);
    EXPECT_EQ(2, list.intForKey("a"));
  }
}

TEST(Restore, LoadsTheBackupOrTheFileBetweenAnyTwoCalls) {
  const Folder folder;
  folder.write("p", list_of(1));
  folder.write("p~", list_of(2));
  support::Recorder calls({"open", "fsync", "rename", "link"});
  calls.before = [&folder](const std::string& call) {
    util::PropertyList seen(folder.list_file());
    seen.load();
    EXPECT_FALSE(seen.getProperties().empty()) << call;
  };
  util::PropertyList list(folder.list_file());
  service::restore(list);
  EXPECT_EQ(1, calls.count("rename"));
  EXPECT_EQ(1, calls.count("link"));
  EXPECT_EQ(2, calls.count("fsync"));
}

// ---- power ----

TEST(Restore, CutOffFromPowerAnywhereLeavesTheFileOrTheBackup) {
  const Folder folder;
  folder.write("p", list_of(1));
  folder.write("p~", list_of(2));
  support::Disk disk(folder.path(), 4096);
  const std::vector<support::FileCall> calls = support::file_calls([&folder] {
    util::PropertyList list(folder.list_file());
    service::restore(list);
  });
  for (size_t done = 0; done <= calls.size(); ++done) {
    if (done > 0) disk.apply(calls[done - 1]);
    support::EachWay ways;
    do {
      const Folder left;
      for (const auto& [name, text] : disk.left(std::ref(ways))) left.write(name, text);
      util::PropertyList list(left.list_file());
      service::recover(list);
      EXPECT_TRUE(list.exists() || list.backup_exists());
      const int found = service::get(list, "a", 0);
      EXPECT_TRUE(found == 2 || (found == 1 && done < calls.size())) << done << ": " << found;
    } while (ways.next());
  }
}
