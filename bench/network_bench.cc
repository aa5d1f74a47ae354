// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/MD5Authenticator.h"
#include "util/NetworkInterface.h"

#include <ifaddrs.h>

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
  for (const auto& [label, size] : {std::pair("64 B", 64), std::pair("1 MiB", 1 << 20)}) {
    const std::string work = std::string("signing ") + label;
    const auto bytes = static_cast<size_t>(size);
    add(work, "ours", [=] { return sign_ours(bytes); });
    add(work, "MD5 functions", [=] { return sign_by_hand(bytes); });
  }
}
