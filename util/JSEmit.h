// SPDX-License-Identifier: MIT
#pragma once

#include "util/Value.h"
#include "util/export.h"

#include <string>

namespace util {

// Turns values into script text for the web page. Numbers read the same in every locale.
//
// Throws type_exception, "cannot encode void values", where a VOID is anywhere in the value.
// Recurses: some 10,000 levels are safe on a stack of 8 MiB.
class UTIL_EXPORT JSEmit {
 public:
  // The literal of `v`: { 'key' : 5, 'list' : [ 'text', true ] }. Doubles have six significant
  // digits, byte strings are arrays of numbers. Dates are bare text, unquoted, as in
  // 2008-05-01T14:03:59UTC: no script reads them, so keep them out of what an engine evaluates.
  std::string emitValue(const Value& v) const;

  // The definition of a function without arguments that returns the literal of `v`. `name` goes
  // out unchecked.
  std::string emitFunction(const std::string& name, const Value& v) const;
};

}  // namespace util
