// SPDX-License-Identifier: MIT
// The replaced C library calls. Defined in the test program, they come before the C library's own
// for the library under test and for what it is linked with.
#undef _FORTIFY_SOURCE
#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/network.h"
#include "tests/support/real.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <string>

using support::fake_interfaces;
using support::fault_for;
using support::frozen_clock;
using support::note_call;
using support::redirected;

namespace {

// Notes the call; true where it has to fail, with errno set.
bool fails(const char* call, const char* first = nullptr, const char* second = nullptr) {
  const int before = errno;
  note_call(call, first, second);
  const int error = fault_for(call);
  errno = error != 0 ? error : before;
  return error != 0;
}

// The open stream on which reading or writing was last made to fail.
thread_local FILE* failed_stream = nullptr;

// As fails(); ferror() tells of it from then on.
bool fails_on(FILE* stream, const char* call) {
  const bool failing = fails(call);
  if (failing) failed_stream = stream;
  return failing;
}

std::string formatted(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int size = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(static_cast<size_t>(size), '\0');
  vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

void log_to_system(int priority, const char* format, va_list args) {
  if (fails("syslog")) return;
  const std::string text = formatted(format, args);
  if (!support::capture_syslog(priority, text)) REAL(syslog)(priority, "%s", text.c_str());
}

}  // namespace

#pragma GCC visibility push(default)  // seen by the shared libraries too

extern "C" {

// ---- files ----

FILE* fopen(const char* path, const char* mode) {
  if (fails("fopen", path, mode)) return nullptr;
  return REAL(fopen)(redirected(path), mode);
}

// A close that fails has closed the stream all the same.
int fclose(FILE* stream) {
  const bool failing = fails("fclose");
  const int error = errno;
  if (stream == failed_stream) failed_stream = nullptr;
  const int result = REAL(fclose)(stream);
  if (!failing) return result;
  errno = error;
  return EOF;
}

int fflush(FILE* stream) { return fails("fflush") ? EOF : REAL(fflush)(stream); }

int setvbuf(FILE* stream, char* buffer, int mode, size_t size) {
  return fails("setvbuf") ? -1 : REAL(setvbuf)(stream, buffer, mode, size);
}

size_t fread(void* to, size_t size, size_t count, FILE* stream) {
  return fails_on(stream, "fread") ? 0 : REAL(fread)(to, size, count, stream);
}

// Fails by telling that reading or writing did.
int ferror(FILE* stream) {
  return stream == failed_stream || fails("ferror") ? 1 : REAL(ferror)(stream);
}

size_t fwrite(const void* from, size_t size, size_t count, FILE* stream) {
  return fails_on(stream, "fwrite") ? 0 : REAL(fwrite)(from, size, count, stream);
}

int fputc(int c, FILE* stream) { return fails_on(stream, "fputc") ? EOF : REAL(fputc)(c, stream); }

int vfprintf(FILE* stream, const char* format, va_list args) {
  return fails_on(stream, "vfprintf") ? -1 : REAL(vfprintf)(stream, format, args);
}

int __vfprintf_chk(FILE* stream, int, const char* format, va_list args) {
  return fails_on(stream, "vfprintf") ? -1 : REAL(vfprintf)(stream, format, args);
}

static int print(FILE* stream, const char* format, va_list args) {
  return fails_on(stream, "fprintf") ? -1 : REAL(vfprintf)(stream, format, args);
}

int fprintf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = print(stream, format, args);
  va_end(args);
  return result;
}

int __fprintf_chk(FILE* stream, int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = print(stream, format, args);
  va_end(args);
  return result;
}

static int scan(FILE* stream, const char* format, va_list args) {
  return fails("fscanf") ? EOF : vfscanf(stream, format, args);
}

// The headers send fscanf() to its C99 form; programs built otherwise use the plain one.
int fscanf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = scan(stream, format, args);
  va_end(args);
  return result;
}

int plain_fscanf(FILE* stream, const char* format, ...) __asm__("fscanf");
int plain_fscanf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = scan(stream, format, args);
  va_end(args);
  return result;
}

int rename(const char* from, const char* to) {
  return fails("rename", from, to) ? -1 : REAL(rename)(from, to);
}

int link(const char* from, const char* to) {
  return fails("link", from, to) ? -1 : REAL(link)(from, to);
}

int unlink(const char* path) { return fails("unlink", path) ? -1 : REAL(unlink)(path); }

