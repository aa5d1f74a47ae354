// SPDX-License-Identifier: MIT
#include "service/Watchdog.h"

#include "service/notify.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>

namespace service {
namespace {

int64_t now() {
  using std::chrono::milliseconds;
  const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(since_start).count();
}

// A whole positive number, or 0 for anything else.
uint64_t number_in(const char* variable) {
  const char* const text = getenv(variable);
  if (text == nullptr || *text < '0' || *text > '9') return 0;
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = strtoull(text, &end, 10);
  return errno == 0 && *end == '\0' ? number : 0;
}

util::utime_t patience_of_the_manager() {
  const bool of_another = getenv("WATCHDOG_PID") != nullptr &&
                          number_in("WATCHDOG_PID") != static_cast<uint64_t>(getpid());
  return of_another ? 0 : number_in("WATCHDOG_USEC") / 1000;
}

}  // namespace

Watchdog::Watchdog(util::logger* log) : log_(log), patience_(patience_of_the_manager()) {}

void Watchdog::runLoop(util::utime_t) {
  const int64_t at = now();
  if (patience_ == 0 || at < next_) return;
  try {
    notify("WATCHDOG=1");
    next_ = at + static_cast<int64_t>(patience_ / 2);
  } catch (const std::exception& failure) {
    UTIL_LOG(log_, util::WARNING, "cannot report to the service manager: %s", failure.what());
  }
}

const char* Watchdog::name() { return "service::Watchdog"; }

}  // namespace service
