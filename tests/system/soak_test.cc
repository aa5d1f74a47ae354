// SPDX-License-Identifier: MIT
// Years in short: the same work over and over leaves a process with no more memory and no more
// descriptors than it had when it was warm. Prints a line for each work. NASUTIL_SOAK is the part
// of the counts that is done, a hundredth unless it is set; scripts/soak does all.
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/network.h"
#include "util/JSEmit.h"
#include "util/MD5Authenticator.h"
#include "util/NASConfDB.h"
#include "util/NetworkInterface.h"
#include "util/PropertyList.h"
#include "util/SuperLoop.h"
#include "util/ZEB_GPIO.h"
#include "util/logger.h"
#include "util/util.h"

#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace util;
using support::FrozenClock;
using support::TempDir;
using testing::ElementsAre;
using testing::PrintToString;
using testing::Test;

// Defined in programs that a sanitizer watches: they have an allocator of their own.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace {

// ---- what a process has ----

constexpr long kMostGrowth = 64 * 1024;

struct Usage {
  long allocated;  // bytes that the program has got from the C library
  long resident;   // bytes of memory that are the process's own: heap, stacks, changed data
  long descriptors;
};

bool is_sanitized() { return __sanitizer_get_current_allocated_bytes != nullptr; }

#ifdef NASUTIL_EMULATED
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

bool is_under_valgrind() {
  const char* const preloaded = getenv("LD_PRELOAD");
  return preloaded != nullptr && strstr(preloaded, "vgpreload") != nullptr;
}

// What a sanitizer, an emulator or valgrind takes for itself would be counted too.
bool owns_its_memory() { return !is_sanitized() && !kEmulated && !is_under_valgrind(); }

long allocated() {
  if (is_sanitized()) return static_cast<long>(__sanitizer_get_current_allocated_bytes());
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<long>(heap.uordblks + heap.hblkhd);
}

// By the page tables: the kernel's running count, in statm, is some pages behind on each processor.
long resident() {
  const std::string text = support::read_file("/proc/self/smaps_rollup");
  long kib = 0;
  const size_t line = text.find("\nAnonymous:");
  EXPECT_TRUE(line != std::string::npos && sscanf(&text[line], "\nAnonymous: %ld kB", &kib) == 1);
  return kib * 1024;
}

Usage usage() { return {allocated(), resident(), support::open_descriptors()}; }

// How far a process has come from what it had when it was warm.
class Growth {
 public:
  Growth() : warm_(usage()), most_(warm_) {}

  void look() {
    const Usage now = usage();
    most_.allocated = std::max(most_.allocated, now.allocated);
    most_.resident = std::max(most_.resident, now.resident);
    EXPECT_EQ(warm_.descriptors, now.descriptors);
  }

  // Of several processes the one that grew most.
  Usage most() const {
    return {most_.allocated - warm_.allocated, most_.resident - warm_.resident, warm_.descriptors};
  }

 private:
  Usage warm_;
  Usage most_;
};

// ---- work ----

double scale() {
  const char* const given = getenv("NASUTIL_SOAK");
  return given != nullptr ? strtod(given, nullptr) : 0.01;
}

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void judge(const char* what, long times, double took, const Usage& grown) {
  EXPECT_LT(grown.allocated, kMostGrowth);
  EXPECT_TRUE(grown.resident < kMostGrowth || !owns_its_memory());
  const auto kib = [](long bytes) { return static_cast<double>(bytes) / 1024; };
  printf(
      "%-15s %11ld times %7.1f s  allocated %+6.1f KiB  resident %+6.1f KiB%s  "
      "%ld descriptors  %s\n",
      what, times, took, kib(grown.allocated), kib(grown.resident),
      owns_its_memory() ? "" : " (not judged)", grown.descriptors,
      Test::HasFailure() ? "BROKEN" : "ok");
  fflush(stdout);
}

// Does `step`, which is given its number from 0 on, so often, to scale. A tenth of it warms up,
// what has grown is looked at after each further tenth.
void soak(const char* what, long often, const std::function<void(long)>& step) {
  constexpr int kTenths = 10;
  const long tenth = std::max(1L, std::lround(static_cast<double>(often) * scale() / kTenths));
  const double start = seconds();
  long done = 0;
  const auto do_a_tenth = [&] {
    const long end = done + tenth;
    for (; done < end && !Test::HasFailure(); ++done) step(done);
  };
  usage();  // once beforehand: it needs memory of its own
  do_a_tenth();
  Growth growth;
  for (int i = 1; i < kTenths; ++i) {
    do_a_tenth();
    growth.look();
  }
  judge(what, done, seconds() - start, growth.most());
}

