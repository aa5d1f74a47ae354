// SPDX-License-Identifier: MIT
// The form in which lists are saved, read without the XML parser.
#pragma once

#include "util/Value.h"
#include "util/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace util {

// How each saved list begins.
constexpr std::string_view kSavedStart =
    "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
    "<plist version=\"1.0\">\n";

// The list in `file`, if that is written as save() and saveDurably() write it; blanks between
// elements may differ. The parser would give the same list, but takes several times as long, and
// its tree many times the memory of the text.
//
// Any other file gives nothing: the parser has to say what it holds, or what is wrong with it.
// Throws a ticpp::Exception as ticpp::Document::LoadFile() does if the file cannot be read.
std::optional<value_struct> read_saved_form(const std::string& file);

// The instant that a date element's text stands for; nothing if the text is malformed.
std::optional<utime_t> instant_of(const std::string& text);

}  // namespace util
