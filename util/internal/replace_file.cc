// SPDX-License-Identifier: MIT
#include "util/internal/replace_file.h"

#include "util/internal/owners.h"
#include "util/system_exception.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace util {
namespace {

// A system call failed: throws with the current errno.
void check(int result) {
  if (result < 0) throw system_exception();
}

// A name next to the file that `make` could create, numbered from `first`; what still has that name
// is removed at the end.
class OwnName {
 public:
  template <class Make>
  OwnName(const std::string& file, int first, Make make) {
    constexpr int kAttempts = 1000;
    int result = -1;
    for (int i = first; result < 0 && i < kAttempts; ++i) {
      name_ = file + "." + std::to_string(getpid()) + "." + std::to_string(i);
      result = make(name_.c_str());
      if (result < 0 && errno != EEXIST) break;
    }
    check(result);
    made_ = result;
  }
  ~OwnName() {
    if (!name_.empty()) unlink(name_.c_str());
  }
  OwnName(const OwnName&) = delete;
  OwnName& operator=(const OwnName&) = delete;

  const char* get() const { return name_.c_str(); }
  int made() const { return made_; }  // what `make` returned

  void become(const std::string& name) {
    check(rename(get(), name.c_str()));
    name_.clear();
  }

 private:
  std::string name_;
  int made_ = -1;
};

// "<digits>.<digits>", the first ones the id of a process that is gone.
bool is_of_a_dead_process(const char* ending) {
  const char* const end = ending + strlen(ending);
  int process = 0;
  int number = 0;
  const auto first = std::from_chars(ending, end, process);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != '.' || process <= 0)
    return false;
  const auto second = std::from_chars(first.ptr + 1, end, number);
  if (second.ec != std::errc() || second.ptr != end) return false;
  return kill(process, 0) < 0 && errno == ESRCH;
}

// Removes the names that killed processes have left of this file, as far as possible.
void remove_leftovers(int folder, const std::string& file) {
  const std::string start = file.substr(file.rfind('/') + 1) + ".";  // npos + 1 is 0
  alignas(dirent64) char entries[4096];
  ssize_t size = 0;
  while ((size = getdents64(folder, entries, sizeof entries)) > 0) {
    for (const char* at = entries; at < entries + size;) {
      const auto* const entry = reinterpret_cast<const dirent64*>(at);
      at += entry->d_reclen;
      if (strncmp(entry->d_name, start.c_str(), start.size()) != 0) continue;
      const char* const ending = entry->d_name + start.size();
      if (is_of_a_dead_process(ending)) unlink((file + "." + ending).c_str());
    }
  }
}

std::string folder_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  if (slash == std::string::npos) return ".";
  return file.substr(0, slash == 0 ? 1 : slash);
}

// Any failure of stat() is an error: the mode and owner of the old file are needed.
bool find(const std::string& file, struct stat& status) {
  const int result = stat(file.c_str(), &status);
  if (result < 0 && errno != ENOENT) throw system_exception();
  return result == 0;
}

void take_over(const struct stat& old, int descriptor) {
  check(fchown(descriptor, old.st_uid, old.st_gid));
  check(fchmod(descriptor, old.st_mode & 07777));  // last: a new owner clears the set-id bits
}

// A second name is renamed over the backup, so there is a backup at all times.
void make_backup(const std::string& file, const std::string& backup) {
  const OwnName second(file, 1, [&file](const char* name) { return link(file.c_str(), name); });
  check(rename(second.get(), backup.c_str()));  // does nothing if both are one file already
}

}  // namespace

void replace_file(const std::string& file, const std::string& backup, const std::string& former,
                  const std::function<void(int)>& write) {
  const Descriptor folder(open(folder_of(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  remove_leftovers(folder.number(), file);
  struct stat old = {};
  const bool existed = find(file, old);
  const bool has_owner = existed || find(backup, old);
  const mode_t mode = has_owner ? 0600 : 0666;  // nobody else reads it before it has its owner
  OwnName fresh(file, 0, [mode](const char* name) {
    return open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  });
  Descriptor written(fresh.made());
  write(written.number());
  if (has_owner) take_over(old, written.number());
  check(fsync(written.number()));
  written.close();

  if (unlink(former.c_str()) < 0 && errno != ENOENT) throw system_exception();
  if (existed) make_backup(file, backup);
  fresh.become(file);
  check(fsync(folder.number()));
}

}  // namespace util
