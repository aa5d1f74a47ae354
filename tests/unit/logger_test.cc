// SPDX-License-Identifier: MIT
#include "util/logger.h"

#include "tests/support/child.h"
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace util;
using support::in_child;

static_assert(!std::has_virtual_destructor<publisher>::value, "publisher stays as it is");
static_assert(!std::is_copy_constructible<logger>::value, "a logger is one of a kind");

namespace {

using Lines = std::vector<std::string>;

// Notes entries as "<mark><category>|<where>|<message>" and flushes as "<mark>flush". Derived
// straight from publisher: it has no virtual destructor.
class Spy : public publisher {
 public:
  explicit Spy(Lines& lines, std::string mark = "") : lines_(lines), mark_(std::move(mark)) {}

  int publish(category& c, const char* where, const char* format, va_list args) override {
    char message[256];
    vsnprintf(message, sizeof message, format, args);
    lines_.push_back(mark_ + c.name() + "|" + where + "|" + message);
    return -1;
  }
  void flush() override { lines_.push_back(mark_ + "flush"); }

 private:
  Lines& lines_;
  std::string mark_;
};

// A fresh logger of its own below the root, with a spy for publisher.
class Logger : public testing::Test {
 protected:
  Logger() : log(fresh(*logger::rootLogger())) { log.setPublisher(new Spy(lines)); }
  ~Logger() override { log.setPublisher(nullptr); }

  static logger& fresh(logger& above) {
    static int count = 0;
    logger& made = *above.childLogger("fresh " + std::to_string(++count));
    made.setUseParentPublisher(false);
    return made;
  }

  Lines lines;
  logger& log;
};

category event_loop("EVENT LOOP");

}  // namespace

// ---- the root ----

TEST(RootLogger, IsOne) { EXPECT_EQ(logger::rootLogger(), logger::rootLogger()); }

TEST(RootLogger, StartsSilentWithCheckpointsOn) {
  in_child([] {
    support::Captured error(stderr);
    logger* const root = logger::rootLogger();
    EXPECT_FALSE(root->isLoggable(WARNING));
    EXPECT_FALSE(root->useParentPublisher());
    EXPECT_FALSE(root->auto_flush());
    EXPECT_EQ("", root->get_checkpoint());
    root->logp(WARNING, "f()", "a.cc", 7, "dropped");
    EXPECT_EQ("a.cc:7", root->get_checkpoint());
    EXPECT_EQ("", error.text());
  });
}

TEST(RootLogger, PublishesToStandardError) {
  in_child([] {
    support::Captured error(stderr);
    const support::FrozenClock clock("2007-03-01T14:05:09");
    logger::rootLogger()->enable(WARNING);
    logger::rootLogger()->logp(WARNING, "void f()", "a.cc", 7, "disk %d", 3);
    EXPECT_EQ("2007-03-01T14:05:09 void f()\nWARNING: disk 3\n", error.text());
  });
}

TEST(RootLogger, ReplacingItsFirstPublisherClosesStandardError) {
  in_child([] {
    logger::rootLogger()->setPublisher(nullptr);
    EXPECT_EQ(-1, fcntl(2, F_GETFD));
    EXPECT_EQ(EBADF, errno);
  });
}

TEST(RootLogger, WithoutParentIgnoresTheFlagToUseOne) {
  in_child([] {
    Lines lines;
    logger* const root = logger::rootLogger();
    root->setPublisher(new Spy(lines));
    root->setUseParentPublisher(true);
    root->enable(WARNING);
    root->logp(WARNING, "f()", "a.cc", 7, "once");
    EXPECT_EQ(Lines{"WARNING|f()|once"}, lines);
    root->setPublisher(nullptr);
  });
}

// ---- named loggers ----

TEST(NamedLogger, IsTheSameForTheSameNameAndParent) {
  std::string name = "net";
  logger* const net = logger::getLogger("net");
  EXPECT_EQ(net, logger::getLogger(name));
  EXPECT_EQ(net, logger::rootLogger()->childLogger(name));
  EXPECT_EQ(net->childLogger("dns"), net->childLogger("dns"));
}

TEST(NamedLogger, DiffersUnderAnotherParentOrName) {
  logger* const net = logger::getLogger("net");
  EXPECT_NE(net, logger::getLogger("disk"));
  EXPECT_NE(net->childLogger("disk"), logger::getLogger("disk"));
  EXPECT_NE(net->childLogger("net"), net);
}

