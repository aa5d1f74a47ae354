// SPDX-License-Identifier: MIT
// An input is what to show: categories and texts with commas between them, two times, the number of
// a pattern; and then the logs, each with its files, the oldest first. All end with a byte of 1, a
// log's last file with a byte of 2.
#include "fuzz/fuzz.h"
#include "fuzz/logs.h"
#include "fuzz/tool.h"
#include "tests/support/files.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <vector>

int nas_log(int argc, char** argv);

namespace {

using Texts = std::vector<std::string>;

constexpr size_t kMaxFiles = 8;
constexpr size_t kMaxLogs = 3;

// The parts of a text with this byte between them; none where it is empty.
Texts split(const std::string& text, char between) {
  fuzz::Input input(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  Texts parts;
  while (!input.empty()) parts.push_back(input.line(between));
  return parts;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Some patterns, and whether a line matches them.
struct Pattern {
  const char* text;
  bool (*matches)(const std::string& line);
};

constexpr Pattern kPatterns[] = {
    {nullptr,   nullptr                                                                       },
    {"^INFO: ", [](const std::string& line) { return line.compare(0, 6, "INFO: ") == 0; }     },
    {"[0-9]$",  [](const std::string& line) { return !line.empty() && is_digit(line.back()); }},
    {"^$",      [](const std::string& line) { return line.empty(); }                          },
    {"a|b{2}",
     [](const std::string& line) {
       return line.find('a') != line.npos || line.find("bb") != line.npos;
     }                                                                                        },
};

struct Request {
  Texts categories;
  Texts texts;
  std::string since, until;
  Pattern pattern;

  Texts words() const {
    Texts words;
    const auto add = [&words](const char* option, const std::string& value) {
      words.insert(words.end(), {option, value});
    };
    for (const std::string& category : categories) add("--category", category);
    for (const std::string& text : texts) add("--grep", text);
    if (!since.empty()) add("--since", since);
    if (!until.empty()) add("--until", until);
    if (pattern.text != nullptr) add("--regex", pattern.text);
    return words;
  }

  // Other bounds may be good too; those depend on the present time.
  bool is_good() const { return is_fixed(since) && is_fixed(until); }

  static bool is_fixed(const std::string& bound) {
    return bound.empty() || (fuzz::is_time_bound(bound) && bound.substr(8, 2) < "29");
  }
};

Request request_in(fuzz::Input& input) {
  // What a program is given ends with its first NUL.
  const auto word = [&input] { return std::string(input.line('\1').c_str()); };
  Request request;
  request.categories = split(word(), ',');
  request.texts = split(word(), ',');
  request.since = word();
  request.until = word();
  request.pattern = kPatterns[word().size() % std::size(kPatterns)];
  return request;
}

// ---- what is shown ----

std::string folded(const std::string& text) {
  std::string to;
  for (const char c : text) to += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  return to;
}

bool has_category(const std::string& category, const std::string& name) {
  const Texts all = split(folded(category) + "|", '|');
  const Texts wanted = split(folded(name) + "|", '|');
  return std::search(all.begin(), all.end(), wanted.begin(), wanted.end()) != all.end();
}

// As far as it goes, `bound` replaces the start of `whole`.
std::string filled(const std::string& bound, const std::string& whole) {
  return bound + whole.substr(bound.size());
}

bool matches(const std::string& text, const Pattern& pattern) {
  const Texts lines = split(text + "\n", '\n');
  return std::any_of(lines.begin(), lines.end(), pattern.matches);
}

bool is_wanted(const fuzz::LogEntry& entry, const Request& request) {
  const auto fits = [&](const std::string& name) { return has_category(entry.category, name); };
  const auto held = [&](const std::string& text) { return entry.text.find(text) != text.npos; };
  const Texts& names = request.categories;
  const Texts& texts = request.texts;
  if (!names.empty() && entry.fault.empty() && std::none_of(names.begin(), names.end(), fits)) {
    return false;
  }
  if (!request.since.empty() && entry.time < filled(request.since, "0000-00-00T00:00:00")) {
    return false;
  }
  if (!request.until.empty() && entry.time > filled(request.until, "0000-00-00T23:59:60")) {
    return false;
  }
  if (texts.empty() && request.pattern.text == nullptr) return true;
  return std::any_of(texts.begin(), texts.end(), held) ||
         (request.pattern.text != nullptr && matches(entry.text, request.pattern));
}

// ---- the logs ----

class Logs {
 public:
  explicit Logs(const support::TempDir& dir) : dir_(dir) {}
  ~Logs() {
    for (const std::string& name : dir_.list()) std::filesystem::remove(dir_.file(name));
  }
  Logs(const Logs&) = delete;
  Logs& operator=(const Logs&) = delete;

  void add(Texts files) {
    const std::string name(1, static_cast<char>('x' + paths_.size()));
    paths_.push_back(dir_.file(name));
    files.resize(std::clamp<size_t>(files.size(), 1, kMaxFiles));
    std::vector<fuzz::LogEntry> entries;
    for (size_t i = 0; i < files.size(); ++i) {
      const size_t newer = files.size() - 1 - i;
      const std::string file = newer == 0 ? name : name + "." + std::to_string(newer - 1);
      dir_.write(file, files[i]);
      fuzz::LogFile reader(dir_.file(file));
      reader.append(files[i]);
      reader.complete(entries);
      reader.rest(entries);
    }
    add_in_order(entries);
  }

  const Texts& paths() const { return paths_; }

  // Each as soon as all before it in its log are out and none has an earlier time: in the order of
  // the latest time so far.
  std::vector<fuzz::LogEntry> merged() const {
    std::vector<Timed> all = entries_;
    std::stable_sort(all.begin(), all.end(), [](const Timed& one, const Timed& other) {
      return one.latest < other.latest;
    });
    std::vector<fuzz::LogEntry> merged;
    for (const Timed& timed : all) merged.push_back(timed.entry);
    return merged;
  }

 private:
  struct Timed {
    std::string latest;
    fuzz::LogEntry entry;
  };

  void add_in_order(const std::vector<fuzz::LogEntry>& entries) {
    std::string latest;
    for (const fuzz::LogEntry& entry : entries) {
      latest = std::max(latest, entry.time);
      entries_.push_back({latest, entry});
    }
  }

  const support::TempDir& dir_;
  Texts paths_;
  std::vector<Timed> entries_;
};

// What is said about the first name that no entry is of.
std::string unknown_category(const Logs& logs, const Request& request) {
  std::set<std::string> categories;
  std::set<std::string> single;
  for (const fuzz::LogEntry& entry : logs.merged()) {
    if (!entry.fault.empty()) continue;
    categories.insert(entry.category);
    const Texts names = split(entry.category, '|');
    single.insert(names.begin(), names.end());
  }
  if (categories.empty()) return "";
  categories.insert({"WARNING", "INFO", "DEBUG", "MEMORY", "TIMING", "EVENT LOOP"});
  for (const std::string& name : request.categories) {
    const auto fits = [&name](const std::string& category) { return has_category(category, name); };
    if (std::any_of(categories.begin(), categories.end(), fits)) continue;
    std::string known;
    for (const std::string& one : single) known += (known.empty() ? "" : ", ") + one;
    std::string message = "no entry is of category '" + name + "'; there are: " + known;
    for (size_t at = 0; (at = message.find('\n', at)) != message.npos;) {
      message.replace(at, 1, "\\x0A");
    }
    return fuzz::printable("tool: " + message + "\n") + "Try 'tool --help'.\n";
  }
  return "";
}

fuzz::ToolRun expected_run(const Logs& logs, const Request& request) {
  fuzz::ToolRun expected = {};
  for (const fuzz::LogEntry& entry : logs.merged()) {
    if (!entry.fault.empty()) {
      expected.status = 1;
      expected.err += "tool: " + entry.fault + "\n";
    }
    if (!is_wanted(entry, request)) continue;
    expected.out += entry.text;
    if (entry.text.back() != '\n') expected.out += '\n';
  }
  const std::string unknown = unknown_category(logs, request);
  if (!unknown.empty()) {
    expected.status = 2;
    expected.err += unknown;
  }
  return expected;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::TempDir dir;
  fuzz::Input input(data, size);
  const Request request = request_in(input);
  Logs logs(dir);
  while (logs.paths().size() < kMaxLogs && (logs.paths().empty() || !input.empty())) {
    logs.add(split(input.line('\2'), '\1'));
  }
  Texts words = request.words();
  words.insert(words.end(), logs.paths().begin(), logs.paths().end());
  const fuzz::ToolRun actual = fuzz::run(nas_log, words);
  if (request.is_good()) {
    const fuzz::ToolRun expected = expected_run(logs, request);
    fuzz::require_equal(expected.out, actual.out, "what is shown");
    fuzz::require_equal(expected.err, actual.err, "what is reported");
    fuzz::require(expected.status == actual.status, "the status");
  }
  return 0;
}
