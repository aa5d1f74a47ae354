// SPDX-License-Identifier: MIT
#include "warnings.h"

#include "texts.h"

#include <algorithm>
#include <random>
#include <stdexcept>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

std::string new_id() {
  std::random_device random;
  return std::to_string(random()) + "-" + std::to_string(random());
}

}  // namespace

Warnings::Changes Warnings::update(const std::vector<std::string>& causes, time_t now) {
  Changes changes;
  std::vector<Warning> standing;
  for (const std::string& cause : causes) {
    const std::string text = clean(cause);
    const auto is_it = [&text](const Warning& each) { return each.text == text; };
    if (std::any_of(standing.begin(), standing.end(), is_it)) continue;
    const auto before = std::find_if(warnings_.begin(), warnings_.end(), is_it);
    if (before == warnings_.end()) changes.come.push_back(text);
    standing.push_back(before != warnings_.end() ? *before
                                                 : Warning{new_id(), text, utc_text(now), false});
  }
  for (const Warning& each : warnings_) {
    const auto is_it = [&each](const Warning& other) { return other.id == each.id; };
    if (std::none_of(standing.begin(), standing.end(), is_it)) changes.gone.push_back(each.text);
  }
  warnings_ = std::move(standing);
  return changes;
}

std::string Warnings::acknowledge(const std::string& id) {
  for (Warning& warning : warnings_) {
    if (warning.id != id) continue;
    warning.acknowledged = true;
    return warning.text;
  }
  throw std::invalid_argument("there is no such warning any more");
}

value_array Warnings::value() const {
  value_array values;
  for (const Warning& warning : warnings_) {
    value_struct value{
        {"acknowledged", warning.acknowledged}
    };
    put(value, "id", warning.id);
    put(value, "text", warning.text);
    put(value, "since", warning.since);
    values.push_back(value);
  }
  return values;
}

void Warnings::restore(const value_array& values) {
  std::vector<Warning> restored;
  for (const value_struct& value : values) {
    restored.push_back(
        {value.at("id"), value.at("text"), value.at("since"), value.at("acknowledged")});
  }
  warnings_ = std::move(restored);
}

}  // namespace appliance
