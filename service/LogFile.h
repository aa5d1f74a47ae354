// SPDX-License-Identifier: MIT
// The log file of a daemon on a board that runs for years: it survives kills, crashes, full disks
// and whatever is done to its folder.
//
//   service::LogFileOptions options;
//   options.rotate_above = 1 << 20;
//   options.old_files = 7;
//   util::logger::rootLogger()->setPublisher(new service::LogFile("/var/log/nasd.log", options));
//
// What a reader of the files meets:
//
//   nasd.log, nasd.log.0   The log and its newest old file, entries as all publishers write them.
//                          No line marks where the file was rotated.
//   nasd.log.1, .2, ...    Older ones, the oldest has the highest number. A number may be missing
//                          for a while after a kill.
//   nasd.log.1.gz          The same, compressed. Next to a nasd.log.1 it is to be ignored: that one
//                          is complete and stays until it is compressed anew.
//   .nasd.log.*            Files in the making.
//
// Entries that could not be written are counted, and the next one that can be written follows
//
//   2007-03-01T14:05:09 service::LogFile
//   WARNING: 17 entries lost since 2007-03-01T14:01:33: No space left on device
//
// (service/CrashEntry.h tells what a crash leaves.) Where the process ended while the disk was
// full, the last entry may be cut off.
#pragma once

#include "util/EventLoop.h"
#include "util/export.h"
#include "util/logger.h"
#include "util/types.h"

#include <sys/types.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace service {

struct UTIL_EXPORT LogFileOptions {
  // False: each entry is in the file, by one write(), when the logging call returns. True: entries
  // wait for flush(), or until there are 64 KiB of them.
  bool buffered = false;

  // When a new file is begun. No file grows past `rotate_above` bytes, unless a single write (an
  // entry, or what was waiting) is longer; 0 is no limit.
  off_t rotate_above = 1 << 20;
  bool rotate_daily = false;  // with the first entry of a day in local time

  // What is kept: so many old files, at least 1, and so many bytes in all files together, the
  // present one counted as full; 0 is no limit, any other number at least twice `rotate_above`.
  size_t old_files = 4;
  off_t total_size = 0;

  // Has gzip compress old files from number 1 on, in a process of the lowest priority that nobody
  // waits for.
  bool compress = false;

  // Of all files, whatever the umask says. Owner and group -1: as the system makes them.
  mode_t mode = 0640;
  uid_t owner = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
};

// Appends entries to a file, begins a new one when it is time, and never gives up an entry without
// counting it.
//
// While the disk takes no more, nothing is rotated, truncated or removed; 64 KiB of entries wait in
// memory, further ones are counted as lost. Each entry and each flush() tries again. Once a second
// entries look where the path leads: a file that was moved away, removed or replaced is opened
// anew; those written to a removed one since the last look count as lost.
//
// A forked child may go on logging: it writes none of what waited in its parent. So may several
// processes with a LogFile of their own for one path: entries stay whole, one of them rotates. The
// file is closed on exec. Symbolic links (of the file itself) and all but regular files are
// refused.
//
// One thread logs; nothing locks. Needs no memory but for entries longer than 64 KiB; where there
// is none, the entry counts as lost.
class UTIL_EXPORT LogFile final : public util::publisher {
 public:
  // Throws std::system_error where the file cannot be opened, std::invalid_argument for options
  // that contradict each other.
  explicit LogFile(const std::string& path, const LogFileOptions& options = LogFileOptions());

  // The same, but a file that cannot be opened is only told to `error` (cleared otherwise), and
  // each entry tries again.
  LogFile(const std::string& path, const LogFileOptions& options, std::error_code& error);

  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile();  // writes what waits, as does exit()

  // Returns the entry's length, or -1 where it is neither in the file nor, if `buffered`, waiting
  // without trouble.
  int publish(util::category& c, const char* where, const char* format, va_list args) override;

  // Writes what waits: to be called at the end of a pass, see FlushEachPass.
  void flush() override;

  // Writes what waits and has the disk keep it: entries published before survive a power cut. May
  // take as long as the disk likes.
  std::error_code sync();

  // Begins a new file now, unless this one is empty.
  std::error_code rotate();

  // Opens the path anew, after another program has moved the file away. Where that fails the old
  // file stays in use.
  std::error_code reopen();

  const std::string& path() const;
  std::error_code error() const;  // why the last write failed; none while all is well
  uint64_t lost() const;          // entries, since construction

  // Writes what waits and an entry of category WARNING, by async-signal-safe calls only: for the
  // handler of a signal that ends the process.
  void publish_in_handler(const char* where, const char* message) noexcept;

 private:
  class Impl;

  const std::unique_ptr<Impl> impl_;
};

// A sub-loop that flushes a logger's publisher in each pass. Added last, it writes what the pass
// has logged; in a service::Loop `every(1000, [=](uint64_t) { log->flush(); })` does.
class UTIL_EXPORT FlushEachPass : public util::EventLoop {
 public:
  explicit FlushEachPass(util::logger* log) : log_(log) {}  // not owned

  void runLoop(util::utime_t timeslice) override;
  const char* name() override;  // "service::FlushEachPass"

 private:
  util::logger* log_;
};

}  // namespace service
