// SPDX-License-Identifier: MIT
// The parser's syntax and our limits. Inline, because property lists use it too, and they may be
// built with another TinyXML++.
#pragma once

#include <strings.h>

#include <cctype>
#include <cstring>
#include <string>

#include <tinyxml.h>

namespace ticpp {

// A document beyond these limits would exhaust the stack or the time of its reader.
constexpr int kMaxDepth = 1024;
constexpr int kMaxAttributes = 256;

inline std::string too_deep() { return "elements nested deeper than " + std::to_string(kMaxDepth); }
inline std::string too_many_attributes() {
  return "more than " + std::to_string(kMaxAttributes) + " attributes on an element";
}

inline std::string row_and_column(int row, int column) {
  return "row " + std::to_string(row) + ", column " + std::to_string(column);
}

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

// In UTF-8 the parser skips a byte order mark, and two more characters, as if they were blanks.
inline bool starts_with_mark(const char* text) {
  return strncmp(text, kByteOrderMark, 3) == 0 || strncmp(text, "\xEF\xBF\xBE", 3) == 0 ||
         strncmp(text, "\xEF\xBF\xBF", 3) == 0;
}

// Beyond ASCII the parser asks the locale what is a blank, and takes every byte for a letter.
inline bool is_blank(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return c == ' ' || (c >= '\t' && c <= '\r') || (byte > 127 && isspace(byte) != 0);
}

inline bool starts_name(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 127 || (byte | 32U) - 'a' < 26 || c == '_';
}

inline bool continues_name(char c) {
  return starts_name(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

// Written as "&...;".
constexpr bool is_escaped(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '&' || c == '<' || c == '>' || c == '"' ||
         c == '\'';
}

// The parser goes by the first byte of a character and does not look at the bytes that follow.
inline size_t character_size(char lead) {
  return static_cast<size_t>(TiXmlBase::utf8ByteTable[static_cast<unsigned char>(lead)]);
}

// A declaration without an encoding means UTF-8.
inline bool is_utf8(const std::string& encoding) {
  return encoding.empty() || strncasecmp(encoding.c_str(), "UTF-8", 5) == 0 ||
         strncasecmp(encoding.c_str(), "UTF8", 4) == 0;
}

}  // namespace ticpp
