// SPDX-License-Identifier: MIT
// Saving processes that are killed, and power that fails while they save: what load() finds then.
#include "tests/support/disk.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/histories.h"
#include "tests/support/trace.h"
#include "tests/support/trees.h"
#include "util/PropertyList.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace support;
using util::PropertyList;

namespace {

// "old", "older" or "new" for lists 1, 3 and 2, whole, "none" for no list, "LOST" for anything else
// and for none where there was one before.
std::string found(const std::string& file, bool had_one) try {
  PropertyList list(file);
  list.load();
  if (list.getProperties().empty()) return had_one ? "LOST" : "none";
  const int number = list.intForKey("n");
  const bool whole =
      list.getProperties().size() == 2 && list.stringForKey("text") == long_text(number);
  static const std::map<int, std::string> names = {
      {1, "old"  },
      {2, "new"  },
      {3, "older"},
  };
  return whole ? names.at(number) : "LOST";
} catch (const std::exception&) {
  return "LOST";
}

std::string before(const History& history) { return history.found == 1 ? "old" : "none"; }

void save(PropertyList& list) { list.save(); }
void save_durably(PropertyList& list) { list.saveDurably(); }

using Save = std::function<void(PropertyList&)>;

// ---- kills ----

std::string content(const TempDir& dir, const std::string& name) {
  const std::string text = dir.read(name);
  if (text.empty()) return "empty";
  const std::string state = found(dir.file(name), true);
  return state == "LOST" ? "part" : state;
}

// "x old, x.tmp part: old", with what load() finds in the end.
std::string state(const TempDir& dir, const History& history) {
  std::string text;
  for (const std::string& name : dir.list()) {
    text += (text.empty() ? "" : ", ") + name + " " + content(dir, name);
  }
  return text + ": " + found(dir.file("x"), history.found == 1);
}

// The states that a save may leave that is killed before one of its calls, a line each in their
// order. "LOST" is the window in which neither file nor backup is there and whole.
std::string states_left_by_kills(const History& history) {
  std::string states;
  std::string last;
  bool killed = true;
  for (int nth = 1; killed; ++nth) {
    SCOPED_TRACE(nth);
    const TempDir dir;
    history.make(dir.file("x"));
    PropertyList list = list_of(dir.file("x"), 2);
    killed = killed_before(nth, [&list] { list.save(); });
    const std::string left = state(dir, history);
    if (left != last) states += left + "\n";
    last = left;
    if (nth % 4 != 1) continue;
    list_of(dir.file("x"), 3).save();  // what a killed process leaves is in nobody's way
    EXPECT_EQ("older", found(dir.file("x"), true));
  }
  return states;
}

// ---- power failures ----

// A save of list 2 as the system saw it.
struct Recording {
  bool had_one;  // a list
  Disk start;
  std::vector<FileCall> calls;
};

Recording recorded(const History& history, const Save& save, size_t block) {
  const TempDir dir;
  history.make(dir.file("x"));
  Recording recording = {history.found == 1, Disk(dir.path(), block), {}};
  PropertyList list = list_of(dir.file("x"), 2);
  recording.calls = file_calls([&] { save(list); });
  Disk end = recording.start;
  for (const FileCall& call : recording.calls) end.apply(call);
  Disk::Files files;
  for (const std::string& name : dir.list()) files[name] = dir.read(name);
  EXPECT_EQ(files, end.seen()) << "a call is missing in the recording";
  return recording;
}

// What load() finds on disks. It looks at two names; what differs in these is read once.
class Reader {
 public:
  const std::string& operator()(const Disk::Files& disk, bool had_one) {
    Disk::Files looked_at;
    for (const char* const name : {"x", "x~"}) {
      const auto file = disk.find(name);
      if (file != disk.end()) looked_at.insert(*file);
    }
    std::string& result = results_[{had_one, looked_at}];
    if (!result.empty()) return result;
    const TempDir dir;
    for (const auto& [name, text] : looked_at) dir.write(name, text);
    return result = found(dir.file("x"), had_one);
  }

