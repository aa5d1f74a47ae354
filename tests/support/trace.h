// SPDX-License-Identifier: MIT
// Children whose system calls are watched, by ptrace().
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace support {

// A system call that opens, changes, names or syncs a file.
struct FileCall {
  enum Kind { kOpen, kClose, kWrite, kSync, kLink, kRename, kUnlink, kOwner, kMode };

  Kind kind;
  std::string path;     // opened, removed, or the first of the two of link() and rename()
  std::string to;       // the second of them
  int descriptor;       // opened or used
  uint64_t open_flags;  // as open() takes them
  std::string bytes;    // written
};

// Those that `action` makes with success in a child, which runs to its end.
std::vector<FileCall> file_calls(const std::function<void()>& action);

// Runs `action` in a child and kills it before its `nth` such call (1 is the first), which is after
// the one before. Between them nothing changes on disk. False where it came to its end before.
bool killed_before(int nth, const std::function<void()>& action);

}  // namespace support
