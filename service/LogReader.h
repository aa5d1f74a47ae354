// SPDX-License-Identifier: MIT
// Log files as entries, for pages and tools.
#pragma once

#include "util/export.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace service {

// One entry as it stands in the file, over two lines or more:
//
//   2007-03-01T14:05:09 void util::SuperLoop::addEvent(util::EventLoop*)
//   EVENT LOOP|DEBUG: add event loop 0x7ffd8a3c
//
// or a part of the file that is not an entry.
struct UTIL_EXPORT LogEntry {
  std::string text;
  std::string time;      // "2007-03-01T14:05:09"; if it has none, that of the entry before it
  std::string category;  // "EVENT LOOP|DEBUG"
  std::string fault;     // "x.log:17: entry is cut off", or empty

  std::string where() const;    // the function that logged; empty for what is not an entry
  std::string message() const;  // without its last line feed
};

// Reads one file. An entry ends where the next one begins, since messages may have any number of
// lines: at a line that starts with a time stamp and a blank. An entry that a crash has cut off may
// be followed by the first entry of the next run in the middle of a line. So a time stamp there
// begins an entry too, if the line below it can be a category's.
//
// Holds one entry at a time in memory; an entry longer than kLongest is read in parts.
class UTIL_EXPORT LogReader {
 public:
  static constexpr std::size_t kLongest = std::size_t{16} << 20;

  // `name` is for messages. Owns the descriptor.
  LogReader(const std::string& name, int descriptor);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Reads the next entry that is followed by the start of another. False if the file has no more
  // for now; once it has grown, there may be more. Throws std::system_error, once, if the file
  // cannot be read.
  bool next(LogEntry& to);

  // Reads what is left at the end of the file, without the line that rotation closes a file with.
  // Returns true once, then false.
  bool rest(LogEntry& to);

  // Reads what is left, if it can be an entry and the file has not grown since the last call. Lines
  // of it that come later follow as an entry of their own, without a fault.
  bool settled(LogEntry& to);

  int descriptor() const { return descriptor_; }  // -1 once it is closed
  bool rewritten() const;  // whether what was read is no longer in the file: it was truncated
  void stop();             // closes the file

 private:
  bool refill();
  std::size_t find_end();
  void take(std::size_t end, LogEntry& to);

  std::string name_;
  int descriptor_;
  std::string data_;              // what was read, from begin_ on not yet handed out
  std::size_t begin_ = 0;         // of the entry that is next
  bool begins_ = false;           // whether an entry is known to begin there
  std::size_t scanned_ = 0;       // start of the first line that find_end() has not passed
  std::size_t glued_ = 0;         // of a time stamp inside the line before; 0 is none
  std::size_t lines_ = 0;         // that find_end() has passed
  std::size_t line_ = 1;          // number of the line at begin_
  bool open_ = false;             // the last entry came from settled() and may go on
  std::uint64_t offset_ = 0;      // bytes read
  std::uint64_t settled_at_ = 0;  // offset_ at the last call of settled()
  std::string tail_;              // the last bytes before offset_
};

// Whether the text is the time stamp of an entry: 19 characters, which sort as the times do.
UTIL_EXPORT bool is_log_time(const std::string& text);

}  // namespace service
