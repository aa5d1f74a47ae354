// SPDX-License-Identifier: MIT
#pragma once

#include "service/LogFile.h"
#include "util/SuperLoop.h"
#include "util/export.h"
#include "util/logger.h"

namespace service {

// As long as this lives, a process that gets SIGSEGV, SIGBUS, SIGFPE, SIGILL or SIGABRT writes what
// is waiting for its log file and then
//
//   2007-03-01T14:05:09 service::CrashEntry
//   WARNING: process 217 got SIGSEGV at 0x10, after server.cc:41 in net::Server
//
// with the last logging call of `log` and the running sub-loop of `loop`. Then the signal takes its
// usual course: the earlier handler is called, or the process ends with a core as usual. Only
// async-signal-safe calls are used; the hour is off if daylight saving has changed since the last
// entry.
//
// Handlers run on a stack of their own, so that a stack overflow is reported too, but only on the
// thread that constructs this object. A forked child has the handlers as well, until it executes
// another program.
class UTIL_EXPORT CrashEntry {
 public:
  // All of these must outlive this object. Throws std::logic_error if there is one already,
  // util::system_exception if a handler cannot be installed.
  explicit CrashEntry(LogFile& file, const util::logger& log = *util::logger::rootLogger(),
                      const util::SuperLoop* loop = nullptr);
  CrashEntry(const CrashEntry&) = delete;
  CrashEntry& operator=(const CrashEntry&) = delete;
  ~CrashEntry();  // restores the earlier handlers
};

}  // namespace service
