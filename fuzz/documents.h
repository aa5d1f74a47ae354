// SPDX-License-Identifier: MIT
// XML documents as the targets' own readers see them.
#pragma once

#include "fuzz/fuzz.h"

#include <exception>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <tinyxml.h>

namespace fuzz {

// A reader does not accept a document; the text says why where somebody promised to.
class Refused : public std::exception {
 public:
  explicit Refused(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

// Whether TinyXML may be given the text without the library's checks in front: it is too short to
// be nested too deep or to have too many attributes.
bool is_harmless(const std::string& text);

// The parser does not say when it drops what follows a declaration that it cannot read. The
// library refuses that.
bool has_declaration(const std::string& text);

// Throws Refused.
void parse(const std::string& text, TiXmlDocument& document);

// The text of an element, or null. Only a text that comes first counts.
const std::string* text_of(const TiXmlElement& element);

// The number that a text starts with.
template <class T>
std::optional<T> number_in(const std::string* text) {
  std::istringstream stream(text == nullptr ? "" : *text);
  T number = 0;
  if (stream >> number) return number;
  return {};
}

}  // namespace fuzz
