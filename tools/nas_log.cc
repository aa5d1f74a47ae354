// SPDX-License-Identifier: MIT
// nas-log: shows log files. nas-log.1 says how it is used.
#include "service/LogReader.h"
#include "service/json.h"
#include "tools/command.h"
#include "tools/log_files.h"

#include <fcntl.h>
#include <getopt.h>
#include <regex.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tools {
namespace {

using service::LogEntry;

constexpr char kUsage[] =
    R"(usage: nas-log [OPTION]... FILE...
Shows the entries of log files in order of time, rotated and compressed files
included; "-" is standard input.

  --category NAME    only entries of this category; EVENT LOOP|DEBUG is both
  --exclude NAME     no entries of this category
  --since TIME       only entries of this time or later: YYYY-MM-DD[THH:MM[:SS]],
                     HH:MM[:SS], today, yesterday, or -N and s, m, h or d as in -90m
  --until TIME       only entries of this time or earlier
  --grep TEXT        only entries that contain this text
  --regex PATTERN    only entries that match this extended regular expression
  -n, --last N       only the last N of these
  -f, --follow       waits for new entries, across rotations, until interrupted
  -1, --oneline      one line an entry
  --json             one JSON object a line
  --categories       lists the categories and how many entries each has
  --no-pager         writes to the terminal without a pager
  -h, --help         shows this
  --version          shows the version

--category, --exclude, --grep and --regex can be repeated; one of each kind
has to match.
Exit status: 0 success, 1 fault in the data, 2 wrong command line.
)";

// ---- which entries ----

class Pattern {
 public:
  explicit Pattern(const char* text) : error_(regcomp(&regex_, text, REG_EXTENDED | REG_NEWLINE)) {}
  ~Pattern() {
    if (error_ == 0) regfree(&regex_);
  }
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  // Why it is not a pattern, or empty.
  std::string error() const {
    char text[256] = "";
    if (error_ != 0) regerror(error_, &regex_, text, sizeof text);
    return text;
  }

  bool matches(const std::string& text) const {
    regmatch_t range = {0, static_cast<regoff_t>(text.size())};  // the text may hold NUL bytes
    return regexec(&regex_, text.data(), 1, &range, REG_STARTEND) == 0;
  }

 private:
  regex_t regex_ = {};
  int error_;
};

std::string upper_case(std::string text) {
  for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return text;
}

// "EVENT LOOP|DEBUG" belongs to "DEBUG", to "event loop" and to both together.
bool is_of(const std::string& category, const std::string& name) {
  return upper_case("|" + category + "|").find(upper_case("|" + name + "|")) != std::string::npos;
}

// The categories found so far, and which of them are wanted.
class Categories {
 public:
  std::vector<std::string> wanted, excluded;

  // Counts an entry of this category. Returns whether it is to be shown.
  bool want(const std::string& category) {
    if (last_ == nullptr || last_->first != category) {
      auto known = known_.find(category);
      if (known == known_.end()) {
        const bool shown = judge(category);
        if (known_.size() >= kMost || category.size() > kLongest) return shown;
        known = known_.emplace(category, Known{0, shown}).first;
      }
      last_ = &*known;
    }
    ++last_->second.count;
    return last_->second.wanted;
  }

  // The first name asked for that no entry has; nothing if there is no entry at all.
  std::optional<std::string> unknown() const {
    if (known_.empty()) return std::nullopt;
    for (const auto* const names : {&wanted, &excluded}) {
      for (const std::string& name : *names) {
        if (!exists(name)) return name;
      }
    }
    return std::nullopt;
  }

  // Each category with the number of its entries.
  std::map<std::string, size_t> counts() const {
    std::map<std::string, size_t> counts;
    for (const auto& [category, known] : known_) {
      std::istringstream names(category);
      for (std::string name; std::getline(names, name, '|');) counts[name] += known.count;
    }
    return counts;
  }

 private:
  // A damaged log may seem to have any number of categories; more than this are not remembered.
  static constexpr size_t kMost = 4096;
  static constexpr size_t kLongest = 256;

  struct Known {
    size_t count;
    bool wanted;
  };

  bool judge(const std::string& category) const {
    const auto fits = [&category](const std::string& name) { return is_of(category, name); };
    return (wanted.empty() || std::any_of(wanted.begin(), wanted.end(), fits)) &&
           std::none_of(excluded.begin(), excluded.end(), fits);
  }

