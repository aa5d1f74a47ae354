// SPDX-License-Identifier: MIT
// nas-log: shows log files. nas-log.1 says how it is used.
#include "tools/command.h"
#include "tools/log_entries.h"
#include "tools/log_files.h"

#include <getopt.h>
#include <regex.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {
namespace {

constexpr char kUsage[] =
    R"(usage: nas-log [OPTION]... FILE...
Shows the entries of log files in the order of time. FILE is read together with the files that
rotation has made of it: FILE.0 is the newest of them. "-" is standard input.

  --category NAME    only entries of this category; "EVENT LOOP|DEBUG" is of both
  --since TIME       only entries of this time and later: YYYY-MM-DD[THH:MM[:SS]]
  --until TIME       only entries of this time and earlier
  --grep TEXT        only entries that hold this text
  --regex PATTERN    only entries that match this extended regular expression
  -f, --follow       waits for more, across rotations, until interrupted
  --help             shows this
  --version          shows the version

--category, --grep and --regex can be repeated; one of each kind has to fit.
Exit status: 0 good, 1 fault in the data, 2 wrong use.
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

  // Why the pattern is none, or empty.
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

struct Filter {
  std::vector<std::string> categories;
  std::string since, until;
  std::vector<std::string> texts;
  std::deque<Pattern> patterns;

  bool passes(const Entry& entry) const {
    return has_category(entry) && has_time(entry.time) && has_text(entry.text);
  }

 private:
  // What is no entry may have been of any category.
  bool has_category(const Entry& entry) const {
    if (categories.empty() || !entry.fault.empty()) return true;
    return std::any_of(categories.begin(), categories.end(), [&entry](const std::string& name) {
      return ("|" + entry.category + "|").find("|" + name + "|") != std::string::npos;
    });
  }

  // A bound that stops at the minute or the day is the whole of it.
  bool has_time(const std::string& time) const {
    return time >= since && (until.empty() || time.compare(0, until.size(), until) <= 0);
  }

  bool has_text(const std::string& text) const {
    if (texts.empty() && patterns.empty()) return true;
    const auto holds = [&text](const std::string& part) { return text.find(part) != text.npos; };
    const auto fits = [&text](const Pattern& pattern) { return pattern.matches(text); };
    return std::any_of(texts.begin(), texts.end(), holds) ||
           std::any_of(patterns.begin(), patterns.end(), fits);
  }
};

// ---- how they are shown ----

class Printer {
 public:
  Printer() : terminal_(isatty(STDOUT_FILENO) != 0), coloured_(terminal_ && colours_wanted()) {}

  void show(const Entry& entry) const {
    if (terminal_) {
      write(for_terminal(entry));
    } else {
      write(entry.text);
    }
    if (entry.text.back() != '\n') write("\n");
  }

 private:
  static bool colours_wanted() {
    const char* const refused = getenv("NO_COLOR");
    const char* const terminal = getenv("TERM");
    return (refused == nullptr || *refused == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
  }

  static void write(std::string_view text) { fwrite(text.data(), 1, text.size(), stdout); }

  std::string coloured(const char* colour, std::string_view text) const {
    if (!coloured_ || text.empty()) return printable(text);
    return std::string("\033[") + colour + "m" + printable(text) + "\033[0m";
  }

  std::string for_terminal(const Entry& entry) const {
    if (!entry.fault.empty()) return coloured("31", entry.text);
    const std::string_view text = entry.text;
    const std::string_view category = category_of(text);
    if (category.data() == nullptr) return printable(text);  // the rest of an entry
    const auto at = static_cast<size_t>(category.data() - text.data());
    const char* const colour = category == "WARNING" ? "1;33" : "1";
    return coloured("2", text.substr(0, at - 1)) + "\n" + coloured(colour, category) +
           printable(text.substr(at + category.size()));
  }

  bool terminal_;
  bool coloured_;
};

// ---- the run ----

struct Options {
  Filter filter;
  bool follow = false;
  std::vector<std::string> files;
};

// A log and the entry of it that is next.
struct Source {
  Source(const std::string& path, bool follow) : log(path, follow) {}

  void advance() { has_entry = log.next(entry); }

  Log log;
  Entry entry;
  bool has_entry = false;
};

volatile sig_atomic_t interrupted = 0;

void interrupt(int) { interrupted = 1; }

class Viewer {
 public:
  explicit Viewer(const Options& options) : options_(options) {
    for (const std::string& path : options.files) {
      sources_.emplace_back(path, options.follow);
      if (!sources_.back().log.open()) sources_.pop_back();
    }
  }

