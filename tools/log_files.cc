// SPDX-License-Identifier: MIT
#include "tools/log_files.h"

#include "tools/command.h"
#include "tools/input.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

namespace tools {
namespace {

constexpr size_t kHeadSize = 256;  // enough to tell two files apart: it holds an entry's time
constexpr std::string_view kCompressed = ".gz";

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

bool ends_with(const std::string& text, std::string_view end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The number of an old file, such as ".12"; -1 if it is not one.
long number_of(const std::string& suffix) {
  const std::string digits = suffix.substr(std::min<size_t>(1, suffix.size()));
  const bool plain = !digits.empty() && digits.size() < 10 &&
                     digits.find_first_not_of("0123456789") == digits.npos;
  if (!plain || suffix[0] != '.' || (digits[0] == '0' && digits != "0")) return -1;
  return std::stol(digits);
}

// The numbers of the rotated files of `path`, compressed or not, and each number's successor, since
// a rotation may come before the files are opened.
std::set<long> old_numbers(const std::string& path) {
  const size_t name = path.rfind('/') + 1;
  const std::string folder = name == 0 ? "." : path.substr(0, name);
  const std::string prefix = path.substr(name);
  std::set<long> numbers;
  const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.c_str()));
  if (!entries) return numbers;
  errno = 0;  // readdir() tells an error from the end by it alone
  while (const dirent* const entry = readdir(entries.get())) {
    std::string file = entry->d_name;
    errno = 0;
    if (ends_with(file, kCompressed)) file.resize(file.size() - kCompressed.size());
    if (file.compare(0, prefix.size(), prefix) != 0) continue;
    const long number = number_of(file.substr(prefix.size()));
    if (number >= 0) numbers.insert({number, number + 1});
  }
  if (errno != 0) fault(folder + ": " + strerror(errno));
  return numbers;
}

// Zeros if there is no such file.
std::pair<dev_t, ino_t> identity(const std::string& path) {
  struct stat file = {};
  if (stat(path.c_str(), &file) != 0) return {};
  return {file.st_dev, file.st_ino};
}

struct stat status_of(int descriptor) {
  struct stat status = {};
  fstat(descriptor, &status);
  return status;
}

}  // namespace

// ---- a file ----

LogPart::LogPart(const std::string& name, int descriptor)
    : name_(name),
      compressed_(ends_with(name, kCompressed) ? util::Descriptor(descriptor) : util::Descriptor()),
      status_(status_of(descriptor)),
      reader_(name, compressed_.number() < 0 ? descriptor : start_gzip()) {}

LogPart::~LogPart() {
  reader_.stop();  // gzip ends when nobody reads
  if (gzip_ > 0) waitpid(gzip_, nullptr, 0);
}

// Returns the descriptor from which the uncompressed text is read.
int LogPart::start_gzip() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), name_);
  gzip_ = fork();
  if (gzip_ == 0) {
    signal(SIGPIPE, SIG_DFL);
    dup2(compressed_.number(), STDIN_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    execlp("gzip", "gzip", "-dc", nullptr);
    _exit(127);
  }
  const int error = errno;
  close(ends[1]);
  if (gzip_ > 0) return ends[0];
  close(ends[0]);
  throw std::system_error(error, std::generic_category(), name_);
}

// The first bytes of the uncompressed file, however much was read.
std::string LogPart::head() const {
  std::string text(kHeadSize, '\0');
  ssize_t got = 0;
  if (compressed_.number() < 0) {
    got = pread(reader_.descriptor(), text.data(), text.size(), 0);
  } else {
    const std::string itself = "/proc/self/fd/" + std::to_string(compressed_.number());
    const LogPart again(name_, ::open(itself.c_str(), O_RDONLY | O_CLOEXEC));
    got = read(again.reader_.descriptor(), text.data(), text.size());
  }
  text.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
  return text;
}

bool LogPart::is(const struct stat& file) const {
  return status_.st_dev == file.st_dev && status_.st_ino == file.st_ino;
}

bool LogPart::is(const LogPart& other) const {
  if (is(other.status_)) return true;
  if ((compressed_.number() < 0) == (other.compressed_.number() < 0)) return false;
  const std::string one = head();
  const std::string two = other.head();
  const size_t size = std::min(one.size(), two.size());
  return size > 0 && one.compare(0, size, two, 0, size) == 0;
}

