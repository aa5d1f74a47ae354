// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

#include <sys/types.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace service {

// Another process, or another InstanceLock of this one, holds the lock. what() names the folder (or
// the socket, if a ControlSocket throws it) and the process: "/run/nasd is in use by process 4711".
class UTIL_EXPORT AlreadyRunning : public std::runtime_error {
 public:
  AlreadyRunning(const std::string& path, pid_t process);

  pid_t process() const { return process_; }  // 0 if it cannot be seen from here

 private:
  pid_t process_;
};

// Makes sure that only one daemon works in a folder, by locking the file `lock` in it.
//
// The lock ends with the object or with the process, however that ends. The file stays and need not
// be removed: it is empty, and its presence means nothing. Removing it while a daemon runs lets a
// second one start.
//
// The lock belongs to the process. Forked children do not hold it, so a child that outlives the
// daemon does not keep another from starting. A daemon that forks itself into the background must
// take the lock afterwards. The process loses it if it opens and closes the file `lock` itself.
class UTIL_EXPORT InstanceLock {
 public:
  // Throws AlreadyRunning, and std::system_error if the file cannot be opened or locked.
  explicit InstanceLock(const std::string& folder);
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

 private:
  class Lock;

  std::unique_ptr<Lock> lock_;
};

}  // namespace service
