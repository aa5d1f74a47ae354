// SPDX-License-Identifier: MIT
#include "service/json.h"

#include "service/utf8.h"
#include "util/base64.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace service {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD
constexpr size_t kMostDepth = 10000;             // what a Value is safe with
constexpr int64_t kLargestExact = INT64_C(1) << 53;

// ---- writing ----

// By byte: what stands for it behind a backslash, 'u' for its number, NUL where it stays. For '<'
// and beyond ASCII more decides.
constexpr std::array<char, 256> escape_letters() {
  std::array<char, 256> letters = {};
  for (size_t c = 0; c < 256; ++c) letters[c] = c < 32 || c > 127 ? 'u' : '\0';
  letters['\b'] = 'b';
  letters['\f'] = 'f';
  letters['\n'] = 'n';
  letters['\r'] = 'r';
  letters['\t'] = 't';
  for (const char c : {'"', '\\', '<'}) letters[static_cast<unsigned char>(c)] = c;
  return letters;
}

constexpr std::array<char, 256> kLetters = escape_letters();

// Whether the byte may stand for itself in a string.
bool is_plain(char c) { return kLetters[static_cast<unsigned char>(c)] == '\0' || c == '<'; }

std::string escaped_number(unsigned code) {
  char text[8];
  snprintf(text, sizeof text, "\\u%04X", code);
  return text;
}

// "2008-05-01T14:03:59.250Z". By days and not by the C library, whose time_t may have 32 bits.
[[gnu::cold]] std::string utc_text(util::utime_t instant) {
  const uint64_t seconds = instant / 1000;
  const uint64_t days = seconds / 86400 + 719468;  // since 1 March of the year 0
  const uint64_t era = days / 146097;              // of 400 years
  const uint64_t day_of_era = days % 146097;
  const uint64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const uint64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const uint64_t shifted = (5 * day_of_year + 2) / 153;  // months since March
  const uint64_t day = day_of_year - (153 * shifted + 2) / 5 + 1;
  const uint64_t month = shifted < 10 ? shifted + 3 : shifted - 9;
  const uint64_t year = era * 400 + year_of_era + (month <= 2 ? 1 : 0);
  const auto part = [](uint64_t number) { return static_cast<unsigned long long>(number); };
  char text[64];
  snprintf(text, sizeof text, "%04llu-%02llu-%02lluT%02llu:%02llu:%02llu.%03lluZ", part(year),
           part(month), part(day), part(seconds / 3600 % 24), part(seconds / 60 % 60),
           part(seconds % 60), part(instant % 1000));
  return text;
}

class Writer {
 public:
  explicit Writer(unsigned style)
      : indented_((style & INDENTED) != 0), in_script_((style & IN_SCRIPT) != 0) {}

  void value(const util::Value& v) {
    switch (v.get_type()) {
      case util::INTEGER: return integer(v);
      case util::BOOLEAN: return add(static_cast<const bool&>(v) ? "true" : "false");
      case util::DOUBLE: return real(v);
      case util::STRING: return quoted(static_cast<const std::string&>(v));
      case util::DATE_TIME: return quoted(utc_text(v));
      case util::BYTE_STRING: return bytes(v);
      case util::STRUCT: return object(v);
      case util::ARRAY: return array(v);
      case util::VOID: break;
    }
    add("null");
  }

  std::string take() { return std::move(text_); }

 private:
  void add(std::string_view piece) { text_ += piece; }

  void integer(int number) {
    char text[16];
    add({text, static_cast<size_t>(std::to_chars(text, std::end(text), number).ptr - text)});
  }

  // The shortest digits that give the number back, with a point or an exponent.
  void real(double number) {
    if (!std::isfinite(number)) return add("null");
    char text[32];
    char* end = std::to_chars(text, std::end(text), number).ptr;
    const bool whole = std::none_of(text, end, [](char c) { return c == '.' || c == 'e'; });
    add({text, static_cast<size_t>(end - text)});
    if (whole) add(".0");
  }

  void bytes(const util::byte_string& bytes) {
    add("\"");
    util::b64_encode(bytes, text_, 0);
    add("\"");
  }

  void quoted(std::string_view s) {
    add("\"");
    const char* const end = s.data() + s.size();
    for (const char* at = s.data(); at != end;) {
      const char* const plain = at;
      while (at != end && stays(*at)) ++at;
      add({plain, static_cast<size_t>(at - plain)});
      if (at != end) at = character(at, end);
    }
    add("\"");
  }

  bool stays(char c) const { return is_plain(c) && !(c == '<' && in_script_); }

