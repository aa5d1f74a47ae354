// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/MD5Authenticator.h"
#include "util/NetworkInterface.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <map>
#include <memory>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>

namespace {

// The kernel's list alone.
auto list_interfaces() {
  return [] {
    ifaddrs* list = nullptr;
    bench::require(getifaddrs(&list) == 0, "getifaddrs");
    freeifaddrs(list);
  };
}

// By hand: the list, the addresses by name, and the hardware address of each.
auto interfaces_by_hand() {
  return [] {
    ifaddrs* list = nullptr;
    bench::require(getifaddrs(&list) == 0, "getifaddrs");
    std::map<std::string, std::vector<util::byte_string>> found;
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
      if (at->ifa_addr == nullptr) continue;
      const auto* const address = at->ifa_addr;
      if (address->sa_family == AF_INET) {
        const auto* const v4 = reinterpret_cast<const sockaddr_in*>(address);
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&v4->sin_addr);
        found[at->ifa_name].emplace_back(bytes, 4);
      } else if (address->sa_family == AF_INET6) {
        const auto* const v6 = reinterpret_cast<const sockaddr_in6*>(address);
        found[at->ifa_name].emplace_back(v6->sin6_addr.s6_addr, 16);
      }
    }
    freeifaddrs(list);
    const int kernel = socket(AF_INET, SOCK_DGRAM, 0);
    for (const auto& entry : found) {
      ifreq request = {};
      strncpy(request.ifr_name, entry.first.c_str(), IFNAMSIZ - 1);
      bench::require(ioctl(kernel, SIOCGIFHWADDR, &request) == 0, "SIOCGIFHWADDR");
      bench::keep(request);
    }
    close(kernel);
  };
}

auto interfaces_ours() {
  return [] { bench::keep(util::NetworkInterface::get_interfaces()); };
}

auto sign_ours(size_t size) {
  return [data = util::byte_string(size, 'x'), signer = util::MD5Authenticator()]() mutable {
    util::byte_string signature;
    signer.sign(data, signature);
    bench::keep(signature);
  };
}

auto sign_by_hand(size_t size) {
  return [data = util::byte_string(size, 'x'), key = std::string("a-key-of-16-bytes")] {
    util::byte_string signature(MD5_DIGEST_LENGTH, 0);
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, data.data(), data.size());
    MD5_Update(&context, key.data(), key.size());
    MD5_Final(signature.data(), &context);
    bench::keep(signature);
  };
}

}  // namespace

void bench::add_cases() {
  add("enumerating interfaces", "ours", interfaces_ours);
  add("enumerating interfaces", "getifaddrs", list_interfaces);
  add("enumerating interfaces", "floor", interfaces_by_hand);
  for (const auto& [label, size] : {std::pair("64 B", 64), std::pair("1 MiB", 1 << 20)}) {
    const std::string work = std::string("signing ") + label;
    const auto bytes = static_cast<size_t>(size);
    add(work, "ours", [=] { return sign_ours(bytes); });
    add(work, "MD5 functions", [=] { return sign_by_hand(bytes); });
  }
}
