// SPDX-License-Identifier: MIT
// Values as JSON, for pages, scripts and other programs:
//
//   std::string text = service::to_json(status, service::INDENTED);
//   util::Value settings = service::from_json(text);
#pragma once

#include "util/Value.h"
#include "util/export.h"

#include <cstddef>
#include <stdexcept>
#include <string>

namespace service {

// How a text is written; may be combined by `|`.
enum JsonStyle : unsigned {
  COMPACT = 0,    // on one line, without blanks
  INDENTED = 1,   // one entry per line, indented by two blanks per level
  IN_SCRIPT = 2,  // may stand inside a <script> element: '<', U+2028 and U+2029 are escaped
};

// The JSON text of `value`, in UTF-8, without a line feed at its end. from_json() gives back an
// equal value, except for what JSON cannot represent:
//
//   value                           text                             comes back as
//   an instant                      "2008-05-01T14:03:59.250Z", UTC  text
//   bytes                           base64                           text
//   an infinity or a NaN            null                             VOID
//   text that is not UTF-8          U+FFFD for what is not           that text
//
// If this makes keys equal, further U+FFFD are appended to the later ones. Recurses: 10,000 levels
// are safe on a stack of 8 MiB.
UTIL_EXPORT std::string to_json(const util::Value& value, unsigned style = COMPACT);

// How large a JSON text may be.
struct JsonLimits {
  std::size_t size = 64U << 20;  // of the text, in bytes
  std::size_t depth = 1000;      // of nested arrays and objects; at most 10,000
};

// A text is not JSON, or not what from_json() accepts. what() is "<row>:<column>: <reason>", the
// place where reading stopped, both counted from 1, columns in bytes.
class UTIL_EXPORT json_error : public std::runtime_error {
 public:
  json_error(std::size_t row, std::size_t column, const std::string& reason);

  std::size_t row() const { return row_; }
  std::size_t column() const { return column_; }

 private:
  std::size_t row_;
  std::size_t column_;
};

// The value of a JSON text: objects are STRUCT, arrays ARRAY, texts STRING, null VOID. A number
// without fraction and exponent is an INTEGER if it fits an int; every other one is a DOUBLE.
//
// Throws json_error if the text is not valid JSON in UTF-8, exceeds a limit, has a key twice in an
// object, or has an integer beyond 2^53, which a double might round.
UTIL_EXPORT util::Value from_json(const std::string& text, const JsonLimits& limits = {});

}  // namespace service
