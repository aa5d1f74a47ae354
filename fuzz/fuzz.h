// SPDX-License-Identifier: MIT
// What every target is made of: inputs that are taken apart, and promises that must hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// A target runs one input; what breaks a promise ends the process.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Called once, before any input: instants are UTC.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fuzz {

// Takes an input apart from its start. Behind the end everything is 0 or empty.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : text_(data, data + size) {}

  template <class T>
  T number() {
    T number = 0;
    const std::string bytes = take(sizeof(number));
    memcpy(&number, bytes.data(), bytes.size());
    return number;
  }

  uint8_t byte() { return number<uint8_t>(); }
  std::string text() { return take(byte()); }  // as long as its first byte says
  std::string line(char end);                  // up to `end`, which goes too
  std::string rest() { return take(text_.size()); }
  bool empty() const { return at_ == text_.size(); }

 private:
  std::string take(size_t size);

  std::string text_;
  size_t at_ = 0;
};

// Whether all of the text is as the regular expression says.
bool matches(const std::string& text, const std::string& pattern);

void require(bool holds, const char* promise);
void require_equal(const std::string& expected, const std::string& actual, const char* of);

}  // namespace fuzz
