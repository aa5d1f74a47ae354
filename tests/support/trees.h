// SPDX-License-Identifier: MIT
// Trees of values: random ones, and whether two are equal.
#pragma once

#include "util/Value.h"
#include "util/datetime.h"

#include <cfloat>
#include <cmath>
#include <iterator>
#include <limits>
#include <random>
#include <string>

namespace support {

using util::byte_string;
using util::utime_t;
using util::Value;
using util::value_array;
using util::value_struct;

inline bool same(const Value& a, const Value& b);

inline bool same(const value_struct& a, const value_struct& b) {
  auto other = b.begin();
  for (const auto& entry : a) {
    if (other == b.end() || entry.first != other->first) return false;
    if (!same(entry.second, other->second)) return false;
    ++other;
  }
  return other == b.end();
}

inline bool same(const value_array& a, const value_array& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (!same(a[i], b[i])) return false;
  }
  return true;
}

template <class T>
bool equal(const Value& a, const Value& b) {
  return static_cast<const T&>(a) == static_cast<const T&>(b);
}

inline bool same(const Value& a, const Value& b) {
  if (a.get_type() != b.get_type()) return false;
  switch (a.get_type()) {
    case util::INTEGER: return equal<int>(a, b);
    case util::BOOLEAN: return equal<bool>(a, b);
    case util::DOUBLE: return equal<double>(a, b);
    case util::STRING: return equal<std::string>(a, b);
    case util::DATE_TIME: return equal<utime_t>(a, b);
    case util::BYTE_STRING: return equal<byte_string>(a, b);
    case util::STRUCT:
      return same(static_cast<const value_struct&>(a), static_cast<const value_struct&>(b));
    case util::ARRAY:
      return same(static_cast<const value_array&>(a), static_cast<const value_array&>(b));
    case util::VOID: return true;
  }
  return false;
}

inline Value as_filed(const Value& v);

// The tree as a file holds it: dates are whole seconds, and in an hour that comes twice the one
// that the C library takes.
inline value_struct as_filed(value_struct tree) {
  for (auto& entry : tree) entry.second = as_filed(entry.second);
  return tree;
}

inline value_array as_filed(value_array items) {
  for (Value& item : items) item = as_filed(item);
  return items;
}

inline Value as_filed(const Value& v) {
  switch (v.get_type()) {
    case util::DATE_TIME: return util::parse_time(util::unparse_time(v, "%FT%TZ"), "%Y-%m-%dT%TZ");
    case util::STRUCT: return as_filed(static_cast<const value_struct&>(v));
    case util::ARRAY: return as_filed(static_cast<const value_array&>(v));
    default: return v;
  }
}

// Random trees. Each leaf has some chance to be one that does not come back.
class Gardener {
 public:
  explicit Gardener(unsigned seed) : random_(seed) {}

  value_struct dict(int depth) {
    value_struct entries;
    for (unsigned i = below(4); i > 0; --i) entries[text()] = value(depth);
    return entries;
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  Value value(int depth) {
    switch (below(depth > 0 ? 10 : 8)) {
      case 0: return static_cast<int>(random_());
      case 1: return below(2) == 0;
      case 2: return real();
      case 3: return date();
      case 4: return byte_string(below(6), static_cast<unsigned char>(below(256)));
      case 5: return below(20) == 0 ? Value() : Value(true);
      case 8: return dict(depth - 1);
      case 9: return array(depth - 1);
      default: return text();
    }
  }

  value_array array(int depth) {
    value_array items;
    for (unsigned i = below(4); i > 0; --i) items.push_back(value(depth));
    return items;
  }

  std::string text() {
    static const char* const kPieces[] = {"a",
                                          "b",
                                          "key",
                                          "0",
                                          "&",
                                          "<",
                                          ">",
                                          "\"",
                                          "'",
                                          ";",
                                          "&amp;",
                                          "&#x41;",
                                          "&#65;",
                                          "&#",
                                          "]]>",
                                          "<![CDATA[",
                                          "<!--",
                                          "\n",
                                          "\t",
                                          "\r",
                                          "\v",
                                          "\x01",
                                          "\x7F",
                                          " ",
                                          " ",
                                          "\xC3\xA4",
                                          "\xE2\x82\xAC",
                                          "\xF0\x9F\x98\x80",
                                          "\xEF\xBB\xBF",
                                          "\xEF\xBF\xBE",
                                          "\xEF\xBF\xBF",
                                          "\xC3",
                                          "\xE2",
                                          "\xF0",
                                          "\xEF",
                                          "\x80",
                                          "\xBF",
                                          "\xFF",
                                          "\xA0",
                                          "\xC0"};
    const unsigned pieces = below(10) == 0 ? static_cast<unsigned>(std::size(kPieces)) : 25;
    std::string text = below(12) == 0 ? "" : "x";
    for (unsigned i = below(5); i > 0; --i) text += kPieces[below(pieces)];
    if (below(40) == 0) text += '\0';
    if (below(2) == 0) text += "y";
    return text;
  }

  double real() {
    switch (below(8)) {
      case 0: return std::ldexp(static_cast<double>(random_()), -40);
      case 1: return std::numeric_limits<double>::quiet_NaN();
      case 2: return below(2) == 0 ? HUGE_VAL : -HUGE_VAL;
      case 3: return below(2) == 0 ? DBL_MAX : DBL_MIN;
      case 4: return static_cast<double>(below(2000000)) / 1000;
      case 5: return std::stod(std::to_string(below(999999)) + "e" + std::to_string(below(300)));
      default: return static_cast<double>(below(1000000));
    }
  }

  utime_t date() {
    switch (below(6)) {
      case 0: return random_();
      case 1: return 1206835200000U + below(7200) * 1000U;  // an hour is left out
      case 2: return below(100000);
      case 3: return static_cast<utime_t>(-static_cast<int64_t>(below(1000000)) * 1000);
      case 4: return utime_t{253402210800000U} + below(14400) * 1000U;  // the end of 9999
      default: return utime_t{below(4000000000U)} * 1000U;
    }
  }

  std::mt19937_64 random_;
};

}  // namespace support
