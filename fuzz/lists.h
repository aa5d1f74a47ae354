// SPDX-License-Identifier: MIT
// Property lists: the reader of their rules, and what saving promises.
#pragma once

#include "util/PropertyList.h"

#include <string>

namespace fuzz {

// Loading `text` gives what the rules say, list or message, and a list that is refused leaves
// everything as it was. What was loaded is saved too.
void check_loading(const std::string& text);

// A list without problems is saved and loaded again as it is, any other is not.
void check_saving(const util::value_struct& properties);

// Every list that a durable save accepts is loaded again as it is, but for what a date cannot hold.
void check_saving_durably(const util::value_struct& properties);

}  // namespace fuzz
