// SPDX-License-Identifier: MIT
// Base64 text with the standard alphabet and '=' padding (RFC 4648).
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>

namespace util {

// Appends `in` to `out` as Base64. If `tw` is above 0, a line feed follows every `tw` characters,
// padding included, so a text of whole lines ends with one. Returns 0; throws std::length_error if
// `out` would grow past its maximum size.
UTIL_EXPORT int b64_encode(const byte_string& in, std::string& out, int tw);

// Appends the decoded bytes of `in` to `out` and returns 0. White space anywhere, missing padding,
// digits of an unfinished last group and whatever follows the padding are ignored; a NUL counts as
// a digit.
//
// If the text is malformed, appends the bytes before the fault and returns
//   -1 for a character that is not a digit,
//   -2 for padding where no byte can end,
//   -3 for a missing second '='.
UTIL_EXPORT int b64_decode(const std::string& in, byte_string& out);

}  // namespace util