  void run() {
    if (options_.follow) catch_signals();
    show_all();
    while (options_.follow && !interrupted && !sources_.empty() && flush()) {
      show_settled();
      pause();
      for (Source& source : sources_) source.log.look_for_change();
      show_all();
    }
    if (interrupted) end_interrupted();
  }

 private:
  // Without SA_RESTART: a write to a pipe that nobody reads ends too.
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

  // All logs merged, as far as they go for now.
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

  void show(const Entry& entry) {
    if (!entry.fault.empty()) fault(entry.fault);
    if (!options_.filter.passes(entry)) return;
    printer_.show(entry);
    if (options_.follow) flush();
  }

  // What is only half written is shown, and is no fault; nor is a write that the signal ended.
  void end_interrupted() {
    if (ferror(stdout) != 0) _exit(kGood);
    for (Source& source : sources_) {
      if (source.log.unfinished(source.entry) && options_.filter.passes(source.entry)) {
        printer_.show(source.entry);
      }
    }
  }

  const Options& options_;
  Printer printer_;
  std::deque<Source> sources_;
};

// ---- the command line ----

// Whether the text is a time stamp, or one that stops at the minute or the day.
bool is_bound(const std::string& text) {
  constexpr std::string_view kMidnight = "T00:00:00";
  const bool whole = text.size() == 10 || text.size() == 16 || text.size() == 19;
  return whole && is_time(text + std::string(kMidnight.substr(text.size() - 10)));
}

// Whether `name` is one of the files that rotation makes of `log`.
bool is_old_file(const std::string& name, const std::string& log) {
  const std::string prefix = log + ".";
  return name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
         name.find_first_not_of("0123456789", prefix.size()) == name.npos;
}

// Each file once, however often it was named: "nas-log x*" names old files twice.
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

enum Option { kCategory = 256, kSince, kUntil, kGrep, kRegex, kHelp, kVersion };

constexpr option kOptions[] = {
    {"category", required_argument, nullptr, kCategory},
    {"since",    required_argument, nullptr, kSince   },
    {"until",    required_argument, nullptr, kUntil   },
    {"grep",     required_argument, nullptr, kGrep    },
    {"regex",    required_argument, nullptr, kRegex   },
    {"follow",   no_argument,       nullptr, 'f'      },
    {"help",     no_argument,       nullptr, kHelp    },
    {"version",  no_argument,       nullptr, kVersion },
    {nullptr,    0,                 nullptr, 0        }
};

std::optional<int> set_bound(std::string& bound) {
  bound = optarg;
  if (is_bound(bound)) return std::nullopt;
  return wrong_use("'" + bound + "' is no time: YYYY-MM-DD[THH:MM[:SS]]");
}

std::optional<int> add_pattern(std::deque<Pattern>& patterns) {
  const std::string error = patterns.emplace_back(optarg).error();
  if (error.empty()) return std::nullopt;
  return wrong_use("'" + std::string(optarg) + "': " + error);
}

// The exit status where the option ends the run.
std::optional<int> apply(int option, Options& to) {
  switch (option) {
    case kCategory: to.filter.categories.emplace_back(optarg); return std::nullopt;
    case kSince: return set_bound(to.filter.since);
    case kUntil: return set_bound(to.filter.until);
    case kGrep: to.filter.texts.emplace_back(optarg); return std::nullopt;
    case kRegex: return add_pattern(to.filter.patterns);
    case 'f': to.follow = true; return std::nullopt;
    case kHelp: return print(kUsage);
    case kVersion: return print_version();
    default: return wrong_use();
  }
}

std::optional<int> parse(int argc, char** argv, Options& to) {
  for (int option = 0;
       (option = getopt_long(argc, argv, "f", std::begin(kOptions), nullptr)) != -1;) {
    if (const auto status = apply(option, to)) return status;
  }
  to.files = distinct(std::vector<std::string>(argv + optind, argv + argc));
  if (to.files.empty()) return wrong_use("no FILE is named");
  const bool standard_input = std::find(to.files.begin(), to.files.end(), "-") != to.files.end();
  if (to.follow && standard_input) return wrong_use("standard input cannot be followed");
  return std::nullopt;
}

int run(int argc, char** argv) {
  Options options;
  if (const auto status = parse(argc, argv, options)) return *status;
  Viewer(options).run();
  return finish();
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
