// SPDX-License-Identifier: MIT
#include "service/LogFile.h"

#include "service/internal/OldLogs.h"
#include "service/internal/OpenFile.h"
#include "service/internal/SafeText.h"
#include "service/internal/entry_text.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace service {
namespace {

constexpr size_t kBufferSize = 64 << 10;
constexpr size_t kTimeSize = 64;
constexpr char kWhere[] = "service::LogFile";
constexpr char kWarning[] = "WARNING";
constexpr time_t kDay = 86400;

std::error_code code(int error) { return {error, std::generic_category()}; }

const LogFileOptions& checked(const LogFileOptions& options) {
  const char* fault = nullptr;
  if (options.rotate_above < 0 || options.total_size < 0) fault = "a size is negative";
  if (options.old_files == 0) fault = "old_files is 0";
  if (options.total_size > 0 &&
      (options.rotate_above == 0 || options.total_size / 2 < options.rotate_above)) {
    fault = "total_size has no room for two files of rotate_above";
  }
  if (fault != nullptr) throw std::invalid_argument(std::string("service::LogFile: ") + fault);
  return options;
}

time_t day_of(time_t local_second) {
  return local_second / kDay - (local_second % kDay < 0 ? 1 : 0);
}

// Local time as entries show it, formatted once a second.
struct LocalTime {
  void set(time_t now) {
    struct tm local = {};
    localtime_r(&now, &local);
    size = strftime(text, sizeof text, "%FT%T", &local);
    second = now;
    offset = local.tm_gmtoff;
    today = day_of(now + offset);
  }
  std::string_view view() const { return {text, size}; }

  time_t second = -1;
  time_t offset = 0;  // from UTC
  time_t today = 0;   // since the epoch
  char text[kTimeSize] = "";
  size_t size = 0;
};

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens a regular file to append to it; one of another kind is not even opened, which could have
// effects. If the file cannot be had with its mode and owner, returns none and sets errno.
OpenFile open_log(const std::string& path, int how, const LogFileOptions& options) {
  struct stat file = {};
  if (lstat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) {
    errno = S_ISLNK(file.st_mode) ? ELOOP : S_ISDIR(file.st_mode) ? EISDIR : EINVAL;
    return OpenFile();
  }
  const int flags =
      O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CREAT | how;
  OpenFile log(open(path.c_str(), flags, 0600));
  if (!log || fstat(log.number(), &file) != 0) return OpenFile();
  if (!S_ISREG(file.st_mode)) {
    errno = EINVAL;
    return OpenFile();
  }
  const bool owned = (options.owner == static_cast<uid_t>(-1) || options.owner == file.st_uid) &&
                     (options.group == static_cast<gid_t>(-1) || options.group == file.st_gid);
  if (!owned && fchown(log.number(), options.owner, options.group) != 0) return OpenFile();
  if ((file.st_mode & 07777) != options.mode && fchmod(log.number(), options.mode) != 0)
    return OpenFile();
  return log;
}

// Returns how many bytes the file took; if that is not all, sets errno.
size_t write_all(int descriptor, const char* bytes, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t written = write(descriptor, bytes + done, size - done);
    if (written < 0 && errno == EINTR) continue;
    if (written == 0) errno = EIO;
    if (written <= 0) break;
    done += static_cast<size_t>(written);
  }
  return done;
}

// Does what localtime_r() and strftime() do, which a handler may not call.
void put_time(SafeText& to, time_t local_second) {
  time_t day = day_of(local_second);
  const time_t second = local_second - day * kDay;
  // In years that begin in March, from the first of March of the year 0.
  day += 719468;
  const time_t era = (day >= 0 ? day : day - 146096) / 146097;
  const time_t of_era = day - era * 146097;
  const time_t year = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
  const time_t of_year = of_era - (365 * year + year / 4 - year / 100);
  const time_t month = (5 * of_year + 2) / 153;
  to.decimal(year + era * 400 + (month >= 10 ? 1 : 0), 4);
  const struct {
    const char* before;
    time_t number;
  } parts[] = {
      {"-", month < 10 ? month + 3 : month - 9 },
      {"-", of_year - (153 * month + 2) / 5 + 1},
      {"T", second / 3600                      },
      {":", second / 60 % 60                   },
      {":", second % 60                        },
  };
  for (const auto& part : parts) {
    to << part.before;
    to.decimal(part.number, 2);
  }
}

