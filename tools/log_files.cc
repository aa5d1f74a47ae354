// SPDX-License-Identifier: MIT
#include "tools/log_files.h"

#include "tools/command.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

namespace tools {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

// The number of an old file, as in ".12"; -1 where it is none.
long number_of(const std::string& suffix) {
  const std::string digits = suffix.substr(std::min<size_t>(1, suffix.size()));
  const bool plain = !digits.empty() && digits.size() < 10 &&
                     digits.find_first_not_of("0123456789") == digits.npos;
  if (!plain || suffix[0] != '.' || (digits[0] == '0' && digits != "0")) return -1;
  return std::stol(digits);
}

// The numbers of the files beside `path` that rotation has made of it. Each number's successor is
// among them, for a rotation may come before the files are opened.
std::set<long> old_numbers(const std::string& path) {
  const size_t name = path.rfind('/') + 1;
  const std::string folder = name == 0 ? "." : path.substr(0, name);
  const std::string prefix = path.substr(name);
  std::set<long> numbers;
  const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.c_str()));
  if (!entries) return numbers;
  errno = 0;  // readdir() tells an error from the end by it alone
  while (const dirent* const entry = readdir(entries.get())) {
    const std::string file = entry->d_name;
    if (file.compare(0, prefix.size(), prefix) != 0) continue;
    const long number = number_of(file.substr(prefix.size()));
    if (number >= 0) numbers.insert({number, number + 1});
    errno = 0;
  }
  if (errno != 0) fault(folder + ": " + strerror(errno));
  return numbers;
}

// The files of a log that may exist, newest first. Opened in this order none is missed when a
// rotation comes in between, only met twice.
std::vector<std::string> names_newest_first(const std::string& path) {
  std::vector<std::string> names = {path};
  for (const long number : old_numbers(path)) names.push_back(path + "." + std::to_string(number));
  return names;
}

bool contains(const std::deque<std::unique_ptr<EntryReader>>& files, const struct stat& file) {
  return std::any_of(files.begin(), files.end(),
                     [&file](const auto& reader) { return reader->is(file); });
}

}  // namespace

Log::Log(std::string path, bool follow) : path_(std::move(path)), follow_(follow) {}

bool Log::open() {
  if (path_ == "-") {
    files_.push_back(std::make_unique<EntryReader>("standard input", STDIN_FILENO));
    return true;
  }
  open_newer();
  struct stat file = {};
  if (files_.empty() && stat(path_.c_str(), &file) != 0) fault(path_ + ": " + strerror(errno));
  return !files_.empty();
}

bool Log::next(Entry& to) {
  while (!files_.empty()) {
    if (files_.front()->next(to)) return true;
    if (follow_ && files_.size() == 1) return false;
    if (files_.front()->rest(to)) return true;
    read_ = std::move(files_.front());
    files_.pop_front();
  }
  return false;
}

void Log::look_for_change() {
  struct stat now = {};
  if (stat(path_.c_str(), &now) != 0) return;  // renamed, and not yet made anew
  EntryReader& last = *files_.back();
  if (!last.is(now)) {
    open_newer();
  } else if (last.rewritten()) {
    last.stop();
    if (auto file = open_file(path_)) files_.push_back(std::move(file));
  }
}

bool Log::settled(Entry& to) { return files_.size() == 1 && files_.front()->settled(to); }

bool Log::unfinished(Entry& to) { return !files_.empty() && files_.front()->rest(to); }

// Null where the file does not exist, or with a message, given once, where it cannot be opened.
std::unique_ptr<EntryReader> Log::open_file(const std::string& name) {
  const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor >= 0) return std::make_unique<EntryReader>(name, descriptor);
  const std::string message = name + ": " + strerror(errno);
  if (errno != ENOENT && message != complaint_) fault(complaint_ = message);
  return nullptr;
}

// Opens the files that came after those already open, or all of them.
void Log::open_newer() {
  std::deque<std::unique_ptr<EntryReader>> newer;
  for (const std::string& name : names_newest_first(path_)) {
    auto file = open_file(name);
    if (!file || contains(newer, file->status())) continue;
    if (contains(files_, file->status()) || (read_ && read_->is(file->status()))) break;
    newer.push_front(std::move(file));
  }
  std::move(newer.begin(), newer.end(), std::back_inserter(files_));
}

}  // namespace tools
