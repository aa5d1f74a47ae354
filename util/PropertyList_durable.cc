// SPDX-License-Identifier: MIT
// A list written as text, in forms that load() reads back equal.
#include "ticpp/syntax.h"
#include "util/PropertyList.h"
#include "util/base64.h"
#include "util/datetime.h"
#include "util/internal/losses.h"
#include "util/internal/replace_file.h"
#include "util/system_exception.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace util {
namespace {

constexpr auto kEscaped = [] {
  std::array<bool, 256> escaped = {};
  for (size_t c = 0; c < escaped.size(); ++c) escaped[c] = ticpp::is_escaped(static_cast<char>(c));
  return escaped;
}();

// A text that grows by blocks: it is never copied, and hardly more memory than its size is used.
class Text {
 public:
  void add(std::string_view piece) {
    memcpy(room(piece.size()), piece.data(), piece.size());
    at_ += piece.size();
  }
  void blanks(size_t count) {
    memset(room(count), ' ', count);
    at_ += count;
  }

  // Room for `size` bytes; use() says how many of them were filled.
  char* room(size_t size) {
    if (size > static_cast<size_t>(end_ - at_)) grow(size);
    return at_;
  }
  void use(const char* end) { at_ += end - at_; }

  void write_to(int descriptor) {
    close_block();
    for (const Block& block : blocks_) write_all(descriptor, block.bytes.get(), block.size);
  }

 private:
  struct Block {
    std::unique_ptr<char[]> bytes;
    size_t size;
  };

  void close_block() {
    if (blocks_.empty()) return;
    blocks_.back().size = static_cast<size_t>(at_ - blocks_.back().bytes.get());
  }

  void grow(size_t least) {
    close_block();
    if (!blocks_.empty()) total_ += blocks_.back().size;
    const size_t size = std::max({size_t{16384}, total_ / 8, least});
    // NOLINTNEXTLINE(modernize-make-unique): that would fill it with zeros first
    blocks_.push_back({std::unique_ptr<char[]>(new char[size]), 0});
    at_ = blocks_.back().bytes.get();
    end_ = at_ + size;
  }

  static void write_all(int descriptor, const char* at, size_t size) {
    while (size > 0) {
      const ssize_t written = ::write(descriptor, at, size);
      if (written < 0) throw system_exception();
      at += written;
      size -= static_cast<size_t>(written);
    }
  }

  std::vector<Block> blocks_;
  size_t total_ = 0;  // in the blocks before the last one
  char* at_ = nullptr;
  char* end_ = nullptr;
};

// A value cannot be represented.
struct Refused {
  const char* reason;
};

// Writes what save() would write if that reads back equal, and otherwise the other form if there is
// one.
class Writer {
 public:
  explicit Writer(Text& to) : to_(to) {}

  void document(const value_struct& list) {
    to_.add(
        "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
        "<plist version=\"1.0\">\n");
    to_.blanks(kIndent);
    dict(list, 1);
    to_.add("</plist>\n");
  }

 private:
  static constexpr size_t kIndent = 4;

  // Writes the blanks of its line first; `depth` is the number of elements around it.
  void value(const Value& v, size_t depth) {
    if (depth > PropertyList::kMaxDepth) throw Refused{"values nested too deep"};
    to_.blanks(kIndent * depth);
    switch (v.get_type()) {
      case INTEGER: return integer(v);
      case BOOLEAN: return to_.add(static_cast<const bool&>(v) ? "<true />\n" : "<false />\n");
      case DOUBLE: return real(v);
      case STRING: return text("<string>", v, "</string>\n");
      case DATE_TIME: return date(v);
      case BYTE_STRING: return data(v);
      case STRUCT: return dict(v, depth);
      case ARRAY: return array(v, depth);
      case VOID: break;
    }
    throw Refused{"a value of no kind"};
  }

  static void refuse_if(const char* reason) {
    if (reason != nullptr) throw Refused{reason};
  }

