// SPDX-License-Identifier: MIT
#include "service/categories.h"

#include <algorithm>

namespace service {
namespace {

constexpr char kBlanks[] = " \t\r\n";

void trim(std::string& text) {
  text.erase(text.find_last_not_of(kBlanks) + 1);
  text.erase(0, text.find_first_not_of(kBlanks));
}

struct Item {
  bool on;
  std::string name;
};

// Takes the first item off the list. False if there is none.
bool take(std::string& list, Item& to) {
  while (!list.empty()) {
    const size_t end = std::min(list.find(','), list.size());
    to.name = list.substr(0, end);
    list.erase(0, end + 1);
    trim(to.name);
    if (to.name.empty()) continue;
    to.on = to.name[0] != '-';
    if (!to.on) to.name.erase(0, 1);
    trim(to.name);
    return true;
  }
  return false;
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
  bool known = true;
  Item item = {};
  for (std::string rest = list; take(rest, item);) {
    if (util::category::forName(item.name) != nullptr) continue;
    known = false;
    if (unknown != nullptr) unknown->append(unknown->empty() ? "" : ", ").append(item.name);
  }
  if (!known) return false;
  for (std::string rest = list; take(rest, item);) {
    const util::category& c = *util::category::forName(item.name);
    if (item.on) {
      log.enable(c);
    } else {
      disable(log, c);
    }
  }
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
