// SPDX-License-Identifier: MIT
#pragma once

#include <util/NASConfDB.h>
#include <util/Value.h>

#include <string>
#include <vector>

namespace appliance {

// The configuration's disks and what this machine has of them, as in the state.
util::value_array disks(const util::NASConfDB& db);

// The configuration's mounts, as in the state; without sizes where nothing is mounted.
util::value_array volumes(const util::NASConfDB& db);

// Appends what the owner should know.
void add_storage_faults(const util::NASConfDB& db, std::vector<std::string>& to);

}  // namespace appliance
