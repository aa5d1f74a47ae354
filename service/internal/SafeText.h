// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace service {

// Builds a text in a signal handler, where hardly any function may be called. A text that is too
// long is cut.
class SafeText {
 public:
  SafeText& operator<<(std::string_view text) {
    const size_t size = std::min(text.size(), sizeof text_ - 1 - size_);
    memcpy(text_ + size_, text.data(), size);
    size_ += size;
    text_[size_] = '\0';
    return *this;
  }
  void decimal(int64_t number, int width = 1) {
    if (number < 0) *this << "-";
    digits(number < 0 ? -static_cast<uint64_t>(number) : static_cast<uint64_t>(number), 10, width);
  }
  void hexadecimal(uint64_t number) {
    *this << "0x";
    digits(number, 16, 1);
  }

  const char* c_str() const { return text_; }
  size_t size() const { return size_; }

 private:
  void digits(uint64_t number, unsigned base, int width) {
    char reversed[24];
    int count = 0;
    for (; count < width || number > 0; number /= base) {
      reversed[count++] = "0123456789abcdef"[number % base];
    }
    while (count > 0) *this << std::string_view(&reversed[--count], 1);
  }

  char text_[1024] = "";
  size_t size_ = 0;
};

}  // namespace service
