// SPDX-License-Identifier: MIT
#include "util/JSEmit.h"

#include "util/datetime.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace util {
namespace {

// By byte: what stands for it behind a backslash, NUL where it needs none.
constexpr std::array<char, 256> escape_letters() {
  std::array<char, 256> letters = {};
  letters['\r'] = 'r';  // Kept: these four only; other control bytes go out raw.
  letters['\n'] = 'n';
  letters['\''] = '\'';
  letters['\\'] = '\\';
  return letters;
}

constexpr std::array<char, 256> kLetters = escape_letters();

constexpr size_t kLongestInteger = sizeof("-2147483648") - 1;
constexpr size_t kLongestReal = sizeof("-1.23457e+308") - 1;

// `number` with six significant digits at `to`, as a stream writes it by default in the C locale.
char* any_real(double number, char* to) {
  return std::to_chars(to, to + kLongestReal, number, std::chars_format::general, 6).ptr;
}

// The decimal exponent of the numbers from `from` up, and what scales them to six digits before
// the point.
struct Decade {
  double from;
  int exponent;
  double scale;
};

constexpr Decade kDecades[] = {
    {1e5,  5,  1e0},
    {1e4,  4,  1e1},
    {1e3,  3,  1e2},
    {1e2,  2,  1e3},
    {1e1,  1,  1e4},
    {1e0,  0,  1e5},
    {1e-1, -1, 1e6},
    {1e-2, -2, 1e7},
    {1e-3, -3, 1e8},
    {1e-4, -4, 1e9},
};

// Six digits with the exponent 2 are 123.456, with -2 0.0123456, without trailing zeros.
char* place_point(int digits, int exponent, char* to) {
  constexpr char kZeros[] = "0.000";
  char text[6];
  std::to_chars(text, std::end(text), digits);
  char* end = std::end(text);
  while (end[-1] == '0') --end;
  if (exponent < 0) return std::copy(text, end, std::copy(kZeros, kZeros + (1 - exponent), to));
  char* const point = text + exponent + 1;
  to = std::copy(text, point, to);
  if (end <= point) return to;
  *to++ = '.';
  return std::copy(point, end, to);
}

// any_real(), several times as fast for numbers of everyday size: the scaled number is off by less
// than 1e-10, which matters only next to a half.
char* real(double number, char* to) {
  const double size = std::fabs(number);
  const auto* const decade = std::find_if(std::begin(kDecades), std::end(kDecades),
                                          [size](const Decade& d) { return size >= d.from; });
  if (decade == std::end(kDecades) || size >= 1e6) return any_real(number, to);
  const double scaled = size * decade->scale;
  int digits = static_cast<int>(scaled);
  const double rest = scaled - digits;
  if (rest > 0.5) ++digits;
  if (std::fabs(rest - 0.5) < 1e-9 || digits > 999999) return any_real(number, to);
  if (number < 0) *to++ = '-';
  return place_point(digits, decade->exponent, to);
}

size_t estimate(const Value& v);

size_t estimate_entries(const value_struct& entries) {
  size_t size = sizeof("{  }");
  for (const auto& [key, v] : entries) size += key.size() + sizeof("'' : , ") + estimate(v);
  return size;
}

size_t estimate_elements(const value_array& elements) {
  size_t size = sizeof("[  ]");
  for (const Value& element : elements) size += sizeof(", ") + estimate(element);
  return size;
}

// About the length of the text of `v`. With it a script is allocated once and not copied as it
// grows.
size_t estimate(const Value& v) {
  switch (v.get_type()) {
    case STRING: return sizeof("''") + static_cast<const std::string&>(v).size();
    case BYTE_STRING: return static_cast<const byte_string&>(v).size() * sizeof("255, ");
    case STRUCT: return estimate_entries(v);
    case ARRAY: return estimate_elements(v);
    default: return sizeof("123456");
  }
}

// Script text as it grows.
class Script {
 public:
  explicit Script(size_t size) { text_.reserve(size); }

  void value(const Value& v);
  std::string take();

 private:
  void integer(int number);
  void stringify(const std::string& s);
  void date(utime_t t);
  void bytes(const byte_string& bytes);
  void entries(const value_struct& entries);
  void elements(const value_array& elements);

  template <size_t size>
  void literal(const char (&text)[size]) {
    std::memcpy(room(size - 1), text, size - 1);
    at_ += size - 1;
  }

  // Where the next `size` characters, at most a whole buffer, go. The caller moves at_ on.
  char* room(size_t size) {
    if (size > static_cast<size_t>(std::end(buffer_) - at_)) flush();
    return at_;
  }

  void flush() {
    text_.append(buffer_, at_);
    at_ = buffer_;
  }

  char buffer_[4096];  // Keeps the growing string out of the inner loops.
  char* at_ = buffer_;
  std::string text_;
};

std::string Script::take() {
  flush();
  return std::move(text_);
}

void Script::value(const Value& v) {
  switch (v.get_type()) {
    case INTEGER: integer(v); break;
    case BOOLEAN: static_cast<const bool&>(v) ? literal("true") : literal("false"); break;
    case DOUBLE: at_ = real(v, room(kLongestReal)); break;
    case STRING: stringify(v); break;
    case DATE_TIME: date(v); break;
    case BYTE_STRING: bytes(v); break;
    case STRUCT: entries(v); break;
    case ARRAY: elements(v); break;
    case VOID: throw type_exception("cannot encode void values");
  }
}

// Kept: bare, without quotes.
void Script::date(utime_t t) {
  const std::string text = unparse_time(t, "%FT%T%Z");
  std::memcpy(room(text.size()), text.data(), text.size());
  at_ += text.size();
}

void Script::integer(int number) {
  char* const to = room(kLongestInteger);
  at_ = std::to_chars(to, to + kLongestInteger, number).ptr;
}

void Script::stringify(const std::string& s) {
  literal("'");
  const char* from = s.data();
  const char* const end = from + s.size();
  while (from != end) {
    const size_t size = std::min<size_t>(static_cast<size_t>(end - from), sizeof(buffer_) / 2);
    char* to = room(2 * size);
    for (const char* const stop = from + size; from != stop; ++from) {
      const char letter = kLetters[static_cast<unsigned char>(*from)];
      if (letter == '\0') {
        *to++ = *from;
      } else {
        *to++ = '\\';
        *to++ = letter;
      }
    }
    at_ = to;
  }
  literal("'");
}

void Script::bytes(const byte_string& bytes) {
  literal("[ ");
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0) literal(", ");
    integer(bytes[i]);
  }
  literal(" ]");
}

void Script::entries(const value_struct& entries) {
  literal("{ ");
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    if (entry != entries.begin()) literal(", ");
    stringify(entry->first);
    literal(" : ");
    value(entry->second);
  }
  literal(" }");
}

void Script::elements(const value_array& elements) {
  literal("[ ");
  for (auto element = elements.begin(); element != elements.end(); ++element) {
    if (element != elements.begin()) literal(", ");
    value(*element);
  }
  literal(" ]");
}

}  // namespace

std::string JSEmit::emitValue(const Value& v) const {
  Script script(estimate(v));
  script.value(v);
  return script.take();
}

std::string JSEmit::emitFunction(const std::string& name, const Value& v) const {
  return "function " + name + "()\n{\n  return " + emitValue(v) + ";\n}";
}

}  // namespace util
