// SPDX-License-Identifier: MIT
// nas-plist: shows, checks, converts and changes property lists. nas-plist.1 says how it is used.
#include "service/FileLock.h"
#include "service/key_path.h"
#include "tools/command.h"
#include "tools/input.h"
#include "tools/outline.h"
#include "util/JSEmit.h"
#include "util/PropertyList.h"
#include "util/Value.h"
#include "util/base64.h"
#include "util/datetime.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <ticpp.h>

namespace tools {
namespace {

constexpr char kUsage[] =
    R"(usage: nas-plist show FILE
       nas-plist check FILE
       nas-plist js [--function NAME] FILE
       nas-plist set [--force] FILE KEY TYPE [VALUE]
Looks into a property list, and changes it. "-" is standard input, except for set.

  show             prints the list as an outline
  check            says whether it loads, and what a save would not keep
  js               prints the list as script text
  set              sets the value of KEY, as in network/servers[2]/name, and saves the list

  --function NAME  script text of a function of this name that returns the list
  --force          saves although something else in the list will not be kept
  --input-limit N  reads at most N MiB of standard input; without it, 64
  -h, --help       shows this
  --version        shows the version

TYPE and VALUE: integer 42, real 0.5, string TEXT, boolean true or false, data BASE64,
date 2008-05-01T14:03:59Z (local time), dict and array (empty, without VALUE).
Exit status: 0 good, 1 fault in the data, 2 wrong use.
)";

constexpr char kDateFormat[] = "%Y-%m-%dT%H:%M:%SZ";

constexpr util::utime_t kPatience = 30000;  // milliseconds

// ---- loading ----

// Throws for a "string" without text, which no list may hold.
void find_empty_string(const ticpp::Element& element) {
  if (element.Value() == "string") element.GetText(true);
  for (const ticpp::Element* child = element.FirstChildElement(false); child != nullptr;
       child = child->NextSiblingElement(false)) {
    find_empty_string(*child);
  }
}

// What the XML layer has to say about a file that is no property list.
std::string reason_in(const std::string& path) try {
  ticpp::Document document;
  document.LoadFile(path);
  find_empty_string(*document.FirstChildElement("plist")->FirstChildElement("dict"));
  return "";
} catch (const ticpp::Exception& reason) {
  return std::string(": ") + reason.what();
}

// Throws std::runtime_error where there is no list. PropertyList itself takes a missing file for an
// empty list; `unloaded` tells.
void load(util::PropertyList& list, const Input& file) {
  const bool exists = list.exists();
  const std::string missing = file.name() + ": " + strerror(errno);
  if (!exists) refuse_special_file(file.path() + "~");
  const util::Value unloaded;
  list.setValueForKey("", unloaded);
  try {
    list.load();
  } catch (const util::malformed_property_list& failure) {
    const std::string source = exists ? file.path() : file.path() + "~";
    const std::string text = failure.what();
    const bool vague = text == file.path() + ": load failed";
    throw std::runtime_error(file.named(vague ? text + reason_in(source) : text));
  }
  const auto& properties = list.getProperties();
  const auto mark = properties.find("");
  if (mark != properties.end() && mark->second.get_type() == util::VOID) {
    throw std::runtime_error(missing);
  }
  if (!exists) warn(missing + "; its backup " + file.name() + "~ was read");
}

// ---- show ----

std::string shown(double number) {
  char text[32];
  const auto end = std::to_chars(std::begin(text), std::end(text), number).ptr;
  const std::string digits(text, end);
  return digits.find_first_not_of("-0123456789") == digits.npos ? digits + ".0" : digits;
}

std::string shown(const util::byte_string& bytes) {
  std::string text = "data ";
  util::b64_encode(bytes, text, 0);
  return text;
}

void show(Outline& out, const std::string& name, const util::Value& value);

void show_entries(Outline& out, const util::value_struct& entries) {
  for (const auto& entry : entries) show(out, plain_or_quoted(entry.first), entry.second);
}

void show_elements(Outline& out, const util::value_array& elements) {
  size_t number = 0;
  for (const util::Value& element : elements) {
    show(out, "[" + std::to_string(number++) + "]", element);
  }
}

template <class Container>
void show_all(Outline& out, const std::string& name, const Container& items, const char* empty,
              void (*show_items)(Outline&, const Container&)) {
  if (items.empty()) return out.item(name, empty);
  out.open(name);
  show_items(out, items);
  out.close();
}

void show(Outline& out, const std::string& name, const util::Value& value) {
  switch (value.get_type()) {
    case util::INTEGER: return out.item(name, std::to_string(static_cast<const int&>(value)));
    case util::BOOLEAN: return out.item(name, static_cast<const bool&>(value) ? "true" : "false");
    case util::DOUBLE: return out.item(name, shown(static_cast<const double&>(value)));
    case util::STRING: return out.text(name, static_cast<const std::string&>(value));
    case util::DATE_TIME: return out.item(name, "date " + util::unparse_time(value, kDateFormat));
    case util::BYTE_STRING:
      return out.item(name, shown(static_cast<const util::byte_string&>(value)));
    case util::STRUCT: return show_all<util::value_struct>(out, name, value, "{}", show_entries);
    case util::ARRAY: return show_all<util::value_array>(out, name, value, "[]", show_elements);
    case util::VOID: return out.item(name, "void");
  }
}

// ---- the commands ----

std::string about(const Input& file, const std::string& problem) {
  return file.name() + ": " + problem;
}

// What follows the command.
struct Request {
  std::optional<std::string> function;
  bool force = false;
  std::vector<std::string> words;
};

int run_show(const Request& request) {
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  load(list, file);
  Outline out;
  show_entries(out, list.getProperties());
  return finish();
}

int run_check(const Request& request) {
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  load(list, file);
  for (const std::string& problem : list.problems()) fault(about(file, problem));
  return finish();
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
    return wrong_use("'" + *request.function + "' is no name of a function");
  }
  const Input file(request.words[0]);
  util::PropertyList list(file.path());
  load(list, file);
  const util::Value value(list.getProperties());
  if (holds_date(value)) warn(file.name() + ": dates are bare text, which no script can read");
  const util::JSEmit js;
  return print(for_output(request.function ? js.emitFunction(*request.function, value)
                                           : js.emitValue(value)) +
               "\n");
}

