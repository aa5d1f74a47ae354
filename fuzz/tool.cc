// SPDX-License-Identifier: MIT
#include "fuzz/tool.h"

#include "tests/support/files.h"

#include <errno.h>
#include <getopt.h>

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace fuzz {
namespace {

// How many bytes the character at the start has whose code point may be shown; 0 where it may not.
size_t shown_character(const std::string& text) {
  const auto byte = [&text](size_t at) { return uint32_t{static_cast<uint8_t>(text[at])}; };
  const uint32_t lead = byte(0);
  if (lead < 0x80) return (lead >= 0x20 && lead != 0x7F) || lead == '\t' || lead == '\n' ? 1 : 0;
  const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC0 || lead >= 0xF8 || text.size() < size) return 0;
  uint32_t point = lead & (0x7FU >> size);
  for (size_t at = 1; at < size; ++at) {
    if (byte(at) / 0x40 != 2) return 0;
    point = point * 0x40 + byte(at) % 0x40;
  }
  constexpr uint32_t kFirst[] = {0, 0, 0xA0, 0x800, 0x10000};  // of that size; C1 controls left out
  const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  const bool turns = point == 0x61C || (point >= 0x200E && point <= 0x200F) ||
                     (point >= 0x202A && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
  return point >= kFirst[size] && point <= 0x10FFFF && !surrogate && !turns ? size : 0;
}

}  // namespace

ToolRun run(int (*main)(int, char**), std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.insert(arguments.begin(), program_invocation_short_name);
  arguments.push_back(nullptr);

  char name[] = "tool";
  char* const old_name = program_invocation_short_name;
  std::ostringstream messages;
  std::streambuf* const old_messages = std::cerr.rdbuf(messages.rdbuf());
  program_invocation_short_name = name;
  optind = 0;  // from the start
  opterr = 0;
  ToolRun result = {};
  {
    support::Captured out(stdout);
    result.status = main(static_cast<int>(words.size()) + 1, arguments.data());
    result.out = out.text();
  }
  program_invocation_short_name = old_name;
  std::cerr.rdbuf(old_messages);
  result.err = messages.str();
  return result;
}

std::string printable(const std::string& text) {
  std::string to;
  for (size_t at = 0; at < text.size();) {
    const size_t size = shown_character(text.substr(at, 4));
    char byte[8];
    snprintf(byte, sizeof(byte), "\\x%02X", static_cast<unsigned>(static_cast<uint8_t>(text[at])));
    to += size > 0 ? text.substr(at, size) : byte;
    at += size > 0 ? size : 1;
  }
  return to;
}

std::string quoted(const std::string& text) {
  std::string to;
  std::string plain;  // since the last escape: a character ends before one at the latest
  for (const char c : text) {
    const size_t at = std::string("\n\r\t\"\\").find(c);
    if (at == std::string::npos) {
      plain += c;
      continue;
    }
    to += printable(plain) + '\\' + "nrt\"\\"[at];
    plain.clear();
  }
  return '"' + to + printable(plain) + '"';
}

std::string message(const std::string& text) {
  std::string line = "tool: ";
  for (const char c : printable(text)) line += c == '\n' ? std::string("\\x0A") : std::string(1, c);
  return line + "\n";
}

}  // namespace fuzz
