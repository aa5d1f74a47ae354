// SPDX-License-Identifier: MIT
// Percent sequences for the characters that Windows file names reserve:
//
//   "  %22    %  %25    *  %2A    :  %3A    <  %3C    >  %3E    ?  %3F    \  %5C    |  %7C
//
// and %2E for a '.' that ends the name. Only upper-case digits are used; this is not a general URL
// codec.
//
// The two functions are not inverses of each other: "%5C" unescapes to nothing, a '%' that already
// introduces a sequence is not escaped again, and a sequence cut short by a '%' loses a character.
// Any bytes are accepted, NUL and those above 127 included.
#pragma once

#include "util/export.h"

#include <string>

namespace util {

// `s` with the reserved characters replaced. A '%' becomes "%25" unless it introduces one of the
// nine sequences ("%2E" is not one of them) or fewer than two characters follow it; a text that is
// only "%" is escaped too.
UTIL_EXPORT std::string escape_string(const std::string& s);

// `s` with the sequences replaced by their characters; "%2E" only at the end of the text.
// Everything else stays as it is. A NUL after a '%' ends the sequence and is dropped with the rest
// of it.
UTIL_EXPORT std::string unescape_string(const std::string& s);

}  // namespace util
