// SPDX-License-Identifier: MIT
#include <service/HmacAuthenticator.h>
#include <service/bytes.h>
#include <util/MD5Authenticator.h>
#include <util/NetworkInterface.h>
#include <util/system_exception.h>

#include <iostream>

int main() {
  // In the appliance the key comes from a file that only the services may read.
  const util::byte_string key = service::to_bytes("32 random bytes, the same for both");
  service::HmacAuthenticator authenticator(key);
  util::byte_string signature;
  authenticator.sign(service::to_bytes("reboot"), signature);
  std::cout << authenticator.id() << ", " << signature.size() << " bytes\n";
  std::cout << "reboot: " << authenticator.verify(service::to_bytes("reboot"), signature) << "\n";
  std::cout << "format: " << authenticator.verify(service::to_bytes("format"), signature) << "\n";

  // For peers that know nothing else. The secret is a setting of the library's build.
  util::MD5Authenticator old;
  std::cout << old.id() << ", " << old.sign(service::to_bytes("reboot")).size() << " digits\n";

  try {
    for (const util::NetworkInterface& interface : util::NetworkInterface::get_interfaces())
      for (const util::byte_string& address : interface.get_addresses())
        if (interface.get_name() == "lo" && address.size() == 4)
          std::cout << "lo has " << util::NetworkInterface::addr_to_str(address) << "\n";
  } catch (const util::system_exception& e) {
    std::cerr << "no interfaces: " << e.what() << " (" << e.error_number() << ")\n";
    return 1;
  }
}
