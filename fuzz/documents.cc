// SPDX-License-Identifier: MIT
#include "fuzz/documents.h"

#include <algorithm>
#include <cctype>

namespace fuzz {

bool is_harmless(const std::string& text) {
  return std::count(text.begin(), text.end(), '<') < 1000 &&
         std::count(text.begin(), text.end(), '=') < 256;
}

bool has_declaration(const std::string& text) {
  std::string folded = text;
  std::transform(folded.begin(), folded.end(), folded.begin(),
                 [](unsigned char c) { return static_cast<char>(tolower(c)); });
  return folded.find("<?xml") != std::string::npos;
}

void parse(const std::string& text, TiXmlDocument& document) {
  std::string lines;  // with line feeds only; a NUL byte is the end for the parser
  for (size_t i = 0; i < text.size(); ++i) {
    const bool pair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if (!pair) lines += text[i] == '\r' ? '\n' : text[i];
  }
  lines.append(8, '\0');  // the parser steps over a NUL that ends a character cut short
  document.Parse(lines.c_str());
  if (document.Error()) throw Refused("load failed");
}

const std::string* text_of(const TiXmlElement& element) {
  const TiXmlNode* const first = element.FirstChild();
  return first == nullptr || first->ToText() == nullptr ? nullptr : &first->ValueStr();
}

}  // namespace fuzz