// A logger that writes to rolling files of its own, until destruction.
class Log {
 public:
  Log(std::string file, off_t limit) : file_(std::move(file)), limit_(limit) {
    to->setUseParentPublisher(false);
    open();
  }
  ~Log() { to->setPublisher(nullptr); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void open() const { to->setPublisher(new rolling_file_publisher(file_.c_str(), limit_, 3)); }

  logger* const to = logger::getLogger("soak_test");

 private:
  std::string file_;
  off_t limit_;
};

// ---- passes ----

class Traffic;

class Guest final : public EventLoop {
 public:
  explicit Guest(Traffic& traffic) : traffic_(traffic) {}

  void runLoop(utime_t slice) override;
  const char* name() override { return "guest"; }

  bool present = false;
  long rounds = 0;

 private:
  Traffic& traffic_;
};

class Errand final : public Event {
 public:
  Errand(Traffic& traffic, utime_t due)
      : traffic_(traffic), due_(due), text_(new std::string(100, 'x')) {}

  void run(utime_t slice) override;

 private:
  Traffic& traffic_;
  utime_t due_;
  std::unique_ptr<std::string> text_;  // freed by run()
};

// A daemon's loop with sub-loops and events that come and go, with late rounds, and with passes
// that are logged. Rounds and runs are what the loop promises, whatever comes and goes.
class Traffic {
 public:
  explicit Traffic(const std::string& log) : log_(log, 65536), loop_(log_.to) {
    for (Guest& guest : guests_) turn(guest);
  }

  ~Traffic() {
    closing_ = true;
    clock_.advance(kLongestDelay + 1);
    loop_.runLoop(0);
    EXPECT_TRUE(waiting_.empty());
  }
  Traffic(const Traffic&) = delete;
  Traffic& operator=(const Traffic&) = delete;

  void pass(long n) {
    log_all(n % 64 == 0);
    if (n % 2 == 0) turn(some_guest());
    turning_ = n % 2 != 0;
    long rounds[kGuests];
    for (int i = 0; i < kGuests; ++i) rounds[i] = guests_[i].rounds + (guests_[i].present ? 1 : 0);
    const auto start = static_cast<utime_t>(clock_.now());
    const auto timeout = static_cast<utime_t>(some(20000));
    loop_.runLoop(timeout);
    for (int i = 0; i < kGuests; ++i) EXPECT_EQ(rounds[i], guests_[i].rounds);
    EXPECT_GE(Timer::now(), start + timeout);
    EXPECT_TRUE(waiting_.empty() || *waiting_.begin() >= start);
    clock_.sleeps.clear();
  }

  void work(const Guest& guest) {
    clock_.advance(some(1000) == 0 ? 30000 : some(3));
    if (closing_) return;
    if (some(3) == 0) add_errand();
    if (turning_ && &guest == &guests_[0]) turn(some_guest());
  }

  void finish(utime_t due) {
    EXPECT_LT(due, Timer::now());
    waiting_.erase(waiting_.find(due));
    if (!closing_ && some(1) == 0) add_errand();
  }

 private:
  static constexpr int kGuests = 8;
  static constexpr size_t kMostWaiting = 64;
  static constexpr int kLongestDelay = 100000;

  // From 0 to `most`.
  int some(int most) {
    return static_cast<int>(random_() % (static_cast<unsigned long>(most) + 1));
  }

  // Not the first one, which always stays: without a sub-loop events wait.
  Guest& some_guest() { return guests_[1 + some(kGuests - 2)]; }

  void turn(Guest& guest) {
    guest.present = !guest.present;
    if (guest.present) {
      loop_.addEvent(&guest);
    } else {
      loop_.removeEvent(&guest);
    }
  }

  void add_errand() {
    if (waiting_.size() == kMostWaiting) return;
    const Timer when(static_cast<utime_t>(some(kLongestDelay)));
    loop_.addEvent(new Errand(*this, when.get_expire_time()), when);
    waiting_.insert(when.get_expire_time());
  }

  void log_all(bool all) const {
    log_.to->clear_components();
    log_.to->enable(WARNING);
    if (all) log_.to->enable(EVENT_LOOP && DEBUG);
  }

