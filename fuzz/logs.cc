// SPDX-License-Identifier: MIT
#include "fuzz/logs.h"

#include "fuzz/fuzz.h"

#include <algorithm>
#include <cstddef>

namespace fuzz {
namespace {

const std::string kNotice = "rotating log file\n";

const std::string kDate = "[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])";
const std::string kMinute = "T([01][0-9]|2[0-3]):[0-5][0-9]";
const std::string kSecond = ":([0-5][0-9]|60)";

bool begins(const std::string& text, size_t at = 0) {
  return text.size() > at + 19 && text[at + 10] == 'T' && text[at + 19] == ' ' &&
         is_time_stamp(text.substr(at, 19));
}

bool ends_with_newline(const std::string& text) { return !text.empty() && text.back() == '\n'; }

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (const char c : text) {
    if (lines.empty() || lines.back().back() == '\n') lines.emplace_back();
    lines.back() += c;
  }
  return lines;
}

// Whether the line below the head of an entry can be its category's.
bool is_category_line(const std::string& line) {
  return ends_with_newline(line) && !begins(line) && line.find(": ") != std::string::npos;
}

// Where another entry begins in the middle of the line, as far as the line alone can tell.
size_t last_beginning_within(const std::string& line) {
  for (size_t at = line.size(); at > 1; --at) {
    if (begins(line, at - 1)) return at - 1;
  }
  return 0;
}

std::vector<std::string> parts_of(const std::string& text) {
  const std::vector<std::string> lines = lines_of(text);
  std::vector<std::string> parts;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (parts.empty() || begins(lines[i])) parts.emplace_back();
    const size_t within = last_beginning_within(lines[i]);
    if (within > 0 && i + 1 < lines.size() && is_category_line(lines[i + 1])) {
      parts.back() += lines[i].substr(0, within);
      parts.push_back(lines[i].substr(within));
    } else {
      parts.back() += lines[i];
    }
  }
  return parts;
}

bool ends_with_notice(const std::string& text) {
  const std::vector<std::string> lines = lines_of(text);
  return !lines.empty() && lines.back() == kNotice;
}

// The line with the category; the number of lines where there is none.
size_t category_line(const std::vector<std::string>& lines) {
  size_t at = 1;
  while (at < lines.size() && lines[at].find(": ") == std::string::npos) ++at;
  return at;
}

}  // namespace

bool is_time_stamp(const std::string& text) { return matches(text, kDate + kMinute + kSecond); }

bool is_time_bound(const std::string& text) {
  return matches(text, kDate + "(" + kMinute + "(" + kSecond + ")?)?");
}

void LogFile::complete(std::vector<LogEntry>& to) {
  const std::vector<std::string> parts = parts_of(text_.substr(handed_out_));
  for (size_t i = 0; i + 1 < parts.size(); ++i) hand_out(parts[i], to);
}

void LogFile::settled(std::vector<LogEntry>& to) {
  const std::string left = text_.substr(handed_out_);
  const bool grown = text_.size() != size_when_asked_;
  size_when_asked_ = text_.size();
  if (grown || !ends_with_newline(left) || ends_with_notice(left)) return;
  if (!entry(left, to).fault.empty()) return;
  hand_out(left, to);
  open_ = true;
}

void LogFile::rest(std::vector<LogEntry>& to) {
  std::string left = text_.substr(handed_out_);
  if (ends_with_notice(left)) left.resize(left.size() - kNotice.size());
  if (!left.empty()) hand_out(left, to);
}

LogEntry LogFile::entry(const std::string& text, const std::vector<LogEntry>& before) const {
  const LogEntry last = before.empty() ? LogEntry() : before.back();
  if (open_ && !begins(text)) return {text, last.time, last.category, ""};
  const std::vector<std::string> lines = lines_of(text);
  const size_t at = category_line(lines);
  LogEntry entry = {text, last.time, "", ""};
  if (at < lines.size()) entry.category = lines[at].substr(0, lines[at].find(": "));
  const auto line =
      1 + std::count(text_.begin(), text_.begin() + std::ptrdiff_t(handed_out_), '\n');
  const std::string place = name_ + ":" + std::to_string(line) + ": ";
  if (!begins(text)) {
    entry.fault = place + "not a log entry";
    return entry;
  }
  entry.time = text.substr(0, 19);
  if (!ends_with_newline(text) || at == lines.size()) entry.fault = place + "entry is cut off";
  return entry;
}

void LogFile::hand_out(const std::string& text, std::vector<LogEntry>& to) {
  to.push_back(entry(text, to));
  handed_out_ += text.size();
  open_ = false;
}

}  // namespace fuzz
