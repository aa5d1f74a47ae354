// SPDX-License-Identifier: MIT
// Recovers settings after a crash.
#pragma once

#include "util/PropertyList.h"
#include "util/export.h"

#include <string>

namespace service {

// What load() threw, in full: "<file>: load failed: <reason>", with row and column if it has them.
UTIL_EXPORT std::string reason_of(const util::malformed_property_list& failure);

// Where a list came from.
struct Recovery {
  enum class Source { none, file, backup };

  Source source;
  std::string reason;  // why not from the file, "<file>: <reason>"; else empty
};

// Loads the list from its file or, if that is missing or cannot be loaded, from its backup. If
// neither exists, the list is left as it is. If the backup cannot be loaded either, throws what
// load() threw for the file and leaves the list as it is.
//
// Changes no file. Call restore() before the next save if the file exists but is broken: saving
// makes it the backup, and a power failure at that moment would leave two broken files.
UTIL_EXPORT Recovery recover(util::PropertyList& list);

// Loads the list from its backup and makes that the file again: at any moment load() finds either
// the file as it was or the backup, even if the power fails. The backup stays, and the former file
// is kept as "<file>.replaced". Only loads if both are already the same file.
//
// Throws malformed_property_list, and touches no file, if the backup cannot be loaded; save_failed,
// "<file>: <reason>", if there is no backup or a system call fails.
UTIL_EXPORT void restore(util::PropertyList& list);

}  // namespace service