int stat(const char* path, struct stat* to) {
  return fails("stat", path) ? -1 : REAL(stat)(redirected(path), to);
}

int fstat(int descriptor, struct stat* to) {
  return fails("fstat") ? -1 : REAL(fstat)(descriptor, to);
}

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) == 0 ? 0 : va_arg(args, mode_t);
  va_end(args);
  return fails("open", path) ? -1 : REAL(open)(path, flags, mode);
}

int fchown(int descriptor, uid_t owner, gid_t group) {
  return fails("fchown") ? -1 : REAL(fchown)(descriptor, owner, group);
}

int fchmod(int descriptor, mode_t mode) {
  return fails("fchmod") ? -1 : REAL(fchmod)(descriptor, mode);
}

int lstat(const char* path, struct stat* to) {
  return fails("lstat", path) ? -1 : REAL(lstat)(path, to);
}

int chmod(const char* path, mode_t mode) {
  return fails("chmod", path) ? -1 : REAL(chmod)(path, mode);
}

int lchown(const char* path, uid_t owner, gid_t group) {
  return fails("lchown", path) ? -1 : REAL(lchown)(path, owner, group);
}

int fsync(int descriptor) {
  if (fails("fsync")) return -1;
  return support::unsynced() ? 0 : REAL(fsync)(descriptor);
}

ssize_t write(int descriptor, const void* bytes, size_t size) {
  return fails("write") ? -1 : REAL(write)(descriptor, bytes, size);
}

int fdatasync(int descriptor) {
  if (fails("fdatasync")) return -1;
  return support::unsynced() ? 0 : REAL(fdatasync)(descriptor);
}

int syncfs(int descriptor) {
  if (fails("syncfs")) return -1;
  return support::unsynced() ? 0 : REAL(syncfs)(descriptor);
}

int flock(int descriptor, int operation) {
  return fails("flock") ? -1 : REAL(flock)(descriptor, operation);
}

DIR* opendir(const char* path) { return fails("opendir", path) ? nullptr : REAL(opendir)(path); }

// ---- processes ----

pid_t fork() { return fails("fork") ? -1 : REAL(fork)(); }

// ---- system log ----

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_to_system(priority, format, args);
  va_end(args);
}

void __syslog_chk(int priority, int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_to_system(priority, format, args);
  va_end(args);
}

// ---- time ----

int gettimeofday(struct timeval* to, void* zone) {
  if (fails("gettimeofday")) return -1;
  support::FrozenClock* const clock = frozen_clock();
  if (clock == nullptr) return REAL(gettimeofday)(to, zone);
  ++clock->readings;
  if (clock->before_reading) clock->before_reading();
  to->tv_sec = static_cast<time_t>(clock->second());
  to->tv_usec = static_cast<suseconds_t>(clock->microseconds - clock->second() * 1000000);
  return 0;
}

time_t time(time_t* to) {
  if (fails("time")) return -1;
  support::FrozenClock* const clock = frozen_clock();
  if (clock == nullptr) return REAL(time)(to);
  const auto now = static_cast<time_t>(clock->second());
  if (to != nullptr) *to = now;
  return now;
}

int nanosleep(const struct timespec* request, struct timespec* remainder) {
  if (fails("nanosleep")) return -1;
  support::FrozenClock* const clock = frozen_clock();
  if (clock == nullptr) return REAL(nanosleep)(request, remainder);
  const int64_t asked = int64_t{request->tv_sec} * 1000000000 + request->tv_nsec;
  clock->sleeps.push_back(asked);
  if (clock->interruptions.empty()) {
    clock->microseconds += asked / 1000;
    return 0;
  }
  const int64_t left = clock->interruptions.front();
  clock->interruptions.erase(clock->interruptions.begin());
  clock->microseconds += (asked - left) / 1000;
  remainder->tv_sec = static_cast<time_t>(left / 1000000000);
  remainder->tv_nsec = static_cast<long>(left % 1000000000);
  errno = EINTR;
  return -1;
}

struct tm* localtime_r(const time_t* time, struct tm* to) {
  return fails("localtime_r") ? nullptr : REAL(localtime_r)(time, to);
}

time_t mktime(struct tm* time) { return fails("mktime") ? -1 : REAL(mktime)(time); }

