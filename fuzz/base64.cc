// SPDX-License-Identifier: MIT
// An input is the width of the text's lines, one signed byte, and the bytes or the text.
#include "util/base64.h"

#include "fuzz/fuzz.h"
#include "tests/models/texts.h"

namespace {

util::byte_string bytes_of(const std::string& text) { return {text.begin(), text.end()}; }
std::string text_of(const util::byte_string& bytes) { return {bytes.begin(), bytes.end()}; }

void check_encoding(const std::string& bytes, int width) {
  std::string text = "in front ";
  fuzz::require(util::b64_encode(bytes_of(bytes), text, width) == 0, "encoding returns 0");
  fuzz::require_equal("in front " + models::base64_encoded(bytes, width), text, "encoding");
  util::byte_string back;
  fuzz::require(util::b64_decode(text.substr(sizeof("in front ") - 1), back) == 0,
                "what was encoded decodes");
  fuzz::require_equal(bytes, text_of(back), "encoding and decoding");
}

void check_decoding(const std::string& text) {
  std::string expected = "in front ";
  util::byte_string actual = bytes_of(expected);
  const int code = models::base64_decoded(text, expected);
  fuzz::require(util::b64_decode(text, actual) == code, "the code of decoding");
  fuzz::require_equal(expected, text_of(actual), "decoding");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const int width = static_cast<int8_t>(input.byte());
  const std::string rest = input.rest();
  check_encoding(rest, width);
  check_decoding(rest);
  return 0;
}