  void dict(const value_struct& entries, size_t depth) {
    if (entries.empty()) return to_.add("<dict />\n");
    to_.add("<dict>\n");
    for (const auto& entry : entries) {
      to_.blanks(kIndent * (depth + 1));
      text("<key>", entry.first, "</key>\n");
      value(entry.second, depth + 1);
    }
    to_.blanks(kIndent * depth);
    to_.add("</dict>\n");
  }

  void array(const value_array& items, size_t depth) {
    if (items.empty()) return to_.add("<array />\n");
    to_.add("<array>\n");
    for (const Value& item : items) value(item, depth + 1);
    to_.blanks(kIndent * depth);
    to_.add("</array>\n");
  }

  void integer(int number) {
    constexpr size_t kLongest = 11;
    to_.add("<integer>");
    char* const digits = to_.room(kLongest);
    to_.use(std::to_chars(digits, digits + kLongest, number).ptr);
    to_.add("</integer>\n");
  }

  void real(double number) {
    const Loss loss = loss_of(number);
    refuse_if(loss.refused);
    constexpr size_t kLongest = 32;
    to_.add("<real>");
    char* const digits = to_.room(kLongest);
    char* const end = digits + kLongest;
    to_.use((loss.saved == nullptr
                 ? std::to_chars(digits, end, number, std::chars_format::general, 6)
                 : std::to_chars(digits, end, number))
                .ptr);
    to_.add("</real>\n");
  }

  void date(utime_t instant) {
    const std::string text = unparse_time(instant, "%FT%TZ");
    refuse_if(refusal_of_date(instant, text));
    to_.add("<date>");
    to_.add(text);
    to_.add("</date>\n");
  }

  void data(const byte_string& bytes) {
    to_.add("<data>");
    if (bytes.empty()) section("");
    constexpr size_t kPart = 3072;  // whole groups, so that the parts make one text
    for (size_t at = 0; at < bytes.size(); at += kPart) {
      part_.clear();
      b64_encode(bytes.size() <= kPart ? bytes : bytes.substr(at, kPart), part_, 0);
      to_.add(part_);
    }
    to_.add("</data>\n");
  }

  void text(std::string_view start, const std::string& text, std::string_view end) {
    const Loss loss = loss_of(text);
    refuse_if(loss.refused);
    to_.add(start);
    loss.saved == nullptr ? escaped(text) : section(text);
    to_.add(end);
  }

  // The parser gives a section back as it is.
  void section(std::string_view text) {
    to_.add("<![CDATA[");
    to_.add(text);
    to_.add("]]>");
  }

  void escaped(std::string_view text) {
    for (size_t at = 0; at < text.size(); ++at) {
      const size_t plain = at;
      while (at < text.size() && !kEscaped[static_cast<unsigned char>(text[at])]) ++at;
      to_.add(text.substr(plain, at - plain));
      if (at < text.size()) escape(text[at]);
    }
  }

  void escape(char c) {
    switch (c) {
      case '&': return to_.add("&amp;");
      case '<': return to_.add("&lt;");
      case '>': return to_.add("&gt;");
      case '"': return to_.add("&quot;");
      case '\'': return to_.add("&apos;");
      default: break;
    }
    const char number[] = {'&', '#', 'x', "01"[c / 16], "0123456789ABCDEF"[c % 16], ';'};
    to_.add({number, sizeof number});
  }

  Text& to_;
  std::string part_;
};

}  // namespace

void PropertyList::saveDurably() try {
  Text text;
  Writer(text).document(properties);
  replace_file(file, backup(), temporary(), [&text](int to) { text.write_to(to); });
} catch (const Refused& refused) {
  const std::string found = first_refusal(properties);  // empty if the C library failed just once
  throw save_failed(file, found.empty() ? refused.reason : found.c_str());
} catch (const system_exception& e) {
  throw save_failed(file, e.what());
}

}  // namespace util
