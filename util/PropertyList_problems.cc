// SPDX-License-Identifier: MIT
#include "ticpp/syntax.h"
#include "util/PropertyList.h"
#include "util/datetime.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include <ticpp.h>

namespace util {
namespace {

using ticpp::character_size;
using ticpp::is_blank;
using ticpp::is_escaped;
using ticpp::starts_with_mark;

// Line feeds and the like are escaped and come back; blanks are not and are condensed: to none at
// both ends, to one within.
const char* problem_of_text(const std::string& text) {
  if (text.empty()) return "an empty text cannot be loaded";
  if (std::all_of(text.begin(), text.end(), is_blank)) return "a text of blanks cannot be loaded";
  if (starts_with_mark(text.c_str())) return "a byte order mark at the start is dropped";
  bool after_blank = true;
  for (size_t i = 0, size = 0; i < text.size(); i += size) {
    size = character_size(text[i]);
    if (size > text.size() - i) return "a text that ends inside a character cannot be saved";
    if (std::any_of(&text[i] + 1, &text[i] + size, is_escaped)) {
      return "markup inside a character is not read back";
    }
    const bool blank = size == 1 && is_blank(text[i]) && !is_escaped(text[i]);
    if (blank && (after_blank || i + 1 == text.size() || text[i] != ' ')) {
      return "blanks are condensed";
    }
    after_blank = blank;
  }
  return nullptr;
}

const char* problem_of_real(double number) {
  if (!std::isfinite(number)) return "only finite numbers can be loaded";
  ticpp::Element element("real");
  element.SetText(number);
  double loaded = 0;
  element.GetText(&loaded);
  return loaded == number ? nullptr : "digits beyond six are dropped";
}

// Local time in seconds less the instant's.
long zone_offset(time_t seconds) {
  tm broken = {};
  localtime_r(&seconds, &broken);
  return broken.tm_gmtoff;
}

// Where clocks are set back, the C library reads a time of the repeated hour as it read the one
// before it, as summer or as winter time.
bool is_repeated(time_t seconds) {
  const long here = zone_offset(seconds);
  for (const time_t day : {-86400, 86400}) {
    const time_t twin = seconds + here - zone_offset(seconds + day);
    if (twin != seconds && twin + zone_offset(twin) == seconds + here) return true;
  }
  return false;
}

const char* problem_of_date(utime_t instant) {
  const std::string text = unparse_time(instant, "%FT%TZ");
  if (text.empty()) return "an instant without local time cannot be saved";
  const utime_t loaded = parse_time(text, "%Y-%m-%dT%TZ");
  if (is_repeated(static_cast<time_t>(instant / 1000))) return "the local time comes twice";
  if (loaded == instant) return nullptr;
  if (loaded == instant - instant % 1000) return "milliseconds are dropped";
  return "the local time is not read back as this instant";
}

// Walks over a list as save() does and notes what is wrong where.
class Examiner {
 public:
  std::vector<std::string> found;

  void dict(const value_struct& entries) {
    for (const auto& entry : entries) {
      const Step step(*this, path_.empty() ? entry.first : "/" + entry.first);
      note(problem_of_text(entry.first), "the key: ");
      value(entry.second);
    }
  }

 private:
  // Lengthens the path while it lives.
  class Step {
   public:
    Step(Examiner& examiner, const std::string& step)
        : examiner_(examiner), size_(examiner.path_.size()) {
      examiner_.path_ += step;
      ++examiner_.depth_;
    }
    ~Step() {
      examiner_.path_.resize(size_);
      --examiner_.depth_;
    }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

   private:
    Examiner& examiner_;
    size_t size_;
  };

  void note(const char* problem, const char* of = "") {
    if (problem != nullptr) found.push_back(path_ + ": " + of + problem);
  }

  void value(const Value& v) {
    if (depth_ > PropertyList::kMaxDepth) {
      const std::string limit = std::to_string(PropertyList::kMaxDepth);
      return note(("values nested deeper than " + limit + " cannot be saved").c_str());
    }
    switch (v.get_type()) {
      case INTEGER:
      case BOOLEAN: return;
      case DOUBLE: return note(problem_of_real(v));
      case STRING: return note(problem_of_text(v));
      case DATE_TIME: return note(problem_of_date(v));
      case BYTE_STRING: return note(bytes(v));
      case STRUCT: return dict(v);
      case ARRAY: return array(v);
      case VOID: return note("a void cannot be saved");
    }
    note("a value of no type cannot be saved");
  }

  static const char* bytes(const byte_string& bytes) {
    return bytes.empty() ? "empty data cannot be loaded" : nullptr;
  }

  void array(const value_array& items) {
    for (size_t i = 0; i < items.size(); ++i) {
      const Step step(*this, "[" + std::to_string(i) + "]");
      value(items[i]);
    }
  }

  std::string path_;
  int depth_ = 1;  // of the value at hand
};

}  // namespace

std::vector<std::string> PropertyList::problems() const {
  Examiner examiner;
  examiner.dict(properties);
  return examiner.found;
}

}  // namespace util
