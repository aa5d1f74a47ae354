// SPDX-License-Identifier: MIT
// An input is the document.
#include "util/NASConfDB.h"

#include "fuzz/documents.h"
#include "fuzz/fuzz.h"
#include "tests/support/files.h"

#include <iostream>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include <ticpp.h>

namespace {

using Element = const TiXmlElement;
using fuzz::Refused;

// ---- the rules ----

Element* optional(Element* parent, const char* name) {
  return parent == nullptr ? nullptr : parent->FirstChildElement(name);
}

Element* required(Element* parent, const char* name) {
  Element* const found = optional(parent, name);
  if (found == nullptr) throw Refused("missing element");
  return found;
}

std::vector<Element*> all(Element* parent, const char* name) {
  std::vector<Element*> found;
  for (Element* e = optional(parent, name); e != nullptr; e = e->NextSiblingElement(name)) {
    found.push_back(e);
  }
  return found;
}

std::string text(Element* e) {
  const std::string* const text = fuzz::text_of(*e);
  if (text == nullptr) throw Refused("missing text");
  return *text;
}

int number(Element* e) {
  const std::optional<int> number = fuzz::number_in<int>(fuzz::text_of(*e));
  if (!number) throw Refused("no number");
  return *number;
}

std::string optional_text(Element* parent, const char* name) {
  Element* const e = optional(parent, name);
  return e == nullptr ? "" : text(e);
}

std::string text_or_empty(Element* parent, const char* name) {
  Element* const e = optional(parent, name);
  const std::string* const text = e == nullptr ? nullptr : fuzz::text_of(*e);
  return text == nullptr ? "" : *text;
}

template <class Enum>
Enum word(const std::string& text, const char* one, Enum first, const char* two, Enum second) {
  return text == one ? first : text == two ? second : Enum();
}

util::NASSystem read_system(Element* system) {
  util::NASSystem to;
  to.timeformat = optional_text(system, "timeformat");
  to.hostname = optional_text(system, "hostname");
  to.domain = optional_text(system, "domain");
  to.language = optional_text(system, "language");
  to.dhcpenabled = optional_text(system, "dhcpenabled") == "true";
  to.timezone = optional_text(system, "timezone");
  to.printenabled = optional_text(system, "printenabled") == "true";
  Element* const webgui = optional(system, "webgui");
  to.webgui_adminpasswd = text_or_empty(webgui, "adminpasswd");
  to.webgui_protocol = optional_text(webgui, "protocol");
  for (Element* disk : all(optional(system, "hdparams"), "disk")) {
    to.disks.push_back({text(required(disk, "device")), number(required(disk, "inactivityperiod")),
                        number(required(disk, "lastselftest"))});
  }
  to.platform = optional_text(system, "platform");
  to.drives = optional_text(system, "drives");
  return to;
}

util::NASShare read_share(Element* share) {
  using namespace util;
  NASShare to;
  to.name = optional_text(share, "sharename");
  to.type = word(optional_text(share, "sharetype"), "public", Public, "private", Private);
  to.status = word(optional_text(share, "sharestatus"), "active", Active, "suspended", Suspended);
  to.location = word(optional_text(share, "sharelocation"), "internal_share", InternalShare,
                     "external_share", ExternalShare);
  for (Element* user : all(optional(optional(share, "access"), "users"), "user")) {
    to.users.push_back(
        {text(required(user, "username")),
         word(text(required(user, "accesstype")), "full", Full, "readonly", ReadOnly)});
  }
  return to;
}

// All that a database holds.
struct Records {
  int version = 0;
  util::NASSystem system;
  util::NASSamba samba;
  std::list<util::NASLANInterface> lan_ifs;
  std::list<util::NASMount> mounts;
  std::list<util::NASShare> shares;
  std::list<util::NASUser> users;
};

Records read_document(const std::string& document) {
  TiXmlDocument xml;
  fuzz::parse(document, xml);
  Element* const root = xml.FirstChildElement("nas_conf_db");
  Records to;
  to.version = number(required(root, "version"));
  to.system = read_system(required(root, "system"));
  for (Element* lan : all(optional(root, "interfaces"), "lan")) {
    to.lan_ifs.push_back({optional_text(lan, "if"), optional_text(lan, "ipaddr"),
                          optional_text(lan, "netmask"), optional_text(lan, "rand_ip")});
  }
  for (Element* mount : all(optional(root, "mounts"), "mount")) {
    to.mounts.push_back({optional_text(mount, "device"), optional_text(mount, "fstype"),
                         text_or_empty(mount, "mountpoint"), text_or_empty(mount, "options")});
  }
  Element* const samba = optional(root, "samba");
  to.samba = {optional_text(samba, "netbiosname"), optional_text(samba, "workgroup"),
              optional_text(samba, "serverdesc"), optional_text(samba, "localmaster") == "yes"};
  for (Element* share : all(optional(root, "shares"), "share")) {
    to.shares.push_back(read_share(share));
  }
  for (Element* user : all(optional(optional(root, "access"), "users"), "user")) {
    to.users.push_back({text(required(user, "username")), number(required(user, "uid"))});
  }
  return to;
}

// ---- the library ----

Records records_of(const util::NASConfDB& db) {
  return {db.get_version(), db.get_system(), db.get_samba(), db.get_lan_ifs(),
          db.get_mounts(),  db.get_shares(), db.get_users()};
}

std::string printed(const Records& records) {
  std::ostringstream to;
  to << records.version << '\n' << records.system << '\n' << records.samba << '\n';
  for (const auto& lan : records.lan_ifs) to << lan << '\n';
  for (const auto& mount : records.mounts) to << mount << '\n';
  for (const auto& share : records.shares) to << share << int{share.location} << '\n';
  for (const auto& user : records.users) to << user << '\n';
  return to.str();
}

const char kRefused[] = "refused";

std::string expected_outcome(const std::string& document) try {
  return printed(read_document(document));
} catch (const Refused&) {
  return kRefused;
}

std::string outcome(const std::string& path) try {
  return printed(records_of(util::NASConfDB(path)));
} catch (const ticpp::Exception& e) {
  fuzz::require(*e.what() != '\0', "a refusal says why");
  return kRefused;
}

// The same with all traces, which go nowhere.
std::string traced_outcome(const std::string& path) {
  std::ostringstream traces;
  std::streambuf* const old = std::cout.rdbuf(traces.rdbuf());
  __g_util_NASConfDB_debug = 2;
  std::string text = outcome(path);
  __g_util_NASConfDB_debug = 0;
  std::cout.rdbuf(old);
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::TempDir dir;
  const std::string document(data, data + size);
  const std::string path = dir.file("nas_conf_db.xml");
  support::write_file(path, document);
  const std::string actual = outcome(path);
  fuzz::require_equal(actual, traced_outcome(path), "traces change nothing");
  const bool compared =
      fuzz::is_harmless(document) && !(actual == kRefused && fuzz::has_declaration(document));
  if (compared) fuzz::require_equal(expected_outcome(document), actual, "reading");
  return 0;
}
