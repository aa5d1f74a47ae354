// SPDX-License-Identifier: MIT
// The settings of a daemon, which last whatever happens to their file:
//
//   service::Settings settings("/var/lib/nasd/settings.plist");
//   const service::Handle hangup = loop.on_signal(SIGHUP, [&] { settings.reload(); });
//   const int mtu = service::get(settings.list(), "network/mtu", 1500);
//   settings.change("network/mtu", 9000);
#pragma once

#include "util/PropertyList.h"
#include "util/Value.h"
#include "util/export.h"
#include "util/logger.h"

#include <string>

namespace service {

// Keeps a property list in memory and in its file. Joins what service/recovery.h,
// service/FileLock.h and service/key_path.h do one by one.
//
// Waits at most a tenth of a second for another process that is changing the file, so it may be
// called on the thread of a loop, but change() also waits until the disk has the new file.
class UTIL_EXPORT Settings {
 public:
  // Loads the file as reload() does. The logger is not owned.
  explicit Settings(const std::string& file, util::logger* log = util::logger::rootLogger());

  const util::PropertyList& list() const { return list_; }

  // Loads what the file holds now. If it is missing or broken, its backup is loaded and restored to
  // be the file again. If that cannot be loaded either, or if neither exists, the list stays as it
  // is. Never fails: what went wrong is logged as WARNING.
  void reload();

  // Stores one value in the file, durably, and in the list, which also takes over what others have
  // changed in the file meanwhile.
  //
  // Throws MalformedPath, PathMismatch, LockFailed, malformed_property_list if neither the file nor
  // its backup can be loaded, and what PropertyList::saveDurably() throws. The list is then as it
  // was.
  void change(const std::string& path, const util::Value& value);

 private:
  void restore_if_needed(util::PropertyList& list) const;

  util::PropertyList list_;
  util::logger* log_;
};

}  // namespace service
