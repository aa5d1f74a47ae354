// SPDX-License-Identifier: MIT
// The C library as the tests see it: each call in the list below is replaced in every test program,
// passes on to the real one, and can be counted, recorded and made to fail.
//
//   fopen fclose fflush setvbuf fread fwrite ferror fscanf fprintf vfprintf fputc
//   rename link unlink stat lstat fstat open opendir write flock chmod fchown fchmod lchown fsync
//   fdatasync syncfs fork posix_spawnp waitid syslog
//   gettimeofday nanosleep time localtime_r mktime strftime strptime
//   getifaddrs freeifaddrs socket ioctl bind listen accept4 connect getsockopt send recv
//   close fcntl pipe2 memfd_create epoll_create1 epoll_ctl epoll_wait eventfd
#pragma once

#include <errno.h>

#include <functional>
#include <string>
#include <vector>

namespace support {

// From construction to destruction the `nth` use of `call` (1 is the next one), or with
// `nth` kEvery each use, fails: it does nothing but set `error` and return its failure value.
// Guards nest; the innermost one that names the call decides.
class Fault {
 public:
  static constexpr int kEvery = 0;

  Fault(const char* call, int error, int nth = 1);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

  int uses() const { return uses_; }  // how often the call was used since construction
  bool fired() const { return fired_; }

 private:
  friend int fault_for(const char* call);

  const char* call_;
  int error_;
  int nth_;
  int uses_ = 0;
  bool fired_ = false;
  Fault* outer_;
};

// What may befall calls: errors without a meaning of their own to any of them.
constexpr int kErrors[] = {EIO,    ENOSPC, EDQUOT, EACCES, EPERM,   EROFS, EMFILE,
                           ENFILE, ENOMEM, EINTR,  EAGAIN, ENOTDIR, ELOOP, ESTALE};

// From construction to destruction collects the calls that this thread makes, in order, each with
// its path arguments: "link /tmp/a /tmp/a~". Calls made to fail are listed too.
class Recorder {
 public:
  // Only the calls named in `only`, or all of them where it is empty.
  explicit Recorder(std::vector<std::string> only = {});
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  const std::vector<std::string>& calls() const { return calls_; }
  int count(const std::string& call) const;  // entries whose first word is `call`

  // Called before each recorded call is made, with its entry.
  std::function<void(const std::string&)> before;

 private:
  friend void note_call(const char* call, const char* first, const char* second);

  std::vector<std::string> only_;
  std::vector<std::string> calls_;
  Recorder* outer_;
};

// Opens and looks up `to` wherever the code names `from` (fopen and stat).
class Redirect {
 public:
  Redirect(std::string from, std::string to);
  ~Redirect();
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;

 private:
  friend const char* redirected(const char* path);

  std::string from_;
  std::string to_;
  Redirect* outer_;
};

// From construction to destruction fsync() and its like take no time and sync nothing.
class Unsynced {
 public:
  Unsynced();
  ~Unsynced();
  Unsynced(const Unsynced&) = delete;
  Unsynced& operator=(const Unsynced&) = delete;
};

// Catches what is sent to the system log, as "<priority> text", instead of sending it.
class SyslogCapture {
 public:
  SyslogCapture();
  ~SyslogCapture();
  SyslogCapture(const SyslogCapture&) = delete;
  SyslogCapture& operator=(const SyslogCapture&) = delete;

  const std::vector<std::string>& records() const { return records_; }

 private:
  friend bool capture_syslog(int priority, const std::string& text);

  std::vector<std::string> records_;
  SyslogCapture* outer_;
};

// For the replaced functions.
int fault_for(const char* call);  // the errno to fail with, or 0
void note_call(const char* call, const char* first = nullptr, const char* second = nullptr);
const char* redirected(const char* path);
bool unsynced();
bool capture_syslog(int priority, const std::string& text);

}  // namespace support
