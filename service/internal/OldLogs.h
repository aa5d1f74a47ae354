// SPDX-License-Identifier: MIT
// The rotated files of a log: nasd.log.0, the newest, nasd.log.1, nasd.log.2.gz ...
//
// gzip reads one of them and writes .nasd.log.<inode>.part, which is locked as long as it runs. The
// complete file is synced and renamed to .nasd.log.<inode>.gz. Only compress() replaces the
// original by it, which may have got another number meanwhile.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace service {

// Throws nothing after construction: where memory runs out, that is an error like others.
class OldLogs {
 public:
  // Keeps `most` files of `most_bytes` in total; 0 is no limit.
  OldLogs(const std::string& log, size_t most, off_t most_bytes);

  // The new log until it is renamed: .nasd.log.new
  const std::string& in_the_making() const { return new_log_; }
  const std::string& newest() const { return newest_; }  // nasd.log.0

  // Removes the oldest files until one of `coming` bytes fits within the limits, and frees number
  // 0. Returns false and sets errno if something could not be done; no file is lost then.
  bool shift(off_t coming) const;

  // Puts a file that gzip has finished in its place. If it did, or with `begin`, starts gzip for
  // the next file. Returns whether gzip is running.
  bool compress(bool begin) const;

 private:
  struct File {
    bool compressed;
    struct stat status;
  };
  struct Found {
    std::map<unsigned long, File> files;  // by number
    std::vector<ino_t> parts, done;       // of gzip
  };

  bool list(Found& found) const;
  std::string path(unsigned long number, bool compressed) const;
  bool take_over(ino_t inode, Found& found) const;
  bool start_gzip(unsigned long number, const struct stat& file) const;

  const std::string log_;
  const std::string folder_;
  const std::string hidden_;  // .nasd.log
  const std::string new_log_;
  const std::string newest_;
  const size_t most_;
  const off_t most_bytes_;
};

}  // namespace service
