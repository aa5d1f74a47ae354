// SPDX-License-Identifier: MIT
// The signals of one loop, and the handlers that all loops of the process share.
#pragma once

#include "service/internal/Descriptor.h"

#include <signal.h>

#include <atomic>

namespace service {

// How often this process was forked off from one that had an inbox.
unsigned forks();

// Notes the signals that are wanted. Only the handler notes, on whatever thread it runs; all else
// is done on the thread of the loop.
class SignalInbox {
 public:
  SignalInbox();  // throws util::system_exception
  ~SignalInbox();
  SignalInbox(const SignalInbox&) = delete;
  SignalInbox& operator=(const SignalInbox&) = delete;

  int descriptor() const { return wake_.number(); }  // readable when a signal was noted

  void want(int number);  // as often as it is dropped; throws util::system_exception
  void drop(int number) noexcept;

  void clear() noexcept;           // makes the descriptor unreadable
  bool take(int number) noexcept;  // whether the signal was noted since
  void note(int number) noexcept;  // in the handler
  void forget_all() noexcept;      // in a forked process: nothing is wanted
  void replace_descriptor();       // in a forked process; throws util::system_exception

  SignalInbox* next() const { return next_; }

 private:
  Descriptor wake_;
  std::atomic<int> wanted_[NSIG] = {};
  std::atomic<bool> noted_[NSIG] = {};
  std::atomic<SignalInbox*> next_{nullptr};
};

}  // namespace service
