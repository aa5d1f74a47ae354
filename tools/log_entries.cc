// SPDX-License-Identifier: MIT
#include "tools/log_entries.h"

#include "tools/command.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tools {
namespace {

constexpr size_t kReadSize = size_t{64} << 10;
constexpr size_t kTailSize = 256;
constexpr std::string_view kRotationNotice = "rotating log file\n";

// The digits of a time stamp and the highest number they may form.
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

// Whether an entry begins here.
bool begins_entry(std::string_view text) {
  return text.size() > kTimeShape.size() && text[kTimeShape.size()] == ' ' &&
         is_time(text.substr(0, kTimeShape.size()));
}

// Where the last entry begins within the line, but not at its start; 0 where none does.
size_t last_entry_within(std::string_view line) {
  for (size_t at = line.rfind('T'); at != line.npos && at > kDateSize;
       at = line.rfind('T', at - 1)) {
    if (begins_entry(line.substr(at - kDateSize))) return at - kDateSize;
  }
  return 0;
}

bool ends_with_notice(std::string_view text) {
  if (text.size() < kRotationNotice.size()) return false;
  const size_t at = text.size() - kRotationNotice.size();
  return text.substr(at) == kRotationNotice && (at == 0 || text[at - 1] == '\n');
}

}  // namespace

bool is_time(std::string_view text) {
  if (text.size() != kTimeShape.size() || !has_shape(text)) return false;
  return std::all_of(std::begin(kFields), std::end(kFields), [text](const Field& field) {
    const int number = (text[field.at] - '0') * 10 + (text[field.at + 1] - '0');
    return number >= field.low && number <= field.high;
  });
}

std::string_view category_of(std::string_view text) {
  const size_t header = text.find('\n');
  if (header == text.npos) return {};
  const size_t end = text.find(": ", header + 1);
  if (end == text.npos) return {};
  const size_t start = text.rfind('\n', end) + 1;
  return text.substr(start, end - start);
}

EntryReader::EntryReader(std::string name, int descriptor)
    : name_(std::move(name)), descriptor_(descriptor) {
  fstat(descriptor_, &file_);
}

EntryReader::~EntryReader() { stop(); }

bool EntryReader::next(Entry& to) {
  size_t end = find_end();
  while (end == data_.npos && left().size() < kLongest) {
    if (!refill()) return false;
    end = find_end();
  }
  take(std::min(end, data_.size()), to);
  return true;
}

bool EntryReader::rest(Entry& to) {
  if (ends_with_notice(left())) data_.resize(data_.size() - kRotationNotice.size());
  if (left().empty()) return false;
  take(data_.size(), to);
  return true;
}

bool EntryReader::settled(Entry& to) {
  const bool growing = offset_ != settled_at_;
  settled_at_ = offset_;
  if (growing || left().empty() || left().back() != '\n' || ends_with_notice(left()) ||
      problem(left()) != nullptr) {
    return false;
  }
  take(data_.size(), to);
  open_ = true;
  return true;
}

bool EntryReader::is(const struct stat& file) const {
  return file_.st_dev == file.st_dev && file_.st_ino == file.st_ino;
}

bool EntryReader::rewritten() const {
  std::string now(tail_.size(), '\0');
  const auto at = offset_ - static_cast<off_t>(tail_.size());
  const ssize_t got = pread(descriptor_, now.data(), now.size(), at);
  return got >= 0 && (static_cast<size_t>(got) != now.size() || now != tail_);
}

void EntryReader::stop() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

// Reads on. False at the end of the file, or where it cannot be read.
bool EntryReader::refill() {
  if (descriptor_ < 0) return false;
  data_.erase(0, begin_);
  scanned_ -= begin_;
  if (glued_ > 0) glued_ -= begin_;
  begin_ = 0;

  const size_t old = data_.size();
  const size_t more = std::max(kReadSize, old);  // a long line is not searched again and again
  data_.resize(old + more);
  const ssize_t got = read(descriptor_, data_.data() + old, more);
  const int error = errno;
  data_.resize(old + static_cast<size_t>(std::max<ssize_t>(got, 0)));
  if (got < 0 && error != EINTR) {
    fault(name_ + ": " + strerror(error));
    stop();
  }
  if (got <= 0) return false;
  offset_ += got;
  remember_tail(static_cast<size_t>(got));
  return true;
}

void EntryReader::remember_tail(size_t size) {
  tail_.append(data_, data_.size() - std::min(size, kTailSize));
  if (tail_.size() > kTailSize) tail_.erase(0, tail_.size() - kTailSize);
}

// Where the entry at begin_ ends; npos where that is not known yet.
size_t EntryReader::find_end() {
  while (true) {
    const std::string_view rest = std::string_view(data_).substr(scanned_);
    if (scanned_ > begin_ && begins_entry(rest)) return scanned_;
    const size_t size = rest.find('\n');
    if (size == rest.npos) return rest.npos;
    const std::string_view line = rest.substr(0, size);
    if (glued_ > 0 && line.find(": ") != line.npos) return glued_;
    const size_t within = last_entry_within(line);
    glued_ = within > 0 ? scanned_ + within : 0;
    scanned_ += size + 1;
  }
}

void EntryReader::take(size_t end, Entry& to) {
  to.text.assign(data_, begin_, end - begin_);
  begin_ = scanned_ = end;
  glued_ = 0;

  const char* const text = problem(to.text);
  to.fault = text == nullptr ? "" : name_ + ":" + std::to_string(line_) + ": " + text;
  line_ += static_cast<size_t>(std::count(to.text.begin(), to.text.end(), '\n'));
  const bool goes_on = open_ && !begins_entry(to.text);
  open_ = false;
  if (goes_on) return;
  if (begins_entry(to.text)) to.time.assign(to.text, 0, kTimeShape.size());
  to.category = category_of(to.text);
}

// Why the text cannot stand as an entry, or null.
const char* EntryReader::problem(std::string_view text) const {
  if (!begins_entry(text)) return open_ ? nullptr : "not a log entry";
  if (text.back() != '\n' || category_of(text).data() == nullptr) return "entry is cut off";
  return nullptr;
}

}  // namespace tools
