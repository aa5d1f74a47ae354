// SPDX-License-Identifier: MIT
// The signals of one loop, and the handlers that all loops of a process share.
#pragma once

#include "service/internal/Descriptor.h"

#include <atomic>
#include <csignal>

namespace service {

// How many times this process was forked since an inbox existed.
unsigned forks();

// Notes the signals that a loop wants. Only the handler calls note(), on any thread; everything
// else is called on the thread of the loop.
class SignalInbox {
 public:
  SignalInbox();  // throws util::system_exception
  ~SignalInbox();
  SignalInbox(const SignalInbox&) = delete;
  SignalInbox& operator=(const SignalInbox&) = delete;

  int descriptor() const { return wake_.number(); }  // readable once a signal was noted

  void want(int number);  // call drop() as often; throws util::system_exception
  void drop(int number) noexcept;

  void clear() noexcept;           // makes the descriptor unreadable
  bool take(int number) noexcept;  // whether it was noted since the last call
  void note(int number) noexcept;  // called by the handler
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
