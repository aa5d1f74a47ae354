// SPDX-License-Identifier: MIT
// nas-plist: shows, checks, converts and changes property lists. nas-plist.1 says how it is used.
#include "service/FileLock.h"
#include "service/json.h"
#include "service/key_path.h"
#include "service/recovery.h"
#include "tools/command.h"
#include "tools/input.h"
#include "tools/list_values.h"
#include "tools/outline.h"
#include "util/JSEmit.h"
#include "util/PropertyList.h"
#include "util/Value.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {
namespace {

constexpr char kUsage[] =
    R"(usage: nas-plist COMMAND [OPTION]... FILE [ARGUMENT]...
Shows and changes property lists. FILE "-" is standard input.

  show FILE [PATH]              prints the list, or a part of it, as an outline
  get [--type] FILE PATH        prints a value, or its type, for scripts
  check FILE                    says whether it loads and what save() would lose
  diff FILE FILE                prints the differences
  json FILE [PATH]              prints the list, or a part of it, as JSON
  js [--function NAME] FILE     prints the list as script text, or a function
  new FILE                      creates an empty list
  set FILE PATH TYPE [VALUE]... sets values, all in one save
  delete FILE PATH...           removes values, all in one save
  import FILE                   replaces the list by JSON from standard input
  restore FILE                  replaces the file by its backup

  --input-limit MIB             most of standard input; 64 by default
  -h, --help, --version         show this, or the version

PATH: network/servers[2]/name. TYPE VALUE: integer 42, real 0.5, string TEXT,
boolean true, date 2008-05-01T14:03:59Z (local time), data BASE64, dict, array.
Exit status: 0 success, 1 fault in the data, 2 wrong use; diff: 1 different.
)";

constexpr util::utime_t kPatience = 30000;  // milliseconds

// ---- loading ----

// Throws std::runtime_error if there is no list. PropertyList itself takes a missing file for an
// empty list, which `unloaded` reveals.
void load(util::PropertyList& list, const Input& file) {
  const bool exists = list.exists();
  const std::string missing = file.name() + ": " + strerror(errno);
  if (!exists) refuse_special_file(file.path() + "~");
  const util::Value unloaded;
  list.setValueForKey("", unloaded);
  try {
    list.load();
  } catch (const util::malformed_property_list& failure) {
    throw std::runtime_error(file.named(service::reason_of(failure)));
  }
  const auto& properties = list.getProperties();
  const auto mark = properties.find("");
  if (mark != properties.end() && mark->second.get_type() == util::VOID) {
    throw std::runtime_error(missing);
  }
  if (!exists) warn(missing + "; its backup " + file.name() + "~ was read");
}

// The words after the command.
struct Request {
  std::optional<std::string> function;
  bool type = false;
  std::vector<std::string> words;
};

// Refuses what is not a path before anything is read.
void check_path(const std::string& path) { service::find(util::PropertyList(""), path); }

// A list that is only read.
struct Loaded {
  explicit Loaded(const std::string& name) : file(name), list(file.path()) { load(list, file); }

  Input file;
  util::PropertyList list;
};

std::string about(const Input& file, const std::string& text) { return file.name() + ": " + text; }

// ---- looking ----

// The list, or the part of it that the second word names. Throws if there is none.
util::Value part(const Loaded& from, const Request& request) {
  if (request.words.size() == 1) return from.list.getProperties();
  const std::string& path = request.words[1];
  const util::Value* const found = service::find(from.list, path);
  if (found == nullptr)
    throw std::runtime_error(about(from.file, path + ": there is no such value"));
  return *found;
}

int run_show(const Request& request) {
  const Loaded from(request.words[0]);
  const util::Value value = part(from, request);
  Outline out;
  switch (value.get_type()) {
    case util::STRUCT: show_entries(out, value); break;
    case util::ARRAY: show_elements(out, value); break;
    default: std::cout << outline_text(value) << '\n';
  }
  return finish();
}

int run_get(const Request& request) {
  const Loaded from(request.words[0]);
  const std::string& path = request.words[1];
  const util::Value* const value = service::find(from.list, path);
  if (value == nullptr) return kFault;
  if (request.type) return print(std::string(name_of_type(*value)) + "\n");
  if (value->get_type() == util::STRUCT || value->get_type() == util::ARRAY) {
    throw std::runtime_error(
        about(from.file, path + ": is not a single value; show and json print it"));
  }
  return print(for_output(raw_text(*value)) + "\n");
}

// Reports whether the backup can be loaded, if that differs from the list.
void check_backup(const Input& file, bool file_is_good) {
  util::PropertyList backup(file.path() + "~");
  if (!backup.exists()) return;
  try {
    refuse_special_file(backup.path());
    backup.load();
    if (!file_is_good) warn(backup.path() + ": the backup is good; restore makes it the file");
  } catch (const util::malformed_property_list& failure) {
    warn(service::reason_of(failure) + ": the backup is of no use");
  }
}

