// SPDX-License-Identifier: MIT
#include "util/escape.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace util {
namespace {

struct Sequence {
  char character;
  char code[3];
};

constexpr Sequence kSequences[] = {
    {'"',  "22"},
    {'%',  "25"}, // Written only where the '%' introduces no sequence.
    {'*',  "2A"},
    {'.',  "2E"}, // At the end of a text only, in both directions.
    {':',  "3A"},
    {'<',  "3C"},
    {'>',  "3E"},
    {'?',  "3F"},
    {'\\', "5C"}, // Kept: escape_string() writes it, unescape_string() drops it.
    {'|',  "7C"},
};

constexpr size_t index_of(char c) { return static_cast<unsigned char>(c); }

struct Piece {
  char text[3];
  unsigned char size;
};

// By character: what it becomes where it is replaced, itself where it never is.
constexpr auto kPieces = [] {
  std::array<Piece, 256> pieces = {};
  for (size_t c = 0; c < pieces.size(); ++c) pieces[c] = {{static_cast<char>(c)}, 1};
  for (const auto& [c, code] : kSequences) {
    Piece& piece = pieces[index_of(c)];
    piece.text[0] = '%';
    piece.text[1] = code[0];
    piece.text[2] = code[1];
    piece.size = 3;
  }
  return pieces;
}();

// A place for each code, so that one look finds it. Other pairs of characters share the places.
constexpr size_t place_of(char c1, char c2) { return index_of(c1) % 8 * 32 + index_of(c2) % 32; }

constexpr auto kDecoded = [] {
  std::array<Sequence, 256> decoded = {};
  for (const Sequence& sequence : kSequences) {
    decoded[place_of(sequence.code[0], sequence.code[1])] = sequence;
  }
  return decoded;
}();

// The character that `c1` and `c2` are the code of, or NUL.
char decoded(char c1, char c2) {
  const Sequence& sequence = kDecoded[place_of(c1, c2)];
  return sequence.code[0] == c1 && sequence.code[1] == c2 ? sequence.character : '\0';
}

// NUL behind the end.
char char_at(std::string_view s, size_t i) { return i < s.size() ? s[i] : '\0'; }

// Whether the '%' at `i` is copied.
bool stays_percent(std::string_view s, size_t i) {
  // Kept: unsigned, so a '%' alone is replaced and one of the last two characters is not.
  if (i >= s.size() - 2) return true;
  const char introduced = decoded(char_at(s, i + 1), char_at(s, i + 2));
  return introduced != '\0' && introduced != '.';  // Kept: "%2E" is escaped again.
}

// Writes what becomes of the character at `i`, with up to two bytes of no meaning behind it;
// returns the end.
char* put_escaped(char* to, std::string_view s, size_t i) {
  const char c = s[i];
  const bool copied = (c == '.' && i != s.size() - 1) || (c == '%' && stays_percent(s, i));
  const Piece& piece = kPieces[index_of(c)];
  memcpy(to, piece.text, sizeof piece.text);
  if (copied) *to = c;
  return to + (copied ? 1 : piece.size);
}

// Writes '%', `c1` and `c2` as they are, a NUL counting as missing; returns the end.
char* put_unknown(char* to, char c1, char c2) {
  *to++ = '%';
  if (c1 == '\0') return to;  // Kept: a NUL takes c2 with it.
  *to++ = c1;
  if (c2 != '\0') *to++ = c2;
  return to;
}

}  // namespace

std::string escape_string(const std::string& s) {
  constexpr size_t kBlock = 128;  // characters at a time: appending each one would take longer
  std::string escaped;
  for (size_t i = 0; i < s.size();) {
    char block[kBlock * sizeof(Piece::text)];
    char* end = block;
    for (const size_t stop = std::min(i + kBlock, s.size()); i < stop; ++i) {
      end = put_escaped(end, s, i);
    }
    escaped.append(block, end);
  }
  return escaped;
}

std::string unescape_string(const std::string& s) {
  const std::string_view from = s;      // A view, since writing through `to` might change a string.
  std::string text(from.size(), '\0');  // Never longer than the escaped text.
  char* to = text.data();
  for (size_t i = 0; i < from.size();) {
    if (from[i] != '%') {
      *to++ = from[i++];
      continue;
    }
    const char c1 = char_at(from, i + 1);
    const char c2 = char_at(from, i + 2);
    const char c = decoded(c1, c2);
    if (c != '\0' && (c != '.' || i + 3 == from.size())) {
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