 private:
  std::map<std::pair<bool, Disk::Files>, std::string> results_;
};

using Found = std::set<std::string>;

// What load() may find when the power fails.
struct Replays {
  Found during;  // before some call of the save
  Found after;   // once it has returned
  long count = 0;
};

// The disk after each of the calls, the first one before them.
std::vector<Disk> disks_of(const Recording& save) {
  std::vector<Disk> disks = {save.start};
  for (const FileCall& call : save.calls) {
    disks.push_back(disks.back());
    disks.back().apply(call);
  }
  return disks;
}

Replays each_way(const Recording& save) {
  Replays replays;
  Reader reader;
  const std::vector<Disk> disks = disks_of(save);
  for (const Disk& disk : disks) {
    Found& results = &disk == &disks.back() ? replays.after : replays.during;
    EachWay ways;
    do {
      results.insert(reader(disk.left(std::ref(ways)), save.had_one));
      ++replays.count;
    } while (ways.next());
  }
  return replays;
}

Replays at_random(const Recording& save, long count) {
  Replays replays;
  Reader reader;
  AtRandom random;
  const std::vector<Disk> disks = disks_of(save);
  for (; replays.count < count; ++replays.count) {
    const Disk& disk = disks[random(disks.size())];
    Found& results = &disk == &disks.back() ? replays.after : replays.during;
    results.insert(reader(disk.left(std::ref(random)), save.had_one));
  }
  return replays;
}

constexpr size_t kPage = 4096;   // by which the system writes back
constexpr size_t kSector = 512;  // by which a disk writes

constexpr History kBefore = {"saved durably", saved_durably, 1};

}  // namespace

// ---- kills ----

TEST(Save, KilledAnywhereOnAFreshPathHasNoListUntilItsLastStep) {
  EXPECT_EQ(
      ": none\n"
      "x.tmp empty: none\n"
      "x.tmp part: none\n"
      "x.tmp new: none\n"
      "x new, x.tmp new: new\n",
      states_left_by_kills({"", nothing, -1}));
}

// The dangerous window: file, temporary and backup are one file while that is written.
TEST(Save, KilledAnywhereTheSecondTimeMayLoseTheList) {
  EXPECT_EQ(
      "x old, x.tmp old: old\n"
      "x old, x.tmp old, x~ old: old\n"
      "x empty, x.tmp empty, x~ empty: LOST\n"
      "x part, x.tmp part, x~ part: LOST\n"
      "x new, x.tmp new, x~ new: new\n"
      "x.tmp new, x~ new: new\n"
      "x new, x.tmp new, x~ new: new\n",
      states_left_by_kills({"", saved_once, 1}));
}

// And so each time after that.
TEST(Save, KilledAnywhereFromThenOnMayLoseTheList) {
  EXPECT_EQ(
      "x old, x.tmp old, x~ old: old\n"
      "x old, x.tmp old: old\n"
      "x old, x.tmp old, x~ old: old\n"
      "x empty, x.tmp empty, x~ empty: LOST\n"
      "x part, x.tmp part, x~ part: LOST\n"
      "x new, x.tmp new, x~ new: new\n"
      "x.tmp new, x~ new: new\n"
      "x new, x.tmp new, x~ new: new\n",
      states_left_by_kills({"", saved_twice, 1}));
}

// Without the temporary there is no such window.
TEST(Save, KilledAnywhereAfterADurableSaveLeavesTheOldListOrTheNew) {
  EXPECT_EQ(
      "x old, x~ older: old\n"
      "x old: old\n"
      "x old, x~ old: old\n"
      "x old, x.tmp empty, x~ old: old\n"
      "x old, x.tmp part, x~ old: old\n"
      "x old, x.tmp new, x~ old: old\n"
      "x.tmp new, x~ old: old\n"
      "x new, x.tmp new, x~ old: new\n",
      states_left_by_kills({"", saved_durably, 1}));
}

