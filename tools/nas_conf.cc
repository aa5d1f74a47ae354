// SPDX-License-Identifier: MIT
// nas-conf: shows and checks the configuration document. nas-conf.1 says how it is used.
#include "service/json.h"
#include "service/key_path.h"
#include "tools/command.h"
#include "tools/input.h"
#include "tools/list_values.h"
#include "tools/outline.h"
#include "util/NASConfDB.h"
#include "util/PropertyList.h"

#include <getopt.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <ticpp.h>

namespace tools {
namespace {

constexpr char kUsage[] =
    R"(usage: nas-conf COMMAND [OPTION]... FILE...
Shows and checks the configuration document of an appliance. FILE "-" is
standard input.

  show FILE...      prints the configuration as an outline
  get FILE PATH     prints a value, for scripts; PATH is as in shares[0]/name
  json FILE         prints the configuration as JSON
  check FILE...     reports all that is wrong, as file:row:column: message

  --password        show, json: also prints the web administration password
  --strict          check: what the services silently ignore is a fault too
  -h, --help        shows this
  --version         shows the version

Exit status: 0 success, 1 fault in the data, 2 wrong command line.
)";

// ---- what the document says ----

// Prints it as an outline.
class Printed {
 public:
  void number(const char* name, int value) { out_.item(name, std::to_string(value)); }
  void truth(const char* name, bool value) { out_.item(name, value ? "true" : "false"); }
  void text(const char* name, const std::string& value) { out_.text(name, value); }
  void word(const char* name, const char* value) { out_.item(name, value); }
  void hidden(const char* name) { out_.item(name, "(hidden)"); }
  void open(const char* name) { out_.open(name); }
  void close() { out_.close(); }

  template <class Records, class Show>
  void each(const char* name, const Records& records, Show show) {
    if (records.empty()) return out_.item(name, "none");
    out_.open(name);
    size_t number = 0;
    for (const auto& record : records) {
      out_.open("[" + std::to_string(number++) + "]");
      show(record);
      out_.close();
    }
    out_.close();
  }

 private:
  Outline out_;
};

// Turns it into a value.
class Tree {
 public:
  void number(const char* name, int value) { put(name, value); }
  void truth(const char* name, bool value) { put(name, value); }
  void text(const char* name, const std::string& value) { put(name, value); }
  void word(const char* name, const char* value) { put(name, value); }
  void hidden(const char* /*name*/) {}
  void open(const char* name) { open_.push_back(&put(name, util::value_struct())); }
  void close() { open_.pop_back(); }

  template <class Records, class Show>
  void each(const char* name, const Records& records, Show show) {
    util::value_array& elements = put(name, util::value_array());
    for (const auto& record : records) {
      elements.push_back(util::value_struct());
      open_.push_back(&elements.back());
      show(record);
      open_.pop_back();
    }
  }

  const util::Value& value() const { return value_; }

 private:
  util::Value& put(const char* name, const util::Value& value) {
    return static_cast<util::value_struct&>(*open_.back())[name] = value;
  }

  util::Value value_ = util::value_struct();
  std::vector<util::Value*> open_ = {&value_};
};

template <class Enum>
const char* word_or_none(Enum enumerator) {
  return enumerator == 0 ? "none" : util::word_of(enumerator);
}

// Passes the configuration to `Out`, in the order of the document.
template <class Out>
class Walk {
 public:
  Walk(Out& out, bool with_password) : out_(out), with_password_(with_password) {}

  void show(const util::NASConfDB& database) {
    out_.number("version", database.get_version());
    show(database.get_system());
    each("interfaces", database.get_lan_ifs());
    each("mounts", database.get_mounts());
    show(database.get_samba());
    each("shares", database.get_shares());
    each("users", database.get_users());
  }

