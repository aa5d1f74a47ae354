// SPDX-License-Identifier: MIT
#include "util/base64.h"

#include <endian.h>

#include <array>
#include <cctype>
#include <cstring>
#include <stdexcept>

namespace util {
namespace {

constexpr const char* B64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kBad = 0xFF;

// kPairs gives the two digits of each 12 bits: two look-ups encode a group of three bytes. kPlaced
// gives, by place in a group and character, the digit's six bits where they belong in a number
// whose upper three bytes are the group: four look-ups decode it. What is not a digit is kBad
// there, in the lowest byte, which no digit touches.
struct Pair {
  char digits[2];
};

constexpr auto kPairs = [] {
  std::array<Pair, 4096> pairs = {};
  for (unsigned i = 0; i < pairs.size(); ++i)
    pairs[i] = Pair{
        {B64[i >> 6], B64[i & 63]}
    };
  return pairs;
}();

constexpr auto kPlaced = [] {
  std::array<std::array<uint32_t, 256>, 4> placed = {};
  for (unsigned place = 0; place < 4; ++place) {
    for (uint32_t& bits : placed[place]) bits = kBad;
    for (uint32_t i = 0; i < 64; ++i) {
      placed[place][static_cast<unsigned char>(B64[i])] = i << (26 - 6 * place);
    }
  }
  return placed;
}();

uint32_t placed(size_t place, char digit) { return kPlaced[place][static_cast<uint8_t>(digit)]; }

unsigned value_of(char c) {
  if (c == '\0') return 64;  // Kept: the alphabet's terminator is a digit too.
  const uint32_t bits = placed(3, c);
  return bits == kBad ? kBad : bits >> 8;
}

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

void encode(const byte_string& in, char* to) {
  const unsigned char* from = in.data();
  size_t srclen = in.size();
  for (; srclen >= 8; srclen -= 6, from += 6, to += 8) {  // Two groups, read as one number.
    uint64_t groups = 0;
    std::memcpy(&groups, from, 8);
    groups = be64toh(groups);
    std::memcpy(to, &kPairs[static_cast<size_t>(groups >> 52)], 2);
    std::memcpy(to + 2, &kPairs[groups >> 40 & 4095], 2);
    std::memcpy(to + 4, &kPairs[groups >> 28 & 4095], 2);
    std::memcpy(to + 6, &kPairs[groups >> 16 & 4095], 2);
  }
  for (; srclen > 2; srclen -= 3, from += 3, to += 4) {
    const unsigned group = unsigned{from[0]} << 16 | unsigned{from[1]} << 8 | from[2];
    std::memcpy(to, &kPairs[group >> 12], 2);
    std::memcpy(to + 2, &kPairs[group & 4095], 2);
  }
  if (srclen == 0) return;
  const unsigned group = unsigned{from[0]} << 16 | (srclen == 2 ? unsigned{from[1]} << 8 : 0);
  std::memcpy(to, &kPairs[group >> 12], 2);
  to[2] = srclen == 2 ? B64[group >> 6 & 63] : '=';
  to[3] = '=';
}

// Moves the lines, which start `feeds` bytes after `text`, to their places, each with its feed.
void wrap(char* text, size_t feeds, size_t width) {
  for (; feeds > 0; --feeds) {
    std::memmove(text, text + feeds, width);
    text[width] = '\n';
    text += width + 1;
  }
}

// Decodes groups of four digits, up to the first that holds anything else.
const char* decode_groups(const char* at, const char* end, unsigned char*& to) {
  unsigned char* out = to;  // Not `to` itself, which the bytes written might change.
  for (; end - at >= 4; at += 4, out += 3) {
    const uint32_t group =
        placed(0, at[0]) | placed(1, at[1]) | placed(2, at[2]) | placed(3, at[3]);
    if ((group & kBad) != 0) break;
    const uint32_t bytes = htobe32(group);
    // Three bytes, and one that the next group overwrites.
    std::memcpy(out, &bytes, sizeof(bytes));
  }
  to = out;
  return at;
}

// `at` is just after the first '='.
int check_padding(int state, const char* at, const char* end) {  // Kept: looks at nothing more.
  if (state < 2) return -2;
  if (state == 3) return 0;
  while (at != end && *at != '=' && is_space(*at)) ++at;
  return at != end && *at == '=' ? 0 : -3;
}

// `state` counts the digits of the group so far, `bits` ends with theirs.
int decode(const char* at, const char* end, unsigned char*& to) {
  int state = 0;
  unsigned bits = 0;
  for (;; ++at) {
    if (state == 0) at = decode_groups(at, end, to);
    if (at == end) return 0;  // Kept: the bits of an unfinished group are dropped.
    const unsigned value = value_of(*at);
    if (value == kBad) {
      if (*at == '=') return check_padding(state, at + 1, end);
      if (!is_space(*at)) return -1;
      continue;
    }
    bits = bits << 6 | value;
    if (state > 0) *to++ = static_cast<unsigned char>(bits >> (6 - 2 * state) & 0xFF);
    state = (state + 1) % 4;
  }
}

}  // namespace

int b64_encode(const byte_string& in, std::string& out, int tw) {
  const size_t width = tw > 0 ? static_cast<size_t>(tw) : 0;
  const size_t digits = (in.size() + 2) / 3 * 4;
  // Kept: padding counts, and a text of whole lines ends with a feed.
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
