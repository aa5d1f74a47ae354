// SPDX-License-Identifier: MIT
#include "util/escape.h"

#include <algorithm>
#include <iterator>

namespace util {
namespace {

struct Sequence {
  char character;
  char code[3];
};

constexpr Sequence kSequences[] = {
    {'"',  "22"},
    {'%',  "25"}, // Written only if the '%' introduces no sequence.
    {'*',  "2A"},
    {'.',  "2E"}, // At the end of a text only, in both directions.
    {':',  "3A"},
    {'<',  "3C"},
    {'>',  "3E"},
    {'?',  "3F"},
    {'\\', "5C"}, // Kept: escape_string() writes it, unescape_string() drops it.
    {'|',  "7C"},
};

// The sequence of this character, or null.
const Sequence* sequence_of(char c) {
  const auto* const found = std::find_if(std::begin(kSequences), std::end(kSequences),
                                         [c](const Sequence& s) { return s.character == c; });
  return found == std::end(kSequences) ? nullptr : found;
}

// The character whose code is `c1` and `c2`, or NUL.
char decoded(char c1, char c2) {
  for (const Sequence& one : kSequences) {
    if (one.code[0] == c1 && one.code[1] == c2) return one.character;
  }
  return '\0';
}

// NUL beyond the end.
char char_at(const std::string& s, size_t i) { return i < s.size() ? s[i] : '\0'; }

// Whether the '%' at `i` is copied.
bool stays_percent(const std::string& s, size_t i) {
  // Kept: unsigned, so a '%' alone is replaced and one of the last two characters is not.
  if (i >= s.size() - 2) return true;
  const char introduced = decoded(char_at(s, i + 1), char_at(s, i + 2));
  return introduced != '\0' && introduced != '.';  // Kept: "%2E" is escaped again.
}

// Writes '%', `c1` and `c2` as they are, a NUL counting as missing.
char* put_unknown(char* to, char c1, char c2) {
  *to++ = '%';
  if (c1 == '\0') return to;  // Kept: a NUL takes c2 with it.
  *to++ = c1;
  if (c2 != '\0') *to++ = c2;
  return to;
}

}  // namespace

std::string escape_string(const std::string& s) {
  std::string escaped;
  escaped.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    const Sequence* const sequence = sequence_of(s[i]);
    const bool copied = sequence == nullptr || (s[i] == '.' && i != s.size() - 1) ||
                        (s[i] == '%' && stays_percent(s, i));
    if (copied) {
      escaped += s[i];
    } else {
      escaped.append(1, '%').append(sequence->code);
    }
  }
  return escaped;
}

std::string unescape_string(const std::string& s) {
  std::string text = s;  // which gets no longer
  char* to = text.data();
  for (size_t i = 0; i < s.size();) {
    if (s[i] != '%') {
      *to++ = s[i++];
      continue;
    }
    const char c1 = char_at(s, i + 1);
    const char c2 = char_at(s, i + 2);
    const char c = decoded(c1, c2);
    if (c != '\0' && (c != '.' || i + 3 == s.size())) {
      if (c != '\\') *to++ = c;  // Kept: a backslash does not come back.
      i += 3;
    } else if (c1 == '%') {
      *to++ = '%';
      i += 1;
    } else if (c2 == '%') {
      *to++ = '%';  // Kept: c1 is lost.
      *to++ = '%';
      i += 2;
    } else {
      to = put_unknown(to, c1, c2);
      i += 3;
    }
  }
  text.resize(static_cast<size_t>(to - text.data()));
  return text;
}

}  // namespace util