  // Writes the one at `at`, which does not simply stay; returns what is behind it.
  const char* character(const char* at, const char* end) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte >= 128) return beyond_ascii(at, end);
    const char letter = kLetters[byte];
    if (letter == 'u' || letter == '<') {
      add(escaped_number(byte));
    } else {
      text_ += '\\';
      text_ += letter;
    }
    return at + 1;
  }

  const char* beyond_ascii(const char* at, const char* end) {
    const auto [size, valid] = utf8_piece(at, end);
    const std::string_view piece(at, size);
    if (!valid) {
      add(kReplacement);
    } else if (in_script_ && (piece == "\xE2\x80\xA8" || piece == "\xE2\x80\xA9")) {
      add(piece.back() == '\xA8' ? "\\u2028" : "\\u2029");
    } else {
      add(piece);
    }
    return at + size;
  }

  void object(const util::value_struct& entries) {
    begin("{");
    const char* separator = "";
    util::value_struct replaced;
    for (const auto& [key, v] : entries) {
      add(std::exchange(separator, ","));
      new_line();
      if (is_utf8(key)) {
        quoted(key);
      } else {
        quoted(unique(key, entries, replaced));
      }
      add(indented_ ? ": " : ":");
      value(v);
    }
    end("}", entries.empty());
  }

  void array(const util::value_array& elements) {
    begin("[");
    const char* separator = "";
    for (const util::Value& element : elements) {
      add(std::exchange(separator, ","));
      new_line();
      value(element);
    }
    end("]", elements.empty());
  }

  // The key with its bad bytes replaced, unlike all others of the object.
  [[gnu::cold]] static std::string unique(const std::string& key, const util::value_struct& entries,
                                          util::value_struct& replaced) {
    std::string valid = valid_utf8(key);
    while (entries.count(valid) > 0 || replaced.count(valid) > 0) valid += kReplacement;
    replaced.emplace(valid, util::Value());
    return valid;
  }

  void begin(const char* bracket) {
    add(bracket);
    ++depth_;
  }

  void end(const char* bracket, bool empty) {
    --depth_;
    if (!empty) new_line();
    add(bracket);
  }

  void new_line() {
    if (indented_) text_.append("\n").append(2 * depth_, ' ');
  }

  std::string text_;
  size_t depth_ = 0;
  const bool indented_;
  const bool in_script_;
};

// ---- reading ----

// Row and column of the byte at `offset`.
[[gnu::cold]] json_error error_at(const std::string& text, size_t offset,
                                  const std::string& reason) {
  const auto at = text.begin() + static_cast<ptrdiff_t>(std::min(offset, text.size()));
  const auto row = static_cast<size_t>(std::count(text.begin(), at, '\n')) + 1;
  const size_t line = row == 1 ? 0 : text.rfind('\n', offset - 1) + 1;
  return {row, static_cast<size_t>(at - text.begin()) - line + 1, reason};
}

// Reads the text from its start to its end. Behind the last byte stands the NUL of the string,
// which fits nowhere: one byte may be looked at without asking whether it is there.
class Reader {
 public:
  Reader(const std::string& text, size_t most_depth)
      : text_(text), at_(text.data()), most_depth_(most_depth) {}

  util::Value document() {
    util::Value root;
    blanks();
    if (at_ == end()) refuse("The document is empty.");
    value(root);
    blanks();
    if (at_ == end()) return root;
    refuse(*at_ == '\0' ? "a NUL byte in the text"
                        : "The document root must not be followed by other values.");
  }

 private:
  const char* end() const { return text_.data() + text_.size(); }

  [[noreturn, gnu::cold]] void refuse(const std::string& reason, const char* at) const {
    throw error_at(text_, static_cast<size_t>(at - text_.data()), reason);
  }
  [[noreturn, gnu::cold]] void refuse(const std::string& reason) const { refuse(reason, at_); }

