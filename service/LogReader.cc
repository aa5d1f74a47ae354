// SPDX-License-Identifier: MIT
#include "service/LogReader.h"

#include "service/internal/Descriptor.h"
#include "service/internal/OpenFile.h"
#include "service/internal/concat.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace service {
namespace {

constexpr size_t kReadSize = size_t{128} << 10;
constexpr size_t kTailSize = 256;
constexpr std::string_view kRotationNotice = "rotating log file\n";

// The shape of a time stamp, and the range of each of its numbers.
constexpr std::string_view kTimeShape = "dddd-dd-ddTdd:dd:dd";
constexpr size_t kDateSize = 10;
struct Field {
  size_t at;
  int low, high;
};
constexpr Field kFields[] = {
    {5,  1, 12},
    {8,  1, 31},
    {11, 0, 23},
    {14, 0, 59},
    {17, 0, 60}
};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool has_shape(std::string_view text) {
  for (size_t i = 0; i < kTimeShape.size(); ++i) {
    if (kTimeShape[i] == 'd' ? !is_digit(text[i]) : text[i] != kTimeShape[i]) return false;
  }
  return true;
}

bool is_time(std::string_view text) {
  if (!has_shape(text)) return false;
  for (const Field& field : kFields) {
    const int number = (text[field.at] - '0') * 10 + (text[field.at + 1] - '0');
    if (number < field.low || number > field.high) return false;
  }
  return true;
}

// Whether an entry begins here.
bool begins_entry(std::string_view text) {
  return text.size() > kTimeShape.size() && text[kDateSize] == 'T' &&
         text[kTimeShape.size()] == ' ' && is_time(text.substr(0, kTimeShape.size()));
}

// Where the last entry within the line begins, one at its start left out; 0 if there is none.
size_t last_entry_within(std::string_view line) {
  size_t last = 0;
  for (size_t at = line.find('T', kDateSize + 1); at != line.npos; at = line.find('T', at + 1)) {
    if (begins_entry(line.substr(at - kDateSize))) last = at - kDateSize;
  }
  return last;
}

bool ends_with_notice(std::string_view text) {
  if (text.size() < kRotationNotice.size()) return false;
  const size_t at = text.size() - kRotationNotice.size();
  return text.substr(at) == kRotationNotice && (at == 0 || text[at - 1] == '\n');
}

// The category's name within the text of an entry; a null view if it has none.
std::string_view category_of(std::string_view text) {
  const size_t header = text.find('\n');
  if (header == text.npos) return {};
  size_t end = text.find(':', header + 1);
  while (end != text.npos && (end + 1 == text.size() || text[end + 1] != ' ')) {
    end = text.find(':', end + 1);
  }
  if (end == text.npos) return {};
  const size_t start = text.rfind('\n', end) + 1;
  return text.substr(start, end - start);
}

}  // namespace

bool is_log_time(const std::string& text) {
  return text.size() == kTimeShape.size() && is_time(text);
}

std::string LogEntry::where() const {
  if (!begins_entry(text)) return "";
  const size_t start = kTimeShape.size() + 1;
  return text.substr(start, std::min(text.find('\n'), text.size()) - start);
}

std::string LogEntry::message() const {
  const std::string_view name = category_of(text);
  const size_t end = text.size() - (!text.empty() && text.back() == '\n');
  if (!begins_entry(text) || name.data() == nullptr) return text.substr(0, end);
  const auto behind_name = static_cast<size_t>(name.data() + name.size() - text.data());
  const size_t start = std::min(behind_name + 2, end);
  return text.substr(start, end - start);
}

LogReader::LogReader(const std::string& name, int descriptor)
    : name_(name), descriptor_(descriptor) {}

LogReader::~LogReader() { stop(); }

bool LogReader::next(LogEntry& to) {
  size_t end = find_end();
  while (end > data_.size() && data_.size() - begin_ < kLongest) {
    if (!refill()) return false;
    end = find_end();
  }
  take(std::min(end, data_.size()), to);
  begins_ = end <= data_.size();
  return true;
}

bool LogReader::rest(LogEntry& to) {
  if (ends_with_notice({data_.data() + begin_, data_.size() - begin_})) {
    data_.resize(data_.size() - kRotationNotice.size());
  }
  if (begin_ == data_.size()) return false;
  take(data_.size(), to);
  return true;
}

bool LogReader::settled(LogEntry& to) {
  const bool growing = offset_ != settled_at_;
  settled_at_ = offset_;
  const std::string_view left(data_.data() + begin_, data_.size() - begin_);
  if (growing || left.empty() || left.back() != '\n' || ends_with_notice(left)) return false;
  if (begins_entry(left) ? category_of(left).data() == nullptr : !open_) return false;
  take(data_.size(), to);
  open_ = true;
  return true;
}

bool LogReader::rewritten() const {
  std::string now(tail_.size(), '\0');
  const auto at = static_cast<off_t>(offset_ - tail_.size());
  const ssize_t got = pread(descriptor_, now.data(), now.size(), at);
  return got >= 0 && (static_cast<size_t>(got) != now.size() || now != tail_);
}

void LogReader::stop() { const OpenFile closed(std::exchange(descriptor_, -1)); }

// Reads more. Returns false at the end of the file.
bool LogReader::refill() {
  if (descriptor_ < 0) return false;
  data_.erase(0, begin_);
  scanned_ -= begin_;
  if (glued_ > 0) glued_ -= begin_;
  begin_ = 0;

  const size_t had = data_.size();
  data_.resize(had +
               std::max(kReadSize, had));  // so that a long line is not searched over and over
  const ssize_t got = read(descriptor_, &data_[had], data_.size() - had);
  const auto size = static_cast<size_t>(std::max(got, ssize_t{0}));
  data_.resize(had + size);
  if (got < 0 && errno != EINTR) {
    stop();
    throw_errno(name_);
  }
  offset_ += size;
  tail_.append(data_, data_.size() - std::min(size, kTailSize));
  if (tail_.size() > kTailSize) tail_.erase(0, tail_.size() - kTailSize);
  return size > 0;
}

// Where the entry at begin_ ends; npos if that is not known yet.
size_t LogReader::find_end() {
  while (true) {
    const std::string_view rest(data_.data() + scanned_, data_.size() - scanned_);
    if (scanned_ > begin_ && begins_entry(rest)) return scanned_;
    const size_t size = rest.find('\n');
    if (size == rest.npos) return rest.npos;
    const std::string_view line = rest.substr(0, size);
    if (glued_ > 0 && line.find(": ") != line.npos) {
      --lines_;  // the line continues after `glued_`
      return glued_;
    }
    const size_t within = last_entry_within(line);
    glued_ = within > 0 ? scanned_ + within : 0;
    scanned_ += size + 1;
    ++lines_;
  }
}

void LogReader::take(size_t end, LogEntry& to) {
  const std::string_view text(data_.data() + begin_, end - begin_);
  const bool begins = std::exchange(begins_, false) || begins_entry(text);
  const bool goes_on = open_ && !begins;
  const size_t line = std::exchange(line_, line_ + lines_);
  begin_ = scanned_ = end;
  glued_ = lines_ = 0;
  open_ = false;

  to.text.assign(text);
  to.fault.clear();
  if (goes_on) return;
  const std::string_view category = category_of(text);
  to.category.assign(category);
  if (begins) to.time.assign(text.substr(0, kTimeShape.size()));
  if (begins && text.back() == '\n' && category.data() != nullptr) return;
  const char* const fault = begins ? ": entry is cut off" : ": not a log entry";
  to.fault = concat({name_, ":", decimal(line), fault});
}

}  // namespace service
