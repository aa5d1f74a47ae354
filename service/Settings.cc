// SPDX-License-Identifier: MIT
#include "service/Settings.h"

#include "service/FileLock.h"
#include "service/key_path.h"
#include "service/recovery.h"

#include <exception>
#include <utility>

namespace service {
namespace {

constexpr util::utime_t kPatience = 100;

}  // namespace

Settings::Settings(const std::string& file, util::logger* log) : list_(file), log_(log) {
  reload();
}

void Settings::reload() try {
  // Reading needs no lock, which could not be had on a full disk.
  if (recover(list_).source != Recovery::Source::backup) return;
  const FileLock lock(list_.path(), kPatience);
  restore_if_needed(list_);
} catch (const std::exception& failure) {
  UTIL_LOG(log_, util::WARNING, "%s; going on with the settings at hand", failure.what());
}

void Settings::change(const std::string& path, const util::Value& value) {
  const FileLock lock(list_.path(), kPatience);
  util::PropertyList changed(list_);
  restore_if_needed(changed);
  set(changed, path, value);
  changed.saveDurably();
  list_ = std::move(changed);
}

// With the lock held, so that nobody's new file is replaced. Before a save this is a must: it would
// make the broken file the backup.
void Settings::restore_if_needed(util::PropertyList& list) const {
  const Recovery found = recover(list);
  if (found.source != Recovery::Source::backup) return;
  UTIL_LOG(log_, util::WARNING, "%s; going on with the backup", found.reason.c_str());
  restore(list);
}

}  // namespace service
