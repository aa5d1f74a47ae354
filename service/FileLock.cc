// SPDX-License-Identifier: MIT
#include "service/FileLock.h"

#include "service/internal/concat.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace service {
namespace {

constexpr util::utime_t kPause = 10;
constexpr char kTooLong[] = ": another process has been changing it for too long (it holds ";

void pause() {
  const timespec time = {0, static_cast<long>(kPause) * 1000000};
  nanosleep(&time, nullptr);
}

// Whether the open file still has this name. Releasing a lock removes the file first, so whoever
// waited for the lock may hold a file that nobody else can find.
bool bears_name(int descriptor, const std::string& name) {
  struct stat open = {};
  struct stat named = {};
  return fstat(descriptor, &open) == 0 && stat(name.c_str(), &named) == 0 &&
         open.st_ino == named.st_ino && open.st_dev == named.st_dev;
}

// Takes the lock of `file`. Returns its descriptor, or -1 if another holds it.
int take(const std::string& file, const std::string& name) {
  while (true) {
    // Readable by all, so that a daemon can wait for a lock that root holds.
    const int descriptor =
        open(name.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    const bool locked = descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    const int error = errno;
    if (locked && bears_name(descriptor, name)) return descriptor;
    if (descriptor >= 0) close(descriptor);
    if (locked) continue;
    if (descriptor >= 0 && error == EWOULDBLOCK) return -1;
    throw LockFailed(concat({file, ": cannot lock it: ", strerror(error)}));
  }
}

}  // namespace

FileLock::FileLock(const std::string& file, util::utime_t patience) : name_(file + ".lock") {
  for (util::utime_t waited = 0; (descriptor_ = take(file, name_)) < 0; waited += kPause) {
    if (waited >= patience) throw LockFailed(concat({file, kTooLong, name_, ")"}));
    pause();
  }
}

FileLock::~FileLock() {
  unlink(name_.c_str());
  close(descriptor_);
}

}  // namespace service
