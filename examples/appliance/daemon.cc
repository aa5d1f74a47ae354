// SPDX-License-Identifier: MIT
#include "daemon.h"

#include "history.h"
#include "log.h"
#include "texts.h"

#include <service/notify.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace appliance {
namespace {

std::string folder_of(const std::string& file) {
  return std::filesystem::absolute(file).parent_path().string();
}

// The web back end may belong to another user of the daemon's group.
service::ControlOptions control_options() {
  service::ControlOptions options;
  options.mode = 0660;
  return options;
}

// Who may ask need not be who may change the daemon.
void require_owner(const service::Request& request) {
  if (request.user != 0 && request.user != geteuid()) {
    throw std::runtime_error("this is for the administrator only");
  }
}

std::string switch_log(const std::string& name, const std::string& way) {
  const util::category& switched = *category(name);
  if (way == "on" || way == "off") {
    enable_log(switched, way == "on");
  } else if (!way.empty()) {
    throw std::invalid_argument("a category is on or off, not '" + way + "'");
  }
  return name + (log()->isLoggable(switched) ? " is on\n" : " is off\n");
}

std::string all_log_levels() {
  std::string text;
  for (const util::category* each : util::category::categories()) {
    text += switch_log(each->name(), "");
  }
  return text;
}

}  // namespace

// Signals come first: from then on none is lost.
Daemon::Daemon(const Options& options)
    : options_(options),
      loop_(log()),
      handles_(handles()),
      lock_(folder_of(options.lasting)),
      configuration_(options.config),
      samplers_(make_samplers(machine_, options.disk)),
      keeper_(options_, configuration_, machine_),
      control_(
          loop_, options.control,
          [this](const service::Request& request) { return answer(request); }, control_options()) {
  for (const auto& sampler : samplers_) loop_.addEvent(sampler.get());
  loop_.addEvent(&keeper_);
  loop_.addEvent(static_cast<util::EventLoop*>(this));
  loop_.addEvent(&watchdog_);
}

std::vector<service::Handle> Daemon::handles() {
  std::vector<service::Handle> all;
  for (const int signal : {SIGTERM, SIGINT}) {
    all.push_back(
        loop_.on_signal(signal, [this, signal] { end("signal " + std::to_string(signal)); }));
  }
  all.push_back(loop_.on_signal(SIGHUP, [this] { read_configuration(); }));
  all.push_back(loop_.every(options_.summary, [this](uint64_t) { summarize(); }));
  return all;
}

void Daemon::run() {
  UTIL_LOG(log(), util::INFO, "started with cycles of %d ms", static_cast<int>(options_.cycle));
  loop_.run(options_.cycle);
}

void Daemon::runLoop(util::utime_t) {
  if (done_ == 0) tell_manager("READY=1");  // the state has been saved, nasctl is answered
  if (++done_ == options_.cycles) end("itself");
}

// The loop goes on to the end of its pass, but all there is to do is done here.
void Daemon::end(const std::string& why) {
  if (std::exchange(ended_, true)) return;
  tell_manager("STOPPING=1");
  keeper_.save();
  summarize();
  UTIL_LOG(log(), util::INFO, "ended by %s after %lu cycles", why.c_str(), done_);
  loop_.stop();
}

void Daemon::summarize() {
  for (const auto& sampler : samplers_) sampler->summarize();
}

// The manager's clock is the monotonic one.
void Daemon::read_configuration() {
  using std::chrono::microseconds;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  tell_manager("RELOADING=1\nMONOTONIC_USEC=" +
               std::to_string(std::chrono::duration_cast<microseconds>(now).count()));
  configuration_.reload();
  tell_manager("READY=1");
}

void Daemon::tell_manager(const std::string& state) {
  telling_manager_([&state] { service::notify(state); });
}

// ---- what nasctl and the web back end ask ----

std::string Daemon::answer(const service::Request& request) {
  std::istringstream words(request.line);
  std::string command, argument, way, rest;
  words >> command >> argument >> way >> rest;
  if (command == "status" && argument.empty()) return status();
  if (command == "warnings" && argument.empty()) return warnings();
  if (command == "acknowledge" && way.empty()) {
    return "acknowledged: " + keeper_.acknowledge(argument) + "\n";
  }
  if (command == "log-level" && argument.empty()) return all_log_levels();
  require_owner(request);
  if (command == "reload" && argument.empty()) return reload();
  if (command == "log-level" && rest.empty()) return switch_log(argument, way);
  if (command == "stop" && argument.empty()) {
    end("request of process " + std::to_string(request.process));
    return "stopping\n";
  }
  throw std::invalid_argument("no such request: " + clean(request.line));
}

std::string Daemon::status() const {
  const util::NASSystem& system = configuration_.now().get_system();
  const double load = machine_.load.front();
  char text[200];
  snprintf(text, sizeof text,
           "up %.0f s, load %.2f, %llu of %llu KiB memory available\n%lu cycles, %zu warnings\n",
           uptime(), load, static_cast<unsigned long long>(machine_.memory_available),
           static_cast<unsigned long long>(machine_.memory_total), done_,
           keeper_.warnings().all().size());
  return clean(system.hostname) + "." + clean(system.domain) + "\n" + text;
}

std::string Daemon::warnings() const {
  std::string text;
  for (const Warnings::Warning& each : keeper_.warnings().all()) {
    text += each.id + "  " + each.since + "  " + each.text +
            (each.acknowledged ? " (acknowledged)\n" : "\n");
  }
  return text;
}

std::string Daemon::reload() {
  read_configuration();
  const std::string& fault = configuration_.fault();
  if (!fault.empty()) throw std::runtime_error("the old configuration stays: " + fault);
  return "the new configuration is in use\n";
}

}  // namespace appliance
