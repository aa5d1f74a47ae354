// SPDX-License-Identifier: MIT
// Runs another program, without a shell and without waiting for it:
//
//   service::Command health({"smartctl", "--health", device});
//   health.time_limit = 10000;
//   running = health.start(loop, [](const service::Command::Result& result) {
//     if (!result.succeeded()) UTIL_LOG(log, util::WARNING, "smartctl %s", result.end().c_str());
//   });
#pragma once

#include "service/Loop.h"
#include "util/export.h"
#include "util/types.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace service {

// Owns a running program: when the object is destroyed, the program and its process group are
// killed, and its callbacks are no longer called. May be destroyed inside any of them, and may
// outlive the loop. The loop collects the status of a killed program; if the loop is gone, the
// system keeps it until this process ends.
class UTIL_EXPORT Process {
 public:
  Process() noexcept;  // of nothing
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  Process(Process&& from) noexcept;
  Process& operator=(Process&& from) noexcept;  // kills what it owned before
  ~Process();

  pid_t id() const noexcept;  // also of its process group; 0 if it has ended

 private:
  friend struct Command;
  class Run;
  explicit Process(std::shared_ptr<Run> run) noexcept;

  std::shared_ptr<Run> run_;
};

// What to run, and how. May be started any number of times.
//
// The program gets standard input and outputs of its own, and nothing else of this process: no
// other descriptor, no signal mask, no ignored signal, a process group of its own.
struct UTIL_EXPORT Command {
  // How the program ended.
  struct Result {
    bool succeeded() const { return status == 0 && !timed_out; }
    std::string end()
        const;  // "ended with status 3", "was ended by signal 11 (Segmentation fault)"

    int status;          // as waitpid() gives it; -1 if another part of this program collected it
    bool timed_out;      // it exceeded its time limit and was asked to stop
    bool cut;            // more was written than is kept
    std::string output;  // what was written to standard output, unless passed on line by line
    std::string errors;  // to standard error
  };
  using Line = std::function<void(const std::string& line)>;

  // The program, which is searched for in PATH unless its name has a slash, and its arguments. The
  // environment is a copy of this process's at that time.
  explicit Command(std::vector<std::string> program_and_arguments);

  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;
  std::string folder;            // to run in; this process's own if empty
  std::string input;             // what it reads from standard input
  util::utime_t time_limit = 0;  // milliseconds; then its process group gets SIGTERM; 0 is none
  util::utime_t grace = 2000;    // milliseconds from SIGTERM to SIGKILL
  size_t limit = 1 << 20;        // bytes that are kept of each output, or of each line
  Line on_output;                // gets each line as it comes, without its line feed
  Line on_errors;

  // Calls back once, when the program has ended and its output has been read. Processes that it
  // left running go on, unless the time limit was exceeded, and are not waited for.
  //
  // Throws std::system_error if the program cannot be run, std::invalid_argument if `arguments` is
  // empty, RegistrationError if the loop cannot watch it.
  Process start(Loop& loop, std::function<void(const Result&)> done) const;
};

}  // namespace service
