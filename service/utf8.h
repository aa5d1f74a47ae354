// SPDX-License-Identifier: MIT
// Texts from elsewhere, such as names of files and devices, need not be UTF-8; what goes into a
// page or a JSON text must be.
#pragma once

#include "util/export.h"

#include <cstddef>
#include <string>

namespace service {

// `text` with U+FFFD for each sequence of bytes that is not UTF-8, which includes overlong forms,
// surrogates, characters beyond U+10FFFF and truncated ones.
UTIL_EXPORT std::string valid_utf8(const std::string& text);

UTIL_EXPORT bool is_utf8(const std::string& text);

// The character that begins at `at`, or the bytes there that are not one, up to where the next one
// may begin. `at` is before `end`; the size is at least 1.
struct Utf8Piece {
  std::size_t size;
  bool valid;
};
UTIL_EXPORT Utf8Piece utf8_piece(const char* at, const char* end);

}  // namespace service
