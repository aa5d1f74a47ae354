// SPDX-License-Identifier: MIT
#include "fuzz/values.h"

#include <cstdio>

namespace fuzz {

util::Value built(Input& input) {
  const uint8_t kind = input.byte() % 9;
  const uint8_t count = kind == util::STRUCT || kind == util::ARRAY ? input.byte() : 0;
  switch (kind) {
    case util::INTEGER: return input.number<int>();
    case util::BOOLEAN: return input.byte() % 2 == 1;
    case util::DOUBLE: return input.number<double>();
    case util::STRING: return input.text();
    case util::DATE_TIME: return input.number<uint64_t>();
    case util::BYTE_STRING: {
      const std::string bytes = input.text();
      return util::byte_string(bytes.begin(), bytes.end());
    }
    case util::STRUCT: return built_struct(input, count);
    case util::ARRAY: {
      util::value_array items;
      for (int i = 0; i < count && !input.empty(); ++i) items.push_back(built(input));
      return items;
    }
    default: return {};
  }
}

util::value_struct built_struct(Input& input, int count) {
  util::value_struct entries;
  for (int i = 0; i < count && !input.empty(); ++i) {
    const std::string key = input.text();
    entries[key] = built(input);
  }
  return entries;
}

std::string spelled(const util::Value& v) {
  std::string text;
  switch (v.get_type()) {
    case util::INTEGER: return "i" + std::to_string(static_cast<const int&>(v));
    case util::BOOLEAN: return static_cast<const bool&>(v) ? "true" : "false";
    case util::DOUBLE: {
      char number[64];
      snprintf(number, sizeof(number), "r%a", static_cast<const double&>(v));
      return number;
    }
    case util::STRING: {
      const std::string& string = v;
      return "s" + std::to_string(string.size()) + ":" + string;
    }
    case util::DATE_TIME: return "t" + std::to_string(static_cast<const util::utime_t&>(v));
    case util::BYTE_STRING: {
      const util::byte_string& bytes = v;
      return "b" + std::to_string(bytes.size()) + ":" + std::string(bytes.begin(), bytes.end());
    }
    case util::STRUCT:
      for (const auto& entry : static_cast<const util::value_struct&>(v)) {
        text += spelled(entry.first) + "=" + spelled(entry.second) + ";";
      }
      return "(" + text + ")";
    case util::ARRAY:
      for (const util::Value& item : static_cast<const util::value_array&>(v)) {
        text += spelled(item) + ";";
      }
      return "[" + text + "]";
    case util::VOID: return "void";
  }
  return "no type";
}

}  // namespace fuzz