  void blanks() {
    while (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t') ++at_;
  }

  bool skip(char c) {
    blanks();
    if (*at_ != c) return false;
    ++at_;
    return true;
  }

  // A new value of that kind, to be filled in its place.
  template <class T>
  static T& make(util::Type type, util::Value& in) {
    in.set_type(type);
    return in;
  }

  void value(util::Value& to) {
    blanks();
    switch (*at_) {
      case '{': return object(make<util::value_struct>(util::STRUCT, to));
      case '[': return array(make<util::value_array>(util::ARRAY, to));
      case '"': ++at_; return string(make<std::string>(util::STRING, to));
      case 't': make<bool>(util::BOOLEAN, to) = true; return word("true");
      case 'f': make<bool>(util::BOOLEAN, to) = false; return word("false");
      case 'n': return word("null");
      default: return number(to);
    }
  }

  void word(std::string_view expected) {
    if (text_.compare(static_cast<size_t>(at_ - text_.data()), expected.size(), expected) != 0) {
      refuse("Invalid value.");
    }
    at_ += expected.size();
  }

  void object(util::value_struct& entries) {
    enter();
    if (skip('}')) return leave();
    do {
      if (!skip('"')) refuse("Missing a name for object member.");
      std::string key;
      string(key);
      const auto [entry, is_new] = entries.try_emplace(std::move(key));
      if (!is_new) refuse("the key \"" + entry->first + "\" stands in the object twice");
      if (!skip(':')) refuse("Missing a colon after a name of object member.");
      value(entry->second);
    } while (skip(','));
    if (!skip('}')) refuse("Missing a comma or '}' after an object member.");
    leave();
  }

  void array(util::value_array& elements) {
    enter();
    if (skip(']')) return leave();
    do {
      elements.emplace_back();
      value(elements.back());
    } while (skip(','));
    if (!skip(']')) refuse("Missing a comma or ']' after an array element.");
    leave();
  }

  void enter() {
    ++at_;
    if (++depth_ > most_depth_) refuse("nested deeper than " + std::to_string(most_depth_));
  }
  void leave() { --depth_; }

  // From behind the quotation mark that opens it to behind the one that closes it.
  void string(std::string& to) {
    while (true) {
      const char* const plain = at_;
      while (is_plain(*at_)) ++at_;
      to.append(plain, at_);
      if (*at_ == '"') break;
      if (*at_ == '\\') {
        escape(to);
      } else {
        beyond_ascii(to);
      }
    }
    ++at_;
  }

  void beyond_ascii(std::string& to) {
    if (at_ == end()) refuse("Missing a closing quotation mark in string.");
    const auto [size, valid] = utf8_piece(at_, end());
    if (!valid || static_cast<unsigned char>(*at_) < 32) refuse("Invalid encoding in string.");
    to.append(at_, size);
    at_ += size;
  }

  void escape(std::string& to) {
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const char* const start = at_++;
    const size_t known = kNames.find(*at_);
    if (known == kNames.npos && *at_ != 'u') refuse("Invalid escape character in string.", start);
    ++at_;
    if (known != kNames.npos) {
      to += kMeanings[known];
    } else {
      add_utf8(code_point(start), to);
    }
  }

  // Of one or two escaped numbers; `start` is the first backslash, `at_` behind its 'u'.
  unsigned code_point(const char* start) {
    const unsigned code = escaped_number();
    if (code < 0xD800 || code > 0xDFFF) return code;
    if (code > 0xDBFF) refuse("the second half of a surrogate pair stands alone", start);
    if (*at_ == '\\' && at_[1] == 'u') {
      at_ += 2;
      const unsigned low = escaped_number();
      if (low >= 0xDC00 && low <= 0xDFFF) return 0x10000 + ((code - 0xD800) << 10) + low - 0xDC00;
    }
    refuse("The surrogate pair in string is invalid.", start);
  }

  unsigned escaped_number() {
    unsigned code = 0;
    const char* const stop = at_ + std::min<ptrdiff_t>(4, end() - at_);
    const char* const read = std::from_chars(at_, stop, code, 16).ptr;
    if (read != at_ + 4) refuse("Incorrect hex digit after \\u escape in string.");
    at_ = read;
    return code;
  }

  static void add_utf8(unsigned code, std::string& to) {
    const auto add = [&to](unsigned byte) { to += static_cast<char>(byte); };
    const auto add_rest = [&](unsigned shift) { add(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) return add(code);
    if (code < 0x800) {
      add(0xC0 | code >> 6);
    } else {
      if (code < 0x10000) {
        add(0xE0 | code >> 12);
      } else {
        add(0xF0 | code >> 18);
        add_rest(12);
      }
      add_rest(6);
    }
    add_rest(0);
  }

  void number(util::Value& to) {
    const char* const start = at_;
    if (*at_ == '-') ++at_;
    if (*at_ == '0') {
      ++at_;
    } else {
      digits("Invalid value.");
    }
    const char* const whole = at_;
    if (*at_ == '.') {
      ++at_;
      digits("Miss fraction part in number.");
    }
    if (*at_ == 'e' || *at_ == 'E') {
      ++at_;
      if (*at_ == '+' || *at_ == '-') ++at_;
      digits("Miss exponent in number.");
    }
    if (at_ == whole) return integer(start, to);
    if (std::from_chars(start, at_, make<double>(util::DOUBLE, to)).ec != std::errc()) {
      refuse("a double cannot hold the number", start);
    }
  }

  void digits(const char* otherwise) {
    const char* const start = at_;
    while (*at_ >= '0' && *at_ <= '9') ++at_;
    if (at_ == start) refuse(otherwise);
  }

  void integer(const char* start, util::Value& to) {
    int64_t number = 0;
    const bool read = std::from_chars(start, at_, number).ec == std::errc();
    if (!read || number > kLargestExact || number < -kLargestExact) {
      refuse("the integer is beyond 2^53, a double might lose digits of it", start);
    }
    if (number == static_cast<int>(number)) {
      make<int>(util::INTEGER, to) = static_cast<int>(number);
    } else {
      make<double>(util::DOUBLE, to) = static_cast<double>(number);
    }
  }

  const std::string& text_;
  const char* at_;
  size_t depth_ = 0;
  const size_t most_depth_;
};

}  // namespace

[[gnu::cold]] json_error::json_error(size_t row, size_t column, const std::string& reason)
    : std::runtime_error(std::to_string(row) + ":" + std::to_string(column) + ": " + reason),
      row_(row),
      column_(column) {}

std::string to_json(const util::Value& value, unsigned style) {
  Writer writer(style);
  writer.value(value);
  return writer.take();
}

util::Value from_json(const std::string& text, const JsonLimits& limits) {
  if (text.size() > limits.size) {
    throw json_error(1, 1, "the text is larger than " + std::to_string(limits.size) + " bytes");
  }
  return Reader(text, std::min(limits.depth, kMostDepth)).document();
}

}  // namespace service
