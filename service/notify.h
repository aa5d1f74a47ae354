// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

#include <string>

namespace service {

// Tells the service manager that started this process its state: "READY=1", "STOPPING=1" or
// "STATUS=3 clients", several of them on lines of their own.
//
// Returns false, and does nothing, if no service manager asked for it (the environment variable
// NOTIFY_SOCKET is not set). Throws util::system_exception if the message cannot be sent; EAGAIN
// if the manager's queue stays full for a tenth of a second.
UTIL_EXPORT bool notify(const std::string& state);

}  // namespace service
