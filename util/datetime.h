// SPDX-License-Identifier: MIT
// Instants as text, always in the local time zone.
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// The instant that the whole of `str` gives in a format of strptime(). 0, like the epoch itself, if
// it does not match or anything is left over, even a trailing blank or NUL. Fields that the format
// does not set are 0. 30 February counts as 2 March. An instant that the C library cannot represent
// gives -1000 as an unsigned number.
UTIL_EXPORT utime_t parse_time(const std::string& str, const char* format);

// `t` without its milliseconds, in a format of strftime(). Empty if the text would be longer than
// 255 characters or the C library has no local time for the instant.
UTIL_EXPORT std::string unparse_time(utime_t t, const char* format);

}  // namespace util