  const Log log_;
  FrozenClock clock_;
  std::minstd_rand random_;
  SuperLoop loop_;
  Guest guests_[kGuests] = {Guest(*this), Guest(*this), Guest(*this), Guest(*this),
                            Guest(*this), Guest(*this), Guest(*this), Guest(*this)};
  std::multiset<utime_t> waiting_;  // when the events expire
  bool turning_ = false;            // a guest comes or goes during the pass
  bool closing_ = false;
};

void Guest::runLoop(utime_t /*slice*/) {
  ++rounds;
  traffic_.work(*this);
}

void Errand::run(utime_t /*slice*/) {
  text_.reset();
  traffic_.finish(due_);
}

// ---- saves ----

constexpr int kReaders = 8;

// What the processes know of each other.
struct Shared {
  std::atomic<int> saved{0};  // the last list whose save has returned
  std::atomic<int> begun{0};  // the last one whose save was begun
  std::atomic<bool> over{false};
  struct {
    long loads = 0;
    Usage grown = {};
  } readers[kReaders];
};

// Some writes' worth, of another size and with other letters each time.
std::string text_of(int number) {
  return std::string(static_cast<size_t>(4000 + number % 9973),
                     static_cast<char>('a' + number % 26));
}

void save(const std::string& file, int number) {
  PropertyList list(file);
  list["first"] = number;
  list["text"] = text_of(number);
  list["then"] = number;
  list.saveDurably();
}

// A list that was the last one at some moment of the load.
void load(const std::string& file, const Shared& shared) {
  PropertyList list(file);
  const int oldest = shared.saved;
  list.load();
  const int newest = shared.begun;
  const int number = list.intForKey("first");
  EXPECT_LE(oldest, number);
  EXPECT_GE(newest, number);
  EXPECT_EQ(text_of(number), list.stringForKey("text"));
  EXPECT_EQ(number, list.intForKey("then"));
  EXPECT_EQ(3U, list.getProperties().size());
}

// Processes that load the list all the time, until destruction.
class Readers {
 public:
  Readers(const std::string& file, Shared& shared) : shared_(shared) {
    fflush(stdout);
    for (int i = 0; i < kReaders; ++i) {
      pids_[i] = fork();
      if (pids_[i] == 0) run(file, i);
    }
  }
  ~Readers() {
    shared_.over = true;
    for (const pid_t pid : pids_) {
      int status = -1;
      EXPECT_EQ(pid, waitpid(pid, &status, 0));
      EXPECT_EQ(0, status);
    }
  }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

 private:
  // An exception ends the process, and with it the test.
  [[noreturn]] void run(const std::string& file, int which) noexcept {
    constexpr int kWarm = 100;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    usage();
    long loads = 0;
    for (; loads < kWarm; ++loads) load(file, shared_);
    Growth growth;
    for (; !shared_.over && !Test::HasFailure(); ++loads) {
      load(file, shared_);
      if (loads % 1000 == 0) growth.look();
    }
    growth.look();
    shared_.readers[which] = {loads, growth.most()};
    _exit(Test::HasFailure() ? 1 : 0);
  }

  Shared& shared_;
  pid_t pids_[kReaders] = {};
};

struct Unmap {
  void operator()(Shared* shared) const { munmap(shared, sizeof *shared); }
};

std::unique_ptr<Shared, Unmap> shared_memory() {
  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return std::unique_ptr<Shared, Unmap>(new (memory) Shared);
}

void judge_loads(const Shared& shared, double took) {
  long loads = 0;
  Usage most = {};
  for (const auto& reader : shared.readers) {
    loads += reader.loads;
    most.allocated = std::max(most.allocated, reader.grown.allocated);
    most.resident = std::max(most.resident, reader.grown.resident);
    most.descriptors = reader.grown.descriptors;
  }
  judge("loads beside it", loads, took, most);
}

// ---- lists ----

value_struct list_of_all_kinds() {
  value_struct list;
  for (int i = 0; i < 50; ++i) {
    const std::string name = "share " + std::to_string(i);
    list[name] = value_array{i, true, 0.5, name, utime_t{1172757909000}, byte_string(20, 'x')};
  }
  return list;
}

// Files lie in memory where the system has such a place, else in the current folder, unless TMPDIR
// says otherwise: what is looked for is in the process, not on the disk.
class Soak : public Test {
 protected:
  static void SetUpTestSuite() {
    setenv("TMPDIR", access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ".", 0);
    printf("files in %s\n", getenv("TMPDIR"));
  }
};

}  // namespace

TEST_F(Soak, Passes) {
  const TempDir dir;
  Traffic traffic(dir.file("log"));
  soak("passes", 10000000, [&](long n) { traffic.pass(n); });
}

