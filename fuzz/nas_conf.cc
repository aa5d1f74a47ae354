// SPDX-License-Identifier: MIT
// An input is the document.
#include "fuzz/documents.h"
#include "fuzz/fuzz.h"
#include "fuzz/tool.h"
#include "tests/support/files.h"
#include "util/NASConfDB.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <ticpp.h>

int nas_conf(int argc, char** argv);

namespace {

// ---- what check reports ----

// What may be in a document, by the names that lead there, and how it is read: "t" text, "o" text
// or nothing, "n" number, "e" elements, or two words. "!": it must be there; "*": any number of it.
// What is missing is reported in this order.
const std::vector<std::pair<std::string, std::string>> kKnown = {
    {"/nas_conf_db",                                           "!e"                           },
    {"/nas_conf_db/version",                                   "!n"                           },
    {"/nas_conf_db/system",                                    "!e"                           },
    {"/nas_conf_db/system/timeformat",                         "t"                            },
    {"/nas_conf_db/system/hostname",                           "t"                            },
    {"/nas_conf_db/system/domain",                             "t"                            },
    {"/nas_conf_db/system/language",                           "t"                            },
    {"/nas_conf_db/system/dhcpenabled",                        "true|false"                   },
    {"/nas_conf_db/system/timezone",                           "t"                            },
    {"/nas_conf_db/system/printenabled",                       "true|false"                   },
    {"/nas_conf_db/system/webgui",                             "e"                            },
    {"/nas_conf_db/system/webgui/adminpasswd",                 "o"                            },
    {"/nas_conf_db/system/webgui/protocol",                    "t"                            },
    {"/nas_conf_db/system/hdparams",                           "e"                            },
    {"/nas_conf_db/system/hdparams/disk",                      "*e"                           },
    {"/nas_conf_db/system/hdparams/disk/device",               "!t"                           },
    {"/nas_conf_db/system/hdparams/disk/inactivityperiod",     "!n"                           },
    {"/nas_conf_db/system/hdparams/disk/lastselftest",         "!n"                           },
    {"/nas_conf_db/system/platform",                           "t"                            },
    {"/nas_conf_db/system/drives",                             "t"                            },
    {"/nas_conf_db/interfaces",                                "e"                            },
    {"/nas_conf_db/interfaces/lan",                            "*e"                           },
    {"/nas_conf_db/interfaces/lan/if",                         "t"                            },
    {"/nas_conf_db/interfaces/lan/ipaddr",                     "t"                            },
    {"/nas_conf_db/interfaces/lan/netmask",                    "t"                            },
    {"/nas_conf_db/interfaces/lan/rand_ip",                    "t"                            },
    {"/nas_conf_db/mounts",                                    "e"                            },
    {"/nas_conf_db/mounts/mount",                              "*e"                           },
    {"/nas_conf_db/mounts/mount/device",                       "t"                            },
    {"/nas_conf_db/mounts/mount/fstype",                       "t"                            },
    {"/nas_conf_db/mounts/mount/mountpoint",                   "o"                            },
    {"/nas_conf_db/mounts/mount/options",                      "o"                            },
    {"/nas_conf_db/samba",                                     "e"                            },
    {"/nas_conf_db/samba/netbiosname",                         "t"                            },
    {"/nas_conf_db/samba/workgroup",                           "t"                            },
    {"/nas_conf_db/samba/serverdesc",                          "t"                            },
    {"/nas_conf_db/samba/localmaster",                         "yes|no"                       },
    {"/nas_conf_db/shares",                                    "e"                            },
    {"/nas_conf_db/shares/share",                              "*e"                           },
    {"/nas_conf_db/shares/share/sharename",                    "t"                            },
    {"/nas_conf_db/shares/share/sharetype",                    "public|private"               },
    {"/nas_conf_db/shares/share/sharestatus",                  "active|suspended"             },
    {"/nas_conf_db/shares/share/sharelocation",                "internal_share|external_share"},
    {"/nas_conf_db/shares/share/access",                       "e"                            },
    {"/nas_conf_db/shares/share/access/users",                 "e"                            },
    {"/nas_conf_db/shares/share/access/users/user",            "*e"                           },
    {"/nas_conf_db/shares/share/access/users/user/username",   "!t"                           },
    {"/nas_conf_db/shares/share/access/users/user/accesstype", "!full|readonly"               },
    {"/nas_conf_db/access",                                    "e"                            },
    {"/nas_conf_db/access/users",                              "e"                            },
    {"/nas_conf_db/access/users/user",                         "*e"                           },
    {"/nas_conf_db/access/users/user/username",                "!t"                           },
    {"/nas_conf_db/access/users/user/uid",                     "!n"                           },
};

struct Remark {
  int row, column;
  bool refuses;
  std::string text;
};

class Reader {
 public:
  void read(const TiXmlNode& parent, const std::string& path) {
    for (const auto* e = parent.FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
      const std::string tag = "<" + e->ValueStr() + ">";
      const std::string name = path + "/" + e->ValueStr();
      const auto known = std::find_if(kKnown.begin(), kKnown.end(),
                                      [&name](const auto& row) { return row.first == name; });
      if (known == kKnown.end()) {
        remark(*e, false, tag + " is not known here");
      } else if (known->second[0] != '*' && parent.FirstChildElement(e->Value()) != e) {
        remark(*e, false, "another " + tag + ", only the first is read");
      } else {
        read_element(*e, tag, rule_in(known->second));
        read(*e, known->first);
      }
    }
    for (const auto& known : kKnown) {
      const size_t name = known.first.rfind('/') + 1;
      const bool here = known.second[0] == '!' && known.first.substr(0, name) == path + "/";
      if (here && parent.FirstChildElement(known.first.substr(name)) == nullptr) {
        const std::string in = path.empty() ? "" : " in <" + parent.ValueStr() + ">";
        remark(parent, true, "<" + known.first.substr(name) + "> is missing" + in);
      }
    }
  }

