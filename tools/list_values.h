// SPDX-License-Identifier: MIT
// Values of property lists as they are typed and shown.
#pragma once

#include "tools/outline.h"
#include "util/Value.h"

#include <optional>
#include <string>

namespace tools {

// A kind of value as the command line names it.
struct ListType {
  const char* name;
  util::Type type;
  bool has_text;  // a dictionary and an array have none: they are empty
  std::optional<util::Value> (*read)(const std::string& text);
};

const ListType* find_list_type(const std::string& name);  // null where there is none
const char* name_of_type(const util::Value& value);

// The text of a value that is not a container: "nas", "0.5", "true", "2008-05-01T14:03:59Z",
// "AQID".
std::string raw_text(const util::Value& value);

// The same in a form that shows its kind, also for an empty container: "\"nas\"", "2.0",
// "data AQID", "{}".
std::string outline_text(const util::Value& value);

void show_entries(Outline& out, const util::value_struct& entries);
void show_elements(Outline& out, const util::value_array& elements);

// Prints a line for each value that only one of the lists has, such as "-network/mtu: 1500" and
// "+network/mtu: 9000". Returns whether there was any.
bool show_differences(const util::value_struct& old, const util::value_struct& current);

}  // namespace tools
