// SPDX-License-Identifier: MIT
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace service {

// Puts an entry into `to` as all publishers write it. Returns its size; if that is more than
// `room`, it does not fit, and what `to` holds is not an entry. Of a message that cannot be
// formatted, the format is shown.
size_t put_entry(char* to, size_t room, std::string_view time, const char* where,
                 const char* category, const char* format, va_list args);

}  // namespace service
