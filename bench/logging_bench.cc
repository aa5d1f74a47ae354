// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "service/LogFile.h"
#include "util/logger.h"

#include <fcntl.h>
#include <glog/logging.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/nullappender.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

constexpr off_t kFileSize = 8 << 20;
constexpr size_t kOldFiles = 2;
constexpr size_t kBufferSize = 0x80000;

// One entry, some 150 bytes with the time.
constexpr char kWhere[] = "bool nas::ShareManager::mount_share(const std::string&, unsigned int)";
constexpr char kShare[] = "photos";
constexpr int kMillis = 137;

// ---- an entry published ----

auto publish_ours(const std::string& path) {
  util::logger* const log = util::logger::getLogger(path.c_str());
  log->clear_components();
  log->enable(util::INFO);
  log->setUseParentPublisher(false);
  log->setPublisher(new util::rolling_file_publisher(path.c_str(), kFileSize, kOldFiles));
  return [log] {
    UTIL_LOG_AS(log, util::INFO, kWhere, "share '%s' is checked and mounted, in %d milliseconds",
                kShare, kMillis);
  };
}

// As its rotating file is set up for one thread, with the buffer by its event for an opened file.
auto publish_spdlog(const std::string& path) {
  const auto buffer = std::make_shared<std::unique_ptr<char[]>>(new char[kBufferSize]);
  spdlog::file_event_handlers events;
  events.after_open = [buffer](const spdlog::filename_t&, FILE* file) {
    setvbuf(file, buffer->get(), _IOFBF, kBufferSize);
  };
  const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_st>(
      path, kFileSize, kOldFiles, false, events);
  const auto log = std::make_shared<spdlog::logger>("INFO", sink);
  log->set_pattern("%Y-%m-%dT%T %!\n%n: %v");
  return [log, sink, buffer] {
    log->log(spdlog::source_loc{"shares.cc", 217, kWhere}, spdlog::level::info,
             "share '{}' is checked and mounted, in {} milliseconds", kShare, kMillis);
  };
}

// The file by hand: a buffer, the second's time as text, a count of bytes.
class HandWritten {
 public:
  explicit HandWritten(std::string path) : path_(std::move(path)), buffer_(new char[kBufferSize]) {
    open();
  }
  ~HandWritten() {
    write_out();
    close(file_);
  }
  HandWritten(const HandWritten&) = delete;
  HandWritten& operator=(const HandWritten&) = delete;

  __attribute__((format(printf, 3, 4))) void log(const char* where, const char* format, ...) {
    const time_t now = time(nullptr);
    if (now != second_) {
      second_ = now;
      struct tm local = {};
      localtime_r(&now, &local);
      strftime(text_, sizeof text_, "%FT%T", &local);
    }
    if (kBufferSize - used_ < kMostText) write_out();
    char* const start = buffer_.get() + used_;
    char* to = start;
    for (const char* piece : {static_cast<const char*>(text_), " ", where, "\nINFO: "}) {
      const size_t length = strlen(piece);
      memcpy(to, piece, length);
      to += length;
    }
    va_list args;
    va_start(args, format);
    to += vsnprintf(to, kMostText / 2, format, args);
    va_end(args);
    *to++ = '\n';
    used_ += static_cast<size_t>(to - start);
    size_ += to - start;
    if (size_ > kFileSize) rotate();
  }

  void write_out() {
    bench::require(write(file_, buffer_.get(), used_) == static_cast<ssize_t>(used_), "write");
    used_ = 0;
  }

 private:
  static constexpr size_t kMostText = 4096;

  void open() {
    file_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    size_ = 0;
  }

  void rotate() {
    write_out();
    close(file_);
    rename((path_ + ".0").c_str(), (path_ + ".1").c_str());
    rename(path_.c_str(), (path_ + ".0").c_str());
    open();
  }

  std::string path_;
  std::unique_ptr<char[]> buffer_;
  size_t used_ = 0;
  off_t size_ = 0;
  int file_ = -1;
  time_t second_ = 0;
  char text_[32] = "";
};

auto entry_to(const std::shared_ptr<HandWritten>& log) {
  return [log] {
    log->log(kWhere, "share '%s' is checked and mounted, in %d milliseconds", kShare, kMillis);
  };
}

auto publish_by_hand(const std::string& path) {
  return entry_to(std::make_shared<HandWritten>(path));
}

// ---- an entry that is in the file when the call returns, or at the end of a pass ----

