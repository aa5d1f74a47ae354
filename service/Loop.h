// SPDX-License-Identifier: MIT
// The loop of a daemon. It waits for descriptors, timers, signals and children instead of sleeping:
//
//   service::Loop loop;
//   loop.stop_on({SIGTERM, SIGINT});
//   const service::Handle requests = loop.watch(socket, EPOLLIN, [&](uint32_t) { answer(); });
//   const service::Handle saving = loop.every(60000, [&](uint64_t) { save(); });
//   loop.run(1000);
#pragma once

#include "util/SuperLoop.h"
#include "util/export.h"
#include "util/system_exception.h"
#include "util/types.h"

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

namespace service {

class Registration;

// The system refused to watch something. what() says what and why, error_number() is the errno.
class UTIL_EXPORT RegistrationError : public util::system_exception {
 public:
  RegistrationError(int error, std::string text);
  ~RegistrationError() override = default;

  const char* what() const noexcept override;

 private:
  std::string text_;
};

// Owns a registration with a Loop: when the handle is destroyed, the callback is no longer called,
// and what it captured is destroyed. May be cancelled inside any callback, its own included (which
// then lives until it returns), and may outlive the loop.
class UTIL_EXPORT Handle {
 public:
  Handle() noexcept;  // of nothing
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  Handle(Handle&& from) noexcept;
  Handle& operator=(Handle&& from) noexcept;  // cancels what it owned before
  ~Handle();

  void cancel() noexcept;

  // Waits for other events from now on. Only for handles from watch(); throws std::logic_error for
  // anything else, RegistrationError if the system refuses.
  void change(uint32_t events);

  // Whether the callback may still be called.
  explicit operator bool() const noexcept;

 private:
  friend class Loop;
  explicit Handle(Registration* registration) noexcept;

  Registration* registration_ = nullptr;  // owned
};

// Sub-loops and events get their turns and time slices as in any SuperLoop. The rest of each pass,
// which a SuperLoop sleeps, is spent waiting for descriptors, timers, signals and children, whose
// callbacks are called at once, on the thread that runs the loop. Only the last milliseconds of a
// pass are slept (a few, more on a machine that wakes up late, at most a tenth of the pass); what
// arrives then is served in the next pass. Events are run after the waiting, at the end of the
// pass.
//
// The loop's own clock is the monotonic one: setting the system time moves none of its timers.
//
// All of the functions that take a callback throw std::invalid_argument if it is empty.
//
// Callbacks may do anything with the loop except destroy it or run a pass of it. An exception that
// escapes a callback ends the process. Nothing is locked: a loop belongs to one thread, and so does
// its logger. A forked process may use its copy of the loop, which no longer watches the processes
// of on_exit(); neither copy disturbs the other.
class UTIL_EXPORT Loop : public util::SuperLoop {
 public:
  // The constructors throw util::system_exception if the system has no descriptors left.
  Loop();                            // logs to the root logger
  explicit Loop(util::logger* log);  // not owned
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  virtual ~Loop();  // unlike that of SuperLoop

  // Calls back with the epoll events that came, of those asked for (EPOLLIN, EPOLLOUT, ...) and
  // EPOLLERR and EPOLLHUP, for as long as the descriptor is ready. The caller still owns the
  // descriptor: cancel the handle, then close it. A descriptor that was closed first is forgotten,
  // at the latest when its number is watched again. Throws RegistrationError for what cannot be
  // watched: regular files and folders (EPERM), a number that is not a descriptor (EBADF), a
  // descriptor that is already watched (EEXIST).
  Handle watch(int descriptor, uint32_t readiness, std::function<void(uint32_t)> callback);

  // Calls back once, `delay` milliseconds from now.
  Handle after(util::utime_t delay, std::function<void()> callback);

  // Calls back every `interval` milliseconds, counted from now. The argument is the number of calls
  // skipped since the last one because the loop was busy. Throws std::invalid_argument if the
  // interval is 0.
  Handle every(util::utime_t interval, std::function<void(uint64_t missed)> callback);

  // Calls back when the process gets the signal, once for several that arrive before the loop
  // looks. While a signal is handled this way, it has no other effect; afterwards the earlier
  // disposition is restored. Programs and processes that are started do not inherit it. Throws
  // RegistrationError for what is not a signal or cannot be handled (SIGKILL, SIGSTOP, faults such
  // as SIGSEGV).
  Handle on_signal(int number, std::function<void()> callback);

  // Calls back once, when the child process has ended, with its status as waitpid() gives it, or -1
  // if another part of the program has collected it. Other children are left alone. Handles SIGCHLD
  // meanwhile. Throws RegistrationError if it is not a child (ECHILD) or is already watched
  // (EEXIST).
  Handle on_exit(pid_t child, std::function<void(int status)> callback);

  // Each of the signals calls stop(), for as long as the loop lives. Throws what on_signal()
  // throws.
  void stop_on(std::initializer_list<int> signals);

  // Runs passes of `cycle` milliseconds until stop() is called, then finishes the pass, so it
  // returns up to a cycle later. Do what must happen promptly in the callback that calls stop(). If
  // stop() is called outside run(), the next run() returns at once.
  void run(util::utime_t cycle);
  void stop();

  // Makes one pass. Aborts if called inside another pass of the same loop.
  void runLoop(util::utime_t timeout) noexcept override;

  const char* name() override;  // "service::Loop"

 private:
  friend class Registration;
  class Core;

  std::unique_ptr<Core> core_;
};

}  // namespace service
