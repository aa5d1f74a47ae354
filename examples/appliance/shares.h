// SPDX-License-Identifier: MIT
#pragma once

#include <util/NASConfDB.h>
#include <util/Value.h>

#include <string>
#include <vector>

namespace appliance {

// The configuration's shares as in the state, in natural order of their names. A share's folder
// bears its escaped name, so that every client can open it.
util::value_array shares(const util::NASConfDB& db);

// Appends what the owner should know.
void add_share_faults(const util::NASConfDB& db, std::vector<std::string>& to);

}  // namespace appliance
