// SPDX-License-Identifier: MIT
// The appliance's daemon: watches the machine and its configuration, keeps their state for the
// status page and logs what happens.
#include "daemon.h"
#include "log.h"
#include "options.h"

#include <csignal>
#include <cstdio>
#include <exception>

namespace {

volatile std::sig_atomic_t ending = 0;     // the number of the signal that asked for it
volatile std::sig_atomic_t reloading = 0;  // whether the configuration is to be read again

void watch_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int signal) { ending = signal; };
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  action.sa_handler = [](int) { reloading = 1; };
  sigaction(SIGHUP, &action, nullptr);
}

int run(int argc, char** argv) {
  const appliance::Options options = appliance::parse_options(argc, argv);
  if (options.help) {
    fputs(appliance::kUsage, stdout);
    return 0;
  }
  watch_signals();
  appliance::open_log(options);
  appliance::Daemon(options).run(ending, reloading);
  appliance::close_log();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const appliance::bad_option& wrong) {
    fprintf(stderr, "nasd: %s; --help lists the options\n", wrong.what());
    return 2;
  } catch (const std::exception& error) {
    fprintf(stderr, "nasd: %s\n", error.what());
    return 1;
  }
}
