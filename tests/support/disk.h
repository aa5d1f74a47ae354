// SPDX-License-Identifier: MIT
// What a disk may hold after the power has failed.
#pragma once

#include "tests/support/trace.h"

#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace support {

// Chooses one of so many things, numbered from 0.
using Choose = std::function<size_t(size_t)>;

// One folder's files. What was synced stays. Of all else the disk keeps what it likes, whatever the
// order in which it was asked for: of what a file's bytes or a name were changed to each change or
// none, of a write also a half, or its length without its bytes. A rename is two changes. This is
// worse than any file system does; modes and owners are left out.
class Disk {
 public:
  using Files = std::map<std::string, std::string>;  // content by name

  // All that lies in the folder counts as synced. A write is kept or lost by blocks of that size.
  Disk(const std::string& folder, size_t block);

  void apply(const FileCall& call);  // of other folders' files nothing is known

  Files seen() const;                      // by programs that run
  Files left(const Choose& choose) const;  // once the power has failed

 private:
  struct Change {
    bool truncates;
    size_t at;
    std::string bytes;
  };
  struct File {
    std::string synced;
    std::vector<Change> changes;  // since then
  };
  using Number = size_t;
  static constexpr Number kNone = 0;
  struct Name {
    Number synced = kNone;
    std::vector<Number> changes;

    Number now() const { return changes.empty() ? synced : changes.back(); }
  };
  struct Open {
    Number file;
    size_t at;
  };

  std::string name_of(const std::string& path) const;  // empty for the folder and outside of it
  void open(const FileCall& call);
  void write(Open& to, const std::string& bytes);
  void name(const std::string& name, Number file);
  std::string content(const File& file, const Choose& choose) const;

  const std::string folder_;
  const size_t block_;
  std::map<Number, File> files_;
  std::map<std::string, Name> names_;
  std::map<int, Open> open_;  // by descriptor; the folder itself as kNone
};

// Chooses everything that can be chosen, one way after the other.
class EachWay {
 public:
  size_t operator()(size_t count);
  bool next();  // starts the next way; false after the last one

 private:
  std::vector<std::pair<size_t, size_t>> chosen_;  // and of how many
  size_t at_ = 0;
};

// Chooses at random, the same on every machine.
class AtRandom {
 public:
  size_t operator()(size_t count) { return random_() % count; }

 private:
  std::mt19937 random_;  // its seed is fixed
};

}  // namespace support
