// SPDX-License-Identifier: MIT
// The appliance's configuration: the records that hold it, their printers, and the reader of the
// document that it is kept in.
#pragma once

#include "util/export.h"

#include <exception>
#include <iosfwd>
#include <list>
#include <string>

// How much the reader tells about its work on standard output, one line each: 0 nothing, 1 the file
// that it reads, 2 every element that it looks for and the whole database when it is done, the
// passwords in it included.
extern UTIL_EXPORT int __g_util_NASConfDB_debug;

namespace util {

using ::__g_util_NASConfDB_debug;

// The 0 of each: the document does not say, or uses a word that is not known.
enum NASShareType : int { NoType, Public, Private };
enum NASShareStatus : int { NoStatus, Active, Suspended };
enum NASShareLocation : int { NoLocation, InternalShare, ExternalShare };
enum NASAccessType : int { None, ReadOnly, Full };

// The word of the document for an enumerator, "" for the 0 of each.
UTIL_EXPORT const char* word_of(NASShareType type);
UTIL_EXPORT const char* word_of(NASShareStatus status);
UTIL_EXPORT const char* word_of(NASShareLocation location);
UTIL_EXPORT const char* word_of(NASAccessType type);

// Asked where a share is whose location is not known.
class UTIL_EXPORT bad_location : public std::exception {
 public:
  const char* what() const noexcept override;
};

// The power settings of a hard disk, numbers as the document has them.
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
  std::string webgui_adminpasswd;  // as stored, empty for none
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

// Who the file-sharing server is in its network.
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

  // The folder that holds the share's files: its name below the base of its location. The name is
  // not looked at: one like "../x" leads out of there. Throws bad_location for NoLocation.
  UTIL_EXPORT std::string root_path() const;
};

struct NASUser {
  std::string name;
  int uid = -1;  // -1 for none
};

// Something in a document that is not as its author meant it.
struct NASFinding {
  bool fault;        // the reader refuses the document; otherwise it ignores what is there
  int row;           // where in the file, counted from 1
  int column;        // counted from 1
  std::string text;  // for a person, with parts of the document as they are
};

// The configuration as it was when the object was made. Lists are in document order.
class UTIL_EXPORT NASConfDB {
 public:
  // Reads the document at `path`. Throws ticpp::Exception where it cannot be read or parsed, where
  // a required element is missing, an element has no text, or a number is malformed; what() says
  // where in the document. Words that are not known are no error: they give the enumerator 0, or
  // false.
  NASConfDB(const std::string& path);

  // Everything that is wrong with the document at `path`, in its order: the constructor throws if
  // and only if there is a fault among the findings, or if this throws. Throws ticpp::Exception if
  // the file cannot be read or parsed.
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

// Print on one line, without an end of line: an enumerator as its name, a record as
// "user(name: guest; uid: 1001)". The stream's base and width have no influence, its flags stay as
// they are; a width that is set is used up. Strings are written as they are, passwords too.
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