 private:
  void show(const util::NASSystem& system) {
    out_.open("system");
    out_.text("timeformat", system.timeformat);
    out_.text("hostname", system.hostname);
    out_.text("domain", system.domain);
    out_.text("language", system.language);
    out_.truth("dhcpenabled", system.dhcpenabled);
    out_.text("timezone", system.timezone);
    out_.truth("printenabled", system.printenabled);
    out_.open("webgui");
    show_password(system.webgui_adminpasswd);
    out_.text("protocol", system.webgui_protocol);
    out_.close();
    each("disks", system.disks);
    out_.text("platform", system.platform);
    out_.text("drives", system.drives);
    out_.close();
  }

  void show_password(const std::string& password) {
    if (with_password_ || password.empty()) {
      out_.text("adminpasswd", password);
    } else {
      out_.hidden("adminpasswd");
    }
  }

  void show(const util::NASDisk& disk) {
    out_.text("device", disk.device);
    out_.number("inactivityperiod", disk.inactivityperiod);
    out_.number("lastselftest", disk.lastselftest);
  }

  void show(const util::NASLANInterface& lan) {
    out_.text("if", lan.iface);
    out_.text("ipaddr", lan.ipaddr);
    out_.text("netmask", lan.netmask);
    out_.text("rand_ip", lan.rand_ip);
  }

  void show(const util::NASMount& mount) {
    out_.text("device", mount.device);
    out_.text("fstype", mount.fstype);
    out_.text("mountpoint", mount.mountpoint);
    out_.text("options", mount.options);
  }

  void show(const util::NASSamba& samba) {
    out_.open("samba");
    out_.text("netbiosname", samba.netbiosname);
    out_.text("workgroup", samba.workgroup);
    out_.text("serverdesc", samba.serverdesc);
    out_.truth("localmaster", samba.localmaster);
    out_.close();
  }

  void show(const util::NASShare& share) {
    out_.text("name", share.name);
    out_.word("type", word_or_none(share.type));
    out_.word("status", word_or_none(share.status));
    out_.word("location", word_or_none(share.location));
    each("users", share.users);
  }

  void show(const util::NASAccess& access) {
    out_.text("username", access.username);
    out_.word("accesstype", word_or_none(access.accesstype));
  }

  void show(const util::NASUser& user) {
    out_.text("name", user.name);
    out_.number("uid", user.uid);
  }

  template <class Records>
  void each(const char* name, const Records& records) {
    out_.each(name, records, [this](const auto& record) { this->show(record); });
  }

