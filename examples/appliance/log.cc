// SPDX-License-Identifier: MIT
#include "log.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace appliance {
namespace {

constexpr off_t kLogSize = 262144;
constexpr size_t kLogCount = 4;

struct Close {
  void operator()(FILE* file) const { fclose(file); }
};

// The publisher drops entries that it cannot write; a daemon should say so before it starts.
void require_writable(const std::string& file) {
  const std::unique_ptr<FILE, Close> opened(fopen(file.c_str(), "a"));
  if (!opened) throw std::runtime_error("cannot write " + file + ": " + strerror(errno));
}

}  // namespace

// Not the root logger: that one's publisher is the owner of standard error.
util::logger* log() { return util::logger::getLogger("nasd"); }

util::logger* alerts() { return log()->childLogger("alerts"); }

void open_log(const Options& options) {
  require_writable(options.log);
  log()->setUseParentPublisher(false);
  log()->setPublisher(new util::rolling_file_publisher(options.log.c_str(), kLogSize, kLogCount));
  log()->enable(util::INFO);
  log()->enable(SUMMARY);
  for (const util::category* each : options.enabled) log()->enable(*each);

  openlog("nasd", LOG_PID, LOG_DAEMON);
  alerts()->setPublisher(new util::syslog_publisher);
}

void close_log() { log()->setPublisher(nullptr); }

}  // namespace appliance