  // The library's own categories may be asked for even if no entry has them yet.
  bool exists(const std::string& name) const {
    const auto fits = [&name](const std::string& category) { return is_of(category, name); };
    constexpr const char* kOwn[] = {"WARNING", "INFO", "DEBUG", "MEMORY", "TIMING", "EVENT LOOP"};
    return std::any_of(std::begin(kOwn), std::end(kOwn), fits) ||
           std::any_of(known_.begin(), known_.end(),
                       [&fits](const auto& known) { return fits(known.first); });
  }

  std::unordered_map<std::string, Known> known_;
  std::pair<const std::string, Known>* last_ = nullptr;  // most entries are of the one before
};

struct Filter {
  Categories categories;
  std::string since, until;
  std::vector<std::string> texts;
  std::deque<Pattern> patterns;

  bool passes(const LogEntry& entry) {
    return has_category(entry) && has_time(entry.time) && has_text(entry.text);
  }

 private:
  // Damaged text may have been of any category.
  bool has_category(const LogEntry& entry) {
    return !entry.fault.empty() || categories.want(entry.category);
  }

  // A bound without seconds or time of day stands for the whole minute or day.
  bool has_time(const std::string& time) const {
    return time >= since && (until.empty() || time.compare(0, until.size(), until) <= 0);
  }

  bool has_text(const std::string& text) const {
    if (texts.empty() && patterns.empty()) return true;
    const auto holds = [&text](const std::string& part) {
      return memmem(text.data(), text.size(), part.data(), part.size()) != nullptr;
    };
    const auto fits = [&text](const Pattern& pattern) { return pattern.matches(text); };
    return std::any_of(texts.begin(), texts.end(), holds) ||
           std::any_of(patterns.begin(), patterns.end(), fits);
  }
};

// ---- how they are shown ----

enum class Layout { kWhole, kOneLine, kJson, kNothing };

class Printer {
 public:
  explicit Printer(Layout layout)
      : layout_(layout), terminal_(on_terminal()), coloured_(in_colours()) {}

  void show(const LogEntry& entry) {
    switch (layout_) {
      case Layout::kWhole: whole(entry); break;
      case Layout::kOneLine: one_line(entry); break;
      case Layout::kJson: out_ += json(entry) + '\n'; break;
      case Layout::kNothing: break;
    }
    if (out_.size() >= kBlock) write();
  }

  // Writes everything to standard output.
  void write() {
    write_out(out_);
    out_.clear();
  }

 private:
  static constexpr size_t kBlock = 65536;

  std::string coloured(const char* colour, std::string_view text) const {
    std::string plain = terminal_ ? printable(text) : std::string(text);
    if (!coloured_ || text.empty()) return plain;
    return std::string("\033[") + colour + "m" + plain + "\033[0m";
  }

  static const char* colour_of(const LogEntry& entry) {
    return entry.category == "WARNING" ? "1;33" : "1";
  }

  void whole(const LogEntry& entry) {
    const std::string_view text = entry.text;
    if (!terminal_) {
      out_ += text;
    } else if (!entry.fault.empty()) {
      out_ += coloured("31", text);
    } else if (entry.where().empty()) {  // the rest of an entry
      out_ += printable(text);
    } else {
      const size_t end = text.find(": ", text.find('\n'));
      const size_t start = text.rfind('\n', end);
      out_ += coloured("2", text.substr(0, start)) + "\n" +
              coloured(colour_of(entry), text.substr(start + 1, end - start - 1)) +
              printable(text.substr(end));
    }
    if (text.back() != '\n') out_ += '\n';
  }

  // Line feeds within the message are written as "\n".
  void one_line(const LogEntry& entry) {
    std::string message = entry.message();
    for (size_t at = 0; (at = message.find('\n', at)) != message.npos;) {
      message.replace(at, 1, "\\n");
    }
    out_ += coloured("2", entry.time) + ' ';
    if (entry.fault.empty()) {
      out_ += coloured(colour_of(entry), entry.category) + ": " +
              (terminal_ ? printable(message) : message) + '\n';
    } else {
      out_ += coloured("31", message) + '\n';
    }
  }