// What a signal handler may read: it is stored as a whole, after what was stored before it. Inlined
// where the code is compiled for size, too: a call would be larger.
template <class T>
class Noted {
 public:
  explicit Noted(T value) : value_(value) {}
  [[gnu::always_inline]] Noted& operator=(T value) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    value_.store(value, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    return *this;
  }
  [[gnu::always_inline]] operator T() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<T> value_;
};

}  // namespace

class UTIL_HIDDEN LogFile::Impl {
 public:
  Impl(const std::string& path, const LogFileOptions& options);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  int publish(util::category& c, const char* where, const char* format, va_list args);
  void flush();
  std::error_code sync();
  std::error_code rotate();
  std::error_code reopen();
  void publish_in_handler(const char* where, const char* message) noexcept;

  const std::string& path() const { return path_; }
  int error() const { return error_; }
  uint64_t lost() const { return lost_; }

 private:
  class Lock;
  struct Everywhere;

  void finish();
  bool write_out();
  size_t append(const char* where, const char* category, const char* format, va_list args);
  __attribute__((format(printf, 2, 3))) size_t append_warning(const char* format, ...);
  bool append_note();
  size_t append_behind_note(const char* where, const char* category, const char* format,
                            va_list args);
  bool make_room(size_t size);
  uint64_t take(size_t size);
  void drop_torn();
  void forget_waiting();
  void lose(uint64_t entries, int error);

  bool write_waiting();
  bool open_path();
  void use(OpenFile log);
  void look_at_clock();
  void look_at_path();
  void look_at_day();

  bool rotation_is_due() const;
  int begin_file();
  int try_to_begin_file();
  bool change_places();
  void compress(bool begin);

  const std::string path_;
  const LogFileOptions options_;
  const OldLogs old_;

  // The waiting entries; a handler may read them at any time.
  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = kBufferSize;
  Noted<size_t> used_{0};  // whole entries, except for a torn first one
  Noted<bool> is_writing_{false};
  std::vector<size_t> ends_;  // of the entries
  bool torn_ = false;         // the beginning of the first one is already in the file

  OpenFile log_;
  struct stat file_ = {};  // identifies the open file
  off_t size_ = 0;
  int error_ = 0;
  uint64_t written_ = 0;  // entries, since look_at_path()

  uint64_t lost_ = 0;
  uint64_t unreported_ = 0;  // of these
  int lost_by_ = 0;
  char lost_since_[kTimeSize] = "";

  LocalTime time_;
  time_t day_ = 0;  // of the file
  bool day_is_over_ = false;
  time_t not_rotated_ = -1;  // the second in which rotating failed
  bool compressing_ = false;
  bool files_changed_ = true;  // since sync()

  Impl* next_;
  static Impl* first_;
};

LogFile::Impl* LogFile::Impl::first_ = nullptr;

// All logs of the process.
struct LogFile::Impl::Everywhere {
  Everywhere() {
    if (pthread_atfork(nullptr, nullptr, forked) != 0) throw std::bad_alloc();
  }
  // Loggers live as long as the process, so nothing destroys their publishers.
  ~Everywhere() {
    for (Impl* log = first_; log != nullptr; log = log->next_) log->finish();
  }
  Everywhere(const Everywhere&) = delete;
  Everywhere& operator=(const Everywhere&) = delete;

  // In the child: the parent writes what waits and reports what was lost.
  static void forked() noexcept {
    for (Impl* log = first_; log != nullptr; log = log->next_) {
      log->forget_waiting();
      log->lost_ = 0;
      log->unreported_ = 0;
    }
  }
};

