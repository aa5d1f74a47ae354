// SPDX-License-Identifier: MIT
// The command-line tools, run within this process.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

struct ToolRun {
  int status;
  std::string out;
  std::string err;  // messages begin with "tool: "
};

// A tool's main(), which the build has given another name, with these words behind its name.
ToolRun run(int (*main)(int, char**), std::vector<std::string> words);

// `text` as outlines show it: control bytes except tab and newline, marks of the
// direction of writing, and what is not UTF-8, as in "\x1B".
std::string printable(const std::string& text);

// The same on one line between double quotes.
std::string quoted(const std::string& text);

// A message as the tool writes it: "tool: <text>" on a line of its own.
std::string message(const std::string& text);

}  // namespace fuzz
