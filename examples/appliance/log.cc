// SPDX-License-Identifier: MIT
#include "log.h"

#include "texts.h"

#include <service/LogFile.h>
#include <syslog.h>

#include <utility>

namespace appliance {

// Not the root logger: that one's publisher is the owner of standard error.
util::logger* log() { return util::logger::getLogger("nasd"); }

util::logger* alerts() { return log()->childLogger("alerts"); }

void open_log(const Options& options) {
  service::LogFileOptions files;
  files.rotate_above = 262144;
  files.old_files = 9;
  files.compress = true;
  log()->setUseParentPublisher(false);
  log()->setPublisher(new service::LogFile(options.log, files));
  enable_log(util::INFO, true);
  for (const util::category* each : options.enabled) enable_log(*each, true);

  openlog("nasd", LOG_PID, LOG_DAEMON);
  alerts()->setPublisher(new util::syslog_publisher);
}

// The bits of the levels are cumulative, so that switching DEBUG off would switch off the others.
void enable_log(const util::category& category, bool on) {
  on ? log()->enable(category) : log()->disable(category);
  for (const util::category* always : {&util::INFO, &SUMMARY}) log()->enable(*always);
}

void Attempt::operator()(const std::function<void()>& work) {
  std::string reason;
  try {
    work();
  } catch (const std::exception& failure) {
    reason = clean(failure.what());
  }
  if (reason == reason_) return;
  reason_ = reason;
  if (reason.empty()) {
    UTIL_LOG(log(), util::INFO, "no longer: %s", failing_.c_str());
  } else {
    UTIL_LOG(log(), util::WARNING, "%s: %s", failing_.c_str(), reason.c_str());
  }
}

}  // namespace appliance
