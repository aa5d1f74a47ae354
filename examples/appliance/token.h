// SPDX-License-Identifier: MIT
// Signed permissions: the web back end hands them out with the page's data and does nothing for a
// request that does not bring one back, so that no other site can send requests in a user's name.
#pragma once

#include <time.h>

#include <optional>
#include <string>

namespace appliance {

constexpr time_t kTokenLife = 600;  // seconds

// A text that proves until kTokenLife after `now` that this back end permitted `what`, which may
// hold letters, digits, '-' and ':': "acknowledge:17:1777644239:lX9...==", what is permitted, the
// time of issue, the signature of both.
std::string issue_token(const std::string& what, time_t now);

// What the token permits; nothing where it is forged, damaged, expired or from the future.
std::optional<std::string> permitted_by(const std::string& token, time_t now);

}  // namespace appliance
