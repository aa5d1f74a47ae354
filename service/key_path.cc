// SPDX-License-Identifier: MIT
#include "service/key_path.h"

#include "service/internal/concat.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace service {
namespace {

struct Step {
  bool is_element = false;
  std::string key = {};  // of a dictionary
  size_t number = 0;     // of an element

  util::Type type() const { return is_element ? util::ARRAY : util::STRUCT; }
};

// Walks along a path, step by step.
class Walk {
 public:
  // Is at the first step. Throws MalformedPath if any part of the text is wrong.
  explicit Walk(const std::string& path) : path_(path), rest_(path) {
    while (next()) continue;
    rest_ = path;
    next();
  }

  // Goes to the next step. False if there is none.
  bool next() {
    const bool at_start = rest_.size() == path_.size();
    if (rest_.empty() && !at_start) return false;
    step_.is_element = !at_start && rest_[0] == '[';
    if (step_.is_element) {
      take_number();
    } else {
      if (!at_start) take_slash();
      take_key();
    }
    return true;
  }

  const Step& step() const { return step_; }

  // The path up to this step.
  std::string so_far() const { return path_.substr(0, path_.size() - rest_.size()); }

 private:
  [[noreturn]] void fail(const char* reason) const {
    throw MalformedPath(concat({"'", path_, "': ", reason}));
  }

  void take_slash() {
    if (rest_[0] != '/') fail("expected \"/\" or \"[\" behind a \"]\"");
    rest_.remove_prefix(1);
  }

  // Reads a key, up to the next "/" or "[".
  void take_key() {
    step_.key.clear();
    while (!rest_.empty() && rest_[0] != '/' && rest_[0] != '[') {
      if (rest_[0] == '\\') rest_.remove_prefix(1);
      if (rest_.empty()) fail("ends with a \"\\\"");
      step_.key += rest_[0];
      rest_.remove_prefix(1);
    }
    if (step_.key.empty()) fail("a key is empty");
  }

  // Reads an index, "[2]".
  void take_number() {
    const char* const end = rest_.data() + rest_.size();
    const auto result = std::from_chars(rest_.data() + 1, end, step_.number);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != ']') {
      fail("expected a number and \"]\" behind a \"[\"");
    }
    rest_.remove_prefix(static_cast<size_t>(result.ptr + 1 - rest_.data()));
  }

  const std::string& path_;
  std::string_view rest_;
  Step step_;
};

const util::Value* entry(const util::value_struct& entries, const std::string& key) {
  const auto found = entries.find(key);
  return found == entries.end() ? nullptr : &found->second;
}

const util::Value* element(const util::value_array& elements, size_t number) {
  return number < elements.size() ? &elements[number] : nullptr;
}

// What the step leads to, or null.
const util::Value* next(const util::Value& from, const Step& step) {
  if (from.get_type() != step.type()) return nullptr;
  return step.is_element ? element(from, step.number) : entry(from, step.key);
}

// Throws if a value cannot be stored there.
void check(const util::value_struct& list, const std::string& path) {
  Walk walk(path);
  const util::Value* at = entry(list, walk.step().key);
  std::string before = walk.so_far();
  while (walk.next()) {
    const Step& step = walk.step();
    const std::string here = walk.so_far();
    const bool nothing = at == nullptr || at->get_type() == util::VOID;
    if (!nothing && at->get_type() != step.type()) {
      const char* const kind = step.is_element ? "an array" : "a dictionary";
      throw PathMismatch(concat({here, ": ", before, " is not ", kind}));
    }
    if (step.is_element) {
      const size_t size = nothing ? 0 : static_cast<const util::value_array&>(*at).size();
      if (step.number > size) {
        const std::string end = decimal(size);
        throw PathMismatch(concat({here, ": the next element of ", before, " is [", end, "]"}));
      }
    }
    if (at != nullptr) at = next(*at, step);
    before = here;
  }
}

// The value that the step leads to, created if it is missing.
util::Value& make(util::Value& from, const Step& step) {
  if (from.get_type() == util::VOID) {
    from = util::Value();  // which drops what set_type() has left
    from.set_type(step.type());
  }
  if (!step.is_element) return static_cast<util::value_struct&>(from)[step.key];
  util::value_array& elements = from;
  if (step.number == elements.size()) elements.emplace_back();
  return elements[step.number];
}

template <class T>
T value_or(const util::Value* value, util::Type type, const T& fallback) {
  return value != nullptr && value->get_type() == type ? static_cast<const T&>(*value) : fallback;
}

}  // namespace

const util::Value* find(const util::PropertyList& list, const std::string& path) {
  Walk walk(path);
  const util::Value* at = entry(list.getProperties(), walk.step().key);
  while (at != nullptr && walk.next()) at = next(*at, walk.step());
  return at;
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
  check(list.getProperties(), path);
  Walk walk(path);
  util::Value* at = &list.getProperties()[walk.step().key];
  while (walk.next()) at = &make(*at, walk.step());
  *at = std::move(value);
}

bool erase(util::PropertyList& list, const std::string& path) {
  Walk walk(path);
  util::value_struct& entries = list.getProperties();
  const util::Value* parent = nullptr;
  const util::Value* at = entry(entries, walk.step().key);
  while (at != nullptr && walk.next()) parent = std::exchange(at, next(*at, walk.step()));
  if (at == nullptr) return false;
  const Step& last = walk.step();
  if (parent == nullptr) return entries.erase(last.key) != 0;
  auto& from = const_cast<util::Value&>(*parent);
  if (last.is_element) {
    util::value_array& elements = from;
    elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(last.number));
  } else {
    static_cast<util::value_struct&>(from).erase(last.key);
  }
  return true;
}

}  // namespace service
