// SPDX-License-Identifier: MIT
#include <service/LogFile.h>
#include <service/categories.h>
#include <service/publishers.h>

// A category of this program's own, beside WARNING, INFO, DEBUG, MEMORY and TIMING.
static util::category NET("NET");

static void serve(int clients) {
  util::logger* log = util::logger::getLogger("net");  // the same object every time
  UTIL_LOG(log, util::INFO, "%d clients", clients);
  UTIL_LOG(log, NET, "first packet of the %s", "third");
  UTIL_LOG(log, util::DEBUG, "not enabled: neither written nor formatted");
}

int main() {
  // A file of at most 64 KiB and two old ones; each entry is in it when the logging call returns.
  service::LogFileOptions options;
  options.rotate_above = 64 << 10;
  options.old_files = 2;
  const auto file = std::make_shared<service::LogFile>("nasd.log", options);

  // The newest entries for a page, control bytes made visible in both, and the file.
  const auto recent = std::make_shared<service::RecentEntries>(100);
  util::logger* root = util::logger::rootLogger();
  root->setPublisher(new service::VisibleText(std::make_shared<service::Tee>(file, recent)));
  root->enable(util::INFO);

  // A part of the program with a logger of its own: it starts with what the root has enabled, and
  // hands on to the root's publisher.
  util::logger* log = util::logger::getLogger("net");

  // From a command line or a control socket: all of the names, or none of them and what is wrong.
  std::string unknown;
  if (!service::apply_categories(*log, "NET, -DEBUG, DISK", &unknown)) {
    UTIL_LOG(root, util::WARNING, "unknown categories: %s", unknown.c_str());
  }
  service::apply_categories(*log, "NET, -DEBUG", &unknown);
  printf("%s\n", service::list_categories(*log).c_str());

  serve(3);
  UTIL_LOG(root, util::WARNING, "stopping\a");
  for (const service::LogMessage& entry : recent->entries()) {
    printf("%s: %s\n", entry.category.c_str(), entry.message.c_str());
  }
}
