// SPDX-License-Identifier: MIT
#include "tests/support/program.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ostream>
#include <stdexcept>
#include <thread>

namespace support {
namespace {

[[noreturn]] void execute(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  std::vector<std::string> texts = command;
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

void redirect(int descriptor, const std::string& path, int flags) {
  const int file = open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
}

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

Outcome ended(int status, const std::string& out, const std::string& err) {
  return {status, out, err, 0};
}

bool operator==(const Outcome& a, const Outcome& b) {
  return a.status == b.status && a.out == b.out && a.err == b.err;
}

std::ostream& operator<<(std::ostream& os, const Outcome& outcome) {
  return os << "status " << outcome.status << "\n---- out ----\n"
            << outcome.out << "\n---- err ----\n"
            << outcome.err;
}

Child::Child(const std::vector<std::string>& command, const std::string& input,
             const std::string& output)
    : pid_(0) {
  dir_.write("in", input);
  const std::string out = output.empty() ? dir_.file("out") : output;
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork");
  if (pid_ > 0) return;
  redirect(STDIN_FILENO, dir_.file("in"), O_RDONLY);
  redirect(STDOUT_FILENO, out, O_WRONLY | O_CREAT);
  redirect(STDERR_FILENO, dir_.file("err"), O_WRONLY | O_CREAT);
  execute(command);
}

Child::~Child() {
  if (pid_ <= 0) return;
  signal(SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Child::signal(int number) const { kill(pid_, number); }

void Child::pause() const {
  signal(SIGSTOP);
  waitpid(pid_, nullptr, WUNTRACED);
}

void Child::resume() const { signal(SIGCONT); }

bool Child::out_ends_with(const std::string& text) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!ends_with(out(), text)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

Outcome Child::wait() {
  int status = 0;
  rusage used = {};
  wait4(pid_, &status, 0, &used);
  pid_ = 0;
  return {exit_status(status), dir_.exists("out") ? out() : "", dir_.read("err"), used.ru_maxrss};
}

Outcome Child::end() {
  signal(SIGTERM);
  return wait();
}

Outcome run(const std::vector<std::string>& command, const std::string& input,
            const std::string& output) {
  return Child(command, input, output).wait();
}

Outcome run_on_terminal(const std::vector<std::string>& command) {
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid < 0) throw std::runtime_error("forkpty");
  if (pid == 0) execute(command);
  std::string out;
  char part[4096];
  for (ssize_t got = 0; (got = read(terminal, part, sizeof part)) > 0;) {
    out.append(part, static_cast<size_t>(got));
  }
  close(terminal);
  int status = 0;
  rusage used = {};
  wait4(pid, &status, 0, &used);
  return {exit_status(status), out, "", used.ru_maxrss};
}

}  // namespace support
