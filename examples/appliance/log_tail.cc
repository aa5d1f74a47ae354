// SPDX-License-Identifier: MIT
#include "log_tail.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <string_view>

namespace appliance {
namespace {

constexpr std::streamoff kTailSize = 65536;
constexpr std::string_view kRotationNotice = "rotating log file\n";
constexpr std::string_view kTimeShape = "dddd-dd-ddTdd:dd:dd ";

std::string tail(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return "";
  const std::streamoff size = file.tellg();
  file.seekg(std::max<std::streamoff>(0, size - kTailSize));
  std::string text{std::istreambuf_iterator<char>(file), {}};
  const size_t end = text.size() - std::min(text.size(), kRotationNotice.size());
  if (text.compare(end, text.npos, kRotationNotice) == 0) text.resize(end);
  return text;
}

bool begins_entry(std::string_view line) {
  return line.size() >= kTimeShape.size() &&
         std::equal(kTimeShape.begin(), kTimeShape.end(), line.begin(), [](char shape, char c) {
           return shape == 'd' ? isdigit(static_cast<unsigned char>(c)) != 0 : shape == c;
         });
}

// An entry from its whole text: "<time> <where>\n<category>: <text>\n".
LogEntry parsed(std::string_view entry) {
  const size_t time = kTimeShape.size() - 1;
  const size_t line = std::min(entry.find('\n'), entry.size() - 1);
  const size_t colon = std::min(entry.find(": ", line), entry.size());
  const size_t text = std::min(colon + 2, entry.size());
  const size_t end = entry.back() == '\n' ? 1 : 0;
  return {std::string(entry.substr(0, time)), std::string(entry.substr(time + 1, line - time - 1)),
          std::string(entry.substr(line + 1, colon - line - 1)),
          std::string(entry.substr(text, std::max(entry.size() - end, text) - text))};
}

// All whole entries of the text, in order; what stands before the first is the rest of one that
// was cut.
std::vector<LogEntry> entries_of(std::string_view text) {
  std::vector<LogEntry> entries;
  size_t entry = text.npos;
  for (size_t line = 0; line < text.size();) {
    if (begins_entry(text.substr(line))) {
      if (entry != text.npos) entries.push_back(parsed(text.substr(entry, line - entry)));
      entry = line;
    }
    line = std::min(text.find('\n', line), text.size() - 1) + 1;
  }
  if (entry != text.npos) entries.push_back(parsed(text.substr(entry)));
  return entries;
}

}  // namespace

std::vector<LogEntry> newest_entries(const std::string& log, size_t count) {
  std::vector<LogEntry> entries = entries_of(tail(log + ".0") + tail(log));
  std::reverse(entries.begin(), entries.end());
  if (entries.size() > count) entries.resize(count);
  return entries;
}

}  // namespace appliance
