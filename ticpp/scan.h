// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

namespace ticpp {

// A text for the parser ends with this many NUL bytes: a character cut short at the end makes the
// parser step over the first of them.
constexpr size_t kPadding = 8;

// Walks over a text as the parser does, but without recursion, because the parser has no limits of
// its own and reports no declaration that it cannot read. Throws an Exception, with row and column,
// for a text that the parser must not be given.
//
// Returns the text without the blanks before markup, which the parser would skip one by one, only
// more slowly.
std::string scan(const std::string& text);

}  // namespace ticpp
