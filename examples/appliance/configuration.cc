// SPDX-License-Identifier: MIT
#include "configuration.h"

#include "files.h"
#include "log.h"
#include "texts.h"

#include <utility>

namespace appliance {

namespace {

util::NASConfDB read(const std::string& path) {
  refuse_special(path);
  return util::NASConfDB(path);
}

}  // namespace

Configuration::Configuration(std::string path) : path_(std::move(path)), database_(read(path_)) {
  log_summary();
}

void Configuration::reload() {
  try {
    database_ = read(path_);
    fault_.clear();
    log_summary();
  } catch (const std::exception& failure) {
    fault_ = clean(failure.what());
    UTIL_LOG(log(), util::WARNING, "%s: not in use: %s", path_.c_str(), fault_.c_str());
  }
}

void Configuration::log_summary() const {
  const util::NASSystem& system = database_.get_system();
  UTIL_LOG(log(), util::INFO,
           "%s: %s.%s, %zu disks, %zu interfaces, %zu mounts, %zu shares, %zu users", path_.c_str(),
           clean(system.hostname).c_str(), clean(system.domain).c_str(), system.disks.size(),
           database_.get_lan_ifs().size(), database_.get_mounts().size(),
           database_.get_shares().size(), database_.get_users().size());
}

}  // namespace appliance