TEST(NamedLogger, WithAnEmptyNameIsTheRootUnderTheRootOnly) {
  logger* const root = logger::rootLogger();
  EXPECT_EQ(root, logger::getLogger(""));
  EXPECT_EQ(root, logger::getLogger(std::string()));
  EXPECT_EQ(root, root->childLogger(""));
  logger* const net = logger::getLogger("net");
  EXPECT_NE(root, net->childLogger(""));
  EXPECT_NE(net, net->childLogger(""));
}

TEST(NamedLogger, StartsWithACopyOfItsParentsBits) {
  in_child([] {
    logger* const parent = logger::getLogger("parent");
    parent->enable(MEMORY);
    logger* const child = parent->childLogger("child");
    EXPECT_TRUE(child->isLoggable(MEMORY));
    parent->enable(TIMING);
    parent->disable(MEMORY);
    EXPECT_TRUE(child->isLoggable(MEMORY));
    EXPECT_FALSE(child->isLoggable(TIMING));
  });
}

TEST(NamedLogger, WorksAsSoonAsTheRootIsSetUp) {
  in_child([] {
    support::Captured error(stderr);
    const support::FrozenClock clock("2007-03-01T14:05:09");
    logger::rootLogger()->enable(INFO);
    logger* const net = logger::getLogger("net");
    EXPECT_TRUE(net->useParentPublisher());
    EXPECT_FALSE(net->auto_flush());
    net->logp(INFO, "void f()", "a.cc", 7, "up");
    EXPECT_EQ("2007-03-01T14:05:09 void f()\nINFO: up\n", error.text());
    EXPECT_EQ("a.cc:7", net->get_checkpoint());
    EXPECT_EQ("", logger::rootLogger()->get_checkpoint());
  });
}

// ---- the pass test ----

TEST_F(Logger, DropsEverythingAtFirst) {
  log.logp(WARNING, "f()", "a.cc", 7, "dropped");
  EXPECT_EQ(Lines{}, lines);
  EXPECT_EQ("a.cc:7", log.get_checkpoint());
}

TEST_F(Logger, EnabledForDebugPassesTheLevelsButNotTheLoop) {
  log.enable(DEBUG);
  log.logp(WARNING, "f()", "a.cc", 1, "1");
  log.logp(INFO, "f()", "a.cc", 2, "2");
  log.logp(DEBUG, "f()", "a.cc", 3, "3");
  log.logp(event_loop && DEBUG, "f()", "a.cc", 4, "4");
  EXPECT_EQ((Lines{"WARNING|f()|1", "INFO|f()|2", "DEBUG|f()|3"}), lines);
  log.enable(event_loop);
  log.logp(event_loop && DEBUG, "f()", "a.cc", 5, "5");
  EXPECT_EQ("EVENT LOOP|DEBUG|f()|5", lines.back());
}

TEST_F(Logger, EnabledForWarningPassesWarningAlone) {
  log.enable(WARNING);
  EXPECT_TRUE(log.isLoggable(WARNING));
  EXPECT_FALSE(log.isLoggable(INFO));
  EXPECT_FALSE(log.isLoggable(DEBUG));
  EXPECT_FALSE(log.isLoggable(MEMORY));
}

TEST_F(Logger, DisableRemovesAllBitsOfACategory) {
  log.enable(DEBUG);
  log.enable(MEMORY);
  log.disable(INFO);
  log.disable(TIMING);  // was not enabled
  EXPECT_FALSE(log.isLoggable(WARNING));
  EXPECT_FALSE(log.isLoggable(DEBUG));
  EXPECT_TRUE(log.isLoggable(MEMORY));
  EXPECT_FALSE(log.isLoggable(TIMING));
}

TEST_F(Logger, ClearComponentsDisablesAll) {
  log.enable(DEBUG);
  log.enable(MEMORY);
  log.clear_components();
  EXPECT_FALSE(log.isLoggable(WARNING));
  EXPECT_FALSE(log.isLoggable(MEMORY));
}

