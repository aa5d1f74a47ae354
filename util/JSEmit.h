// SPDX-License-Identifier: MIT
#pragma once

#include "util/Value.h"
#include "util/export.h"

#include <string>

namespace util {

// Turns values into script text for the web page. A script engine reads what the value holds, with
// doubles rounded to six significant digits. Numbers are written the same way in every locale.
//
// There are exceptions: dates, infinities and NaN do not give a valid script, and an engine does
// not make an entry of the key "__proto__". Texts are not escaped for HTML: "</script>" in a text
// ends the element that holds the script.
//
// Throws type_exception, "cannot encode void values", if there is a VOID anywhere in the value.
// Recurses: 10,000 levels are safe on a stack of 8 MiB.
class UTIL_EXPORT JSEmit {
 public:
  // The literal of `v`: { 'key' : 5, 'list' : [ 'text', true ] }. Byte strings become arrays of
  // numbers, and dates become local time without quotes, 2008-05-01T14:03:59CEST.
  std::string emitValue(const Value& v) const;

  // The definition of a function without parameters that returns the literal of `v`. `name` is
  // written unchecked.
  std::string emitFunction(const std::string& name, const Value& v) const;
};

}  // namespace util
