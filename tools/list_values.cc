// SPDX-License-Identifier: MIT
#include "tools/list_values.h"

#include "tools/command.h"
#include "util/base64.h"
#include "util/datetime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>
#include <iterator>

namespace tools {
namespace {

constexpr char kDateFormat[] = "%Y-%m-%dT%H:%M:%SZ";

// ---- reading ----

template <class Number>
std::optional<util::Value> number(const std::string& text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return util::Value(number);
}

std::optional<util::Value> real(const std::string& text) {
  std::optional<util::Value> value = number<double>(text);
  if (value && !std::isfinite(static_cast<double&>(*value))) return std::nullopt;
  return value;
}

std::optional<util::Value> string(const std::string& text) { return util::Value(text); }

std::optional<util::Value> boolean(const std::string& text) {
  if (text != "true" && text != "false") return std::nullopt;
  return util::Value(text == "true");
}

std::optional<util::Value> date(const std::string& text) {
  const util::utime_t instant = util::parse_time(text, kDateFormat);
  if (util::unparse_time(instant, kDateFormat) != text) return std::nullopt;
  return util::Value(instant);
}

std::optional<util::Value> data(const std::string& text) {
  util::byte_string bytes;
  if (util::b64_decode(text, bytes) < 0) return std::nullopt;
  return util::Value(bytes);
}

std::optional<util::Value> dict(const std::string&) { return util::Value(util::value_struct()); }

std::optional<util::Value> array(const std::string&) { return util::Value(util::value_array()); }

constexpr ListType kTypes[] = {
    {"integer", util::INTEGER,     true,  number<int>},
    {"real",    util::DOUBLE,      true,  real       },
    {"string",  util::STRING,      true,  string     },
    {"boolean", util::BOOLEAN,     true,  boolean    },
    {"date",    util::DATE_TIME,   true,  date       },
    {"data",    util::BYTE_STRING, true,  data       },
    {"dict",    util::STRUCT,      false, dict       },
    {"array",   util::ARRAY,       false, array      },
};

// ---- showing ----

std::string shortest(double number) {
  char text[32];
  return std::string(text, std::to_chars(std::begin(text), std::end(text), number).ptr);
}

std::string with_point(const std::string& digits) {
  return digits.find_first_not_of("-0123456789") == digits.npos ? digits + ".0" : digits;
}

std::string base64(const util::byte_string& bytes) {
  std::string text;
  util::b64_encode(bytes, text, 0);
  return text;
}

bool is_full(const util::Value& value) {
  switch (value.get_type()) {
    case util::STRUCT: return !static_cast<const util::value_struct&>(value).empty();
    case util::ARRAY: return !static_cast<const util::value_array&>(value).empty();
    default: return false;
  }
}

void show(Outline& out, const std::string& name, const util::Value& value) {
  if (!is_full(value)) return out.item(name, outline_text(value));
  out.open(name);
  if (value.get_type() == util::STRUCT) {
    show_entries(out, value);
  } else {
    show_elements(out, value);
  }
  out.close();
}

// ---- comparing ----

std::string escaped(const std::string& key) {
  std::string to;
  for (const char c : key) {
    if (c == '/' || c == '[' || c == '\\') to += '\\';
    to += c;
  }
  return to;
}

std::string entry_path(const std::string& path, const std::string& key) {
  return path.empty() ? escaped(key) : path + "/" + escaped(key);
}

std::string element_path(const std::string& path, size_t number) {
  return path + "[" + std::to_string(number) + "]";
}

class Differences {
 public:
  void compare(const std::string& path, const util::value_struct& old,
               const util::value_struct& current) {
    auto one = old.begin();
    for (auto other = current.begin(); one != old.end() || other != current.end();) {
      const bool only_old =
          other == current.end() || (one != old.end() && one->first < other->first);
      if (only_old) {
        print('-', entry_path(path, one->first), one->second);
        ++one;
      } else if (one == old.end() || other->first < one->first) {
        print('+', entry_path(path, other->first), other->second);
        ++other;
      } else {
        compare(entry_path(path, one->first), one->second, other->second);
        ++one;
        ++other;
      }
    }
  }

