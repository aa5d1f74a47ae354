// SPDX-License-Identifier: MIT
// Getting settings back after a crash.
#pragma once

#include "util/PropertyList.h"
#include "util/export.h"

#include <string>

namespace service {

// Where a list came from.
struct Recovery {
  enum class Source { none, file, backup };

  Source source;
  std::string reason;  // why it is not the file, "<file>: <reason>"; else empty
};

// Loads the list from its file or, where that is missing or cannot be loaded, from its backup. If
// there is neither, the list stays as it is. Throws what load() has thrown for the file if the
// backup cannot be loaded either; the list is as before then.
//
// Changes no file. Call restore() before the next save if the file is there and broken: saving
// makes the file the backup, and a power failure in that moment would leave two broken ones.
UTIL_EXPORT Recovery recover(util::PropertyList& list);

// Loads the list from its backup and makes this the file again: at any moment load() finds the file
// as it was or the backup, also when the power fails. The backup stays, and what was the file is
// kept as "<file>.replaced". Does nothing but load where both are one file already.
//
// Throws malformed_property_list if the backup cannot be loaded, and no file is touched;
// save_failed,
// "<file>: <reason>", if there is no backup or a system call fails.
UTIL_EXPORT void restore(util::PropertyList& list);

}  // namespace service
