// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace util {

// Makes `write`, which is handed a descriptor, the content of `file`, so that whenever the process
// is killed, the power fails or a system call does, the old content or the new one is found whole.
//
// The new file is written and synced under a name of its own, "<file>.<process id>.<number>", gets
// mode and owner of the old one (of the backup if there is no file), and is renamed over it. Before
// that the old file becomes `backup`, and `former`, which may be another name of it, is removed.
// Names that killed processes have left are removed first.
//
// Throws system_exception, and leaves no name of its own behind.
void replace_file(const std::string& file, const std::string& backup, const std::string& former,
                  const std::function<void(int)>& write);

}  // namespace util
