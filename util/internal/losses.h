// SPDX-License-Identifier: MIT
// What the forms of property lists cannot represent.
#pragma once

#include "util/Value.h"
#include "util/types.h"

#include <string>

namespace util {

// Null if nothing is wrong.
struct Loss {
  const char* saved = nullptr;    // what becomes of the value in the form that save() writes
  const char* refused = nullptr;  // why no form comes back equal, so that saveDurably() refuses it
};

Loss loss_of(const std::string& text);
Loss loss_of(double number);
Loss loss_of(const byte_string& bytes);

// Why load() would find neither the second of this instant nor its twin in an hour that occurs
// twice, or null. `text` is the instant as save() writes it.
const char* refusal_of_date(utime_t instant, const std::string& text);

// "<path>: <reason>" of the first value that saveDurably() refuses; empty if there is none.
std::string first_refusal(const value_struct& list);

}  // namespace util
