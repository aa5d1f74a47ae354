// SPDX-License-Identifier: MIT
#include <util/MD5Authenticator.h>
#include <util/NetworkInterface.h>
#include <util/system_exception.h>

#include <iostream>

static util::byte_string bytes(const std::string& text) { return {text.begin(), text.end()}; }

int main() {
  // The secret is a setting of the library's build; both sides have it.
  util::MD5Authenticator authenticator;
  util::byte_string signature;
  authenticator.sign(bytes("reboot"), signature);
  std::cout << authenticator.id() << ", " << signature.size() << " bytes, "
            << authenticator.sign(bytes("reboot")).size() << " digits as text\n";
  std::cout << "reboot: " << authenticator.verify(bytes("reboot"), signature) << "\n";
  std::cout << "format: " << authenticator.verify(bytes("format"), signature) << "\n";

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
