// SPDX-License-Identifier: MIT
#include "tools/input.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tools {
namespace {

[[noreturn]] void fail() {
  throw std::system_error(errno, std::generic_category(), "standard input");
}

void write_all(int to, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(to, data, size);
    if (written < 0) fail();
    data += written;
    size -= static_cast<size_t>(written);
  }
}

void copy_standard_input(int to) {
  char part[65536];
  while (true) {
    const ssize_t got = read(STDIN_FILENO, part, sizeof part);
    if (got < 0) fail();
    if (got == 0) return;
    write_all(to, part, static_cast<size_t>(got));
  }
}

}  // namespace

Input::Input(const std::string& file) : name_(file), path_(file) {
  if (file != "-") return;
  copy_ = memfd_create("standard input", MFD_CLOEXEC);
  if (copy_ < 0) fail();
  copy_standard_input(copy_);
  name_ = "standard input";
  path_ = "/proc/self/fd/" + std::to_string(copy_);
}

Input::~Input() {
  if (copy_ >= 0) close(copy_);
}

std::string Input::named(std::string message) const {
  size_t at = message.find(path_);
  if (at == message.npos) return name_ + ": " + message;
  for (; at != message.npos; at = message.find(path_, at + name_.size())) {
    message.replace(at, path_.size(), name_);
  }
  return message;
}

}  // namespace tools
