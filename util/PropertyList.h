// SPDX-License-Identifier: MIT
// Settings on disk: a map of values, kept in one XML file.
#pragma once

#include "util/Value.h"
#include "util/export.h"
#include "util/types.h"

#include <exception>
#include <map>
#include <string>
#include <vector>

namespace ticpp {
class Document;
class Element;
}  // namespace ticpp

namespace util {

// A list has no entry of that name; the text is the name.
class UTIL_EXPORT unknown_key : public std::exception {
 public:
  unknown_key(const std::string& key);
  unknown_key(const char* key);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A list could not be written; the text is "<file>: <text>".
class UTIL_EXPORT save_failed : public std::exception {
 public:
  save_failed(const std::string& file, const char* text);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A file is not a property list, or a value has no form in one; the text is "<file>: <text>". What
// load() throws nests the reason, a ticpp::Exception whose text ends with row and column:
// std::rethrow_if_nested() gives it.
class UTIL_EXPORT malformed_property_list : public std::exception {
 public:
  malformed_property_list(const std::string& file, const char* text);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A map of named values and the file that it is loaded from and saved to. Beside the file lie a
// backup, its name followed by "~", and a temporary, its name followed by ".tmp". No file is open
// between calls.
//
// The file is an XML property list: elements dict, key, array, string, integer, real, true, false,
// date and data. Dates are written and read as local time, whatever their "Z" says. saveDurably()
// is for all new code; problems() tells what save() would lose.
//
// Not locked: processes that share a list take turns in changing it (service/FileLock.h).
class UTIL_EXPORT PropertyList {
 public:
  using value_struct = std::map<std::string, Value>;
  using value_array = std::vector<Value>;

  // How many values a list may hold in one another, itself counted: the XML library reads 1,024
  // elements, one of them "plist". Before C++17 a constexpr member would need a definition.
  enum { kMaxDepth = 1023 };

  // An empty list; nothing is loaded.
  PropertyList(const std::string& path) : file(path) {}
  PropertyList(const char* path) : file(path) {}

  // Replaces the list by the content of the file, or of the backup where there is no file. Where
  // there is neither, nothing changes. What stat() cannot reach, in a folder that may not be
  // searched or on a failing disk, counts as missing. Throws malformed_property_list, "<file>: load
  // failed" for what is no readable XML property list; the list is as before then.
  void load();

  // Makes the file the backup and writes a new file. Encoding comes first: what has no form in a
  // property list throws malformed_property_list, values nested deeper than kMaxDepth throw
  // ticpp::Exception, and no file is touched. Afterwards a failed system call throws save_failed,
  // "<file>: <the system's text>", failed writing of the temporary ticpp::Exception, and so does a
  // text that ends inside a UTF-8 character; what was done before it stays done.
  //
  // A list with an empty or blank text, or with empty data, is saved and never loads again: ask
  // problems() first. The declaration says "UTF8", which some XML readers refuse.
  //
  // The temporary stays, and is from then on a second name of the file. The next save makes it a
  // name of the backup too and writes it in place. So the backup holds what the file holds from
  // the second save on, and while that one writes there is no complete file: a full disk or a
  // killed process costs both. A backup that is all there is goes first, so that until the last
  // step load() finds nothing. Nothing is synced: a power failure may cost both even seconds later.
  // saveDurably() has none of this.
  void save();

  // Writes the list so that load() finds it equal, and finds all of the old list or all of the new
  // one whenever the process is killed, the power fails or a system call does. Dates alone lose
  // something: their milliseconds, and in an hour that comes twice which one it was.
  //
  // The file is what save() writes if that comes back equal. Otherwise texts and data are CDATA
  // sections, and reals have as many digits as they need. What no form gives back is refused before
  // a file is touched: a save_failed, "<file>: <path>: <reason>", for the first such value.
  //
  // The new file is written and synced under a name of its own, "<file>.<process id>.<number>",
  // gets mode and owner of the old one (of the backup if there is no file), and is renamed over it;
  // before that the old file becomes the backup. save()'s temporary goes: it may be another name of
  // the old file, and writing to it would change the backup. A symbolic link in the file's place is
  // treated as save() treats it: the link becomes the backup, and what it points to stays as it is.
  //
  // A failed system call is a save_failed too, "<file>: <the system's text>", and leaves no file of
  // its own behind; what a killed process leaves is removed by the next durable save.
  void saveDurably();

  // What would not come back equal from save() and load(), each "<path>: <reason>" in the order of
  // the list, with paths like "network/servers[2]/name". Empty where all would.
  std::vector<std::string> problems() const;

  const std::string& path() const { return file; }
  bool exists() const;  // stat() succeeds
  bool backup_exists() const;

  // Prints the list to standard output: ("a" = 1, "b" = (x, true)).
  void dump() const;

  // The entry of that name: unknown_key where there is none, type_exception where it is of another
  // kind. References last as long as the entry.
  bool& boolForKey(const std::string& key) { return valueForKey(key); }
  int& intForKey(const std::string& key) { return valueForKey(key); }
  double& doubleForKey(const std::string& key) { return valueForKey(key); }
  byte_string& dataForKey(const std::string& key) { return valueForKey(key); }
  std::string& stringForKey(const std::string& key) { return valueForKey(key); }
  utime_t dateForKey(const std::string& key) const { return valueForKey(key); }
  Value& valueForKey(const std::string& key);
  const Value& valueForKey(const std::string& key) const;

  // Likewise; with `create` a missing entry is made, empty.
  value_struct& mapForKey(const char* key, bool create) { return entry(key, create, STRUCT); }
  value_struct& mapForKey(const std::string& key, bool create) {
    return entry(key, create, STRUCT);
  }
  value_array& vectorForKey(const std::string& key, bool create) {
    return entry(key, create, ARRAY);
  }

  // Stores a copy, in place of an old entry of that name.
  void setValueForKey(const std::string& key, const Value& value);

  // A missing entry is made, a VOID, which cannot be saved.
  Value& operator[](const std::string& key) { return properties[key]; }

  value_struct& getProperties() { return properties; }
  const value_struct& getProperties() const { return properties; }

 private:
  std::string backup() const { return file + "~"; }
  std::string temporary() const { return file + ".tmp"; }

  Value& entry(const std::string& key, bool create, Type type);

  void encode(ticpp::Document& document);
  ticpp::Element* encode_value(Value& v);  // the caller deletes it
  Value decode_value(ticpp::Element* e);

  value_struct properties;
  std::string file;
};

}  // namespace util
