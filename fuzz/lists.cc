// SPDX-License-Identifier: MIT
#include "fuzz/lists.h"

#include "fuzz/calendar.h"
#include "fuzz/documents.h"
#include "fuzz/values.h"
#include "tests/models/texts.h"
#include "tests/support/files.h"
#include "tests/support/trees.h"

#include <filesystem>

#include <ticpp.h>

namespace fuzz {
namespace {

// ---- the rules ----

util::Value decoded(const TiXmlElement& e);

const std::string& required_text(const TiXmlElement& e, const char* failure) {
  const std::string* const text = text_of(e);
  if (text == nullptr) throw Refused(failure);
  return *text;
}

util::Value dict(const TiXmlElement& e) {
  util::value_struct entries;
  const char* const kIncomplete = "expecting a key name, followed by a value element";
  for (const TiXmlElement* key = e.FirstChildElement(); key != nullptr;) {
    if (key->ValueStr() != "key") throw Refused("expecting 'key'");
    const std::string name = required_text(*key, kIncomplete);
    const TiXmlElement* const value = key->NextSiblingElement();
    if (value == nullptr) throw Refused(kIncomplete);
    entries[name] = decoded(*value);
    key = value->NextSiblingElement();
  }
  return entries;
}

util::Value array(const TiXmlElement& e) {
  util::value_array items;
  const TiXmlElement* item = e.FirstChildElement();
  for (; item != nullptr; item = item->NextSiblingElement()) items.push_back(decoded(*item));
  return items;
}

util::Value date(const std::string& text) {
  int64_t seconds = 0;
  if (read_date(text, seconds) == 0) throw Refused("malformed date");
  return static_cast<util::utime_t>(seconds) * 1000;
}

util::Value data(const std::string& text) {
  std::string bytes;
  models::base64_decoded(text, bytes);  // as far as it can be decoded
  return util::byte_string(bytes.begin(), bytes.end());
}

template <class T>
util::Value number(const TiXmlElement& e, const char* failure) {
  const std::optional<T> number = number_in<T>(text_of(e));
  if (!number) throw Refused(failure);
  return *number;
}

util::Value decoded(const TiXmlElement& e) {
  const std::string& name = e.ValueStr();
  if (name == "dict") return dict(e);
  if (name == "array") return array(e);
  if (name == "string") return required_text(e, "load failed");
  if (name == "integer") return number<int>(e, "expected integer");
  if (name == "real") return number<double>(e, "expected real");
  if (name == "date") return date(required_text(e, "expecting date"));
  if (name == "data") return data(required_text(e, "expecting data"));
  if (name != "true" && name != "false") throw Refused("unknown element");
  if (!e.NoChildren()) throw Refused("malformed boolean");
  return name == "true";
}

util::Value decoded_document(const std::string& text) {
  TiXmlDocument document;
  parse(text, document);
  const TiXmlElement* const plist = document.FirstChildElement("plist");
  const TiXmlElement* const root = plist == nullptr ? nullptr : plist->FirstChildElement("dict");
  if (root == nullptr) throw Refused("load failed");
  return decoded(*root);
}

std::string expected_outcome(const std::string& text) try {
  return spelled(decoded_document(text));
} catch (const Refused& e) {
  return std::string("refused: ") + e.what();
}

// ---- the library ----

// One for all inputs, each of which leaves it empty.
const support::TempDir& folder() {
  static const support::TempDir dir;
  return dir;
}

struct EmptyFolder {
  ~EmptyFolder() {
    for (const std::string& name : folder().list()) std::filesystem::remove(folder().file(name));
  }
};

std::string outcome(util::PropertyList& list) try {
  list.load();
  return spelled(list.getProperties());
} catch (const util::malformed_property_list& e) {
  const std::string text = e.what();
  const std::string before = folder().file("list") + ": ";
  require(text.compare(0, before.size(), before) == 0, "the message begins with the file's name");
  return "refused: " + text.substr(before.size());
}

// Where it is not, no file was touched.
bool is_saved(util::PropertyList& list) try {
  list.save();
  return true;
} catch (const util::malformed_property_list&) {
  return false;
} catch (const ticpp::Exception&) {
  return false;
}

bool is_saved_durably(util::PropertyList& list) try {
  list.saveDurably();
  return true;
} catch (const util::save_failed& e) {
  const std::string before = folder().file("list") + ": ";
  require(std::string(e.what()).compare(0, before.size(), before) == 0,
          "the message begins with the file's name");
  require(!list.problems().empty(), "a list without problems is saved");
  return false;
}

}  // namespace

void check_loading(const std::string& text) {
  util::PropertyList list(folder().file("list"));
  list["before"] = true;
  const std::string before = spelled(list.getProperties());
  const std::string actual = [&] {
    const EmptyFolder after;
    folder().write("list", text);
    return outcome(list);
  }();
  const bool refused = actual.compare(0, 9, "refused: ") == 0;
  if (refused) require_equal(before, spelled(list.getProperties()), "the list is as before");
  const bool compared = is_harmless(text) && !(refused && has_declaration(text));
  if (compared) require_equal(expected_outcome(text), actual, "loading");
  if (refused) return;
  check_saving(list.getProperties());
  check_saving_durably(list.getProperties());
}

void check_saving(const util::value_struct& properties) {
  const EmptyFolder after;
  util::PropertyList list(folder().file("list"));
  list.getProperties() = properties;
  const std::string before = spelled(properties);
  const bool promised = list.problems().empty();
  const bool saved = is_saved(list);
  require_equal(before, spelled(list.getProperties()), "saving leaves the list as it is");
  require(saved == list.exists(), "what cannot be saved touches no file");
  util::PropertyList again(folder().file("list"));
  const bool came_back = saved && outcome(again) == before;
  require(came_back || !promised, "a list without problems comes back as it was");
  require(promised || !came_back, "a list with problems does not come back as it was");
}

void check_saving_durably(const util::value_struct& properties) {
  const EmptyFolder after;
  util::PropertyList list(folder().file("list"));
  list.getProperties() = properties;
  const bool saved = is_saved_durably(list);
  require_equal(spelled(properties), spelled(list.getProperties()),
                "saving leaves the list as it is");
  require(saved == list.exists(), "what cannot be saved touches no file");
  if (!saved) return;
  util::PropertyList again(folder().file("list"));
  require_equal(spelled(support::as_filed(properties)), outcome(again),
                "what is accepted comes back equal");
  if (!list.problems().empty()) return;
  const std::string text = folder().read("list");
  list.save();
  require_equal(folder().read("list"), text, "what comes back is written as by save()");
}

}  // namespace fuzz
