// SPDX-License-Identifier: MIT
#include "service/publishers.h"

#include "service/utf8.h"

#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

namespace service {
namespace {

constexpr size_t kMostKept = 4096;
constexpr size_t kMostPositions = 1000;
constexpr int kNoMemory = -1;  // nobody catches exceptions of a logging call

std::string formatted(const char* format, va_list args) {
  char text[1024];
  va_list again;
  va_copy(again, args);
  const int length = vsnprintf(text, sizeof text, format, again);
  va_end(again);
  if (length < 0) return format;  // formatting failed
  const auto size = static_cast<size_t>(length);
  if (size < sizeof text) return {text, size};
  std::string longer(size, '\0');
  va_copy(again, args);
  vsnprintf(longer.data(), size + 1, format, again);
  va_end(again);
  return longer;
}

__attribute__((format(printf, 4, 5))) int publish_to(util::publisher& to, util::category& c,
                                                     const char* where, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int size = to.publish(c, where, format, args);
  va_end(args);
  return size;
}

class Inside {
 public:
  explicit Inside(bool& flag) : flag_(flag) { flag_ = true; }
  ~Inside() { flag_ = false; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool& flag_;
};

// The length of the longest prefix of at most `most` bytes that does not split a character.
size_t piece_size(std::string_view text, size_t most) {
  if (text.size() <= most) return text.size();
  size_t size = 0;
  while (size < most) {
    const size_t next = utf8_piece(text.data() + size, text.data() + text.size()).size;
    if (size + next > most) break;
    size += next;
  }
  return size > 0 ? size : most;
}

std::string shortened(std::string text) {
  if (text.size() <= kMostKept) return text;
  text.resize(piece_size(text, kMostKept - 3));
  return text + "...";
}

std::string made_visible(const std::string& text) {
  std::string visible;
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at < end;) {
    const Utf8Piece piece = utf8_piece(at, end);
    const auto byte = static_cast<unsigned char>(*at);
    // In UTF-8, the control characters U+0080 to U+009F begin with C2.
    const bool is_control =
        byte < 0x20 || byte == 0x7F || (byte == 0xC2 && static_cast<unsigned char>(at[1]) < 0xA0);
    if (piece.valid && (!is_control || byte == '\t')) {
      visible.append(at, piece.size);
    } else {
      for (size_t i = 0; i < piece.size; ++i) {
        char code[8];
        snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(at[i]) & 0xFF);
        visible += code;
      }
    }
    at += piece.size;
  }
  return visible;
}

LogMessage entry_of(util::category& c, const char* where, const char* format, va_list args) {
  return {time(nullptr), where, c.name(), formatted(format, args)};
}

int size_of(const LogMessage& entry) {
  return static_cast<int>(sizeof "2007-03-01T14:05:09 \n: \n" - 1 + entry.where.size() +
                          entry.category.size() + entry.message.size());
}

}  // namespace

util::Value LogMessage::value() const {
  util::value_struct fields;
  fields["time"] = util::Value(static_cast<util::utime_t>(time) * 1000);
  fields["where"] = where;
  fields["category"] = category;
  fields["message"] = message;
  return fields;
}

// ---- Tee ----

Tee::Tee(std::shared_ptr<util::publisher> first, std::shared_ptr<util::publisher> second)
    : first_(std::move(first)), second_(std::move(second)) {}

int Tee::publish(util::category& c, const char* where, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  const int size = first_->publish(c, where, format, again);
  va_end(again);
  return std::min(size, second_->publish(c, where, format, args));
}

void Tee::flush() {
  first_->flush();
  second_->flush();
}

// ---- SystemLog ----

SystemLog::SystemLog(size_t record_size) : record_size_(std::max<size_t>(record_size, 64)) {}

