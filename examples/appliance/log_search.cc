// SPDX-License-Identifier: MIT
#include "log_search.h"

#include <service/Command.h>
#include <service/LogReader.h>
#include <service/Loop.h>
#include <service/utf8.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace appliance {
namespace {

namespace fs = std::filesystem;
using service::LogEntry;
using util::value_array;
using util::value_struct;

constexpr size_t kHead = 512;           // bytes
constexpr size_t kMostCategories = 64;  // a damaged log may seem to have any number
constexpr size_t kLongestCategory = 64;
// The number of a part, its fingerprint, where in it.
const std::regex kPosition("([0-9]{1,6})\\.([0-9]{1,10})\\.([0-9]{1,18})");

// ---- the files ----

// The log itself is part 0, the newest old file part 1.
std::string part_path(const std::string& log, size_t number) {
  return number == 0 ? log : log + "." + std::to_string(number - 1);
}

// Which parts there are; some may be gone by the time they are read.
std::set<size_t> part_numbers(const std::string& log) {
  std::set<size_t> numbers = {0};
  const std::string name = fs::path(log).filename().string() + ".";
  const std::regex old("([0-9]{1,6})(\\.gz)?");
  std::error_code unreadable;
  for (const fs::directory_entry& each :
       fs::directory_iterator(fs::path(log).parent_path(), unreadable)) {
    const std::string file = each.path().filename().string();
    std::smatch number;
    const std::string rest =
        file.compare(0, name.size(), name) == 0 ? file.substr(name.size()) : "";
    if (std::regex_match(rest, number, old)) numbers.insert(std::stoul(number[1]) + 1);
  }
  return numbers;
}

std::string decompressed(const std::string& path, const LogLimits& limits) {
  service::Command gzip({"gzip", "-dc", "--", path});
  gzip.limit = limits.bytes;
  gzip.time_limit = limits.time;
  service::Loop loop;
  service::Command::Result result = {};
  const service::Process running = gzip.start(loop, [&](const service::Command::Result& ended) {
    result = ended;
    loop.stop();
  });
  loop.run(5);
  if (!result.succeeded()) throw std::runtime_error("gzip " + result.end());
  if (result.cut) throw std::runtime_error("it is too long");
  return result.output;
}

// Its first two lines as a number: those are the first entry's, with its time. Files are known by
// it, for rotation changes their names, and compression their inodes.
std::string fingerprint_of(const std::string& start) {
  const size_t line = start.find('\n');
  uint32_t hash = 2166136261;
  for (const char c : start.substr(0, line == start.npos ? line : start.find('\n', line + 1))) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619;
  }
  return std::to_string(hash);
}

// A part of the log. Only regular files are opened; without one it is empty.
class Part {
 public:
  Part(const std::string& log, size_t number, const LogLimits& limits)
      : number_(number), path_(part_path(log, number)) {
    std::error_code missing;
    if (fs::is_regular_file(path_, missing)) {
      text_ = std::make_unique<std::ifstream>(path_, std::ios::binary);
    } else if (number > 0 && fs::is_regular_file(path_ += ".gz", missing)) {
      text_ = std::make_unique<std::istringstream>(decompressed(path_, limits));
    } else {
      text_ = std::make_unique<std::istringstream>();
    }
    fingerprint_ = fingerprint_of(read(0, kHead));
  }

  const std::string& path() const { return path_; }
  const std::string& fingerprint() const { return fingerprint_; }

  std::string id(uint64_t at) const { return fingerprint_ + "." + std::to_string(at); }
  std::string position(uint64_t at) const { return std::to_string(number_) + "." + id(at); }

  uint64_t size() const {
    text_->clear();
    text_->seekg(0, std::ios::end);
    return static_cast<uint64_t>(std::max<std::streamoff>(text_->tellg(), 0));
  }

  std::string read(uint64_t at, size_t count) const {
    std::string bytes(count, '\0');
    text_->clear();
    text_->seekg(static_cast<std::streamoff>(at));
    text_->read(bytes.data(), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<size_t>(text_->gcount()));
    return bytes;
  }

 private:
  size_t number_;
  std::string path_;
  std::string fingerprint_;
  std::unique_ptr<std::istream> text_;
};

// ---- the entries ----

// A file in memory, at its start; the caller closes it.
int memory_file(const std::string& bytes) {
  const int file = memfd_create("log", MFD_CLOEXEC);
  const bool written =
      file >= 0 && write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  if (written && lseek(file, 0, SEEK_SET) == 0) return file;
  throw std::system_error(errno, std::generic_category(), "memory for the log");
}

bool holds(const std::string& text, const std::string& wanted) {
  const auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
  return std::search(text.begin(), text.end(), wanted.begin(), wanted.end(),
                     [fold](char a, char b) { return fold(a) == fold(b); }) != text.end() ||
         wanted.empty();
}

