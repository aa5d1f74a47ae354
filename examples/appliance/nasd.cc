// SPDX-License-Identifier: MIT
// The appliance's daemon: watches load, memory, network and free space and logs them.
#include "daemon.h"
#include "log.h"
#include "options.h"

#include <csignal>
#include <cstdio>
#include <exception>

namespace {

volatile std::sig_atomic_t caught = 0;

void watch_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int signal) { caught = signal; };
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

int run(int argc, char** argv) {
  const nasd::Options options = nasd::parse_options(argc, argv);
  if (options.help) {
    fputs(nasd::kUsage, stdout);
    return 0;
  }
  watch_signals();
  nasd::open_log(options);
  nasd::Daemon(options).run(caught);
  nasd::close_log();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const nasd::bad_option& wrong) {
    fprintf(stderr, "nasd: %s; --help lists the options\n", wrong.what());
    return 2;
  } catch (const std::exception& error) {
    fprintf(stderr, "nasd: %s\n", error.what());
    return 1;
  }
}