constexpr int kEntriesOfAPass = 10;

// The unit `log`, done once or, with what `flush` then does, as a pass does it.
template <class Log, class Flush>
auto in_passes(Log log, Flush flush) {
  return [log, flush] {
    for (int i = 0; i < kEntriesOfAPass; ++i) log();
    flush();
  };
}

util::logger* logger_of_its_own(const std::string& name) {
  util::logger* const log = util::logger::getLogger(name.c_str());
  log->clear_components();
  log->enable(util::INFO);
  log->setUseParentPublisher(false);
  return log;
}

auto entry_to(util::logger* log) {
  return [log] {
    UTIL_LOG_AS(log, util::INFO, kWhere, "share '%s' is checked and mounted, in %d milliseconds",
                kShare, kMillis);
  };
}

util::logger* log_file(const std::string& path, bool buffered) {
  service::LogFileOptions options;
  options.buffered = buffered;
  options.rotate_above = kFileSize;
  options.old_files = kOldFiles;
  util::logger* const log = logger_of_its_own(path);
  log->setPublisher(new service::LogFile(path, options));
  return log;
}

util::logger* rolling_file(const std::string& path) {
  util::logger* const log = logger_of_its_own(path);
  log->setPublisher(new util::rolling_file_publisher(path.c_str(), kFileSize, kOldFiles));
  return log;
}

std::shared_ptr<spdlog::logger> rotating_file(const std::string& path) {
  const auto log = std::make_shared<spdlog::logger>(
      "INFO", std::make_shared<spdlog::sinks::rotating_file_sink_st>(path, kFileSize, kOldFiles));
  log->set_pattern("%Y-%m-%dT%T %!\n%n: %v");
  return log;
}

auto entry_to(const std::shared_ptr<spdlog::logger>& log) {
  return [log] {
    log->log(spdlog::source_loc{"shares.cc", 217, kWhere}, spdlog::level::info,
             "share '{}' is checked and mounted, in {} milliseconds", kShare, kMillis);
  };
}

auto at_once_by_log_file(const std::string& path) { return entry_to(log_file(path, false)); }

auto at_once_by_rolling_file(const std::string& path) {
  util::logger* const log = rolling_file(path);
  log->auto_flush(true);
  return entry_to(log);
}

auto at_once_by_spdlog(const std::string& path) {
  const auto log = rotating_file(path);
  log->flush_on(spdlog::level::info);
  return entry_to(log);
}

auto at_once_by_hand(const std::string& path) {
  const auto log = std::make_shared<HandWritten>(path);
  return [log, entry = entry_to(log)] {
    entry();
    log->write_out();
  };
}

// Nothing but the system call, for `entries` that are ready.
auto write_alone(const std::string& path, size_t entries) {
  const std::string entry(150 * entries, 'e');
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const auto size = std::make_shared<off_t>(0);
  return [entry, file, size] {
    bench::require(write(file, entry.data(), entry.size()) > 0, "write");
    *size += static_cast<off_t>(entry.size());
    if (*size > kFileSize) {
      bench::require(ftruncate(file, 0) == 0, "ftruncate");
      *size = 0;
    }
  };
}

auto pass_by_log_file(const std::string& path) {
  util::logger* const log = log_file(path, true);
  return in_passes(entry_to(log), [log] { log->flush(); });
}

auto pass_by_rolling_file(const std::string& path) {
  util::logger* const log = rolling_file(path);
  return in_passes(entry_to(log), [log] { log->flush(); });
}

auto pass_by_hand(const std::string& path) {
  const auto log = std::make_shared<HandWritten>(path);
  return in_passes(entry_to(log), [log] { log->write_out(); });
}

auto pass_by_spdlog(const std::string& path) {
  const auto log = rotating_file(path);
  return in_passes(entry_to(log), [log] { log->flush(); });
}

template <class Publish>
std::string published_text(Publish publish, const std::string& name) {
  const std::string path = bench::scratch_file("check-" + name);
  publish(path)();
  util::logger::getLogger(path.c_str())->flush();
  return bench::read_file(path);
}

