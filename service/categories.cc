// SPDX-License-Identifier: MIT
#include "service/categories.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace service {
namespace {

constexpr char kBlanks[] = " \t\r\n";

std::string trimmed(const std::string& text) {
  const size_t start = text.find_first_not_of(kBlanks);
  if (start == text.npos) return "";
  return text.substr(start, text.find_last_not_of(kBlanks) + 1 - start);
}

std::vector<std::string> items(const std::string& list) {
  std::vector<std::string> all;
  for (size_t start = 0; start <= list.size();) {
    const size_t end = std::min(list.find(',', start), list.size());
    const std::string item = trimmed(list.substr(start, end - start));
    if (!item.empty()) all.push_back(item);
    start = end + 1;
  }
  return all;
}

// Levels share bits, so disabling one must not take any from those that stay enabled.
void disable(util::logger& log, const util::category& c) {
  const util::category* kept = nullptr;
  for (const util::category* const level : {&util::WARNING, &util::INFO, &util::DEBUG}) {
    if (level->equal_to(c)) {
      log.disable(util::DEBUG);
      if (kept != nullptr) log.enable(*kept);
      return;
    }
    if (log.isLoggable(*level)) kept = level;
  }
  log.disable(c);
}

}  // namespace

bool apply_categories(util::logger& log, const std::string& list, std::string* unknown) {
  std::vector<std::pair<const util::category*, bool>> changes;
  bool known = true;
  for (const std::string& item : items(list)) {
    const bool on = item[0] != '-';
    const std::string name = on ? item : trimmed(item.substr(1));
    const util::category* const found = util::category::forName(name);
    changes.emplace_back(found, on);
    if (found != nullptr) continue;
    known = false;
    if (unknown != nullptr) unknown->append(unknown->empty() ? "" : ", ").append(name);
  }
  if (!known) return false;
  for (const auto& [category, on] : changes) on ? log.enable(*category) : disable(log, *category);
  return true;
}

std::string list_categories(const util::logger& log) {
  std::string text;
  for (const util::category* const one : util::category::categories()) {
    text.append(log.isLoggable(*one) ? "on  " : "off ").append(one->name()).append("\n");
  }
  return text;
}

}  // namespace service