  bool any() const { return any_; }

 private:
  void compare(const std::string& path, const util::Value& old, const util::Value& current) {
    const bool same_kind = old.get_type() == current.get_type() && is_full(old) && is_full(current);
    if (same_kind && old.get_type() == util::STRUCT) {
      compare(path, static_cast<const util::value_struct&>(old),
              static_cast<const util::value_struct&>(current));
    } else if (same_kind) {
      compare(path, static_cast<const util::value_array&>(old),
              static_cast<const util::value_array&>(current));
    } else if (is_full(old) || is_full(current) || outline_text(old) != outline_text(current)) {
      print('-', path, old);
      print('+', path, current);
    }
  }

  void compare(const std::string& path, const util::value_array& old,
               const util::value_array& current) {
    for (size_t i = 0; i < std::max(old.size(), current.size()); ++i) {
      const std::string element = element_path(path, i);
      if (i >= current.size()) {
        print('-', element, old[i]);
      } else if (i >= old.size()) {
        print('+', element, current[i]);
      } else {
        compare(element, old[i], current[i]);
      }
    }
  }

  void print(char sign, const std::string& path, const util::Value& value) {
    if (!is_full(value))
      return print_line(sign + printable_line(path) + ": " + outline_text(value));
    if (value.get_type() == util::STRUCT) {
      for (const auto& entry : static_cast<const util::value_struct&>(value)) {
        print(sign, entry_path(path, entry.first), entry.second);
      }
      return;
    }
    const util::value_array& elements = value;
    for (size_t i = 0; i < elements.size(); ++i) print(sign, element_path(path, i), elements[i]);
  }

  void print_line(const std::string& line) {
    any_ = true;
    if (!coloured_) {
      std::cout << line << '\n';
    } else {
      std::cout << (line[0] == '-' ? "\033[31m" : "\033[32m") << line << "\033[0m\n";
    }
  }

  bool any_ = false;
  const bool coloured_ = in_colours();
};

}  // namespace

const ListType* find_list_type(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&name](const ListType& row) { return name == row.name; });
  return found == std::end(kTypes) ? nullptr : found;
}

const char* name_of_type(const util::Value& value) {
  const auto* const found =
      std::find_if(std::begin(kTypes), std::end(kTypes),
                   [&value](const ListType& row) { return value.get_type() == row.type; });
  return found == std::end(kTypes) ? "void" : found->name;
}

std::string raw_text(const util::Value& value) {
  switch (value.get_type()) {
    case util::INTEGER: return std::to_string(static_cast<const int&>(value));
    case util::BOOLEAN: return static_cast<const bool&>(value) ? "true" : "false";
    case util::DOUBLE: return shortest(value);
    case util::STRING: return value;
    case util::DATE_TIME: return util::unparse_time(value, kDateFormat);
    case util::BYTE_STRING: return base64(value);
    default: return "";
  }
}

std::string outline_text(const util::Value& value) {
  switch (value.get_type()) {
    case util::DOUBLE: return with_point(shortest(value));
    case util::STRING: return quoted(raw_text(value));
    case util::DATE_TIME: return "date " + raw_text(value);
    case util::BYTE_STRING: return "data " + raw_text(value);
    case util::STRUCT: return "{}";
    case util::ARRAY: return "[]";
    case util::VOID: return "void";
    default: return raw_text(value);
  }
}

void show_entries(Outline& out, const util::value_struct& entries) {
  for (const auto& entry : entries) show(out, plain_or_quoted(entry.first), entry.second);
}

void show_elements(Outline& out, const util::value_array& elements) {
  size_t number = 0;
  for (const util::Value& element : elements) {
    show(out, "[" + std::to_string(number++) + "]", element);
  }
}

bool show_differences(const util::value_struct& old, const util::value_struct& current) {
  Differences differences;
  differences.compare("", old, current);
  return differences.any();
}

}  // namespace tools
