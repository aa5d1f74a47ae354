// SPDX-License-Identifier: MIT
// A log with all its rotated files.
#pragma once

#include "service/LogReader.h"
#include "util/internal/owners.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <deque>
#include <memory>
#include <string>

namespace tools {

// One file of a log, read by gzip if its name ends in ".gz".
class LogPart {
 public:
  // `name` is for messages and says whether it is compressed. Owns the descriptor.
  LogPart(const std::string& name, int descriptor);
  ~LogPart();
  LogPart(const LogPart&) = delete;
  LogPart& operator=(const LogPart&) = delete;

  // Whether both are the same file, whatever its name, or one was compressed from the other.
  bool is(const LogPart& other) const;
  bool is(const struct stat& file) const;

  // Like the reader's own, but a file that cannot be read is reported as a fault and ends.
  bool next(service::LogEntry& to);
  bool rest(service::LogEntry& to);

  service::LogReader& reader() { return reader_; }

 private:
  int start_gzip();
  std::string head() const;

  std::string name_;
  util::Descriptor compressed_;  // none for a plain file, which the reader owns
  struct stat status_;
  pid_t gzip_ = -1;
  service::LogReader reader_;
};

// Reads the rotated files of that name and then the file itself: <path>.0 is the newest rotated
// file, the highest number the oldest; each may be compressed, with ".gz" after the number. "-" is
// standard input.
//
// Following a log continues with the next file if the file was renamed, however often, and from the
// start if it was truncated. The file need not exist at first.
class Log {
 public:
  Log(std::string path, bool follow);

  // Returns false and reports why if there is nothing to read.
  bool open();

  // Reads the next entry. Returns false at the end, for a followed log at the present end.
  bool next(service::LogEntry& to);

  // For a followed log that has reached its present end:
  void look_for_change();                  // finds out whether it was rotated or truncated
  bool settled(service::LogEntry& to);     // its last entry, once it has not grown for one call
  bool unfinished(service::LogEntry& to);  // whatever is left

 private:
  using Parts = std::deque<std::unique_ptr<LogPart>>;

  std::unique_ptr<LogPart> open_part(const std::string& name);
  bool is_known(const LogPart& part) const;
  void open_newer();
  Parts newer_parts();

  std::string path_;
  bool follow_;
  Parts parts_;  // not yet read to the end, oldest first
  // The one before them. It stays open, so that no new file gets its identity.
  std::unique_ptr<LogPart> read_;
  std::string complaint_;
};

}  // namespace tools