// Claimed under known names, these change nothing in the registry.
TEST_F(Logger, TestsTheLow32BitsOfTheMaskOnly) {
  const std::tuple<const char*, uint64_t, uint64_t, bool> rows[] = {
      {"no bit at all",                  0,                  0,                  true },
      {"bit 32 only",                    0,                  0x100000000,        true },
      {"all high bits",                  0,                  0xFFFFFFFF00000000, true },
      {"a high bit and one not enabled", 0,                  0x100000001,        false},
      {"a high bit and one enabled",     0x1,                0x100000001,        true },
      {"bit 31, sign-extended",          0,                  0xFFFFFFFF80000000, false},
      {"bit 31, only high bits enabled", 0xFFFFFFFF00000000, 0xFFFFFFFF80000000, false},
      {"bit 31 enabled",                 0x80000000,         0xFFFFFFFF80000000, true },
      {"one bit of two",                 0x8,                0x18,               false},
      {"both bits",                      0x18,               0x18,               true },
      {"others enabled",                 0xFFFFFFFFFFFFFFF7, 0x8,                false},
  };
  for (const auto& [text, enabled, mask, passes] : rows) {
    SCOPED_TRACE(text);
    const category all(enabled, 0, "WARNING");
    category tested(mask, 0, "WARNING");
    const category& constant = tested;
    lines.clear();
    log.clear_components();
    log.enable(all);
    EXPECT_EQ(passes, log.isLoggable(tested));
    EXPECT_EQ(passes, log.isLoggable(constant));
    log.logp(tested, "f()", "a.cc", 1, "x");
    log.log(tested, "f()", "a.cc:1", "x");
    UTIL_LOG(&log, tested, "x");
    EXPECT_EQ(passes ? 3U : 0U, lines.size());
  }
}

TEST_F(Logger, DroppedMessageIsNeitherFormattedNorTimed) {
  log.setPublisher(new file_publisher(fopen("/dev/null", "w")));
  const support::Recorder calls;
  log.logp(WARNING, "f()", "a.cc", 7, "%s", "x");
  UTIL_LOG(&log, WARNING, "%s", "x");
  EXPECT_EQ(Lines{}, calls.calls());
  log.enable(WARNING);
  UTIL_LOG(&log, WARNING, "%s", "x");
  EXPECT_EQ(1, calls.count("time"));
}

// ---- logp ----

TEST_F(Logger, FormatsAsPrintf) {
  log.enable(INFO);
  log.logp(INFO, "void f(int)", "a.cc", 7, "%s has %d of %llu", "sda", -3, 18446744073709551615ULL);
  EXPECT_EQ(Lines{"INFO|void f(int)|sda has -3 of 18446744073709551615"}, lines);
}

TEST_F(Logger, NullTextsCountAsNull) {
  log.enable(INFO);
  const char* const none = nullptr;
  log.logp(INFO, none, none, 7, none);
  EXPECT_EQ("(null):7", log.get_checkpoint());
  log.log(INFO, none, "a.cc:8", none);
  EXPECT_EQ((Lines{"INFO|(null)|(null)", "INFO|(null)|(null)"}), lines);
}

namespace {

// Notes each entry, then renames the category.
class Renaming : public Spy {
 public:
  using Spy::Spy;
  int publish(category& c, const char* where, const char* format, va_list args) override {
    const int result = Spy::publish(c, where, format, args);
    c = WARNING;
    return result;
  }
};

}  // namespace

TEST_F(Logger, GivesPublishersACategoryOfItsOwn) {
  log.setPublisher(new Renaming(lines));
  log.enable(INFO);
  log.enable(event_loop);
  const category loop_info = event_loop && INFO;
  for (const category& mine : {INFO, loop_info}) {
    lines.clear();
    log.logp(mine, "f()", "a.cc", 7, "x");
    log.log(mine, "f()", "a.cc:7", "x");
    UTIL_LOG_AS(&log, mine, "f()", "x");
    UTIL_LOG_AS(&log, mine, "f()", "x");
    EXPECT_EQ(Lines(4, mine.name() + "|f()|x"), lines);
  }
  EXPECT_EQ("INFO", INFO.name());
  EXPECT_EQ("EVENT LOOP|INFO", loop_info.name());
}

