// SPDX-License-Identifier: MIT
#include "util/JSEmit.h"

#include "util/datetime.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace util {
namespace {

// For each byte, the letter that follows a backslash to stand for it; NUL if it needs none.
constexpr auto kLetters = [] {
  std::array<char, 256> letters = {};
  letters['\r'] = 'r';  // Kept: only these four; other control bytes are written raw.
  letters['\n'] = 'n';
  letters['\''] = '\'';
  letters['\\'] = '\\';
  return letters;
}();

constexpr size_t kLongestInteger = sizeof("-2147483648") - 1;
constexpr size_t kLongestReal = sizeof("-1.23457e+308") - 1;

// Script text as it grows.
class Script {
 public:
  std::string take() {
    flush();
    return std::move(text_);
  }

  void value(const Value& v) {
    switch (v.get_type()) {
      case INTEGER: integer(v); break;
      case BOOLEAN: static_cast<const bool&>(v) ? literal("true") : literal("false"); break;
      case DOUBLE: real(v); break;
      case STRING: stringify(v); break;
      case DATE_TIME: date(v); break;
      case BYTE_STRING: bytes(v); break;
      case STRUCT: entries(v); break;
      case ARRAY: elements(v); break;
      // Kept: saving such a value throws malformed_property_list.
      case VOID: throw type_exception("cannot encode void values");
    }
  }

 private:
  // Kept: bare, without quotes.
  void date(utime_t t) {
    const std::string text = unparse_time(t, "%FT%T%Z");
    std::memcpy(room(text.size()), text.data(), text.size());
    at_ += text.size();
  }

  void integer(int number) {
    char* const to = room(kLongestInteger);
    at_ = std::to_chars(to, to + kLongestInteger, number).ptr;
  }

  // Six significant digits, as a stream writes a number by default in the C locale.
  void real(double number) {
    char* const to = room(kLongestReal);
    at_ = std::to_chars(to, to + kLongestReal, number, std::chars_format::general, 6).ptr;
  }

  void stringify(const std::string& s) {
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

  void bytes(const byte_string& bytes) {
    literal("[ ");
    for (size_t i = 0; i < bytes.size(); ++i) {
      if (i > 0) literal(", ");
      integer(bytes[i]);
    }
    literal(" ]");
  }

  void entries(const value_struct& entries) {
    literal("{ ");
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
      if (entry != entries.begin()) literal(", ");
      stringify(entry->first);
      literal(" : ");
      value(entry->second);
    }
    literal(" }");
  }

  void elements(const value_array& elements) {
    literal("[ ");
    for (auto element = elements.begin(); element != elements.end(); ++element) {
      if (element != elements.begin()) literal(", ");
      value(*element);
    }
    literal(" ]");
  }

  template <size_t size>
  void literal(const char (&text)[size]) {
    std::memcpy(room(size - 1), text, size - 1);
    at_ += size - 1;
  }

  // Room for the next `size` characters, at most a whole buffer. The caller advances at_.
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

}  // namespace

std::string JSEmit::emitValue(const Value& v) const {
  Script script;
  script.value(v);
  return script.take();
}

std::string JSEmit::emitFunction(const std::string& name, const Value& v) const {
  std::string text = "function " + name + "()\n{\n  return ";
  text += emitValue(v);
  text += ";\n}";
  return text;
}

}  // namespace util
