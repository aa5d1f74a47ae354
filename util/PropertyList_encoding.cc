// SPDX-License-Identifier: MIT
// The XML form of a list.
#include "ticpp/syntax.h"
#include "util/PropertyList.h"
#include "util/base64.h"
#include "util/datetime.h"

#include <ctime>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <ticpp.h>

namespace util {
namespace {

static_assert(PropertyList::kMaxDepth == ticpp::kMaxDepth - 1, "one element is \"plist\"");

// Not objects: a program's static objects may load and save before the library's are constructed.
constexpr char _PLIST[] = "plist";
constexpr char _VERSION[] = "version";
constexpr char _DICT[] = "dict";
constexpr char _KEY[] = "key";
constexpr char _INTEGER[] = "integer";
constexpr char _REAL[] = "real";
constexpr char _STRING[] = "string";
constexpr char _TRUE[] = "true";
constexpr char _FALSE[] = "false";
constexpr char _DATE[] = "date";
constexpr char _DATA[] = "data";
constexpr char _ARRAY[] = "array";

class Encoder {
 public:
  explicit Encoder(const std::string& file) : file_(file) {}

  std::unique_ptr<ticpp::Element> value(const Value& v) {
    auto element = std::make_unique<ticpp::Element>(name(v));
    fill(*element, v);
    return element;
  }

 private:
  [[noreturn]] void fail(const char* text) const { throw malformed_property_list(file_, text); }

  const char* name(const Value& v) const {
    switch (v.get_type()) {
      case INTEGER: return _INTEGER;
      case BOOLEAN: return static_cast<const bool&>(v) ? _TRUE : _FALSE;
      case DOUBLE: return _REAL;
      case STRING: return _STRING;
      case DATE_TIME: return _DATE;
      case BYTE_STRING: return _DATA;
      case STRUCT: return _DICT;
      case ARRAY: return _ARRAY;
      case VOID: fail("can't encode void");
    }
    fail("can't encode value type");
  }

  void fill(ticpp::Element& e, const Value& v) {
    switch (v.get_type()) {
      case INTEGER: return e.SetText(static_cast<const int&>(v));
      case DOUBLE: return e.SetText(static_cast<const double&>(v));
      case STRING: return e.SetText(static_cast<const std::string&>(v));
      case DATE_TIME: return e.SetText(date(v));
      case BYTE_STRING: return e.SetText(base64(v));
      case STRUCT: return fill_dict(e, v);
      case ARRAY: return fill_array(e, v);
      default: return;  // a boolean is its name
    }
  }

  void fill_dict(ticpp::Element& dict, const value_struct& entries) {
    for (const auto& entry : entries) {
      ticpp::Element key(_KEY);
      key.SetText(entry.first);
      dict.LinkEndChild(&key);
      append(dict, entry.second);
    }
  }

  void fill_array(ticpp::Element& array, const value_array& items) {
    for (const Value& item : items) append(array, item);
  }

  void append(ticpp::Element& parent, const Value& v) {
    // Reported before a file is touched and before the stack overflows.
    if (++depth_ > PropertyList::kMaxDepth) {
      throw ticpp::Exception("Couldn't save " + file_ + ": values nested deeper than " +
                             std::to_string(PropertyList::kMaxDepth));
    }
    ticpp::Element element(name(v));
    fill(element, v);
    parent.LinkEndChild(&element);
    --depth_;
  }

  // Kept: local time with a fixed "Z"; milliseconds are dropped.
  std::string date(const utime_t& instant) const {
    std::string text = unparse_time(instant, "%FT%TZ");
    if (text.empty()) fail("can't encode value type");  // the C library has no local time
    return text;
  }

  static std::string base64(const byte_string& bytes) {
    std::string text;
    b64_encode(bytes, text, 0);
    return text;
  }

  const std::string& file_;
  int depth_ = 1;  // of the value at hand
};

class Decoder {
 public:
  explicit Decoder(const std::string& file) : file_(file) {}

  Value value(const ticpp::Element& e) const;

 private:
  struct Rule {
    std::string_view name;
    Value (Decoder::*decode)(const ticpp::Element& e) const;
  };
  static const Rule kRules[];

  // The place is nested in what is thrown.
  [[noreturn]] void fail(const ticpp::Element& e, const char* text) const try {
    throw ticpp::Exception("element " + e.Value() + ", " +
                           ticpp::row_and_column(e.Row(), e.Column()));
  } catch (const ticpp::Exception&) {
    fail_nested(text);
  }

  // Must be called in the handler that caught the reason.
  [[noreturn]] void fail_nested(const char* text) const {
    std::throw_with_nested(malformed_property_list(file_, text));
  }

