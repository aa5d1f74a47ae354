// SPDX-License-Identifier: MIT
// Logs on a small file system of their own: full, cut off, killed. NASUTIL_SOAK is the part of the
// rounds that is done; scripts/soak does all.
#include "service/LogFile.h"
#include "tests/support/child.h"
#include "tests/support/files.h"
#include "tests/support/work.h"
#include "util/logger.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using service::LogFile;
using service::LogFileOptions;
using support::publish;
using support::TempDir;
using Names = std::vector<std::string>;

// A file system of its own, seen by a child of the test alone.
void on_small_disk(const std::string& options, const std::function<void(const TempDir&)>& body) {
  if (!support::namespaces_work()) GTEST_SKIP() << "no mount namespaces here: no small file system";
  support::in_child([&] {
    const TempDir dir;
    support::mount_memory(dir.path(), options);
    body(dir);
  });
}

// Takes all the room there is, up to its end.
class Ballast {
 public:
  explicit Ballast(const std::string& path)
      : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {
    const std::string block(4096, 'b');
    while (write(file_, block.data(), block.size()) > 0) continue;
  }
  ~Ballast() {
    close(file_);
    unlink(path_.c_str());
  }
  Ballast(const Ballast&) = delete;
  Ballast& operator=(const Ballast&) = delete;

 private:
  const std::string path_;
  const int file_;
};

std::string content(const std::string& path) {
  if (path.substr(path.size() - 3) != ".gz") return support::read_file(path);
  FILE* const pipe = popen(("gzip -dc '" + path + "'").c_str(), "r");
  std::string text;
  char bytes[4096];
  for (size_t size = 0; (size = fread(bytes, 1, sizeof bytes, pipe)) > 0;) text.append(bytes, size);
  EXPECT_EQ(0, pclose(pipe)) << path;
  return text;
}

// The files of the log x by their numbers, -1 is the log itself. A compressed one beside a plain
// one does not count.
std::map<long, std::string> log_files(const TempDir& dir) {
  std::map<long, std::string> files;
  for (const std::string& name : dir.list()) {
    if (name != "x" && name.substr(0, 2) != "x.") continue;
    files.emplace(name == "x" ? -1 : strtol(&name[2], nullptr, 10), name);  // plain ones come first
  }
  return files;
}

std::string all(const TempDir& dir) {
  const std::map<long, std::string> files = log_files(dir);
  std::string text;
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    text += content(dir.file(file->second));
  }
  return text;
}

// What entries tell of themselves, in the order of the log: "INFO: <run> <number> xxxE", and how
// many were lost between them.
struct Seen {
  long run;
  long number;
  long lost_before;
};

std::vector<Seen> seen_in(const std::string& text) {
  std::vector<Seen> all_seen;
  long lost = 0;
  for (size_t at = 0; (at = text.find(": ", at)) != text.npos; at += 2) {
    long run = 0;
    long number = 0;
    int size = 0;
    if (sscanf(&text[at], ": %ld entr%*s lost since%n", &number, &size) == 1 && size > 0) {
      lost += number;
    } else if (sscanf(&text[at], ": %ld %ld %n", &run, &number, &size) == 2 && size > 0) {
      const size_t end = text.find_first_not_of('x', at + static_cast<size_t>(size));
      if (end == text.npos || text[end] != 'E') continue;  // cut off
      all_seen.push_back({run, number, lost});
      lost = 0;
    }
  }
  return all_seen;
}

// Within one run each entry is there once and in order, or counted.
void expect_all_there_or_counted(const std::vector<Seen>& all_seen) {
  for (size_t i = 1; i < all_seen.size(); ++i) {
    const Seen& before = all_seen[i - 1];
    const Seen& now = all_seen[i];
    ASSERT_LT(before.number, now.number);
    if (before.run == now.run) {
      ASSERT_EQ(now.lost_before, now.number - before.number - 1) << "before " << now.number;
    }
  }
}

int publish_numbered(LogFile& log, long run, long number, size_t size) {
  static util::category info = util::INFO;
  const std::string filling(size, 'x');
  struct {
    LogFile& log;
    int operator()(const char* format, ...) const {
      va_list args;
      va_start(args, format);
      const int result = log.publish(info, "here", format, args);
      va_end(args);
      return result;
    }
  } const to = {log};
  return to("%ld %ld %sE", run, number, filling.c_str());
}

}  // namespace

