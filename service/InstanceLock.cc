// SPDX-License-Identifier: MIT
#include "service/InstanceLock.h"

#include "service/internal/Descriptor.h"
#include "service/internal/concat.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace service {
namespace {

std::string holder(pid_t process) {
  return process > 0 ? "process " + decimal(process) : "another process";
}

struct flock whole_file() {
  struct flock all = {};
  all.l_type = F_WRLCK;
  all.l_whence = SEEK_SET;
  return all;
}

}  // namespace

AlreadyRunning::AlreadyRunning(const std::string& path, pid_t process)
    : std::runtime_error(concat({path, " is in use by ", holder(process)})),
      process_(std::max(process, pid_t{0})) {}

class UTIL_HIDDEN InstanceLock::Lock {
 public:
  explicit Lock(const std::string& folder) {
    const std::string path = folder + "/lock";
    const std::lock_guard<std::mutex> guard(mutex);
    // It is checked before the file is opened, since the system would grant the same process the
    // lock again, and drop it when any descriptor of the file is closed.
    if (lstat(path.c_str(), &file_) == 0 && is_mine()) throw AlreadyRunning(folder, owner_);
    const std::string failure = "cannot open " + path;
    descriptor_ =
        Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600), failure);
    if (fstat(descriptor_.number(), &file_) < 0) throw_errno(failure);
    lock(folder, path);
    next_ = std::exchange(first, this);
  }
  ~Lock() {
    const std::lock_guard<std::mutex> guard(mutex);
    Lock** at = &first;
    while (*at != this) at = &(*at)->next_;
    *at = next_;
    descriptor_ = Descriptor();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  // Whether this process holds the lock. What a forked child inherited are the parent's.
  bool is_mine() const {
    for (const Lock* one = first; one != nullptr; one = one->next_) {
      if (one->owner_ == owner_ && one->file_.st_dev == file_.st_dev &&
          one->file_.st_ino == file_.st_ino) {
        return true;
      }
    }
    return false;
  }

  void lock(const std::string& folder, const std::string& path) const {
    struct flock mine = whole_file();
    while (fcntl(descriptor_.number(), F_SETLK, &mine) < 0) {
      const bool is_held = errno == EACCES || errno == EAGAIN;
      struct flock other = whole_file();
      if (!is_held || fcntl(descriptor_.number(), F_GETLK, &other) < 0) {
        throw_errno("cannot lock " + path);
      }
      if (other.l_type != F_UNLCK) throw AlreadyRunning(folder, other.l_pid);
    }
  }

  static std::mutex mutex;  // held while locks are taken and released
  static Lock* first;       // of all locks

  const pid_t owner_ = getpid();
  Descriptor descriptor_;
  struct stat file_ = {};
  Lock* next_ = nullptr;
};

std::mutex InstanceLock::Lock::mutex;
InstanceLock::Lock* InstanceLock::Lock::first = nullptr;

InstanceLock::InstanceLock(const std::string& folder) : lock_(new Lock(folder)) {}

InstanceLock::~InstanceLock() = default;

}  // namespace service
