// SPDX-License-Identifier: MIT
// Data as an indented outline.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tools {

// Text between double quotes on one line: line ends, tabs, quotes and backslashes as in "\n", other
// control bytes and what is not UTF-8 as in "\x1B".
std::string quoted(std::string_view text);

// The text itself where it is a plain word.
std::string plain_or_quoted(const std::string& text);

// Writes to standard output, two blanks a level:
//
//   system:
//     hostname: "nas"
//
// Names and values are printed as they are given.
class Outline {
 public:
  void item(const std::string& name, const std::string& value);
  void text(const std::string& name, std::string_view value) { item(name, quoted(value)); }
  void open(const std::string& name);  // what follows is inside it, until close()
  void close() { --level_; }

 private:
  void begin(const std::string& name) const;

  size_t level_ = 0;
};

}  // namespace tools