bool fits(const LogEntry& entry, const LogQuery& query) {
  const std::string among = "|" + entry.category + "|";
  return (query.category.empty() || among.find("|" + query.category + "|") != among.npos) &&
         entry.time >= query.since && entry.time.substr(0, query.until.size()) <= query.until &&
         holds(entry.text, query.text);
}

class Search {
 public:
  Search(const std::string& log, const LogQuery& query, const LogLimits& limits)
      : log_(log), query_(query), limits_(limits), end_(Clock::now() + Milliseconds(limits.time)) {}

  value_struct run();

 private:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  bool full() const;
  void search(const Part& part, uint64_t end);
  uint64_t search_window(const Part& part, uint64_t begin, const std::string& bytes);
  void note_categories(const std::string& names);
  void add(const std::string& id, const LogEntry& entry);

  const std::string& log_;
  const LogQuery& query_;
  const LogLimits& limits_;
  const Clock::time_point end_;
  size_t searched_ = 0;   // bytes
  size_t found_ = 0;      // bytes
  std::string position_;  // what is before it has not been searched
  value_array entries_, faults_;
  std::set<std::string> categories_;
};

bool Search::full() const {
  return entries_.size() >= limits_.entries || found_ >= limits_.answer ||
         searched_ >= limits_.bytes || Clock::now() >= end_;
}

value_struct Search::run() {
  std::smatch from;
  std::regex_match(query_.position, from, kPosition);
  std::string sought = from[2];
  const std::set<size_t> numbers = part_numbers(log_);
  auto next = numbers.lower_bound(sought.empty() ? 0 : std::stoul(from[1]));
  std::string last;
  for (; next != numbers.end() && !full(); ++next) {
    try {
      const Part part(log_, *next, limits_);
      // A file that was rotated meanwhile is met again under its new name.
      if (part.fingerprint() == last || (!sought.empty() && part.fingerprint() != sought)) continue;
      last = part.fingerprint();
      search(part, sought.empty() ? part.size() : std::stoull(from[3]));
      sought.clear();
    } catch (const std::exception& failure) {
      faults_.push_back(fs::path(part_path(log_, *next)).filename().string() + ": " +
                        failure.what());
    }
  }
  value_struct found = {
      {"entries",           entries_},
      {            "faults",            faults_        },
      { "categories", value_array(categories_.begin(),         categories_.end())}
  };
  if (full() && !position_.empty()) found["position"] = position_;
  return found;
}

// Backwards from `end`, where an entry begins or the file ends.
void Search::search(const Part& part, uint64_t end) {
  do {
    const uint64_t begin = end - std::min<uint64_t>(end, limits_.window);
    end = search_window(part, begin, part.read(begin, static_cast<size_t>(end - begin)));
    position_ = part.position(end);
  } while (end > 0 && !full());
}

// Returns where what is searched next ends: where the first entry begins. What is before that is
// the rest of one.
uint64_t Search::search_window(const Part& part, uint64_t begin, const std::string& bytes) {
  searched_ += bytes.size();
  service::LogReader reader(part.path(), memory_file(bytes));
  std::deque<std::pair<uint64_t, LogEntry>> fitting;
  std::optional<uint64_t> first;
  LogEntry entry;
  for (uint64_t at = begin; reader.next(entry) || reader.rest(entry); at += entry.text.size()) {
    if (!service::is_log_time(entry.text.substr(0, entry.time.size()))) continue;
    if (!first) first = at;
    note_categories(entry.category);
    if (!fits(entry, query_)) continue;
    fitting.emplace_back(at, entry);
    if (entries_.size() + fitting.size() > limits_.entries) fitting.pop_front();
  }
  for (; !fitting.empty(); fitting.pop_back()) {
    const auto& [at, newest] = fitting.back();
    add(part.id(at), newest);
    if (full()) return at;
  }
  return begin == 0 ? 0 : first.value_or(begin);
}

void Search::note_categories(const std::string& names) {
  std::istringstream all(names);
  for (std::string name; std::getline(all, name, '|');) {
    if (name.size() > kLongestCategory || categories_.size() >= kMostCategories) continue;
    categories_.insert(service::valid_utf8(name));
  }
}

void Search::add(const std::string& id, const LogEntry& entry) {
  found_ += entry.text.size();
  entries_.push_back(value_struct{
      {"id",       id                                  },
      {"time",     entry.time                          },
      {"where",    service::valid_utf8(entry.where())  },
      {"category", service::valid_utf8(entry.category) },
      {"text",     service::valid_utf8(entry.message())}
  });
}

}  // namespace

bool is_bound(const std::string& text) {
  return service::is_log_time(text) || service::is_log_time(text + ":00");
}

bool is_position(const std::string& text) { return std::regex_match(text, kPosition); }

value_struct search_log(const std::string& log, const LogQuery& query, const LogLimits& limits) {
  return Search(log, query, limits).run();
}

}  // namespace appliance