TEST_F(Soak, Rotations) {
  const TempDir dir;
  const FrozenClock clock("2007-03-01T14:05:09");
  const Log log(dir.file("x"), 1000);
  log.to->enable(INFO);
  std::string before = "<missing>";
  long entries = 0;
  soak("rotations", 10000, [&](long n) {
    if (n % 16 == 0) log.open();
    std::string written;
    while (written.size() <= 1000) {
      log.to->log(INFO, "here", "soak_test.cc:1", "entry %ld", ++entries);
      written += "2007-03-01T14:05:09 here\nINFO: entry " + std::to_string(entries) + "\n";
    }
    written += "rotating log file\n";
    EXPECT_EQ(written, dir.read("x.0"));
    EXPECT_EQ(before, dir.read("x.1"));
    before = written;
  });
  EXPECT_THAT(dir.list(), ElementsAre("x", "x.0", "x.1", "x.2"));
}

TEST_F(Soak, DurableSavesBesideEightReaders) {
  const TempDir dir;
  const std::string file = dir.file("x");
  const auto shared = shared_memory();
  save(file, 0);
  const double start = seconds();
  {
    const Readers readers(file, *shared);
    soak("durable saves", 100000, [&](long n) {
      const int number = static_cast<int>(n) + 1;
      shared->begun = number;
      save(file, number);
      shared->saved = number;
    });
  }
  judge_loads(*shared, seconds() - start);
  EXPECT_THAT(dir.list(), ElementsAre("x", "x~"));
}

TEST_F(Soak, Configurations) {
  const std::string file = NASUTIL_SOURCE_DIR "/examples/appliance/nas_conf_db.xml";
  const std::string first = PrintToString(NASConfDB(file));
  soak("configurations", 100000, [&](long) { EXPECT_EQ(first, PrintToString(NASConfDB(file))); });
}

TEST_F(Soak, Interfaces) {
  soak("interfaces", 100000, [](long) {
    NetworkInterface::get_interfaces();  // whatever the machine has
    support::FakeInterfaces fake{
        {"eth0", "192.168.1.10"},
        {"eth1", "fe80::1"     }
    };
    fake.hardware = {
        {"eth0", "\1\2\3\4\5\6"},
        {"eth1", "\1\2\3\4\5\7"}
    };
    EXPECT_EQ(2U, NetworkInterface::get_interfaces().size());
    EXPECT_EQ(0, fake.open_lists());
  });
}

TEST_F(Soak, StatusPins) {
  const TempDir dir;
  const support::Redirect redirect("/proc/resource_dump", dir.file("dump"));
  soak("status pins", 100000, [&dir](long n) {
    support::Recorder recorder({"fopen"});
    recorder.before = [&](const std::string& call) {
      if (call == "fopen /proc/resource_dump r") dir.write("dump", std::to_string(n % 10));
    };
    ZEB_GPIO board;
    board.refresh();
    EXPECT_EQ(static_cast<unsigned int>(n % 10), board.getValue());
  });
}

TEST_F(Soak, ScriptTexts) {
  const Value value(list_of_all_kinds());
  const std::string first = JSEmit().emitFunction("state", value);
  soak("script texts", 100000, [&](long) {
    const Value copy(value);
    EXPECT_EQ(first, JSEmit().emitFunction("state", copy));
  });
}

TEST_F(Soak, LookUps) {
  logger* const named = logger::getLogger("soak_test");
  soak("look-ups", 10000000, [&](long) {
    EXPECT_EQ(named, logger::getLogger("soak_test"));
    EXPECT_EQ(2U, category::forName("DEBUG")->id());
    EXPECT_EQ(5U, category("EVENT LOOP").id());
    EXPECT_EQ("EVENT LOOP|DEBUG", (EVENT_LOOP && DEBUG).name());
  });
}

TEST_F(Soak, Texts) {
  MD5Authenticator authenticator;
  soak("texts", 1000000, [&](long n) {
    const std::string name = "a*b:" + std::to_string(n);
    EXPECT_EQ(name, unescape_string(escape_string(name)));
    const byte_string bytes(name.begin(), name.end());
    std::string text;
    byte_string back;
    b64_encode(bytes, text, 8);
    EXPECT_EQ(0, b64_decode(text, back));
    EXPECT_EQ(bytes, back);
    byte_string signature;
    authenticator.sign(bytes, signature);
    EXPECT_TRUE(authenticator.verify(bytes, signature));
    const utime_t instant = static_cast<utime_t>(n) * 1000000;
    EXPECT_EQ(instant, parse_time(unparse_time(instant, "%F %T"), "%Y-%m-%d %H:%M:%S"));
  });
}