// Lets only one of all processes that log to a path move its files.
class LogFile::Impl::Lock {
 public:
  explicit Lock(const Impl& log)
      : file_(open(log.path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)) {
    struct stat opened = {};
    struct stat there = {};
    is_held_ = file_ && flock(file_.number(), LOCK_EX | LOCK_NB) == 0 &&
               fstat(file_.number(), &opened) == 0 && lstat(log.path_.c_str(), &there) == 0;
    if (!is_held_ || (same_file(opened, log.file_) && same_file(there, log.file_))) return;
    is_held_ = false;
    errno = ESTALE;  // another process has rotated
  }
  ~Lock() {
    if (file_) flock(file_.number(), LOCK_UN);  // even if a child still has the file
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  bool is_held() const { return is_held_; }

 private:
  const OpenFile file_;
  bool is_held_;
};

LogFile::Impl::Impl(const std::string& path, const LogFileOptions& options)
    : path_(path),
      options_(checked(options)),
      old_(path, options.old_files,
           options.total_size > 0 ? options.total_size - options.rotate_above : 0),
      buffer_(new char[kBufferSize]),
      next_(first_) {
  ends_.reserve(kBufferSize / sizeof "2007-03-01T14:05:09 \n: \n");
  static const Everywhere once;
  first_ = this;
  time_.set(time(nullptr));
  open_path();
}

LogFile::Impl::~Impl() {
  finish();
  Impl** at = &first_;
  while (*at != this) at = &(*at)->next_;
  *at = next_;
}

void LogFile::Impl::finish() {
  if (used_ > 0 || unreported_ > 0) write_out();
}

void LogFile::Impl::flush() {
  look_at_clock();
  write_out();
}

int LogFile::Impl::publish(util::category& c, const char* where, const char* format, va_list args) {
  look_at_clock();
  if (error_ != 0 || unreported_ > 0) write_out();  // tries again
  size_t size = 0;
  try {
    size = unreported_ > 0 ? append_behind_note(where, c.name_text(), format, args)
                           : append(where, c.name_text(), format, args);
  } catch (const std::bad_alloc&) {
    error_ = ENOMEM;
  }
  if (size == 0) lose(1, error_);
  if (error_ != 0 || (!options_.buffered && !write_waiting())) return -1;
  return static_cast<int>(size);
}

bool LogFile::Impl::write_out() {
  if (!write_waiting()) return false;
  if (unreported_ == 0) return true;
  append_note();
  return write_waiting();
}

std::error_code LogFile::Impl::sync() {
  if (!write_out()) return code(error_);
  // Entries rotated since the last call are in other files, under other names.
  const bool synced = (files_changed_ ? syncfs(log_.number()) : fdatasync(log_.number())) == 0;
  if (!synced) return code(errno);
  files_changed_ = false;
  return {};
}

std::error_code LogFile::Impl::rotate() {
  look_at_clock();
  if (!write_out()) return code(error_);
  return code(size_ > 0 ? begin_file() : 0);
}

std::error_code LogFile::Impl::reopen() {
  write_out();
  OpenFile log = open_log(path_, 0, options_);
  if (!log) return code(errno);
  use(std::move(log));
  return code(write_out() ? 0 : error_);
}

void LogFile::Impl::publish_in_handler(const char* where, const char* message) noexcept {
  if (!log_) return;
  struct stat now = {};
  size_t done = 0;  // by the write() that the signal has interrupted
  if (is_writing_ && fstat(log_.number(), &now) == 0 && now.st_size > size_) {
    done = std::min<size_t>(used_, static_cast<size_t>(now.st_size - size_));
  }
  write_all(log_.number(), buffer_.get() + done, used_ - done);
  forget_waiting();
  SafeText entry;
  put_time(entry, time(nullptr) + time_.offset);
  entry << " " << where << "\n" << kWarning << ": " << message << "\n";
  write_all(log_.number(), entry.c_str(), entry.size());
}

// ---- what waits ----

// Returns the size of the entry, or 0 if there is no room for it.
size_t LogFile::Impl::append(const char* where, const char* category, const char* format,
                             va_list args) {
  size_t size = 0;
  while (make_room(size)) {
    const size_t used = used_;
    const size_t room = capacity_ - used;
    size = put_entry(buffer_.get() + used, room, time_.view(), where, category, format, args);
    if (size > room) continue;
    ends_.push_back(used + size);
    used_ = used + size;
    return size;
  }
  return 0;
}

size_t LogFile::Impl::append_warning(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const size_t size = append(kWhere, kWarning, format, args);
  va_end(args);
  return size;
}

// Tells how many entries were lost. Returns false if there is no room for that.
bool LogFile::Impl::append_note() {
  const auto count = static_cast<unsigned long long>(unreported_);
  const size_t size =
      append_warning("%llu %s lost since %s: %s", count, count == 1 ? "entry" : "entries",
                     lost_since_, strerror(lost_by_));
  if (size > 0) unreported_ = 0;
  return size > 0;
}

// While the file takes nothing: appends both or neither, so that the note precedes later entries.
size_t LogFile::Impl::append_behind_note(const char* where, const char* category,
                                         const char* format, va_list args) {
  const size_t used = used_;
  const uint64_t unreported = unreported_;
  if (!append_note()) return 0;
  const size_t size = append(where, category, format, args);
  if (size > 0) return size;
  used_ = used;
  ends_.pop_back();
  unreported_ = unreported;
  return 0;
}

// A long entry gets a larger buffer once nothing else waits.
bool LogFile::Impl::make_room(size_t size) {
  if (capacity_ - used_ >= size) return true;
  if (used_ > 0 && (error_ != 0 || !write_waiting())) return false;
  if (capacity_ >= size) return true;
  buffer_.reset(new char[size]);
  capacity_ = size;
  return true;
}

// Removes the first bytes of what waits. Returns how many entries end within them.
uint64_t LogFile::Impl::take(size_t size) {
  size_t ended = ends_.size();
  if (size == used_) {
    forget_waiting();
    if (capacity_ == kBufferSize) return ended;
    if (char* const usual = new (std::nothrow) char[kBufferSize]) {
      buffer_.reset(usual);
      capacity_ = kBufferSize;
    }
    return ended;
  }
  memmove(buffer_.get(), buffer_.get() + size, used_ - size);
  used_ = used_ - size;
  while (ended > 0 && ends_[ended - 1] > size) --ended;
  torn_ = ended == 0 || ends_[ended - 1] < size;
  ends_.erase(ends_.begin(), ends_.begin() + static_cast<ptrdiff_t>(ended));
  for (size_t& end : ends_) end -= size;
  return ended;
}

// Drops an entry whose beginning is in a file that is no longer ours.
void LogFile::Impl::drop_torn() {
  if (!torn_) return;
  take(ends_.front());
  lose(1, error_);
}

void LogFile::Impl::forget_waiting() {
  used_ = 0;
  ends_.clear();
  torn_ = false;
}

void LogFile::Impl::lose(uint64_t entries, int error) {
  if (entries == 0) return;
  if (unreported_ == 0) memcpy(lost_since_, time_.text, sizeof lost_since_);
  lost_ += entries;
  unreported_ += entries;
  lost_by_ = error;
}

// ---- the file ----

// If the disk takes only a part, the rest waits for the next time.
bool LogFile::Impl::write_waiting() {
  if (!log_ && !open_path()) return false;
  if (rotation_is_due() && begin_file() == 0) return true;
  is_writing_ = true;
  const size_t size = write_all(log_.number(), buffer_.get(), used_);
  error_ = size == used_ ? 0 : errno;
  size_ += static_cast<off_t>(size);
  if (size > 0) written_ += take(size);
  is_writing_ = false;
  return error_ == 0;
}

bool LogFile::Impl::open_path() {
  OpenFile log = open_log(path_, 0, options_);
  if (!log) {
    error_ = errno;
    return false;
  }
  use(std::move(log));
  return true;
}

void LogFile::Impl::use(OpenFile log) {
  drop_torn();
  log_ = std::move(log);
  fstat(log_.number(), &file_);
  size_ = file_.st_size;
  day_ = day_of(file_.st_mtime + time_.offset);
  day_is_over_ = false;
  files_changed_ = true;
  look_at_day();
  if (options_.compress) compress(true);
}

void LogFile::Impl::look_at_clock() {
  const time_t now = time(nullptr);
  if (now == time_.second) return;
  time_.set(now);
  look_at_path();
  if (time_.today > day_ && used_ > 0) write_waiting();  // entries of yesterday
  look_at_day();
}

// If the path leads to another file, changes to that. If that is not possible, stays with the
// present file as long as it has a name.
void LogFile::Impl::look_at_path() {
  struct stat there = {};
  if (log_ && lstat(path_.c_str(), &there) == 0 && same_file(there, file_)) {
    size_ = there.st_size;  // others may have written too
  } else if (log_) {
    const bool is_removed = fstat(log_.number(), &there) == 0 && there.st_nlink == 0;
    OpenFile log = open_log(path_, 0, options_);
    const int error = log ? ENOENT : errno;
    if (is_removed) lose(written_, error);
    if (log) {
      use(std::move(log));
    } else if (is_removed) {
      drop_torn();
      error_ = error;
      log_ = OpenFile();
    }
  }
  written_ = 0;
  if (compressing_) compress(false);
}

// Only a later day ends the file: setting the clock back over midnight does not. If the clock was
// days ahead, the day is taken anew.
void LogFile::Impl::look_at_day() {
  if (!options_.rotate_daily) return;
  if (size_ == 0 || time_.today < day_ - 1) day_ = time_.today;
  if (time_.today > day_) day_is_over_ = true;
}

// ---- rotation ----

bool LogFile::Impl::rotation_is_due() const {
  const bool is_full =
      options_.rotate_above > 0 && size_ + static_cast<off_t>(used_) > options_.rotate_above;
  return (is_full || day_is_over_) && used_ > 0 && size_ > 0 && !torn_ && error_ == 0 &&
         not_rotated_ != time_.second;
}

// Returns 0, or why the file was not rotated; that is tried again in the next second.
int LogFile::Impl::begin_file() {
  const int error = try_to_begin_file();
  if (error != 0) not_rotated_ = time_.second;
  return error;
}

// Writes what waits to the new file before any other is touched, so a full disk loses none.
int LogFile::Impl::try_to_begin_file() {
  const Lock lock(*this);
  if (!lock.is_held()) return errno;
  unlink(old_.in_the_making().c_str());
  OpenFile log = open_log(old_.in_the_making(), O_EXCL, options_);
  if (!log) return errno;
  if (write_all(log.number(), buffer_.get(), used_) < used_ || !old_.shift(size_) ||
      !change_places()) {
    const int error = errno;
    unlink(old_.in_the_making().c_str());
    return error;
  }
  written_ = take(used_);
  use(std::move(log));
  return 0;
}

bool LogFile::Impl::change_places() {
  if (rename(path_.c_str(), old_.newest().c_str()) != 0) return false;
  if (rename(old_.in_the_making().c_str(), path_.c_str()) == 0) return true;
  const int error = errno;
  rename(old_.newest().c_str(), path_.c_str());
  errno = error;
  return false;
}

void LogFile::Impl::compress(bool begin) {
  const Lock lock(*this);
  if (lock.is_held()) compressing_ = old_.compress(begin);
}

// ---- LogFile ----

LogFile::LogFile(const std::string& path, const LogFileOptions& options)
    : impl_(new Impl(path, options)) {
  if (error()) throw std::system_error(error(), path);
}

LogFile::LogFile(const std::string& path, const LogFileOptions& options, std::error_code& error)
    : impl_(new Impl(path, options)) {
  error = this->error();
}

LogFile::~LogFile() = default;

int LogFile::publish(util::category& c, const char* where, const char* format, va_list args) {
  return impl_->publish(c, where, format, args);
}

void LogFile::flush() { impl_->flush(); }

std::error_code LogFile::sync() { return impl_->sync(); }

std::error_code LogFile::rotate() { return impl_->rotate(); }

std::error_code LogFile::reopen() { return impl_->reopen(); }

const std::string& LogFile::path() const { return impl_->path(); }

std::error_code LogFile::error() const { return code(impl_->error()); }

uint64_t LogFile::lost() const { return impl_->lost(); }

void LogFile::publish_in_handler(const char* where, const char* message) noexcept {
  impl_->publish_in_handler(where, message);
}

// ---- FlushEachPass ----

void FlushEachPass::runLoop(util::utime_t) { log_->flush(); }

const char* FlushEachPass::name() { return "service::FlushEachPass"; }

}  // namespace service
