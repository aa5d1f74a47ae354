// SPDX-License-Identifier: MIT
#include "service/notify.h"

#include "service/internal/Descriptor.h"
#include "util/system_exception.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace service {

bool notify(const std::string& state) {
  const char* const path = getenv("NOTIFY_SOCKET");
  if (path == nullptr || *path == '\0') return false;
  sockaddr_un to = {};
  to.sun_family = AF_UNIX;
  const size_t size = strlen(path);
  if (size >= sizeof to.sun_path) throw util::system_exception(ENAMETOOLONG);
  memcpy(to.sun_path, path, size);
  if (*path == '@') to.sun_path[0] = '\0';  // an abstract address, without a file
  const Descriptor from(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const timeval patience = {0, 100000};
  setsockopt(from.number(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
  if (sendto(from.number(), state.data(), state.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&to), length) < 0) {
    throw util::system_exception();
  }
  return true;
}

}  // namespace service