bool LogPart::next(service::LogEntry& to) {
  try {
    return reader_.next(to);
  } catch (const std::system_error& failure) {
    fault(failure.what());
    return false;
  }
}

bool LogPart::rest(service::LogEntry& to) {
  if (reader_.rest(to)) return true;
  int status = 0;
  if (gzip_ > 0 && waitpid(std::exchange(gzip_, -1), &status, 0) > 0 && status != 0) {
    fault(name_ + ": gzip could not read all of it");
  }
  return false;
}

// ---- all files ----

Log::Log(std::string path, bool follow) : path_(std::move(path)), follow_(follow) {}

bool Log::open() {
  if (path_ == "-") {
    parts_.push_back(std::make_unique<LogPart>("standard input", STDIN_FILENO));
    return true;
  }
  if (!is_open_stream(path_)) refuse_special_file(path_);
  open_newer();
  if (!parts_.empty()) return true;
  struct stat file = {};
  if (stat(path_.c_str(), &file) == 0) return false;  // it was reported why
  const std::string message = path_ + ": " + strerror(errno);
  if (!follow_ || errno != ENOENT) {
    fault(message);
    return false;
  }
  warn(message + "; waiting for it");
  return true;
}

bool Log::next(service::LogEntry& to) {
  while (!parts_.empty()) {
    if (parts_.front()->next(to)) return true;
    if (follow_ && parts_.size() == 1) return false;
    if (parts_.front()->rest(to)) return true;
    read_ = std::move(parts_.front());
    parts_.pop_front();
  }
  return false;
}

void Log::look_for_change() {
  struct stat now = {};
  if (stat(path_.c_str(), &now) != 0) return;  // renamed, and not yet made anew
  if (parts_.empty() || !parts_.back()->is(now)) {
    open_newer();
  } else if (parts_.back()->reader().rewritten()) {
    parts_.back()->reader().stop();
    if (auto part = open_part(path_)) parts_.push_back(std::move(part));
  }
}

bool Log::settled(service::LogEntry& to) {
  return parts_.size() == 1 && parts_.front()->reader().settled(to);
}

bool Log::unfinished(service::LogEntry& to) {
  return !parts_.empty() && parts_.front()->reader().rest(to);
}

// Null if the file does not exist or cannot be opened, which is reported once.
std::unique_ptr<LogPart> Log::open_part(const std::string& name) {
  // A FIFO in place of an old file must not block; open() has refused one in place of the log.
  const int blocking = name == path_ ? 0 : O_NONBLOCK;
  const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | blocking);
  if (descriptor >= 0) return std::make_unique<LogPart>(name, descriptor);
  const std::string message = name + ": " + strerror(errno);
  if (errno != ENOENT && message != complaint_) fault(complaint_ = message);
  return nullptr;
}

bool Log::is_known(const LogPart& part) const {
  return (read_ && part.is(*read_)) ||
         std::any_of(parts_.begin(), parts_.end(),
                     [&part](const auto& known) { return part.is(*known); });
}

// Opens the files that are newer than those already open. If the log was rotated meanwhile, more
// than one number may have changed: once more.
void Log::open_newer() {
  auto log = identity(path_);
  Parts newer = newer_parts();
  for (int tries = 0; tries < 100 && log != identity(path_); ++tries) {
    log = identity(path_);
    newer = newer_parts();
  }
  std::move(newer.begin(), newer.end(), std::back_inserter(parts_));
}

// The newest are opened first: a rotation in between can then show a file twice, but cannot hide
// one. If a plain file exists, its compressed one is not complete.
Log::Parts Log::newer_parts() {
  Parts newer;
  const auto add = [&](std::unique_ptr<LogPart> part) {
    if (!part) return true;
    if (is_known(*part)) return false;
    const bool met = std::any_of(newer.begin(), newer.end(),
                                 [&part](const auto& other) { return part->is(*other); });
    if (!met) newer.push_front(std::move(part));
    return true;
  };
  const bool more = add(open_part(path_));
  for (const long number : more ? old_numbers(path_) : std::set<long>()) {
    const std::string name = path_ + "." + std::to_string(number);
    auto part = open_part(name);
    if (!part) part = open_part(name + std::string(kCompressed));
    if (!add(std::move(part))) break;
  }
  return newer;
}

}  // namespace tools
