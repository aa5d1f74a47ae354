// SPDX-License-Identifier: MIT
#include "ticpp/syntax.h"
#include "util/PropertyList.h"
#include "util/datetime.h"
#include "util/internal/losses.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <iterator>

namespace util {
namespace {

using ticpp::character_size;
using ticpp::is_blank;
using ticpp::is_escaped;
using ticpp::starts_with_mark;

constexpr char kDateFormat[] = "%FT%TZ";
constexpr char kNoLocalTime[] = "an instant without local time cannot be saved";
constexpr char kOtherInstant[] = "the local time is not read back as this instant";

// ASCII with single blanks between words, as most texts are, loses nothing.
bool is_plain(const std::string& text) {
  char before = ' ';
  for (const char c : text) {
    if (c < ' ' || c > '~' || (c == ' ' && before == ' ')) return false;
    before = c;
  }
  return before != ' ';
}

// Line feeds and the like are escaped and come back. Blanks are not escaped, and are condensed: to
// none at both ends, to one in between.
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

// The offset of local time from UTC, in seconds.
long zone_offset(time_t seconds) {
  tm broken = {};
  localtime_r(&seconds, &broken);
  return broken.tm_gmtoff;
}

// In an hour that is repeated because clocks are set back, the C library reads a time as summer or
// winter time, as it did for the one that it read before.
bool is_repeated(time_t seconds) {
  const long here = zone_offset(seconds);
  for (const time_t day : {-86400, 86400}) {
    const time_t twin = seconds + here - zone_offset(seconds + day);
    if (twin != seconds && twin + zone_offset(twin) == seconds + here) return true;
  }
  return false;
}

const char* problem_of_date(utime_t instant) {
  const std::string text = unparse_time(instant, kDateFormat);
  if (text.empty()) return kNoLocalTime;
  const utime_t loaded = parse_time(text, "%Y-%m-%dT%TZ");
  if (is_repeated(static_cast<time_t>(instant / 1000))) return "the local time comes twice";
  if (loaded == instant) return nullptr;
  if (loaded == instant - instant % 1000) return "milliseconds are dropped";
  return kOtherInstant;
}

Loss date_loss(utime_t instant) {
  return {problem_of_date(instant), refusal_of_date(instant, unparse_time(instant, kDateFormat))};
}

constexpr Loss lost(const char* problem) { return {problem, problem}; }

// Walks over a list as both saves do, and notes what is wrong and where.
class Examiner {
 public:
  std::vector<std::string> problems;
  std::string first_refusal;

  void dict(const value_struct& entries) {
    for (const auto& entry : entries) {
      const Step step(*this, path_.empty() ? entry.first : "/" + entry.first);
      note(loss_of(entry.first), "the key: ");
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

  void note(const Loss& loss, const char* of = "") {
    const std::string start = path_ + ": " + of;
    if (loss.saved != nullptr) problems.push_back(start + loss.saved);
    if (loss.refused != nullptr && first_refusal.empty()) first_refusal = start + loss.refused;
  }

  void value(const Value& v) {
    if (depth_ > PropertyList::kMaxDepth) {
      const std::string limit = std::to_string(PropertyList::kMaxDepth);
      return note(lost(("values nested deeper than " + limit + " cannot be saved").c_str()));
    }
    switch (v.get_type()) {
      case INTEGER:
      case BOOLEAN: return;
      case DOUBLE: return note(loss_of(static_cast<const double&>(v)));
      case STRING: return note(loss_of(static_cast<const std::string&>(v)));
      case DATE_TIME: return note(date_loss(v));
      case BYTE_STRING: return note(loss_of(static_cast<const byte_string&>(v)));
      case STRUCT: return dict(v);
      case ARRAY: return array(v);
      case VOID: return note(lost("a void cannot be saved"));
    }
    note(lost("a value of no type cannot be saved"));
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

// A section ends with "]]>", and the parser turns a carriage return into a line feed and takes a
// NUL for the end.
bool fits_section(const std::string& text) {
  return text.find("]]>") == text.npos && text.find('\r') == text.npos &&
         text.find('\0') == text.npos;
}

}  // namespace

Loss loss_of(const std::string& text) {
  if (is_plain(text)) return {};
  Loss loss = {problem_of_text(text), nullptr};
  if (loss.saved != nullptr && !fits_section(text)) {
    loss.refused =
        "only a CDATA section could keep this text, and cannot hold \"]]>\", a carriage return or "
        "a "
        "NUL byte";
  }
  return loss;
}

Loss loss_of(double number) {
  if (!std::isfinite(number)) return lost("only finite numbers can be loaded");
  char digits[32];
  const char* const end =
      std::to_chars(digits, std::end(digits), number, std::chars_format::general, 6).ptr;
  double loaded = 0;
  const auto result = std::from_chars(digits, end, loaded);
  if (result.ec == std::errc() && loaded == number) return {};
  return {"digits beyond six are dropped", nullptr};
}

Loss loss_of(const byte_string& bytes) {
  return {bytes.empty() ? "empty data cannot be loaded" : nullptr, nullptr};
}

const char* refusal_of_date(utime_t instant, const std::string& text) {
  if (text.empty()) return kNoLocalTime;
  constexpr size_t kSize = 20;  // with a year of four digits; longer ones are not read
  const utime_t seconds = instant / 1000;
  const bool wraps = static_cast<utime_t>(static_cast<time_t>(seconds)) != seconds;
  return text.size() == kSize && !wraps ? nullptr : kOtherInstant;
}

std::string first_refusal(const value_struct& list) {
  Examiner examiner;
  examiner.dict(list);
  return examiner.first_refusal;
}

std::vector<std::string> PropertyList::problems() const {
  Examiner examiner;
  examiner.dict(properties);
  return examiner.problems;
}

}  // namespace util