int run_check(const Request& request) {
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  const bool exists = list.exists();
  try {
    load(list, file);
  } catch (const std::runtime_error& failure) {
    fault(failure.what());
    if (exists) check_backup(file, false);
    return finish();
  }
  for (const std::string& problem : list.problems()) warn(about(file, problem));
  if (exists) check_backup(file, true);
  return finish();
}

int run_json(const Request& request) {
  const Loaded from(request.words[0]);
  return print(for_output(service::to_json(part(from, request), service::INDENTED)) + "\n");
}

// As with diff(1), 1 means that they differ and 2 that something is wrong.
int run_diff(const Request& request) {
  constexpr int kDifferent = 1;
  constexpr int kTrouble = 2;
  try {
    const Loaded old(request.words[0]);
    const Loaded current(request.words[1]);
    const bool different = show_differences(old.list.getProperties(), current.list.getProperties());
    if (finish() != kGood) return kTrouble;
    return different ? kDifferent : kGood;
  } catch (const std::exception& failure) {
    fault(failure.what());
    return kTrouble;
  }
}

bool holds_date(const util::Value& value) {
  if (value.get_type() == util::STRUCT) {
    const util::value_struct& entries = value;
    return std::any_of(entries.begin(), entries.end(),
                       [](const auto& entry) { return holds_date(entry.second); });
  }
  if (value.get_type() == util::ARRAY) {
    const util::value_array& elements = value;
    return std::any_of(elements.begin(), elements.end(), holds_date);
  }
  return value.get_type() == util::DATE_TIME;
}

bool is_identifier(const std::string& name) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$0123456789";
  return !name.empty() && (name[0] < '0' || name[0] > '9') &&
         name.find_first_not_of(kLetters) == name.npos;
}

int run_js(const Request& request) {
  if (request.function && !is_identifier(*request.function)) {
    return wrong_use("'" + *request.function + "' is not a name of a function");
  }
  const Loaded from(request.words[0]);
  const util::Value value(from.list.getProperties());
  if (holds_date(value)) warn(about(from.file, "dates are bare text, which no script can read"));
  const util::JSEmit js;
  return print(for_output(request.function ? js.emitFunction(*request.function, value)
                                           : js.emitValue(value)) +
               "\n");
}

// ---- changing ----

// Loads, changes and saves the list under its lock.
int change(const Request& request, const std::function<void(util::PropertyList& list)>& apply) {
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  const service::FileLock lock(file.path(), kPatience);
  load(list, file);
  apply(list);
  list.saveDurably();
  return finish();
}

struct Setting {
  std::string path;
  util::Value value;
};

// Reads settings from the words after the file. Returns the exit status if they are malformed.
std::optional<int> parse_settings(const std::vector<std::string>& words, std::vector<Setting>& to) {
  for (size_t i = 1; i < words.size();) {
    const std::string& path = words[i++];
    check_path(path);
    if (i == words.size()) return wrong_use("'" + path + "' needs a TYPE");
    const std::string& name = words[i++];
    const ListType* const type = find_list_type(name);
    if (type == nullptr) return wrong_use("'" + name + "' is not a TYPE");
    if (type->has_text && i == words.size()) return wrong_use(name + " needs a VALUE");
    const std::string text = type->has_text ? words[i++] : "";
    const std::optional<util::Value> value = type->read(text);
    if (!value) return wrong_use("'" + text + "' does not fit " + type->name);
    to.push_back({path, *value});
  }
  return std::nullopt;
}

int run_set(const Request& request) {
  std::vector<Setting> settings;
  if (const auto status = parse_settings(request.words, settings)) return *status;
  return change(request, [&](util::PropertyList& list) {
    try {
      for (const Setting& one : settings) service::set(list, one.path, one.value);
    } catch (const service::PathMismatch& mismatch) {
      throw std::runtime_error(request.words[0] + ": " + mismatch.what());
    }
  });
}

int run_delete(const Request& request) {
  const std::vector<std::string> paths(request.words.begin() + 1, request.words.end());
  for (const std::string& path : paths) check_path(path);
  return change(request, [&](util::PropertyList& list) {
    for (const std::string& path : paths) {
      if (service::erase(list, path)) continue;
      throw std::runtime_error(request.words[0] + ": " + path + ": there is no such value");
    }
  });
}

int run_new(const Request& request) {
  const std::string& name = request.words[0];
  refuse_special_file(name);
  util::PropertyList list(name);
  const service::FileLock lock(name, kPatience);
  if (list.exists()) throw std::runtime_error(name + ": is there already");
  if (list.backup_exists()) {
    throw std::runtime_error(name + "~: is there already; restore makes it the file");
  }
  list.saveDurably();
  return finish();
}

util::Value json_from_standard_input() {
  const Input input("-");
  std::ifstream stream(input.path());
  const std::string text((std::istreambuf_iterator<char>(stream)),
                         std::istreambuf_iterator<char>());
  service::JsonLimits limits;
  limits.size = text.size();
  try {
    util::Value value = service::from_json(text, limits);
    if (value.get_type() == util::STRUCT) return value;
  } catch (const service::json_error& error) {
    throw std::runtime_error(input.name() + ":" + error.what());
  }
  throw std::runtime_error(about(input, "a list is a JSON object"));
}

