// SPDX-License-Identifier: MIT
#include "service/json.h"

#include "service/internal/concat.h"
#include "service/utf8.h"
#include "util/base64.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

// The parser: it streams, so no second tree is built, and tells where a fault is. Its numbers are
// taken as text: std::from_chars gives the nearest double, always. What it asserts stays asserted,
// without the signatures of its templates as texts.
#define RAPIDJSON_ASSERT(holds) ((holds) ? static_cast<void>(0) : std::abort())
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

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

char letter_for(char c) { return kLetters[static_cast<unsigned char>(c)]; }

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
      case util::INTEGER: return add(decimal(static_cast<const int&>(v)));
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

  // The shortest digits that give the number back, with a point or an exponent.
  void real(double number) {
    if (!std::isfinite(number)) return add("null");
    char text[32];
    const auto size = static_cast<size_t>(std::to_chars(text, std::end(text), number).ptr - text);
    add({text, size});
    if (memchr(text, '.', size) == nullptr && memchr(text, 'e', size) == nullptr) add(".0");
  }

  void bytes(const util::byte_string& bytes) {
    text_ += '"';
    util::b64_encode(bytes, text_, 0);
    text_ += '"';
  }

  void quoted(const std::string& s) {
    text_ += '"';
    const char* const end = s.data() + s.size();
    for (const char* at = s.data(); at != end;) {
      const char* const plain = at;
      while (at != end && letter_for(*at) == '\0') ++at;
      add({plain, static_cast<size_t>(at - plain)});
      if (at != end) at = character(at, end);
    }
    text_ += '"';
  }

  // Writes the one at `at`, which may not simply stay; returns what is behind it.
  const char* character(const char* at, const char* end) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte >= 128) return beyond_ascii(at, end);
    const char letter = letter_for(*at);
    if (letter == 'u' || (letter == '<' && in_script_)) {
      add(escaped_number(byte));
    } else {
      if (letter != '<') text_ += '\\';
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
    begin('{');
    util::value_struct replaced;
    for (const auto& [key, v] : entries) {
      new_line();
      if (is_utf8(key)) {
        quoted(key);
      } else {
        quoted(unique(key, entries, replaced));
      }
      add(indented_ ? ": " : ":");
      value(v);
      text_ += ',';
    }
    end('}');
  }

  void array(const util::value_array& elements) {
    begin('[');
    for (const util::Value& element : elements) {
      new_line();
      value(element);
      text_ += ',';
    }
    end(']');
  }

  // The key with its bad bytes replaced, unlike all others of the object.
  [[gnu::cold]] static std::string unique(const std::string& key, const util::value_struct& entries,
                                          util::value_struct& replaced) {
    std::string valid = valid_utf8(key);
    while (entries.count(valid) > 0 || replaced.count(valid) > 0) valid += kReplacement;
    replaced[valid];
    return valid;
  }

  void begin(char bracket) {
    text_ += bracket;
    ++depth_;
  }

  // Takes back the comma behind the last one, if any.
  void end(char bracket) {
    --depth_;
    if (text_.back() == ',') {
      text_.pop_back();
      new_line();
    }
    text_ += bracket;
  }

  void new_line() {
    if (!indented_) return;
    text_ += '\n';
    text_.append(2 * depth_, ' ');
  }

  std::string text_;
  size_t depth_ = 0;
  const bool indented_;
  const bool in_script_;
};

// ---- reading ----

// How many of the first `size` bytes are UTF-8.
[[gnu::cold]] size_t valid_size(const std::string& text, size_t size) {
  const char* const end = text.data() + size;
  const char* at = text.data();
  while (at != end) {
    const auto [length, valid] = utf8_piece(at, end);
    if (!valid) break;
    at += length;
  }
  return static_cast<size_t>(at - text.data());
}

// Throws what says where the byte at `offset` is.
[[noreturn, gnu::cold]] void fail(const std::string& text, size_t offset,
                                  const std::string& reason) {
  const auto at = text.begin() + static_cast<ptrdiff_t>(std::min(offset, text.size()));
  const auto row = static_cast<size_t>(std::count(text.begin(), at, '\n')) + 1;
  const size_t line = row == 1 ? 0 : text.rfind('\n', offset - 1) + 1;
  throw json_error(row, static_cast<size_t>(at - text.begin()) - line + 1, reason);
}

// What the parser reads. It writes a text without its escapes over the text itself.
struct InPlace {
  using Ch = char;

  explicit InPlace(char* text) : start(text), from(text) {}

  char Peek() const { return *from; }
  char Take() { return *from++; }
  size_t Tell() const { return static_cast<size_t>(from - start); }
  char* PutBegin() { return to = from; }
  void Put(char c) { *to++ = c; }
  size_t PutEnd(const char* begin) const { return static_cast<size_t>(to - begin); }

  const char* start;
  char* from;
  char* to = nullptr;
};

