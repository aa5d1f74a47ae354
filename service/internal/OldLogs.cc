// SPDX-License-Identifier: MIT
#include "service/internal/OldLogs.h"

#include "service/internal/OpenFile.h"

#include <dirent.h>
#include <endian.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>

namespace service {
namespace {

constexpr int kLowestPriority = 19;

OpenFile open_file(const std::string& path, int flags) {
  return OpenFile(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
}

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

std::string numbered(const std::string& base, unsigned long number, const char* ending) {
  char tail[32];
  snprintf(tail, sizeof tail, ".%lu%s", number, ending);
  return base + tail;
}

// Whether that function has made the path, and of which number.
bool is_numbered(const std::string& path, const std::string& base, const char* ending,
                 unsigned long& number) {
  if (path.size() == base.size() || path.compare(0, base.size(), base) != 0) return false;
  number = strtoul(&path[base.size() + 1], nullptr, 10);
  return path == numbered(base, number, ending);
}

bool remove_file(const std::string& path) { return unlink(path.c_str()) == 0 || errno == ENOENT; }

// What a compressed file says at its end of the size of the text, modulo 2^32.
bool holds(const OpenFile& compressed, off_t size) {
  struct stat status = {};
  uint32_t end = 0;
  return fstat(compressed.number(), &status) == 0 && status.st_size > off_t{sizeof end} &&
         pread(compressed.number(), &end, sizeof end, status.st_size - off_t{sizeof end}) ==
             ssize_t{sizeof end} &&
         le32toh(end) == static_cast<uint32_t>(size);
}

// ---- in the processes that compress: async-signal-safe calls only ----

void close_from(int first) {
  if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
  for (int number = first; number < 65536; ++number) close(number);  // an old kernel
}

// Leaves nothing of the daemon but its memory: no handler, no descriptor, no terminal.
void become_a_stranger(int from, int to) {
  for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  setsid();
  setpriority(PRIO_PROCESS, 0, kLowestPriority);
  // Above the standard ones first, where the two may lie themselves.
  const int input = fcntl(from, F_DUPFD, 3);
  const int output = fcntl(to, F_DUPFD, 3);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  close(STDERR_FILENO);
  open("/dev/null", O_WRONLY);
  close_from(3);
}

bool run_gzip() {
  const pid_t gzip = fork();
  if (gzip == 0) {
    execlp("gzip", "gzip", "-c", nullptr);
    _exit(127);
  }
  int status = -1;
  while (gzip > 0 && waitpid(gzip, &status, 0) < 0 && errno == EINTR) continue;
  return gzip > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The new file is like the old one and on disk before it gets its name.
bool finish(const struct stat& old, const char* part, const char* done) {
  const timespec times[] = {old.st_atim, old.st_mtim};
  return fchown(STDOUT_FILENO, old.st_uid, old.st_gid) == 0 &&
         fchmod(STDOUT_FILENO, old.st_mode & 07777) == 0 && futimens(STDOUT_FILENO, times) == 0 &&
         fsync(STDOUT_FILENO) == 0 && rename(part, done) == 0;
}

}  // namespace

OldLogs::OldLogs(const std::string& log, size_t most, off_t most_bytes)
    : log_(log),
      folder_(log.substr(0, log.rfind('/') + 1)),
      hidden_(folder_ + "." + log.substr(folder_.size())),
      new_log_(hidden_ + ".new"),
      newest_(log + ".0"),
      most_(most),
      most_bytes_(most_bytes) {}

std::string OldLogs::path(unsigned long number, bool compressed) const {
  return numbered(log_, number, compressed ? ".gz" : "");
}

// The old files, and what gzip works or has worked on. A compressed file beside the one that it was
// made of is removed: the daemon was killed when it had not put it in place.
bool OldLogs::list(Found& found) const {
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(folder_.empty() ? "." : folder_.c_str()));
  if (!folder) return false;
  // Not readdir(), which refuses the inode numbers of large disks where a long has 32 bits.
  errno = 0;  // tells an error from the end
  while (const dirent64* const entry = readdir64(folder.get())) {
    const std::string path = folder_ + entry->d_name;
    unsigned long number = 0;
    if (is_numbered(path, hidden_, ".part", number)) found.parts.push_back(number);
    if (is_numbered(path, hidden_, ".gz", number)) found.done.push_back(number);
    const bool compressed = is_numbered(path, log_, ".gz", number);
    if (compressed || is_numbered(path, log_, "", number)) {
      File file = {compressed, {}};
      if (lstat(path.c_str(), &file.status) == 0) {
        const auto [there, is_first] = found.files.emplace(number, file);
        if (!is_first && !compressed) there->second = file;
        if (!is_first && !remove_file(this->path(number, true))) return false;
      } else if (errno != ENOENT) {
        return false;  // a file that is overlooked would be written over
      }
    }
    errno = 0;
  }
  return errno == 0;
}

bool OldLogs::shift(off_t coming) const try {
  Found found;
  if (!list(found)) return false;
  auto& files = found.files;
  off_t bytes = coming;
  for (const auto& [number, file] : files) bytes += file.status.st_size;
  while (!files.empty() && (files.size() >= most_ || (most_bytes_ > 0 && bytes > most_bytes_))) {
    const auto oldest = std::prev(files.end());
    if (!remove_file(path(oldest->first, oldest->second.compressed))) return false;
    bytes -= oldest->second.status.st_size;
    files.erase(oldest);
  }
  // Up to the first gap, which a kill within another rotation may have left.
  unsigned long next = 0;
  while (files.count(next) > 0) ++next;
  while (next-- > 0) {
    const bool compressed = files.at(next).compressed;
    if (rename(path(next, compressed).c_str(), path(next + 1, compressed).c_str()) != 0)
      return false;
  }
  return true;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return false;
}

bool OldLogs::compress(bool begin) const try {
  Found found;
  if (!list(found)) return false;
  for (const ino_t inode : found.done) {
    if (take_over(inode, found)) begin = true;
  }
  for (const ino_t inode : found.parts) {
    const std::string path = numbered(hidden_, inode, ".part");
    const OpenFile part = open_file(path, O_WRONLY);
    if (part && flock(part.number(), LOCK_EX | LOCK_NB) != 0) return true;  // gzip runs
    // It has failed or was killed, unless the file has just got its other name.
    if (unlink(path.c_str()) != 0 && errno == ENOENT) return true;
  }
  if (!begin) return false;
  for (const auto& [number, file] : found.files) {
    if (number > 0 && !file.compressed && S_ISREG(file.status.st_mode))
      return start_gzip(number, file.status);
  }
  return false;
} catch (const std::bad_alloc&) {
  return false;
}

bool OldLogs::take_over(ino_t inode, Found& found) const {
  const std::string done = numbered(hidden_, inode, ".gz");
  for (auto& [number, file] : found.files) {
    if (number == 0 || file.compressed || file.status.st_ino != inode) continue;
    if (!holds(open_file(done, O_RDONLY), file.status.st_size)) break;
    if (rename(done.c_str(), path(number, true).c_str()) != 0) return false;
    file.compressed = true;
    return remove_file(path(number, false));
  }
  remove_file(done);
  return false;
}

// By a process that is not ours, so that nobody has to wait for it or meets it in waitpid(). The
// one between, which only starts it, is gone when this returns.
bool OldLogs::start_gzip(unsigned long number, const struct stat& file) const {
  const std::string part = numbered(hidden_, file.st_ino, ".part");
  const std::string done = numbered(hidden_, file.st_ino, ".gz");
  const OpenFile from = open_file(path(number, false), O_RDONLY);
  const OpenFile to = open_file(part, O_WRONLY | O_CREAT | O_EXCL);
  if (!from || !to || flock(to.number(), LOCK_EX | LOCK_NB) != 0) return false;

  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // none of the daemon's handlers runs in a child
  const pid_t child = fork();
  if (child == 0) {
    if (fork() != 0) _exit(0);
    become_a_stranger(from.number(), to.number());
    if (!run_gzip() || !finish(file, part.c_str(), done.c_str())) unlink(part.c_str());
    _exit(0);
  }
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return child > 0;
}

}  // namespace service
