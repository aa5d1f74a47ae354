// SPDX-License-Identifier: MIT
#include "util/NASConfDB.h"

#include "settings.h"

#include <cstring>
#include <initializer_list>
#include <iostream>
#include <map>
#include <string_view>
#include <tuple>
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

// Begins a line of the trace. The path and the records are written to the stream as they are, never
// used as a format.
std::ostream& trace(int line = __builtin_LINE()) {
  static const std::ios_base::Init streams;  // a static object may be built before them
  return plain(std::cout) << "void util::NASConfDB::parse(const std::string&)("
                          << std::to_string(line) << "): ";
}

const ticpp::Element* traced(const char* label, int line, const ticpp::Element* element) {
  if (line > 0 && traces(2)) {  // Kept: nothing separates a message from its value, here and below.
    trace(line) << "read " << label << " element" << static_cast<const void*>(element) << std::endl;
  }
  return element;
}

// ---- checking ----

// The parts in order; a chain of operators would be much more code.
std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

// Whether nothing but blanks follows the number that the text starts with.
bool is_all_number(const std::string& text) {
  constexpr const char* kDigits = "0123456789";
  const size_t end = text.find_first_not_of(kDigits, text.find_first_of(kDigits));
  return text.find_first_not_of(" \t\n\v\f\r", end) == text.npos;
}

// Collects what is wrong with a document while its rows are read.
class Check {
 public:
  void fault(const ticpp::Node& at, std::initializer_list<std::string_view> parts) {
    findings_.push_back({true, at.Row(), at.Column(), joined(parts)});
  }

  // A row asked for this element.
  void found(const ticpp::Element& element) { holds_text_[&element] = false; }

  // A row reads its text. Returns whether there is one.
  bool has_text(const ticpp::Element& element, bool must_exist) {
    holds_text_[&element] = true;
    try {
      element.GetText(must_exist);
      return true;
    } catch (const ticpp::Exception&) {
      fault(element, {"<", element.Value(), "> has no text at its start"});
      return false;
    }
  }

  void number(const ticpp::Element& element) {
    const std::string text = element.GetText(true);
    const std::string name = element.Value();
    int number = 0;
    try {
      element.GetText(&number, true);
    } catch (const ticpp::Exception&) {
      return fault(element, {"<", name, ">: \"", text, "\" is not a number, or is out of range"});
    }
    if (is_all_number(text)) return;
    ignored(element, {"what follows the number in <", name, ">: \"", text, "\" is read as ",
                      std::to_string(number)});
  }

  void word(const ticpp::Element& element, const char* word, const char* other) {
    const std::string text = element.GetText(true);
    if (text == word || text == other) return;
    ignored(element, {"<", element.Value(), ">: \"", text, "\" is neither \"", word, "\" nor \"",
                      other, "\""});
  }

  // All findings, once the rows are read, including the elements that no row asked for.
  std::list<NASFinding> findings(const ticpp::Document& document) {
    ignore_rest(document);
    findings_.sort([](const NASFinding& one, const NASFinding& other) {
      return std::tie(one.row, one.column, one.fault) <
             std::tie(other.row, other.column, other.fault);
    });
    return std::move(findings_);
  }

 private:
  void ignored(const ticpp::Node& at, std::initializer_list<std::string_view> parts) {
    findings_.push_back({false, at.Row(), at.Column(), "ignored: " + joined(parts)});
  }

  void ignore_rest(const ticpp::Node& parent) {
    for (const ticpp::Element* element = parent.FirstChildElement(false); element != nullptr;
         element = element->NextSiblingElement(false)) {
      const std::string name = element->Value();
      const auto read = holds_text_.find(element);
      if (read != holds_text_.end()) {
        const bool text_is_read = read->second;
        if (!text_is_read && !element->GetText(false).empty())
          ignored(*element, {"the text in <", name, ">"});
        ignore_rest(*element);
      } else if (holds_text_.count(parent.FirstChildElement(name)) != 0) {
        ignored(*element, {"another <", name, ">, only the first is read"});
      } else {
        ignored(*element, {"<", name, "> is not known here"});
      }
    }
  }

  std::list<NASFinding> findings_;
  std::map<const ticpp::Element*, bool> holds_text_;  // those that a row asked for
};

// ---- reading ----

// The words of the document, by enumerator.
using Words = std::initializer_list<const char*>;
constexpr Words kShareTypes = {"", "public", "private"};
constexpr Words kShareStates = {"", "active", "suspended"};
constexpr Words kShareLocations = {"", "internal_share", "external_share"};
constexpr Words kAccessTypes = {"", "readonly", "full"};

// An element of the document, or none; then every call does nothing.
//
// A label is the path that the trace shows; its last word is the element's name. The line in the
// trace is the caller's; 0 is no trace. With a check, faults are findings, not exceptions.
class Node {
 public:
  Node(const ticpp::Element* element, Check* check) : element_(element), check_(check) {
    if (element_ != nullptr && check_ != nullptr) check_->found(*element_);
  }

  Node required(const char* label, int line = __builtin_LINE()) const {
    return child(label, true, line);
  }

  Node optional(const char* label, int line = __builtin_LINE()) const {
    return child(label, false, line);
  }

  // Appends a record for each child once the record is complete.
  template <class Record>
  void each(const char* label, std::list<Record>& to, void (*read)(Node, Record&),
            int line = __builtin_LINE()) const {
    for (Node item = optional(label, line); item.element_; item = item.next(label, line)) {
      std::list<Record> one(1);
      read(item, one.back());
      to.splice(to.end(), one);
    }
  }

  void text(std::string& to) const {
    if (has_text(true)) to = element_->GetText(true);
  }

