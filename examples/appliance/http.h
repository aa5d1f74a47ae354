// SPDX-License-Identifier: MIT
// What a program behind a web server's common gateway interface is asked, and what it answers.
#pragma once

#include <stddef.h>

#include <map>
#include <stdexcept>
#include <string>

namespace appliance {

// A request that is not served: an HTTP status and a sentence for the user. The sentence never
// repeats what was sent.
class Refusal : public std::runtime_error {
 public:
  Refusal(int status, const char* sentence) : std::runtime_error(sentence), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// A variable of the environment, "" where it is not set.
std::string variable(const char* name);

// What the address asks for: "a=1&b=x%20y" by name. Throws Refusal where it is too long, a name
// comes twice or a text is malformed.
std::map<std::string, std::string> read_query();

// The body, from standard input. Throws Refusal where it is not text/plain, its length is missing,
// malformed, above `most` or more than was sent.
std::string read_body(size_t most);

struct Answer {
  int status;
  std::string type;  // "text/plain"; always in UTF-8
  std::string body;
};

// Writes what precedes a body of that type.
void send_head(int status, const std::string& type);

// Writes the answer to standard output, without its body where the request was a HEAD.
void send(const Answer& answer);

}  // namespace appliance
