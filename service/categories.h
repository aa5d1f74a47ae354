// SPDX-License-Identifier: MIT
// Which categories a logger lets through, as text from a command line, a settings file or a control
// socket.
#pragma once

#include "util/export.h"
#include "util/logger.h"

#include <string>

namespace service {

// Enables the categories of a list such as "INFO, EVENT LOOP, -MEMORY", and disables those with a
// '-' before them. Blanks around a name are ignored, those within it are not. Enabling a level
// enables those before it, and disabling one disables those after it: "-INFO" leaves WARNING
// enabled.
//
// All or nothing: if a name is not that of a category, the logger is left as it is, the result is
// false, and the unknown names, separated by ", ", are appended to `unknown` if given.
UTIL_EXPORT bool apply_categories(util::logger& log, const std::string& list,
                                  std::string* unknown = nullptr);

// All categories by name, one per line: "on  INFO" or "off EVENT LOOP".
UTIL_EXPORT std::string list_categories(const util::logger& log);

}  // namespace service
