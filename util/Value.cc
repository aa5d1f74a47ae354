// SPDX-License-Identifier: MIT
#include "util/Value.h"

#include "util/datetime.h"

#include <iostream>
#include <iterator>

namespace util {
namespace {

// By Type. Printing does not use this table: there VOID is "*VOID*".
constexpr const char* kTypeNames[] = {"INTEGER",     "BOOLEAN", "DOUBLE", "STRING", "DATE_TIME",
                                      "BYTE_STRING", "STRUCT",  "ARRAY",  "VOID"};
static_assert(std::size(kTypeNames) == VOID + 1, "one name a Type");

std::string type_name(Type type) {
  return type >= INTEGER && type <= VOID ? kTypeNames[type] : "<<invalid type>>";
}

// Most members of most values are empty on both sides.
template <class T>
void take(T& to, T& from) {
  if (!to.empty() || !from.empty()) to = std::move(from);
}

}  // namespace

type_exception::type_exception(std::string text) : msg(std::move(text)) {}

const char* type_exception::what() const noexcept { return msg.c_str(); }

template <class From>
void Value::take_payload(From&& from) {
  switch (type) {  // Kept: only the payload that the kind names, unlike assignment.
    case INTEGER: value._int = from.value._int; break;
    case BOOLEAN: value._bool = from.value._bool; break;
    case DOUBLE: value._double = from.value._double; break;
    case STRING: _string = std::forward<From>(from)._string; break;
    case DATE_TIME: value._date = from.value._date; break;
    case BYTE_STRING: _bytes = std::forward<From>(from)._bytes; break;
    case STRUCT: _struct = std::forward<From>(from)._struct; break;
    case ARRAY: _array = std::forward<From>(from)._array; break;
    case VOID: break;
  }
}

Value::Value(const Value& from) : type(from.type) { take_payload(from); }

Value::Value(Value&& from) noexcept : type(from.type) { take_payload(std::move(from)); }

Value& Value::operator=(const Value& from) {
  if (this == &from) return *this;
  Value copy;  // Kept: all six members whatever the kind, unlike the copy constructor.
  copy.type = from.type;
  copy.value = from.value;
  copy._string = from._string;
  copy._bytes = from._bytes;
  copy._struct = from._struct;
  copy._array = from._array;
  return *this = std::move(copy);
}

Value& Value::operator=(Value&& from) noexcept {
  if (this == &from) return *this;
  value_struct entries;  // The old entries are destroyed last: `from` may be a part of them.
  value_array elements;
  take(entries, _struct);
  take(elements, _array);
  type = from.type;
  value = from.value;
  take(_string, from._string);
  take(_bytes, from._bytes);
  take(_struct, from._struct);
  take(_array, from._array);
  return *this;
}

void Value::report_mismatch(Type expected) const {
  const std::string text = type_name(type) + " is not " + type_name(expected);
  static const std::ios_base::Init streams;  // a static object may be built before them
  std::cerr << text << std::endl;            // Kept: the line that people look for after a crash.
  throw type_exception(text);
}

namespace {

void print_bytes(std::ostream& os, const byte_string& bytes) {
  // Kept: set once and never put back. 0A 0B is "0a:b", no bytes at all pad what comes next.
  os.width(2);
  os.fill('0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    os << std::hex << unsigned{bytes[i]};
    if (i + 1 < bytes.size()) os << ':';
  }
}

void print_struct(std::ostream& os, const value_struct& entries) {
  os << "(";
  const char* separator = "";
  for (const auto& entry : entries) {
    os << separator << '"' << entry.first << "\" = " << entry.second;
    separator = ", ";
  }
  os << ")";
}

void print_array(std::ostream& os, const value_array& elements) {
  os << "(";
  const char* separator = "";
  for (const Value& element : elements) {
    os << separator << element;
    separator = ", ";
  }
  os << ")";
}

}  // namespace

void Value::print(std::ostream& os) const {
  switch (type) {
    case INTEGER: os << static_cast<const int&>(*this); break;
    case BOOLEAN: os << (static_cast<const bool&>(*this) ? "true" : "false"); break;
    case DOUBLE: os << static_cast<const double&>(*this); break;
    case STRING: os << static_cast<const std::string&>(*this); break;
    case DATE_TIME: os << unparse_time(*this, "%FT%TZ"); break;  // Kept: "Z", though local time.
    case BYTE_STRING: print_bytes(os, *this); break;
    case STRUCT: print_struct(os, *this); break;
    case ARRAY: print_array(os, *this); break;
    case VOID: os << "*VOID*"; break;
  }
}

}  // namespace util

std::ostream& operator<<(std::ostream& os, util::Value& v) {
  v.print(os);
  return os;
}
