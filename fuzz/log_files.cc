// SPDX-License-Identifier: MIT
// An input is what is appended to a log that nas-log follows, and between that what happens to it,
// one byte each (see Happens).
#include "tools/log_files.h"

#include "fuzz/fuzz.h"
#include "fuzz/logs.h"
#include "tests/support/files.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

enum Happens : char { kLook = 1, kSettle, kRotate, kEmpty };

constexpr size_t kMaxRotations = 12;
constexpr size_t kTail = 256;  // that is compared to find out whether a file was emptied

// The log on the disk: its files, the oldest first.
class Disk {
 public:
  explicit Disk(const support::TempDir& dir) : dir_(dir) { begin(); }
  ~Disk() {
    for (const std::string& name : dir_.list()) std::filesystem::remove(dir_.file(name));
  }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  std::string path() const { return dir_.file("x"); }
  std::string name(size_t i) const {
    return i + 1 == files.size() ? path() : old(files.size() - 2 - i);
  }

  void append(const std::string& text) {
    std::ofstream(path(), std::ios::binary | std::ios::app) << text;
    files.back() += text;
  }

  void empty() {
    std::filesystem::resize_file(path(), 0);
    files.back().clear();
  }

  void rotate() {
    if (files.size() > kMaxRotations) return;
    for (size_t number = files.size() - 1; number > 0; --number) {
      std::filesystem::rename(old(number - 1), old(number));
    }
    std::filesystem::rename(path(), old(0));
    begin();
  }

  std::vector<std::string> files;

 private:
  std::string old(size_t number) const { return path() + "." + std::to_string(number); }

  void begin() {
    files.emplace_back();
    append("");
  }

  const support::TempDir& dir_;
};

// Who follows it by the rules.
class Model {
 public:
  explicit Model(const Disk& disk) : disk_(disk), file_(disk.path()) {}

  void look() {
    while (at_ + 1 < disk_.files.size()) {
      read();
      file_.rest(entries);
      ++at_;
      file_ = fuzz::LogFile(disk_.name(at_));
    }
    const std::string& now = disk_.files[at_];
    const std::string& known = file_.text();
    const std::string tail = known.substr(known.size() - std::min(known.size(), kTail));
    const size_t from = known.size() - tail.size();
    if (now.size() < known.size() || now.compare(from, tail.size(), tail) != 0) {
      file_.rest(entries);
      file_ = fuzz::LogFile(disk_.path());
    }
    read();
  }

  void settle() { file_.settled(entries); }
  void end() { file_.rest(entries); }

  std::vector<fuzz::LogEntry> entries;

 private:
  void read() {
    const std::string& text = disk_.files[at_];
    file_.append(text.substr(std::min(file_.text().size(), text.size())));
    file_.complete(entries);
  }

  const Disk& disk_;
  size_t at_ = 0;
  fuzz::LogFile file_;
};

template <class Entry>
std::string spelled(const Entry& entry) {
  return entry.time + "|" + entry.category + "|" + entry.fault + "|" + entry.text + "\n";
}

class Follower {
 public:
  explicit Follower(const std::string& path) : log_(path, true) {
    fuzz::require(log_.open(), "a log that is there is opened");
  }

  void look() {
    log_.look_for_change();
    while (log_.next(entry_)) entries += spelled(entry_);
  }

  void settle() {
    if (log_.settled(entry_)) entries += spelled(entry_);
  }

  void end() {
    if (log_.unfinished(entry_)) entries += spelled(entry_);
  }

  std::string entries;

 private:
  tools::Log log_;
  service::LogEntry entry_;
};

class Run {
 public:
  explicit Run(const support::TempDir& dir) : disk_(dir), model_(disk_), follower_(disk_.path()) {}

  void happens(char what) {
    switch (what) {
      case kLook: return look();
      case kSettle: return settle();
      case kRotate: return rotate();
      case kEmpty: return empty();
      default: coming_ += what;
    }
  }

  void end() {
    look();
    model_.end();
    follower_.end();
    std::string expected;
    for (const fuzz::LogEntry& entry : model_.entries) expected += spelled(entry);
    fuzz::require_equal(expected, follower_.entries, "following a log");
  }

 private:
  void write() {
    disk_.append(coming_);
    coming_.clear();
  }

  void look() {
    write();
    model_.look();
    follower_.look();
    emptied_ = false;
  }

  void settle() {
    look();
    model_.settle();
    follower_.settle();
  }

  // What came after it was emptied is lost to those who did not look.
  void rotate() {
    write();
    if (emptied_) look();
    disk_.rotate();
  }

  void empty() {
    look();
    disk_.empty();
    emptied_ = true;
  }

  Disk disk_;
  Model model_;
  Follower follower_;
  std::string coming_;  // not yet written
  bool emptied_ = false;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::TempDir dir;
  Run run(dir);
  for (size_t i = 0; i < size; ++i) run.happens(static_cast<char>(data[i]));
  run.end();
  return 0;
}
