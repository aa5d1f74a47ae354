// SPDX-License-Identifier: MIT
#include <service/FileLock.h>
#include <service/key_path.h>
#include <service/recovery.h>
#include <util/PropertyList.h>

#include <fstream>
#include <iostream>

// What a client of the daemon asks for. Nobody else's change gets lost, nor does this one.
void change(const std::string& path, const util::Value& value) {
  const service::FileLock lock("settings.plist");
  util::PropertyList settings("settings.plist");
  settings.load();
  service::set(settings, path, value);
  settings.saveDurably();
}

int main() {
  change("network/mtu", 1500);
  change("network/servers[0]/name", "ntp1");
  change("network/servers[1]/name", "ntp2");

  util::PropertyList settings("settings.plist");
  settings.load();
  std::cout << "mtu " << service::get(settings, "network/mtu", 9000) << ", "
            << service::get(settings, "network/servers[1]/name", "no server") << ", "
            << service::get(settings, "network/servers[2]/name", "no third server") << "\n";

  // Something breaks the file while the daemon is down.
  std::ofstream("settings.plist") << "<plist>";

  const service::Recovery start = service::recover(settings);
  if (start.source == service::Recovery::Source::backup) {
    std::cout << start.reason << "; going on with the backup\n";
    service::restore(settings);
  }
  std::cout << service::get(settings, "network/servers[0]/name", "no server") << ", "
            << service::get(settings, "network/servers[1]/name", "no second server") << "\n";
}
