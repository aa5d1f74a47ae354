// SPDX-License-Identifier: MIT
// The files that a log's rotations have made: nasd.log.0, the newest, nasd.log.1, nasd.log.2.gz ...
//
// gzip reads one of them and writes .nasd.log.<inode>.part, under a lock as long as it runs; once
// that is complete and on disk it is .nasd.log.<inode>.gz. Only compress() puts it in the place of
// the file it was made of, which may have got another number meanwhile.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace service {

class OldLogs {
 public:
  // Keeps `most` files of together `most_bytes`; 0 is no limit.
  OldLogs(const std::string& log, size_t most, off_t most_bytes);

  // Where the next log is made ready: .nasd.log.new
  const std::string& in_the_making() const { return new_log_; }
  const std::string& newest() const { return newest_; }  // nasd.log.0

  // Removes the oldest files beyond the limits, a file of `coming` bytes counted in, and frees
  // number 0. False, with errno, where something could not be done; no file is lost then.
  bool shift(off_t coming) const;

  // Takes over what gzip has finished and, if `begin` or something was taken over, has it compress
  // the next file. True while it runs.
  bool compress(bool begin) const;

 private:
  struct File {
    unsigned long number;
    bool compressed;
    struct stat status;
  };
  struct Work {
    ino_t inode;
    bool done;
    std::string path;
  };

  bool list(std::vector<File>& files, std::vector<Work>& work) const;
  std::string path(unsigned long number, bool compressed) const;
  std::string work_path(ino_t inode, const char* ending) const;
  bool take_over(const Work& done, std::vector<File>& files) const;
  bool start_gzip(const File& file) const;

  const std::string log_;
  const std::string folder_;
  const std::string name_;
  const std::string new_log_;
  const std::string newest_;
  const size_t most_;
  const off_t most_bytes_;
};

}  // namespace service
