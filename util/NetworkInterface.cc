// SPDX-License-Identifier: MIT
#include "util/NetworkInterface.h"

#include "util/internal/owners.h"
#include "util/system_exception.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <map>
#include <utility>

namespace util {
namespace {

using AddressMap = std::map<std::string, std::vector<byte_string>>;

constexpr size_t kMacSize = 6;  // Kept: the longer addresses of other hardware are cut.

class InterfaceList {
 public:
  InterfaceList() {
    if (getifaddrs(&head_) < 0) throw system_exception();
  }
  ~InterfaceList() { freeifaddrs(head_); }
  InterfaceList(const InterfaceList&) = delete;
  InterfaceList& operator=(const InterfaceList&) = delete;

  const ifaddrs* head() const { return head_; }

 private:
  ifaddrs* head_ = nullptr;
};

class Socket {
 public:
  // The first six bytes of the interface's hardware address.
  byte_string mac_address(const std::string& name) const {
    ifreq request = {};
    // The kernel's names always fit. One cut short would ask about another interface.
    if (name.size() >= sizeof request.ifr_name) throw system_exception(ENAMETOOLONG);
    name.copy(request.ifr_name, name.size());
    if (ioctl(descriptor_.number(), SIOCGIFHWADDR, &request) < 0) throw system_exception();
    const auto* const mac = reinterpret_cast<const unsigned char*>(request.ifr_hwaddr.sa_data);
    return {mac, kMacSize};
  }

 private:
  const Descriptor descriptor_{socket(AF_INET, SOCK_DGRAM, 0)};
};

// The bytes of an IPv4 or IPv6 address; empty for any other kind and for no address.
byte_string ip_address(const sockaddr* address) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(address);
  switch (address != nullptr ? address->sa_family : AF_UNSPEC) {
    case AF_INET: return {bytes + offsetof(sockaddr_in, sin_addr), sizeof(in_addr)};
    case AF_INET6: return {bytes + offsetof(sockaddr_in6, sin6_addr), sizeof(in6_addr)};
    default: return {};
  }
}

AddressMap addresses_by_name() {
  const InterfaceList list;
  AddressMap addresses;
  for (const ifaddrs* entry = list.head(); entry != nullptr; entry = entry->ifa_next) {
    byte_string address = ip_address(entry->ifa_addr);
    if (!address.empty()) addresses[entry->ifa_name].push_back(std::move(address));
  }
  return addresses;
}

// Numbers of `width` bytes each, by snprintf(). Kept: no run of zeros is shortened to "::".
std::string join(const byte_string& bytes, size_t width, char separator, const char* form) {
  char text[sizeof "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"];
  char* end = text;
  for (size_t i = 0; i < bytes.size(); i += width) {
    unsigned number = 0;
    for (size_t k = i; k < i + width; ++k) number = number << 8 | bytes[k];
    if (i > 0) *end++ = separator;
    end += snprintf(end, static_cast<size_t>(std::end(text) - end), form, number);
  }
  return {text, end};
}

}  // namespace

NetworkInterface::NetworkInterface(const std::string& own_name, const std::vector<byte_string>& ips,
                                   const byte_string& mac)
    : name(own_name), addresses(ips), macAddress(mac) {}

std::vector<NetworkInterface> NetworkInterface::get_interfaces() {
  const AddressMap addresses_of = addresses_by_name();
  const Socket kernel;
  std::vector<NetworkInterface> interfaces;
  interfaces.reserve(addresses_of.size());
  for (const auto& [name, addresses] : addresses_of) {
    interfaces.push_back(NetworkInterface(name, addresses, kernel.mac_address(name)));
  }
  return interfaces;
}

std::string NetworkInterface::addr_to_str(const byte_string& addr) {
  switch (addr.size()) {
    case 4: return join(addr, 1, '.', "%u");
    case 16: return join(addr, 2, ':', "%x");
    default: return "?";
  }
}

}  // namespace util
