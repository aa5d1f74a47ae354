// SPDX-License-Identifier: MIT
#pragma once

#include <util/PropertyList.h>

#include <string>

namespace appliance {

// Throws std::runtime_error for what is there but is not a regular file: opening a FIFO would block
// for ever.
void refuse_special(const std::string& path);

// Loads the list; throws as load() and refuse_special().
void load(util::PropertyList& list);

// Replaces the list's file as a whole, so that a reader finds the old or the new one, without
// making the disk keep it. Throws as save(), std::filesystem::filesystem_error.
void replace(const util::PropertyList& list);

// Removes what saveDurably() leaves of the list when its process is killed. Nobody else may save it
// meanwhile.
void remove_leftovers(const util::PropertyList& list);

}  // namespace appliance
