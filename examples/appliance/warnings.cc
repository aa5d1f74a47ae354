// SPDX-License-Identifier: MIT
#include "warnings.h"

#include "texts.h"

#include <algorithm>

namespace appliance {

using util::value_array;
using util::value_struct;

Warnings::Changes Warnings::update(const std::vector<std::string>& causes, time_t now) {
  Changes changes;
  for (const Warning& warning : warnings_) {
    if (std::count(causes.begin(), causes.end(), warning.text) == 0) {
      changes.gone.push_back(warning.text);
    }
  }
  for (const std::string& text : changes.gone) {
    warnings_.erase(std::find_if(warnings_.begin(), warnings_.end(),
                                 [&text](const Warning& each) { return each.text == text; }));
  }
  for (const std::string& text : causes) {
    if (stands(text)) continue;
    const std::string id = std::to_string(now) + "-" + std::to_string(++count_);
    warnings_.push_back({id, text, utc_text(now), false});
    changes.come.push_back(text);
  }
  return changes;
}

std::vector<std::string> Warnings::acknowledge(const Ids& ids) {
  std::vector<std::string> texts;
  for (Warning& warning : warnings_) {
    if (warning.acknowledged || ids.count(warning.id) == 0) continue;
    warning.acknowledged = true;
    texts.push_back(warning.text);
  }
  return texts;
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
  warnings_.clear();
  for (const value_struct& value : values) {
    warnings_.push_back(
        {value.at("id"), value.at("text"), value.at("since"), value.at("acknowledged")});
  }
}

bool Warnings::stands(const std::string& text) const {
  return std::any_of(warnings_.begin(), warnings_.end(),
                     [&text](const Warning& each) { return each.text == text; });
}

}  // namespace appliance
