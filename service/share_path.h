// SPDX-License-Identifier: MIT
#pragma once

#include "util/NASConfDB.h"
#include "util/export.h"

#include <string>

namespace service {

// The folder that holds the share's files, always inside the base folder of its location, whatever
// the share is called: root_path() with the name as util::escape_string() escapes it, which is the
// folder's name on disk. ".." becomes ".%2E".
//
// Throws util::bad_location if the share has no location, std::invalid_argument if its name is
// empty or holds a slash or a NUL byte.
UTIL_EXPORT std::string share_path(util::NASShare share);

}  // namespace service