// Another dangerous window: the backup, which goes first, is all there is.
TEST(Save, KilledAnywhereWithABackupAloneMayLoseTheList) {
  EXPECT_EQ(
      "x.tmp old, x~ old: old\n"
      "x.tmp old: LOST\n"
      "x.tmp empty: LOST\n"
      "x.tmp part: LOST\n"
      "x.tmp new: LOST\n"
      "x new, x.tmp new: new\n",
      states_left_by_kills({"", only_backup, 1}));
}

TEST(Save, KilledAnywhereAfterAKilledDurableSaveLeavesTheOldListOrTheNew) {
  EXPECT_EQ(
      "x old, x~ old: old\n"
      "x old: old\n"
      "x old, x~ old: old\n"
      "x old, x.tmp empty, x~ old: old\n"
      "x old, x.tmp part, x~ old: old\n"
      "x old, x.tmp new, x~ old: old\n"
      "x.tmp new, x~ old: old\n"
      "x new, x.tmp new, x~ old: new\n",
      states_left_by_kills({"", backup_of_the_same, 1}));
}

// Killed before each call, which is after the one before it, after each history.
TEST(SaveDurably, KilledAnywhereLeavesTheOldListOrTheNew) {
  for (const History& history : kHistories) {
    bool killed = true;
    int old_ones = 0;
    for (int nth = 1; killed; ++nth) {
      SCOPED_TRACE(std::string(history.name) + ", call " + std::to_string(nth));
      const TempDir dir;
      const std::string x = dir.file("x");
      history.make(x);
      PropertyList list = list_of(x, 2);
      killed = killed_before(nth, [&list] { list.saveDurably(); });
      const int found = loaded(x);
      EXPECT_TRUE(found == history.found || found == 2) << found;
      EXPECT_TRUE(killed || found == 2);
      if (found == history.found) ++old_ones;
      if (nth % 4 != 1) continue;
      list_of(x, 4).saveDurably();  // what a killed process leaves is in nobody's way
      EXPECT_EQ(4, loaded(x));
    }
    EXPECT_GE(old_ones, 7);
  }
}

// ---- power failures ----

TEST(SaveDurably, CutOffFromPowerLeavesTheOldListOrTheNew) {
  long replays = 0;
  for (const History& history : kHistories) {
    SCOPED_TRACE(history.name);
    const Replays seen = each_way(recorded(history, save_durably, kPage));
    EXPECT_EQ((Found{before(history), "new"}), seen.during);
    EXPECT_EQ(Found{"new"}, seen.after);
    replays += seen.count;
  }
  RecordProperty("replays", std::to_string(replays));
}

// In the environment, NASUTIL_REPLAYS says how often.
TEST(SaveDurably, CutOffFromPowerAtRandomLeavesTheOldListOrTheNew) {
  const char* const asked = getenv("NASUTIL_REPLAYS");
  const long count = asked != nullptr ? atol(asked) : 10002;
  const long each = count / static_cast<long>(std::size(kHistories));
  for (const History& history : kHistories) {
    SCOPED_TRACE(history.name);
    const Replays seen = at_random(recorded(history, save_durably, kSector), each);
    EXPECT_EQ((Found{before(history), "new"}), seen.during);
    EXPECT_EQ(Found{"new"}, seen.after);
  }
}

// save() syncs nothing.
TEST(Save, CutOffFromPowerMayLoseTheListEvenAfterwards) {
  for (const History& history : kHistories) {
    SCOPED_TRACE(history.name);
    const Replays seen = at_random(recorded(history, save, kPage), 1000);
    EXPECT_TRUE(history.found == -1 || seen.during.count("LOST") == 1);
    EXPECT_EQ(1U, seen.after.count("LOST"));
  }
}

// What save() wrote a moment before need not be on the disk, but all of the next list is.
TEST(SaveDurably, CutOffFromPowerAfterwardsMakesUpForAnUnsyncedSave) {
  const auto both = [](PropertyList& list) {
    list.save();
    list.saveDurably();
  };
  const Disk disk = disks_of(recorded(kBefore, both, kPage)).back();
  EXPECT_EQ(Found{"new"}, each_way({true, disk, {}}).after);
}

