// SPDX-License-Identifier: MIT
#include "tools/key_path.h"

#include "tools/outline.h"

#include <charconv>
#include <string_view>

namespace tools {
namespace {

// Takes a key off the front of `text`, up to the "/" or "[" behind it.
std::string take_key(std::string_view& text) {
  std::string key;
  while (!text.empty() && text[0] != '/' && text[0] != '[') {
    if (text[0] == '\\') text.remove_prefix(1);
    if (text.empty()) throw KeyPath::Malformed("ends with a \"\\\"");
    key += text[0];
    text.remove_prefix(1);
  }
  if (key.empty()) throw KeyPath::Malformed("has an empty key");
  return key;
}

// Takes "[2]" off the front.
size_t take_number(std::string_view& text) {
  size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data() + 1, end, number);
  if (result.ec != std::errc() || result.ptr == end || *result.ptr != ']') {
    throw KeyPath::Malformed("has no number and \"]\" behind a \"[\"");
  }
  text.remove_prefix(static_cast<size_t>(result.ptr + 1 - text.data()));
  return number;
}

util::Value& entry(util::Value& parent, const std::string& key) {
  if (parent.get_type() == util::VOID) parent = util::value_struct();
  if (parent.get_type() != util::STRUCT) {
    throw KeyPath::Mismatch("there is no dictionary that " + quoted(key) + " could be in");
  }
  return static_cast<util::value_struct&>(parent)[key];
}

util::Value& element(util::Value& parent, size_t number) {
  const std::string name = "[" + std::to_string(number) + "]";
  if (parent.get_type() == util::VOID) parent = util::value_array();
  if (parent.get_type() != util::ARRAY) {
    throw KeyPath::Mismatch("there is no array that " + name + " could be in");
  }
  util::value_array& elements = parent;
  if (number > elements.size()) {
    throw KeyPath::Mismatch(name + " is behind the end of an array of " +
                            std::to_string(elements.size()));
  }
  if (number == elements.size()) elements.emplace_back();
  return elements[number];
}

}  // namespace

KeyPath::KeyPath(const std::string& text) {
  std::string_view rest = text;
  while (true) {
    steps_.push_back({take_key(rest), false, 0});
    while (!rest.empty() && rest[0] == '[') steps_.push_back({"", true, take_number(rest)});
    if (rest.empty()) return;
    if (rest[0] != '/') throw Malformed("has no \"/\" or \"[\" behind a \"]\"");
    rest.remove_prefix(1);
  }
}

util::Value& KeyPath::find_or_make(util::value_struct& list) const {
  util::Value* at = &list[steps_.front().key];
  for (size_t i = 1; i < steps_.size(); ++i) {
    const Step& step = steps_[i];
    at = step.is_number ? &element(*at, step.number) : &entry(*at, step.key);
  }
  return *at;
}

}  // namespace tools
