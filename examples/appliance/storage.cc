// SPDX-License-Identifier: MIT
#include "storage.h"

#include "texts.h"

#include <mntent.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <set>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

constexpr double kSectorSize = 512;
constexpr double kNearlyFull = 0.1;  // of a volume is free

// Its folder in /sys; "" where the name could lead elsewhere.
std::string block_device(const util::NASDisk& disk) {
  const bool plain = disk.device.find('/') == std::string::npos && disk.device[0] != '.';
  return plain ? "/sys/block/" + disk.device : "";
}

bool is_present(const util::NASDisk& disk) { return access(block_device(disk).c_str(), F_OK) == 0; }

struct Space {
  double total = 0;
  double free = 0;
};

struct EndMounts {
  void operator()(FILE* file) const { endmntent(file); }
};

// The folders on which something is mounted.
std::set<std::string> mounted() {
  std::set<std::string> folders;
  const std::unique_ptr<FILE, EndMounts> file(setmntent("/proc/self/mounts", "re"));
  while (const mntent* const each = file ? getmntent(file.get()) : nullptr) {
    folders.insert(each->mnt_dir);
  }
  return folders;
}

// Both 0 where there is no such folder.
Space space(const util::NASMount& mount) {
  struct statvfs found = {};
  if (statvfs(mount.mountpoint.c_str(), &found) < 0) return {};
  const auto block = static_cast<double>(found.f_frsize);
  return {block * static_cast<double>(found.f_blocks), block * static_cast<double>(found.f_bavail)};
}

}  // namespace

value_array disks(const util::NASConfDB& db) {
  value_array values;
  for (const util::NASDisk& disk : db.get_system().disks) {
    value_struct value;
    put(value, "device", disk.device);
    value["present"] = is_present(disk);
    value["inactivityperiod"] = disk.inactivityperiod;
    double sectors = 0;
    std::ifstream size(block_device(disk) + "/size");
    if (size >> sectors) value["size"] = sectors * kSectorSize;
    values.push_back(value);
  }
  return values;
}

value_array volumes(const util::NASConfDB& db) {
  value_array values;
  const std::set<std::string> folders = mounted();
  for (const util::NASMount& mount : db.get_mounts()) {
    value_struct value;
    put(value, "folder", mount.mountpoint);
    value["mounted"] = folders.count(mount.mountpoint) > 0;
    if (value["mounted"]) {
      const Space found = space(mount);
      value["total"] = found.total;
      value["free"] = found.free;
    }
    values.push_back(value);
  }
  return values;
}

void add_storage_faults(const util::NASConfDB& db, std::vector<std::string>& to) {
  for (const util::NASDisk& disk : db.get_system().disks) {
    if (!is_present(disk)) to.push_back("Disk " + disk.device + " is not in this machine");
  }
  const std::set<std::string> folders = mounted();
  for (const util::NASMount& mount : db.get_mounts()) {
    const Space found = space(mount);
    if (found.total == 0) {
      to.push_back("There is no folder " + mount.mountpoint + " for " + mount.device);
    } else if (folders.count(mount.mountpoint) == 0) {
      to.push_back(mount.device + " is not mounted on " + mount.mountpoint);
    } else if (found.free < kNearlyFull * found.total) {
      to.push_back(mount.mountpoint + " is nearly full");
    }
  }
}

}  // namespace appliance
