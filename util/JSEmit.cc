// SPDX-License-Identifier: MIT
#include "util/JSEmit.h"

#include "util/datetime.h"

#include <charconv>

namespace util {
namespace {

// The character that stands for `c` behind a backslash, or NUL where `c` needs none.
char escape_letter(char c) {
  switch (c) {  // Kept: these four only; other control bytes go out raw.
    case '\r': return 'r';
    case '\n': return 'n';
    case '\'': return '\'';
    case '\\': return '\\';
    default: return '\0';
  }
}

void stringify(const std::string& s, std::string& out) {
  out += '\'';
  const char* plain = s.data();
  const char* const end = plain + s.size();
  for (const char* at = plain; at != end; ++at) {
    const char letter = escape_letter(*at);
    if (letter == '\0') continue;
    out.append(plain, at) += '\\';
    out += letter;
    plain = at + 1;
  }
  out.append(plain, end) += '\'';
}

void emit(const Value& v, std::string& out);

void emit_int(int number, std::string& out) {
  char text[16];
  out.append(text, std::to_chars(std::begin(text), std::end(text), number).ptr);
}

// As a stream writes it by default, whatever the locale.
void emit_double(double number, std::string& out) {
  char text[32];
  out.append(
      text,
      std::to_chars(std::begin(text), std::end(text), number, std::chars_format::general, 6).ptr);
}

void emit_bytes(const byte_string& bytes, std::string& out) {
  out += "[ ";
  const char* separator = "";
  for (const unsigned char byte : bytes) {
    out += separator;
    emit_int(byte, out);
    separator = ", ";
  }
  out += " ]";
}

void emit_struct(const value_struct& entries, std::string& out) {
  out += "{ ";
  const char* separator = "";
  for (const auto& entry : entries) {
    out += separator;
    stringify(entry.first, out);
    out += " : ";
    emit(entry.second, out);
    separator = ", ";
  }
  out += " }";
}

void emit_array(const value_array& elements, std::string& out) {
  out += "[ ";
  const char* separator = "";
  for (const Value& element : elements) {
    out += separator;
    emit(element, out);
    separator = ", ";
  }
  out += " ]";
}

void emit(const Value& v, std::string& out) {
  switch (v.get_type()) {
    case INTEGER: emit_int(v, out); break;
    case BOOLEAN: out += static_cast<const bool&>(v) ? "true" : "false"; break;
    case DOUBLE: emit_double(v, out); break;
    case STRING: stringify(v, out); break;
    case DATE_TIME: out += unparse_time(v, "%FT%T%Z"); break;  // Kept: bare, without quotes.
    case BYTE_STRING: emit_bytes(v, out); break;
    case STRUCT: emit_struct(v, out); break;
    case ARRAY: emit_array(v, out); break;
    case VOID: throw type_exception("cannot encode void values");
  }
}

}  // namespace

std::string JSEmit::emitValue(const Value& v) const {
  std::string text;
  emit(v, text);
  return text;
}

std::string JSEmit::emitFunction(const std::string& name, const Value& v) const {
  std::string text = "function " + name + "()\n{\n  return ";
  emit(v, text);
  return text += ";\n}";
}

}  // namespace util
