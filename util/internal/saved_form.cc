// SPDX-License-Identifier: MIT
#include "util/internal/saved_form.h"

#include "ticpp/syntax.h"
#include "util/PropertyList.h"
#include "util/base64.h"
#include "util/internal/owners.h"
#include "util/internal/read_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include <ticpp.h>

namespace util {
namespace {

// The text has another form, in which the parser may still find a list.
struct OtherForm {};

// Bytes of a text that stand for themselves, whatever is around them.
constexpr auto kPlain = [] {
  std::array<bool, 256> plain = {};
  for (size_t c = '!'; c <= '~'; ++c) plain[c] = c != '<' && c != '&';
  return plain;
}();

class Reader {
 public:
  explicit Reader(const std::string& text) : at_(text.c_str()), end_(at_ + text.size()) {}

  // What follows kSavedStart.
  value_struct document() {
    skip_blanks();
    expect("<dict>");
    value_struct list = dict(1);
    skip_blanks();
    expect("</plist>");
    skip_blanks();
    if (at_ != end_) throw OtherForm();
    return list;
  }

 private:
  bool follows(std::string_view piece) const {
    return static_cast<size_t>(end_ - at_) >= piece.size() &&
           memcmp(at_, piece.data(), piece.size()) == 0;
  }
  bool take(std::string_view piece) {
    if (!follows(piece)) return false;
    at_ += piece.size();
    return true;
  }
  void expect(std::string_view piece) {
    if (!take(piece)) throw OtherForm();
  }
  void skip_blanks() {
    while (*at_ == ' ' || *at_ == '\n' || *at_ == '\t') ++at_;
  }

  // `depth` is the number of elements around it.
  Value value(int depth) {
    if (depth > PropertyList::kMaxDepth) throw OtherForm();
    skip_blanks();
    if (take("<string>")) return text("</string>");
    if (take("<integer>")) return number<int>("</integer>");
    if (take("<true />") || take("<true/>")) return true;
    if (take("<false />") || take("<false/>")) return false;
    if (take("<dict>")) return dict(depth);
    if (take("<array>")) return array(depth);
    if (take("<real>")) return number<double>("</real>");
    if (take("<date>")) return date();
    if (take("<data>")) return data();
    if (take("<dict />") || take("<dict/>")) return value_struct();
    if (take("<array />") || take("<array/>")) return value_array();
    throw OtherForm();
  }

  value_struct dict(int depth) {
    value_struct entries;
    for (skip_blanks(); !take("</dict>"); skip_blanks()) {
      expect("<key>");
      std::string key = text("</key>");
      entries.insert_or_assign(entries.end(), std::move(key), value(depth + 1));
    }
    return entries;
  }

  value_array array(int depth) {
    value_array items;
    for (skip_blanks(); !take("</array>"); skip_blanks()) items.push_back(value(depth + 1));
    return items;
  }

  template <class T>
  T number(std::string_view closing) {
    T number = 0;
    const auto result = std::from_chars(at_, end_, number);
    if (result.ec != std::errc() || !std::isfinite(static_cast<double>(number))) throw OtherForm();
    at_ = result.ptr;
    expect(closing);
    return number;
  }

  utime_t date() {
    const std::optional<utime_t> instant = instant_of(text("</date>"));
    if (!instant) throw OtherForm();
    return *instant;
  }

  byte_string data() {
    byte_string bytes;
    b64_decode(text("</data>"), bytes);
    return bytes;
  }

  // An element's text in a form in which the parser drops nothing.
  std::string text(std::string_view closing) {
    std::string text = take("<![CDATA[") ? section() : characters();
    expect(closing);
    return text;
  }

  std::string section() {
    const std::string_view rest(at_, static_cast<size_t>(end_ - at_));
    const std::string_view text = rest.substr(0, rest.find("]]>"));
    if (text.find('\r') != text.npos) throw OtherForm();  // the parser reads a line feed
    at_ += text.size();
    expect("]]>");
    return std::string(text);
  }

  // Characters with single blanks between them.
  std::string characters() {
    if (ticpp::starts_with_mark(at_)) throw OtherForm();
    std::string text;
    for (bool blank_before = true; *at_ != '<';) {
      const bool blank = *at_ == ' ';
      if (blank && (blank_before || at_[1] == '<')) throw OtherForm();
      blank_before = blank;
      if (blank) {
        text += *at_++;
      } else if (*at_ == '&') {
        reference(text);
      } else if (kPlain[static_cast<unsigned char>(*at_)]) {
        const char* const start = at_;
        while (kPlain[static_cast<unsigned char>(*at_)]) ++at_;
        text.append(start, at_);
      } else {
        beyond_ascii(text);
      }
    }
    if (text.empty()) throw OtherForm();
    return text;
  }

  void reference(std::string& to) {
    static constexpr std::pair<std::string_view, char> kNames[] = {
        {"&amp;",  '&' },
        {"&lt;",   '<' },
        {"&gt;",   '>' },
        {"&quot;", '"' },
        {"&apos;", '\''}
    };
    for (const auto& [name, c] : kNames) {
      if (take(name)) {
        to += c;
        return;
      }
    }
    expect("&#x");
    int code = 0;
    const auto result = std::from_chars(at_, at_ + std::min<ptrdiff_t>(2, end_ - at_), code, 16);
    if (result.ec != std::errc() || code < 1 || code > 127) throw OtherForm();
    at_ = result.ptr;
    expect(";");
    to += static_cast<char>(code);
  }

  void beyond_ascii(std::string& to) {
    const size_t size = ticpp::character_size(*at_);
    const auto is_high = [](char c) { return static_cast<unsigned char>(c) > 127; };
    if (size > static_cast<size_t>(end_ - at_) || !std::all_of(at_, at_ + size, is_high) ||
        ticpp::is_blank(*at_)) {
      throw OtherForm();
    }
    to.append(at_, size);
    at_ += size;
  }

  const char* at_;
  const char* const end_;  // a NUL byte
};

[[noreturn]] void fail(const std::string& file) {
  throw ticpp::Exception("Couldn't load " + file + ": " + strerror(errno));
}

}  // namespace

std::optional<value_struct> read_saved_form(const std::string& file) try {
  const File stream(fopen(file.c_str(), "rb"));
  if (stream == nullptr) fail(file);
  char start[kSavedStart.size()];
  const size_t size = fread(start, 1, sizeof start, stream.get());
  const bool has_form = std::string_view(start, size) == kSavedStart;
  const std::string rest = has_form ? read_text(stream.get(), 0) : "";
  if (ferror(stream.get()) != 0) fail(file);
  if (!has_form) return std::nullopt;
  return Reader(rest).document();
} catch (const OtherForm&) {
  return std::nullopt;
}

}  // namespace util
