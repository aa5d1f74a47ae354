// SPDX-License-Identifier: MIT
// Conversions between texts and raw bytes.
#pragma once

#include "util/export.h"
#include "util/types.h"

#include <string>

namespace service {

// The same bytes as the other type; nothing is decoded.
inline util::byte_string to_bytes(const std::string& text) { return {text.begin(), text.end()}; }
inline std::string to_text(const util::byte_string& bytes) { return {bytes.begin(), bytes.end()}; }

// "00:1a:2b:3c:4d:5e", as many bytes as there are.
UTIL_EXPORT std::string mac_to_str(const util::byte_string& address);

}  // namespace service