TEST_F(Logger, GivesAMessageLoggedByAPublisherACategoryOfItsOwnToo) {
  class Logging : public publisher {
   public:
    Logging(logger& to, Lines& lines) : to_(to), lines_(lines) {}
    int publish(category& c, const char*, const char*, va_list) override {
      UTIL_LOG_AS(&to_, c, "inner", "x");
      UTIL_LOG_AS(&to_, DEBUG, "inner", "x");
      lines_.push_back(c.name() + "|outer");
      return 0;
    }

   private:
    logger& to_;
    Lines& lines_;
  };
  logger& other = fresh(log);
  other.setPublisher(new Renaming(lines));
  other.enable(DEBUG);
  log.setPublisher(new Logging(other, lines));
  log.enable(INFO);
  for (int i = 0; i < 2; ++i) {
    lines.clear();
    UTIL_LOG(&log, INFO, "x");
    EXPECT_EQ((Lines{"INFO|inner|x", "DEBUG|inner|x", "INFO|outer"}), lines);
  }
  other.setPublisher(nullptr);
}

// As with logp(): one copy a message.
TEST_F(Logger, ShowsAncestorsPublishersWhatTheFirstOneDidToTheCategory) {
  logger& child = fresh(log);
  child.setPublisher(new Renaming(lines));
  child.setUseParentPublisher(true);
  child.enable(INFO);
  child.logp(INFO, "f()", "a.cc", 7, "x");
  UTIL_LOG_AS(&child, INFO, "f()", "x");
  EXPECT_EQ((Lines{"INFO|f()|x", "WARNING|f()|x", "INFO|f()|x", "WARNING|f()|x"}), lines);
  child.setPublisher(nullptr);
}

TEST_F(Logger, LogsOnAfterAPublisherThrew) {
  class Throwing : public publisher {
   public:
    int publish(category&, const char*, const char*, va_list) override { throw 1; }
  };
  log.enable(INFO);
  log.setPublisher(new Throwing);
  EXPECT_THROW(UTIL_LOG(&log, INFO, "lost"), int);
  log.setPublisher(new Spy(lines));
  for (int i = 0; i < 2; ++i) UTIL_LOG_AS(&log, INFO, "f()", "x");
  EXPECT_EQ(Lines(2, "INFO|f()|x"), lines);
}

TEST_F(Logger, FlushesAfterEachPublishedMessageOnRequest) {
  log.enable(WARNING);
  EXPECT_FALSE(log.auto_flush());
  log.auto_flush(true);
  EXPECT_TRUE(log.auto_flush());
  log.logp(WARNING, "f()", "a.cc", 1, "1");
  log.logp(MEMORY, "f()", "a.cc", 2, "dropped");
  log.logp(WARNING, "f()", "a.cc", 3, "3");
  EXPECT_EQ((Lines{"WARNING|f()|1", "flush", "WARNING|f()|3", "flush"}), lines);
}

TEST_F(Logger, FlushesItsOwnPublisherOnly) {
  logger& child = fresh(log);
  Lines own;
  child.setPublisher(new Spy(own));
  child.setUseParentPublisher(true);
  child.auto_flush(true);
  child.enable(WARNING);
  child.logp(WARNING, "f()", "a.cc", 1, "1");
  EXPECT_EQ((Lines{"WARNING|f()|1", "flush"}), own);
  EXPECT_EQ((Lines{"WARNING|f()|1"}), lines);
  child.setPublisher(nullptr);
}

TEST_F(Logger, WithoutPublisherHasNothingToFlush) {
  logger& child = fresh(log);
  child.setUseParentPublisher(true);
  child.auto_flush(true);
  child.enable(WARNING);
  child.flush();
  child.logp(WARNING, "f()", "a.cc", 1, "1");
  EXPECT_EQ((Lines{"WARNING|f()|1"}), lines);
}

// ---- ancestors ----

TEST_F(Logger, WritesThroughItsOwnPublisherThenItsParents) {
  logger& child = fresh(log);
  child.setPublisher(new Spy(lines, "child "));
  child.setUseParentPublisher(true);
  EXPECT_TRUE(child.useParentPublisher());
  child.enable(WARNING);
  child.logp(WARNING, "f()", "a.cc", 1, "%d of %s", 1, "two");
  EXPECT_EQ((Lines{"child WARNING|f()|1 of two", "WARNING|f()|1 of two"}), lines);
  child.setPublisher(nullptr);
}

