// SPDX-License-Identifier: MIT
// A log file as entries.
#pragma once

#include <stddef.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace tools {

// One entry as it stands in the file, over two lines or more:
//
//   2007-03-01T14:05:09 void util::SuperLoop::addEvent(util::EventLoop*)
//   EVENT LOOP|DEBUG: add event loop 0x7ffd8a3c
//
// or a part of the file that is no entry.
struct Entry {
  std::string text;
  std::string time;      // "2007-03-01T14:05:09"; where it has none, that of the entry before it
  std::string category;  // "EVENT LOOP|DEBUG"
  std::string fault;     // "x.log:17: entry is cut off", or empty
};

// The time stamp of an entry: 19 characters, which sort as the times do.
bool is_time(std::string_view text);

// The category's name within the text of an entry; a null view where there is none.
std::string_view category_of(std::string_view text);

// Reads one file. An entry ends where the next one begins, since messages may have any number of
// lines: at a line that starts with a time stamp and a blank. What a crash has cut off may have the
// first entry of the next run behind it, in the middle of a line. So a time stamp there begins an
// entry too, if the line below it can be a category's.
//
// Holds one entry at a time in memory, and what is longer than kLongest in parts.
class EntryReader {
 public:
  static constexpr size_t kLongest = size_t{16} << 20;

  // `name` is for messages. Owns the descriptor.
  EntryReader(std::string name, int descriptor);
  ~EntryReader();
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  // The next entry behind which another has begun. False where the file has no more for now; it may
  // grow, and then there are more.
  bool next(Entry& to);

  // What is left at the end of the file, without the line that rotation closes a file with. Once
  // true, it is false.
  bool rest(Entry& to);

  // What is left, if it can stand as an entry and the file has not grown since the last call. Lines
  // that come later and belong to it follow as an entry without fault.
  bool settled(Entry& to);

  const struct stat& status() const { return file_; }
  bool is(const struct stat& file) const;  // the same file, whatever its name
  bool rewritten() const;  // whether what was read is no longer in the file: it was truncated
  void stop();             // reads no further

 private:
  std::string_view left() const { return std::string_view(data_).substr(begin_); }
  bool refill();
  void remember_tail(size_t size);
  size_t find_end();
  void take(size_t end, Entry& to);
  const char* problem(std::string_view text) const;

  std::string name_;
  int descriptor_;
  struct stat file_ = {};

  std::string data_;      // what was read; from begin_ on not yet handed out
  size_t begin_ = 0;      // of the entry that is next
  size_t scanned_ = 0;    // start of the first line that find_end() has not passed
  size_t glued_ = 0;      // of a time stamp inside the line before; 0 is none
  size_t line_ = 1;       // number of the line at begin_
  bool open_ = false;     // the last entry came from settled() and may go on
  off_t offset_ = 0;      // bytes read
  off_t settled_at_ = 0;  // offset_ at the last call of settled()
  std::string tail_;      // the last bytes before offset_
};

}  // namespace tools