  Value dict(const ticpp::Element& e) const {
    value_struct entries;
    for (const ticpp::Element* key = e.FirstChildElement(false); key != nullptr;) {
      if (key->Value() != _KEY) fail(*key, "expecting 'key'");
      std::string name = text(*key, "expecting a key name, followed by a value element");
      const ticpp::Element* const v = key->NextSiblingElement(false);
      if (v == nullptr) fail(*key, "expecting a key name, followed by a value element");
      // Kept: the last of a name counts. The hint: files are written in the order of their keys.
      entries.insert_or_assign(entries.end(), std::move(name), value(*v));
      key = v->NextSiblingElement(false);
    }
    return entries;
  }

  Value array(const ticpp::Element& e) const {
    value_array items;
    for (const ticpp::Element* item = e.FirstChildElement(false); item != nullptr;
         item = item->NextSiblingElement(false)) {
      items.push_back(value(*item));
    }
    return items;
  }

  // Kept: an empty or blank text, which is written, is not read. Data likewise, below.
  Value string(const ticpp::Element& e) const { return e.GetText(); }
  Value integer(const ticpp::Element& e) const { return number<int>(e, "expected integer"); }
  Value real(const ticpp::Element& e) const { return number<double>(e, "expected real"); }

  template <class T>
  Value number(const ticpp::Element& e, const char* failure) const try {
    T number = 0;
    e.GetText(&number);  // Kept: what follows the number is ignored.
    return number;
  } catch (const ticpp::Exception&) {
    fail_nested(failure);
  }

  Value yes(const ticpp::Element& e) const { return boolean(e, true); }
  Value no(const ticpp::Element& e) const { return boolean(e, false); }

  Value boolean(const ticpp::Element& e, bool flag) const {
    if (!e.NoChildren()) fail(e, "malformed boolean");
    return flag;
  }

  // Local time; the "Z" is only a letter.
  Value date(const ticpp::Element& e) const {
    tm broken = {};
    broken.tm_isdst = -1;  // The C library decides.
    if (strptime(text(e, "expecting date").c_str(), "%Y-%m-%dT%TZ", &broken) == nullptr) {
      fail(e, "malformed date");
    }
    // Kept: a failure of mktime() is not detected; its -1 gives -1000 as an unsigned number.
    return static_cast<utime_t>(int64_t{mktime(&broken)}) * 1000;
  }

  Value data(const ticpp::Element& e) const {
    byte_string bytes;
    b64_decode(text(e, "expecting data"), bytes);  // Kept: what is malformed is cut off, no error.
    return bytes;
  }

  std::string text(const ticpp::Element& e, const char* failure) const try {
    return e.GetText();
  } catch (const ticpp::Exception&) {
    fail_nested(failure);
  }

  const std::string& file_;
};

constexpr Decoder::Rule Decoder::kRules[] = {
    {_DICT,    &Decoder::dict   },
    {_ARRAY,   &Decoder::array  },
    {_STRING,  &Decoder::string },
    {_INTEGER, &Decoder::integer},
    {_REAL,    &Decoder::real   },
    {_TRUE,    &Decoder::yes    },
    {_FALSE,   &Decoder::no     },
    {_DATE,    &Decoder::date   },
    {_DATA,    &Decoder::data   },
};

Value Decoder::value(const ticpp::Element& e) const {
  const std::string name = e.Value();
  for (const Rule& rule : kRules) {
    if (name == rule.name) return (this->*rule.decode)(e);
  }
  fail(e, "unknown element");
}

// Lends a map to a value; copying a whole list takes as long as writing it.
class Lent {
 public:
  explicit Lent(value_struct& map) : map_(map), value_(value_struct()) { exchange(); }
  ~Lent() { exchange(); }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;

  Value& value() { return value_; }

 private:
  void exchange() { map_.swap(static_cast<value_struct&>(value_)); }

  value_struct& map_;
  Value value_;
};

}  // namespace

void PropertyList::encode(ticpp::Document& document) {
  ticpp::Declaration declaration("1.0", "UTF8", "yes");  // Kept: not "UTF-8".
  ticpp::Element plist(_PLIST);
  plist.SetAttribute(_VERSION, "1.0");
  Lent list(properties);
  const std::unique_ptr<ticpp::Element> dict(encode_value(list.value()));
  plist.LinkEndChild(dict.get());
  document.LinkEndChild(&declaration);
  document.LinkEndChild(&plist);
}

ticpp::Element* PropertyList::encode_value(Value& v) { return Encoder(file).value(v).release(); }

Value PropertyList::decode_value(ticpp::Element* e) { return Decoder(file).value(*e); }

}  // namespace util
