// SPDX-License-Identifier: MIT
// What the command-line tools have in common: exit statuses, messages, the end of a run.
#pragma once

#include <string>
#include <string_view>

namespace tools {

enum Status { kGood = 0, kFault = 1, kWrongUse = 2 };

// The whole run of a tool: what throws is a fault. Returns the status to exit with.
int run_tool(int (*run)(int, char**), int argc, char** argv);

// Write "<program>: <message>" to standard error, as a terminal may see it; after a fault finish()
// will return kFault.
void fault(const std::string& message);
void warn(const std::string& message);

// Writes the message, unless it is empty, and where to find help to standard error. Returns
// kWrongUse.
int wrong_use(const std::string& message = "");

// Print the text, or the program's version, and end the run. Return the status to exit with.
int print(const std::string& text);
int print_version();

// Brings out what was written to standard output. False, now or later, where that failed.
bool flush();

// Ends a run: flushes, which is a fault where it fails. Returns the status to exit with.
int finish();

// `text` as a terminal may see it: control bytes except tab and newline, and what is not UTF-8, as
// "\x1B".
std::string printable(std::string_view text);

}  // namespace tools