// The replays find what is wrong with a save that syncs less, or too late.
TEST(SaveDurably, CutOffFromPowerNeedsEachOfItsSyncs) {
  const Recording durable = recorded(kBefore, save_durably, kPage);
  std::vector<std::vector<FileCall>::difference_type> syncs;
  for (size_t i = 0; i < durable.calls.size(); ++i) {
    if (durable.calls[i].kind == FileCall::kSync) syncs.push_back(static_cast<long>(i));
  }
  ASSERT_EQ(2U, syncs.size());

  Recording file_unsynced = durable;
  file_unsynced.calls.erase(file_unsynced.calls.begin() + syncs[0]);
  EXPECT_EQ((Found{"LOST", "new", "old"}), each_way(file_unsynced).during);

  Recording folder_unsynced = durable;
  folder_unsynced.calls.erase(folder_unsynced.calls.begin() + syncs[1]);
  EXPECT_EQ((Found{"new", "old"}), each_way(folder_unsynced).after);

  Recording file_synced_last = durable;
  const auto first = file_synced_last.calls.begin() + syncs[0];
  std::rotate(first, first + 1, file_synced_last.calls.end());
  EXPECT_EQ((Found{"LOST", "new", "old"}), each_way(file_synced_last).during);
}

// ---- random trees ----

namespace {

value_struct reloaded(const std::string& file) {
  PropertyList list(file);
  list.load();
  return list.getProperties();
}

// Whether a durable save of the tree is accepted.
bool is_saved(const std::string& file, const value_struct& tree) try {
  PropertyList list(file);
  list.getProperties() = tree;
  list.saveDurably();
  return true;
} catch (const util::save_failed&) {
  return false;
}

// Two that a durable save accepts, the first of which it has saved.
std::pair<value_struct, value_struct> saved_and_next(const std::string& file, unsigned seed) {
  Gardener gardener(seed);
  value_struct old;
  value_struct next;
  const TempDir elsewhere;
  do old = gardener.dict(3);
  while (!is_saved(file, old));
  do next = gardener.dict(3);
  while (!is_saved(elsewhere.file("x"), next));
  return {old, next};
}

bool is_either(const value_struct& loaded, const std::pair<value_struct, value_struct>& trees) {
  return same(as_filed(trees.first), loaded) || same(as_filed(trees.second), loaded);
}

}  // namespace

TEST(SaveDurably, KilledAnywhereLeavesOneOfTwoRandomTreesEqual) {
  const Unsynced quick;
  for (unsigned seed = 0; seed < 6; ++seed) {
    bool killed = true;
    for (int nth = 1; killed; ++nth) {
      SCOPED_TRACE(std::to_string(seed) + ", " + std::to_string(nth));
      const TempDir dir;
      const auto trees = saved_and_next(dir.file("x"), seed);
      killed = killed_before(nth, [&] { is_saved(dir.file("x"), trees.second); });
      ASSERT_TRUE(is_either(reloaded(dir.file("x")), trees));
    }
  }
}

TEST(SaveDurably, CutOffFromPowerLeavesOneOfTwoRandomTreesEqual) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    const TempDir dir;
    const auto trees = saved_and_next(dir.file("x"), seed);
    std::vector<Disk> disks = {Disk(dir.path(), kSector)};
    for (const FileCall& call : file_calls([&] { is_saved(dir.file("x"), trees.second); })) {
      disks.push_back(disks.back());
      disks.back().apply(call);
    }
    AtRandom random;
    for (int i = 0; i < 100; ++i) {
      const TempDir after;
      for (const auto& [name, text] : disks[random(disks.size())].left(std::ref(random))) {
        after.write(name, text);
      }
      ASSERT_TRUE(is_either(reloaded(after.file("x")), trees)) << seed;
    }
  }
}
