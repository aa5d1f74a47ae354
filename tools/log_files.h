// SPDX-License-Identifier: MIT
// A log over all its files.
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

  // The same file, whatever its name, or one compressed from the other.
  bool is(const LogPart& other) const;
  bool is(const struct stat& file) const;

  // As the reader's own, but a file that cannot be read is reported as a fault and ends.
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

// Reads the file of that name and before it those that rotation has made of it: <path>.0 is the
// newest of them, the highest number the oldest; each may be compressed, with ".gz" behind the
// number. "-" is standard input.
//
// While it is followed, a log goes on in the next file when its file is renamed, however often that
// was, and from the start when its file is truncated. It may begin to exist later.
class Log {
 public:
  Log(std::string path, bool follow);

  // False, with a message, where there is nothing to read.
  bool open();

  // The next entry. False at the end; of a followed log, at the end for now.
  bool next(service::LogEntry& to);

  // For a followed log that has come to its end for now:
  void look_for_change();                  // finds out whether it was rotated or truncated
  bool settled(service::LogEntry& to);     // its last entry, once it has not grown for one call
  bool unfinished(service::LogEntry& to);  // whatever is left

 private:
  std::unique_ptr<LogPart> open_part(const std::string& name);
  bool is_known(const LogPart& part) const;
  void open_newer();

  std::string path_;
  bool follow_;
  std::deque<std::unique_ptr<LogPart>> parts_;  // not yet read to the end, oldest first
  // The one before them. Kept open, so that no new file gets its identity.
  std::unique_ptr<LogPart> read_;
  std::string complaint_;
};

}  // namespace tools