size_t strftime(char* to, size_t size, const char* format, const struct tm* time) {
  if (fails("strftime")) return 0;
  if (size > 0) *to = '\0';  // The thread sanitizer sees this write, not those of the C library.
  return REAL(strftime)(to, size, format, time);
}

char* strptime(const char* text, const char* format, struct tm* to) {
  return fails("strptime") ? nullptr : REAL(strptime)(text, format, to);
}

// ---- network ----

int getifaddrs(struct ifaddrs** to) {
  if (fails("getifaddrs")) return -1;
  support::FakeInterfaces* const fake = fake_interfaces();
  return fake != nullptr ? fake->list(to) : REAL(getifaddrs)(to);
}

void freeifaddrs(struct ifaddrs* list) {
  note_call("freeifaddrs");
  support::FakeInterfaces* const fake = fake_interfaces();
  if (fake != nullptr) return fake->free_list(list);
  REAL(freeifaddrs)(list);
}

int socket(int domain, int type, int protocol) {
  return fails("socket") ? -1 : REAL(socket)(domain, type, protocol);
}

int ioctl(int descriptor, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void* const argument = va_arg(args, void*);
  va_end(args);
  if (fails("ioctl")) return -1;
  support::FakeInterfaces* const fake = fake_interfaces();
  if (fake != nullptr && request == SIOCGIFHWADDR) {
    return fake->hardware_address(static_cast<ifreq*>(argument));
  }
  return REAL(ioctl)(descriptor, request, argument);
}

int bind(int descriptor, const struct sockaddr* address, socklen_t size) {
  return fails("bind") ? -1 : REAL(bind)(descriptor, address, size);
}

int listen(int descriptor, int backlog) {
  return fails("listen") ? -1 : REAL(listen)(descriptor, backlog);
}

int accept4(int descriptor, struct sockaddr* address, socklen_t* size, int flags) {
  return fails("accept4") ? -1 : REAL(accept4)(descriptor, address, size, flags);
}

int connect(int descriptor, const struct sockaddr* address, socklen_t size) {
  return fails("connect") ? -1 : REAL(connect)(descriptor, address, size);
}

int getsockopt(int descriptor, int level, int option, void* to, socklen_t* size) {
  return fails("getsockopt") ? -1 : REAL(getsockopt)(descriptor, level, option, to, size);
}

ssize_t send(int descriptor, const void* from, size_t size, int flags) {
  return fails("send") ? -1 : REAL(send)(descriptor, from, size, flags);
}

ssize_t recv(int descriptor, void* to, size_t size, int flags) {
  return fails("recv") ? -1 : REAL(recv)(descriptor, to, size, flags);
}

// ---- descriptors ----

int pipe2(int* ends, int flags) { return fails("pipe2") ? -1 : REAL(pipe2)(ends, flags); }

int memfd_create(const char* name, unsigned flags) {
  return fails("memfd_create") ? -1 : REAL(memfd_create)(name, flags);
}

int fcntl(int descriptor, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  return fails("fcntl") ? -1 : REAL(fcntl)(descriptor, command, argument);
}

// ---- waiting ----

int epoll_create1(int flags) { return fails("epoll_create1") ? -1 : REAL(epoll_create1)(flags); }

int epoll_ctl(int epoll, int operation, int descriptor, struct epoll_event* event) {
  return fails("epoll_ctl") ? -1 : REAL(epoll_ctl)(epoll, operation, descriptor, event);
}

int epoll_wait(int epoll, struct epoll_event* events, int size, int timeout) {
  return fails("epoll_wait") ? -1 : REAL(epoll_wait)(epoll, events, size, timeout);
}

int eventfd(unsigned int count, int flags) {
  return fails("eventfd") ? -1 : REAL(eventfd)(count, flags);
}

// A close that fails has closed the descriptor all the same.
int close(int descriptor) {
  const bool failing = fails("close");
  const int error = errno;
  const int result = REAL(close)(descriptor);
  if (!failing) return result;
  errno = error;
  return -1;
}

// ---- processes ----

int posix_spawnp(pid_t* process, const char* file, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments,
                 char* const* environment) {
  if (fails("posix_spawnp", file)) return errno;
  return REAL(posix_spawnp)(process, file, actions, attributes, arguments, environment);
}

int waitid(idtype_t kind, id_t id, siginfo_t* to, int options) {
  return fails("waitid") ? -1 : REAL(waitid)(kind, id, to, options);
}

}  // extern "C"

#pragma GCC visibility pop
