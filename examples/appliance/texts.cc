// SPDX-License-Identifier: MIT
#include "texts.h"

#include <service/utf8.h>

namespace appliance {

std::string utc_text(time_t instant) {
  struct tm parts = {};
  if (gmtime_r(&instant, &parts) == nullptr) return "";
  char text[64];
  return std::string(text, strftime(text, sizeof text, "%FT%TZ", &parts));
}

time_t utc_time(const std::string& text) {
  struct tm parts = {};
  const char* const end = strptime(text.c_str(), "%FT%TZ", &parts);
  return end != nullptr && *end == '\0' ? timegm(&parts) : 0;
}

std::string clean(const std::string& text) {
  std::string cleaned;
  bool blank = false;
  for (const char c : service::valid_utf8(text)) {
    const bool visible = static_cast<unsigned char>(c) > ' ' && c != '\x7f';
    if (visible && blank && !cleaned.empty()) cleaned += ' ';
    if (visible) cleaned += c;
    blank = !visible;
  }
  return cleaned;
}

void put(util::value_struct& to, const std::string& key, const std::string& text) {
  const std::string cleaned = clean(text);
  if (!cleaned.empty()) to[key] = cleaned;
}

}  // namespace appliance
