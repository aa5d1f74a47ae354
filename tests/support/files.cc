// SPDX-License-Identifier: MIT
#include "tests/support/files.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace support {
namespace {

std::string make_folder() {
  std::string name = (std::filesystem::temp_directory_path() / "nasutil-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp " + name);
  return name;
}

}  // namespace

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "<missing>";
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

int open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<int>(std::distance(begin(all), end(all)));
}

TempDir::TempDir() : path_(make_folder()) {}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::read(const std::string& name) const { return read_file(file(name)); }

void TempDir::write(const std::string& name, const std::string& text) const {
  write_file(file(name), text);
}

bool TempDir::exists(const std::string& name) const {
  return std::filesystem::exists(std::filesystem::symlink_status(file(name)));
}

std::vector<std::string> TempDir::list() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Captured::Captured(FILE* stream) : stream_(stream), saved_(0), file_(0) {
  std::cout.flush();
  fflush(stream_);
  FILE* const target = tmpfile();
  if (target == nullptr) throw std::runtime_error("tmpfile");
  file_ = dup(fileno(target));
  fclose(target);
  saved_ = dup(fileno(stream_));
  dup2(file_, fileno(stream_));
}

Captured::~Captured() {
  std::cout.flush();
  fflush(stream_);
  dup2(saved_, fileno(stream_));
  close(saved_);
  close(file_);
}

std::string Captured::text() {
  std::cout.flush();
  fflush(stream_);
  std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
  const ssize_t got = pread(file_, all.data(), all.size(), 0);
  all.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
  return all;
}

SizeLimit::SizeLimit(rlim_t bytes) : old_signal_(signal(SIGXFSZ, SIG_IGN)) {
  getrlimit(RLIMIT_FSIZE, &old_);
  const rlimit limit = {bytes, old_.rlim_max};
  setrlimit(RLIMIT_FSIZE, &limit);
}

SizeLimit::~SizeLimit() {
  setrlimit(RLIMIT_FSIZE, &old_);
  signal(SIGXFSZ, old_signal_);
}

}  // namespace support
