// SPDX-License-Identifier: MIT
#include "texts.h"

namespace appliance {

std::string utc_text(time_t instant) {
  struct tm parts = {};
  if (gmtime_r(&instant, &parts) == nullptr) return "";
  char text[64];
  return std::string(text, strftime(text, sizeof text, "%FT%TZ", &parts));
}

void put(util::value_struct& to, const std::string& key, const std::string& text) {
  if (text.find_first_not_of(" \t\r\n") != text.npos) to[key] = text;
}

}  // namespace appliance