  static std::string json(const LogEntry& entry) {
    util::value_struct fields = {
        {"time",     entry.time     },
        {"where",    entry.where()  },
        {"category", entry.category },
        {"message",  entry.message()}
    };
    if (!entry.fault.empty()) fields["fault"] = entry.fault;
    return service::to_json(fields);
  }

  Layout layout_;
  bool terminal_;
  bool coloured_;
  std::string out_;
};

// The program that shows standard output page by page, if that is a terminal.
class Pager {
 public:
  explicit Pager(bool wanted) {
    const char* const program = getenv("PAGER");
    const std::string name = program == nullptr ? "less" : program;
    if (!wanted || !on_terminal() || name.empty() || name == "cat") return;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) run(program, ends[0]);
    if (pid_ > 0) {
      signal(SIGINT, SIG_IGN);  // is for the pager
      dup2(ends[1], STDOUT_FILENO);
    }
    close(ends[0]);
    close(ends[1]);
  }

  // Waits until the reader quits.
  ~Pager() {
    if (pid_ <= 0) return;
    close(STDOUT_FILENO);
    waitpid(pid_, nullptr, 0);
  }

  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

 private:
  [[noreturn]] static void run(const char* program, int input) {
    dup2(input, STDIN_FILENO);
    setenv("LESS", "FRX", 0);  // ends at once if all fits, lets colours through, leaves the text
    if (program != nullptr) execl("/bin/sh", "sh", "-c", program, nullptr);
    execlp("less", "less", nullptr);
    execlp("cat", "cat", nullptr);
    _exit(127);
  }

  pid_t pid_ = -1;
};

// ---- the run ----

struct Options {
  Filter filter;
  Layout layout = Layout::kWhole;
  std::optional<size_t> last;
  bool follow = false;
  bool list_categories = false;
  bool pager = true;
  std::vector<std::string> files;
};

// A log and its next entry.
struct Source {
  Source(const std::string& path, bool follow) : log(path, follow) {}

  void advance() { has_entry = log.next(entry); }

  Log log;
  LogEntry entry;
  bool has_entry = false;
};

volatile sig_atomic_t interrupted = 0;

void interrupt(int) { interrupted = 1; }

class Viewer {
 public:
  explicit Viewer(Options& options) : options_(options), printer_(options.layout) {
    for (const std::string& path : options.files) {
      sources_.emplace_back(path, options.follow);
      if (!sources_.back().log.open()) sources_.pop_back();
    }
  }

  void run() {
    if (options_.follow) catch_signals();
    show_all();
    show_last();
    while (options_.follow && !interrupted && !sources_.empty() && written()) {
      show_settled();
      pause();
      for (Source& source : sources_) source.log.look_for_change();
      show_all();
    }
    if (interrupted) end_interrupted();
    if (options_.list_categories) list_categories();
    printer_.write();
  }

 private:
  // Without SA_RESTART, so that a write to a pipe that nobody reads ends too.
  static void catch_signals() {
    struct sigaction action = {};
    action.sa_handler = interrupt;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
  }

  static void pause() {
    const timespec time = {0, 100000000};
    nanosleep(&time, nullptr);
  }

  // Shows all logs merged, up to their present ends.
  void show_all() {
    for (Source& source : sources_) source.advance();
    for (Source* first = earliest(); first != nullptr && !interrupted; first = earliest()) {
      show(first->entry);
      first->advance();
    }
  }

  Source* earliest() {
    Source* found = nullptr;
    for (Source& source : sources_) {
      if (!source.has_entry) continue;
      if (found == nullptr || source.entry.time < found->entry.time) found = &source;
    }
    return found;
  }

  void show_settled() {
    for (Source& source : sources_) {
      if (source.log.settled(source.entry)) show(source.entry);
    }
  }

  void show(const LogEntry& entry) {
    if (!entry.fault.empty()) fault(entry.fault);
    if (!options_.filter.passes(entry)) return;
    if (options_.last) return keep(entry);
    printer_.show(entry);
    if (options_.follow) written();
  }

  // Keeps the last few; which they are is known only once everything is read.
  void keep(const LogEntry& entry) {
    if (*options_.last == 0) return;
    LogEntry spare;
    if (kept_.size() == *options_.last) {
      spare = std::move(kept_.front());  // for its memory
      kept_.pop_front();
    }
    spare = entry;
    kept_.push_back(std::move(spare));
  }

