// SPDX-License-Identifier: MIT
// The network as a test sets it.
#pragma once

#include <ifaddrs.h>
#include <net/if.h>

#include <atomic>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace support {

// From construction to destruction getifaddrs() lists these entries in this order, and
// SIOCGIFHWADDR answers from `hardware`, in every thread.
class FakeInterfaces {
 public:
  struct Entry {
    std::string name;
    std::string address;  // "192.168.1.10", "fe80::1"; "packet": link layer, "unix"; "": none
  };

  FakeInterfaces(std::initializer_list<Entry> entries);
  ~FakeInterfaces();
  FakeInterfaces(const FakeInterfaces&) = delete;
  FakeInterfaces& operator=(const FakeInterfaces&) = delete;

  int open_lists() const { return open_lists_; }  // handed out and not yet freed

  std::map<std::string, std::string> hardware;  // by name; ENODEV for other names

  // For the replaced functions.
  int list(ifaddrs** to);
  void free_list(ifaddrs* list);
  int hardware_address(ifreq* request) const;  // -1 with errno set where it fails

 private:
  std::vector<Entry> entries_;
  std::atomic<int> open_lists_{0};
  FakeInterfaces* outer_;
};

// The innermost fake, or null.
FakeInterfaces* fake_interfaces();

}  // namespace support
