// SPDX-License-Identifier: MIT
#include "tests/support/trace.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>

namespace support {
namespace {

// A child that stops where each of its system calls begins and ends. Killed on destruction if it
// still runs.
class Traced {
 public:
  explicit Traced(const std::function<void()>& action) : pid_(fork()) {
    if (pid_ == 0) {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      action();
      _exit(0);
    }
    running_ = stopped();
    EXPECT_TRUE(running_) << "this test needs ptrace()";
    ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  }
  ~Traced() {
    if (!running_) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Traced(const Traced&) = delete;
  Traced& operator=(const Traced&) = delete;

  // Lets it go on to the next stop; null where it came to its end.
  const __ptrace_syscall_info* next() {
    while (running_) {
      EXPECT_EQ(0, ptrace(PTRACE_SYSCALL, pid_, nullptr, nullptr));
      running_ = stopped();
      if (!running_ || WSTOPSIG(status_) != (SIGTRAP | 0x80)) continue;
      EXPECT_LT(0, ptrace(PTRACE_GET_SYSCALL_INFO, pid_, sizeof info_, &info_));
      return &info_;
    }
    EXPECT_TRUE(WIFEXITED(status_) && WEXITSTATUS(status_) == 0) << status_;
    return nullptr;
  }

  // Of its memory; less where less can be read.
  std::string memory(uint64_t address, size_t size) const {
    const int file = open(("/proc/" + std::to_string(pid_) + "/mem").c_str(), O_RDONLY);
    std::string bytes(size, '\0');
    const ssize_t got = pread(file, bytes.data(), size, static_cast<off_t>(address));
    close(file);
    bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return bytes;
  }

  std::string text(uint64_t address) const { return memory(address, PATH_MAX).c_str(); }

 private:
  bool stopped() { return waitpid(pid_, &status_, 0) == pid_ && WIFSTOPPED(status_); }

  const pid_t pid_;
  int status_ = 0;
  bool running_ = false;
  __ptrace_syscall_info info_ = {};
};

// Where a system call has what; -1: nowhere.
struct Form {
  long number;
  FileCall::Kind kind;
  int path, to, descriptor, open_flags;
};

constexpr Form kForms[] = {
#ifdef SYS_open  // a newer machine has neither of these nor the next
    {SYS_open,      FileCall::kOpen,   0,  -1, -1, 1 },
    {SYS_link,      FileCall::kLink,   0,  1,  -1, -1},
    {SYS_rename,    FileCall::kRename, 0,  1,  -1, -1},
    {SYS_unlink,    FileCall::kUnlink, 0,  -1, -1, -1},
#endif
#ifdef SYS_renameat
    {SYS_renameat,  FileCall::kRename, 1,  3,  -1, -1},
#endif
    {SYS_openat,    FileCall::kOpen,   1,  -1, -1, 2 },
    {SYS_linkat,    FileCall::kLink,   1,  3,  -1, -1},
    {SYS_renameat2, FileCall::kRename, 1,  3,  -1, -1},
    {SYS_unlinkat,  FileCall::kUnlink, 1,  -1, -1, -1},
    {SYS_close,     FileCall::kClose,  -1, -1, 0,  -1},
    {SYS_write,     FileCall::kWrite,  -1, -1, 0,  -1},
    {SYS_fsync,     FileCall::kSync,   -1, -1, 0,  -1},
    {SYS_fchown,    FileCall::kOwner,  -1, -1, 0,  -1},
    {SYS_fchmod,    FileCall::kMode,   -1, -1, 0,  -1},
};

const Form* form_of(uint64_t number) {
  for (const Form& form : kForms) {
    if (static_cast<uint64_t>(form.number) == number) return &form;
  }
  return nullptr;
}

}  // namespace

std::vector<FileCall> file_calls(const std::function<void()>& action) {
  std::vector<FileCall> calls;
  Traced child(action);
  const Form* form = nullptr;
  uint64_t arguments[6] = {};
  while (const auto* const stop = child.next()) {
    if (stop->op == PTRACE_SYSCALL_INFO_ENTRY) {
      form = form_of(stop->entry.nr);
      memcpy(arguments, stop->entry.args, sizeof arguments);
    } else if (form != nullptr && stop->exit.rval >= 0) {
      FileCall call = {form->kind, "", "", static_cast<int>(stop->exit.rval), 0, ""};
      if (form->path >= 0) call.path = child.text(arguments[form->path]);
      if (form->to >= 0) call.to = child.text(arguments[form->to]);
      if (form->descriptor >= 0) call.descriptor = static_cast<int>(arguments[form->descriptor]);
      if (form->open_flags >= 0) call.open_flags = arguments[form->open_flags];
      if (form->kind == FileCall::kWrite)
        call.bytes = child.memory(arguments[1], static_cast<size_t>(stop->exit.rval));
      calls.push_back(std::move(call));
    }
  }
  return calls;
}

bool killed_before(int nth, const std::function<void()>& action) {
  Traced child(action);
  for (int begun = 0; begun < nth;) {
    const auto* const stop = child.next();
    if (stop == nullptr) return false;
    if (stop->op == PTRACE_SYSCALL_INFO_ENTRY && form_of(stop->entry.nr) != nullptr) ++begun;
  }
  return true;
}

}  // namespace support
