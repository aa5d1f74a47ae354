// SPDX-License-Identifier: MIT
// Temporary folders, captured streams and limits.
#pragma once

#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <string>
#include <vector>

namespace support {

// An empty folder that is removed with all it holds.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::string read(const std::string& name) const;  // "<missing>" where there is no such file
  void write(const std::string& name, const std::string& text) const;
  bool exists(const std::string& name) const;
  std::vector<std::string> list() const;  // names, sorted

 private:
  std::string path_;
};

// Catches what is written to descriptor 1 or 2, at whatever level.
class Captured {
 public:
  explicit Captured(FILE* stream);  // stdout or stderr
  ~Captured();
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string text();  // all so far

 private:
  FILE* stream_;
  int saved_;
  int file_;
};

// Files of this process may not grow past `bytes`, until destruction.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes);
  ~SizeLimit();
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

 private:
  sighandler_t old_signal_;
  rlimit old_ = {};
};

std::string read_file(const std::string& path);  // "<missing>" where it cannot be read
void write_file(const std::string& path, const std::string& text);
int open_descriptors();  // of this process

}  // namespace support
