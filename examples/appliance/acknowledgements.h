// SPDX-License-Identifier: MIT
// Which warnings the user has acknowledged: a property list that the web back end writes and the
// daemon reads, so that each file has one writer.
#pragma once

#include <set>
#include <string>

namespace appliance {

using Ids = std::set<std::string>;

// The acknowledged warnings. Empty where there is no file yet; throws what PropertyList::load()
// throws, and type_exception or unknown_key where the list holds something else.
Ids acknowledged(const std::string& file);

// Adds `id`. Forgets all that are not in `known`, so that the file cannot grow without bound.
// Several at once wait for each other. Throws as acknowledged(), save_failed, and
// util::system_exception where the lock cannot be had.
void acknowledge(const std::string& file, const std::string& id, const Ids& known);

}  // namespace appliance
