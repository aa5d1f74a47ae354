// SPDX-License-Identifier: MIT
// The appliance's configuration: the records that hold it, their printers, and the reader of the
// XML document that stores it.
#pragma once

#include "util/export.h"

#include <exception>
#include <iosfwd>
#include <list>
#include <string>

// What the reader traces to standard output, one item per line: 0 nothing, 1 the file that it
// reads, 2 also every element that it looks for and, at the end, the whole database with its
// passwords.
extern UTIL_EXPORT int __g_util_NASConfDB_debug;

namespace util {

using ::__g_util_NASConfDB_debug;

// The enumerator 0 of each means that the document does not say, or uses an unknown word.
enum NASShareType : int { NoType, Public, Private };
enum NASShareStatus : int { NoStatus, Active, Suspended };
enum NASShareLocation : int { NoLocation, InternalShare, ExternalShare };
enum NASAccessType : int { None, ReadOnly, Full };

// The document's word for an enumerator; "" for 0.
UTIL_EXPORT const char* word_of(NASShareType type);
UTIL_EXPORT const char* word_of(NASShareStatus status);
UTIL_EXPORT const char* word_of(NASShareLocation location);
UTIL_EXPORT const char* word_of(NASAccessType type);

// The folder of a share without a known location was asked for.
class UTIL_EXPORT bad_location : public std::exception {
 public:
  const char* what() const noexcept override;
};

// The power settings of a hard disk, with the numbers as they stand in the document.
struct NASDisk {
  std::string device;
  int inactivityperiod = 0;
  int lastselftest = 0;
};

struct NASSystem {
  std::string timeformat;
  std::string hostname;
  std::string domain;
  std::string language;
  bool dhcpenabled = false;
  std::string timezone;
  bool printenabled = false;
  std::string webgui_adminpasswd;  // as stored; empty if there is none
  std::string webgui_protocol;
  std::list<NASDisk> disks;
  std::string platform;
  std::string drives;
};

// The address settings of a wired interface.
struct NASLANInterface {
  std::string iface;  // its name
  std::string ipaddr;
  std::string netmask;
  std::string rand_ip;
};

struct NASMount {
  std::string device;
  std::string fstype;
  std::string mountpoint;
  std::string options;
};

// How the file-sharing server presents itself on its network.
struct NASSamba {
  std::string netbiosname;
  std::string workgroup;
  std::string serverdesc;
  bool localmaster = false;
};

// What a user may do with a share.
struct NASAccess {
  std::string username;
  NASAccessType accesstype = None;
};

struct NASShare {
  std::string name;
  NASShareType type = NoType;
  NASShareStatus status = NoStatus;
  NASShareLocation location = NoLocation;
  std::list<NASAccess> users;

  // The folder that holds the share's files: the base folder of its location, then its name. The
  // name is not checked: one like "../x" leads out of the base folder. Throws bad_location for
  // NoLocation.
  UTIL_EXPORT std::string root_path() const;
};

struct NASUser {
  std::string name;
  int uid = -1;  // -1 for none
};

// A probable mistake in a document.
struct NASFinding {
  bool fault;        // true: the reader refuses the document; false: it ignores this part
  int row;           // where in the file, counted from 1
  int column;        // counted from 1
  std::string text;  // for people; quotes the document verbatim
};

// The configuration as it was when the object was constructed. Lists are in document order.
class UTIL_EXPORT NASConfDB {
 public:
  // Reads the document at `path`. Throws ticpp::Exception if it cannot be read or parsed, a
  // required element is missing, an element has no text, or a number is malformed; what() says
  // where in the document. Unknown words are not errors: they give the enumerator 0, or false.
  NASConfDB(const std::string& path);

  // Everything that is wrong with the document at `path`, in document order. The constructor throws
  // if and only if one of the findings is a fault, or if this function throws. Throws
  // ticpp::Exception if the file cannot be read or parsed.
  static std::list<NASFinding> check(const std::string& path);

  int get_version() const { return version; }  // of the document's format
  const NASSystem& get_system() const { return system; }
  const NASSamba& get_samba() const { return samba; }
  const std::list<NASLANInterface>& get_lan_ifs() const { return lan_ifs; }
  const std::list<NASMount>& get_mounts() const { return mounts; }
  const std::list<NASShare>& get_shares() const { return shares; }
  const std::list<NASUser>& get_users() const { return users; }

 private:
  NASConfDB() = default;

  void parse(const std::string& path);
  void read(const std::string& path, std::list<NASFinding>* findings);

  int version = 0;
  NASSystem system;
  std::list<NASLANInterface> lan_ifs;
  std::list<NASMount> mounts;
  NASSamba samba;
  std::list<NASShare> shares;
  std::list<NASUser> users;
};

// Print on one line, without a line feed: an enumerator as its name, a record as "user(name: guest;
// uid: 1001)". The stream's base and width have no effect; its flags are left unchanged, and a
// width that was set is reset. Strings are written verbatim, passwords included.
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, NASShareType type);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, NASShareStatus status);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, NASShareLocation location);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, NASAccessType type);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASDisk& disk);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASSystem& system);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASLANInterface& lan);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASMount& mount);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASSamba& samba);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASAccess& access);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASShare& share);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASUser& user);
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, const NASConfDB& database);  // no mounts

}  // namespace util