  std::vector<Remark> remarks;

 private:
  static std::string rule_in(const std::string& known) {
    return known.substr(known[0] == '!' || known[0] == '*' ? 1 : 0);
  }

  void read_element(const TiXmlElement& e, const std::string& tag, const std::string& rule) {
    const std::string* const text = fuzz::text_of(e);
    if (rule == "e" && text != nullptr && !text->empty()) remark(e, false, "the text in " + tag);
    if (rule == "e" || rule == "o") return;
    if (text == nullptr) return remark(e, true, tag + " has no text at its start");
    if (rule == "n") return read_number(e, tag, *text);
    const size_t bar = rule.find('|');
    if (bar == rule.npos) return;
    const std::string one = rule.substr(0, bar);
    const std::string other = rule.substr(bar + 1);
    if (*text == one || *text == other) return;
    remark(e, false,
           tag + ": " + fuzz::quoted(*text) + " is neither " + fuzz::quoted(one) + " nor " +
               fuzz::quoted(other));
  }

  void read_number(const TiXmlElement& e, const std::string& tag, const std::string& text) {
    const std::optional<int> number = fuzz::number_in<int>(&text);
    if (!number) {
      remark(e, true, tag + ": " + fuzz::quoted(text) + " is no number, or too large a one");
      return;
    }
    const size_t digits = text.find_first_of("0123456789");
    const size_t end = text.find_first_not_of("0123456789", digits);
    if (text.find_first_not_of(" \t\n\v\f\r", end) == text.npos) return;
    remark(e, false,
           "what follows the number in " + tag + ": " + fuzz::quoted(text) + " is read as " +
               std::to_string(*number));
  }

