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

// A list has no entry with that name; what() is the name.
class UTIL_EXPORT unknown_key : public std::exception {
 public:
  unknown_key(const std::string& key);
  unknown_key(const char* key);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A list could not be written; what() is "<file>: <text>".
class UTIL_EXPORT save_failed : public std::exception {
 public:
  save_failed(const std::string& file, const char* text);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A file is not a property list, or a value cannot be represented in one; what() is "<file>:
// <text>". If load() throws it, the reason is nested in it: a ticpp::Exception whose text ends with
// row and column, which std::rethrow_if_nested() throws.
class UTIL_EXPORT malformed_property_list : public std::exception {
 public:
  malformed_property_list(const std::string& file, const char* text);

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// A map of named values and the file that it is loaded from and saved to. Next to the file are a
// backup, "<file>~", and a temporary, "<file>.tmp". No file stays open between calls.
//
// The file is an XML property list: elements dict, key, array, string, integer, real, true, false,
// date and data. Dates are written and read as local time, whatever their "Z" says. New code should
// call saveDurably(); problems() tells what save() would lose.
//
// Nothing is locked: processes that share a list must take turns changing it (service/FileLock.h).
class UTIL_EXPORT PropertyList {
 public:
  using value_struct = std::map<std::string, Value>;
  using value_array = std::vector<Value>;

  // How deeply values may be nested, the list itself included: one level less than the XML library
  // accepts, whose outermost element is "plist". Before C++17 a constexpr member would need a
  // definition.
  enum { kMaxDepth = 1023 };

  // An empty list; nothing is loaded yet.
  PropertyList(const std::string& path) : file(path) {}
  PropertyList(const char* path) : file(path) {}

  // Replaces the list with the content of the file, or of the backup if there is no file. If
  // neither exists, the list is left as it is. A file that stat() cannot reach, because its folder
  // may not be searched or the disk is failing, counts as missing. Throws malformed_property_list,
  // "<file>: load failed", if the file is not a readable XML property list; the list is then
  // unchanged.
  void load();

  // Makes the file the backup and writes a new file. The list is encoded first, before any file is
  // touched: a value that a property list cannot represent throws malformed_property_list, and
  // values nested deeper than kMaxDepth throw ticpp::Exception. After that, a failed system call
  // throws save_failed, "<file>: <the system's text>"; a failure to write the temporary, or a text
  // that ends inside a UTF-8 character, throws ticpp::Exception. Steps already taken are not
  // undone.
  //
  // A list with an empty or blank text, or with empty data, is saved but never loads again: check
  // problems() first. The declaration says "UTF8", which some XML readers refuse.
  //
  // The temporary stays, and from then on is a second name of the file. The next save makes it a
  // name of the backup too and overwrites it in place. So from the second save on, the backup has
  // the same content as the file, and while such a save writes, neither is complete: a full disk or
  // a killed process costs both. If only a backup exists, it is removed first, and load() finds
  // nothing until the last step. Nothing is synced: a power failure may cost both even seconds
  // later. saveDurably() has none of these problems.
  void save();

  // Writes the list so that load() reads it back equal. Whenever the process is killed, the power
  // fails or a system call fails, load() finds either the whole old list or the whole new one. Only
  // dates lose something: their milliseconds and, in an hour that occurs twice, which of the two it
  // was.
  //
  // The file is what save() would write if that reads back equal. Otherwise texts and data become
  // CDATA sections, and reals get as many digits as they need. A value that no form preserves is
  // refused before any file is touched: save_failed, "<file>: <path>: <reason>", for the first such
  // value.
  //
  // The new file is written and synced under a name of its own, "<file>.<process id>.<number>",
  // gets the mode and owner of the old one (of the backup if there is no file), and is renamed over
  // it; before that, the old file becomes the backup. save()'s temporary is removed: it may be
  // another name of the old file, and writing to it would change the backup. A symbolic link in
  // place of the file is treated as save() treats it: the link becomes the backup, and what it
  // points to stays as it is.
  //
  // A failed system call throws save_failed too, "<file>: <the system's text>", and leaves no
  // temporary file; one that a killed process has left is removed by the next durable save.
  void saveDurably();

  // The values that save() and load() would not preserve, each as "<path>: <reason>" in the order
  // of the list, with paths like "network/servers[2]/name". Empty if there are none.
  std::vector<std::string> problems() const;

  const std::string& path() const { return file; }
  bool exists() const;  // stat() succeeds
  bool backup_exists() const;

  // Prints the list to standard output: ("a" = 1, "b" = (x, true)).
  void dump() const;

  // The entry of that name. Throws unknown_key if there is none, type_exception if it is of another
  // kind. References stay valid as long as the entry.
  bool& boolForKey(const std::string& key) { return valueForKey(key); }
  int& intForKey(const std::string& key) { return valueForKey(key); }
  double& doubleForKey(const std::string& key) { return valueForKey(key); }
  byte_string& dataForKey(const std::string& key) { return valueForKey(key); }
  std::string& stringForKey(const std::string& key) { return valueForKey(key); }
  utime_t dateForKey(const std::string& key) const { return valueForKey(key); }
  Value& valueForKey(const std::string& key);
  const Value& valueForKey(const std::string& key) const;

  // Likewise, but if `create` is true, a missing entry is created empty.
  value_struct& mapForKey(const char* key, bool create) { return entry(key, create, STRUCT); }
  value_struct& mapForKey(const std::string& key, bool create) {
    return entry(key, create, STRUCT);
  }
  value_array& vectorForKey(const std::string& key, bool create) {
    return entry(key, create, ARRAY);
  }

  // Stores a copy, replacing any entry of that name.
  void setValueForKey(const std::string& key, const Value& value);

  // A missing entry is created as a VOID, which cannot be saved.
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
