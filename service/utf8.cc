// SPDX-License-Identifier: MIT
#include "service/utf8.h"

#include <algorithm>
#include <string_view>

namespace service {
namespace {

// The characters of one length, by their first byte. The second byte has bounds of its own, which
// exclude overlong forms, surrogates and anything beyond the last character.
struct Form {
  unsigned char first, last;
  unsigned char second_from, second_to;
  size_t size;
};

constexpr Form kForms[] = {
    {0x00, 0x7F, 0x00, 0xFF, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},
};

unsigned char byte_at(const char* at) { return static_cast<unsigned char>(*at); }

bool between(unsigned char from, unsigned char c, unsigned char to) { return from <= c && c <= to; }

}  // namespace

Utf8Piece utf8_piece(const char* at, const char* end) {
  for (const Form& form : kForms) {
    if (!between(form.first, byte_at(at), form.last)) continue;
    const size_t room = std::min(form.size, static_cast<size_t>(end - at));
    for (size_t size = 1; size < room; ++size) {
      const bool good = size == 1 ? between(form.second_from, byte_at(at + 1), form.second_to)
                                  : between(0x80, byte_at(at + size), 0xBF);
      if (!good) return {size, false};
    }
    return {room, room == form.size};
  }
  return {1, false};
}

bool is_utf8(const std::string& text) {
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end;) {
    if (byte_at(at) < 0x80) {  // as most are
      ++at;
      continue;
    }
    const auto [size, valid] = utf8_piece(at, end);
    if (!valid) return false;
    at += size;
  }
  return true;
}

std::string valid_utf8(const std::string& text) {
  std::string all;
  all.reserve(text.size());
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end;) {
    const auto [size, valid] = utf8_piece(at, end);
    all += valid ? std::string_view(at, size) : "\xEF\xBF\xBD";
    at += size;
  }
  return all;
}

}  // namespace service
