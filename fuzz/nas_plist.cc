// SPDX-License-Identifier: MIT
// An input is a key, a type and a value, each ended by a NUL, and the document.
#include "fuzz/fuzz.h"
#include "fuzz/tool.h"
#include "fuzz/values.h"
#include "service/key_path.h"
#include "tests/support/files.h"
#include "util/JSEmit.h"
#include "util/PropertyList.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

int nas_plist(int argc, char** argv);

namespace {

using Problems = std::vector<std::string>;

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
  const bool raw = words[0] == "js" || words[0] == "get";
  if (!raw) fuzz::require_equal(fuzz::printable(all), all, "what a terminal may see");
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
    fuzz::require(show.status == 1 && check.status == 1 && js.status == 1,
                  "what does not load is refused");
    fuzz::require(show.out.empty() && check.out.empty() && js.out.empty(), "no list shows nothing");
    return;
  }
  const util::value_struct& properties = loaded.list.getProperties();
  fuzz::require(show.status == 0 && js.status == 0, "a list is shown");
  fuzz::require(show.out.empty() == properties.empty(), "what is in a list is shown");
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

// Of a list that was saved: its value is there, is read again as it was printed, and can go.
void check_the_rest(const Setting& setting) {
  const std::string path = folder().file("list");
  fuzz::require_equal(setting.type + "\n", run({"get", "--type", "--", path, setting.key}).out,
                      "the type of the value");
  if (setting.type != "dict" && setting.type != "array") {
    std::string text = run({"get", "--", path, setting.key}).out;
    text.pop_back();  // the line feed
    const std::string before = folder().read("list");
    const Setting again = {setting.key, setting.type, text};
    fuzz::require(run(again.words()).status == 0, "what was printed is a value");
    fuzz::require_equal(before, folder().read("list"), "the value that was printed");
  }
  const fuzz::ToolRun equal = run({"diff", path, path});
  fuzz::require(equal.status == 0 && equal.out.empty(), "a list equals itself");
  fuzz::require(run({"delete", "--", path, setting.key}).status == 0, "the value can go");
  Loaded rest("list");
  fuzz::require(rest.good, "the rest loads");
}

void check_setting(const Setting& setting, Loaded& loaded, const std::string& document) {
  const fuzz::ToolRun set = run(setting.words());
  fuzz::require(set.out.empty(), "setting shows nothing");
  if (set.status != 0) {
    fuzz::require_equal(document, folder().read("list"), "what is not saved stays");
    fuzz::require(folder().list().size() == 1, "what is not saved leaves no file behind");
    return;
  }
  fuzz::require_equal(document, folder().read("list~"), "the old list is the backup");
  Loaded now("list");
  fuzz::require(loaded.good && now.good, "what was saved loads");
  const util::Value* const value = service::find(now.list, setting.key);
  fuzz::require(value != nullptr, "the value is in the list");
  service::set(loaded.list, setting.key, *value);
  fuzz::require_equal(fuzz::spelled(loaded.list.getProperties()),
                      fuzz::spelled(now.list.getProperties()), "the list with the value");
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
