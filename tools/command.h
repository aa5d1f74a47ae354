// SPDX-License-Identifier: MIT
// What the command-line tools have in common: exit statuses, messages, the end of a run.
#pragma once

#include <getopt.h>

#include <string>
#include <string_view>

namespace tools {

enum Status { kGood = 0, kFault = 1, kWrongUse = 2 };

// Runs a tool and reports its exceptions as faults. Returns the exit status.
int run_tool(int (*run)(int, char**), int argc, char** argv);

// Write "<program>: <message>" to standard error on one line, made safe for a terminal. After a
// fault, finish() returns kFault.
void fault(const std::string& message);
void warn(const std::string& message);

// Writes the message, unless it is empty, and where to find help to standard error. Returns
// kWrongUse.
int wrong_use(const std::string& message = "");

// The same for a word that getopt_long() has just found to be no option of `table` or to lack its
// argument. The string of short options must begin with ":" (after a "+"), so that getopt_long()
// prints nothing itself.
int wrong_option(int result, char* const argv[], const option* table);

// Print the text, or the program's version, and end the run. Return the exit status.
int print(const std::string& text);
int print_version();

// Writes to standard output. finish() says why that failed.
void write_out(std::string_view text);

// Flushes standard output. Returns false if this or an earlier write failed.
bool flush();

// Ends a run: flushes standard output and reports a failure. Returns the exit status.
int finish();

// `text` made safe for a terminal: control bytes except tab and newline, characters that change the
// direction of writing, and invalid UTF-8 are written as "\x1B".
std::string printable(std::string_view text);

// The same on one line: a newline is written as "\x0A".
std::string printable_line(std::string_view text);

// Whether standard output is a terminal, and whether colours may be used there: NO_COLOR is not
// set, and TERM is not "dumb".
bool on_terminal();
bool in_colours();

// `text` for standard output: printable() on a terminal, unchanged elsewhere.
std::string for_output(std::string_view text);

}  // namespace tools
