// SPDX-License-Identifier: MIT
#include "ticpp/scan.h"

#include "ticpp/syntax.h"
#include "ticpp/ticpp.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

namespace ticpp {
namespace {

// Mirrors the parser's functions, each of which returns the position after what it read, or null if
// it gives up; the walk ends there, and the parser reports the error.
class Scan {
 public:
  explicit Scan(const std::string& text)
      : text_(text.c_str()), utf8_(strncmp(text_, kByteOrderMark, 3) == 0), encoding_known_(utf8_) {
    dense_.reserve(text.size());
    const char* rest = text_;  // not copied yet
    for (const char* at = text_; at != nullptr;) {
      const char* const next = skip_blanks(at);
      if (*next == '<' && at != text_) {  // a mark at the start tells the encoding
        dense_.append(rest, at);
        rest = next;
      }
      at = node(next);
    }
    dense_.append(rest, text_ + text.size());
  }

  std::string& dense() { return dense_; }

 private:
  [[noreturn]] void fail(const std::string& fault, const char* at) const {
    const char* line = at;
    while (line > text_ && line[-1] != '\n') --line;
    const auto row = std::count(text_, at, '\n') + 1;
    throw Exception(fault + " (" +
                    row_and_column(static_cast<int>(row), static_cast<int>(at - line) + 1) + ")");
  }

  const char* skip_blanks(const char* at) const {
    for (;;) {
      while (*at == ' ') ++at;  // as lines mostly begin
      if (is_blank(*at)) {
        ++at;
      } else if (utf8_ && starts_with_mark(at)) {
        at += 3;
      } else {
        return at;
      }
    }
  }

  static const char* after(const char* at, const char* end) {
    const char* const found = strstr(at, end);
    return found == nullptr ? nullptr : found + strlen(end);
  }

  // One tag, text, comment, section or declaration.
  const char* node(const char* at) {
    if (*at == '\0') return nullptr;
    if (*at != '<') return depth_ == 0 ? nullptr : characters(at, '<');
    if (depth_ > 0 && at[1] == '/') {
      --depth_;
      at = strchr(at, '>');
      return at == nullptr ? nullptr : at + 1;
    }
    if (starts_name(at[1])) return tag(at);
    if (strncasecmp(at, "<?xml", 5) == 0) return declaration(at);
    if (strncmp(at, "<!--", 4) == 0) return after(at + 4, "-->");
    if (strncmp(at, "<![CDATA[", 9) == 0) return after(at + 9, "]]>");
    return after(at, ">");
  }

  const char* tag(const char* start) {
    if (depth_ == kMaxDepth) fail(too_deep(), start);
    const char* at = name(start + 1);
    for (int attributes = 0; at != nullptr; ++attributes) {
      at = skip_blanks(at);
      if (*at == '/') return at[1] == '>' ? at + 2 : nullptr;
      if (*at == '>') {
        ++depth_;
        return at + 1;
      }
      if (attributes == kMaxAttributes) fail(too_many_attributes(), start);
      at = attribute(at, nullptr);
    }
    return nullptr;
  }

  // The parser drops all that follows a declaration it cannot read, and reports success.
  const char* declaration(const char* start) {
    std::string encoding;
    const char* at = start + 5;
    while (at != nullptr && *at != '\0' && *at != '>') {
      at = skip_blanks(at);
      if (strncasecmp(at, "version", 7) == 0 || strncasecmp(at, "standalone", 10) == 0) {
        at = attribute(at, nullptr);
      } else if (strncasecmp(at, "encoding", 8) == 0) {
        at = attribute(at, &encoding);
      } else {
        while (*at != '\0' && *at != '>' && !is_blank(*at)) ++at;
      }
    }
    if (depth_ == 0 && !encoding_known_) {
      utf8_ = is_utf8(encoding);
      encoding_known_ = true;
    }
    if (at == nullptr || *at == '\0') fail("Error parsing Declaration.", start);
    return at + 1;
  }

  static const char* name(const char* at) {
    if (!starts_name(*at)) return nullptr;
    while (continues_name(*at)) ++at;
    return at;
  }

  // Keeps the value's bytes as written if `value` is not null.
  const char* attribute(const char* at, std::string* value) const {
    at = name(at);
    if (at == nullptr) return nullptr;
    at = skip_blanks(at);
    if (*at != '=') return nullptr;
    at = skip_blanks(at + 1);
    const char quote = *at == '"' || *at == '\'' ? *at : '\0';
    const char* const start = quote == '\0' ? at : at + 1;
    const char* const end = quote == '\0' ? unquoted(start) : characters(start, quote);
    if (end != nullptr && value != nullptr) value->assign(start, end);
    if (end == nullptr || *end == '\0') return nullptr;
    return quote == '\0' ? end : end + 1;
  }

  static const char* unquoted(const char* at) {
    while (*at != '\0' && !is_blank(*at) && *at != '/' && *at != '>') {
      if (*at == '"' || *at == '\'') return nullptr;
      ++at;
    }
    return at;
  }

  // To `end`. A character cut short takes the bytes after it, markup or not.
  const char* characters(const char* at, char end) const {
    while (at != nullptr) {
      while (static_cast<signed char>(*at) > '>') ++at;  // letters, which most texts consist of
      if (*at == '\0' || *at == end) break;
      if (*at == '&' && at[1] == '#' && at[2] != '\0') {
        at = reference(at);
      } else {
        at += utf8_ ? character_size(*at) : 1;
      }
    }
    return at;
  }

  // The parser looks for the semicolon first, however far, and then reads the digits backwards to
  // the "x" or "#" that is nearest to it.
  static const char* reference(const char* at) {
    const bool hexadecimal = at[2] == 'x';
    const char* const digits = at + (hexadecimal ? 3 : 2);
    const char* const end = strchr(digits, ';');
    if (end == nullptr) return nullptr;
    const char* digit = end - 1;
    while (*digit != (hexadecimal ? 'x' : '#')) {
      const auto byte = static_cast<unsigned char>(*digit);
      if ((hexadecimal ? isxdigit(byte) : isdigit(byte)) == 0) return nullptr;
      --digit;
    }
    return end + 1;
  }

  std::string dense_;
  const char* const text_;
  bool utf8_;
  bool encoding_known_;
  int depth_ = 0;
};

}  // namespace

std::string scan(const std::string& text) { return std::move(Scan(text).dense()); }

}  // namespace ticpp
