// SPDX-License-Identifier: MIT
#include "tests/support/network.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

namespace support {
namespace {

FakeInterfaces* innermost = nullptr;

// An entry with what it points to. Lists are allocated as C does, so that tests that count or fail
// operator new see the code under test alone.
struct Node {
  ifaddrs entry;
  sockaddr_storage address;
  char name[64];
};

void fill_address(Node& node, const std::string& text) {
  if (text.empty()) return;
  sockaddr_storage& address = node.address;
  node.entry.ifa_addr = reinterpret_cast<sockaddr*>(&address);
  auto* const ip4 = reinterpret_cast<sockaddr_in*>(&address);
  auto* const ip6 = reinterpret_cast<sockaddr_in6*>(&address);
  if (text == "packet") {
    address.ss_family = AF_PACKET;
  } else if (text == "unix") {
    address.ss_family = AF_UNIX;
  } else if (inet_pton(AF_INET, text.c_str(), &ip4->sin_addr) == 1) {
    address.ss_family = AF_INET;
  } else if (inet_pton(AF_INET6, text.c_str(), &ip6->sin6_addr) == 1) {
    address.ss_family = AF_INET6;
  } else {
    throw std::invalid_argument(text);
  }
}

}  // namespace

FakeInterfaces::FakeInterfaces(std::initializer_list<Entry> entries)
    : entries_(entries), outer_(std::exchange(innermost, this)) {}

FakeInterfaces::~FakeInterfaces() { innermost = outer_; }

int FakeInterfaces::list(ifaddrs** to) {
  ++open_lists_;
  *to = nullptr;
  if (entries_.empty()) return 0;
  auto* const nodes = static_cast<Node*>(calloc(entries_.size(), sizeof(Node)));
  if (nodes == nullptr) abort();
  for (size_t i = 0; i < entries_.size(); ++i) {
    Node& node = nodes[i];
    entries_[i].name.copy(node.name, sizeof node.name - 1);
    node.entry.ifa_name = node.name;
    node.entry.ifa_next = i + 1 < entries_.size() ? &nodes[i + 1].entry : nullptr;
    fill_address(node, entries_[i].address);
  }
  *to = &nodes->entry;
  return 0;
}

void FakeInterfaces::free_list(ifaddrs* list) {
  --open_lists_;
  free(list);
}

int FakeInterfaces::hardware_address(ifreq* request) const {
  const auto found = hardware.find(request->ifr_name);
  if (found == hardware.end()) {
    errno = ENODEV;
    return -1;
  }
  found->second.copy(request->ifr_hwaddr.sa_data, sizeof request->ifr_hwaddr.sa_data);
  return 0;
}

FakeInterfaces* fake_interfaces() { return innermost; }

}  // namespace support
