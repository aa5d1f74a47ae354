// SPDX-License-Identifier: MIT
#include "tests/support/disk.h"

#include "tests/support/files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

namespace support {
namespace {

enum Fate { kLost, kKept, kHalf, kZeros, kFates };

void overwrite(std::string& content, size_t at, const std::string& bytes) {
  if (content.size() < at + bytes.size()) content.resize(at + bytes.size());
  content.replace(at, bytes.size(), bytes);
}

}  // namespace

Disk::Disk(const std::string& folder, size_t block) : folder_(folder), block_(block) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    struct stat status = {};
    stat(entry.path().c_str(), &status);
    files_[status.st_ino].synced = read_file(entry.path());
    names_[entry.path().filename()].synced = status.st_ino;
  }
}

std::string Disk::name_of(const std::string& path) const {
  const size_t start = folder_.size() + 1;
  return path.compare(0, start, folder_ + "/") == 0 ? path.substr(start) : "";
}

void Disk::apply(const FileCall& call) {
  const std::string path = name_of(call.path);
  const std::string to = name_of(call.to);
  const auto used = open_.find(call.descriptor);
  switch (call.kind) {
    case FileCall::kOpen: return open(call);
    case FileCall::kClose: open_.erase(call.descriptor); return;
    case FileCall::kLink: return name(to, names_[path].now());
    case FileCall::kUnlink: return name(path, kNone);
    case FileCall::kRename:
      if (names_[path].now() == names_[to].now()) return;  // two names of one file stay
      name(to, names_[path].now());
      return name(path, kNone);
    case FileCall::kWrite:
      if (used != open_.end()) write(used->second, call.bytes);
      return;
    case FileCall::kSync:
      if (used == open_.end()) return;
      if (used->second.file == kNone) {
        for (auto& entry : names_) entry.second = {entry.second.now(), {}};
      } else {
        File& file = files_[used->second.file];
        file = {content(file, [](size_t) { return kKept; }), {}};
      }
      return;
    case FileCall::kOwner:
    case FileCall::kMode: return;
  }
}

void Disk::open(const FileCall& call) {
  if (call.path == folder_) open_[call.descriptor] = {kNone, 0};
  const std::string path = name_of(call.path);
  if (path.empty()) return;
  Number file = names_[path].now();
  if (file == kNone) {
    file = files_.empty() ? 1 : files_.rbegin()->first + 1;
    name(path, file);
  }
  File& opened = files_[file];
  if ((call.open_flags & O_TRUNC) != 0) opened.changes.push_back({true, 0, ""});
  open_[call.descriptor] = {file, 0};
}

void Disk::write(Open& to, const std::string& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const size_t size = std::min(bytes.size() - done, block_ - to.at % block_);
    files_[to.file].changes.push_back({false, to.at, bytes.substr(done, size)});
    done += size;
    to.at += size;
  }
}

void Disk::name(const std::string& name, Number file) { names_[name].changes.push_back(file); }

std::string Disk::content(const File& file, const Choose& choose) const {
  std::string content = file.synced;
  for (const Change& change : file.changes) {
    switch (choose(change.truncates ? kKept + 1 : kFates)) {
      case kKept:
        if (change.truncates) content.clear();
        overwrite(content, change.at, change.bytes);
        break;
      case kHalf:
        overwrite(content, change.at, change.bytes.substr(0, change.bytes.size() / 2));
        break;
      case kZeros: overwrite(content, change.at, std::string(change.bytes.size(), '\0')); break;
      default: break;
    }
  }
  return content;
}

Disk::Files Disk::seen() const {
  Files files;
  for (const auto& [name, entry] : names_) {
    if (entry.now() == kNone) continue;
    files[name] = content(files_.at(entry.now()), [](size_t) { return kKept; });
  }
  return files;
}

Disk::Files Disk::left(const Choose& choose) const {
  Files files;
  std::map<Number, std::string> contents;  // a file of two names has one content
  for (const auto& [name, entry] : names_) {
    const size_t which = choose(entry.changes.size() + 1);
    const Number number = which == 0 ? entry.synced : entry.changes[which - 1];
    if (number == kNone) continue;
    const auto at = contents.find(number);
    files[name] =
        at != contents.end() ? at->second : contents[number] = content(files_.at(number), choose);
  }
  return files;
}

size_t EachWay::operator()(size_t count) {
  if (at_ == chosen_.size()) chosen_.emplace_back(0, count);
  return chosen_[at_++].first;
}

bool EachWay::next() {
  at_ = 0;
  while (!chosen_.empty() && ++chosen_.back().first == chosen_.back().second) chosen_.pop_back();
  return !chosen_.empty();
}

}  // namespace support
