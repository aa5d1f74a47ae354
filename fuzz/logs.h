// SPDX-License-Identifier: MIT
// The rules by which nas-log takes log files apart.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace fuzz {

struct LogEntry {
  std::string text;
  std::string time;
  std::string category;
  std::string fault;
};

// A file that grows. Its entries are appended to those of the log before it.
class LogFile {
 public:
  explicit LogFile(std::string name) : name_(std::move(name)) {}

  const std::string& text() const { return text_; }
  void append(const std::string& text) { text_ += text; }

  void complete(std::vector<LogEntry>& to);  // those behind which another one begins
  void settled(std::vector<LogEntry>& to);   // the last one, if nothing came since the last call
  void rest(std::vector<LogEntry>& to);      // what is left of a file that is closed

 private:
  LogEntry entry(const std::string& text, const std::vector<LogEntry>& before) const;
  void hand_out(const std::string& text, std::vector<LogEntry>& to);

  std::string name_;
  std::string text_;
  size_t handed_out_ = 0;
  size_t size_when_asked_ = 0;
  bool open_ = false;  // lines of the last entry may follow
};

// "2007-03-01T14:05:09" and what may stand for it where a time is asked for: without seconds, or
// without a time of day.
bool is_time_stamp(const std::string& text);
bool is_time_bound(const std::string& text);

}  // namespace fuzz
