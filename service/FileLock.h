// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <stdexcept>
#include <string>

namespace service {

// A lock could not be taken; what() is "<file>: <reason>".
class UTIL_EXPORT LockFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Keeps everyone else who takes it, in this process or another, from changing a file at the same
// time. Take it before loading a list and hold it until the list is saved, so that no change gets
// lost:
//
//   const service::FileLock lock("settings.plist");
//   settings.load();
//   service::set(settings, "network/mtu", 1500);
//   settings.saveDurably();
//
// The lock is advisory: it does not stop anyone who does not take it, and reading needs no lock. It
// uses a file next to the other, "<file>.lock", which is removed afterwards; one that a killed
// process has left does not block anyone. The folder must be writable, as it must be for saving.
class UTIL_EXPORT FileLock {
 public:
  // Waits at most `patience` milliseconds for whoever holds it, then throws LockFailed, as it does
  // when a system call fails. A second lock of the same file on the same thread waits in vain.
  explicit FileLock(const std::string& file, util::utime_t patience = 10000);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  const std::string name_;
  int descriptor_ = -1;
};

}  // namespace service
