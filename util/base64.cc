// SPDX-License-Identifier: MIT
#include "util/base64.h"

#include <ctype.h>
#include <string.h>

#include <array>
#include <stdexcept>

namespace util {
namespace {

constexpr const char* B64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kBad = 0xFF;

constexpr std::array<unsigned char, 256> digit_values() {
  std::array<unsigned char, 256> values = {};
  for (unsigned char& value : values) value = kBad;
  // Kept: up to the terminator of the alphabet, so that a NUL is a digit of value 64.
  for (unsigned char i = 0; i <= 64; ++i) values[static_cast<unsigned char>(B64[i])] = i;
  return values;
}

constexpr std::array<unsigned char, 256> kValues = digit_values();

unsigned value_of(char c) { return kValues[static_cast<unsigned char>(c)]; }

bool is_space(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

unsigned char low_byte(unsigned bits) { return static_cast<unsigned char>(bits & 0xFF); }

void encode(const byte_string& in, char* to) {
  const unsigned char* from = in.data();
  size_t srclen = in.size();
  for (; srclen > 2; srclen -= 3, from += 3, to += 4) {
    const unsigned group = unsigned{from[0]} << 16 | unsigned{from[1]} << 8 | from[2];
    to[0] = B64[group >> 18];
    to[1] = B64[group >> 12 & 63];
    to[2] = B64[group >> 6 & 63];
    to[3] = B64[group & 63];
  }
  if (srclen == 0) return;
  const unsigned group = unsigned{from[0]} << 16 | (srclen == 2 ? unsigned{from[1]} << 8 : 0);
  to[0] = B64[group >> 18];
  to[1] = B64[group >> 12 & 63];
  to[2] = srclen == 2 ? B64[group >> 6 & 63] : '=';
  to[3] = '=';
}

// Moves the lines, which stand `feeds` bytes behind `text`, to their places, each with its feed.
void wrap(char* text, size_t feeds, size_t width) {
  for (; feeds > 0; --feeds) {
    memmove(text, text + feeds, width);
    text[width] = '\n';
    text += width + 1;
  }
}

// Decodes groups of four digits, up to the first that holds anything else.
const char* decode_groups(const char* at, const char* end, unsigned char*& to) {
  for (; end - at >= 4; at += 4, to += 3) {
    const unsigned a = value_of(at[0]), b = value_of(at[1]), c = value_of(at[2]),
                   d = value_of(at[3]);
    if ((a | b | c | d) > 63) break;
    to[0] = low_byte(a << 2 | b >> 4);
    to[1] = low_byte(b << 4 | c >> 2);
    to[2] = low_byte(c << 6 | d);
  }
  return at;
}

// `at` is behind the first '='. What follows the padding is not looked at.
int check_padding(int state, const char* at, const char* end) {
  if (state < 2) return -2;
  if (state == 3) return 0;
  while (at != end && is_space(*at)) ++at;
  return at != end && *at == '=' ? 0 : -3;
}

// `state` counts the digits of the group so far, `pending` holds their bits not yet written.
int decode(const char* at, const char* end, unsigned char*& to) {
  int state = 0;
  unsigned char pending = 0;
  for (;; ++at) {
    if (state == 0) at = decode_groups(at, end, to);
    if (at == end) return 0;  // Kept: the bits of an unfinished group are dropped.
    if (is_space(*at)) continue;
    if (*at == '=') return check_padding(state, at + 1, end);
    const unsigned value = value_of(*at);
    if (value == kBad) return -1;
    if (state > 0) *to++ = low_byte(pending | value >> (6 - 2 * state));
    pending = low_byte(value << (2 + 2 * state));
    state = (state + 1) % 4;
  }
}

}  // namespace

int b64_encode(const byte_string& in, std::string& out, int tw) {
  const size_t width = tw > 0 ? static_cast<size_t>(tw) : 0;
  const size_t digits = (in.size() + 2) / 3 * 4;
  const size_t feeds = width > 0 ? digits / width : 0;
  const size_t start = out.size();
  const size_t room = out.max_size() - start;
  if (digits > room || feeds > room - digits) throw std::length_error("b64_encode");
  out.resize(start + feeds + digits);
  encode(in, &out[start + feeds]);
  wrap(&out[start], feeds, width);
  return 0;
}

int b64_decode(const std::string& in, byte_string& out) {
  const size_t start = out.size();
  out.resize(start + in.size() / 4 * 3 + 3);
  unsigned char* to = &out[start];
  const int result = decode(in.data(), in.data() + in.size(), to);
  out.resize(static_cast<size_t>(to - out.data()));
  return result;
}

}  // namespace util
