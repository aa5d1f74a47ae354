// SPDX-License-Identifier: MIT
// The appliance's daemon: watches the machine and its configuration, keeps their state for the
// status page and logs what happens.
#include "daemon.h"
#include "log.h"
#include "options.h"
#include "texts.h"

#include <cstdio>
#include <exception>

namespace {

int run(const appliance::Options& options) {
  appliance::open_log(options);
  try {
    appliance::Daemon(options).run();
    return 0;
  } catch (const std::exception& error) {
    UTIL_LOG(appliance::alerts(), util::WARNING, "cannot run: %s",
             appliance::clean(error.what()).c_str());
    throw;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const appliance::Options options = appliance::parse_options(argc, argv);
    if (!options.help) return run(options);
    fputs(appliance::kUsage, stdout);
    return 0;
  } catch (const appliance::bad_option& wrong) {
    fprintf(stderr, "nasd: %s; --help lists the options\n", wrong.what());
    return 2;
  } catch (const std::exception& error) {
    fprintf(stderr, "nasd: %s\n", error.what());
    return 1;
  }
}