TEST_F(Logger, StopsAtTheFirstLoggerThatDoesNotUseItsParents) {
  logger& child = fresh(log);
  logger& grandchild = fresh(child);
  grandchild.setUseParentPublisher(true);
  child.setPublisher(new Spy(lines, "child "));
  grandchild.enable(WARNING);
  grandchild.logp(WARNING, "f()", "a.cc", 1, "1");
  EXPECT_EQ(Lines{"child WARNING|f()|1"}, lines);
  child.setPublisher(nullptr);
}

TEST_F(Logger, PassesOverAncestorsWithoutPublisher) {
  logger& child = fresh(log);
  logger& grandchild = fresh(child);
  child.setUseParentPublisher(true);
  grandchild.setUseParentPublisher(true);
  grandchild.enable(WARNING);
  grandchild.logp(WARNING, "f()", "a.cc", 1, "1");
  EXPECT_EQ(Lines{"WARNING|f()|1"}, lines);
}

TEST_F(Logger, DecidesByItsOwnBitsOnly) {
  logger& child = fresh(log);
  child.setUseParentPublisher(true);
  child.enable(MEMORY);
  log.enable(WARNING);
  child.logp(MEMORY, "f()", "a.cc", 1, "the parent would drop this");
  child.logp(WARNING, "f()", "a.cc", 2, "the parent would pass this");
  EXPECT_EQ(Lines{"MEMORY|f()|the parent would drop this"}, lines);
}

// ---- the checkpoint ----

TEST_F(Logger, KeepsTheOldCheckpointWhileHalted) {
  log.enable(WARNING);
  log.logp(WARNING, "f()", "a.cc", 1, "passed");
  EXPECT_EQ("a.cc:1", log.get_checkpoint());
  log.halt_checkpointing();
  log.logp(WARNING, "f()", "b.cc", 2, "passed");
  log.logp(MEMORY, "f()", "b.cc", 3, "dropped");
  UTIL_LOG(&log, MEMORY, "dropped");
  EXPECT_EQ("a.cc:1", log.get_checkpoint());
  log.resume_checkpointing();
  log.logp(MEMORY, "f()", "b.cc", 4, "dropped");
  EXPECT_EQ("b.cc:4", log.get_checkpoint());
}

TEST_F(Logger, SetsTheCheckpointAfterPublishingAndFlushing) {
  class Looking : public publisher {
   public:
    Looking(logger& log, Lines& seen) : log_(log), seen_(seen) {}
    int publish(category&, const char*, const char*, va_list) override { return look(); }
    void flush() override { look(); }

   private:
    int look() { return seen_.push_back(log_.get_checkpoint()), 0; }

    logger& log_;
    Lines& seen_;
  };
  log.enable(WARNING);
  log.auto_flush(true);
  log.set_checkpoint("before.cc", 1);
  log.setPublisher(new Looking(log, lines));
  log.logp(WARNING, "f()", "after.cc", 2, "x");
  EXPECT_EQ((Lines{"before.cc:1", "before.cc:1"}), lines);
  EXPECT_EQ("after.cc:2", log.get_checkpoint());
}

TEST_F(Logger, SetCheckpointWorksWhileHalted) {
  log.halt_checkpointing();
  log.set_checkpoint("SuperLoop.cc", 43);
  EXPECT_EQ("SuperLoop.cc:43", log.get_checkpoint());
}

TEST_F(Logger, CheckpointIsFileColonLine) {
  const std::string long_name(70000, 'x');
  const std::tuple<const char*, int, std::string> rows[] = {
      {"a.cc",            0,       "a.cc:0"          },
      {"",                12,      ":12"             },
      {long_name.c_str(), 5,       long_name + ":5"  },
      {"b.cc",            INT_MAX, "b.cc:2147483647" },
      {"b.cc",            INT_MIN, "b.cc:-2147483648"},
      {nullptr,           3,       "(null):3"        },
  };
  for (const auto& [file, line, text] : rows) {
    log.set_checkpoint(file, line);
    EXPECT_EQ(text, log.get_checkpoint());
  }
}

// ---- the publisher ----

namespace {

// Says that it was destroyed. Its text would leak if it were not destroyed completely.
class Mortal : public Spy {
 public:
  explicit Mortal(Lines& lines) : Spy(lines), lines_(lines), text_(100, 'x') {}
  ~Mortal() { lines_.push_back("destroyed " + std::to_string(text_.size())); }

