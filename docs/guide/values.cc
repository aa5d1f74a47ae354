// SPDX-License-Identifier: MIT
#include <util/JSEmit.h>
#include <util/PropertyList.h>

#include <iostream>

int main() {
  util::PropertyList settings("settings.plist");
  settings.load();  // nothing happens where there is neither the file nor its backup

  settings["hostname"] = "nas";
  settings["temperature"] = 41.5;
  settings["warnings"] = util::value_array{"disk 2 is getting warm", "it's 90 % full"};
  util::value_struct& network = settings.mapForKey("network", true);
  network["dhcp"] = true;
  network["mtu"] = 1500;

  for (const std::string& problem : settings.problems()) std::cout << problem << "\n";
  settings.saveDurably();

  util::PropertyList loaded("settings.plist");
  loaded.load();
  const int mtu = loaded.mapForKey("network", false)["mtu"];
  std::cout << loaded.stringForKey("hostname") << " uses packets of " << mtu << " bytes\n";
  try {
    loaded.intForKey("hostname");
  } catch (const util::type_exception& e) {
    std::cout << "type_exception: " << e.what() << "\n";
  }
  try {
    loaded.intForKey("uptime");
  } catch (const util::unknown_key& e) {
    std::cout << "unknown_key: " << e.what() << "\n";
  }

  // For the web page.
  std::cout << util::JSEmit().emitFunction("settings", loaded.getProperties()) << "\n";
}
