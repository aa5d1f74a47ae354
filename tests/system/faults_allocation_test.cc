// SPDX-License-Identifier: MIT
// Memory runs out once, at each use of operator new in turn: the caller is told by std::bad_alloc,
// no file stays open, and what is on disk and in the objects is the old or the new (leaks show
// under the leak checker).
#include "tests/support/allocations.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/work.h"
#include "util/NASConfDB.h"
#include "util/PropertyList.h"
#include "util/SuperLoop.h"
#include "util/ZEB_GPIO.h"
#include "util/logger.h"

#include <unistd.h>

#include <functional>
#include <new>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::IsSubsetOf;
using testing::PrintToString;
using util::PropertyList;

// The parser itself loses the element at hand when memory runs out in it. Nobody else may.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
  return "leak:TiXmlNode::Identify\nleak:TiXmlElement::ReadValue\nleak:TiXmlElement::Parse\n";
}

namespace {

// "done", or "out of memory" where that is how `action` ended.
std::string outcome_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::bad_alloc&) {
    return "out of memory";
  }
  return "done";
}

// Each use of operator new in `action` fails once. `before` sets things up each time, `after` is
// given the outcome. Returns how many uses there were.
int fail_each_allocation(const std::function<void()>& before, const std::function<void()>& action,
                         const std::function<void(const std::string&)>& after) {
  for (int nth = 1;; ++nth) {
    SCOPED_TRACE(nth);
    before();
    const int descriptors = open_descriptors();
    std::string outcome;
    bool fired = false;
    {
      const AllocationFault fault(nth);
      outcome = outcome_of(action);
      fired = fault.fired();
    }
    EXPECT_EQ(descriptors, open_descriptors());
    EXPECT_EQ(fired ? "out of memory" : "done", outcome);
    after(outcome);
    if (!fired) return nth - 1;
  }
}

void fill(PropertyList& list, int number) {
  list["n"] = number;
  list["text"] = std::string("a text that is too long for a short string");
  list["deep"] = util::value_struct{
      {"array", util::Value(util::value_array{util::Value(1.5), util::Value(true)})},
      {"bytes", util::Value(util::byte_string{1, 2, 3})                            },
      {"date",  util::Value(util::utime_t{1172757909000})                          },
  };
}

// Without the temporary, another name of the file.
void save_alone(const std::string& file, int number) {
  PropertyList list(file);
  fill(list, number);
  list.save();
  EXPECT_EQ(0, unlink((file + ".tmp").c_str()));
}

class Idle : public util::EventLoop {
 public:
  void runLoop(util::utime_t) override {}
};

}  // namespace

TEST(OutOfMemory, SaveKeepsTheListAndFindsTheOldOrTheNew) {
  const TempDir dir;
  const std::string x = dir.file("x");
  PropertyList list(x);
  fill(list, 2);
  const int uses = fail_each_allocation(
      [&x] { save_alone(x, 1); }, [&list] { list.save(); },
      [&](const std::string& outcome) {
        EXPECT_EQ(3U, list.getProperties().size());
        PropertyList found(x);
        found.load();
        const int number = found.intForKey("n");
        EXPECT_TRUE(number == 2 || (number == 1 && outcome != "done")) << number;
      });
  EXPECT_LT(20, uses);
}

TEST(OutOfMemory, SavingDurablyKeepsTheListAndFindsTheOldOrTheNew) {
  const TempDir dir;
  const Unsynced quick;
  const std::string x = dir.file("x");
  PropertyList list(x);
  fill(list, 2);
  const int uses =
      fail_each_allocation([&x] { save_alone(x, 1); }, [&list] { list.saveDurably(); },
                           [&](const std::string& outcome) {
                             EXPECT_EQ(3U, list.getProperties().size());
                             PropertyList found(x);
                             found.load();
                             EXPECT_EQ(outcome == "done" ? 2 : 1, found.intForKey("n"));
                             EXPECT_THAT(dir.list(), IsSubsetOf({"x", "x~"}));
                           });
  EXPECT_LT(10, uses);
}

TEST(OutOfMemory, LoadKeepsTheList) {
  const TempDir dir;
  const std::string x = dir.file("x");
  save_alone(x, 1);
  PropertyList list(x);
  const int uses = fail_each_allocation(
      [&list] {
        list.getProperties().clear();
        list["n"] = 7;
      },
      [&list] { list.load(); },
      [&list](const std::string& outcome) {
        EXPECT_EQ(outcome == "done" ? 1 : 7, list.intForKey("n"));
        EXPECT_EQ(outcome == "done" ? 3U : 1U, list.getProperties().size());
      });
  EXPECT_LT(20, uses);
}

TEST(OutOfMemory, ReadingAConfigurationFailsAsAWhole) {
  const std::string conf = NASUTIL_SOURCE_DIR "/examples/appliance/nas_conf_db.xml";
  const std::string whole = PrintToString(util::NASConfDB(conf));
  const int uses =
      fail_each_allocation([] {}, [&conf] { const util::NASConfDB database(conf); },
                           [&](const std::string&) {
                             EXPECT_EQ(whole.size(), PrintToString(util::NASConfDB(conf)).size());
                           });
  EXPECT_LT(50, uses);
}

TEST(OutOfMemory, RefreshingThePinsNeedsNone) {
  const Fault fault("fopen", 2, Fault::kEvery);
  util::ZEB_GPIO board;
  const long before = allocations();
  board.refresh();
  EXPECT_EQ(before, allocations());
}

// A rotation in the middle of a loop's pass must not end the process.
TEST(OutOfMemory, LoggingAndRotatingNeedNone) {
  const TempDir dir;
  const FrozenClock clock;
  util::rolling_file_publisher log(dir.file("a log with a long name").c_str(), 10, 3);
  const long before = allocations();
  publish(log, "%s", "first");
  publish(log, "%s", "second");
  EXPECT_EQ(before, allocations());
  EXPECT_EQ("2001-09-09T01:46:40 here\nINFO: second\nrotating log file\n",
            dir.read("a log with a long name.0"));
}

TEST(OutOfMemory, AddingAnEventLeavesItToTheCaller) {
  FrozenClock clock;
  int times = 0;
  auto* const event = new Happen(times);
  Idle idle;
  util::SuperLoop loop;
  loop.addEvent(&idle);
  const int uses = fail_each_allocation([] {}, [&] { loop.addEvent(event, util::Timer(0)); },
                                        [](const std::string&) {});
  EXPECT_LT(0, uses);
  clock.advance(1);
  loop.runLoop(0);
  EXPECT_EQ(1, times);
}

// A pass has nobody to tell.
TEST(OutOfMemory, ALoopPassNeedsNone) {
  FrozenClock clock;
  int times = 0;
  Idle idle;
  util::SuperLoop loop(util::logger::getLogger("passing"));
  loop.addEvent(&idle);
  loop.addEvent(new Happen(times), util::Timer(0));
  clock.advance(1);
  const long before = allocations();
  loop.runLoop(0);
  EXPECT_EQ(before, allocations());
  EXPECT_EQ(1, times);
}

TEST(OutOfMemory, APassOfALoopWithoutEventsNeedsNone) {
  Idle idle;
  util::SuperLoop loop(util::logger::getLogger("idling"));
  loop.addEvent(&idle);
  const long before = allocations();
  loop.runLoop(0);
  EXPECT_EQ(before, allocations());
}
