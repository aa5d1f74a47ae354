// SPDX-License-Identifier: MIT
// What the command-line tools have in common: exit statuses, messages, the end of a run.
#pragma once

#include <getopt.h>

#include <string>
#include <string_view>

namespace tools {

enum Status { kGood = 0, kFault = 1, kWrongUse = 2 };

// The whole run of a tool: what throws is a fault. Returns the status to exit with.
int run_tool(int (*run)(int, char**), int argc, char** argv);

// Write "<program>: <message>" to standard error on one line, as a terminal may see it; after a
// fault finish() will return kFault.
void fault(const std::string& message);
void warn(const std::string& message);

// Writes the message, unless it is empty, and where to find help to standard error. Returns
// kWrongUse.
int wrong_use(const std::string& message = "");

// The same for what getopt_long() has just returned for a word that is not an option of `table`, or
// that lacks its argument. The string of short options must begin with ":" (behind a "+"), so that
// getopt_long() itself says nothing.
int wrong_option(int result, char* const argv[], const option* table);

// Print the text, or the program's version, and end the run. Return the status to exit with.
int print(const std::string& text);
int print_version();

// Writes to standard output. finish() says why that failed.
void write_out(std::string_view text);

// Brings out what was written to standard output. False, now or later, where that failed.
bool flush();

// Ends a run: flushes, which is a fault where it fails. Returns the status to exit with.
int finish();

// `text` as a terminal may see it: control bytes except tab and newline, characters that change the
// direction of writing, and what is not UTF-8, as "\x1B".
std::string printable(std::string_view text);

// The same on one line: a newline as "\x0A".
std::string printable_line(std::string_view text);

// Whether standard output is a terminal, and one that shall be written to in colours: NO_COLOR is
// not set, and TERM is not "dumb".
bool on_terminal();
bool in_colours();

// `text` as standard output may have it: printable() on a terminal, elsewhere as it is.
std::string for_output(std::string_view text);

}  // namespace tools