  void show_last() {
    for (const LogEntry& entry : kept_) printer_.show(entry);
    kept_.clear();
    options_.last.reset();
  }

  bool written() {
    printer_.write();
    return flush();
  }

  void list_categories() const {
    for (const auto& [name, count] : options_.filter.categories.counts()) {
      std::string line = std::to_string(count);
      line.insert(0, std::max<size_t>(line.size(), 8) - line.size(), ' ');
      line.append("  ").append(name).append("\n");
      write_out(line);
    }
  }

  // Shows half-written entries. Neither they nor a write that the signal ended is a fault.
  void end_interrupted() {
    if (ferror(stdout) != 0) _exit(kGood);
    for (Source& source : sources_) {
      if (source.log.unfinished(source.entry) && options_.filter.passes(source.entry)) {
        printer_.show(source.entry);
      }
    }
  }

  Options& options_;
  Printer printer_;
  std::deque<Source> sources_;
  std::deque<LogEntry> kept_;
};

// ---- the command line ----

// "2007-03-01T14:05:09" in local time.
std::string stamp_of(time_t time) {
  tm local = {};
  char text[32];
  localtime_r(&time, &local);
  return std::string(text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local));
}

// The date that many days before today.
std::string day_before(int days) {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  local.tm_mday -= days;
  local.tm_hour = 12;  // which every day has
  return stamp_of(mktime(&local)).substr(0, 10);
}

// "-90m"
std::optional<std::string> time_ago(const std::string& text) {
  constexpr std::string_view kUnits = "smhd";
  constexpr int kSeconds[] = {1, 60, 3600, 86400};
  if (text.size() < 3 || text.size() > 8 || text[0] != '-') return std::nullopt;
  const size_t unit = kUnits.find(text.back());
  const std::string digits = text.substr(1, text.size() - 2);
  if (unit == kUnits.npos || digits.find_first_not_of("0123456789") != digits.npos) {
    return std::nullopt;
  }
  const int64_t seconds = std::stoll(digits) * kSeconds[unit];
  return stamp_of(time(nullptr) - static_cast<time_t>(seconds));
}

// Whether the calendar has the day of this time.
bool is_day(const std::string& text) {
  tm day = {};
  day.tm_year = std::stoi(text.substr(0, 4)) - 1900;
  day.tm_mon = std::stoi(text.substr(5, 2)) - 1;
  day.tm_mday = std::stoi(text.substr(8, 2));
  const int asked = day.tm_mday;
  timegm(&day);
  return day.tm_mday == asked;
}

// The time as the log writes it, perhaps without seconds or time of day.
std::optional<std::string> bound_of(std::string text) {
  if (text == "today") return day_before(0);
  if (text == "yesterday") return day_before(1);
  if (auto ago = time_ago(text)) return ago;
  if (text.size() == 5 || text.size() == 8) text = day_before(0) + "T" + text;
  if (text.size() > 10 && text[10] == ' ') text[10] = 'T';
  constexpr std::string_view kMidnight = "T00:00:00";
  if (text.size() != 10 && text.size() != 16 && text.size() != 19) return std::nullopt;
  const bool good =
      service::is_log_time(text + std::string(kMidnight.substr(text.size() - 10))) && is_day(text);
  return good ? std::optional(text) : std::nullopt;
}

// Whether `name` is a rotated file of `log`.
bool is_old_file(const std::string& name, const std::string& log) {
  const std::string prefix = log + ".";
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return false;
  const size_t end = name.find_first_not_of("0123456789", prefix.size());
  return end == name.npos || (end > prefix.size() && name.substr(end) == ".gz");
}

// Each log once, although "nas-log x*" names its rotated files too.
std::vector<std::string> distinct(const std::vector<std::string>& names) {
  std::vector<std::string> logs;
  for (const std::string& name : names) {
    const bool read_with_another = std::any_of(
        names.begin(), names.end(), [&name](const auto& log) { return is_old_file(name, log); });
    const bool named_before = std::find(logs.begin(), logs.end(), name) != logs.end();
    if (!read_with_another && !named_before) logs.push_back(name);
  }
  return logs;
}

enum Option {
  kCategory = 256,
  kExclude,
  kSince,
  kUntil,
  kGrep,
  kRegex,
  kJsonLines,
  kCategories,
  kNoPager,
  kVersion
};