// ---- set ----

template <class Number>
std::optional<util::Value> number(const std::string& text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return util::Value(number);
}

std::optional<util::Value> real(const std::string& text) {
  std::optional<util::Value> value = number<double>(text);
  if (value && !std::isfinite(static_cast<double&>(*value))) return std::nullopt;
  return value;
}

std::optional<util::Value> string(const std::string& text) { return util::Value(text); }

std::optional<util::Value> boolean(const std::string& text) {
  if (text != "true" && text != "false") return std::nullopt;
  return util::Value(text == "true");
}

std::optional<util::Value> date(const std::string& text) {
  const util::utime_t instant = util::parse_time(text, kDateFormat);
  if (util::unparse_time(instant, kDateFormat) != text) return std::nullopt;
  return util::Value(instant);
}

std::optional<util::Value> data(const std::string& text) {
  util::byte_string bytes;
  if (util::b64_decode(text, bytes) < 0) return std::nullopt;
  return util::Value(bytes);
}

std::optional<util::Value> dict(const std::string&) { return util::Value(util::value_struct()); }

std::optional<util::Value> array(const std::string&) { return util::Value(util::value_array()); }

struct Type {
  const char* name;
  bool has_value;
  std::optional<util::Value> (*read)(const std::string& text);
};

constexpr Type kTypes[] = {
    {"integer", true,  number<int>},
    {"real",    true,  real       },
    {"string",  true,  string     },
    {"boolean", true,  boolean    },
    {"date",    true,  date       },
    {"data",    true,  data       },
    {"dict",    false, dict       },
    {"array",   false, array      },
};

// What the list had already may be lost if `force` says so, but nothing that is new in it.
bool may_be_saved(const util::PropertyList& list, const Input& file,
                  const std::vector<std::string>& known_problems, bool force) {
  bool good = true;
  for (const std::string& problem : list.problems()) {
    const bool known =
        std::find(known_problems.begin(), known_problems.end(), problem) != known_problems.end();
    const bool accepted = known && force;
    (accepted ? warn : fault)(about(file, problem));
    good = good && accepted;
  }
  return good;
}

