// SPDX-License-Identifier: MIT
#include "tools/command.h"

#include "service/utf8.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace tools {
namespace {

bool fault_seen = false;
int output_error = 0;  // the first errno of standard output

std::string hexadecimal(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

// Characters that must not reach a terminal: controls except tab and newline, and those that change
// the direction of writing, which can make one name look like another.
constexpr struct {
  char32_t first, last;
} kHidden[] = {
    {0x00,   0x08  },
    {0x0B,   0x1F  },
    {0x7F,   0x9F  },
    {0x061C, 0x061C},
    {0x200E, 0x200F},
    {0x202A, 0x202E},
    {0x2066, 0x2069},
};

// The number of a character in UTF-8.
char32_t code_point(std::string_view character) {
  const auto byte = [&character](size_t at) { return static_cast<unsigned char>(character[at]); };
  if (character.size() == 1) return byte(0);
  char32_t point = byte(0) & (0x7FU >> character.size());
  for (size_t at = 1; at < character.size(); ++at) point = point << 6 | (byte(at) & 0x3FU);
  return point;
}

// The size of the harmless character that `text` begins with, or 0.
size_t harmless(std::string_view text) {
  const service::Utf8Piece piece = service::utf8_piece(text.data(), text.data() + text.size());
  if (!piece.valid) return 0;
  const char32_t point = code_point(text.substr(0, piece.size));
  const bool hidden = std::any_of(
      std::begin(kHidden), std::end(kHidden),
      [point](const auto& range) { return range.first <= point && point <= range.last; });
  return hidden ? 0 : piece.size;
}

// Keeps a file that is opened later from becoming standard output. Using a stream that was closed
// still fails.
void occupy_standard_streams() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", kModes[descriptor]);
  }
}

}  // namespace

int run_tool(int (*run)(int, char**), int argc, char** argv) {
  occupy_standard_streams();
  fault_seen = false;
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    fault(failure.what());
    return finish();
  }
}

void fault(const std::string& message) {
  fault_seen = true;
  warn(message);
}

void warn(const std::string& message) {
  std::cerr << program_invocation_short_name << ": " << printable_line(message) << std::endl;
}

int wrong_use(const std::string& message) {
  if (!message.empty()) warn(message);
  std::cerr << "Try '" << program_invocation_short_name << " --help'." << std::endl;
  return kWrongUse;
}

int wrong_option(int result, char* const argv[], const option* table) {
  if (result == ':') return wrong_use(std::string("'") + argv[optind - 1] + "' needs an argument");
  for (; table->name != nullptr; ++table) {
    if (table->val != optopt) continue;
    return wrong_use(std::string("'--") + table->name + "' does not take an argument");
  }
  // A short option shares its word with others; a long one has the word to itself.
  const std::string word =
      optopt == 0 ? argv[optind - 1] : std::string("-") + static_cast<char>(optopt);
  return wrong_use("'" + word + "' is not an option");
}

int print(const std::string& text) {
  std::cout << text;
  return finish();
}

int print_version() {
  return print(std::string(program_invocation_short_name) + " (nasutil) " NASUTIL_VERSION "\n");
}

void write_out(std::string_view text) {
  errno = 0;
  const bool failed = fwrite(text.data(), 1, text.size(), stdout) != text.size();
  if (failed && output_error == 0) output_error = errno;
}

bool flush() {
  errno = 0;
  std::cout.flush();
  const bool failed = fflush(stdout) != 0 || ferror(stdout) != 0 || !std::cout;
  if (failed && output_error == 0) output_error = errno != 0 ? errno : EIO;
  return !failed;
}

int finish() {
  if (!flush()) fault(std::string("standard output: ") + strerror(output_error));
  return fault_seen ? kFault : kGood;
}

std::string printable(std::string_view text) {
  std::string to;
  while (!text.empty()) {
    const size_t size = harmless(text);
    if (size > 0) {
      to += text.substr(0, size);
    } else {
      to += hexadecimal(text.substr(0, 1));
    }
    text.remove_prefix(std::max<size_t>(size, 1));
  }
  return to;
}

std::string printable_line(std::string_view text) {
  std::string to = printable(text);
  for (size_t at = to.find('\n'); at != to.npos; at = to.find('\n', at)) to.replace(at, 1, "\\x0A");
  return to;
}

bool on_terminal() { return isatty(STDOUT_FILENO) != 0; }

bool in_colours() {
  const char* const refused = getenv("NO_COLOR");
  const char* const terminal = getenv("TERM");
  return on_terminal() && (refused == nullptr || *refused == '\0') &&
         (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string for_output(std::string_view text) {
  return on_terminal() ? printable(text) : std::string(text);
}

}  // namespace tools
