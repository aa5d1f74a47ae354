// SPDX-License-Identifier: MIT
#include "util/NASConfDB.h"

#include "settings.h"

#include <cstring>
#include <initializer_list>
#include <iostream>
#include <utility>

#include <ticpp.h>

int __g_util_NASConfDB_debug = 0;

namespace util {

namespace {

// ---- printing ----

// The stream without a width, which would pad the first text.
std::ostream& plain(std::ostream& os) {
  os.width(0);
  return os;
}

const char* name_of(int enumerator, std::initializer_list<const char*> names) {
  const auto index = static_cast<size_t>(enumerator);
  return index < names.size() ? names.begin()[index] : "";
}

const char* truth(bool value) { return value ? "true" : "false"; }

template <class T>
struct Joined {
  const std::list<T>& items;
};

template <class T>
Joined<T> joined(const std::list<T>& items) {
  return {items};
}

template <class T>
std::ostream& operator<<(std::ostream& os, const Joined<T>& list) {
  const char* separator = "";
  for (const T& item : list.items) {
    os << separator << item;
    separator = ", ";
  }
  return os;
}

// ---- tracing ----

bool traces(int level) { return __g_util_NASConfDB_debug >= level; }

// Begins a line of the trace. The path and the records go to the stream as they are, never through
// a format.
std::ostream& trace(int line = __builtin_LINE()) {
  return plain(std::cout) << "void util::NASConfDB::parse(const std::string&)("
                          << std::to_string(line) << "): ";
}

const ticpp::Element* traced(const char* label, int line, const ticpp::Element* element) {
  if (traces(2)) {  // Kept: nothing separates a message from its value, here and below.
    trace(line) << "read " << label << " element" << static_cast<const void*>(element) << std::endl;
  }
  return element;
}

// ---- reading ----

// An element of the document, or none: on none every call does nothing.
//
// A label is the path that the trace shows; its last word is the element's name. The line in the
// trace is the caller's.
class Node {
 public:
  explicit Node(const ticpp::Element* element) : element_(element) {}

  Node required(const char* label, int line = __builtin_LINE()) const {
    return child(label, true, line);
  }

  Node optional(const char* label, int line = __builtin_LINE()) const {
    return child(label, false, line);
  }

  // Appends a record for each child, when it is complete.
  template <class Record>
  void each(const char* label, std::list<Record>& to, void (*read)(Node, Record&),
            int line = __builtin_LINE()) const {
    for (Node item = optional(label, line); item.element_; item = item.next(label, line)) {
      Record record;
      read(item, record);
      to.push_back(std::move(record));
    }
  }

  void text(std::string& to) const {
    if (element_) to = element_->GetText(true);
  }

  void text_or_empty(std::string& to) const {
    if (element_) to = element_->GetTextOrDefault("");
  }

  void number(int& to) const {
    if (element_) element_->GetText(&to, true);
  }

  void is(const char* word, bool& to) const {
    if (element_) to = element_->GetText(true) == word;
  }

  template <class Enum>
  void one_of(const char* word, Enum value, const char* other, Enum other_value, Enum& to) const {
    if (element_ == nullptr) return;
    const std::string text = element_->GetText(true);
    if (text == word) to = value;
    if (text == other) to = other_value;
  }

 private:
  static const char* name(const char* label) {
    const char* const dot = strrchr(label, '.');
    return dot == nullptr ? label : dot + 1;
  }

  Node child(const char* label, bool must_exist, int line) const {
    if (element_ == nullptr) return *this;
    return Node(traced(label, line, element_->FirstChildElement(name(label), must_exist)));
  }

  Node next(const char* label, int line) const {
    return Node(traced(label, line, element_->NextSiblingElement(name(label), false)));
  }