 private:
  Lines& lines_;
  std::string text_;
};

class VirtualMortal : public Spy {
 public:
  using Spy::Spy;
  virtual ~VirtualMortal() = default;
};

class DerivedMortal : public VirtualMortal {
 public:
  explicit DerivedMortal(Lines& lines) : VirtualMortal(lines), lines_(lines), text_(100, 'x') {}
  ~DerivedMortal() override { lines_.push_back("destroyed " + std::to_string(text_.size())); }

 private:
  Lines& lines_;
  std::string text_;
};

class MortalFile : public file_publisher {
 public:
  explicit MortalFile(Lines& lines) : file_publisher(nullptr), lines_(lines), text_(100, 'x') {}
  ~MortalFile() override { lines_.push_back("destroyed " + std::to_string(text_.size())); }

 private:
  Lines& lines_;
  std::string text_;
};

// Its publisher does not begin where the object begins.
struct Before {
  std::string text = std::string(100, 'x');
};
class SecondBase : public Before, public Mortal {
 public:
  using Mortal::Mortal;
};

// No cast leads from its publisher to the object.
class VirtualBase : public virtual publisher {
 public:
  explicit VirtualBase(Lines& lines) : mortal_(lines) {}
  int publish(category&, const char*, const char*, va_list) override { return 0; }

 private:
  Mortal mortal_;
};

// Numbers only: nothing to destroy, memory to release.
class Trivial : public publisher {
 public:
  int publish(category&, const char*, const char*, va_list) override { return ++counts_[0]; }

 private:
  int counts_[50] = {};
};

// Handed over by an abstract class without a virtual destructor, and by one that only it may
// destroy.
class Interface : public publisher {
 public:
  virtual void more() = 0;
};

class Implementation : public Interface {
 public:
  int publish(category&, const char*, const char*, va_list) override { return 0; }
  void more() override {}
};

class Reserved : public publisher {
 public:
  int publish(category&, const char*, const char*, va_list) override { return 0; }

 protected:
  ~Reserved() = default;
};

}  // namespace

TEST_F(Logger, DestroysAClientsPublisherCompletely) {
  log.setPublisher(new Mortal(lines));
  EXPECT_EQ(Lines{}, lines);
  log.setPublisher(nullptr);
  EXPECT_EQ(Lines{"destroyed 100"}, lines);
}

TEST_F(Logger, TakesPublishersThatTheirClassCannotDestroy) {
  Interface* const interface = new Implementation;
  log.setPublisher(interface);
  log.setPublisher(static_cast<Reserved*>(nullptr));
  log.setPublisher(nullptr);
}

TEST_F(Logger, DestroysAPublisherThroughABaseWithAVirtualDestructor) {
  VirtualMortal* const base = new DerivedMortal(lines);
  log.setPublisher(base);
  log.setPublisher(nullptr);
  EXPECT_EQ(Lines{"destroyed 100"}, lines);
}

TEST_F(Logger, DestroysAPublisherThatIsASecondBase) {
  log.setPublisher(new SecondBase(lines));
  log.setPublisher(nullptr);
  EXPECT_EQ(Lines{"destroyed 100"}, lines);
}

TEST_F(Logger, DestroysAPublisherThatIsAVirtualBase) {
  log.setPublisher(new VirtualBase(lines));
  log.setPublisher(nullptr);
  EXPECT_EQ(Lines{"destroyed 100"}, lines);
}

TEST_F(Logger, DestroysAStreamPublisherThroughThePlainBase) {
  publisher* const base = new MortalFile(lines);
  log.setPublisher(base);
  log.setPublisher(nullptr);
  EXPECT_EQ(Lines{"destroyed 100"}, lines);
}

TEST_F(Logger, ReleasesTrivialPublishersThroughThePlainBase) {
  publisher* base = new Trivial;
  log.setPublisher(base);
  base = new syslog_publisher;
  log.setPublisher(base);
  log.setPublisher(nullptr);
}

TEST_F(Logger, ClosesTheReplacedPublishersFile) {
  const support::TempDir dir;
  const support::FrozenClock clock("2007-03-01T14:05:09");
  log.enable(INFO);
  const int before = support::open_descriptors();
  log.setPublisher(new rolling_file_publisher(dir.file("x").c_str(), 0, 0));
  log.logp(INFO, "f()", "a.cc", 1, "buffered");
  EXPECT_EQ("", dir.read("x"));
  log.setPublisher(new syslog_publisher);
  EXPECT_EQ("2007-03-01T14:05:09 f()\nINFO: buffered\n", dir.read("x"));
  EXPECT_EQ(before, support::open_descriptors());
}

