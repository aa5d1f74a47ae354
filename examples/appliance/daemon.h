// SPDX-License-Identifier: MIT
#pragma once

#include "configuration.h"
#include "keeper.h"
#include "log.h"
#include "options.h"
#include "samplers.h"

#include <service/ControlSocket.h>
#include <service/InstanceLock.h>
#include <service/Loop.h>
#include <service/Watchdog.h>

#include <memory>
#include <string>
#include <vector>

namespace appliance {

// Samples, keeps the state, summarizes and answers nasctl until it is told to stop. A service
// manager is told when there is a state to show, when the daemon reloads, and that it is alive.
class Daemon : private util::EventLoop {
 public:
  // Throws what reading the configuration throws, service::AlreadyRunning where there is a daemon
  // already, and std::system_error where it cannot be reached by others.
  explicit Daemon(const Options& options);

  // Returns after a signal, a request or the last cycle.
  void run();

 private:
  void runLoop(util::utime_t timeslice) override;  // counts the cycles
  const char* name() override { return "cycles"; }
  std::vector<service::Handle> handles();
  void end(const std::string& why);
  void summarize();
  void read_configuration();
  void tell_manager(const std::string& state);
  std::string answer(const service::Request& request);
  std::string status() const;
  std::string warnings() const;
  std::string reload();

  const Options options_;
  service::Loop loop_;
  std::vector<service::Handle> handles_;
  const service::InstanceLock lock_;
  Configuration configuration_;
  Machine machine_;
  const std::vector<std::unique_ptr<Sampler>> samplers_;
  Keeper keeper_;
  service::ControlSocket control_;
  service::Watchdog watchdog_{log()};
  Attempt telling_manager_{"service manager not told"};
  unsigned long done_ = 0;  // cycles
  bool ended_ = false;
};

}  // namespace appliance
