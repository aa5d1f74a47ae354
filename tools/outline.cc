// SPDX-License-Identifier: MIT
#include "tools/outline.h"

#include "tools/command.h"

#include <algorithm>
#include <iostream>

namespace tools {
namespace {

constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";

constexpr std::string_view kEscaped = "\n\r\t\"\\";
constexpr std::string_view kLetters = "nrt\"\\";

}  // namespace

std::string quoted(std::string_view text) {
  std::string to = "\"";
  while (!text.empty()) {
    const size_t plain = std::min(text.find_first_of(kEscaped), text.size());
    to += printable(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    to += {'\\', kLetters[kEscaped.find(text[0])]};
    text.remove_prefix(1);
  }
  return to + '"';
}

std::string plain_or_quoted(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_not_of(kPlain) == text.npos;
  return plain ? text : quoted(text);
}

void Outline::item(const std::string& name, const std::string& value) {
  begin(name);
  std::cout << ' ' << value << '\n';
}

void Outline::open(const std::string& name) {
  begin(name);
  std::cout << '\n';
  ++level_;
}

void Outline::begin(const std::string& name) const {
  std::cout << std::string(2 * level_, ' ') << name << ':';
}

}  // namespace tools
