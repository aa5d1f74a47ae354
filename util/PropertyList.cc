// SPDX-License-Identifier: MIT
#include "util/PropertyList.h"

#include "util/internal/print_struct.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <utility>

#include <ticpp.h>

namespace util {
namespace {

bool is_there(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

unknown_key::unknown_key(const std::string& key) : msg(key) {}

unknown_key::unknown_key(const char* key) : msg(key) {}

const char* unknown_key::what() const noexcept { return msg.c_str(); }

save_failed::save_failed(const std::string& file, const char* text) : msg(file + ": " + text) {}

const char* save_failed::what() const noexcept { return msg.c_str(); }

malformed_property_list::malformed_property_list(const std::string& file, const char* text)
    : msg(file + ": " + text) {}

const char* malformed_property_list::what() const noexcept { return msg.c_str(); }

void PropertyList::load() {
  // Kept: a file that stat() cannot reach, for whatever reason, counts as missing.
  const bool file_exists = exists();
  if (!file_exists && !backup_exists()) return;
  try {
    ticpp::Document document;
    document.LoadFile(file_exists ? file : backup());
    Value list = decode_value(document.FirstChildElement("plist")->FirstChildElement("dict"));
    properties.swap(list);
  } catch (const ticpp::Exception&) {
    std::throw_with_nested(malformed_property_list(file, "load failed"));
  }
}

void PropertyList::save() {
  ticpp::Document document;
  encode(document);
  unlink(backup().c_str());
  const bool existed = exists();
  // Kept: failures name the file, whichever name the failing call was given.
  if (existed && link(file.c_str(), backup().c_str()) != 0)
    throw save_failed(file, strerror(errno));
  document.SaveFile(temporary());
  if (existed && unlink(file.c_str()) != 0) throw save_failed(file, strerror(errno));
  if (link(temporary().c_str(), file.c_str()) != 0) throw save_failed(file, strerror(errno));
  // Kept: the temporary stays, as a second name of the file and, from the next save on, of the
  // backup; each save overwrites it in place. Boards in the field look for it.
}

bool PropertyList::exists() const { return is_there(file); }

bool PropertyList::backup_exists() const { return is_there(backup()); }

void PropertyList::dump() const {
  static const std::ios_base::Init streams;  // a static object may be built before them
  print_struct(std::cout, properties);
  std::cout << std::endl;
}

Value& PropertyList::valueForKey(const std::string& key) { return entry(key, false, VOID); }

const Value& PropertyList::valueForKey(const std::string& key) const {
  const auto found = properties.find(key);
  if (found == properties.end()) throw unknown_key(key);
  return found->second;
}

void PropertyList::setValueForKey(const std::string& key, const Value& value) {
  Value copy(value);  // first: `value` may be a part of what it replaces
  properties[key] = std::move(copy);
}

Value& PropertyList::entry(const std::string& key, bool create, Type type) {
  const auto found = properties.find(key);
  if (found != properties.end()) return found->second;
  if (!create) throw unknown_key(key);
  Value& made = properties[key];
  made.set_type(type);
  return made;
}

}  // namespace util
