// SPDX-License-Identifier: MIT
#include "service/recovery.h"

#include "service/internal/Descriptor.h"
#include "service/internal/concat.h"
#include "util/system_exception.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace service {
namespace {

std::string backup_of(const util::PropertyList& list) { return list.path() + "~"; }

// Returns false, and changes nothing, if the backup is missing or cannot be loaded.
bool load_backup(util::PropertyList& list) try {
  util::PropertyList backup(backup_of(list));
  if (!backup.exists()) return false;
  backup.load();
  list.getProperties() = std::move(backup.getProperties());
  return true;
} catch (const util::malformed_property_list&) {
  return false;
}

// Throws with the present errno if a system call has failed.
void check(int result) {
  if (result < 0) throw util::system_exception();
}

void sync(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  check(fsync(file.number()));
}

std::string folder_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  if (slash == std::string::npos) return ".";
  return file.substr(0, slash == 0 ? 1 : slash);
}

// The steps of restore(). Between the renaming of the old file and the linking of the backup,
// load() finds the backup.
void make_file(const std::string& backup, const std::string& file) {
  struct stat good = {};
  struct stat old = {};
  check(stat(backup.c_str(), &good));
  const bool existed = lstat(file.c_str(), &old) == 0;
  if (existed && old.st_ino == good.st_ino && old.st_dev == good.st_dev) return;
  sync(backup);  // save() leaves that to the system
  if (existed) check(rename(file.c_str(), (file + ".replaced").c_str()));
  check(link(backup.c_str(), file.c_str()));
  sync(folder_of(file));
}

}  // namespace

std::string reason_of(const util::malformed_property_list& failure) try {
  std::rethrow_if_nested(failure);
  return failure.what();
} catch (const std::exception& reason) {
  return concat({failure.what(), ": ", reason.what()});
}

Recovery recover(util::PropertyList& list) {
  const bool exists = list.exists();
  const int error = errno;
  try {
    if (!exists && !list.backup_exists()) return {Recovery::Source::none, ""};
    list.load();
    if (exists) return {Recovery::Source::file, ""};
    return {Recovery::Source::backup, concat({list.path(), ": ", strerror(error)})};
  } catch (const util::malformed_property_list& failure) {
    if (!exists || !load_backup(list)) throw;
    return {Recovery::Source::backup, reason_of(failure)};
  }
}

void restore(util::PropertyList& list) {
  util::PropertyList backup(backup_of(list));
  if (!backup.exists()) throw util::save_failed(list.path(), "there is no backup");
  backup.load();
  try {
    make_file(backup.path(), list.path());
  } catch (const util::system_exception& failure) {
    throw util::save_failed(list.path(), failure.what());
  }
  list.getProperties() = std::move(backup.getProperties());
}

}  // namespace service
