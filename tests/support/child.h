// SPDX-License-Identifier: MIT
// A child process for what would disturb the other tests.
#pragma once

#include <functional>
#include <string>

namespace support {

// Runs `body` in a fresh process, where it may close streams and change what is process-wide. An
// expectation that fails there fails the calling test, which shows it unless standard error was
// closed.
void in_child(const std::function<void()>& body);

// Whether this machine lets a test have a mount namespace.
bool namespaces_work();

// Only in a child: moves it into a mount namespace of its own, whose /dev is the folder `dev`.
void replace_dev(const std::string& dev);

// Only in a child: mounts a file system in memory on `folder`, for this child and its own children.
// `options` are mount's: "size=64k,nr_inodes=8".
void mount_memory(const std::string& folder, const std::string& options);

}  // namespace support