// Builds the value that the parser reads. False stops the parser.
class Builder {
 public:
  Builder(const InPlace& stream, size_t most_depth) : stream_(stream), most_depth_(most_depth) {}

  bool Null() {
    place();
    return true;
  }
  bool Bool(bool flag) { return put(util::BOOLEAN, flag); }
  bool String(const char* text, size_t size, bool) {
    std::string& s = make<std::string>(util::STRING);
    s.assign(text, size);
    return is_whole(s);
  }
  bool StartObject() { return enter(util::STRUCT); }
  bool EndObject(size_t) { return leave(); }
  bool StartArray() { return enter(util::ARRAY); }
  bool EndArray(size_t) { return leave(); }

  bool Key(const char* text, size_t size, bool) {
    const std::string key(text, size);
    util::value_struct& entries = *open_.back();
    const size_t before = entries.size();
    target_ = &entries[key];
    return is_whole(key) && (entries.size() > before ||
                             refuse(concat({"the key \"", key, "\" stands in the object twice"})));
  }

  // The number has just been read.
  bool RawNumber(const char*, size_t size, bool) {
    const char* const end = stream_.from;
    const char* const text = end - size;
    int64_t whole = 0;
    const auto read = std::from_chars(text, end, whole);
    if (read.ptr == end) return integer(whole, read.ec);
    double& real = make<double>(util::DOUBLE);
    if (std::from_chars(text, end, real).ec == std::errc()) return true;
    return refuse("a double cannot hold the number");
  }

  // Never called: numbers come as text.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(int64_t) { return false; }
  bool Uint64(uint64_t) { return false; }
  bool Double(double) { return false; }

  util::Value take() { return std::move(root_); }
  const std::string& reason() const { return reason_; }

 private:
  [[gnu::cold]] bool refuse(const std::string& reason) {
    reason_ = reason;
    return false;
  }

  // The parser looks at no encoding, and turns "\uDC00" without a first half before it into 0xED
  // and two bytes more.
  bool is_whole(const std::string& s) {
    return is_utf8(s) || refuse("the second half of a surrogate pair stands alone");
  }

  bool integer(int64_t number, std::errc error) {
    if (number == static_cast<int>(number) && error == std::errc()) {
      return put(util::INTEGER, static_cast<int>(number));
    }
    if (error != std::errc() || number > kLargestExact || number < -kLargestExact) {
      return refuse("the integer is beyond 2^53, a double might lose digits of it");
    }
    return put(util::DOUBLE, static_cast<double>(number));
  }

  // The place of the value that comes next.
  util::Value& place() {
    if (open_.empty() || open_.back()->get_type() != util::ARRAY) return *target_;
    return static_cast<util::value_array&>(*open_.back()).emplace_back();
  }

  // A value there, to be filled.
  template <class T>
  T& make(util::Type type) {
    util::Value& v = place();
    v.set_type(type);
    return v;
  }

  template <class T>
  bool put(util::Type type, T scalar) {
    make<T>(type) = scalar;
    return true;
  }

  bool enter(util::Type type) {
    if (open_.size() == most_depth_) {
      return refuse(concat({"nested deeper than ", decimal(most_depth_)}));
    }
    open_.push_back(&make<util::Value>(type));
    return true;
  }

  bool leave() {
    open_.pop_back();
    return true;
  }

  util::Value root_;
  util::Value* target_ = &root_;  // where the value that comes next goes, unless into an array
  std::vector<util::Value*> open_;
  std::string reason_;
  const InPlace& stream_;
  const size_t most_depth_;
};

}  // namespace

[[gnu::cold]] json_error::json_error(size_t row, size_t column, const std::string& reason)
    : std::runtime_error(concat({decimal(row), ":", decimal(column), ": ", reason})),
      row_(row),
      column_(column) {}

std::string to_json(const util::Value& value, unsigned style) {
  Writer writer(style);
  writer.value(value);
  return writer.take();
}

util::Value from_json(const std::string& text, const JsonLimits& limits) {
  if (text.size() > limits.size) {
    fail(text, 0, concat({"the text is larger than ", decimal(limits.size), " bytes"}));
  }
  constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
  std::string copy(text);
  InPlace stream(copy.data());
  Builder builder(stream, std::min(limits.depth, kMostDepth));
  rapidjson::Reader reader;
  const rapidjson::ParseResult result = reader.Parse<kFlags>(stream, builder);
  if (result.IsError()) {
    const size_t valid = valid_size(text, result.Offset());
    if (valid < result.Offset()) fail(text, valid, "Invalid encoding in string.");
    if (!builder.reason().empty()) fail(text, result.Offset(), builder.reason());
    fail(text, result.Offset(), rapidjson::GetParseError_En(result.Code()));
  }
  // The parser takes a NUL byte for the end.
  if (stream.Tell() != text.size()) fail(text, stream.Tell(), "a NUL byte in the text");
  return builder.take();
}

}  // namespace service