  void text_or_empty(std::string& to) const {
    if (has_text(false)) to = element_->GetTextOrDefault("");
  }

  void number(int& to) const {
    if (!has_text(true)) return;
    if (check_ != nullptr) return check_->number(*element_);
    element_->GetText(&to, true);
  }

  // True for `word`, false for any other text; `other` is the document's word for false.
  void is(const char* word, const char* other, bool& to) const {
    if (!has_text(true)) return;
    if (check_ != nullptr) check_->word(*element_, word, other);
    to = element_->GetText(true) == word;
  }

  template <class Enum>
  void one_of(Words words, Enum& to) const {
    to = static_cast<Enum>(word(words, to));
  }

 private:
  static const char* name(const char* label) {
    const char* const dot = strrchr(label, '.');
    return dot == nullptr ? label : dot + 1;
  }

  // Which of the words the text is; `otherwise` if it is none or there is no text.
  int word(Words words, int otherwise) const {
    if (!has_text(true)) return otherwise;
    if (check_ != nullptr) check_->word(*element_, name_of(1, words), name_of(2, words));
    const std::string text = element_->GetText(true);
    for (const int value : {1, 2}) {
      if (text == name_of(value, words)) return value;
    }
    return otherwise;
  }

  // Without a check, GetText() throws.
  bool has_text(bool must_exist) const {
    if (element_ == nullptr) return false;
    return check_ == nullptr || check_->has_text(*element_, must_exist);
  }

  Node child(const char* label, bool must_exist, int line) const {
    if (element_ == nullptr) return *this;
    const bool throws = must_exist && check_ == nullptr;
    const ticpp::Element* const child = element_->FirstChildElement(name(label), throws);
    if (must_exist && child == nullptr && check_ != nullptr) {
      check_->fault(*element_, {"<", name(label), "> is missing in <", element_->Value(), ">"});
    }
    return Node(traced(label, line, child), check_);
  }

  Node next(const char* label, int line) const {
    return Node(traced(label, line, element_->NextSiblingElement(name(label), false)), check_);
  }

  const ticpp::Element* element_;
  Check* check_;
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
  system.optional("system.dhcpenabled").is("true", "false", to.dhcpenabled);
  system.optional("system.timezone").text(to.timezone);
  system.optional("system.printenabled").is("true", "false", to.printenabled);
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
  samba.optional("samba.localmaster").is("yes", "no", to.localmaster);  // Kept: not "true".
}

void read_access(Node user, NASAccess& to) {
  user.required("shares.share.access.users.user.username").text(to.username);
  user.required("shares.share.access.users.user.accesstype").one_of(kAccessTypes, to.accesstype);
}

void read_share(Node share, NASShare& to) {
  share.optional("shares.share.sharename").text(to.name);
  share.optional("shares.share.sharetype").one_of(kShareTypes, to.type);
  share.optional("shares.share.sharestatus").one_of(kShareStates, to.status);
  share.optional("shares.share.sharelocation").one_of(kShareLocations, to.location);
  const Node access = share.optional("shares.share.access");
  // Kept: two labels without the "access" that the elements are in.
  access.optional("shares.share.users").each("shares.share.users.user", to.users, read_access);
}

void read_user(Node user, NASUser& to) {
  user.required("access.users.user.username").text(to.name);
  user.required("access.users.user.uid").number(to.uid);
}

}  // namespace

const char* word_of(NASShareType type) { return name_of(type, kShareTypes); }
const char* word_of(NASShareStatus status) { return name_of(status, kShareStates); }
const char* word_of(NASShareLocation location) { return name_of(location, kShareLocations); }
const char* word_of(NASAccessType type) { return name_of(type, kAccessTypes); }

const char* bad_location::what() const noexcept { return "can't determine share location"; }

// Kept: the name is not checked, not even for "." and "..".
std::string NASShare::root_path() const {
  switch (location) {
    case InternalShare: return std::string(kInternalShareRoot) + "/" + name;
    case ExternalShare: return std::string(kExternalShareRoot) + "/" + name;
    case NoLocation: break;
  }
  throw bad_location();
}

NASConfDB::NASConfDB(const std::string& path) : NASConfDB() { parse(path); }

std::list<NASFinding> NASConfDB::check(const std::string& path) {
  std::list<NASFinding> findings;
  NASConfDB().read(path, &findings);
  return findings;
}

void NASConfDB::parse(const std::string& path) {
  if (traces(1)) trace() << "reading " << path << std::endl;
  read(path, nullptr);
  if (traces(2)) trace() << "parsed" << *this << std::endl;
}

// If findings are wanted, a fault in the document does not throw.
void NASConfDB::read(const std::string& path, std::list<NASFinding>* findings) {
  ticpp::Document document;
  document.LoadFile(path);
  Check check;
  const ticpp::Element* root = document.FirstChildElement("nas_conf_db", findings == nullptr);
  if (root == nullptr) check.fault(document, {"<nas_conf_db> is missing"});
  const Node top(root, findings == nullptr ? nullptr : &check);
  top.required("version", 0).number(version);
  if (traces(2)) trace() << "read version" << std::to_string(version) << std::endl;
  read_system(top.required("system"), system);
  top.optional("interfaces").each("interfaces.lan", lan_ifs, read_lan);
  top.optional("mounts").each("mounts.mount", mounts, read_mount);
  read_samba(top.optional("samba"), samba);
  top.optional("shares").each("shares.share", shares, read_share);
  top.optional("access").optional("access.users").each("access.users.user", users, read_user);
  if (findings != nullptr) *findings = check.findings(document);
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