// A list that cannot be loaded is not replaced, since its backup may be good and would be lost.
int run_import(const Request& request) {
  const util::Value value = json_from_standard_input();
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  const service::FileLock lock(file.path(), kPatience);
  if (list.exists() || list.backup_exists()) load(list, file);
  list.getProperties() = static_cast<const util::value_struct&>(value);
  list.saveDurably();
  return finish();
}

int run_restore(const Request& request) {
  const std::string& name = request.words[0];
  refuse_special_file(name);
  refuse_special_file(name + "~");
  util::PropertyList list(name);
  const service::FileLock lock(name, kPatience);
  try {
    service::restore(list);
  } catch (const util::malformed_property_list& failure) {
    throw std::runtime_error(service::reason_of(failure));
  }
  return finish();
}

// ---- the command line ----

struct Command {
  const char* name;
  size_t least, most;  // words behind it
  bool changes;        // the file, which cannot be standard input
  int (*run)(const Request& request);
};

constexpr size_t kAny = SIZE_MAX;

constexpr Command kCommands[] = {
    {"show",    1, 2,    false, run_show   },
    {"get",     2, 2,    false, run_get    },
    {"check",   1, 1,    false, run_check  },
    {"diff",    2, 2,    false, run_diff   },
    {"json",    1, 2,    false, run_json   },
    {"js",      1, 1,    false, run_js     },
    {"new",     1, 1,    true,  run_new    },
    {"set",     3, kAny, true,  run_set    },
    {"delete",  2, kAny, true,  run_delete },
    {"import",  1, 1,    true,  run_import },
    {"restore", 1, 1,    true,  run_restore},
};

std::string command_names() {
  std::string names;
  for (const Command& command : kCommands) {
    names += (names.empty() ? "" : ", ") + std::string(command.name);
  }
  return names;
}

enum Option { kType = 256, kFunction, kInputLimit, kVersion, kHelp = 'h' };

constexpr option kOptions[] = {
    {"type",        no_argument,       nullptr, kType      },
    {"function",    required_argument, nullptr, kFunction  },
    {"input-limit", required_argument, nullptr, kInputLimit},
    {"help",        no_argument,       nullptr, kHelp      },
    {"version",     no_argument,       nullptr, kVersion   },
    {nullptr,       0,                 nullptr, 0          }
};

// Reads the options wherever they are or, with "+", up to the first other word. Returns the exit
// status if one ends the run.
std::optional<int> parse_options(int argc, char** argv, const std::string& where, Request& to) {
  const std::string letters = where + ":h";
  for (int option = 0;
       (option = getopt_long(argc, argv, letters.c_str(), std::begin(kOptions), nullptr)) != -1;) {
    switch (option) {
      case kType: to.type = true; break;
      case kFunction: to.function = optarg; break;
      case kInputLimit:
        if (set_input_limit(optarg)) break;
        return wrong_use("'" + std::string(optarg) + "' is not a number of MiB");
      case kHelp: return print(kUsage);
      case kVersion: return print_version();
      default: return wrong_option(option, argv, std::begin(kOptions));
    }
  }
  return std::nullopt;
}

int run_command(const Command& command, const Request& request) {
  const std::string name = command.name;
  if (request.type && command.run != run_get) return wrong_use("--type is for get");
  if (request.function && command.run != run_js) return wrong_use("--function is for js");
  if (request.words.size() < command.least) return wrong_use(name + " needs more arguments");
  if (request.words.size() > command.most) return wrong_use(name + " has too many arguments");
  if (command.changes && request.words[0] == "-") {
    return wrong_use("standard input cannot be changed");
  }
  try {
    if (!command.changes && request.words.size() == 2 && command.run != run_diff) {
      check_path(request.words[1]);
    }
    return command.run(request);
  } catch (const service::MalformedPath& malformed) {
    return wrong_use(malformed.what());
  }
}

int run(int argc, char** argv) {
  Request request;
  if (const auto status = parse_options(argc, argv, "+", request)) return *status;
  if (optind == argc) return wrong_use("a command is needed: " + command_names());
  const std::string name = argv[optind];
  const auto* const command =
      std::find_if(std::begin(kCommands), std::end(kCommands),
                   [&name](const Command& row) { return name == row.name; });
  if (command == std::end(kCommands)) {
    return wrong_use("'" + name + "' is not a command: " + command_names());
  }
  argc -= optind;
  argv += optind;
  optind = 0;  // from the start: the command stands where the program's name stood
  // A VALUE may look like an option.
  const std::string where = command->run == run_set ? "+" : "";
  if (const auto status = parse_options(argc, argv, where, request)) return *status;
  request.words.assign(argv + optind, argv + argc);
  return run_command(*command, request);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
