// SPDX-License-Identifier: MIT
#include <util/logger.h>

// A category of this program's own, beside WARNING, INFO, DEBUG, MEMORY and TIMING.
static util::category NET("NET");

static void serve(int clients) {
  util::logger* log = util::logger::getLogger("net");  // the same object every time
  UTIL_LOG(log, util::INFO, "%d clients", clients);
  UTIL_LOG(log, NET, "first packet of the %s", "third");
  UTIL_LOG(log, util::DEBUG, "not enabled: neither written nor formatted");
}

int main() {
  util::logger* root = util::logger::rootLogger();
  root->setPublisher(new util::file_publisher(stdout));
  root->enable(util::INFO);

  // A part of the program with a logger of its own: it starts with what the root has enabled, and
  // writes into a file of at most some 64 KiB, with two old ones, and to the root's publisher.
  util::logger* log = util::logger::getLogger("net");
  log->setPublisher(new util::rolling_file_publisher("net.log", 64 << 10, 3));

  // From a command line or a settings file a category is switched on by name.
  if (const util::category* wanted = util::category::forName("NET")) log->enable(*wanted);

  serve(3);
  UTIL_LOG(root, util::WARNING, "stopping");
  log->flush();
}
