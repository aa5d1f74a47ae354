// SPDX-License-Identifier: MIT
// An input is a key, a type and a value, each ended by a NUL, and the document.
#include "fuzz/calendar.h"
#include "fuzz/fuzz.h"
#include "fuzz/tool.h"
#include "fuzz/values.h"
#include "tests/models/texts.h"
#include "tests/support/files.h"
#include "util/JSEmit.h"
#include "util/PropertyList.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

#include <ticpp.h>

int nas_plist(int argc, char** argv);

namespace {

using List = util::value_struct;
using Problems = std::vector<std::string>;

// ---- the outline ----

std::string outline(const std::string& name, const util::Value& value, const std::string& indent);

std::string plain_or_quoted(const std::string& key) {
  const bool plain = fuzz::matches(key, "[A-Za-z0-9_.-]+");
  return plain ? key : fuzz::quoted(key);
}

std::string outline(const List& entries, const std::string& indent) {
  std::string text;
  for (const auto& entry : entries) {
    text += outline(plain_or_quoted(entry.first), entry.second, indent);
  }
  return text;
}

// The fewest digits that come back.
std::string number_text(double number) {
  char digits[64];
  *std::to_chars(digits, digits + sizeof(digits) - 1, number).ptr = '\0';
  fuzz::require(strtod(digits, nullptr) == number, "a number comes back");
  const bool whole = fuzz::matches(digits, "-?[0-9]+");
  return digits + std::string(whole ? ".0" : "");
}

std::string item_text(const util::Value& value) {
  switch (value.get_type()) {
    case util::INTEGER: return std::to_string(static_cast<const int&>(value));
    case util::BOOLEAN: return static_cast<const bool&>(value) ? "true" : "false";
    case util::DOUBLE: return number_text(value);
    case util::STRING: return fuzz::quoted(value);
    case util::DATE_TIME: return "date " + fuzz::date_text(value) + "Z";
    case util::BYTE_STRING: {
      const util::byte_string& bytes = value;
      return "data " + models::base64_encoded(std::string(bytes.begin(), bytes.end()), 0);
    }
    default: return "void";
  }
}

std::string outline(const std::string& name, const util::Value& value, const std::string& indent) {
  const std::string start = indent + name + ":";
  std::string inside;
  if (value.get_type() == util::STRUCT) {
    inside = outline(static_cast<const List&>(value), indent + "  ");
    return start + (inside.empty() ? " {}\n" : "\n" + inside);
  }
  if (value.get_type() == util::ARRAY) {
    const util::value_array& items = value;
    for (size_t i = 0; i < items.size(); ++i) {
      inside += outline("[" + std::to_string(i) + "]", items[i], indent + "  ");
    }
    return start + (inside.empty() ? " []\n" : "\n" + inside);
  }
  return start + " " + item_text(value) + "\n";
}

// ---- keys ----

struct Malformed {};
struct Mismatch {};

struct Step {
  std::string key;
  std::optional<size_t> number;
};

size_t number_of(const std::string& digits) {
  errno = 0;
  const size_t number = strtoul(digits.c_str(), nullptr, 10);
  if (errno == ERANGE) throw Malformed();
  return number;
}

// "[0][12]", which may be nothing.
void add_numbers(const std::string& text, std::vector<Step>& steps) {
  if (!fuzz::matches(text, "(\\[[0-9]+\\])*")) throw Malformed();
  for (size_t at = text.find('['); at < text.size(); at = text.find('[', at + 1)) {
    steps.push_back({"", number_of(text.substr(at + 1))});
  }
}

// In a key without escapes the bytes that "\" stood before are kept aside.
std::vector<Step> steps_of(const std::string& text) {
  constexpr char kEscaped = '\0';
  std::string shape;
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '\\';
    if (escaped && ++i == text.size()) throw Malformed();
    shape += escaped ? kEscaped : text[i];
    bytes += text[i];
  }
  std::vector<Step> steps;
  for (size_t start = 0; start <= shape.size();) {
    const size_t end = std::min(shape.find('/', start), shape.size());
    const std::string part = shape.substr(start, end - start);
    const size_t key = std::min(part.find('['), part.size());
    if (key == 0) throw Malformed();
    steps.push_back({bytes.substr(start, key), {}});
    add_numbers(part.substr(key), steps);
    start = end + 1;
  }
  return steps;
}

