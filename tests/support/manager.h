// SPDX-License-Identifier: MIT
// A service manager, as services see it.
#pragma once

#include <string>

namespace support {

// Listens where this process, and those that it starts, report to their service manager.
class ServiceManager {
 public:
  // `address` is a path or, with an '@' first, an abstract address.
  explicit ServiceManager(const std::string& address);
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  // Wants reports within so many microseconds, of any process or of this one.
  void want_reports(const std::string& microseconds, const std::string& process = "") const;

  // The next report that has come; "nothing" if none has.
  std::string received() const;

  // Waits for the next report; "nothing" if none has come after 20 seconds.
  std::string next() const;

 private:
  const int socket_;
};

}  // namespace support
