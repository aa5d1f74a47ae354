// SPDX-License-Identifier: MIT
#include "service/InstanceLock.h"

#include "service/internal/Descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>

namespace service {
namespace {

std::string holder(pid_t process) {
  return process > 0 ? "process " + std::to_string(process) : "another process";
}

// The files that this process has locked. It is checked before a file is opened, since the system
// would grant the same process the lock again, and drop it when any descriptor of the file is
// closed.
using File = std::pair<dev_t, ino_t>;
std::mutex mutex;  // held while locks are taken and released

std::set<File>& locked_files() {
  static std::set<File> files;
  static pid_t owner = 0;  // a forked child inherits the list, but no lock
  if (std::exchange(owner, getpid()) != getpid()) files.clear();
  return files;
}

struct flock whole_file() {
  struct flock all = {};
  all.l_type = F_WRLCK;
  all.l_whence = SEEK_SET;
  return all;
}

}  // namespace

AlreadyRunning::AlreadyRunning(const std::string& path, pid_t process)
    : std::runtime_error(path + " is in use by " + holder(process)),
      process_(std::max(process, pid_t{0})) {}

class UTIL_HIDDEN InstanceLock::Lock {
 public:
  explicit Lock(const std::string& folder) {
    const std::string path = folder + "/lock";
    const std::lock_guard<std::mutex> guard(mutex);
    struct stat found = {};
    if (lstat(path.c_str(), &found) == 0 &&
        locked_files().count({found.st_dev, found.st_ino}) > 0) {
      throw AlreadyRunning(folder, getpid());
    }
    descriptor_ = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600),
                             "cannot open " + path);
    if (fstat(descriptor_.number(), &found) < 0) throw_errno("cannot open " + path);
    lock(folder, path);
    file_ = {found.st_dev, found.st_ino};
    locked_files().insert(file_);
  }
  ~Lock() {
    const std::lock_guard<std::mutex> guard(mutex);
    locked_files().erase(file_);
    descriptor_ = Descriptor();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  void lock(const std::string& folder, const std::string& path) const {
    struct flock mine = whole_file();
    while (fcntl(descriptor_.number(), F_SETLK, &mine) < 0) {
      if (errno != EACCES && errno != EAGAIN) throw_errno("cannot lock " + path);
      struct flock other = whole_file();
      if (fcntl(descriptor_.number(), F_GETLK, &other) < 0) throw_errno("cannot lock " + path);
      if (other.l_type != F_UNLCK) throw AlreadyRunning(folder, other.l_pid);
    }
  }

  Descriptor descriptor_;
  File file_;
};

InstanceLock::InstanceLock(const std::string& folder) : lock_(new Lock(folder)) {}

InstanceLock::~InstanceLock() = default;

}  // namespace service
