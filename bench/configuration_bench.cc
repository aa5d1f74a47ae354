// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/NASConfDB.h"

#include <cstdlib>
#include <sstream>

#include <tinyxml.h>

namespace {

std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">\n";
}

std::string share(int number) {
  const std::string user = element("username", "user" + std::to_string(number % 7)) +
                           element("accesstype", number % 3 == 0 ? "readonly" : "full");
  return element(
      "share",
      element("sharename", "share " + std::to_string(number)) +
          element("sharetype", number % 2 == 0 ? "public" : "private") +
          element("sharestatus", "active") + element("sharelocation", "internal_share") +
          element("access", element("users", element("user", user) + element("user", user))));
}

std::string configuration(int number_of_shares) {
  std::string shares;
  for (int i = 0; i < number_of_shares; ++i) shares += share(i);
  std::string users;
  for (int i = 0; i < 7; ++i) {
    users += element("user", element("username", "user" + std::to_string(i)) +
                                 element("uid", std::to_string(1000 + i)));
  }
  const std::string disk = element("device", "sda") + element("inactivityperiod", "20") +
                           element("lastselftest", "1172757909");
  return element(
      "nas_conf_db",
      element("version", "3") +
          element("system", element("timeformat", "24h") + element("hostname", "nas") +
                                element("domain", "local") + element("language", "en") +
                                element("dhcpenabled", "true") + element("timezone", "UTC") +
                                element("printenabled", "false") +
                                element("webgui", element("adminpasswd", "secret") +
                                                      element("protocol", "tls")) +
                                element("hdparams", element("disk", disk)) +
                                element("platform", "p1") + element("drives", "1")) +
          element("interfaces",
                  element("lan", element("if", "eth0") + element("ipaddr", "192.168.0.2") +
                                     element("netmask", "255.255.255.0"))) +
          element("mounts",
                  element("mount", element("device", "/dev/sda1") + element("fstype", "ext3") +
                                       element("mountpoint", "/data") +
                                       element("options", "noatime"))) +
          element("samba", element("netbiosname", "NAS") + element("workgroup", "WORKGROUP") +
                               element("serverdesc", "files") + element("localmaster", "yes")) +
          element("shares", shares) + element("access", element("users", users)));
}

auto read_ours(const std::string& file) {
  return [file] { bench::keep(util::NASConfDB(file)); };
}

// ---- TinyXML alone: loaded, and walked over into the same records ----

const char* text(const TiXmlElement* parent, const char* name) {
  const TiXmlElement* const found = parent->FirstChildElement(name);
  return found == nullptr || found->GetText() == nullptr ? "" : found->GetText();
}

int number(const TiXmlElement* parent, const char* name) { return atoi(text(parent, name)); }

bool is(const TiXmlElement* parent, const char* name, const char* word) {
  return strcmp(text(parent, name), word) == 0;
}

template <class Enum>
Enum one_of(const TiXmlElement* parent, const char* name, const char* word, Enum value,
            const char* other, Enum other_value) {
  if (is(parent, name, word)) return value;
  return is(parent, name, other) ? other_value : Enum();
}

struct Walked {
  int version = 0;
  util::NASSystem system;
  std::list<util::NASLANInterface> lan_ifs;
  std::list<util::NASMount> mounts;
  util::NASSamba samba;
  std::list<util::NASShare> shares;
  std::list<util::NASUser> users;
};

void walk_system(const TiXmlElement* system, util::NASSystem& to) {
  to.timeformat = text(system, "timeformat");
  to.hostname = text(system, "hostname");
  to.domain = text(system, "domain");
  to.language = text(system, "language");
  to.dhcpenabled = is(system, "dhcpenabled", "true");
  to.timezone = text(system, "timezone");
  to.printenabled = is(system, "printenabled", "true");
  const TiXmlElement* const webgui = system->FirstChildElement("webgui");
  to.webgui_adminpasswd = text(webgui, "adminpasswd");
  to.webgui_protocol = text(webgui, "protocol");
  const TiXmlElement* const params = system->FirstChildElement("hdparams");
  for (const TiXmlElement* disk = params->FirstChildElement("disk"); disk != nullptr;
       disk = disk->NextSiblingElement("disk")) {
    to.disks.emplace_back();
    to.disks.back().device = text(disk, "device");
    to.disks.back().inactivityperiod = number(disk, "inactivityperiod");
    to.disks.back().lastselftest = number(disk, "lastselftest");
  }
  to.platform = text(system, "platform");
  to.drives = text(system, "drives");
}

