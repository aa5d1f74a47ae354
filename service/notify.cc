// SPDX-License-Identifier: MIT
#include "service/notify.h"

#include "util/system_exception.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace service {
namespace {

class Socket {
 public:
  Socket() : descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (descriptor_ < 0) throw util::system_exception();
  }
  ~Socket() { close(descriptor_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int descriptor() const { return descriptor_; }

 private:
  const int descriptor_;
};

}  // namespace

bool notify(const std::string& state) {
  const char* const path = getenv("NOTIFY_SOCKET");
  if (path == nullptr || *path == '\0') return false;
  sockaddr_un to = {};
  to.sun_family = AF_UNIX;
  const size_t size = strlen(path);
  if (size >= sizeof to.sun_path) throw util::system_exception(ENAMETOOLONG);
  memcpy(to.sun_path, path, size);
  if (*path == '@') to.sun_path[0] = '\0';  // an abstract address, which no file stands for
  const Socket from;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
  if (sendto(from.descriptor(), state.data(), state.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&to), length) < 0) {
    throw util::system_exception();
  }
  return true;
}

}  // namespace service
