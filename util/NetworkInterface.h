// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>
#include <vector>

namespace util {

// A network interface of this host with its IP and hardware addresses, as the kernel reported them:
// a snapshot, which does not follow later changes.
class UTIL_EXPORT NetworkInterface {
 public:
  // The interfaces that have an IP address, up or down, sorted by name in plain string order
  // ("eth10" before "eth2"). An alias ("eth0:1") counts as an interface.
  //
  // Throws system_exception if the kernel refuses; there is no partial result. May be called from
  // several threads at once.
  static std::vector<NetworkInterface> get_interfaces();

  // "192.168.1.10" for 4 bytes; "fe80:0:0:0:21a:2bff:fe3c:4d5e", never shortened by "::", for 16;
  // "?" for any other length.
  static std::string addr_to_str(const byte_string& addr);

  std::string get_name() const { return name; }

  // In network byte order, 4 bytes for IPv4 and 16 for IPv6, in the kernel's order.
  std::vector<byte_string> get_addresses() const { return addresses; }

  // Always 6 bytes, whatever the kind of hardware; zeros for the loopback interface.
  byte_string get_macAddress() const { return macAddress; }

 private:
  NetworkInterface(const std::string& own_name, const std::vector<byte_string>& ips,
                   const byte_string& mac);

  std::string name;
  std::vector<byte_string> addresses;
  byte_string macAddress;
};

}  // namespace util