TEST(LogFileDisk, HasEachEntryOfAFullDiskInTheFileOrCountsIt) {
  on_small_disk("size=512k", [](const TempDir& dir) {
    LogFileOptions options;
    options.rotate_above = 0;
    LogFile log(dir.file("x"), options);
    long number = 0;
    while (number < 100) publish_numbered(log, 0, ++number, 200);
    {
      const Ballast ballast(dir.file("ballast"));
      while (number < 1000) publish_numbered(log, 0, ++number, 200);
      EXPECT_EQ(std::errc::no_space_on_device, log.error());
      EXPECT_LT(0U, log.lost());
    }
    while (number < 1100) publish_numbered(log, 0, ++number, 200);
    EXPECT_FALSE(log.error());
    const std::vector<Seen> found = seen_in(all(dir));
    expect_all_there_or_counted(found);
    EXPECT_EQ(1, found.front().number);
    EXPECT_EQ(1100, found.back().number);
    EXPECT_EQ(1100U, found.size() + log.lost());
  });
}

TEST(LogFileDisk, KeepsAllOldFilesOnAFullDisk) {
  on_small_disk("size=256k", [](const TempDir& dir) {
    LogFileOptions options;
    options.rotate_above = 4000;
    options.rotate_daily = true;
    options.old_files = 3;
    LogFile log(dir.file("x"), options);
    long number = 0;
    while (number < 200) publish_numbered(log, 0, ++number, 100);
    const std::string before = content(dir.file("x.0")) + content(dir.file("x.1"));
    {
      const Ballast ballast(dir.file("ballast"));
      const std::string oldest = content(dir.file("x.2"));
      while (number < 2000) publish_numbered(log, 0, ++number, 100);
      EXPECT_EQ(std::errc::no_space_on_device, log.error());
      EXPECT_TRUE(log.rotate());
      EXPECT_EQ(Names({"ballast", "x", "x.0", "x.1", "x.2"}), dir.list());
      EXPECT_EQ(before, content(dir.file("x.0")) + content(dir.file("x.1")));
      EXPECT_EQ(oldest, content(dir.file("x.2")));
    }
    publish_numbered(log, 0, ++number, 100);
    EXPECT_FALSE(log.error());
    expect_all_there_or_counted(seen_in(all(dir)));
    EXPECT_EQ(number, seen_in(all(dir)).back().number);
  });
}

TEST(LogFileDisk, WritesOnWhereThereIsNoRoomForAnotherFile) {
  on_small_disk("size=256k,nr_inodes=4", [](const TempDir& dir) {  // the folder and three files
    LogFileOptions options;
    options.rotate_above = 1000;
    options.old_files = 5;
    LogFile log(dir.file("x"), options);
    for (long number = 1; number <= 100; ++number) publish_numbered(log, 0, number, 100);
    EXPECT_FALSE(log.error());
    EXPECT_EQ(Names({"x", "x.0", "x.1"}), dir.list());
    const std::vector<Seen> found = seen_in(all(dir));
    expect_all_there_or_counted(found);
    EXPECT_EQ(100U, found.size());
    EXPECT_EQ(std::errc::no_space_on_device, log.rotate());
  });
}

TEST(LogFileDisk, KeepsAFileThatThereIsNoRoomToCompress) {
  on_small_disk("size=128k", [](const TempDir& dir) {
    LogFileOptions options;
    options.rotate_above = 0;
    LogFile log(dir.file("x"), options);
    std::mt19937 random;
    std::string noise(30000, ' ');
    for (char& c : noise) c = static_cast<char>('!' + random() % 90);
    publish(log, "%s", noise.c_str());
    EXPECT_FALSE(log.rotate());
    EXPECT_FALSE(log.rotate());
    publish(log, "small");
    EXPECT_FALSE(log.rotate());
    const std::string before = all(dir);
    const Ballast ballast(dir.file("ballast"));
    options.compress = true;
    LogFile again(dir.file("x"), options);
    for (int i = 0; i < 200; ++i) {
      poll(nullptr, 0, 10);
      again.flush();
      if (i > 110 && dir.list()[0][0] != '.') break;
    }
    EXPECT_EQ(Names({"ballast", "x", "x.0", "x.1"}), dir.list());
    EXPECT_EQ(before, all(dir));
  });
}