TEST_F(Logger, WithoutPublisherPublishesNowhereAndStillSetsTheCheckpoint) {
  log.enable(INFO);
  log.setPublisher(nullptr);
  log.logp(INFO, "f()", "a.cc", 1, "nowhere");
  EXPECT_EQ("a.cc:1", log.get_checkpoint());
}

TEST_F(Logger, KeepsAPublisherThatIsSetAgain) {
  auto* const same = new Mortal(lines);
  log.setPublisher(same);
  log.setPublisher(same);
  log.enable(INFO);
  log.logp(INFO, "f()", "a.cc", 1, "alive");
  EXPECT_EQ(Lines{"INFO|f()|alive"}, lines);
}

// ---- the macro ----

namespace logger_test {

void start(logger* log, int ports) { UTIL_LOG(log, INFO, "%d ports", ports); }

}  // namespace logger_test

TEST_F(Logger, MacroSuppliesSignatureFileAndLine) {
  log.enable(INFO);
  logger_test::start(&log, 3);
  EXPECT_EQ(1U, lines.size());
  EXPECT_TRUE(lines[0] == "INFO|void logger_test::start(util::logger*, int)|3 ports" ||
              lines[0] == "INFO|void logger_test::start(util::logger *, int)|3 ports")
      << lines[0];
}

TEST_F(Logger, MacroSetsTheCheckpointOfItsOwnLine) {
  const int line = __LINE__ + 1;
  UTIL_LOG(&log, INFO, "dropped");
  EXPECT_EQ("logger_test.cc:" + std::to_string(line), log.get_checkpoint());
}

TEST_F(Logger, MacroSetsTheCheckpointForAMessageThatPassesToo) {
  log.enable(INFO);
  const int line = __LINE__ + 1;
  UTIL_LOG(&log, INFO, "passed");
  EXPECT_EQ("logger_test.cc:" + std::to_string(line), log.get_checkpoint());
}

TEST_F(Logger, MacroTakesATextInPlaceOfTheSignature) {
  log.enable(INFO);
  const int line = __LINE__ + 1;
  UTIL_LOG_AS(&log, INFO, "the whole program", "%d ports", 3);
  EXPECT_EQ(Lines{"INFO|the whole program|3 ports"}, lines);
  EXPECT_EQ("logger_test.cc:" + std::to_string(line), log.get_checkpoint());
}

TEST_F(Logger, MacroEvaluatesLoggerAndCategoryOnce) {
  int loggers = 0;
  int categories = 0;
  const auto the_log = [&] { return ++loggers, &log; };
  const auto the_category = [&]() -> category& { return ++categories, INFO; };
  UTIL_LOG(the_log(), the_category(), "dropped");
  log.enable(INFO);
  UTIL_LOG(the_log(), the_category(), "passed");
  EXPECT_EQ(2, loggers);
  EXPECT_EQ(2, categories);
}

TEST_F(Logger, MacroEvaluatesArgumentsOnlyIfTheMessagePasses) {
  int evaluated = 0;
  UTIL_LOG(&log, INFO, "%d", ++evaluated);
  EXPECT_EQ(0, evaluated);
  log.enable(INFO);
  UTIL_LOG(&log, INFO, "%d", ++evaluated);
  EXPECT_EQ(1, evaluated);
}

TEST_F(Logger, MacroTakesCombinedAndConstantCategories) {
  log.enable(DEBUG);
  log.enable(MEMORY);
  const category constant = INFO;
  UTIL_LOG(&log, MEMORY && DEBUG, "combined");
  UTIL_LOG(&log, constant, "constant");
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ("MEMORY|DEBUG|", lines[0].substr(0, 13));
  EXPECT_EQ("INFO|", lines[1].substr(0, 5));
}

TEST_F(Logger, MacroIsOneStatement) {
  log.enable(INFO);
  if (lines.empty())
    UTIL_LOG(&log, INFO, "first");
  else
    UTIL_LOG(&log, WARNING, "second");
  ASSERT_EQ(1U, lines.size());
  EXPECT_EQ("INFO|", lines[0].substr(0, 5));
}
