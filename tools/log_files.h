// SPDX-License-Identifier: MIT
// A log over all its files.
#pragma once

#include "tools/log_entries.h"

#include <deque>
#include <memory>
#include <string>

namespace tools {

// Reads the file of that name and before it those that rotation has made of it: <path>.0 is the
// newest of them, the highest number the oldest. "-" is standard input.
//
// While it is followed, a log goes on in the next file when its file is renamed, however often that
// was, and from the start when its file is truncated.
class Log {
 public:
  Log(std::string path, bool follow);

  // False, with a message, where there is nothing to read.
  bool open();

  // The next entry. False at the end; of a followed log, at the end for now.
  bool next(Entry& to);

  // For a followed log that has come to its end for now:
  void look_for_change();      // finds out whether it was rotated or truncated
  bool settled(Entry& to);     // its last entry, once it has not grown for one call
  bool unfinished(Entry& to);  // whatever is left

 private:
  std::unique_ptr<EntryReader> open_file(const std::string& name);
  void open_newer();

  std::string path_;
  bool follow_;
  std::deque<std::unique_ptr<EntryReader>> files_;  // not yet read to the end, oldest first
  // The one before them. Kept open, so that no new file gets its identity.
  std::unique_ptr<EntryReader> read_;
  std::string complaint_;
};

}  // namespace tools
