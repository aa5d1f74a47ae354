// SPDX-License-Identifier: MIT
#include "tests/models/texts.h"

#include <algorithm>
#include <cstdint>
#include <map>

namespace models {
namespace {

// ---- base64 ----

constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The value of a digit, -1 for anything else. A NUL counts as a digit of value 64.
int digit_of(char c) {
  for (int value = 0; value <= 64; ++value) {
    if (kDigits[value] == c) return value;
  }
  return -1;
}

// ---- escaping ----

const std::map<std::string, char> kSequences = {
    {"22", '"' },
    {"25", '%' },
    {"2A", '*' },
    {"3A", ':' },
    {"3C", '<' },
    {"3E", '>' },
    {"3F", '?' },
    {"5C", '\\'},
    {"7C", '|' },
};

// What stands for '%', c1 and c2, none of the two a '%'; 0 for one that is missing.
std::string replaced(char c1, char c2, bool at_end) {
  if (c1 == '\0') return "%";
  if (c2 == '\0') return {'%', c1};
  const std::string pair = {c1, c2};
  if (pair == "5C") return "";
  if (pair == "2E" && at_end) return ".";
  const auto found = kSequences.find(pair);
  return found == kSequences.end() ? "%" + pair : std::string(1, found->second);
}

// ---- natural order ----

bool is_digit(int c) { return c >= '0' && c <= '9'; }

// Behind the end a text is all NULs.
int at(const std::string& text, size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

std::string digits(const std::string& text, size_t from) {
  size_t end = from;
  while (is_digit(at(text, end))) ++end;
  return text.substr(from, end - from);
}

int sign(int difference) { return difference < 0 ? -1 : difference > 0 ? 1 : 0; }

int compare_runs(const std::string& a, const std::string& b) {
  const bool fraction = a[0] == '0' || b[0] == '0';
  if (fraction || a.size() == b.size()) return sign(a.compare(b));
  return a.size() < b.size() ? -1 : 1;
}

int fold(int c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }

}  // namespace

std::string base64_encoded(const std::string& bytes, int width) {
  std::string bits;
  for (const char byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) bits += (static_cast<uint8_t>(byte) >> bit & 1) ? '1' : '0';
  }
  while (bits.size() % 6 != 0) bits += '0';
  std::string text;
  for (size_t at = 0; at < bits.size(); at += 6) {
    int value = 0;
    for (size_t bit = at; bit < at + 6; ++bit) value = 2 * value + (bits[bit] - '0');
    text += kDigits[value];
  }
  while (text.size() % 4 != 0) text += '=';
  if (width <= 0) return text;
  std::string wrapped;
  for (size_t at = 0; at < text.size(); ++at) {
    wrapped += text[at];
    if ((at + 1) % static_cast<size_t>(width) == 0) wrapped += '\n';
  }
  return wrapped;
}

int base64_decoded(const std::string& text, std::string& bytes) {
  std::string plain;  // without white space
  for (const char c : text) {
    if (!is_space(c)) plain += c;
  }
  size_t at = 0;
  for (int pending = 0; at < plain.size() && plain[at] != '='; ++at) {
    const int digit = digit_of(plain[at]);
    if (digit < 0) return -1;
    switch (at % 4) {
      case 0: pending = digit << 2; break;
      case 1:
        bytes += static_cast<char>(pending | digit >> 4);
        pending = digit << 4;
        break;
      case 2:
        bytes += static_cast<char>(pending | digit >> 2);
        pending = digit << 6;
        break;
      default: bytes += static_cast<char>(pending | digit);
    }
    pending &= at % 4 == 1 ? 0xF0 : at % 4 == 2 ? 0xC0 : 0xFF;
  }
  if (at == plain.size()) return 0;
  if (at % 4 < 2) return -2;
  if (at % 4 == 2 && plain.substr(at, 2) != "==") return -3;
  return 0;
}

std::string escaped(const std::string& s) {
  std::string to;
  for (size_t i = 0; i < s.size(); ++i) {
    const bool two_follow = s.size() == 1 || i + 2 < s.size();
    if (s[i] == '.' && i + 1 == s.size()) {
      to += "%2E";
    } else if (s[i] == '%') {
      to += two_follow && kSequences.count(s.substr(i + 1, 2)) == 0 ? "%25" : "%";
    } else {
      const auto found =
          std::find_if(kSequences.begin(), kSequences.end(),
                       [&](const auto& sequence) { return sequence.second == s[i]; });
      to += found == kSequences.end() ? std::string(1, s[i]) : "%" + found->first;
    }
  }
  return to;
}

std::string unescaped(const std::string& s) {
  const auto at = [&s](size_t i) { return i < s.size() ? s[i] : '\0'; };
  std::string to;
  for (size_t i = 0; i < s.size();) {
    if (s[i] != '%') {
      to += s[i++];
    } else if (at(i + 1) == '%') {
      to += "%";
      i += 1;
    } else if (at(i + 2) == '%') {
      to += "%%";
      i += 2;
    } else {
      to += replaced(at(i + 1), at(i + 2), i + 3 == s.size());
      i += 3;
    }
  }
  return to;
}

int natural_order(const std::string& a, const std::string& b, bool folded) {
  for (size_t ai = 0, bi = 0;; ++ai, ++bi) {
    while (is_space(at(a, ai))) ++ai;
    while (is_space(at(b, bi))) ++bi;
    int ca = at(a, ai);
    int cb = at(b, bi);
    if (is_digit(ca) && is_digit(cb)) {
      const int result = compare_runs(digits(a, ai), digits(b, bi));
      if (result != 0) return result;
    }
    if (ca == 0 && cb == 0) return 0;
    if (folded) ca = fold(ca);
    if (folded) cb = fold(cb);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
}

}  // namespace models
