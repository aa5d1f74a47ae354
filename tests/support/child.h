// SPDX-License-Identifier: MIT
// A child process for what would disturb the other tests.
#pragma once

#include <functional>

namespace support {

// Runs `body` in a fresh process, where it may close streams and change what is process-wide. An
// expectation that fails there fails the calling test, which shows it unless standard error was
// closed.
void in_child(const std::function<void()>& body);

}  // namespace support
