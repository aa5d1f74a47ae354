// SPDX-License-Identifier: MIT
#include "daemon.h"

#include "log.h"

namespace nasd {
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
      space_(options.disk),
      samplers_{&load_, &memory_, &traffic_, &space_},
      loop_(log()) {
  for (Sampler* const sampler : samplers_) loop_.addEvent(sampler);
  loop_.addEvent(new Summary(*this, loop_, options_.summary), options_.summary);
}

void Daemon::run(const volatile std::sig_atomic_t& signal) {
  UTIL_LOG(log(), util::INFO, "started with cycles of %d ms", static_cast<int>(options_.cycle));
  unsigned long done = 0;
  while (signal == 0 && (options_.cycles == 0 || done < options_.cycles)) {
    loop_.runLoop(options_.cycle);
    ++done;
  }
  summarize();
  if (signal != 0) {
    UTIL_LOG(log(), util::INFO, "ended by signal %d after %lu cycles", signal, done);
  } else {
    UTIL_LOG(log(), util::INFO, "ended after %lu cycles", done);
  }
}

void Daemon::summarize() {
  for (Sampler* const sampler : samplers_) sampler->summarize();
  log()->flush();
}

}  // namespace nasd