// `at` with `value` at the end of the steps from the i-th on.
util::Value with(const util::Value& at, const std::vector<Step>& steps, size_t i,
                 const util::Value& value) {
  if (i == steps.size()) return value;
  const bool is_new = at.get_type() == util::VOID;
  if (steps[i].number) {
    if (!is_new && at.get_type() != util::ARRAY) throw Mismatch();
    util::value_array items;
    if (!is_new) items = static_cast<const util::value_array&>(at);
    const size_t number = *steps[i].number;
    if (number > items.size()) throw Mismatch();
    if (number == items.size()) items.push_back(util::Value());
    items[number] = with(items[number], steps, i + 1, value);
    return items;
  }
  if (!is_new && at.get_type() != util::STRUCT) throw Mismatch();
  List entries;
  if (!is_new) entries = static_cast<const List&>(at);
  entries[steps[i].key] = with(entries[steps[i].key], steps, i + 1, value);
  return entries;
}

// ---- values ----

std::optional<util::Value> integer(const std::string& text) {
  if (!fuzz::matches(text, "-?[0-9]+")) return {};
  errno = 0;
  const long long number = strtoll(text.c_str(), nullptr, 10);
  if (errno == ERANGE || number < INT32_MIN || number > INT32_MAX) return {};
  return util::Value(static_cast<int>(number));
}

std::optional<util::Value> real(const std::string& text) {
  if (!fuzz::matches(text, "-?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?")) return {};
  const double number = strtod(text.c_str(), nullptr);
  if (!std::isfinite(number)) return {};
  return util::Value(number);
}

std::optional<util::Value> date(const std::string& text) {
  int64_t seconds = 0;
  if (fuzz::read_date(text, seconds) != text.size()) return {};
  const util::utime_t instant = static_cast<util::utime_t>(seconds) * 1000;
  if (fuzz::date_text(instant) + "Z" != text) return {};
  return util::Value(instant);
}

std::optional<util::Value> data(const std::string& text) {
  std::string bytes;
  if (models::base64_decoded(text, bytes) < 0) return {};
  return util::Value(util::byte_string(bytes.begin(), bytes.end()));
}

std::optional<util::Value> value_of(const std::string& type, const std::string& text) {
  if (type == "integer") return integer(text);
  if (type == "real") return real(text);
  if (type == "string") return util::Value(text);
  if (type == "boolean" && (text == "true" || text == "false")) return util::Value(text == "true");
  if (type == "date") return date(text);
  if (type == "data") return data(text);
  if (type == "dict" && text.empty()) return util::Value(List());
  if (type == "array" && text.empty()) return util::Value(util::value_array());
  return {};
}

// ---- the tool ----

const support::TempDir& folder() {
  static const support::TempDir dir;
  return dir;
}

struct Loaded {
  explicit Loaded(const std::string& name) : list(folder().file(name)) {
    try {
      list.load();
      good = true;
    } catch (const util::malformed_property_list&) {
    }
  }

  util::PropertyList list;
  bool good = false;
};

fuzz::ToolRun run(const std::vector<std::string>& words) {
  fuzz::ToolRun run = fuzz::run(nas_plist, words);
  const std::string all = run.out + run.err;
  if (words[0] != "js") fuzz::require_equal(fuzz::printable(all), all, "what a terminal may see");
  fuzz::require(run.status == 0 || !run.err.empty(), "a fault is reported");
  return run;
}

std::string reported(const Problems& problems) {
  std::string text;
  for (const std::string& problem : problems) {
    text += fuzz::message(folder().file("list") + ": " + problem);
  }
  return text;
}

