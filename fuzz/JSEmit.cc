// SPDX-License-Identifier: MIT
// An input is a tree of values.
#include "util/JSEmit.h"

#include "fuzz/calendar.h"
#include "fuzz/values.h"

#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string quoted(const std::string& s) {
  std::string text = "'";
  for (const char c : s) {
    switch (c) {
      case '\r': text += "\\r"; break;
      case '\n': text += "\\n"; break;
      case '\'':
      case '\\': text += '\\'; [[fallthrough]];
      default: text += c;
    }
  }
  return text + "'";
}

std::string emitted(const util::Value& v);

std::string listed(char open, const std::vector<std::string>& items, char close) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return std::string(1, open) + " " + text + " " + close;
}

std::string real(double number) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream << number;
  return stream.str();
}

std::string emitted(const util::Value& v) {
  std::vector<std::string> items;
  switch (v.get_type()) {
    case util::INTEGER: return std::to_string(static_cast<const int&>(v));
    case util::BOOLEAN: return static_cast<const bool&>(v) ? "true" : "false";
    case util::DOUBLE: return real(v);
    case util::STRING: return quoted(v);
    case util::DATE_TIME: return fuzz::date_text(v) + "UTC";
    case util::BYTE_STRING:
      for (const unsigned char byte : static_cast<const util::byte_string&>(v)) {
        items.push_back(std::to_string(byte));
      }
      return listed('[', items, ']');
    case util::STRUCT:
      for (const auto& entry : static_cast<const util::value_struct&>(v)) {
        items.push_back(quoted(entry.first) + " : " + emitted(entry.second));
      }
      return listed('{', items, '}');
    case util::ARRAY:
      for (const util::Value& item : static_cast<const util::value_array&>(v)) {
        items.push_back(emitted(item));
      }
      return listed('[', items, ']');
    case util::VOID: break;
  }
  throw util::type_exception("cannot encode void values");
}

template <class Emit>
std::string outcome(Emit emit) try {
  return emit();
} catch (const util::type_exception& e) {
  return std::string("refused: ") + e.what();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const util::Value v = fuzz::built(input);
  fuzz::require_equal(outcome([&v] { return emitted(v); }),
                      outcome([&v] { return util::JSEmit().emitValue(v); }), "a script");
  fuzz::require_equal(
      outcome([&v] { return "function name()\n{\n  return " + emitted(v) + ";\n}"; }),
      outcome([&v] { return util::JSEmit().emitFunction("name", v); }), "a function");
  return 0;
}