  void remark(const TiXmlNode& at, bool refuses, const std::string& text) {
    remarks.push_back({at.Row(), at.Column(), refuses, text});
  }
};

std::string expected_report(const std::string& path, const TiXmlDocument& xml, bool& refused) {
  Reader reader;
  reader.read(xml, "");
  std::stable_sort(
      reader.remarks.begin(), reader.remarks.end(), [](const Remark& one, const Remark& other) {
        return one.row < other.row || (one.row == other.row && one.column < other.column);
      });
  std::string report;
  for (const Remark& remark : reader.remarks) {
    refused = refused || remark.refuses;
    report += "tool: " + path;
    if (remark.row > 0) {
      report += ":" + std::to_string(remark.row) + ":" + std::to_string(remark.column);
    }
    report += std::string(": ") + (remark.refuses ? "" : "ignored: ") + remark.text + "\n";
  }
  return fuzz::printable(report);
}

// ---- what show prints ----

// What stands between double quotes, one a line.
std::string quoted_texts(const std::string& outline) {
  std::string texts;
  fuzz::Input lines(reinterpret_cast<const uint8_t*>(outline.data()), outline.size());
  while (!lines.empty()) {
    const std::string line = lines.line('\n');
    const size_t start = line.find(": \"");
    if (start != line.npos) texts += line.substr(start + 2) + "\n";
  }
  return texts;
}

std::string expected_texts(const util::NASConfDB& db) {
  std::string texts;
  const auto add = [&texts](const std::string& text) { texts += fuzz::quoted(text) + "\n"; };
  const util::NASSystem& system = db.get_system();
  for (const auto& text : {system.timeformat, system.hostname, system.domain, system.language,
                           system.timezone, system.webgui_adminpasswd, system.webgui_protocol}) {
    add(text);
  }
  for (const auto& disk : system.disks) add(disk.device);
  for (const auto& text : {system.platform, system.drives}) add(text);
  for (const auto& lan : db.get_lan_ifs()) {
    for (const auto& text : {lan.iface, lan.ipaddr, lan.netmask, lan.rand_ip}) add(text);
  }
  for (const auto& mount : db.get_mounts()) {
    for (const auto& text : {mount.device, mount.fstype, mount.mountpoint, mount.options})
      add(text);
  }
  const util::NASSamba& samba = db.get_samba();
  for (const auto& text : {samba.netbiosname, samba.workgroup, samba.serverdesc}) add(text);
  for (const auto& share : db.get_shares()) {
    add(share.name);
    for (const auto& access : share.users) add(access.username);
  }
  for (const auto& user : db.get_users()) add(user.name);
  return texts;
}

std::string without_password(std::string outline, const std::string& password) {
  const std::string line = "\n    adminpasswd: ";
  const std::string text = fuzz::quoted(password);
  if (!password.empty()) outline.replace(outline.find(line) + line.size(), text.size(), "(hidden)");
  return outline;
}

void check_showing(const std::string& path) {
  const fuzz::ToolRun with = fuzz::run(nas_conf, {"show", "--password", path});
  const fuzz::ToolRun without = fuzz::run(nas_conf, {"show", path});
  fuzz::require(with.status == without.status, "the password decides nothing");
  fuzz::require_equal(fuzz::printable(with.out + with.err), with.out + with.err,
                      "what a terminal may see");
  try {
    const util::NASConfDB db(path);
    fuzz::require(with.status == 0, "what is read is shown");
    fuzz::require_equal(expected_texts(db), quoted_texts(with.out), "the texts shown");
    fuzz::require_equal(without_password(with.out, db.get_system().webgui_adminpasswd), without.out,
                        "hiding the password");
  } catch (const ticpp::Exception& e) {
    fuzz::require(with.status == 1 && with.out.empty(), "what is refused is not shown");
  }
}

void check_checking(const std::string& path, const std::string& document) {
  const fuzz::ToolRun run = fuzz::run(nas_conf, {"check", path});
  fuzz::require(run.out.empty(), "findings are messages");
  fuzz::require_equal(fuzz::printable(run.err), run.err, "what a terminal may see");
  bool refused = false;
  try {
    const util::NASConfDB db(path);
  } catch (const ticpp::Exception& e) {
    refused = true;
  }
  fuzz::require(run.status == (refused ? 1 : 0), "check gives the reader's verdict");
  fuzz::require(!refused || !run.err.empty(), "a refusal says why");
  if (!fuzz::is_harmless(document) || (refused && fuzz::has_declaration(document))) return;
  TiXmlDocument xml;
  try {
    fuzz::parse(document, xml);
  } catch (const fuzz::Refused&) {
    return fuzz::require(refused, "what is no XML is refused");
  }
  bool expected_refusal = false;
  fuzz::require_equal(expected_report(path, xml, expected_refusal), run.err, "the findings");
  fuzz::require(expected_refusal == refused, "a finding for each refusal");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::TempDir dir;
  const std::string document(data, data + size);
  const std::string path = dir.file("nas_conf_db.xml");
  support::write_file(path, document);
  check_checking(path, document);
  check_showing(path);
  return 0;
}
