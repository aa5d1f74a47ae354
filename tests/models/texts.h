// SPDX-License-Identifier: MIT
// The rules of base64, escaping and natural order written once more, slow and plain: what tests and
// fuzz targets compare the library with.
#pragma once

#include <string>

namespace models {

std::string base64_encoded(const std::string& bytes, int width);

// The code that the decoder returns; the bytes are appended.
int base64_decoded(const std::string& text, std::string& bytes);

std::string escaped(const std::string& text);
std::string unescaped(const std::string& text);

// -1, 0 or 1. With `folded`, upper and lower case are the same.
int natural_order(const std::string& a, const std::string& b, bool folded);

}  // namespace models
