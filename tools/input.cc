// SPDX-License-Identifier: MIT
#include "tools/input.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <system_error>

namespace tools {
namespace {

size_t limit = size_t{64} << 20;

[[noreturn]] void fail(const std::string& name) {
  throw std::system_error(errno, std::generic_category(), name);
}

void write_all(int to, const char* data, size_t size, const std::string& name) {
  while (size > 0) {
    const ssize_t written = write(to, data, size);
    if (written < 0) fail(name);
    data += written;
    size -= static_cast<size_t>(written);
  }
}

void copy(int from, int to, const std::string& name) {
  char part[65536];
  for (size_t total = 0; total <= limit;) {
    const ssize_t got = read(from, part, sizeof part);
    if (got < 0) fail(name);
    if (got == 0) return;
    total += static_cast<size_t>(got);
    write_all(to, part, static_cast<size_t>(got), name);
  }
  throw std::runtime_error(name + ": more than " + std::to_string(limit >> 20) +
                           " MiB; --input-limit allows more");
}

mode_t kind_of(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

}  // namespace

bool is_open_stream(const std::string& path) {
  return (path == "/dev/stdin" || path.compare(0, 8, "/dev/fd/") == 0) && kind_of(path) != S_IFREG;
}

void refuse_special_file(const std::string& path) {
  switch (kind_of(path)) {
    case S_IFIFO: throw std::runtime_error(path + ": is a FIFO, not a file");
    case S_IFCHR:
    case S_IFBLK: throw std::runtime_error(path + ": is a device, not a file");
    case S_IFSOCK: throw std::runtime_error(path + ": is a socket, not a file");
    default: return;
  }
}

bool set_input_limit(const std::string& mebibytes) {
  size_t number = 0;
  const char* const end = mebibytes.data() + mebibytes.size();
  const auto result = std::from_chars(mebibytes.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number > (SIZE_MAX >> 20)) return false;
  limit = number << 20;
  return true;
}

Input::Input(const std::string& file) : name_(file), path_(file) {
  if (file != "-" && !is_open_stream(file)) {
    refuse_special_file(file);
    return;
  }
  if (file == "-") name_ = "standard input";
  const util::Descriptor stream(file == "-" ? dup(STDIN_FILENO) : open(file.c_str(), O_RDONLY),
                                name_);
  copy_ = util::Descriptor(memfd_create("input", MFD_CLOEXEC), name_);
  copy(stream.number(), copy_.number(), name_);
  path_ = "/proc/self/fd/" + std::to_string(copy_.number());
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