void walk_share(const TiXmlElement* share, util::NASShare& to) {
  to.name = text(share, "sharename");
  to.type = one_of(share, "sharetype", "public", util::Public, "private", util::Private);
  to.status = one_of(share, "sharestatus", "active", util::Active, "suspended", util::Suspended);
  to.location = one_of(share, "sharelocation", "internal_share", util::InternalShare,
                       "external_share", util::ExternalShare);
  const TiXmlElement* const users = share->FirstChildElement("access")->FirstChildElement("users");
  for (const TiXmlElement* user = users->FirstChildElement("user"); user != nullptr;
       user = user->NextSiblingElement("user")) {
    to.users.emplace_back();
    to.users.back().username = text(user, "username");
    to.users.back().accesstype =
        one_of(user, "accesstype", "full", util::Full, "readonly", util::ReadOnly);
  }
}

Walked walk(const std::string& file) {
  TiXmlDocument document;
  bench::require(document.LoadFile(file), file);
  const TiXmlElement* const root = document.FirstChildElement("nas_conf_db");
  Walked to;
  to.version = number(root, "version");
  walk_system(root->FirstChildElement("system"), to.system);
  const TiXmlElement* const lans = root->FirstChildElement("interfaces");
  for (const TiXmlElement* lan = lans->FirstChildElement("lan"); lan != nullptr;
       lan = lan->NextSiblingElement("lan")) {
    to.lan_ifs.emplace_back();
    to.lan_ifs.back().iface = text(lan, "if");
    to.lan_ifs.back().ipaddr = text(lan, "ipaddr");
    to.lan_ifs.back().netmask = text(lan, "netmask");
    to.lan_ifs.back().rand_ip = text(lan, "rand_ip");
  }
  const TiXmlElement* const mounts = root->FirstChildElement("mounts");
  for (const TiXmlElement* mount = mounts->FirstChildElement("mount"); mount != nullptr;
       mount = mount->NextSiblingElement("mount")) {
    to.mounts.emplace_back();
    to.mounts.back().device = text(mount, "device");
    to.mounts.back().fstype = text(mount, "fstype");
    to.mounts.back().mountpoint = text(mount, "mountpoint");
    to.mounts.back().options = text(mount, "options");
  }
  const TiXmlElement* const samba = root->FirstChildElement("samba");
  to.samba.netbiosname = text(samba, "netbiosname");
  to.samba.workgroup = text(samba, "workgroup");
  to.samba.serverdesc = text(samba, "serverdesc");
  to.samba.localmaster = is(samba, "localmaster", "yes");
  const TiXmlElement* const shares = root->FirstChildElement("shares");
  for (const TiXmlElement* share = shares->FirstChildElement("share"); share != nullptr;
       share = share->NextSiblingElement("share")) {
    to.shares.emplace_back();
    walk_share(share, to.shares.back());
  }
  const TiXmlElement* const users = root->FirstChildElement("access")->FirstChildElement("users");
  for (const TiXmlElement* user = users->FirstChildElement("user"); user != nullptr;
       user = user->NextSiblingElement("user")) {
    to.users.emplace_back();
    to.users.back().name = text(user, "username");
    to.users.back().uid = number(user, "uid");
  }
  return to;
}

auto read_by_hand(const std::string& file) {
  return [file] { bench::keep(walk(file)); };
}

template <class Records>
std::string printed(const Records& records) {
  std::ostringstream text;
  for (const auto& record : records) text << record << "\n";
  return text.str();
}

void check(const std::string& file) {
  const util::NASConfDB ours(file);
  const Walked theirs = walk(file);
  std::ostringstream system;
  system << ours.get_system();
  std::ostringstream walked;
  walked << theirs.system;
  bench::require(system.str() == walked.str(), "system walked over");
  bench::require(printed(ours.get_shares()) == printed(theirs.shares), "shares walked over");
  bench::require(printed(ours.get_users()) == printed(theirs.users), "users walked over");
}

}  // namespace

void bench::add_cases() {
  for (const int shares : {5, 50, 500}) {
    const std::string file = scratch_file("conf-" + std::to_string(shares) + ".xml");
    write_file(file, configuration(shares));
    if (shares == 50) {
      const size_t size = configuration(shares).size();
      require(size > 18000 && size < 22000, "20 KB of configuration, not " + std::to_string(size));
      check(file);
    }
    const std::string work = "reading a configuration of " + std::to_string(shares) + " shares";
    add(work, "ours", [=] { return read_ours(file); });
    add(work, "TinyXML", [=] { return read_by_hand(file); });
  }
}