int SystemLog::publish(util::category& c, const char* where, const char* format, va_list args) {
  try {
    const uint64_t level = c.mask() & util::DEBUG.mask();
    const int priority = level == util::DEBUG.mask()     ? LOG_DEBUG
                         : level == util::WARNING.mask() ? LOG_WARNING
                                                         : LOG_INFO;
    const std::string name = c.name();
    const std::string text = formatted(format, args) + " (" + where + ")";
    const auto size = static_cast<int>(name.size() + 2 + text.size());
    if (name.size() + 2 + text.size() <= record_size_) {
      syslog(priority, "%s: %s", name.c_str(), text.c_str());
      return size;
    }
    const size_t head = std::min(record_size_ / 2, name.size() + sizeof "  [999999/999999]: ");
    const size_t most = record_size_ - head;
    size_t count = 0;
    for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(piece_size(rest, most))) {
      ++count;
    }
    std::string_view rest = text;
    for (size_t number = 1; number <= count; ++number) {
      const size_t piece = piece_size(rest, most);
      syslog(priority, "%s [%zu/%zu]: %.*s", name.c_str(), number, count, static_cast<int>(piece),
             rest.data());
      rest.remove_prefix(piece);
    }
    return size;
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

// ---- RepeatLimit ----

struct RepeatLimit::Position {
  util::category category;
  time_t since;
  unsigned passed;
  uint64_t held_back;
};

struct RepeatLimit::Positions {
  // Keyed by function, format and category, with a NUL byte between them.
  std::map<std::string, Position> all;
  time_t looked_at = 0;
};

RepeatLimit::RepeatLimit(std::shared_ptr<util::publisher> to, unsigned most, unsigned seconds)
    : to_(std::move(to)),
      most_(most),
      seconds_(static_cast<time_t>(seconds)),
      positions_(new Positions) {}

RepeatLimit::~RepeatLimit() { tell_what_is_over(std::numeric_limits<time_t>::max()); }

int RepeatLimit::publish(util::category& c, const char* where, const char* format, va_list args) {
  const time_t now = time(nullptr);
  tell_what_is_over(now);
  try {
    auto& all = positions_->all;
    std::string key(where, strlen(where) + 1);
    key.append(format, strlen(format) + 1).append(c.name());
    auto found = all.find(key);
    if (found == all.end() && all.size() < kMostPositions) {
      found = all.emplace(key, Position{c, now, 0, 0}).first;
    }
    if (found == all.end() || found->second.passed < most_) {
      if (found != all.end()) ++found->second.passed;
      return to_->publish(c, where, format, args);
    }
    ++found->second.held_back;
    return 0;
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

void RepeatLimit::flush() {
  tell_what_is_over(time(nullptr));
  to_->flush();
}

// The period also ends if the clock was set back.
void RepeatLimit::tell_what_is_over(time_t now) {
  if (now == positions_->looked_at) return;
  positions_->looked_at = now;
  auto& all = positions_->all;
  for (auto at = all.begin(); at != all.end();) {
    Position& position = at->second;
    if (now >= position.since && now - position.since < seconds_) {
      ++at;
      continue;
    }
    if (position.held_back > 0) {
      struct tm local = {};
      char since[64] = "";
      localtime_r(&position.since, &local);
      strftime(since, sizeof since, "%FT%T", &local);
      const char* const where = at->first.c_str();
      publish_to(*to_, position.category, where, "%llu more held back since %s: %s",
                 static_cast<unsigned long long>(position.held_back), since,
                 where + strlen(where) + 1);
    }
    at = all.erase(at);
  }
}

// ---- VisibleText ----

VisibleText::VisibleText(std::shared_ptr<util::publisher> to) : to_(std::move(to)) {}

int VisibleText::publish(util::category& c, const char* where, const char* format, va_list args) {
  try {
    return publish_to(*to_, c, made_visible(where).c_str(), "%s",
                      made_visible(formatted(format, args)).c_str());
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

void VisibleText::flush() { to_->flush(); }

// ---- RecentEntries ----

RecentEntries::RecentEntries(size_t most) : most_(most) {}

int RecentEntries::publish(util::category& c, const char* where, const char* format, va_list args) {
  try {
    LogMessage entry = entry_of(c, where, format, args);
    const int size = size_of(entry);
    entry.where = shortened(std::move(entry.where));
    entry.message = shortened(std::move(entry.message));
    entries_.push_back(std::move(entry));
    while (entries_.size() > most_) entries_.pop_front();
    return size;
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

util::Value RecentEntries::value() const {
  util::value_array all;
  for (const LogMessage& entry : entries_) all.emplace_back() = entry.value();
  return all;
}

// ---- FunctionPublisher ----

FunctionPublisher::FunctionPublisher(std::function<void(const LogMessage&)> function)
    : function_(std::move(function)) {}

int FunctionPublisher::publish(util::category& c, const char* where, const char* format,
                               va_list args) {
  if (is_inside_) return 0;
  try {
    const LogMessage entry = entry_of(c, where, format, args);
    const Inside inside(is_inside_);
    function_(entry);
    return size_of(entry);
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

}  // namespace service
