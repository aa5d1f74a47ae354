// SPDX-License-Identifier: MIT
#include "daemon.h"

#include "log.h"

namespace appliance {
namespace {

// Comes again after each run: an event is run once, its copy is another one.
class Summary : public util::Event {
 public:
  Summary(Daemon& daemon, util::SuperLoop& loop, util::utime_t interval)
      : daemon_(daemon), loop_(loop), interval_(interval) {}

  void run(util::utime_t) override {
    daemon_.summarize();
    loop_.addEvent(new Summary(*this), interval_);
  }

 private:
  Daemon& daemon_;
  util::SuperLoop& loop_;
  util::utime_t interval_;
};

}  // namespace

Daemon::Daemon(const Options& options)
    : options_(options),
      configuration_(options.config),
      machine_(options.disk),
      keeper_(options_, configuration_, machine_),
      loop_(log()) {
  for (Sampler* const sampler : machine_.samplers()) loop_.addEvent(sampler);
  loop_.addEvent(&keeper_);
  loop_.addEvent(new Summary(*this, loop_, options_.summary), options_.summary);
}

void Daemon::run(const volatile std::sig_atomic_t& ending, volatile std::sig_atomic_t& reloading) {
  UTIL_LOG(log(), util::INFO, "started with cycles of %d ms", static_cast<int>(options_.cycle));
  unsigned long done = 0;
  while (ending == 0 && (options_.cycles == 0 || done < options_.cycles)) {
    if (reloading != 0) {
      reloading = 0;
      configuration_.reload();
    }
    loop_.runLoop(options_.cycle);
    ++done;
  }
  summarize();
  if (ending != 0) {
    UTIL_LOG(log(), util::INFO, "ended by signal %d after %lu cycles", ending, done);
  } else {
    UTIL_LOG(log(), util::INFO, "ended after %lu cycles", done);
  }
}

void Daemon::summarize() {
  for (Sampler* const sampler : machine_.samplers()) sampler->summarize();
}

}  // namespace appliance
