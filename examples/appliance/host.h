// SPDX-License-Identifier: MIT
#pragma once

#include "samplers.h"

#include <util/NASConfDB.h>
#include <util/Value.h>

#include <string>
#include <vector>

namespace appliance {

// What the configuration calls this machine and what it is, as in the state.
util::value_struct system(const util::NASConfDB& db, const Machine& machine);

// What the board's lines say, as in the state; empty on a machine that is no such board.
util::value_struct board(const Machine& machine);

// This machine's interfaces and those of the configuration that it lacks, as in the state. Throws
// util::system_exception where the kernel cannot be asked.
util::value_array interfaces(const util::NASConfDB& db, const Machine& machine);

// What this machine is called by itself, by name or address: what a browser may ask it for.
util::value_array own_names(const util::NASConfDB& db);

// Appends what the owner should know.
void add_host_faults(const util::NASConfDB& db, const Machine& machine,
                     std::vector<std::string>& to);

}  // namespace appliance
