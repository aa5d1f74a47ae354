// SPDX-License-Identifier: MIT
#include <service/LogFile.h>
#include <util/SuperLoop.h>

static util::logger* const logger = util::logger::rootLogger();

struct Ticker : util::EventLoop {
  void runLoop(util::utime_t slice) override { UTIL_LOG(logger, util::INFO, "%d ms", int(slice)); }
};

int main() {
  logger->setPublisher(new service::LogFile("ticker.log"));
  logger->enable(util::INFO);
  Ticker ticker;
  util::SuperLoop loop;
  for (loop.addEvent(&ticker);;) loop.runLoop(1000);
}
