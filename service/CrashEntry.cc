// SPDX-License-Identifier: MIT
#include "service/CrashEntry.h"

#include "service/internal/SafeText.h"
#include "util/system_exception.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <iterator>
#include <stdexcept>

namespace service {
namespace {

const struct {
  int number;
  const char* name;
} kSignals[] = {
    {SIGSEGV, "SIGSEGV"},
    {SIGBUS,  "SIGBUS" },
    {SIGFPE,  "SIGFPE" },
    {SIGILL,  "SIGILL" },
    {SIGABRT, "SIGABRT"},
};

// What the handler needs. There is one per process.
LogFile* file_at_hand = nullptr;
const util::logger* log_at_hand = nullptr;
const util::SuperLoop* loop_at_hand = nullptr;
struct sigaction handlers_before[std::size(kSignals)];
stack_t stack_before;
volatile sig_atomic_t written = 0;
char handler_stack[64 << 10];

void write_entry(const char* signal, const siginfo_t& info) {
  SafeText text;
  text << "process ";
  text.decimal(getpid());
  text << " got " << signal;
  if (info.si_code > 0) {
    text << " at ";
    text.hexadecimal(reinterpret_cast<uintptr_t>(info.si_addr));
  } else if (info.si_pid != getpid()) {
    text << " from process ";
    text.decimal(info.si_pid);
  }
  text << ", after "
       << (*log_at_hand->checkpoint_text() != '\0' ? log_at_hand->checkpoint_text()
                                                   : "no logging call");
  if (loop_at_hand != nullptr) text << " in " << loop_at_hand->current_loop();
  file_at_hand->publish_in_handler("service::CrashEntry", text.c_str());
}

// A fault occurs again when this returns, and then meets the earlier handler. A signal that another
// process sent is sent again with the same information; it stays pending until this returns.
void on_crash(int number, siginfo_t* info, void*) {
  const int error = errno;
  size_t at = 0;
  while (kSignals[at].number != number) ++at;
  const bool is_sent = info->si_code <= 0;
  const bool is_ignored = is_sent && handlers_before[at].sa_handler == SIG_IGN;
  if (!is_ignored) {
    sigaction(number, &handlers_before[at], nullptr);
    if (written == 0) {
      written = 1;
      write_entry(kSignals[at].name, *info);
    }
    if (is_sent) syscall(SYS_rt_tgsigqueueinfo, getpid(), syscall(SYS_gettid), number, info);
  }
  errno = error;
}

void restore_handlers(size_t count) {
  while (count-- > 0) sigaction(kSignals[count].number, &handlers_before[count], nullptr);
  if (stack_before.ss_flags == SS_DISABLE) sigaltstack(&stack_before, nullptr);
}

}  // namespace

CrashEntry::CrashEntry(LogFile& file, const util::logger& log, const util::SuperLoop* loop) {
  if (file_at_hand != nullptr) throw std::logic_error("service::CrashEntry: there is one already");
  log_at_hand = &log;
  loop_at_hand = loop;
  written = 0;
  sigaltstack(nullptr, &stack_before);
  if (stack_before.ss_flags == SS_DISABLE) {
    stack_t own = {};
    own.ss_sp = handler_stack;
    own.ss_size = sizeof handler_stack;
    if (sigaltstack(&own, nullptr) != 0) throw util::system_exception();
  }
  struct sigaction handler = {};
  handler.sa_sigaction = on_crash;
  handler.sa_flags = SA_SIGINFO | SA_ONSTACK;
  file_at_hand = &file;
  for (size_t i = 0; i < std::size(kSignals); ++i) {
    if (sigaction(kSignals[i].number, &handler, &handlers_before[i]) == 0) continue;
    const int error = errno;
    restore_handlers(i);
    file_at_hand = nullptr;
    throw util::system_exception(error);
  }
}

CrashEntry::~CrashEntry() {
  restore_handlers(std::size(kSignals));
  file_at_hand = nullptr;
}

}  // namespace service
