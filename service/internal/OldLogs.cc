// SPDX-License-Identifier: MIT
#include "service/internal/OldLogs.h"

#include "service/internal/OpenFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <tuple>

namespace service {
namespace {

constexpr int kLowestPriority = 19;

OpenFile open_file(const std::string& path, int flags) {
  return OpenFile(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
}

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

// Removes a prefix from `text`, or an ending.
bool cut_start(std::string& text, const std::string& start) {
  if (text.compare(0, start.size(), start) != 0) return false;
  text.erase(0, start.size());
  return true;
}

bool cut_end(std::string& text, const std::string& end) {
  if (text.size() < end.size()) return false;
  if (text.compare(text.size() - end.size(), end.size(), end) != 0) return false;
  text.erase(text.size() - end.size());
  return true;
}

// As it is written: without leading zeros or anything else.
bool is_number(const std::string& text, unsigned long long& value) {
  if (text.empty() || text.size() > 19 || (text[0] == '0' && text.size() > 1)) return false;
  value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned long long>(c - '0');
  }
  return true;
}

bool remove_file(const std::string& path) { return unlink(path.c_str()) == 0 || errno == ENOENT; }

// What a compressed file says at its end of the size of the text, modulo 2^32.
bool holds(const OpenFile& compressed, off_t size) {
  struct stat status = {};
  uint8_t end[4] = {};
  return fstat(compressed.number(), &status) == 0 && status.st_size > off_t{sizeof end} &&
         pread(compressed.number(), end, sizeof end, status.st_size - off_t{sizeof end}) ==
             ssize_t{sizeof end} &&
         (uint32_t{end[0]} | uint32_t{end[1]} << 8 | uint32_t{end[2]} << 16 |
          uint32_t{end[3]} << 24) == static_cast<uint32_t>(size);
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
      name_(log.substr(folder_.size())),
      new_log_(folder_ + "." + name_ + ".new"),
      newest_(log + ".0"),
      most_(most),
      most_bytes_(most_bytes) {}

std::string OldLogs::path(unsigned long number, bool compressed) const {
  return log_ + "." + std::to_string(number) + (compressed ? ".gz" : "");
}

std::string OldLogs::work_path(ino_t inode, const char* ending) const {
  return folder_ + "." + name_ + "." + std::to_string(inode) + ending;
}

// The old files by number, and what gzip works or has worked on. A compressed file beside the one
// that it was made of is removed: the daemon was killed when it had not put it in place.
bool OldLogs::list(std::vector<File>& files, std::vector<Work>& work) const {
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(folder_.empty() ? "." : folder_.c_str()));
  if (!folder) return false;
  // Not readdir(), which refuses the inode numbers of large disks where a long has 32 bits.
  errno = 0;  // tells an error from the end
  while (const dirent64* const entry = readdir64(folder.get())) {
    std::string rest = entry->d_name;
    unsigned long long number = 0;
    if (cut_start(rest, name_ + ".")) {
      const bool compressed = cut_end(rest, ".gz");
      File file = {0, compressed, {}};
      if (is_number(rest, number)) {
        file.number = static_cast<unsigned long>(number);
        if (lstat((folder_ + entry->d_name).c_str(), &file.status) == 0) {
          files.push_back(file);
        } else if (errno != ENOENT) {
          return false;  // a file that is overlooked would be written over
        }
      }
    } else if (cut_start(rest, "." + name_ + ".")) {
      const bool done = cut_end(rest, ".gz");
      if ((done || cut_end(rest, ".part")) && is_number(rest, number)) {
        work.push_back({static_cast<ino_t>(number), done, folder_ + entry->d_name});
      }
    }
    errno = 0;
  }
  if (errno != 0) return false;
  std::sort(files.begin(), files.end(), [](const File& a, const File& b) {
    return std::tie(a.number, a.compressed) < std::tie(b.number, b.compressed);
  });
  for (size_t i = 1; i < files.size(); ++i) {
    if (files[i].number != files[i - 1].number) continue;
    if (!remove_file(path(files[i].number, true))) return false;
    files.erase(files.begin() + static_cast<ptrdiff_t>(i));
  }
  return true;
}

bool OldLogs::shift(off_t coming) const {
  std::vector<File> files;
  std::vector<Work> work;
  if (!list(files, work)) return false;
  off_t bytes = coming;
  for (const File& file : files) bytes += file.status.st_size;
  while (!files.empty() && (files.size() >= most_ || (most_bytes_ > 0 && bytes > most_bytes_))) {
    if (!remove_file(path(files.back().number, files.back().compressed))) return false;
    bytes -= files.back().status.st_size;
    files.pop_back();
  }
  // Up to the first gap, which a kill within another rotation may have left.
  size_t next = 0;
  while (next < files.size() && files[next].number == next) ++next;
  while (next-- > 0) {
    const bool compressed = files[next].compressed;
    if (rename(path(next, compressed).c_str(), path(next + 1, compressed).c_str()) != 0)
      return false;
  }
  return true;
}

bool OldLogs::compress(bool begin) const {
  std::vector<File> files;
  std::vector<Work> all_work;
  if (!list(files, all_work)) return false;
  for (const Work& work : all_work) {
    if (work.done) {
      if (take_over(work, files)) begin = true;
      continue;
    }
    const OpenFile part = open_file(work.path, O_WRONLY);
    if (part && flock(part.number(), LOCK_EX | LOCK_NB) != 0) return true;  // gzip runs
    // It has failed or was killed, unless the file has just got its other name.
    if (unlink(work.path.c_str()) != 0 && errno == ENOENT) return true;
  }
  if (!begin) return false;
  const auto next = std::find_if(files.begin(), files.end(), [](const File& file) {
    return file.number > 0 && !file.compressed && S_ISREG(file.status.st_mode);
  });
  return next != files.end() && start_gzip(*next);
}

bool OldLogs::take_over(const Work& done, std::vector<File>& files) const {
  const auto of = std::find_if(files.begin(), files.end(), [&done](const File& file) {
    return !file.compressed && file.number > 0 && file.status.st_ino == done.inode;
  });
  if (of == files.end() || !holds(open_file(done.path, O_RDONLY), of->status.st_size)) {
    remove_file(done.path);
    return false;
  }
  if (rename(done.path.c_str(), path(of->number, true).c_str()) != 0) return false;
  of->compressed = true;
  return remove_file(path(of->number, false));
}

// By a process that is not ours, so that nobody has to wait for it or meets it in waitpid(). The
// one between, which only starts it, is gone when this returns.
bool OldLogs::start_gzip(const File& file) const {
  const std::string part = work_path(file.status.st_ino, ".part");
  const std::string done = work_path(file.status.st_ino, ".gz");
  const OpenFile from = open_file(path(file.number, false), O_RDONLY);
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
    if (!run_gzip() || !finish(file.status, part.c_str(), done.c_str())) unlink(part.c_str());
    _exit(0);
  }
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return child > 0;
}

}  // namespace service
