// SPDX-License-Identifier: MIT
#include "service/internal/SignalInbox.h"

#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <mutex>

namespace service {
namespace {

// Handling these and returning would run into the same fault again and again.
constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

// Guards the list of inboxes and the handlers, for all but the handler itself.
std::mutex registry;

std::atomic<SignalInbox*> first{nullptr};
std::atomic<int> handlers_running{0};
std::atomic<unsigned> fork_count{0};
sigset_t mask_before_fork;

struct Handled {
  int users;
  struct sigaction earlier;
};
Handled handled[NSIG];

void note(int number) {
  const int error = errno;
  ++handlers_running;
  for (SignalInbox* inbox = first; inbox != nullptr; inbox = inbox->next()) inbox->note(number);
  --handlers_running;
  errno = error;
}

bool handle(int number) {
  struct sigaction action = {};
  action.sa_handler = note;
  action.sa_flags = SA_RESTART | SA_ONSTACK;
  return sigaction(number, &action, &handled[number].earlier) == 0;
}

// Unless another part of the program has put a handler of its own in the place of ours.
void put_back(int number) {
  struct sigaction now = {};
  sigaction(number, nullptr, &now);
  if (now.sa_handler == note) sigaction(number, &handled[number].earlier, nullptr);
}

// Between these two no signal reaches the forking thread, so that none is noted by the new process
// as if it were the old one.
void before_fork() {
  registry.lock();
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &mask_before_fork);
}

void after_fork() {
  const sigset_t mask = mask_before_fork;
  registry.unlock();
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void after_fork_in_child() {
  ++fork_count;
  handlers_running = 0;
  for (int number = 1; number < NSIG; ++number) {
    if (handled[number].users > 0) put_back(number);
    handled[number].users = 0;
  }
  for (SignalInbox* inbox = first; inbox != nullptr; inbox = inbox->next()) inbox->forget_all();
  after_fork();
}

void watch_forks() {
  static const int failed = pthread_atfork(before_fork, after_fork, after_fork_in_child);
  if (failed != 0) throw util::system_exception(failed);
}

}  // namespace

unsigned forks() { return fork_count; }

SignalInbox::SignalInbox() : wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  watch_forks();
  const std::lock_guard<std::mutex> lock(registry);
  next_ = first.load();
  first = this;
}

SignalInbox::~SignalInbox() {
  const std::lock_guard<std::mutex> lock(registry);
  if (first == this) {
    first = next_.load();
  } else {
    SignalInbox* before = first;
    while (before->next_ != this) before = before->next_;
    before->next_ = next_.load();
  }
  // A handler on another thread may have found this inbox just before.
  while (handlers_running > 0) sched_yield();
}

void SignalInbox::want(int number) {
  if (number < 1 || number >= NSIG || std::count(std::begin(kFaults), std::end(kFaults), number)) {
    throw util::system_exception(EINVAL);
  }
  const std::lock_guard<std::mutex> lock(registry);
  if (wanted_[number] == 0) noted_[number] = false;
  ++wanted_[number];
  if (handled[number].users == 0 && !handle(number)) {
    --wanted_[number];
    throw util::system_exception();
  }
  ++handled[number].users;
}

void SignalInbox::drop(int number) noexcept {
  const std::lock_guard<std::mutex> lock(registry);
  if (wanted_[number] == 0) return;
  --wanted_[number];
  if (--handled[number].users == 0) put_back(number);
}

void SignalInbox::clear() noexcept {
  uint64_t count = 0;
  while (read(descriptor(), &count, sizeof count) < 0 && errno == EINTR) continue;
}

bool SignalInbox::take(int number) noexcept { return noted_[number].exchange(false); }

void SignalInbox::note(int number) noexcept {
  if (wanted_[number] == 0) return;
  noted_[number] = true;
  const uint64_t one = 1;
  while (write(descriptor(), &one, sizeof one) < 0 && errno == EINTR) continue;
}

void SignalInbox::forget_all() noexcept {
  for (auto& count : wanted_) count = 0;
}

void SignalInbox::replace_descriptor() {
  Descriptor fresh(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  const std::lock_guard<std::mutex> lock(registry);
  wake_ = std::move(fresh);
}

}  // namespace service
