// SPDX-License-Identifier: MIT
#pragma once

#include "service/LogFile.h"
#include "util/SuperLoop.h"
#include "util/export.h"
#include "util/logger.h"

namespace service {

// As long as this lives, a process that gets SIGSEGV, SIGBUS, SIGFPE, SIGILL or SIGABRT writes what
// waits for its log file and then
//
//   2007-03-01T14:05:09 service::CrashEntry
//   WARNING: process 217 got SIGSEGV at 0x10, after server.cc:41 in net::Server
//
// with the last logging call of `log` and the sub-loop of `loop` that runs. Then the signal takes
// the way it would have taken: to the handler there was before, or to the end of the process with
// its core as ever. All of it by async-signal-safe calls only; the hour is off where daylight
// saving has changed since the last entry.
//
// Handlers run on a stack of their own, so that a stack that has overflown can be told, too; only
// the thread that makes this object has it. A forked child has the handlers as well, until it
// executes another program.
class UTIL_EXPORT CrashEntry {
 public:
  // All of these outlive this object. Throws std::logic_error if there is one already,
  // util::system_exception if a handler cannot be installed.
  explicit CrashEntry(LogFile& file, const util::logger& log = *util::logger::rootLogger(),
                      const util::SuperLoop* loop = nullptr);
  CrashEntry(const CrashEntry&) = delete;
  CrashEntry& operator=(const CrashEntry&) = delete;
  ~CrashEntry();  // the handlers before are back
};

}  // namespace service