  Out& out_;
  bool with_password_;
};

util::Value tree_of(const util::NASConfDB& database, bool with_password) {
  Tree tree;
  Walk<Tree>(tree, with_password).show(database);
  return tree.value();
}

// ---- faults ----

std::string placed(const Input& file, int row, int column, const std::string& text) {
  return file.name() + ":" + std::to_string(row) + ":" + std::to_string(column) + ": " + text;
}

// The XML layer's message, preceded by the place.
std::string placed(const Input& file, const ticpp::Exception& refusal) {
  static const std::regex place(" \\(row ([0-9]+), column ([0-9]+)\\)$");
  std::string text = file.named(refusal.what());
  std::smatch found;
  if (!std::regex_search(text, found, place)) return text;
  return placed(file, std::stoi(found[1]), std::stoi(found[2]), found.prefix());
}

enum class Ignored { kSilent, kWarning, kFault };

// Reports what is wrong with the document. Returns whether it has a fault.
bool report(const Input& file, Ignored ignored) {
  bool refused = false;
  try {
    for (const util::NASFinding& finding : util::NASConfDB::check(file.path())) {
      const std::string message = placed(file, finding.row, finding.column, finding.text);
      const bool is_fault = finding.fault || ignored == Ignored::kFault;
      refused = refused || is_fault;
      if (is_fault) fault(message);
      if (!is_fault && ignored == Ignored::kWarning) warn(message);
    }
  } catch (const ticpp::Exception& refusal) {
    fault(placed(file, refusal));
    refused = true;
  }
  return refused;
}

// Returns nothing, and reports every reason, if the services refuse the document.
std::optional<util::NASConfDB> read(const Input& file) {
  try {
    return util::NASConfDB(file.path());
  } catch (const ticpp::Exception& refusal) {
    if (!report(file, Ignored::kSilent)) fault(file.named(refusal.what()));
    return std::nullopt;
  }
}

// ---- commands ----

struct Request {
  bool with_password = false;
  bool strict = false;
  std::vector<std::string> words;
};

int show(const Request& request) {
  const bool several = request.words.size() > 1;
  const char* separator = "";
  for (const std::string& word : request.words) {
    const Input file(word);
    const auto database = read(file);
    if (!database) continue;
    if (several) std::cout << std::exchange(separator, "\n") << printable_line(word) << ":\n";
    Printed out;
    Walk<Printed>(out, request.with_password).show(*database);
  }
  return finish();
}

// The password is printed if its path is given.
int get(const Request& request) {
  const std::string& path = request.words[1];
  util::PropertyList list("");
  service::find(list, path);  // throws for what is not a path
  const Input file(request.words[0]);
  const auto database = read(file);
  if (!database) return finish();
  list.getProperties() = static_cast<const util::value_struct&>(tree_of(*database, true));
  const util::Value* const value = service::find(list, path);
  if (value == nullptr) return kFault;
  if (value->get_type() == util::STRUCT || value->get_type() == util::ARRAY) {
    fault(file.name() + ": " + path + ": is not a single value; show and json print it");
    return finish();
  }
  return print(for_output(raw_text(*value)) + "\n");
}

int json(const Request& request) {
  const auto database = read(Input(request.words[0]));
  if (!database) return finish();
  const util::Value tree = tree_of(*database, request.with_password);
  return print(for_output(service::to_json(tree, service::INDENTED)) + "\n");
}

int check(const Request& request) {
  for (const std::string& word : request.words) {
    report(Input(word), request.strict ? Ignored::kFault : Ignored::kWarning);
  }
  return finish();
}

// ---- the command line ----

struct Command {
  const char* name;
  size_t least, most;     // words behind it
  bool password, strict;  // options that it takes
  int (*run)(const Request& request);
};

constexpr Command kCommands[] = {
    {"show",  1, SIZE_MAX, true,  false, show },
    {"get",   2, 2,        false, false, get  },
    {"json",  1, 1,        true,  false, json },
    {"check", 1, SIZE_MAX, false, true,  check},
};

enum Option { kPassword = 256, kStrict, kVersion };

constexpr option kOptions[] = {
    {"password", no_argument, nullptr, kPassword},
    {"strict",   no_argument, nullptr, kStrict  },
    {"help",     no_argument, nullptr, 'h'      },
    {"version",  no_argument, nullptr, kVersion },
    {nullptr,    0,           nullptr, 0        }
};

int run_command(const std::string& name, const Request& request) {
  const auto* const command =
      std::find_if(std::begin(kCommands), std::end(kCommands),
                   [&name](const Command& one) { return name == one.name; });
  if (command == std::end(kCommands)) {
    return wrong_use("'" + name + "' is not a command: show, get, json, check");
  }
  const size_t count = request.words.size();
  if (count < command->least || count > command->most) {
    return wrong_use(name + (command->most == 2 ? " needs a FILE and a PATH" : " needs a FILE"));
  }
  if (request.with_password && !command->password) return wrong_use(name + " takes no --password");
  if (request.strict && !command->strict) return wrong_use(name + " takes no --strict");
  return command->run(request);
}

int run(int argc, char** argv) {
  Request request;
  for (int option = 0;
       (option = getopt_long(argc, argv, ":h", std::begin(kOptions), nullptr)) != -1;) {
    switch (option) {
      case kPassword: request.with_password = true; break;
      case kStrict: request.strict = true; break;
      case 'h': return print(kUsage);
      case kVersion: return print_version();
      default: return wrong_option(option, argv, std::begin(kOptions));
    }
  }
  if (optind == argc) return wrong_use("a command and a FILE are needed");
  request.words.assign(argv + optind + 1, argv + argc);
  return run_command(argv[optind], request);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
