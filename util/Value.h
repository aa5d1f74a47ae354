// SPDX-License-Identifier: MIT
// The typed value: what property lists hold and scripts are made of.
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <exception>
#include <iosfwd>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace util {

class Value;

using value_struct = std::map<std::string, Value>;
using value_array = std::vector<Value>;

enum Type : int {
  INTEGER,
  BOOLEAN,
  DOUBLE,
  STRING,
  DATE_TIME,
  BYTE_STRING,
  STRUCT,
  ARRAY,
  VOID,
};

// A value was read or written as a kind that it is not.
class UTIL_EXPORT type_exception : public std::exception {
 public:
  type_exception(std::string text);
  ~type_exception() override = default;

  const char* what() const noexcept override;

 private:
  std::string msg;
};

// One integer, boolean, double, text, instant, byte string, map of values or array of values, or
// nothing at all. Owns its whole subtree: copying copies it, moving takes it over without an
// allocation.
//
// What it holds is read and changed through conversions, `int i = v;` or
// `static_cast<value_struct&>(v)["key"] = "text";`. Converting to a kind other than get_type()
// writes "<actual> is not <expected>" to standard error and throws type_exception with that text.
//
// Copying, destroying and printing recurse: 10,000 levels are safe on a stack of 8 MiB.
class UTIL_EXPORT Value {
 public:
  // Holds the argument, or nothing if there is none.
  Value() : type(VOID) {}
  Value(int number) : type(INTEGER) { value._int = number; }
  Value(bool flag) : type(BOOLEAN) { value._bool = flag; }
  Value(double number) : type(DOUBLE) { value._double = number; }
  // Kept: an unsigned 64-bit number is an instant, so on 64-bit machines a size_t is one too.
  Value(utime_t instant) : type(DATE_TIME) { value._date = instant; }
  Value(const char* text) : type(STRING), _string(text) {}
  Value(std::string text) : type(STRING), _string(std::move(text)) {}
  Value(byte_string bytes) : type(BYTE_STRING), _bytes(std::move(bytes)) {}
  Value(value_struct entries) : type(STRUCT), _struct(std::move(entries)) {}
  Value(value_array elements) : type(ARRAY), _array(std::move(elements)) {}

  // Takes the kind and only the payload of that kind; others that set_type() may have left in
  // `from` stay there.
  Value(const Value& from);
  Value(Value&& from) noexcept;
  ~Value() = default;

  // Takes everything, including payloads of other kinds. `from` may be a part of this value; a
  // value is copied, never moved, into a part of itself. If copying throws, this value is
  // unchanged.
  Value& operator=(const Value& from);
  Value& operator=(Value&& from) noexcept;

  Type get_type() const { return type; }
  void set_type(Type t) { type = t; }  // leaves every payload as it is

  // Prints for people: ("a" = 1, "b" = (x, true)), instants as local time, bytes as hexadecimal
  // numbers, VOID as *VOID*.
  //
  // Printing a byte string leaves the stream in hexadecimal with the fill character '0'; printing
  // an empty one also leaves a field width of 2.
  void print(std::ostream& os) const;

  // What the value holds, to read and to change. Throws type_exception if it is of another kind.
  operator int&() { return checked(INTEGER, value._int); }
  operator const int&() const { return checked(INTEGER, value._int); }
  operator bool&() { return checked(BOOLEAN, value._bool); }
  operator const bool&() const { return checked(BOOLEAN, value._bool); }
  operator double&() { return checked(DOUBLE, value._double); }
  operator const double&() const { return checked(DOUBLE, value._double); }
  operator std::string&() { return checked(STRING, _string); }
  operator const std::string&() const { return checked(STRING, _string); }
  operator utime_t&() { return checked(DATE_TIME, value._date); }
  operator const utime_t&() const { return checked(DATE_TIME, value._date); }
  operator byte_string&() { return checked(BYTE_STRING, _bytes); }
  operator const byte_string&() const { return checked(BYTE_STRING, _bytes); }
  operator value_struct&() { return checked(STRUCT, _struct); }
  operator const value_struct&() const { return checked(STRUCT, _struct); }
  operator value_array&() { return checked(ARRAY, _array); }
  operator const value_array&() const { return checked(ARRAY, _array); }

 private:
  void type_assert(Type expected) const {
    if (type != expected) report_mismatch(expected);
  }
  [[noreturn]] void report_mismatch(Type expected) const;

  void copy_payload(Type kind, const Value& from);

  template <class T>
  T& checked(Type expected, T& payload) const {
    type_assert(expected);
    return payload;
  }

  Type type;
  union {
    int _int;
    bool _bool;
    double _double;
    utime_t _date = 0;  // The widest: no kind's scalar is ever read unset.
  } value;
  std::string _string;
  byte_string _bytes;
  value_struct _struct;
  value_array _array;
};

// Prints const values and temporaries. A template in everything, so that a program's own overload
// for Value takes precedence, also one that is a template.
template <class C, class Traits, class T>
typename std::enable_if<std::is_same<T, Value>::value &&
                            std::is_same<std::basic_ostream<C, Traits>, std::ostream>::value,
                        std::ostream&>::type
operator<<(std::basic_ostream<C, Traits>& os, const T& v) {
  v.print(os);
  return os;
}

}  // namespace util

// Prints as Value::print() does.
UTIL_EXPORT std::ostream& operator<<(std::ostream& os, util::Value& v);
