// SPDX-License-Identifier: MIT
#include "service/internal/entry_text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace service {
namespace {

char* put(char* to, std::string_view text) {
  memcpy(to, text.data(), text.size());
  return to + text.size();
}

// What vsnprintf() does, in a fraction of the time, for a format of nothing but text, %s, %d and
// %u. Returns the length, or -1 if there is anything else or no room.
int format_plain(char* to, size_t room, const char* format, va_list args) {
  char* at = to;
  char* const end = to + room;
  const auto add = [&at, end](std::string_view text) {
    if (text.size() >= static_cast<size_t>(end - at)) return false;
    at = put(at, text);
    return true;
  };
  const auto add_number = [&at, end](int64_t number) {
    const auto [behind, error] = std::to_chars(at, end, number);
    at = behind;
    return error == std::errc();
  };
  while (true) {
    const char* const percent = strchrnul(format, '%');
    if (!add({format, static_cast<size_t>(percent - format)})) return -1;
    if (*percent == '\0') return static_cast<int>(at - to);
    if (percent[1] == 's') {
      const char* const text = va_arg(args, const char*);
      if (text == nullptr || !add(text)) return -1;
    } else if (percent[1] == 'd') {
      const int number = va_arg(args, int);
      if (!add_number(number)) return -1;
    } else if (percent[1] == 'u') {
      const unsigned number = va_arg(args, unsigned);
      if (!add_number(number)) return -1;
    } else {
      return -1;
    }
    format = percent + 2;
  }
}

int format_message(char* to, size_t room, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  int length = format_plain(to, room, format, again);
  va_end(again);
  if (length >= 0) return length;
  va_copy(again, args);
  length = vsnprintf(to, room, format, again);
  va_end(again);
  return length >= 0 ? length : snprintf(to, room, "%s", format);
}

}  // namespace

size_t put_entry(char* to, size_t room, std::string_view time, const char* where,
                 const char* category, const char* format, va_list args) {
  const std::string_view where_text = where;
  const std::string_view category_text = category;
  const size_t head = time.size() + where_text.size() + category_text.size() + strlen(" \n: ");
  const size_t left = room > head ? room - head : 0;
  char* const message = to + std::min(head, room);
  const auto length = static_cast<size_t>(format_message(message, left, format, args));
  if (length < left) {
    to = put(to, time);
    *to++ = ' ';
    to = put(to, where_text);
    *to++ = '\n';
    to = put(to, category_text);
    *to++ = ':';
    *to++ = ' ';
    message[length] = '\n';  // replaces the terminating NUL
  }
  return head + length + 1;
}

}  // namespace service
