// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace util {

// Replaces the content of `file` with what `write` writes to the descriptor that it is given.
// Whenever the process is killed, the power fails or a system call fails, either the old or the new
// content is there in full.
//
// The new file is written and synced under a name of its own, "<file>.<process id>.<number>", gets
// the mode and owner of the old one (of the backup if there is no file), and is renamed over it.
// Before that, the old file becomes `backup`, and `former`, which may be another name of it, is
// removed. Names that killed processes have left are removed first.
//
// Throws system_exception, and leaves no name of its own behind.
void replace_file(const std::string& file, const std::string& backup, const std::string& former,
                  const std::function<void(int)>& write);

}  // namespace util
