// SPDX-License-Identifier: MIT
// Publishers for operations. They compose:
//
//   const auto file = std::make_shared<service::LogFile>("/var/log/nasd.log");
//   const auto recent = std::make_shared<service::RecentEntries>(100);
//   root->setPublisher(new service::RepeatLimit(std::make_shared<service::Tee>(file, recent)));
//
// If memory runs out, an entry is dropped and publish() returns -1. Log from one thread.
#pragma once

#include "util/Value.h"
#include "util/export.h"
#include "util/logger.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace service {

// One message, as a value.
struct UTIL_EXPORT LogMessage {
  time_t time;
  std::string where;  // the signature of the function that logged it
  std::string category;
  std::string message;

  // A STRUCT of "time" (a date), "where", "category" and "message".
  util::Value value() const;
};

// Passes each entry to two publishers, in this order. Chain several to reach more.
class UTIL_EXPORT Tee final : public util::publisher {
 public:
  Tee(std::shared_ptr<util::publisher> first, std::shared_ptr<util::publisher> second);

  int publish(util::category& c, const char* where, const char* format, va_list args) override;
  void flush() override;

 private:
  const std::shared_ptr<util::publisher> first_;
  const std::shared_ptr<util::publisher> second_;
};

// Sends each entry to the system log as one record "INFO: 3 clients (void serve(int))", with the
// priority of its level: LOG_WARNING, LOG_INFO or LOG_DEBUG; LOG_INFO for categories that are not
// levels. An entry longer than `record_size` bytes is split between characters into records "INFO
// [1/3]: ...". The program's own openlog(), if any, applies.
class UTIL_EXPORT SystemLog final : public util::publisher {
 public:
  explicit SystemLog(size_t record_size = 960);  // a record of 1,024 bytes with what syslog() adds

  int publish(util::category& c, const char* where, const char* format, va_list args) override;

 private:
  const size_t record_size_;
};

// Lets `most` entries from one source position pass in `seconds`, and holds back further ones. Once
// that time is over, the next entry from any position, or a flush(), reports how many:
//
//   2007-03-01T14:05:09 void net::Server::accept()
//   INFO: 8211 more held back since 2007-03-01T14:04:09: accept: %s
//
// A position is where, category and format; beyond 1,000 of them at a time, nothing is held back.
class UTIL_EXPORT RepeatLimit final : public util::publisher {
 public:
  explicit RepeatLimit(std::shared_ptr<util::publisher> to, unsigned most = 10,
                       unsigned seconds = 60);
  RepeatLimit(const RepeatLimit&) = delete;
  RepeatLimit& operator=(const RepeatLimit&) = delete;
  ~RepeatLimit();  // reports what is held back

  int publish(util::category& c, const char* where, const char* format, va_list args) override;
  void flush() override;

 private:
  struct Position;
  struct Positions;

  void tell_what_is_over(time_t now);

  const std::shared_ptr<util::publisher> to_;
  const unsigned most_;
  const time_t seconds_;
  const std::unique_ptr<Positions> positions_;
};

// Makes the signature and the message of each entry one line of visible text each: control bytes,
// including line breaks but not tabs, and bytes that are not UTF-8 become escapes such as "\x1B".
// So logged text can neither forge an entry nor take over a terminal.
class UTIL_EXPORT VisibleText final : public util::publisher {
 public:
  explicit VisibleText(std::shared_ptr<util::publisher> to);

  int publish(util::category& c, const char* where, const char* format, va_list args) override;
  void flush() override;

 private:
  const std::shared_ptr<util::publisher> to_;
};

// Keeps the newest entries in memory, for a page or a control socket. Messages and signatures
// longer than 4 KiB are cut and end in "...".
class UTIL_EXPORT RecentEntries final : public util::publisher {
 public:
  explicit RecentEntries(size_t most);

  int publish(util::category& c, const char* where, const char* format, va_list args) override;

  const std::deque<LogMessage>& entries() const { return entries_; }  // oldest first
  util::Value value() const;                                          // an array of the entries'

 private:
  const size_t most_;
  std::deque<LogMessage> entries_;
};

// Calls a function with each entry. What the function itself logs is not passed to it. It must not
// throw.
class UTIL_EXPORT FunctionPublisher final : public util::publisher {
 public:
  explicit FunctionPublisher(std::function<void(const LogMessage&)> function);

  int publish(util::category& c, const char* where, const char* format, va_list args) override;

 private:
  const std::function<void(const LogMessage&)> function_;
  bool is_inside_ = false;
};

}  // namespace service
