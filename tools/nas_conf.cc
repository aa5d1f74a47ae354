// SPDX-License-Identifier: MIT
// nas-conf: shows and checks the configuration document. nas-conf.1 says how it is used.
#include "tools/command.h"
#include "tools/input.h"
#include "tools/outline.h"
#include "util/NASConfDB.h"

#include <getopt.h>

#include <iterator>
#include <string>

#include <ticpp.h>

namespace tools {
namespace {

constexpr char kUsage[] =
    R"(usage: nas-conf show [--password] FILE
       nas-conf check FILE
Looks into the configuration document of an appliance. "-" is standard input.

  show           prints what the document says
  check          lists all that is wrong with it, with row and column

  --password     shows the password of the web administration too
  --help         shows this
  --version      shows the version

Exit status: 0 good, 1 fault in the data, 2 wrong use.
)";

// ---- show ----

const char* truth(bool value) { return value ? "true" : "false"; }

template <class Enum>
std::string word(Enum enumerator) {
  return enumerator == 0 ? "none" : util::word_of(enumerator);
}

class Display {
 public:
  explicit Display(bool with_password) : with_password_(with_password) {}

  void show(const util::NASConfDB& database) {
    out_.item("version", std::to_string(database.get_version()));
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
    out_.item("dhcpenabled", truth(system.dhcpenabled));
    out_.text("timezone", system.timezone);
    out_.item("printenabled", truth(system.printenabled));
    out_.open("webgui");
    out_.item("adminpasswd", password(system.webgui_adminpasswd));
    out_.text("protocol", system.webgui_protocol);
    out_.close();
    each("disks", system.disks);
    out_.text("platform", system.platform);
    out_.text("drives", system.drives);
    out_.close();
  }

  std::string password(const std::string& text) const {
    return with_password_ || text.empty() ? quoted(text) : "(hidden)";
  }

  void show(const util::NASDisk& disk) {
    out_.text("device", disk.device);
    out_.item("inactivityperiod", std::to_string(disk.inactivityperiod));
    out_.item("lastselftest", std::to_string(disk.lastselftest));
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
    out_.item("localmaster", truth(samba.localmaster));
    out_.close();
  }

  void show(const util::NASShare& share) {
    out_.text("name", share.name);
    out_.item("type", word(share.type));
    out_.item("status", word(share.status));
    out_.item("location", word(share.location));
    each("users", share.users);
  }

  void show(const util::NASAccess& access) {
    out_.text("username", access.username);
    out_.item("accesstype", word(access.accesstype));
  }

  void show(const util::NASUser& user) {
    out_.text("name", user.name);
    out_.item("uid", std::to_string(user.uid));
  }

  // A list, its records numbered.
  template <class Records>
  void each(const std::string& name, const Records& records) {
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

  Outline out_;
  bool with_password_;
};

void show(const Input& file, bool with_password) {
  Display(with_password).show(util::NASConfDB(file.path()));
}

// ---- check ----

std::string place(const util::NASFinding& finding) {
  if (finding.row == 0) return "";
  return ":" + std::to_string(finding.row) + ":" + std::to_string(finding.column);
}

void check(const Input& file) {
  for (const util::NASFinding& finding : util::NASConfDB::check(file.path())) {
    const std::string message = file.name() + place(finding) + ": " + finding.text;
    if (finding.fault) {
      fault(message);
    } else {
      warn(message);
    }
  }
}

// ---- the command line ----

enum Option { kPassword = 256, kHelp, kVersion };

constexpr option kOptions[] = {
    {"password", no_argument, nullptr, kPassword},
    {"help",     no_argument, nullptr, kHelp    },
    {"version",  no_argument, nullptr, kVersion },
    {nullptr,    0,           nullptr, 0        }
};

int run_command(const std::string& command, const std::string& name, bool with_password) {
  const Input file(name);
  try {
    if (command == "show") {
      show(file, with_password);
    } else {
      check(file);
    }
  } catch (const ticpp::Exception& refusal) {
    fault(file.named(refusal.what()));
  }
  return finish();
}

int run(int argc, char** argv) {
  bool with_password = false;
  for (int option = 0;
       (option = getopt_long(argc, argv, "", std::begin(kOptions), nullptr)) != -1;) {
    switch (option) {
      case kPassword: with_password = true; break;
      case kHelp: return print(kUsage);
      case kVersion: return print_version();
      default: return wrong_use();
    }
  }
  if (argc - optind != 2) return wrong_use("a command and a FILE are needed");
  const std::string command = argv[optind];
  if (command != "show" && command != "check") {
    return wrong_use("'" + command + "' is no command: show, check");
  }
  if (with_password && command == "check") return wrong_use("check shows no password");
  return run_command(command, argv[optind + 1], with_password);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) { return tools::run_tool(tools::run, argc, argv); }