constexpr option kOptions[] = {
    {"category",   required_argument, nullptr, kCategory  },
    {"exclude",    required_argument, nullptr, kExclude   },
    {"last",       required_argument, nullptr, 'n'        },
    {"oneline",    no_argument,       nullptr, '1'        },
    {"json",       no_argument,       nullptr, kJsonLines },
    {"categories", no_argument,       nullptr, kCategories},
    {"no-pager",   no_argument,       nullptr, kNoPager   },
    {"since",      required_argument, nullptr, kSince     },
    {"until",      required_argument, nullptr, kUntil     },
    {"grep",       required_argument, nullptr, kGrep      },
    {"regex",      required_argument, nullptr, kRegex     },
    {"follow",     no_argument,       nullptr, 'f'        },
    {"help",       no_argument,       nullptr, 'h'        },
    {"version",    no_argument,       nullptr, kVersion   },
    {nullptr,      0,                 nullptr, 0          }
};

std::optional<int> set_bound(std::string& bound) {
  const auto time = bound_of(optarg);
  if (!time) {
    return wrong_use("'" + std::string(optarg) +
                     "' is not a time: YYYY-MM-DD[THH:MM[:SS]], HH:MM, today, yesterday, -90m");
  }
  bound = *time;
  return std::nullopt;
}

std::optional<int> set_last(std::optional<size_t>& last) {
  const std::string digits = optarg;
  const bool good = !digits.empty() && digits.size() < 10 &&
                    digits.find_first_not_of("0123456789") == digits.npos;
  if (!good) return wrong_use("'" + digits + "' is not a number of entries");
  last = std::stoul(digits);
  return std::nullopt;
}

std::optional<int> add_pattern(std::deque<Pattern>& patterns) {
  const std::string error = patterns.emplace_back(optarg).error();
  if (error.empty()) return std::nullopt;
  return wrong_use("'" + std::string(optarg) + "': " + error);
}

// Returns the exit status if the option ends the run.
std::optional<int> apply(int option, char** argv, Options& to) {
  switch (option) {
    case kCategory: to.filter.categories.wanted.emplace_back(optarg); break;
    case kExclude: to.filter.categories.excluded.emplace_back(optarg); break;
    case kSince: return set_bound(to.filter.since);
    case kUntil: return set_bound(to.filter.until);
    case kGrep: to.filter.texts.emplace_back(optarg); break;
    case kRegex: return add_pattern(to.filter.patterns);
    case 'n': return set_last(to.last);
    case 'f': to.follow = true; break;
    case '1': to.layout = Layout::kOneLine; break;
    case kJsonLines: to.layout = Layout::kJson; break;
    case kCategories: to.list_categories = true; break;
    case kNoPager: to.pager = false; break;
    case 'h': return print(kUsage);
    case kVersion: return print_version();
    default: return wrong_option(option, argv, std::begin(kOptions));
  }
  return std::nullopt;
}

std::optional<int> parse(int argc, char** argv, Options& to) {
  for (int option = 0;
       (option = getopt_long(argc, argv, ":1fhn:", std::begin(kOptions), nullptr)) != -1;) {
    if (const auto status = apply(option, argv, to)) return status;
  }
  to.files = distinct(std::vector<std::string>(argv + optind, argv + argc));
  if (to.files.empty()) return wrong_use("no FILE is named");
  const bool standard_input = std::find(to.files.begin(), to.files.end(), "-") != to.files.end();
  if (to.follow && standard_input) return wrong_use("standard input cannot be followed");
  if (to.follow && to.list_categories) return wrong_use("a log that grows cannot be counted");
  if (to.list_categories) to.layout = Layout::kNothing;
  return std::nullopt;
}

// Lists the existing categories for one that was misspelt.
int unknown_category(const Categories& categories, const std::string& name) {
  std::string known;
  for (const auto& [one, count] : categories.counts()) known += (known.empty() ? "" : ", ") + one;
  return wrong_use("no entry is of category '" + name + "'; there are: " + known);
}

int run(int argc, char** argv) {
  Options options;
  if (const auto status = parse(argc, argv, options)) return *status;
  Viewer viewer(options);
  const Pager pager(options.pager && !options.follow);
  viewer.run();
  const int status = finish();
  const auto unknown = options.filter.categories.unknown();
  if (!unknown || options.follow) return status;
  return unknown_category(options.filter.categories, *unknown);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
