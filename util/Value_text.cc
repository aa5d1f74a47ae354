// SPDX-License-Identifier: MIT
// What values print, and what is reported of a wrong kind.
#include "util/Value.h"
#include "util/datetime.h"
#include "util/internal/print_struct.h"

#include <iostream>
#include <iterator>
#include <utility>

namespace util {
namespace {

// By Type. Printing does not use this table: there VOID is "*VOID*".
constexpr const char* kTypeNames[] = {"INTEGER",     "BOOLEAN", "DOUBLE", "STRING", "DATE_TIME",
                                      "BYTE_STRING", "STRUCT",  "ARRAY",  "VOID"};
static_assert(std::size(kTypeNames) == VOID + 1, "one name a Type");

const char* type_name(Type type) {
  return type >= INTEGER && type <= VOID ? kTypeNames[type] : "<<invalid type>>";
}

void print_bytes(std::ostream& os, const byte_string& bytes) {
  // Kept: set once and never put back. 0A 0B is "0a:b", no bytes at all pad what comes next.
  os.width(2);
  os.fill('0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    os << std::hex << unsigned{bytes[i]};
    if (i + 1 < bytes.size()) os << ':';
  }
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

void print_struct(std::ostream& os, const value_struct& entries) {
  os << "(";
  const char* separator = "";
  for (const auto& entry : entries) {
    os << separator << '"' << entry.first << "\" = " << entry.second;
    separator = ", ";
  }
  os << ")";
}

type_exception::type_exception(std::string text) : msg(std::move(text)) {}

const char* type_exception::what() const noexcept { return msg.c_str(); }

void Value::report_mismatch(Type expected) const {
  const std::string text = std::string(type_name(type)) + " is not " + type_name(expected);
  static const std::ios_base::Init streams;  // a static object may be built before them
  std::cerr << text << std::endl;            // Kept: the line that people look for after a crash.
  throw type_exception(text);
}

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
