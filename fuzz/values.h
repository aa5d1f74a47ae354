// SPDX-License-Identifier: MIT
// Trees of values, made of an input and written out.
#pragma once

#include "fuzz/fuzz.h"
#include "util/Value.h"

#include <string>

namespace fuzz {

// A byte for the kind, then the payload. Texts, keys and bytes begin with their length, maps and
// arrays with the number of what they hold, which ends with the input.
util::Value built(Input& input);

util::value_struct built_struct(Input& input, int count);

// All of a value in one text that no other value has.
std::string spelled(const util::Value& v);

}  // namespace fuzz
