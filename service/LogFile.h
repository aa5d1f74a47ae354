// SPDX-License-Identifier: MIT
// The log file of a daemon on a board that runs for years: it survives kills, crashes, full disks
// and whatever happens to its folder.
//
//   service::LogFileOptions options;
//   options.rotate_above = 1 << 20;
//   options.old_files = 7;
//   util::logger::rootLogger()->setPublisher(new service::LogFile("/var/log/nasd.log", options));
//
// These are the files:
//
//   nasd.log, nasd.log.0   The log and its newest old file, entries as all publishers write them.
//                          No line marks where the file was rotated.
//   nasd.log.1, .2, ...    Older ones; the oldest has the highest number. A number may be missing
//                          for a while after a kill.
//   nasd.log.1.gz          The same, compressed. Next to a nasd.log.1 it is to be ignored: that one
//                          is complete and stays until it is compressed anew.
//   .nasd.log.*            Files in the making.
//
// Entries that could not be written are counted, and the next one that can be is preceded by
//
//   2007-03-01T14:05:09 service::LogFile
//   WARNING: 17 entries lost since 2007-03-01T14:01:33: No space left on device
//
// (service/CrashEntry.h tells what a crash leaves.) If the process ended while the disk was full,
// the last entry may be cut off.
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

  // When to begin a new file. No file grows past `rotate_above` bytes, unless a single write (an
  // entry, or what was waiting) is longer; 0 is no limit.
  off_t rotate_above = 1 << 20;
  bool rotate_daily = false;  // with the first entry of a day in local time

  // What to keep: this many old files, at least 1, and this many bytes in all files together,
  // counting the current one as full. A `total_size` of 0 is no limit; any other must be at least
  // twice `rotate_above`.
  size_t old_files = 4;
  off_t total_size = 0;

  // Has gzip compress old files from number 1 on, in a process of the lowest priority that nobody
  // waits for.
  bool compress = false;

  // Of all files, whatever the umask is. An owner or group of -1 is left as the system sets it.
  mode_t mode = 0640;
  uid_t owner = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
};

// Appends entries to a file, begins a new one when it is time, and never drops an entry without
// counting it.
//
// While the file cannot be written to, nothing is rotated, truncated or removed; up to 64 KiB of
// entries wait in memory, and further ones are counted as lost. Each entry and each flush() tries
// again. Once a second, an entry checks where the path leads: if the file was moved away, removed
// or replaced, it is opened anew; entries written to a removed file since the last check count as
// lost.
//
// A forked child may go on logging; it writes nothing of what was waiting in its parent. Several
// processes may have a LogFile each for the same path: entries stay whole, and one of them rotates.
// The file is closed on exec. Symbolic links (of the file itself) and all but regular files are
// refused.
//
// Nothing is locked: log from one thread. Allocates memory only for entries longer than 64 KiB; if
// there is none, the entry counts as lost.
class UTIL_EXPORT LogFile final : public util::publisher {
 public:
  // Throws std::system_error if the file cannot be opened, std::invalid_argument for options that
  // contradict each other.
  explicit LogFile(const std::string& path, const LogFileOptions& options = LogFileOptions());

  // The same, but if the file cannot be opened, this is only reported in `error` (cleared
  // otherwise), and each entry tries again.
  LogFile(const std::string& path, const LogFileOptions& options, std::error_code& error);

  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile();  // writes what is waiting, as does exit()

  // Returns the entry's length, or -1 if it is neither in the file nor, with `buffered`, waiting
  // while all is well.
  int publish(util::category& c, const char* where, const char* format, va_list args) override;

  // Writes what is waiting. Call it at the end of each pass, or use FlushEachPass.
  void flush() override;

  // Each of these three returns why it failed, if it did. Entries that could not be written go on
  // waiting.

  // Writes what is waiting and syncs it to disk: entries published before survive a power failure.
  // May take as long as the disk needs; after a rotation it syncs the whole file system.
  std::error_code sync();

  // Begins a new file now, unless this one is empty.
  std::error_code rotate();

  // Opens the path anew, after another program has moved the file away. If that fails, the old file
  // stays in use.
  std::error_code reopen();

  const std::string& path() const;
  std::error_code error() const;  // why the last write failed; none while all is well
  uint64_t lost() const;          // entries, since construction

  // Writes what is waiting and an entry of category WARNING, using async-signal-safe calls only:
  // for the handler of a signal that ends the process.
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
