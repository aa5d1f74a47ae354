// SPDX-License-Identifier: MIT-0
// Replaces calls of the C library in the daemon and, being visible, in the libraries that it uses:
// while there is a file "full" in the current folder, the disk is full.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
  if (access("full", F_OK) != 0) return static_cast<int>(syscall(SYS_fsync, descriptor));
  errno = ENOSPC;
  return -1;
}