void check_looking(Loaded& loaded) {
  const std::string path = folder().file("list");
  const fuzz::ToolRun show = run({"show", path});
  const fuzz::ToolRun check = run({"check", path});
  const fuzz::ToolRun js = run({"js", path});
  if (!loaded.good) {
    fuzz::require(show.status == 1 && check.status == 1 && js.status == 1, "no list is no good");
    fuzz::require(show.out.empty() && check.out.empty() && js.out.empty(), "no list shows nothing");
    return;
  }
  const List& properties = loaded.list.getProperties();
  fuzz::require(show.status == 0 && js.status == 0, "a list is shown");
  fuzz::require_equal(outline(properties, ""), show.out, "the outline");
  fuzz::require_equal(util::JSEmit().emitValue(properties) + "\n", js.out, "the script");
  const Problems problems = loaded.list.problems();
  fuzz::require_equal(reported(problems), check.err, "what check reports");
  fuzz::require(check.status == 0, "a list that loads is good");
}

struct Setting {
  std::string key, type, text;

  std::vector<std::string> words() const {
    std::vector<std::string> words = {"set"};
    words.insert(words.end(), {folder().file("list"), key, type});
    if (!text.empty() || (type != "dict" && type != "array")) words.push_back(text);
    return words;
  }
};

bool can_be_saved(const List& properties) try {
  const support::TempDir dir;
  util::PropertyList list(dir.file("list"));
  list.getProperties() = properties;
  list.saveDurably();
  return true;
} catch (const util::save_failed&) {
  return false;
}

int expected_status(const Setting& setting, Loaded& loaded) {
  const std::optional<util::Value> value = value_of(setting.type, setting.text);
  if (!value) return 2;
  try {
    const std::vector<Step> steps = steps_of(setting.key);
    if (!loaded.good) return 1;
    List& properties = loaded.list.getProperties();
    const util::Value changed = with(properties, steps, 0, *value);
    properties = static_cast<const List&>(changed);
    return can_be_saved(properties) ? 0 : 1;
  } catch (const Malformed&) {
    return 2;
  } catch (const Mismatch&) {
    return 1;
  }
}

// Of a list that was saved: its value is there, is a difference, and can go.
void check_the_rest(const Setting& setting) {
  const std::string path = folder().file("list");
  fuzz::require_equal(setting.type + "\n", run({"get", "--type", "--", path, setting.key}).out,
                      "the type of the value");
  const fuzz::ToolRun equal = run({"diff", path, path});
  fuzz::require(equal.status == 0 && equal.out.empty(), "a list equals itself");
  fuzz::require(run({"delete", "--", path, setting.key}).status == 0, "the value can go");
  Loaded rest("list");
  fuzz::require(rest.good, "the rest loads");
}

void check_setting(const Setting& setting, Loaded& loaded, const std::string& document) {
  const int expected = expected_status(setting, loaded);
  const fuzz::ToolRun set = run(setting.words());
  fuzz::require(set.out.empty(), "setting shows nothing");
  fuzz::require(set.status == expected, "the status of setting");
  if (set.status != 0) {
    fuzz::require_equal(document, folder().read("list"), "what is not saved stays");
    fuzz::require(folder().list().size() == 1, "what is not saved leaves no file behind");
    return;
  }
  fuzz::require_equal(document, folder().read("list~"), "the old list is the backup");
  Loaded again("list");
  fuzz::require(again.good, "what was saved loads");
  fuzz::require_equal(fuzz::spelled(loaded.list.getProperties()),
                      fuzz::spelled(again.list.getProperties()), "the list with the value");
  check_the_rest(setting);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  Setting setting;
  setting.key = input.line('\0');
  setting.type = input.line('\0');
  setting.text = input.line('\0');
  const std::string document = input.rest();
  folder().write("list", document);
  Loaded loaded("list");
  check_looking(loaded);
  check_setting(setting, loaded, document);
  for (const std::string& name : folder().list()) std::filesystem::remove(folder().file(name));
  return 0;
}