// ---- at random ----

namespace {

constexpr long kMostNumbers = 1 << 22;

struct Shared {
  volatile long last;                // number that was begun
  volatile char told[kMostNumbers];  // which were told to be in the file
};

// A daemon as it is killed: logs until then.
[[noreturn]] void daemon(const TempDir& dir, Shared& shared, long run) {
  std::mt19937 random(static_cast<unsigned>(run));
  LogFileOptions options;
  options.buffered = run % 2 == 1;
  options.rotate_above = 6000;
  options.old_files = 4;
  options.compress = run % 3 == 0;
  std::error_code error;
  LogFile log(dir.file("x"), options, error);
  long first_waiting = shared.last + 1;
  while (shared.last + 1 < kMostNumbers) {
    const long number = shared.last + 1;
    shared.last = number;
    const bool is_there =
        publish_numbered(log, run, number, random() % 100 == 0 ? 9000 : random() % 300) > 0;
    if (!options.buffered) {
      if (is_there) shared.told[number] = 1;
    } else if (random() % 10 == 0) {
      const uint64_t lost = log.lost();
      log.flush();
      if (!log.error() && lost == 0) {
        for (; first_waiting <= number; ++first_waiting) shared.told[first_waiting] = 1;
      }
    }
    if (random() % 200 == 0) static_cast<void>(log.rotate());
    // Some do nothing but log until they have lost something, and then leave time to see it.
    const bool is_slow = run % 4 != 0 || (log.lost() > 0 && !log.error());
    if (is_slow && random() % 20 == 0) poll(nullptr, 0, 1);
  }
  _exit(1);
}

double scale() {
  const char* const given = getenv("NASUTIL_SOAK");
  return given != nullptr ? strtod(given, nullptr) : 0.03;
}

}  // namespace

TEST(LogFileDisk, LosesNothingThatItHasToldKilledAndFilledAtRandom) {
  on_small_disk("size=160k,nr_inodes=40", [](const TempDir& dir) {
    auto* const shared = static_cast<Shared*>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::mt19937 random;
    long oldest = 0;
    long seen_and_told = 0;
    long counted = 0;
    const long rounds = std::max(10L, std::lround(1000 * scale()));
    for (long run = 0; run < rounds && !testing::Test::HasFailure(); ++run) {
      SCOPED_TRACE(run);
      const pid_t child = fork();
      if (child == 0) daemon(dir, *shared, run);
      for (auto steps = random() % 4; steps > 0; --steps) {
        poll(nullptr, 0, static_cast<int>(random() % 6));
        if (random() % 2 == 0) continue;
        const Ballast ballast(dir.file("ballast"));
        poll(nullptr, 0, static_cast<int>(random() % 12));
        if (random() % 3 == 0) kill(child, SIGKILL);  // while the disk is full
      }
      usleep(static_cast<useconds_t>(random() % 3000));
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);

      const auto files = log_files(dir);
      const std::vector<Seen> found = seen_in(all(dir));
      expect_all_there_or_counted(found);
      if (found.empty()) continue;
      // Old files go when there are enough of them, never otherwise.
      EXPECT_TRUE(found.front().number == oldest || oldest == 0 || files.size() >= 4);
      oldest = found.front().number;
      size_t at = 0;
      for (long number = oldest; number <= shared->last; ++number) {
        while (at < found.size() && found[at].number < number) ++at;
        const bool is_there = at < found.size() && found[at].number == number;
        if (shared->told[number] == 0) continue;
        ASSERT_TRUE(is_there) << number;
        ++seen_and_told;
      }
      for (const Seen& one : found) counted += one.lost_before;
    }
    EXPECT_LT(0, seen_and_told);
    printf(
        "killed %ld times, %ld entries begun: looked for %ld told ones and found them, saw %ld "
        "counted as lost\n",
        rounds, shared->last, seen_and_told, counted);
  });
}