int save(const Input& file, const std::string& key, const util::Value& value, bool force) {
  util::PropertyList list(file.path());
  service::find(list, key);  // refuses what is not a path before the list is read
  const service::FileLock lock(file.path(), kPatience);
  load(list, file);
  const std::vector<std::string> problems = list.problems();
  service::set(list, key, value);
  if (may_be_saved(list, file, problems, force)) {
    list.saveDurably();
  } else {
    fault(file.name() + ": not saved");
  }
  return finish();
}

int run_set(const Request& request) {
  const std::vector<std::string>& words = request.words;
  if (words[0] == "-") return wrong_use("standard input cannot be changed");
  const auto* const type = std::find_if(std::begin(kTypes), std::end(kTypes),
                                        [&words](const Type& row) { return words[2] == row.name; });
  if (type == std::end(kTypes)) return wrong_use("'" + words[2] + "' is no TYPE");
  if (type->has_value != (words.size() == 4)) {
    return wrong_use(words[2] + (type->has_value ? " needs a VALUE" : " has no VALUE"));
  }
  const std::string text = type->has_value ? words[3] : "";
  const std::optional<util::Value> value = type->read(text);
  if (!value) return wrong_use("'" + text + "' is no " + words[2]);
  try {
    return save(Input(words[0]), words[1], *value, request.force);
  } catch (const service::MalformedPath& malformed) {
    return wrong_use(malformed.what());
  } catch (const service::PathMismatch& mismatch) {
    throw std::runtime_error(words[0] + ": " + mismatch.what());
  }
}

// ---- the command line ----

struct Command {
  const char* name;
  size_t least, most;  // words behind it
  int (*run)(const Request& request);
};

constexpr Command kCommands[] = {
    {"show",  1, 1, run_show },
    {"check", 1, 1, run_check},
    {"js",    1, 1, run_js   },
    {"set",   3, 4, run_set  },
};

enum Option { kFunction = 256, kForce, kInputLimit, kVersion, kHelp = 'h' };

constexpr option kOptions[] = {
    {"function",    required_argument, nullptr, kFunction  },
    {"force",       no_argument,       nullptr, kForce     },
    {"help",        no_argument,       nullptr, kHelp      },
    {"input-limit", required_argument, nullptr, kInputLimit},
    {"version",     no_argument,       nullptr, kVersion   },
    {nullptr,       0,                 nullptr, 0          }
};

// The options up to the next word. The status to exit with where one ends the run.
std::optional<int> parse_options(int argc, char** argv, Request& to) {
  for (int option = 0;
       (option = getopt_long(argc, argv, "+:h", std::begin(kOptions), nullptr)) != -1;) {
    switch (option) {
      case kFunction: to.function = optarg; break;
      case kForce: to.force = true; break;
      case kInputLimit:
        if (!set_input_limit(optarg)) {
          return wrong_use("'" + std::string(optarg) + "' is not a number of MiB");
        }
        break;
      case kHelp: return print(kUsage);
      case kVersion: return print_version();
      default: return wrong_option(option, argv, std::begin(kOptions));
    }
  }
  return std::nullopt;
}

int run(int argc, char** argv) {
  Request request;
  if (const auto status = parse_options(argc, argv, request)) return *status;
  if (optind == argc) return wrong_use("a command is needed: show, check, js, set");
  const std::string name = argv[optind++];
  if (const auto status = parse_options(argc, argv, request)) return *status;
  request.words.assign(argv + optind, argv + argc);

  const auto* const command =
      std::find_if(std::begin(kCommands), std::end(kCommands),
                   [&name](const Command& row) { return name == row.name; });
  if (command == std::end(kCommands)) {
    return wrong_use("'" + name + "' is no command: show, check, js, set");
  }
  if (request.function && command->run != run_js) return wrong_use("--function is for js");
  if (request.force && command->run != run_set) return wrong_use("--force is for set");
  if (request.words.size() < command->least) return wrong_use(name + " needs more arguments");
  if (request.words.size() > command->most) return wrong_use(name + " has too many arguments");
  return command->run(request);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
