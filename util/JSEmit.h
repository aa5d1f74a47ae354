// SPDX-License-Identifier: MIT
#pragma once

#include "util/Value.h"
#include "util/export.h"

#include <string>

namespace util {

// Turns values into script text for the web page: what an engine reads is what the value holds,
// doubles rounded to six significant digits. Numbers are written the same in every locale.
//
// Exceptions to it: dates, infinite doubles and those that are no number are no script at all, and
// a key "__proto__" is no entry to an engine. Texts are not escaped for HTML: "</script>" in one
// ends the element that holds the script.
//
// Throws type_exception, "cannot encode void values", where a VOID is anywhere in the value.
// Recurses: 10,000 levels are safe on a stack of 8 MiB.
class UTIL_EXPORT JSEmit {
 public:
  // The literal of `v`: { 'key' : 5, 'list' : [ 'text', true ] }. Byte strings become arrays of
  // numbers, dates bare local time without quotes, 2008-05-01T14:03:59CEST.
  std::string emitValue(const Value& v) const;

  // The definition of a function without arguments that returns the literal of `v`. `name` goes
  // out unchecked.
  std::string emitFunction(const std::string& name, const Value& v) const;
};

}  // namespace util