  const ticpp::Element* element_;
};

void read_disk(Node disk, NASDisk& to) {
  disk.required("system.disk.device").text(to.device);
  disk.required("system.disk.inactivityperiod").number(to.inactivityperiod);
  disk.required("system.disk.lastselftest").number(to.lastselftest);
}

void read_system(Node system, NASSystem& to) {
  system.optional("system.timeformat").text(to.timeformat);
  system.optional("system.hostname").text(to.hostname);
  system.optional("system.domain").text(to.domain);
  system.optional("system.language").text(to.language);
  system.optional("system.dhcpenabled").is("true", to.dhcpenabled);
  system.optional("system.timezone").text(to.timezone);
  system.optional("system.printenabled").is("true", to.printenabled);
  const Node webgui = system.optional("system.webgui");
  webgui.optional("system.webgui.adminpasswd").text_or_empty(to.webgui_adminpasswd);
  webgui.optional("system.webgui.protocol").text(to.webgui_protocol);
  system.optional("system.hdparams").each("system.disk", to.disks, read_disk);
  system.optional("system.platform").text(to.platform);
  system.optional("system.drives").text(to.drives);
}

void read_lan(Node lan, NASLANInterface& to) {
  lan.optional("interfaces.lan.if").text(to.iface);
  lan.optional("interfaces.lan.ipaddr").text(to.ipaddr);
  lan.optional("interfaces.lan.netmask").text(to.netmask);
  lan.optional("interfaces.lan.rand_ip").text(to.rand_ip);
}

void read_mount(Node mount, NASMount& to) {
  mount.optional("mounts.mount.device").text(to.device);
  mount.optional("mounts.mount.fstype").text(to.fstype);
  mount.optional("mounts.mount.mountpoint").text_or_empty(to.mountpoint);
  mount.optional("mounts.mount.options").text_or_empty(to.options);
}

void read_samba(Node samba, NASSamba& to) {
  samba.optional("samba.netbiosname").text(to.netbiosname);
  samba.optional("samba.workgroup").text(to.workgroup);
  samba.optional("samba.serverdesc").text(to.serverdesc);
  samba.optional("samba.localmaster").is("yes", to.localmaster);  // Kept: not "true", as elsewhere.
}

void read_access(Node user, NASAccess& to) {
  user.required("shares.share.access.users.user.username").text(to.username);
  const Node accesstype = user.required("shares.share.access.users.user.accesstype");
  accesstype.one_of("full", Full, "readonly", ReadOnly, to.accesstype);
}

void read_share(Node share, NASShare& to) {
  share.optional("shares.share.sharename").text(to.name);
  const Node type = share.optional("shares.share.sharetype");
  type.one_of("public", Public, "private", Private, to.type);
  const Node status = share.optional("shares.share.sharestatus");
  status.one_of("active", Active, "suspended", Suspended, to.status);
  const Node location = share.optional("shares.share.sharelocation");
  location.one_of("internal_share", InternalShare, "external_share", ExternalShare, to.location);
  const Node access = share.optional("shares.share.access");
  // Kept: two labels without the "access" that the elements are in.
  access.optional("shares.share.users").each("shares.share.users.user", to.users, read_access);
}

void read_user(Node user, NASUser& to) {
  user.required("access.users.user.username").text(to.name);
  user.required("access.users.user.uid").number(to.uid);
}

}  // namespace

const char* bad_location::what() const noexcept { return "can't determine share location"; }

std::string NASShare::root_path() const {
  switch (location) {
    case InternalShare: return std::string(kInternalShareRoot) + "/" + name;
    case ExternalShare: return std::string(kExternalShareRoot) + "/" + name;
    case NoLocation: break;
  }
  throw bad_location();
}

NASConfDB::NASConfDB(const std::string& path) { parse(path); }

void NASConfDB::parse(const std::string& path) {
  if (traces(1)) trace() << "reading " << path << std::endl;
  ticpp::Document document;
  document.LoadFile(path);
  const ticpp::Element* const root = document.FirstChildElement("nas_conf_db");
  root->FirstChildElement("version")->GetText(&version, true);
  if (traces(2)) trace() << "read version" << std::to_string(version) << std::endl;
  const Node top(root);
  read_system(top.required("system"), system);
  top.optional("interfaces").each("interfaces.lan", lan_ifs, read_lan);
  top.optional("mounts").each("mounts.mount", mounts, read_mount);
  read_samba(top.optional("samba"), samba);
  top.optional("shares").each("shares.share", shares, read_share);
  top.optional("access").optional("access.users").each("access.users.user", users, read_user);
  if (traces(2)) trace() << "parsed" << *this << std::endl;
}

std::ostream& operator<<(std::ostream& os, NASShareType type) {
  return plain(os) << name_of(type, {"", "Public", "Private"});
}

std::ostream& operator<<(std::ostream& os, NASShareStatus status) {
  return plain(os) << name_of(status, {"", "Active", "Suspended"});
}

std::ostream& operator<<(std::ostream& os, NASShareLocation location) {
  return plain(os) << name_of(location, {"", "InternalShare"});  // Kept: no name for ExternalShare.
}

std::ostream& operator<<(std::ostream& os, NASAccessType type) {
  return plain(os) << name_of(type, {"None", "ReadOnly", "Full"});
}

std::ostream& operator<<(std::ostream& os, const NASDisk& disk) {
  // Kept: nothing separates the device from what follows it.
  return plain(os) << "disk(device: " << disk.device
                   << "inactivityperiod: " << std::to_string(disk.inactivityperiod)
                   << "; lastselftest: " << std::to_string(disk.lastselftest) << ")";
}

std::ostream& operator<<(std::ostream& os, const NASSystem& system) {
  return plain(os) << "system(timeformat: " << system.timeformat
                   << "; hostname: " << system.hostname << "; domain: " << system.domain
                   << "; language: " << system.language
                   << "; dhcpenabled: " << truth(system.dhcpenabled)
                   << "; timezone: " << system.timezone
                   << "; printenabeld: " << truth(system.printenabled)  // Kept: the spelling.
                   << "; webgui(adminpasswd: " << system.webgui_adminpasswd
                   << "; protocol: " << system.webgui_protocol << "); disks: ("
                   << joined(system.disks) << "); platform: " << system.platform
                   << "; drives: " << system.drives << ")";
}

std::ostream& operator<<(std::ostream& os, const NASLANInterface& lan) {
  return plain(os) << "lan(if: " << lan.iface << "; ipaddr: " << lan.ipaddr
                   << "; netmask: " << lan.netmask << "; rand_ip: " << lan.rand_ip << ")";
}

std::ostream& operator<<(std::ostream& os, const NASMount& mount) {
  return plain(os) << "mount(device: " << mount.device << "; fstype: " << mount.fstype
                   << "; mountpoint: " << mount.mountpoint << "; options: " << mount.options << ")";
}

std::ostream& operator<<(std::ostream& os, const NASSamba& samba) {
  return plain(os) << "samba(netbiosname: " << samba.netbiosname
                   << "; workgroup: " << samba.workgroup << "; serverdesc: " << samba.serverdesc
                   << "; localmaster: " << truth(samba.localmaster) << ")";
}

std::ostream& operator<<(std::ostream& os, const NASAccess& access) {
  return plain(os) << "access(username: " << access.username
                   << "; accesstype: " << access.accesstype << ")";
}

std::ostream& operator<<(std::ostream& os, const NASShare& share) {
  return plain(os) << "share(name: " << share.name << "; type: " << share.type
                   << "; status: " << share.status << "; location: " << share.location
                   << "; users: (" << joined(share.users) << "))";
}

std::ostream& operator<<(std::ostream& os, const NASUser& user) {
  return plain(os) << "user(name: " << user.name << "; uid: " << std::to_string(user.uid) << ")";
}

std::ostream& operator<<(std::ostream& os, const NASConfDB& database) {
  // Kept: no mounts.
  return plain(os) << "nas_conf_db(version: " << std::to_string(database.get_version()) << "; "
                   << database.get_system() << "; interfaces: (" << joined(database.get_lan_ifs())
                   << "); " << database.get_samba() << "; shares: ("
                   << joined(database.get_shares()) << "); users: (" << joined(database.get_users())
                   << "))";
}

}  // namespace util
