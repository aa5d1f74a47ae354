// SPDX-License-Identifier: MIT
// Logs to standard error: a level, a category of its own, and a message that does not pass.
#include <util/logger.h>

static util::category DRIVES("DRIVES");

int main() {
  util::logger* const log = util::logger::rootLogger();
  log->enable(util::INFO);
  log->enable(DRIVES);

  UTIL_LOG(log, util::INFO, "%s is up", "the service");
  UTIL_LOG(log, DRIVES, "drive %d is spinning", 1);
  UTIL_LOG(log, util::DEBUG, "not to be seen: DEBUG is not enabled");

  // Passed or not, the last message tells where the program was.
  printf("last seen at %s\n", log->get_checkpoint().c_str());
}
