// SPDX-License-Identifier: MIT
#include "http.h"

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <system_error>

namespace appliance {
namespace {

struct Reason {
  int status;
  const char* phrase;
};
constexpr Reason kReasons[] = {
    {200, "OK"                    },
    {202, "Accepted"              },
    {400, "Bad Request"           },
    {403, "Forbidden"             },
    {404, "Not Found"             },
    {405, "Method Not Allowed"    },
    {411, "Length Required"       },
    {413, "Content Too Large"     },
    {415, "Unsupported Media Type"},
    {421, "Misdirected Request"   },
};

const char* reason(int status) {
  for (const Reason& each : kReasons) {
    if (each.status == status) return each.phrase;
  }
  return "Internal Server Error";
}

size_t content_length() {
  const std::string text = variable("CONTENT_LENGTH");
  if (text.empty()) throw Refusal(411, "The request does not say how long it is.");
  size_t length = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, length);
  if (error == std::errc::result_out_of_range) throw Refusal(413, "The request is too long.");
  if (error != std::errc() || rest != end) {
    throw Refusal(400, "The request's length is not a number.");
  }
  return length;
}

}  // namespace

std::string variable(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? "" : value;
}

std::string read_body(size_t most) {
  const std::string type = variable("CONTENT_TYPE");
  if (type.substr(0, type.find(';')) != "text/plain") {
    throw Refusal(415, "The request is not plain text.");
  }
  const size_t length = content_length();
  if (length > most) throw Refusal(413, "The request is too long.");
  std::string body(length, '\0');
  std::cin.read(body.data(), static_cast<std::streamsize>(length));
  if (static_cast<size_t>(std::cin.gcount()) != length) {
    throw Refusal(400, "The request is shorter than it says.");
  }
  return body;
}

void send(const Answer& answer) {
  std::cout << "Status: " << answer.status << " " << reason(answer.status) << "\r\n"
            << "Content-Type: " << answer.type << "; charset=utf-8\r\n"
            << "Cache-Control: no-store\r\n"
            << "X-Content-Type-Options: nosniff\r\n"
            << "Cross-Origin-Resource-Policy: same-origin\r\n";
  if (answer.status == 405) std::cout << "Allow: GET, HEAD, POST\r\n";
  std::cout << "\r\n";
  if (variable("REQUEST_METHOD") != "HEAD") std::cout << answer.body;
  std::cout.flush();
}

}  // namespace appliance
