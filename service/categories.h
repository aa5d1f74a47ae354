// SPDX-License-Identifier: MIT
// Which categories a logger lets through, as text from a command line, a settings file or a control
// socket.
#pragma once

#include "util/export.h"
#include "util/logger.h"

#include <string>

namespace service {

// Enables the categories of a list such as "INFO, EVENT LOOP, -MEMORY", and disables those behind a
// '-'. Blanks around a name do not count, those within do. A level brings the ones before it and
// takes the ones behind it: "-INFO" leaves WARNING enabled.
//
// All or nothing: where a name is not that of a category, the logger stays as it is, the result is
// false and `unknown`, if given, gets the unknown names appended, separated by ", ".
UTIL_EXPORT bool apply_categories(util::logger& log, const std::string& list,
                                  std::string* unknown = nullptr);

// All categories by name, one a line: "on  INFO" or "off EVENT LOOP".
UTIL_EXPORT std::string list_categories(const util::logger& log);

}  // namespace service
