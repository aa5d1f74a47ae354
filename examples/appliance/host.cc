// SPDX-License-Identifier: MIT
#include "host.h"

#include "history.h"
#include "texts.h"

#include <net/if.h>
#include <service/bytes.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <util/NetworkInterface.h>

#include <algorithm>
#include <ctime>
#include <fstream>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

constexpr double kKiB = 1024;

std::string kernel() {
  struct utsname names = {};
  return uname(&names) < 0 ? "" : std::string(names.sysname) + " " + names.release;
}

// By Temperature.
constexpr const char* kTemperatures[] = {"unknown", "normal", "raised", "too high"};
constexpr const char* kTemperatureFaults[] = {"The board's temperature lines contradict each other",
                                              "", "The board is getting warm",
                                              "The board is too hot"};

// A machine without one has no lines that could be high.
bool is_there(const util::ZEB_GPIO& board) { return board.getValue() != 0; }

// "00:1a:2b:3c:4d:5e", or "" for the zeros of an interface without hardware.
std::string mac_text(const util::byte_string& mac) {
  return mac.find_first_not_of('\0') == mac.npos ? "" : service::mac_to_str(mac);
}

// Switched on, and something at the other end of the cable.
bool is_up(const std::string& name) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request = {};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  const bool known = descriptor >= 0 && ioctl(descriptor, SIOCGIFFLAGS, &request) == 0;
  if (descriptor >= 0) close(descriptor);
  constexpr int kUp = IFF_UP | IFF_RUNNING;
  return known && (request.ifr_flags & kUp) == kUp;
}

// What a file of the kernel about the interface says; 0 or "" where it says nothing.
template <class T>
T about_link(const std::string& name, const char* what) {
  T value = {};
  std::ifstream("/sys/class/net/" + name + "/" + what) >> value;
  return value;
}

value_struct interface_value(const std::string& name, const value_array& addresses,
                             const Traffic& rate) {
  value_struct value;
  put(value, "name", name);
  value["addresses"] = addresses;
  value["received"] = static_cast<double>(rate.received);
  value["sent"] = static_cast<double>(rate.sent);
  return value;
}

value_struct present_interface(const util::NetworkInterface& interface, const Traffic& rate) {
  value_array addresses;
  for (const util::byte_string& address : interface.get_addresses()) {
    addresses.push_back(util::NetworkInterface::addr_to_str(address));
  }
  value_struct value = interface_value(interface.get_name(), addresses, rate);
  value["up"] = is_up(interface.get_name());
  const int speed = about_link<int>(interface.get_name(), "speed");
  if (speed > 0) {
    value["speed"] = speed;
    put(value, "duplex", about_link<std::string>(interface.get_name(), "duplex"));
  }
  put(value, "mac", mac_text(interface.get_macAddress()));
  return value;
}

value_struct missing_interface(const util::NASLANInterface& configured) {
  value_array addresses;
  if (!configured.ipaddr.empty()) addresses.push_back(configured.ipaddr);
  value_struct value = interface_value(configured.iface, addresses, Traffic());
  value["up"] = false;
  return value;
}

}  // namespace

value_struct system(const util::NASConfDB& db, const Machine& machine) {
  const util::NASSystem& from = db.get_system();
  const std::vector<double>& load = machine.load;
  value_struct value;
  value["load"] = value_array(load.begin(), load.end());
  value["uptime"] = uptime();
  value["memory_total"] = kKiB * static_cast<double>(machine.memory_total);
  value["memory_free"] = kKiB * static_cast<double>(machine.memory_available);
  value["processors"] = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
  put(value, "hostname", from.hostname);
  put(value, "domain", from.domain);
  put(value, "description", db.get_samba().serverdesc);
  put(value, "platform", from.platform);
  put(value, "timezone", from.timezone);
  put(value, "kernel", kernel());
  const time_t now = std::time(nullptr);
  struct tm local = {};
  if (localtime_r(&now, &local) != nullptr) {
    put(value, "zone", local.tm_zone);
    value["utc_offset"] = static_cast<int>(local.tm_gmtoff);
  }
  return value;
}

value_struct board(const Machine& machine) {
  const util::ZEB_GPIO& pins = machine.board;
  if (!is_there(pins)) return {};
  return {
      {"revision",    pins.getHardwareRevision() == util::ZEB_GPIO::Revision2 ? 2 : 3},
      {"drives",      pins.getDriveCount()                                           },
      {"temperature", kTemperatures[pins.getTemperature()]                           }
  };
}

value_array interfaces(const util::NASConfDB& db, const Machine& machine) {
  value_array values;
  std::vector<std::string> names;
  for (const util::NetworkInterface& each : util::NetworkInterface::get_interfaces()) {
    names.push_back(each.get_name());
    const auto rate = machine.rates.find(each.get_name());
    values.push_back(
        present_interface(each, rate == machine.rates.end() ? Traffic() : rate->second));
  }
  for (const util::NASLANInterface& each : db.get_lan_ifs()) {
    if (std::count(names.begin(), names.end(), each.iface) == 0) {
      values.push_back(missing_interface(each));
    }
  }
  return values;
}

value_array own_names(const util::NASConfDB& db) {
  const util::NASSystem& from = db.get_system();
  value_array names{"localhost"};
  for (const std::string& name : {from.hostname, from.hostname + "." + from.domain}) {
    if (!clean(name).empty()) names.push_back(clean(name));
  }
  for (const util::NetworkInterface& each : util::NetworkInterface::get_interfaces()) {
    for (const util::byte_string& address : each.get_addresses()) {
      names.push_back(util::NetworkInterface::addr_to_str(address));
    }
  }
  return names;
}

void add_host_faults(const util::NASConfDB& db, const Machine& machine,
                     std::vector<std::string>& to) {
  const util::ZEB_GPIO& pins = machine.board;
  if (is_there(pins)) {
    const char* const fault = kTemperatureFaults[pins.getTemperature()];
    if (*fault != '\0') to.push_back(fault);
    const size_t configured = db.get_system().disks.size();
    if (static_cast<size_t>(pins.getDriveCount()) < configured) {
      to.push_back("The board has " + std::to_string(pins.getDriveCount()) + " of the " +
                   std::to_string(configured) + " drives that are configured");
    }
  }
  if (db.get_system().webgui_adminpasswd.empty()) {
    to.push_back("The web interface has no administration password");
  }
}

}  // namespace appliance