void check_entries() {
  constexpr size_t kTime = 19;
  const std::string ours = published_text(publish_ours, "ours").substr(kTime);
  bench::require(ours.size() + kTime >= 140 && ours.size() + kTime <= 160, "entry of 150 bytes");
  for (const bool buffered : {false, true}) {
    const auto publish = [buffered](const std::string& path) {
      return entry_to(log_file(path, buffered));
    };
    const std::string name = buffered ? "pass" : "once";
    bench::require(published_text(publish, name).substr(kTime) == ours, "LogFile's entry");
  }
  bench::require(published_text(at_once_by_spdlog, "flushed").substr(kTime) == ours,
                 "spdlog's flushed entry");
  bench::require(published_text(publish_spdlog, "spdlog").substr(kTime) == ours, "spdlog's entry");
  bench::require(published_text(publish_by_hand, "floor").substr(kTime) == ours, "entry by hand");
}

// ---- a message dropped ----

util::logger* quiet_logger(const char* name) {
  util::logger* const log = util::logger::getLogger(name);
  log->clear_components();
  log->enable(util::INFO);
  return log;
}

auto drop_unchecked() {
  util::logger* const log = quiet_logger("unchecked");
  log->halt_checkpointing();
  return [log] { UTIL_LOG(log, util::DEBUG, "%d interfaces", kMillis); };
}

auto drop_checked() {
  util::logger* const log = quiet_logger("checked");
  return [log] { UTIL_LOG(log, util::DEBUG, "%d interfaces", kMillis); };
}

auto drop_spdlog() {
  const auto log =
      std::make_shared<spdlog::logger>("net", std::make_shared<spdlog::sinks::null_sink_st>());
  log->set_level(spdlog::level::info);
  return [log] { SPDLOG_LOGGER_CALL(log, spdlog::level::debug, "{} interfaces", kMillis); };
}

auto drop_log4cplus() {
  log4cplus::Logger log = log4cplus::Logger::getInstance("net");
  log.setLogLevel(log4cplus::INFO_LOG_LEVEL);
  return [log] { LOG4CPLUS_DEBUG(log, kMillis << " interfaces"); };
}

auto drop_glog() {
  return [] { VLOG(1) << kMillis << " interfaces"; };
}

// A mask that is tested, and a text that is written where it is asked for.
struct ByHand {
  uint64_t enabled = 3;
  bool checkpointing = false;
  char checkpoint[64] = "";
};

template <bool kCheckpointing>
auto drop_by_hand() {
  const auto log = std::make_shared<ByHand>();
  log->checkpointing = kCheckpointing;
  return [log] {
    bench::keep(*log);
    if ((7 & ~log->enabled) == 0) puts("never");
    if (log->checkpointing) memcpy(log->checkpoint, "logging_bench.cc:217", 21);
  };
}

}  // namespace

void bench::add_cases() {
  static const log4cplus::Initializer log4cplus_lives;
  google::InitGoogleLogging("logging_bench");
  check_entries();

  const auto file = [](const char* who) { return scratch_file(std::string("log-") + who); };
  add("an entry published", "ours", [=] { return publish_ours(file("ours")); });
  add("an entry published", "spdlog", [=] { return publish_spdlog(file("spdlog")); });
  add("an entry published", "floor", [=] { return publish_by_hand(file("floor")); });

  const char* const at_once = "an entry written at once";
  add(at_once, "ours", [=] { return at_once_by_log_file(file("once-ours")); });
  add(at_once, "rolling_file", [=] { return at_once_by_rolling_file(file("once-rolling")); });
  add(at_once, "spdlog", [=] { return at_once_by_spdlog(file("once-spdlog")); });
  add(at_once, "floor", [=] { return at_once_by_hand(file("once-floor")); });
  add(at_once, "write()", [=] { return write_alone(file("once-write"), 1); });

  const char* const pass = "10 entries and a flush";
  add(pass, "ours", [=] { return pass_by_log_file(file("pass-ours")); });
  add(pass, "rolling_file", [=] { return pass_by_rolling_file(file("pass-rolling")); });
  add(pass, "spdlog", [=] { return pass_by_spdlog(file("pass-spdlog")); });
  add(pass, "floor", [=] { return pass_by_hand(file("pass-floor")); });
  add(pass, "write()", [=] { return write_alone(file("pass-write"), kEntriesOfAPass); });

  add("a message dropped", "ours", drop_unchecked);
  add("a message dropped", "spdlog", drop_spdlog);
  add("a message dropped", "log4cplus", drop_log4cplus);
  add("a message dropped", "glog", drop_glog);
  add("a message dropped", "floor", drop_by_hand<false>);

  add("a message dropped, with checkpoint", "ours", drop_checked);
  add("a message dropped, with checkpoint", "floor", drop_by_hand<true>);
}
