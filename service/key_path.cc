// SPDX-License-Identifier: MIT
#include "service/key_path.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

namespace service {
namespace {

struct Step {
  bool is_element;
  std::string key;  // of a dictionary
  size_t number;    // of an element
  size_t end;       // of the step within the path
};

using Steps = std::vector<Step>;

class Parser {
 public:
  explicit Parser(const std::string& path) : path_(path), rest_(path) {}

  Steps steps() {
    Steps steps;
    while (true) {
      std::string key = take_key();
      steps.push_back({false, std::move(key), 0, taken()});
      while (!rest_.empty() && rest_[0] == '[') {
        const size_t number = take_number();
        steps.push_back({true, "", number, taken()});
      }
      if (rest_.empty()) return steps;
      if (rest_[0] != '/') fail("expected \"/\" or \"[\" behind a \"]\"");
      rest_.remove_prefix(1);
    }
  }

 private:
  [[noreturn]] void fail(const char* reason) const {
    throw MalformedPath("'" + path_ + "': " + reason);
  }

  size_t taken() const { return path_.size() - rest_.size(); }

  // Reads a key, up to the next "/" or "[".
  std::string take_key() {
    std::string key;
    while (!rest_.empty() && rest_[0] != '/' && rest_[0] != '[') {
      if (rest_[0] == '\\') rest_.remove_prefix(1);
      if (rest_.empty()) fail("ends with a \"\\\"");
      key += rest_[0];
      rest_.remove_prefix(1);
    }
    if (key.empty()) fail("a key is empty");
    return key;
  }

  // Reads an index, "[2]".
  size_t take_number() {
    size_t number = 0;
    const char* const end = rest_.data() + rest_.size();
    const auto result = std::from_chars(rest_.data() + 1, end, number);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != ']') {
      fail("expected a number and \"]\" behind a \"[\"");
    }
    rest_.remove_prefix(static_cast<size_t>(result.ptr + 1 - rest_.data()));
    return number;
  }

  const std::string& path_;
  std::string_view rest_;
};

Steps steps_of(const std::string& path) { return Parser(path).steps(); }

const util::Value* entry(const util::value_struct& entries, const std::string& key) {
  const auto found = entries.find(key);
  return found == entries.end() ? nullptr : &found->second;
}

const util::Value* element(const util::value_array& elements, size_t number) {
  return number < elements.size() ? &elements[number] : nullptr;
}

// What the step leads to, or null.
const util::Value* next(const util::Value& from, const Step& step) {
  if (from.get_type() != (step.is_element ? util::ARRAY : util::STRUCT)) return nullptr;
  return step.is_element ? element(from, step.number) : entry(from, step.key);
}

const util::Value* follow(const util::value_struct& list, const Steps& steps, size_t count) {
  const util::Value* at = entry(list, steps[0].key);
  for (size_t i = 1; i < count && at != nullptr; ++i) at = next(*at, steps[i]);
  return at;
}

// Why the step cannot be taken from this value, which is null if it is missing; empty if it can.
std::string obstacle(const util::Value* from, const Step& step, const std::string& before) {
  const bool nothing = from == nullptr || from->get_type() == util::VOID;
  if (!nothing && from->get_type() != (step.is_element ? util::ARRAY : util::STRUCT)) {
    return before + " is not " + (step.is_element ? "an array" : "a dictionary");
  }
  if (!step.is_element) return "";
  const size_t size = nothing ? 0 : static_cast<const util::value_array&>(*from).size();
  if (step.number <= size) return "";
  return "the next element of " + before + " is [" + std::to_string(size) + "]";
}

// Throws, before anything is changed, if a value cannot be stored there.
void check(const util::value_struct& list, const Steps& steps, const std::string& path) {
  const util::Value* at = entry(list, steps[0].key);
  for (size_t i = 1; i < steps.size(); ++i) {
    const std::string reason = obstacle(at, steps[i], path.substr(0, steps[i - 1].end));
    if (!reason.empty()) throw PathMismatch(path.substr(0, steps[i].end) + ": " + reason);
    if (at != nullptr) at = next(*at, steps[i]);
  }
}

util::Value& make_element(util::Value& array, size_t number) {
  if (array.get_type() == util::VOID) array = util::value_array();
  util::value_array& elements = array;
  if (number == elements.size()) elements.emplace_back();
  return elements[number];
}

util::Value& make_entry(util::Value& dictionary, const std::string& key) {
  if (dictionary.get_type() == util::VOID) dictionary = util::value_struct();
  return static_cast<util::value_struct&>(dictionary)[key];
}

template <class T>
T value_or(const util::Value* value, util::Type type, const T& fallback) {
  return value != nullptr && value->get_type() == type ? static_cast<const T&>(*value) : fallback;
}

}  // namespace

const util::Value* find(const util::PropertyList& list, const std::string& path) {
  const Steps steps = steps_of(path);
  return follow(list.getProperties(), steps, steps.size());
}

util::Value* find(util::PropertyList& list, const std::string& path) {
  return const_cast<util::Value*>(find(std::as_const(list), path));
}

int get(const util::PropertyList& list, const std::string& path, int fallback) {
  return value_or(find(list, path), util::INTEGER, fallback);
}

bool get(const util::PropertyList& list, const std::string& path, bool fallback) {
  return value_or(find(list, path), util::BOOLEAN, fallback);
}

double get(const util::PropertyList& list, const std::string& path, double fallback) {
  return value_or(find(list, path), util::DOUBLE, fallback);
}

util::utime_t get(const util::PropertyList& list, const std::string& path, util::utime_t fallback) {
  return value_or(find(list, path), util::DATE_TIME, fallback);
}

std::string get(const util::PropertyList& list, const std::string& path, const char* fallback) {
  return get(list, path, std::string(fallback));
}

std::string get(const util::PropertyList& list, const std::string& path,
                const std::string& fallback) {
  return value_or(find(list, path), util::STRING, fallback);
}

util::byte_string get(const util::PropertyList& list, const std::string& path,
                      const util::byte_string& fallback) {
  return value_or(find(list, path), util::BYTE_STRING, fallback);
}

void set(util::PropertyList& list, const std::string& path, util::Value value) {
  const Steps steps = steps_of(path);
  check(list.getProperties(), steps, path);
  util::Value* at = &list[steps[0].key];
  for (size_t i = 1; i < steps.size(); ++i) {
    at = steps[i].is_element ? &make_element(*at, steps[i].number) : &make_entry(*at, steps[i].key);
  }
  *at = std::move(value);
}

bool erase(util::PropertyList& list, const std::string& path) {
  const Steps steps = steps_of(path);
  const Step& last = steps.back();
  util::value_struct& entries = list.getProperties();
  if (steps.size() == 1) return entries.erase(last.key) != 0;
  const util::Value* const found = follow(entries, steps, steps.size() - 1);
  if (found == nullptr || next(*found, last) == nullptr) return false;
  auto& parent = const_cast<util::Value&>(*found);
  if (last.is_element) {
    util::value_array& elements = parent;
    elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(last.number));
  } else {
    static_cast<util::value_struct&>(parent).erase(last.key);
  }
  return true;
}

}  // namespace service
