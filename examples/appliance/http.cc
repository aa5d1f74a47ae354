// SPDX-License-Identifier: MIT
#include "http.h"

#include <service/utf8.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <system_error>

namespace appliance {
namespace {

constexpr size_t kLongestQuery = 2048;

// Turns "x+y%20z" into "x y z".
std::string decoded(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = text[i] == '+' ? ' ' : static_cast<unsigned char>(text[i]);
    if (byte == '%') {
      const char* const end = text.data() + std::min(i + 3, text.size());
      const auto [rest, error] = std::from_chars(text.data() + i + 1, end, byte, 16);
      if (error != std::errc() || rest != text.data() + i + 3) byte = 0;
      i += 2;
    }
    if (byte < ' ' || byte == 0x7f) throw Refusal(400, "The address is malformed.");
    plain += static_cast<char>(byte);
  }
  if (service::valid_utf8(plain) != plain) throw Refusal(400, "The address is malformed.");
  return plain;
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

std::map<std::string, std::string> read_query() {
  const std::string query = variable("QUERY_STRING");
  if (query.size() > kLongestQuery) throw Refusal(400, "The address is too long.");
  std::map<std::string, std::string> fields;
  std::istringstream parts(query);
  for (std::string part; std::getline(parts, part, '&');) {
    const size_t equals = std::min(part.find('='), part.size());
    const std::string value = decoded(part.substr(std::min(equals + 1, part.size())));
    if (!fields.emplace(decoded(part.substr(0, equals)), value).second) {
      throw Refusal(400, "The address has a part twice.");
    }
  }
  return fields;
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

// The web server knows the words for the status.
void send_head(int status, const std::string& type) {
  std::cout << "Status: " << status << "\r\n"
            << "Content-Type: " << type << "; charset=utf-8\r\n"
            << "Cache-Control: no-store\r\n"
            << "X-Content-Type-Options: nosniff\r\n"
            << "Cross-Origin-Resource-Policy: same-origin\r\n";
  if (status == 405) std::cout << "Allow: GET, HEAD, POST\r\n";
  std::cout << "\r\n";
}

void send(const Answer& answer) {
  send_head(answer.status, answer.type);
  if (variable("REQUEST_METHOD") != "HEAD") std::cout << answer.body;
  std::cout.flush();
}

}  // namespace appliance
